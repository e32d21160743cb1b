// SPDX-License-Identifier: MIT
// The application's operations on the stored control devices: getters read the configuration
// file; setters store first, then tell the service to apply the new settings.
#include <exception>
#include <string>

#include "core/internal.h"
#include "core/method_call.h"

namespace vask_ed {
namespace {

constexpr const char *kMicCentral = "miccentral_control";
constexpr const char *kCastdeck = "castdeck_control";

void log_entry(const char *function, int line)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogLibrary, line, function, "%s", function);
}

bool same_settings(const external_protocol_info &a, const external_protocol_info &b)
{
    return a.enable == b.enable && a.protocol == b.protocol && a.ip_address == b.ip_address &&
           a.password == b.password && a.baud_rate == b.baud_rate && a.username == b.username && a.port == b.port;
}

// Section names become std::string arguments; running out of memory there is a failure, not an
// exception for the application.
int read_device(const char *section, external_protocol_info *info)
{
    try {
        return ReadControlDeviceConfig(section, info);
    } catch (const std::exception &) {
        return -1;
    }
}

// The service is told only when the store succeeded; the lock is already released here.
int notify_after(int stored, const char *method)
{
    return stored != 0 ? stored : ed_method_call(method, nullptr, nullptr);
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ed_get_mic_central_info(external_protocol_info *info)
{
    log_entry("ed_get_mic_central_info", __LINE__);
    return read_device(kMicCentral, info);
}

ED_API int ed_get_castdeck_info(external_protocol_info *info)
{
    log_entry("ed_get_castdeck_info", __LINE__);
    return read_device(kCastdeck, info);
}

ED_API int ed_get_projector_settings(external_protocol_info *info)
{
    log_entry("ed_get_projector_settings", __LINE__);
    return ReadProjectorConfig(info);
}

ED_API int ed_get_tcp_control_settings(external_control_info *info)
{
    log_entry("ed_get_tcp_control_settings", __LINE__);
    return ReadExternalControlConfig(info);
}

ED_API int ed_set_mic_central_info(const external_protocol_info &info)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogLibrary, __LINE__, "ed_set_mic_central_info",
                           "ed_set_mic_central_info [%d]@%s %s", info.protocol, info.ip_address.c_str(),
                           info.username.c_str());
    try {
        external_protocol_info current{};
        int read = ReadControlDeviceConfig(kMicCentral, &current);
        if (same_settings(current, info))
            return read;
        int stored = UpdateControlDeviceSettings(kMicCentral, info.enable, GetProtocolString(info.protocol), info.port,
                                                 info.ip_address, info.password, info.baud_rate, info.username);
        return notify_after(stored, "set_mic_central_info");
    } catch (const std::exception &) {
        return -1;
    }
}

ED_API int ed_set_castdeck_info(const external_protocol_info &info)
{
    // Kept: the entry line carries the older name that log filters on the box look for.
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogLibrary, __LINE__, "ed_set_castdeck_info",
                           "ed_set_castdeck_settings");
    try {
        int stored;
        switch (info.protocol) {
        case 1:
            stored = UpdateControlDeviceSettings(kCastdeck, info.enable, "tcp", info.port, info.ip_address,
                                                 info.password, "", info.username);
            break;
        case 0: stored = UpdateControlDeviceSettings(kCastdeck, info.enable, "none", "", "", "", "", ""); break;
        case 21:
            stored = UpdateControlDeviceSettings(kCastdeck, info.enable, "rs232", "", "", "", info.baud_rate, "");
            break;
        default: return -2;
        }
        return notify_after(stored, "castdeck_control_settings");
    } catch (const std::exception &) {
        return -1;
    }
}
