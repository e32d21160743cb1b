// SPDX-License-Identifier: MIT
// The two item lists of the microphone control file, control items and group conflicts, share one
// implementation; each list is described by an item_list.
#ifndef VASK_ED_MICROPHONE_ITEM_LISTS_H
#define VASK_ED_MICROPHONE_ITEM_LISTS_H

#include <string>
#include <vector>

#include "microphone/microphone_store.h"

namespace vask_ed {

struct item_list {
    // The array member of the document.
    const char *array;
    // Group conflicts: one item per group, matched on "gr" alone and stored without "id".
    bool by_group;
    // The level-2 entry lines of the reader, the adder, the whole-list writer and the deleter.
    const char *read_entry;
    const char *add_entry;
    const char *update_entry;
    const char *delete_entry;
};

// The reader: replaces *list with the items whose gr is set and passes the filters (an empty
// filter passes all), one per (gr, id), the later one in file order. The list is left as it was
// when the file cannot be opened, and is empty after any other failure.
int read_items(const config_call &call, const item_list &kind, const std::string &gr, const std::string &id,
               std::vector<microphone_info> *list);

// Removes the item of the same identity, then appends `item`.
int add_item(const config_call &call, const item_list &kind, const microphone_info &item);

// Replaces the whole array with `list`, rebuilding a file that is not JSON.
int replace_items(const config_call &call, const item_list &kind, const std::vector<microphone_info> &list);

// Removes the first item of the same identity; the file is written back also when none matched.
int delete_item(const config_call &call, const item_list &kind, const microphone_info &item);

} // namespace vask_ed

#endif
