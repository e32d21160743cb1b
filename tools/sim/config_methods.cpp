// The service applying settings: it reads /etc/external_device.json (under the system root) the way
// the box's service does and keeps what it applied, so that tests can see what reached it.
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>

#include "sim_protocol.h"
#include "simulator.h"

namespace vask_sim {
namespace {

std::string configuration_path()
{
    const char *root = getenv("VASK_SYSROOT");
    return std::string(root != nullptr ? root : "") + "/etc/external_device.json";
}

json_ptr read_configuration()
{
    FILE *file = fopen(configuration_path().c_str(), "rbe");
    if (file == nullptr)
        return nullptr;
    std::string text;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, file)) > 0)
        text.append(buffer, n);
    fclose(file);
    return json_ptr(cJSON_Parse(text.c_str()));
}

} // namespace

std::string simulator::apply_section(const char *section)
{
    json_ptr document = read_configuration();
    cJSON *found = cJSON_GetObjectItemCaseSensitive(document.get(), section);
    if (!cJSON_IsObject(found))
        return reply_text(kCodeBadConfig);
    applied_[section].reset(cJSON_Duplicate(found, true));
    return reply_text(0);
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
