// SPDX-License-Identifier: MIT
// The service applying settings: it reads /etc/external_device.json (under the system root) the way
// the box's service does and keeps what it applied, so that tests can see what reached it.
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "box_files.h"
#include "libvask_external_device.h"
#include "sim_protocol.h"
#include "simulator.h"

namespace vask_sim {
namespace {

json_ptr read_configuration(const char *fixed_path)
{
    return json_ptr(vask_tools::read_box_json(fixed_path));
}

// "gr" and "id" are numbers or strings in the file; compared as text.
std::string key_text(const cJSON *item)
{
    if (cJSON_IsString(item))
        return item->valuestring;
    if (cJSON_IsNumber(item))
        return std::to_string(item->valueint);
    return std::string();
}

} // namespace

std::string simulator::apply_section(const char *section, const char *file)
{
    json_ptr document = read_configuration(file);
    cJSON *found = cJSON_GetObjectItemCaseSensitive(document.get(), section);
    if (!cJSON_IsObject(found))
        return reply_text(kCodeBadConfig);
    applied_[section].reset(cJSON_Duplicate(found, true));
    return reply_text(0);
}

// The service learns an updated item from the file: it must be there after an update and gone
// after a delete. Group-conflict items are matched by group alone.
std::string simulator::microphone_item(const char *list, bool must_exist, const cJSON *body)
{
    std::string gr = key_text(cJSON_GetObjectItemCaseSensitive(body, "gr"));
    std::string id = key_text(cJSON_GetObjectItemCaseSensitive(body, "id"));
    bool by_group = strcmp(list, "microphone_config") != 0;
    if (gr.empty())
        return reply_text(kCodeBadRequest);
    json_ptr document = read_configuration("/etc/microphone_control.json");
    const cJSON *items = cJSON_GetObjectItemCaseSensitive(document.get(), list);
    if (!cJSON_IsArray(items))
        return reply_text(kCodeBadConfig);
    bool found = false;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, items)
    {
        found = found || (key_text(cJSON_GetObjectItemCaseSensitive(item, "gr")) == gr &&
                          (by_group || key_text(cJSON_GetObjectItemCaseSensitive(item, "id")) == id));
    }
    if (found != must_exist)
        return reply_text(kCodeNoSuchItem);
    applied_[list].reset(cJSON_Duplicate(items, true));
    return reply_text(0);
}

// Executing (or simulating) an item needs it registered in the file.
std::string simulator::execute_item(bool simulated, const cJSON *body)
{
    std::string gr = key_text(cJSON_GetObjectItemCaseSensitive(body, "gr"));
    std::string id = key_text(cJSON_GetObjectItemCaseSensitive(body, "id"));
    json_ptr document = read_configuration("/etc/microphone_control.json");
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, cJSON_GetObjectItemCaseSensitive(document.get(), "microphone_config"))
    {
        if (key_text(cJSON_GetObjectItemCaseSensitive(item, "gr")) == gr &&
            key_text(cJSON_GetObjectItemCaseSensitive(item, "id")) == id) {
            json_ptr executed(cJSON_Duplicate(item, true));
            cJSON_AddBoolToObject(executed.get(), "simulated", simulated);
            applied_["executed"] = std::move(executed);
            return reply_text(0);
        }
    }
    return reply_text(kCodeNoSuchItem);
}

// A projector connection test succeeds for a dotted IPv4 address.
std::string simulator::projector_test(const cJSON *body)
{
    const cJSON *address = cJSON_GetObjectItemCaseSensitive(body, "ip_address");
    if (!cJSON_IsString(address) || !cJSON_IsString(cJSON_GetObjectItemCaseSensitive(body, "password")))
        return reply_text(kCodeBadRequest);
    in_addr parsed;
    return reply_text(inet_pton(AF_INET, address->valuestring, &parsed) == 1 ? 0 : kCodeUnreachable);
}

// Runs a macro of the remote controller: the macros are those the configuration holds for this box
// model, read as the box's service reads them (with the library's reader).
std::string simulator::zorvo_goto_macro(const cJSON *body)
{
    const cJSON *index = cJSON_GetObjectItemCaseSensitive(body, "macro_index");
    if (!cJSON_IsNumber(index))
        return reply_text(kCodeBadRequest);
    external_zorvo_info info;
    if (ReadExternalZORVOControlConfig(&info) != 0)
        return reply_text(kCodeBadConfig);
    if (index->valueint < 1 || index->valueint > static_cast<int>(info.macros.size()))
        return reply_text(kCodeNoSuchMacro);
    last_macro_ = index->valueint;
    return reply_text(0, ",\"macro_index\":" + std::to_string(last_macro_));
}

std::string simulator::applied(const cJSON *body)
{
    std::string section = string_member(body, "section");
    if (section.empty())
        return reply_text(kCodeBadRequest);
    auto found = applied_.find(section);
    std::string text = found != applied_.end() ? print(found->second.get()) : "null";
    return reply_text(0, ",\"section\":\"" + section + "\",\"applied\":" + text);
}

} // namespace vask_sim
