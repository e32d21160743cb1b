// SPDX-License-Identifier: MIT
// Projector and external TCP control: connection tests through the service, and setters that
// store their section of the configuration file and then tell the service to apply it.
#include <exception>
#include <initializer_list>
#include <string>

#include "config/config_cycle.h"
#include "config/json_members.h"
#include "core/method_call.h"

namespace vask_ed {
namespace {

// One setter: its log lines (fixed numbers, as applications' log filters know them), the section
// it edits and the method that applies it.
struct setter {
    const char *function;
    const char *entry_message;
    int entry_line;
    int open_failed_line;
    int short_read_line;
    int parse_failed_line;
    const char *section;
    const char *method;
};

constexpr const char *kProjector = "projector_control";

// Kept: the PJLink setter's entry line names a Hitachi function; log filters match that text.
const setter kNoneSetter = {"ed_set_none_settings", "ed_set_none_settings", 168, 174, 185, 194, kProjector,
                            "projector_control_none_settings"};
const setter kHitachiTcpSetter = {"ed_set_hitachi_tcp_settings", "ed_set_hitachi_tcp_settings", 215, 221, 232, 241,
                                  kProjector, "projector_control_hitachi_tcp_settings"};
const setter kHitachiRs232Setter = {"ed_set_hitachi_rs232_settings", "ed_set_hitachi_rs232_settings", 266, 272, 283,
                                    292, kProjector, "projector_control_hitachi_rs232_settings"};
const setter kPjlinkSetter = {"ed_set_pjlink_settings", "ed_set_hitachi_pjlink_settings", 316, 322, 333, 342,
                              kProjector, "projector_control_pjlink_settings"};
const setter kTcpControlSetter = {"ed_set_tcp_control_settings", "ed_set_tcp_control_settings", 402, 408, 419, 428,
                                  "external_control", "external_control_tcp_settings"};

// Stores with `edit` (which only replaces members that exist: a missing section, block or key is
// left as it is), then calls the setter's method. A store that fails is not announced.
template <typename Edit>
int store_then_notify(const setter &op, Edit &&edit)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogLibrary, op.entry_line, op.function, "%s", op.entry_message);
    config_call call(op.function, op.entry_line);
    call.source = kLogLibrary;
    call.open_failed_line = op.open_failed_line;
    call.short_read_line = op.short_read_line;
    call.parse_failed_line = op.parse_failed_line;
    call.open_failed = "open projector config file failed";
    call.section = op.section;
    int stored = edit_config(call, [&edit](cJSON *, cJSON *section) { return edit(section) ? 0 : -1; });
    if (stored != 0)
        return stored;
    return ed_method_call(op.method, nullptr, nullptr);
}

// Sets "protocol" to the name of `op`'s block and the members of parameters / <block>.
int set_projector(const setter &op, const char *protocol, std::initializer_list<text_member> members)
{
    try {
        return store_then_notify(op, [protocol, members](cJSON *projector) {
            if (!replace_existing(projector, "protocol", cJSON_CreateString(protocol)))
                return false;
            cJSON *block = cJSON_GetObjectItem(cJSON_GetObjectItem(projector, "parameters"), protocol);
            for (const text_member &member : members)
                if (!replace_existing(block, member.key, cJSON_CreateString(member.value.c_str())))
                    return false;
            return true;
        });
    } catch (const std::exception &) {
        return -1;
    }
}

int projector_test(const char *function, int line, const char *method, const std::string &ip,
                   const std::string &password)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogLibrary, line, function, "%s", function);
    json_ptr request(cJSON_CreateObject());
    if (!request || cJSON_AddStringToObject(request.get(), "ip_address", ip.c_str()) == nullptr ||
        cJSON_AddStringToObject(request.get(), "password", password.c_str()) == nullptr)
        return -1;
    return ed_method_call(method, request.get(), nullptr);
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ed_pjlink_test(std::string ip_address, std::string password)
{
    return projector_test("ed_pjlink_test", 389, "projector_control_pjlink_test", ip_address, password);
}

ED_API int ed_hitachi_tcp_test(std::string ip_address, std::string password)
{
    return projector_test("ed_hitachi_tcp_test", 376, "projector_control_hitachi_tcp_test", ip_address, password);
}

ED_API int ed_set_pjlink_settings(std::string ip_address, std::string password)
{
    return set_projector(kPjlinkSetter, "pjlink", {{"ip_address", ip_address}, {"password", password}});
}

ED_API int ed_set_hitachi_tcp_settings(std::string ip_address, std::string password)
{
    return set_projector(kHitachiTcpSetter, "hitachi_tcp", {{"ip_address", ip_address}, {"password", password}});
}

ED_API int ed_set_hitachi_rs232_settings(std::string baud_rate)
{
    return set_projector(kHitachiRs232Setter, "hitachi_rs232", {{"baud_rate", baud_rate}});
}

ED_API int ed_set_none_settings()
{
    return set_projector(kNoneSetter, "none", {});
}

ED_API int ed_set_tcp_control_settings(bool authentication, std::string port)
{
    try {
        return store_then_notify(kTcpControlSetter, [authentication, &port](cJSON *control) {
            cJSON *tcp = cJSON_GetObjectItem(control, "tcp");
            return replace_existing(tcp, "authentication", cJSON_CreateBool(authentication)) &&
                   replace_existing(tcp, "port", cJSON_CreateString(port.c_str()));
        });
    } catch (const std::exception &) {
        return -1;
    }
}
