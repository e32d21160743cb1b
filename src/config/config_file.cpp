// Validating the box's configuration file and restoring its factory default.
#include "config/config_file.h"

#include <cstdlib>

#include "config/config_cycle.h"
#include "core/sysroot.h"
#include "util/shell_quote.h"

namespace vask_ed {
namespace {

constexpr const char *kDefaultConfig = "/usr/share/vask/etc/external_device.json";
constexpr const char *kWritableConfig = "/var/lib/vask/etc/external_device.json";

// A system root given as a relative path may start with '-': cp would take it for options.
std::string operand(const std::string &path)
{
    return path.compare(0, 1, "-") == 0 ? "./" + path : path;
}

// Runs while the caller holds the configuration lock. The copy is not checked again: a broken
// default stays broken, as on the box.
void restore_default(const config_call &call)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, call.source, call.line, call.function, "copy default config");
    ExecShellCmd(default_restore_command(), nullptr);
}

} // namespace

std::string default_restore_command()
{
    const char *root = secure_getenv("VASK_SYSROOT");
    if (root == nullptr || *root == '\0')
        return std::string("cp ") + kDefaultConfig + " " + kWritableConfig;
    return "cp " + shell_quote(operand(system_path(kDefaultConfig))) + " " +
           shell_quote(operand(system_path(kWritableConfig)));
}

} // namespace vask_ed

using namespace vask_ed;

ED_API int ValidateJsonConfig()
{
    config_call call("ValidateJsonConfig", __LINE__);
    // A missing file is not restored; a file that is not JSON is.
    call.open_failed_result = 0;
    call.parse_failed_result = 0;
    call.on_parse_failure = [](const config_call &failed, void *) { restore_default(failed); };
    read_config(call, [&call](const cJSON *root, const cJSON *) {
        if (!cJSON_IsObject(root)) {
            TULO_LOG_write_newline(ED_LOG_MODULE, 0, call.source, call.line, call.function,
                                   "JSON 不是預期的 Object 格式，收到的是類型: %d", root->type & 0xff);
            restore_default(call);
        }
        return 0;
    });
    return 0;
}
