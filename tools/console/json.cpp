// SPDX-License-Identifier: MIT
#include "json.h"

#include <climits>
#include <cmath>
#include <cstring>

namespace console {

namespace {

problem missing(const char *key) { return std::string("\"") + key + "\" is missing"; }

problem wrong_type(const char *key, const char *type) { return std::string("\"") + key + "\" must be " + type; }

} // namespace

problem read_string(const cJSON *object, const char *key, std::string &out, bool required)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    if (!item)
        return required ? missing(key) : problem();
    if (!cJSON_IsString(item))
        return wrong_type(key, "a string");
    out = item->valuestring;
    return problem();
}

problem read_int(const cJSON *object, const char *key, int &out, bool required)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    if (!item)
        return required ? missing(key) : problem();
    double value = cJSON_IsNumber(item) ? item->valuedouble : NAN;
    if (!std::isfinite(value) || value != std::floor(value) || value < INT_MIN || value > INT_MAX)
        return wrong_type(key, "a whole number");
    out = static_cast<int>(value);
    return problem();
}

problem read_bool(const cJSON *object, const char *key, bool &out, bool required)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    if (!item)
        return required ? missing(key) : problem();
    if (!cJSON_IsBool(item))
        return wrong_type(key, "true or false");
    out = cJSON_IsTrue(item);
    return problem();
}

problem unknown_member(const cJSON *object, const char *const *known)
{
    for (const cJSON *item = object ? object->child : nullptr; item; item = item->next) {
        bool found = false;
        for (const char *const *name = known; *name && !found; ++name)
            found = item->string && std::strcmp(item->string, *name) == 0;
        if (!found)
            return std::string("unknown member \"") + (item->string ? item->string : "") + "\"";
    }
    return problem();
}

} // namespace console
