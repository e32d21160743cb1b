// SPDX-License-Identifier: MIT
// Replace-or-add editing of cJSON objects, the primitive of every configuration writer.
#include "core/internal.h"

namespace vask_ed {
namespace {

// Deletes member `key` of `obj` and adds `item` (made by `make`) under the same key, at the end of
// the object: writers rely on the edited member moving to the end.
template <typename Make>
int replace_member(cJSON *obj, const char *key, Make make)
{
    if (obj == nullptr || key == nullptr || *key == '\0')
        return -1;
    cJSON_DeleteItemFromObject(obj, key);
    cJSON *item = make();
    if (item == nullptr)
        return -1;
    if (!cJSON_AddItemToObject(obj, key, item)) {
        cJSON_Delete(item);
        return -1;
    }
    return 0;
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int cJSON_UpdateObjectItem(cJSON *obj, const char *key, int value)
{
    return replace_member(obj, key, [value] { return cJSON_CreateNumber(value); });
}

ED_API int cJSON_UpdateObjectItem(cJSON *obj, const char *key, double value)
{
    return replace_member(obj, key, [value] { return cJSON_CreateNumber(value); });
}

ED_API int cJSON_UpdateObjectItem(cJSON *obj, const char *key, const char *value)
{
    if (value == nullptr)
        return -1;
    if (*value == '\0') {
        if (obj == nullptr || key == nullptr || *key == '\0')
            return -1;
        // Kept: writers clear a setting by storing an empty string, which drops the key.
        cJSON_DeleteItemFromObject(obj, key);
        return 0;
    }
    return replace_member(obj, key, [value] { return cJSON_CreateString(value); });
}

ED_API int cJSON_UpdateObjectItem(cJSON *obj, const char *key, bool value)
{
    return replace_member(obj, key, [value] { return cJSON_CreateBool(value); });
}

ED_API int cJSON_AppendTwoArrays(cJSON *dst, cJSON *src)
{
    if (dst == nullptr || src == nullptr)
        return -1;
    int count = cJSON_GetArraySize(src);
    if (count == 0 || cJSON_GetArraySize(dst) == 0)
        return -1;
    // Walks a count fixed beforehand, so that `src` may be `dst` itself.
    const cJSON *element = src->child;
    for (int i = 0; i < count && element != nullptr; ++i, element = element->next) {
        cJSON *copy = cJSON_Duplicate(element, false);
        if (copy == nullptr)
            return -1;
        if (!cJSON_AddItemToArray(dst, copy)) {
            cJSON_Delete(copy);
            return -1;
        }
    }
    return 0;
}
