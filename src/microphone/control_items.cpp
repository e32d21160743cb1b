// SPDX-License-Identifier: MIT
// The registered control items ("microphone_config"): one per microphone, identified by (gr, id).
#include <cstddef>
#include <exception>

#include "microphone/item_lists.h"

namespace vask_ed {
namespace {

constexpr item_list kControlItems = {
    "microphone_config",          false,
    "Read Mic Control Config",    "Add Mic Control Settings",
    "Update Mic Control Config",  "Delete Mic Control Config",
};

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int UpdateControlItem(std::vector<microphone_info> *list, microphone_info *item)
{
    if (list == nullptr || item == nullptr)
        return -1;
    try {
        // A copy first: `item` may be an element of `list`, and nothing changes if copying fails.
        microphone_info merged = *item;
        // Kept: after an erased element, the one that slides into its place is not compared. A list
        // built through this function alone never holds two entries of one identity.
        for (size_t i = 0; i < list->size(); ++i) {
            const microphone_info &entry = (*list)[i];
            if (entry.gr == merged.gr && entry.id == merged.id)
                list->erase(list->begin() + static_cast<std::ptrdiff_t>(i));
        }
        list->push_back(std::move(merged));
        return 0;
    } catch (const std::exception &) {
        return -1;
    }
}

ED_API int ReadRegisteredMicListFromConfig(std::string gr, std::string id, std::vector<microphone_info> *list)
{
    config_call call = microphone_call("ReadRegisteredMicListFromConfig", __LINE__);
    if (list == nullptr) {
        log_config_error(call, kNullPoint);
        return -1;
    }
    return read_items(call, kControlItems, gr, id, list);
}

ED_API int AddMicrophoneControlSettings(microphone_info *item)
{
    config_call call = microphone_call("AddMicrophoneControlSettings", __LINE__);
    if (item == nullptr) {
        log_config_error(call, kNullPoint);
        return -1;
    }
    return add_item(call, kControlItems, *item);
}

ED_API int UpdateMicrophoneControlConfig(std::vector<microphone_info> *list)
{
    config_call call = microphone_call("UpdateMicrophoneControlConfig", __LINE__, kOpenWriterConfigFailed);
    if (list == nullptr) {
        log_config_error(call, kNullPoint);
        return -1;
    }
    return replace_items(call, kControlItems, *list);
}

ED_API int DeleteMicrophoneControlConfig(microphone_info *item)
{
    config_call call = microphone_call("DeleteMicrophoneControlConfig", __LINE__);
    if (item == nullptr) {
        log_config_error(call, kNullPoint);
        return -1;
    }
    return delete_item(call, kControlItems, *item);
}
