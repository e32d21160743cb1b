// SPDX-License-Identifier: MIT
#include "records.h"

#include <cstring>
#include <string>

namespace console {

json_ptr microphone_json(const std::string &group, const std::string &id, bool on)
{
    json_ptr out = json_object();
    cJSON_AddStringToObject(out.get(), "group", group.c_str());
    cJSON_AddStringToObject(out.get(), "id", id.c_str());
    cJSON_AddBoolToObject(out.get(), "on", on);
    return out;
}

json_ptr protocol_json(const external_protocol_info &info, const std::string &protocol_name)
{
    json_ptr out = json_object();
    cJSON_AddBoolToObject(out.get(), "enable", info.enable);
    cJSON_AddNumberToObject(out.get(), "protocol", info.protocol);
    cJSON_AddStringToObject(out.get(), "protocol_name", protocol_name.c_str());
    cJSON_AddStringToObject(out.get(), "ip_address", info.ip_address.c_str());
    cJSON_AddStringToObject(out.get(), "username", info.username.c_str());
    cJSON_AddStringToObject(out.get(), "password", info.password.c_str());
    cJSON_AddStringToObject(out.get(), "baud_rate", info.baud_rate.c_str());
    cJSON_AddStringToObject(out.get(), "port", info.port.c_str());
    return out;
}

namespace {

bool all_digits(const std::string &text)
{
    if (text.empty() || text.size() > 9)
        return false;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
    }
    return true;
}

// The protocol table's highest number; GetProtocolString gives "none" for every number above it.
constexpr int kLastProtocol = 26;

problem read_protocol(const cJSON *body, int &protocol)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(body, "protocol");
    if (!item)
        return problem();
    if (cJSON_IsString(item)) {
        for (int number = 0; number <= kLastProtocol; ++number) {
            if (!GetProtocolString(number).empty() && GetProtocolString(number) == item->valuestring) {
                protocol = number;
                return problem();
            }
        }
        return std::string("\"protocol\": unknown protocol name \"") + item->valuestring + "\"";
    }
    problem bad = read_int(body, "protocol", protocol, false);
    if (bad.empty() && (protocol < 0 || protocol > kLastProtocol))
        bad = "\"protocol\" must be a protocol number from 0 to " + std::to_string(kLastProtocol);
    return bad;
}

} // namespace

problem check_ip_address(const char *key, const std::string &value)
{
    return IsValidIpAddress(value) ? problem() : std::string("\"") + key + "\" must be an IPv4 address";
}

problem check_baud_rate(const char *key, const std::string &value)
{
    return all_digits(value) && ConvertBaudrate(std::stoi(value)) != -1
               ? problem()
               : std::string("\"") + key + "\" must be a serial speed such as \"9600\"";
}

problem check_tcp_port(const char *key, const std::string &value)
{
    return all_digits(value) && std::stoi(value) >= 1 && std::stoi(value) <= 65535
               ? problem()
               : std::string("\"") + key + "\" must be a TCP port from 1 to 65535";
}

problem merge_protocol(const cJSON *body, external_protocol_info &info)
{
    static const char *const known[] = {"enable", "protocol", "ip_address", "username", "password",
                                        "baud_rate", "port", nullptr};
    problem bad = unknown_member(body, known);
    int protocol = info.protocol;
    std::string ip = info.ip_address, baud = info.baud_rate, port = info.port;
    for (problem step : {bad, read_bool(body, "enable", info.enable, false), read_protocol(body, protocol),
                         read_string(body, "ip_address", ip, false),
                         read_string(body, "username", info.username, false),
                         read_string(body, "password", info.password, false),
                         read_string(body, "baud_rate", baud, false), read_string(body, "port", port, false)}) {
        if (!step.empty())
            return step;
    }
    if (cJSON_GetObjectItemCaseSensitive(body, "ip_address") && (bad = check_ip_address("ip_address", ip)) != "")
        return bad;
    if (cJSON_GetObjectItemCaseSensitive(body, "baud_rate") && (bad = check_baud_rate("baud_rate", baud)) != "")
        return bad;
    if (cJSON_GetObjectItemCaseSensitive(body, "port") && (bad = check_tcp_port("port", port)) != "")
        return bad;
    info.protocol = protocol;
    info.ip_address = ip;
    info.baud_rate = baud;
    info.port = port;
    return problem();
}

json_ptr item_json(microphone_info &item, bool omit_id, bool omit_gr)
{
    json_ptr out = json_object();
    cJSON_AddMicroPhoneInfo(out.get(), &item, omit_id, omit_gr);
    return out;
}

namespace {

// Readers keep the pairs c0/p0 to c8/p8 only.
constexpr int kPairs = 9;

bool is_pair_key(const char *key)
{
    return (key[0] == 'c' || key[0] == 'p') && key[1] >= '0' && key[1] < '0' + kPairs && key[2] == '\0';
}

problem check_item_member(const cJSON *member, bool id_allowed)
{
    const char *key = member->string ? member->string : "";
    std::string quoted = std::string("\"") + key + "\"";
    if (std::strcmp(key, "gr") == 0 || std::strcmp(key, "nt") == 0 || (std::strcmp(key, "id") == 0 && id_allowed))
        return cJSON_IsString(member) ? problem() : quoted + " must be a string";
    bool numeric = is_pair_key(key) || std::strcmp(key, "l") == 0 || std::strcmp(key, "o") == 0 ||
                   std::strcmp(key, "b") == 0 || std::strcmp(key, "s") == 0;
    if (!numeric)
        return std::string("unknown member ") + quoted;
    double number = cJSON_IsNumber(member) ? member->valuedouble : -1;
    if (number < 0 || number > 2147483647.0 || number != static_cast<double>(static_cast<int>(number)))
        return quoted + " must be a whole number from 0";
    return problem();
}

} // namespace

problem read_item(const cJSON *object, microphone_info &item, bool gr_required, bool id_required, bool id_allowed)
{
    if (!cJSON_IsObject(object))
        return "the item must be a JSON object";
    for (const cJSON *member = object->child; member; member = member->next) {
        problem bad = check_item_member(member, id_allowed);
        if (!bad.empty())
            return bad;
    }
    for (int k = 0; k < kPairs; ++k) {
        std::string c = "c" + std::to_string(k), p = "p" + std::to_string(k);
        if (!cJSON_GetObjectItemCaseSensitive(object, c.c_str()) != !cJSON_GetObjectItemCaseSensitive(object, p.c_str()))
            return "\"" + c + "\" and \"" + p + "\" go together";
    }
    std::string gr, id;
    read_string(object, "gr", gr, false);
    read_string(object, "id", id, false);
    if (gr_required && gr.empty())
        return "\"gr\" (the group) is missing";
    if (id_required && id.empty())
        return "\"id\" is missing";
    cJSON_GetMicroPhoneInfo(const_cast<cJSON *>(object), &item);
    return problem();
}

} // namespace console
