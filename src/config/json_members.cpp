// SPDX-License-Identifier: MIT
// Small edits of configuration sections that the writers share.
#include "config/json_members.h"

#include "core/internal.h"

namespace vask_ed {

cJSON *find_object(cJSON *parent, const char *key)
{
    cJSON *member = cJSON_GetObjectItem(parent, key);
    return cJSON_IsObject(member) ? member : nullptr;
}

bool attach(cJSON *parent, const char *key, cJSON *child)
{
    json_ptr owned(child);
    if (!owned)
        return false;
    cJSON_DeleteItemFromObject(parent, key);
    if (!cJSON_AddItemToObject(parent, key, owned.get()))
        return false;
    owned.release();
    return true;
}

cJSON *object_member(cJSON *parent, const char *key)
{
    cJSON *member = find_object(parent, key);
    if (member != nullptr)
        return member;
    member = cJSON_CreateObject();
    return attach(parent, key, member) ? member : nullptr;
}

bool add_non_empty(cJSON *object, std::initializer_list<text_member> members)
{
    for (const text_member &member : members)
        if (!member.value.empty() && cJSON_AddStringToObject(object, member.key, member.value.c_str()) == nullptr)
            return false;
    return true;
}

cJSON *object_of_non_empty(std::initializer_list<text_member> members)
{
    json_ptr object(cJSON_CreateObject());
    if (!object || !add_non_empty(object.get(), members))
        return nullptr;
    return object.release();
}

bool update_members(cJSON *object, std::initializer_list<text_member> members)
{
    for (const text_member &member : members)
        if (cJSON_UpdateObjectItem(object, member.key, member.value.c_str()) != 0)
            return false;
    return true;
}

bool set_string(cJSON *object, const char *key, const std::string &value)
{
    return attach(object, key, cJSON_CreateString(value.c_str()));
}

bool replace_or_add(cJSON *object, const char *key, cJSON *item)
{
    if (item == nullptr)
        return false;
    if (cJSON_GetObjectItem(object, key) == nullptr)
        return attach(object, key, item);
    if (!cJSON_ReplaceItemInObject(object, key, item)) {
        cJSON_Delete(item);
        return false;
    }
    return true;
}

bool replace_existing(cJSON *object, const char *key, cJSON *item)
{
    if (item == nullptr)
        return false;
    if (!cJSON_ReplaceItemInObject(object, key, item))
        cJSON_Delete(item);
    return true;
}

} // namespace vask_ed
