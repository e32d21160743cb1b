// SPDX-License-Identifier: MIT
// The sections of the control devices (the mic central, the media station): reading one into a
// record, writing a record or loose settings back.
#include <string>

#include "config/config_cycle.h"
#include "config/json_members.h"
#include "config/protocol.h"
#include "core/record_fields.h"

namespace vask_ed {
namespace {

constexpr int kFirstTcpProtocol = 1;
constexpr int kLastTcpProtocol = 19;
constexpr int kRs232Protocol = 21;
constexpr int kUsbProtocol = 25;
constexpr const char *kUsbName = "usb-olvin-s1";

bool is_tcp_number(int protocol)
{
    return protocol >= kFirstTcpProtocol && protocol <= kLastTcpProtocol;
}

// Reads the section's "rs232" block; a missing block fails like a missing section.
int read_rs232_block(const cJSON *section, external_protocol_info *info, const char *function, int line)
{
    const cJSON *rs232 = cJSON_GetObjectItem(cJSON_GetObjectItem(section, "parameters"), "rs232");
    if (rs232 == nullptr) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, line, function, "%s", kNoParseError);
        return -1;
    }
    info->baud_rate = string_value(cJSON_GetObjectItem(rs232, "baud_rate"));
    return 0;
}

// Sets section / "parameters" / "rs232" / "baud_rate", creating what is missing.
bool store_baud_rate(cJSON *section, const std::string &baud_rate)
{
    cJSON *rs232 = object_member(object_member(section, "parameters"), "rs232");
    return rs232 != nullptr && set_string(rs232, "baud_rate", baud_rate);
}

// The parameters of a TCP protocol: a missing "parameters" or "tcp" is created holding the
// non-empty values in `created` order; an existing "tcp" is updated member by member in `updated`
// order (each updated member moves to the end, an empty value drops it).
bool store_tcp_block(cJSON *section, std::initializer_list<text_member> created,
                     std::initializer_list<text_member> updated)
{
    cJSON *parameters = find_object(section, "parameters");
    if (parameters == nullptr) {
        json_ptr fresh(cJSON_CreateObject());
        if (!fresh || !attach(fresh.get(), "tcp", object_of_non_empty(created)))
            return false;
        return attach(section, "parameters", fresh.release());
    }
    cJSON *tcp = find_object(parameters, "tcp");
    if (tcp == nullptr)
        return attach(parameters, "tcp", object_of_non_empty(created));
    return update_members(tcp, updated);
}

bool set_protocol(cJSON *section, const char *name)
{
    return cJSON_UpdateObjectItem(section, "protocol", name) == 0;
}

// Attaches a new section under `name`; `build` fills it and returns false when a node cannot be made.
template <typename Build>
int add_section(cJSON *root, const char *name, Build build)
{
    json_ptr section(cJSON_CreateObject());
    if (!section || !build(section.get()))
        return -1;
    return attach(root, name, section.release()) ? 0 : -1;
}

// Adds "parameters" holding `content` (taken over) under `block`, or an empty "parameters" when
// `block` is null.
bool add_parameters(cJSON *section, const char *block, cJSON *content)
{
    json_ptr owned(content);
    json_ptr parameters(cJSON_CreateObject());
    if (!parameters)
        return false;
    if (block != nullptr && !attach(parameters.get(), block, owned.release()))
        return false;
    return attach(section, "parameters", parameters.release());
}

cJSON *baud_rate_block(const std::string &baud_rate)
{
    json_ptr rs232(cJSON_CreateObject());
    if (!rs232 || cJSON_AddStringToObject(rs232.get(), "baud_rate", baud_rate.c_str()) == nullptr)
        return nullptr;
    return rs232.release();
}

// UpdateControlDeviceConfig on a section that exists.
int edit_with_record(cJSON *section, const external_protocol_info &info)
{
    // Kept: a second "enable" is appended and the first one, which readers see, stays as it was.
    // UpdateControlDeviceSettings is the writer that really changes it.
    if (info.enable) {
        cJSON *enable = cJSON_CreateTrue();
        if (enable == nullptr || !cJSON_AddItemToObject(section, "enable", enable)) {
            cJSON_Delete(enable);
            return -1;
        }
    }
    bool stored;
    if (is_tcp_number(info.protocol)) {
        stored = set_protocol(section, GetProtocolString(info.protocol).c_str()) &&
                 store_tcp_block(
                     section,
                     {{"ip_address", info.ip_address}, {"username", info.username}, {"password", info.password}},
                     {{"ip_address", info.ip_address}, {"password", info.password}, {"username", info.username}});
    } else if (info.protocol == kRs232Protocol) {
        stored = set_protocol(section, "rs232") && store_baud_rate(section, info.baud_rate);
    } else {
        stored = set_protocol(section, info.protocol == kUsbProtocol ? kUsbName : "none");
        cJSON_DeleteItemFromObject(section, "parameters");
    }
    return stored ? 0 : -1;
}

// UpdateControlDeviceConfig where the section is missing.
bool build_from_record(cJSON *section, const external_protocol_info &info)
{
    if (info.enable && cJSON_AddTrueToObject(section, "enable") == nullptr)
        return false;
    if (is_tcp_number(info.protocol))
        return cJSON_AddStringToObject(section, "protocol", GetProtocolString(info.protocol).c_str()) != nullptr &&
               add_parameters(section, "tcp",
                              object_of_non_empty({{"ip_address", info.ip_address},
                                                   {"username", info.username},
                                                   {"password", info.password}}));
    if (info.protocol == kRs232Protocol)
        return add_parameters(section, "rs232", baud_rate_block(info.baud_rate)) &&
               cJSON_AddStringToObject(section, "protocol", "rs232") != nullptr;
    if (info.protocol == kUsbProtocol)
        return cJSON_AddStringToObject(section, "protocol", kUsbName) != nullptr &&
               add_parameters(section, nullptr, nullptr);
    return cJSON_AddStringToObject(section, "protocol", "none") != nullptr;
}

// The loose settings of UpdateControlDeviceSettings.
struct device_settings {
    bool enable;
    const std::string &protocol;
    const std::string &port;
    const std::string &ip_address;
    const std::string &password;
    const std::string &baud_rate;
    const std::string &username;

    bool is_tcp() const { return protocol.find("tcp") != std::string::npos; }
    cJSON *tcp_block() const
    {
        return object_of_non_empty(
            {{"ip_address", ip_address}, {"username", username}, {"password", password}, {"port", port}});
    }
};

// UpdateControlDeviceSettings on a section that exists.
int edit_with_settings(cJSON *section, const device_settings &settings)
{
    if (cJSON_UpdateObjectItem(section, "enable", settings.enable) != 0)
        return -1;
    bool stored;
    if (settings.protocol.empty()) {
        cJSON_DeleteItemFromObject(section, "protocol");
        stored = true;
    } else if (settings.is_tcp()) {
        // The name is stored as given: applications may name protocols the table does not know.
        stored = set_protocol(section, settings.protocol.c_str()) &&
                 store_tcp_block(section,
                                 {{"ip_address", settings.ip_address},
                                  {"username", settings.username},
                                  {"password", settings.password},
                                  {"port", settings.port}},
                                 {{"ip_address", settings.ip_address},
                                  {"password", settings.password},
                                  {"username", settings.username},
                                  {"port", settings.port}});
    } else if (settings.protocol == "rs232") {
        stored = set_protocol(section, "rs232") && store_baud_rate(section, settings.baud_rate);
    } else {
        stored = set_protocol(section, settings.protocol == kUsbName ? kUsbName : "none");
        cJSON_DeleteItemFromObject(section, "parameters");
    }
    return stored ? 0 : -1;
}

// UpdateControlDeviceSettings where the section is missing.
bool build_from_settings(cJSON *section, const device_settings &settings)
{
    if (cJSON_AddBoolToObject(section, "enable", settings.enable) == nullptr)
        return false;
    const std::string &protocol = settings.protocol;
    if (protocol.empty())
        return cJSON_AddStringToObject(section, "protocol", "") != nullptr && add_parameters(section, nullptr, nullptr);
    if (settings.is_tcp())
        return cJSON_AddStringToObject(section, "protocol", protocol.c_str()) != nullptr &&
               add_parameters(section, "tcp", settings.tcp_block());
    if (protocol == "rs232")
        return cJSON_AddStringToObject(section, "protocol", "rs232") != nullptr &&
               add_parameters(section, "rs232", baud_rate_block(settings.baud_rate));
    if (protocol == kUsbName)
        return cJSON_AddStringToObject(section, "protocol", kUsbName) != nullptr &&
               add_parameters(section, nullptr, nullptr);
    return cJSON_AddStringToObject(section, "protocol", "none") != nullptr;
}

// The cycle of both writers: a missing file is created holding only their section.
config_call writer_call(const char *function, int line, const std::string &section)
{
    config_call call(function, line);
    call.open_failed = kOpenWriterConfigFailed;
    call.missing_file_is_empty = true;
    call.section = section.c_str();
    return call;
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ReadControlDeviceConfig(std::string section, external_protocol_info *info)
{
    config_call call("ReadControlDeviceConfig", __LINE__);
    if (info == nullptr) {
        log_config_error(call, kInfoNull);
        return -1;
    }
    reset_protocol_record(info);
    call.section = section.c_str();
    call.missing_section = kNoParseError;
    int result = read_config(call, [info, &call](const cJSON *, const cJSON *device) {
        const cJSON *enable = cJSON_GetObjectItem(device, "enable");
        info->enable = enable != nullptr && enable->valueint != 0;
        const protocol_entry *entry = find_readable_protocol(string_value(cJSON_GetObjectItem(device, "protocol")));
        if (entry == nullptr) {
            // Names the table writes but does not read back ("creator-tcp", ...) land here too.
            info->protocol = -1;
            return 0;
        }
        switch (entry->block) {
        case parameter_block::tcp:
            if (read_tcp_block(device, info, call.function, call.line) != 0)
                return -1;
            break;
        case parameter_block::rs232:
            if (read_rs232_block(device, info, call.function, call.line) != 0)
                return -1;
            break;
        case parameter_block::none: break;
        }
        info->protocol = entry->number;
        return 0;
    });
    if (result != 0)
        info->protocol = -1;
    return result;
}

ED_API int UpdateControlDeviceConfig(std::string section, external_protocol_info *info)
{
    config_call call = writer_call("UpdateControlDeviceConfig", __LINE__, section);
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, call.source, call.line, call.function, "Update Control Device Config %s",
                           section.c_str());
    if (info == nullptr) {
        log_config_error(call, kInfoNull);
        return -1;
    }
    return edit_config(call, [info, &section](cJSON *root, cJSON *device) {
        if (device != nullptr)
            return edit_with_record(device, *info);
        return add_section(root, section.c_str(), [info](cJSON *fresh) { return build_from_record(fresh, *info); });
    });
}

ED_API int UpdateControlDeviceSettings(std::string section, bool enable, std::string protocol, std::string port,
                                       std::string ip_address, std::string password, std::string baud_rate,
                                       std::string username)
{
    config_call call = writer_call("UpdateControlDeviceSettings", __LINE__, section);
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, call.source, call.line, call.function,
                           "UpdateControlDeviceSettings %s, enable %d protocol %s, username %s", section.c_str(),
                           enable ? 1 : 0, protocol.c_str(), username.c_str());
    const device_settings settings{enable, protocol, port, ip_address, password, baud_rate, username};
    return edit_config(call, [&settings, &section](cJSON *root, cJSON *device) {
        if (device != nullptr)
            return edit_with_settings(device, settings);
        return add_section(root, section.c_str(),
                           [&settings](cJSON *fresh) { return build_from_settings(fresh, settings); });
    });
}
