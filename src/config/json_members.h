// SPDX-License-Identifier: MIT
// Small edits of configuration sections that the writers share.
#ifndef VASK_ED_CONFIG_JSON_MEMBERS_H
#define VASK_ED_CONFIG_JSON_MEMBERS_H

#include <cjson/cJSON.h>
#include <initializer_list>
#include <string>

namespace vask_ed {

// A text member to write: its key and its value.
struct text_member {
    const char *key;
    const std::string &value;
};

// Member `key` of `parent` when it is an object; null otherwise.
cJSON *find_object(cJSON *parent, const char *key);

// Adds `child` (taken over, freed on failure) to `parent` under `key`, after dropping any member
// of that name that is in the way. False when `child` is null or cannot be added.
bool attach(cJSON *parent, const char *key, cJSON *child);

// The object member `key` of `parent`, created empty at the end of `parent` when it is missing
// (or not an object). Null when it cannot be made.
cJSON *object_member(cJSON *parent, const char *key);

// Adds the members whose value is not empty, in order, as strings. False when a node cannot be made.
bool add_non_empty(cJSON *object, std::initializer_list<text_member> members);

// A new object holding the non-empty members, in order; null when a node cannot be made.
cJSON *object_of_non_empty(std::initializer_list<text_member> members);

// cJSON_UpdateObjectItem (string form) for each member, in order: each moves to the end of
// `object`, and an empty value deletes it. False when a node cannot be made.
bool update_members(cJSON *object, std::initializer_list<text_member> members);

// Drops member `key` and adds it anew with `value` at the end of `object`, also when `value` is
// empty. False when a node cannot be made.
bool set_string(cJSON *object, const char *key, const std::string &value);

// Replaces member `key` of `object` by `item` in its place, or adds it at the end when missing.
// `item` is taken over. False when it is null or cannot be added.
bool replace_or_add(cJSON *object, const char *key, cJSON *item);

// Replaces member `key` of `object` by `item` in its place; a missing object or member is left as it
// is (nothing is added). `item` is taken over. False only when it is null.
bool replace_existing(cJSON *object, const char *key, cJSON *item);

} // namespace vask_ed

#endif
