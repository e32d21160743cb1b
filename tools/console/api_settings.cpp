// SPDX-License-Identifier: MIT
// The stored settings of the box's control devices: the mic central, the media station, the
// projector, external control over TCP and the RS232 control options. Setters start from what is
// stored and change only the members sent.
#include <libvask_external_device.h>

#include "api.h"
#include "records.h"

namespace console {

namespace {

// Reads with `get`, answers protocol_json with the name `name_of` gives.
template <typename Get, typename Name> api_reply get_device(Get get, Name name_of)
{
    external_protocol_info info{};
    int rc = get(&info);
    return from_result(rc, op_kind::file, rc == 0 ? protocol_json(info, name_of(info.protocol)) : nullptr);
}

// The setters' one cycle: read the stored record with `get`, change it by the request with `merge`
// (a problem refuses the request, nothing stored), then store and apply it with `set`.
template <typename Record, typename Get, typename Merge, typename Set>
api_reply change_stored(const api_request &request, Get get, Merge merge, Set set)
{
    Record info{};
    int rc = get(&info);
    if (rc != 0)
        return from_result(rc, op_kind::file);
    problem bad = merge(request.body, info);
    if (!bad.empty())
        return bad_input(bad);
    return from_result(set(info), op_kind::service);
}

api_reply get_mic_central(const api_request &) { return get_device(ed_get_mic_central_info, GetProtocolString); }

api_reply set_mic_central(const api_request &request)
{
    return change_stored<external_protocol_info>(request, ed_get_mic_central_info, merge_protocol,
                                                 ed_set_mic_central_info);
}

api_reply get_castdeck(const api_request &) { return get_device(ed_get_castdeck_info, GetProtocolString); }

problem merge_castdeck(const cJSON *body, external_protocol_info &info)
{
    problem bad = merge_protocol(body, info);
    if (bad.empty() && info.protocol != 0 && info.protocol != 1 && info.protocol != 21)
        bad = "the media station's \"protocol\" must be 0 (none), 1 (tcp) or 21 (rs232)";
    return bad;
}

api_reply set_castdeck(const api_request &request)
{
    return change_stored<external_protocol_info>(request, ed_get_castdeck_info, merge_castdeck, ed_set_castdeck_info);
}

// The projector's protocols: their names in the API and in the file, and their numbers in the record.
struct projector_protocol {
    const char *name;
    int number;
    bool tcp; // sends ip_address and password; otherwise baud_rate (hitachi_rs232) or nothing (none)
};
constexpr projector_protocol kProjectorProtocols[] = {
    {"none", 0, false}, {"hitachi_tcp", 1, true}, {"hitachi_rs232", 21, false}, {"pjlink", 24, true}};

std::string projector_name(int number)
{
    for (const projector_protocol &protocol : kProjectorProtocols) {
        if (protocol.number == number)
            return protocol.name;
    }
    return "";
}

const projector_protocol *find_projector_protocol(const std::string &name)
{
    for (const projector_protocol &protocol : kProjectorProtocols) {
        if (name == protocol.name)
            return &protocol;
    }
    return nullptr;
}

api_reply get_projector(const api_request &) { return get_device(ed_get_projector_settings, projector_name); }

// Reads "protocol" (one of `allowed`), then ip_address and password or baud_rate as it needs.
problem read_projector_request(const cJSON *body, const projector_protocol *&protocol, std::string &ip,
                               std::string &password, std::string &baud_rate)
{
    static const char *const known[] = {"protocol", "ip_address", "password", "baud_rate", nullptr};
    std::string name;
    problem bad = unknown_member(body, known);
    if (bad.empty())
        bad = read_string(body, "protocol", name, true);
    if (!bad.empty())
        return bad;
    protocol = find_projector_protocol(name);
    if (!protocol)
        return "\"protocol\" must be one of none, hitachi_tcp, hitachi_rs232, pjlink";
    if (protocol->tcp) {
        if ((bad = read_string(body, "ip_address", ip, true)) != "" ||
            (bad = read_string(body, "password", password, false)) != "")
            return bad;
        return check_ip_address("ip_address", ip);
    }
    if (protocol->number == 21) {
        if ((bad = read_string(body, "baud_rate", baud_rate, true)) != "")
            return bad;
        return check_baud_rate("baud_rate", baud_rate);
    }
    return problem();
}

api_reply set_projector(const api_request &request)
{
    const projector_protocol *protocol = nullptr;
    std::string ip, password, baud_rate;
    problem bad = read_projector_request(request.body, protocol, ip, password, baud_rate);
    if (!bad.empty())
        return bad_input(bad);
    int rc = -2;
    switch (protocol->number) {
    case 1: rc = ed_set_hitachi_tcp_settings(ip, password); break;
    case 21: rc = ed_set_hitachi_rs232_settings(baud_rate); break;
    case 24: rc = ed_set_pjlink_settings(ip, password); break;
    default: rc = ed_set_none_settings(); break;
    }
    return from_result(rc, op_kind::service);
}

api_reply test_projector(const api_request &request)
{
    const projector_protocol *protocol = nullptr;
    std::string ip, password, baud_rate;
    problem bad = read_projector_request(request.body, protocol, ip, password, baud_rate);
    if (bad.empty() && !protocol->tcp)
        bad = "only hitachi_tcp and pjlink connections can be tested";
    if (!bad.empty())
        return bad_input(bad);
    int rc = protocol->number == 24 ? ed_pjlink_test(ip, password) : ed_hitachi_tcp_test(ip, password);
    return from_result(rc, op_kind::service);
}

api_reply get_tcp_control(const api_request &)
{
    external_control_info info{};
    int rc = ed_get_tcp_control_settings(&info);
    if (rc != 0)
        return from_result(rc, op_kind::file);
    json_ptr out = json_object();
    cJSON_AddBoolToObject(out.get(), "authentication", info.authentication);
    cJSON_AddStringToObject(out.get(), "port", info.port.c_str());
    cJSON_AddStringToObject(out.get(), "baud_rate", info.baud_rate.c_str());
    cJSON_AddStringToObject(out.get(), "portname", info.portname.c_str());
    return ok(std::move(out));
}

problem merge_tcp_control(const cJSON *body, external_control_info &info)
{
    static const char *const known[] = {"authentication", "port", nullptr};
    problem bad = unknown_member(body, known);
    for (problem step : {read_bool(body, "authentication", info.authentication, false),
                         read_string(body, "port", info.port, false)}) {
        if (bad.empty())
            bad = step;
    }
    if (bad.empty() && cJSON_GetObjectItemCaseSensitive(body, "port"))
        bad = check_tcp_port("port", info.port);
    return bad;
}

api_reply set_tcp_control(const api_request &request)
{
    return change_stored<external_control_info>(
        request, ed_get_tcp_control_settings, merge_tcp_control,
        [](external_control_info &info) { return ed_set_tcp_control_settings(info.authentication, info.port); });
}

// The RS232 control options: each member's name, and where it lives in the record.
struct rs232_text {
    const char *key;
    std::string external_rs232_control::*field;
};
struct rs232_number {
    const char *key;
    int external_rs232_control::*field;
};
struct rs232_flag {
    const char *key;
    bool external_rs232_control::*field;
};
constexpr rs232_text kRs232Texts[] = {{"builtin_TTY", &external_rs232_control::builtin_TTY},
                                      {"port", &external_rs232_control::port},
                                      {"baud_rate", &external_rs232_control::baud_rate},
                                      {"default_command", &external_rs232_control::default_command},
                                      {"focus_command", &external_rs232_control::focus_command},
                                      {"conflict_command", &external_rs232_control::conflict_command}};
constexpr rs232_number kRs232Numbers[] = {{"ignored_TTYUSB_A", &external_rs232_control::ignored_TTYUSB_A},
                                          {"ignored_TTYUSB_B", &external_rs232_control::ignored_TTYUSB_B}};
constexpr rs232_flag kRs232Flags[] = {{"disable_USB_camctrl", &external_rs232_control::disable_USB_camctrl},
                                      {"enable_USB_wenk9", &external_rs232_control::enable_USB_wenk9},
                                      {"enable_USB_zorvo", &external_rs232_control::enable_USB_zorvo}};

api_reply get_rs232_control(const api_request &)
{
    external_rs232_control info{};
    int rc = ed_get_external_rs232_control_info(&info);
    if (rc != 0)
        return from_result(rc, op_kind::file);
    json_ptr out = json_object();
    for (const rs232_text &text : kRs232Texts)
        cJSON_AddStringToObject(out.get(), text.key, (info.*text.field).c_str());
    for (const rs232_number &number : kRs232Numbers)
        cJSON_AddNumberToObject(out.get(), number.key, info.*number.field);
    for (const rs232_flag &flag : kRs232Flags)
        cJSON_AddBoolToObject(out.get(), flag.key, info.*flag.field);
    return ok(std::move(out));
}

problem merge_rs232_control(const cJSON *body, external_rs232_control &info)
{
    for (const cJSON *member = body ? body->child : nullptr; member; member = member->next) {
        const std::string key = member->string ? member->string : "";
        problem bad = "unknown member \"" + key + "\"";
        for (const rs232_text &text : kRs232Texts) {
            if (key == text.key)
                bad = read_string(body, text.key, info.*text.field, false);
        }
        for (const rs232_number &number : kRs232Numbers) {
            if (key == number.key && (bad = read_int(body, number.key, info.*number.field, false)).empty() &&
                info.*number.field < -1)
                bad = "\"" + key + "\" must be a ttyUSB number, or -1 for none";
        }
        for (const rs232_flag &flag : kRs232Flags) {
            if (key == flag.key)
                bad = read_bool(body, flag.key, info.*flag.field, false);
        }
        if (bad.empty() && key == "baud_rate" && !info.baud_rate.empty())
            bad = check_baud_rate("baud_rate", info.baud_rate);
        if (!bad.empty())
            return bad;
    }
    return problem();
}

api_reply set_rs232_control(const api_request &request)
{
    return change_stored<external_rs232_control>(request, ed_get_external_rs232_control_info, merge_rs232_control,
                                                 ed_set_external_rs232_control_info);
}

} // namespace

std::vector<api_route> settings_routes()
{
    return {
        {"GET", "/api/mic-central", get_mic_central},
        {"PUT", "/api/mic-central", set_mic_central},
        {"GET", "/api/castdeck", get_castdeck},
        {"PUT", "/api/castdeck", set_castdeck},
        {"GET", "/api/projector", get_projector},
        {"PUT", "/api/projector", set_projector},
        {"POST", "/api/projector/test", test_projector},
        {"GET", "/api/tcp-control", get_tcp_control},
        {"PUT", "/api/tcp-control", set_tcp_control},
        {"GET", "/api/rs232/control", get_rs232_control},
        {"PUT", "/api/rs232/control", set_rs232_control},
    };
}

} // namespace console
