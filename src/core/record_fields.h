// SPDX-License-Identifier: MIT
// Reading records from JSON objects: tables of members, one per record, and the list walk that
// turns an array of objects into records.
#ifndef VASK_ED_CORE_RECORD_FIELDS_H
#define VASK_ED_CORE_RECORD_FIELDS_H

#include <cjson/cJSON.h>
#include <cstddef>
#include <string>
#include <vector>

namespace vask_ed {

template <typename Record>
struct int_field {
    const char *key;
    int Record::*member;
};

template <typename Record>
struct string_field {
    const char *key;
    std::string Record::*member;
};

// The text of `item`; empty when it is null or not a JSON string (never read through a null
// valuestring).
inline std::string string_value(const cJSON *item)
{
    if (cJSON_IsString(item) && item->valuestring != nullptr)
        return item->valuestring;
    return std::string();
}

// Stores each key's valueint in its member, or `missing` when `object` (possibly null) lacks it.
template <typename Record, size_t N>
void read_int_fields(const cJSON *object, const int_field<Record> (&fields)[N], Record &record,
                     int missing = -1)
{
    for (const auto &field : fields) {
        const cJSON *item = cJSON_GetObjectItem(object, field.key);
        record.*field.member = item != nullptr ? item->valueint : missing;
    }
}

// Stores each key's text in its member; empty when the key is missing or not a string.
template <typename Record, size_t N>
void read_string_fields(const cJSON *object, const string_field<Record> (&fields)[N], Record &record)
{
    for (const auto &field : fields)
        record.*field.member = string_value(cJSON_GetObjectItem(object, field.key));
}

// Appends to `list` one record per element of the array member `key` of `object`, in array order,
// each filled by `fill(element, record)`. A missing or non-array member appends nothing.
template <typename Record, typename Fill>
void append_records(const cJSON *object, const char *key, std::vector<Record> *list, Fill fill)
{
    const cJSON *array = cJSON_GetObjectItem(object, key);
    if (!cJSON_IsArray(array))
        return;
    const cJSON *element = nullptr;
    cJSON_ArrayForEach(element, array)
    {
        Record record{};
        fill(element, record);
        list->push_back(std::move(record));
    }
}

} // namespace vask_ed

#endif
