// Reading a record's int members from a JSON object, one table per record.
#ifndef VASK_ED_CORE_RECORD_FIELDS_H
#define VASK_ED_CORE_RECORD_FIELDS_H

#include <cjson/cJSON.h>
#include <cstddef>

namespace vask_ed {

template <typename Record>
struct int_field {
    const char *key;
    int Record::*member;
};

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

} // namespace vask_ed

#endif
