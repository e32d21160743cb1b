// SPDX-License-Identifier: MIT
// The application's operations on the remote controller: its firmware versions and macros from the
// configuration file, and running a macro through the service.
#include <exception>

#include "core/internal.h"
#include "core/method_call.h"

namespace vask_ed {
namespace {

void log_entry(const char *function, int line)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogLibrary, line, function, "%s", function);
}

// The stored section in a record of the operation's own; the caller's objects change only after a
// successful read. A missing file reads as an empty record.
template <typename Use>
int with_stored(Use use)
{
    try {
        external_zorvo_info stored;
        int read = ReadExternalZORVOControlConfig(&stored);
        if (read != 0)
            return read;
        return use(stored);
    } catch (const std::exception &) {
        return -1;
    }
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ed_get_zorvo_fw_info(external_zorvo_fw_info *info)
{
    log_entry("ed_get_zorvo_fw_info", __LINE__);
    if (info == nullptr)
        return -1;
    return with_stored([info](external_zorvo_info &stored) {
        external_zorvo_fw_info read{std::move(stored.fw), std::move(stored.bootloader_fw)};
        *info = std::move(read);
        return 0;
    });
}

ED_API int ed_get_zorvo_macro_info(std::vector<external_zorvo_macro_info> *macros)
{
    log_entry("ed_get_zorvo_macro_info", __LINE__);
    if (macros == nullptr)
        return -1;
    return with_stored([macros](external_zorvo_info &stored) {
        macros->swap(stored.macros);
        return 0;
    });
}

ED_API int ed_set_zorvo_macro_info(const std::vector<external_zorvo_macro_info> &macros)
{
    log_entry("ed_set_zorvo_macro_info", __LINE__);
    // The versions read from the file are kept; the service picks the macros up from the file.
    return with_stored([&macros](external_zorvo_info &stored) {
        stored.macros = macros;
        return UpdateExternalZORVOControlConfig(&stored);
    });
}

ED_API int ed_zorvo_goto_macro(int macro_index)
{
    log_entry("ed_zorvo_goto_macro", __LINE__);
    json_ptr request(cJSON_CreateObject());
    if (!request || cJSON_AddNumberToObject(request.get(), "macro_index", macro_index) == nullptr)
        return -1;
    json_text body(cJSON_PrintUnformatted(request.get()));
    if (!body)
        return -1;
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogLibrary, __LINE__, "ed_zorvo_goto_macro",
                           "======= client send messagebus : %s ", body.get());
    // The method's name is spelled as the service knows it.
    return ed_method_call("zorvo_goto_marco", request.get(), nullptr);
}
