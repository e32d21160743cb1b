// SPDX-License-Identifier: MIT
// The group-conflict items ("microphone_group_conflict_config"): one per group, identified by gr
// and stored without "id".
#include "microphone/item_lists.h"

namespace vask_ed {
namespace {

constexpr item_list kGroupConflicts = {
    "microphone_group_conflict_config", true,
    "Read Mic GroupConflict Config",    "Add Mic GroupConflict Config",
    "Update Mic GroupConflict Config",  "Delete Mic GroupConflict Config",
};

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ReadMicrophoneGroupConflictConfig(std::string gr, std::vector<microphone_info> *list)
{
    config_call call = microphone_call("ReadMicrophoneGroupConflictConfig", __LINE__);
    if (list == nullptr) {
        log_config_error(call, kNullPoint);
        return -1;
    }
    return read_items(call, kGroupConflicts, gr, std::string(), list);
}

ED_API int AddMicrophoneGroupConflictConfig(microphone_info *item)
{
    config_call call = microphone_call("AddMicrophoneGroupConflictConfig", __LINE__);
    if (item == nullptr) {
        log_config_error(call, kNullPoint);
        return -1;
    }
    return add_item(call, kGroupConflicts, *item);
}

ED_API int UpdateMicrophoneGroupConflictConfig(std::vector<microphone_info> *list)
{
    config_call call = microphone_call("UpdateMicrophoneGroupConflictConfig", __LINE__, kOpenWriterConfigFailed);
    if (list == nullptr) {
        log_config_error(call, kNullPoint);
        return -1;
    }
    return replace_items(call, kGroupConflicts, *list);
}

ED_API int DeleteMicrophoneGroupConflictConfig(microphone_info *item)
{
    config_call call = microphone_call("DeleteMicrophoneGroupConflictConfig", __LINE__);
    if (item == nullptr) {
        log_config_error(call, kNullPoint);
        return -1;
    }
    return delete_item(call, kGroupConflicts, *item);
}
