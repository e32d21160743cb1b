// SPDX-License-Identifier: MIT
// The application's microphone control operations: readers read the file; setters store first and
// then tell the service, which reads the stored modes from the file itself.
#include <exception>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "core/method_call.h"
#include "microphone/microphone_store.h"

namespace vask_ed {
namespace {

// The methods of ed_exe_mic_control_info, by action; the home position takes no item.
struct execute_action {
    const char *method;
    bool sends_item;
};
constexpr execute_action kExecuteActions[] = {
    {"simulate_microphone_control_item", true},
    {"execute_microphone_control_item", true},
    {"execute_microphone_control_home", false},
};

// Calls `method` with the item's every set member as its body.
int call_with_item(const char *method, const microphone_info &info)
{
    try {
        json_ptr body(cJSON_CreateObject());
        if (!body || !add_microphone_members(body.get(), info, false, false))
            return -1;
        return ed_method_call(method, body.get(), nullptr);
    } catch (const std::exception &) {
        return -1;
    }
}

// The service is told only when the store succeeded; the configuration lock is already released.
int store_then_send_item(int stored, const char *method, const microphone_info &info)
{
    return stored != 0 ? stored : call_with_item(method, info);
}

int store_then_notify(int stored, const char *method)
{
    return stored != 0 ? stored : ed_method_call(method, nullptr, nullptr);
}

// A list reader's result for the application: an empty list is a failure.
template <typename Read>
int read_list(std::vector<microphone_info> *list, Read read)
{
    if (list == nullptr)
        return -1;
    try {
        read();
    } catch (const std::exception &) {
        return -1;
    }
    return list->empty() ? -1 : 0;
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ed_get_mic_control_multiple_speakers_mode_info(multiple_speakers_mode *mode)
{
    return ReadMicrophoneMultipleSpeakersMode(mode);
}

ED_API int ed_get_mic_control_cancel_mode_info(int *cancel_mode, microphone_info *info)
{
    return ReadMicrophoneDefaultConfig(cancel_mode, info);
}

ED_API int ed_get_mic_control_conflict_mode_info(microphone_info *info)
{
    return ReadMicrophoneGeneralConflictConfig(info);
}

ED_API int ed_get_mic_group_conflict_info(std::string gr, std::vector<microphone_info> *list)
{
    // The reader's own result is not used: an unreadable file leaves the list as it was.
    return read_list(list, [&] { ReadMicrophoneGroupConflictConfig(std::move(gr), list); });
}

ED_API int ed_get_mic_control_info(std::string gr, std::string id, std::vector<microphone_info> *list)
{
    return read_list(list, [&] { ReadRegisteredMicListFromConfig(std::move(gr), std::move(id), list); });
}

ED_API int ed_exe_mic_control_info(int action, microphone_info &info)
{
    if (action < 0 || static_cast<size_t>(action) >= std::size(kExecuteActions))
        return -2;
    const execute_action &selected = kExecuteActions[action];
    if (!selected.sends_item)
        return ed_method_call(selected.method, nullptr, nullptr);
    return call_with_item(selected.method, info);
}

ED_API int ed_set_mic_control_info(microphone_info &info)
{
    return store_then_send_item(AddMicrophoneControlSettings(&info), "update_microphone_control_item", info);
}

ED_API int ed_del_mic_control_info(microphone_info &info)
{
    return store_then_send_item(DeleteMicrophoneControlConfig(&info), "delete_microphone_control_item", info);
}

ED_API int ed_set_mic_group_conflict_info(microphone_info &info)
{
    return store_then_send_item(AddMicrophoneGroupConflictConfig(&info), "update_mic_group_conflict_item", info);
}

ED_API int ed_del_mic_group_conflict_info(microphone_info &info)
{
    return store_then_send_item(DeleteMicrophoneGroupConflictConfig(&info), "delete_mic_group_conflict_item", info);
}

ED_API int ed_set_mic_control_conflict_mode_info(microphone_info &info)
{
    return store_then_notify(UpdateMicrophoneGeneralConflictConfig(&info), "mic_control_conflict_mode");
}

ED_API int ed_set_mic_control_cancel_mode_info(int cancel_mode, microphone_info &info)
{
    return store_then_notify(UpdateMicrophoneDefaultConfig(cancel_mode, &info), "mic_control_cancel_mode");
}

ED_API int ed_set_mic_control_multiple_speakers_mode_info(multiple_speakers_mode &mode)
{
    return store_then_notify(UpdateMicrophoneMultipleSpeakersMode(&mode), "mic_control_multiple_speakers_mode");
}
