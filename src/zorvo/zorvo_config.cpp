// SPDX-License-Identifier: MIT
// The "zorvo_config" section: the remote controller's firmware versions and its macros, sized by
// the box model.
#include <cstdio>
#include <string>

#include "config/config_cycle.h"
#include "config/json_members.h"
#include "core/record_fields.h"
#include "zorvo/zorvo_model.h"

namespace vask_ed {
namespace {

constexpr const char *kSection = "zorvo_config";
constexpr const char *kDefaultPreset = "1";

std::string macro_name(int index)
{
    return "Macro_" + std::to_string(index);
}

// The two keys of channel `n` of a macro.
struct channel_keys {
    char enable[32];
    char preset[32];
    explicit channel_keys(int n)
    {
        snprintf(enable, sizeof enable, "channel_%d_enable", n);
        snprintf(preset, sizeof preset, "channel_%d_preset", n);
    }
};

// Macro `index` as read from `member` (null when the section lacks it: the defaults, scenes 1 and
// every channel off with preset "1"). False when the member has no "scenes".
bool read_macro(const cJSON *member, int index, int channels, external_zorvo_macro_info &macro)
{
    macro.index = index;
    macro.scenes = 1;
    if (member != nullptr) {
        const cJSON *scenes = cJSON_GetObjectItem(member, "scenes");
        if (scenes == nullptr)
            return false;
        macro.scenes = scenes->valueint;
    }
    macro.channels.resize(static_cast<size_t>(channels));
    for (int n = 1; n <= channels; ++n) {
        channel_keys keys(n);
        const cJSON *enable = cJSON_GetObjectItem(member, keys.enable);
        const cJSON *preset = cJSON_GetObjectItem(member, keys.preset);
        macro_channel &channel = macro.channels[static_cast<size_t>(n - 1)];
        channel.channel = n;
        channel.enable = enable != nullptr && enable->valueint != 0;
        channel.preset = preset != nullptr ? string_value(preset) : kDefaultPreset;
    }
    return true;
}

// Stores "scenes" and the first `channels` channels of `macro` into `member`, each replaced in its
// place or added at the end. Kept: the keys follow the channel's position, not its `channel` field.
bool store_macro(cJSON *member, const external_zorvo_macro_info &macro, int channels)
{
    if (!replace_or_add(member, "scenes", cJSON_CreateNumber(macro.scenes)))
        return false;
    for (int n = 1; n <= channels; ++n) {
        const macro_channel &channel = macro.channels[static_cast<size_t>(n - 1)];
        channel_keys keys(n);
        if (!replace_or_add(member, keys.enable, cJSON_CreateBool(channel.enable)) ||
            !replace_or_add(member, keys.preset, cJSON_CreateString(channel.preset.c_str())))
            return false;
    }
    return true;
}

// Writes `macro` under "Macro_" and its own `index`. A member that is missing, or is no object, is
// made anew at the end of the section.
bool store_macro_member(cJSON *section, const external_zorvo_macro_info &macro, int channels)
{
    std::string name = macro_name(macro.index);
    cJSON *member = find_object(section, name.c_str());
    if (member != nullptr)
        return store_macro(member, macro, channels);
    json_ptr created(cJSON_CreateObject());
    if (!created || !store_macro(created.get(), macro, channels))
        return false;
    return attach(section, name.c_str(), created.release());
}

// The writer stores the first M macros of the record and the first C channels of each.
bool fits(const external_zorvo_info &info, zorvo_size size)
{
    if (info.macros.size() < static_cast<size_t>(size.macros))
        return false;
    for (size_t i = 0; i < static_cast<size_t>(size.macros); ++i)
        if (info.macros[i].channels.size() < static_cast<size_t>(size.channels))
            return false;
    return true;
}

void log_entry(const config_call &call)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, call.source, call.line, call.function, "%s", call.function);
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ReadExternalZORVOControlConfig(external_zorvo_info *info)
{
    config_call call("ReadExternalZORVOControlConfig", __LINE__);
    log_entry(call);
    if (info == nullptr) {
        log_config_error(call, kInfoNull);
        return -1;
    }
    // The model file is read before the configuration lock is taken.
    zorvo_size size = current_zorvo_size();
    // A missing file is no error here: the record is left as it was.
    call.open_failed_result = 0;
    call.section = kSection;
    call.missing_section = kNoParseError;
    return read_config(call, [info, size, &call](const cJSON *, const cJSON *section) {
        const cJSON *fw = cJSON_GetObjectItem(section, "fw");
        const cJSON *bootloader_fw = cJSON_GetObjectItem(section, "bootloader_fw");
        if (fw == nullptr || bootloader_fw == nullptr) {
            log_config_error(call, kNoParseError);
            return -1;
        }
        external_zorvo_info read;
        read.fw = string_value(fw);
        read.bootloader_fw = string_value(bootloader_fw);
        read.macros.resize(static_cast<size_t>(size.macros));
        for (int i = 1; i <= size.macros; ++i) {
            const cJSON *member = cJSON_GetObjectItem(section, macro_name(i).c_str());
            if (!read_macro(member, i, size.channels, read.macros[static_cast<size_t>(i - 1)])) {
                log_config_error(call, kNoParseError);
                return -1;
            }
        }
        *info = std::move(read);
        return 0;
    });
}

ED_API int UpdateExternalZORVOControlConfig(const external_zorvo_info *info)
{
    config_call call("UpdateExternalZORVOControlConfig", __LINE__);
    log_entry(call);
    if (info == nullptr) {
        log_config_error(call, kInfoNull);
        return -1;
    }
    // The model file is read before the configuration lock is taken.
    zorvo_size size = current_zorvo_size();
    call.open_failed_result = 0;
    // Named so that a document whose root is not an object is refused rather than given a section.
    call.section = kSection;
    return edit_config(call, [info, size, &call](cJSON *root, cJSON *) {
        if (!fits(*info, size)) {
            TULO_LOG_write_newline(ED_LOG_MODULE, 0, call.source, call.line, call.function,
                                   "zorvo_config needs %d macros of %d channels", size.macros, size.channels);
            return -1;
        }
        // A missing section is added at the end of the document; the members it lacks are added at
        // its end, in the order fw, bootloader_fw, the macros.
        cJSON *section = object_member(root, kSection);
        if (section == nullptr || !replace_or_add(section, "fw", cJSON_CreateString(info->fw.c_str())) ||
            !replace_or_add(section, "bootloader_fw", cJSON_CreateString(info->bootloader_fw.c_str())))
            return -1;
        for (size_t i = 0; i < static_cast<size_t>(size.macros); ++i)
            if (!store_macro_member(section, info->macros[i], size.channels))
                return -1;
        return 0;
    });
}

ED_API int InitExternalZORVOControlConfig()
{
    config_call call("InitExternalZORVOControlConfig", __LINE__);
    log_entry(call);
    try {
        // The reader and the writer each take the lock in turn; nothing nests.
        external_zorvo_info info;
        if (ReadExternalZORVOControlConfig(&info) != 0) {
            log_config_error(call, "ReadExternalZORVOControlConfig fail");
            return -1;
        }
        // The controller's versions are unknown until the service reports them.
        info.fw.clear();
        info.bootloader_fw.clear();
        UpdateExternalZORVOControlConfig(&info);
        return 0;
    } catch (const std::exception &) {
        return -1;
    }
}
