// SPDX-License-Identifier: MIT
// Pieces shared by the functions of the microphone control file: the item's JSON form as the writers
// use it, and the description of their configuration cycle.
#ifndef VASK_ED_MICROPHONE_MICROPHONE_STORE_H
#define VASK_ED_MICROPHONE_MICROPHONE_STORE_H

#include <cjson/cJSON.h>

#include "config/config_cycle.h"
#include "core/internal.h"

namespace vask_ed {

constexpr const char *kMicrophoneConfig = "/etc/microphone_control.json";
constexpr const char *kNullPoint = "null point";

// cJSON_AddMicroPhoneInfo that tells whether every member could be made.
bool add_microphone_members(cJSON *object, const microphone_info &info, bool omit_id, bool omit_gr);

// Removes the first element of `array` that matches `info` (see cJSON_DeleteMicroPhoneInfoFromArray).
void delete_matching_item(cJSON *array, const microphone_info &info, bool match_group_only);

// The cycle of a function of the microphone file, logging under `function` at `line`; a file that
// cannot be opened is logged with `open_failed`.
config_call microphone_call(const char *function, int line, const char *open_failed = kOpenConfigFailed);

// `message` at level 2 as a line of `call`.
void log_trace(const config_call &call, const char *message);

} // namespace vask_ed

#endif
