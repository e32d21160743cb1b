// SPDX-License-Identifier: MIT
// Validating the box's configuration file and restoring its factory default.
#include <cerrno>
#include <string>
#include <vector>

#include "config/config_cycle.h"
#include "core/sysroot.h"

namespace vask_ed {
namespace {

constexpr const char *kDefaultConfig = "/usr/share/vask/etc/external_device.json";
constexpr const char *kWritableConfig = "/var/lib/vask/etc/external_device.json";

// Runs inside the exclusive write cycle: the default replaces the writable copy atomically, so that
// the readers and validators of other processes see the broken text or the default, never a part.
// The copy is not checked again: a broken default stays broken, as on the box.
void restore_default(const config_call &call)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, call.source, call.line, call.function, "copy default config");
    std::string from = system_path(kDefaultConfig);
    std::vector<char> text;
    if (!read_config_file(call, from, &text)) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, call.source, call.line, call.function, "read %s failed, errno=%d",
                               from.c_str(), errno);
        return;
    }
    store_config_text(call, system_path(kWritableConfig), text.data(), text.size() - 1);
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ValidateJsonConfig()
{
    config_call call("ValidateJsonConfig", __LINE__);
    // A missing file is not restored; a file that is not JSON is.
    call.open_failed_result = 0;
    call.parse_failed_result = 0;
    call.on_parse_failure = [](const config_call &failed, void *) { restore_default(failed); };
    // A write cycle even when nothing is restored: the check and the restore are one step for the
    // other processes, so that two applications starting together do not both restore.
    edit_config(call, [&call](cJSON *root, cJSON *) {
        if (!cJSON_IsObject(root)) {
            TULO_LOG_write_newline(ED_LOG_MODULE, 0, call.source, call.line, call.function,
                                   "JSON 不是預期的 Object 格式，收到的是類型: %d", root->type & 0xff);
            restore_default(call);
        }
        return kConfigUnchanged;
    });
    return 0;
}
