// SPDX-License-Identifier: MIT
// The three mode sections of the microphone control file: the default item with its cancel mode,
// the general-conflict item and the multiple-speakers mode.
#include "config/json_members.h"
#include "microphone/microphone_store.h"

namespace vask_ed {
namespace {

constexpr const char *kDefaultSection = "microphone_default_config";
constexpr const char *kGeneralConflictSection = "microphone_general_conflict_config";
constexpr const char *kMultipleSpeakersSection = "microphone_multiple_speakers_mode";

int number_or(const cJSON *section, const char *key, int missing)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(section, key);
    return item != nullptr ? item->valueint : missing;
}

bool add_number(cJSON *object, const char *key, int value)
{
    return cJSON_AddNumberToObject(object, key, value) != nullptr;
}

// The readers: `read(section)` copies the section (an object, found) into the caller's record.
template <typename Read>
int read_mode(const config_call &base, const char *entry, const char *section, Read read)
{
    config_call call = base;
    call.section = section;
    call.missing_section = kNoParseError;
    log_trace(call, entry);
    return read_config(call, [&read](const cJSON *, const cJSON *found) { return read(found); });
}

// The writers: the section is dropped and added anew at the end of the document, holding what
// `build(object)` puts into a new object.
template <typename Build>
int write_mode(const config_call &base, const char *entry, const char *section, Build build)
{
    config_call call = base;
    // Set so that a document whose root is not an object is refused instead of given a member.
    call.section = section;
    log_trace(call, entry);
    return edit_config(call, [&build, section](cJSON *root, cJSON *) {
        json_ptr object(cJSON_CreateObject());
        if (!object || !build(object.get()))
            return -1;
        return attach(root, section, object.release()) ? 0 : -1;
    });
}

// An item read out of a section: a null record is logged and fails the read.
int read_item(const config_call &call, const cJSON *section, microphone_info *info)
{
    int result = cJSON_GetMicroPhoneInfo(const_cast<cJSON *>(section), info);
    if (result < 0)
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, call.source, call.line, call.function, "cJSON_GetMicroPhoneInfo:%d",
                               result);
    return result;
}

// The default and general-conflict items are stored without "gr" and "id"; a null record adds none.
bool add_item(cJSON *object, const microphone_info *info)
{
    return info == nullptr || add_microphone_members(object, *info, true, true);
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ReadMicrophoneDefaultConfig(int *cancel_mode, microphone_info *info)
{
    config_call call = microphone_call("ReadMicrophoneDefaultConfig", __LINE__);
    if (cancel_mode == nullptr) {
        log_config_error(call, kNullPoint);
        return -1;
    }
    return read_mode(call, "Read Mic Default Config", kDefaultSection, [&](const cJSON *section) {
        *cancel_mode = number_or(section, "cancel_mode", 0);
        return read_item(call, section, info);
    });
}

ED_API int UpdateMicrophoneDefaultConfig(int cancel_mode, microphone_info *info)
{
    config_call call = microphone_call("UpdateMicrophoneDefaultConfig", __LINE__, kOpenWriterConfigFailed);
    return write_mode(call, "Update Mic Default Config", kDefaultSection, [&](cJSON *object) {
        return add_number(object, "cancel_mode", cancel_mode) && add_item(object, info);
    });
}

ED_API int ReadMicrophoneGeneralConflictConfig(microphone_info *info)
{
    config_call call = microphone_call("ReadMicrophoneGeneralConflictConfig", __LINE__);
    return read_mode(call, "Read Mic GeneralConflict Config", kGeneralConflictSection,
                     [&](const cJSON *section) { return read_item(call, section, info); });
}

ED_API int UpdateMicrophoneGeneralConflictConfig(microphone_info *info)
{
    config_call call = microphone_call("UpdateMicrophoneGeneralConflictConfig", __LINE__, kOpenWriterConfigFailed);
    return write_mode(call, "Update Mic GeneralConflict Config", kGeneralConflictSection,
                      [info](cJSON *object) { return add_item(object, info); });
}

ED_API int ReadMicrophoneMultipleSpeakersMode(multiple_speakers_mode *mode)
{
    config_call call = microphone_call("ReadMicrophoneMultipleSpeakersMode", __LINE__);
    if (mode == nullptr) {
        log_config_error(call, kNullPoint);
        return -1;
    }
    return read_mode(call, "Read Mic MultipleSpeakers Mode", kMultipleSpeakersSection, [mode](const cJSON *section) {
        mode->multi_mode = number_or(section, "multi_mode", 1);
        mode->cancel_mode = number_or(section, "cancel_mode", 0);
        return 0;
    });
}

ED_API int UpdateMicrophoneMultipleSpeakersMode(multiple_speakers_mode *mode)
{
    config_call call = microphone_call("UpdateMicrophoneMultipleSpeakersMode", __LINE__, kOpenWriterConfigFailed);
    if (mode == nullptr) {
        log_config_error(call, kNullPoint);
        return -1;
    }
    return write_mode(call, "Update Mic MultipleSpeakers Config", kMultipleSpeakersSection, [mode](cJSON *object) {
        return add_number(object, "multi_mode", mode->multi_mode) &&
               add_number(object, "cancel_mode", mode->cancel_mode);
    });
}
