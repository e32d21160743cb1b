// SPDX-License-Identifier: MIT
// The JSON payloads of the service's signals, turned into records and freed again.
#include <memory>
#include <new>

#include "core/internal.h"
#include "core/record_fields.h"

namespace vask_ed {
namespace {

const int_field<sig_voting_results_data> kVotingFields[] = {
    {"Status", &sig_voting_results_data::status},     {"Agree", &sig_voting_results_data::agree},
    {"Disagree", &sig_voting_results_data::disagree}, {"Abandon", &sig_voting_results_data::abandon},
    {"Total", &sig_voting_results_data::total},       {"Time", &sig_voting_results_data::time},
};

const int_field<sig_info_data_change_data> kInfoFields[] = {
    {"Type", &sig_info_data_change_data::type},
    {"Data", &sig_info_data_change_data::data},
};

const int_field<sig_cam_status_data> kCamStatusFields[] = {
    {"Status", &sig_cam_status_data::status},
};

template <typename Record, size_t N>
bool has_all_keys(const cJSON *object, const int_field<Record> (&fields)[N])
{
    for (const auto &field : fields)
        if (cJSON_GetObjectItem(object, field.key) == nullptr)
            return false;
    return true;
}

// "Group", "Id" and "On", shared by the microphone and camera records.
template <typename Record>
void read_group_id_on(const cJSON *object, Record &record)
{
    record.group.clear();
    record.id.clear();
    record.on = false;
    if (const cJSON *group = cJSON_GetObjectItem(object, "Group"))
        record.group = string_value(group);
    if (const cJSON *id = cJSON_GetObjectItem(object, "Id"))
        record.id = string_value(id);
    if (const cJSON *on = cJSON_GetObjectItem(object, "On"))
        record.on = on->valueint == 1;
}

// Parses `payload` and, when it holds every key `required` asks for, returns the record `fill`
// made of it; null otherwise.
template <typename Record, typename Required, typename Fill>
void *parse_record(const char *payload, Required required, Fill fill)
{
    json_ptr document(cJSON_Parse(payload));
    if (!document || !required(document.get()))
        return nullptr;
    try {
        // Value-initialised so that a member the parser does not set holds no indeterminate value.
        std::unique_ptr<Record> record(new Record());
        fill(document.get(), *record);
        return record.release();
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API void *sig_mic_on_parser(const char *payload)
{
    return parse_record<sig_mic_on_data>(
        payload,
        [](const cJSON *object) {
            return cJSON_GetObjectItem(object, "Group") != nullptr ||
                   cJSON_GetObjectItem(object, "Id") != nullptr;
        },
        [](const cJSON *object, sig_mic_on_data &record) { read_group_id_on(object, record); });
}

ED_API void sig_mic_on_releaser(void *record)
{
    delete static_cast<sig_mic_on_data *>(record);
}

ED_API void *sig_voting_results_parser(const char *payload)
{
    return parse_record<sig_voting_results_data>(
        payload, [](const cJSON *object) { return has_all_keys(object, kVotingFields); },
        [](const cJSON *object, sig_voting_results_data &record) {
            read_int_fields(object, kVotingFields, record);
        });
}

ED_API void sig_voting_results_releaser(void *record)
{
    delete static_cast<sig_voting_results_data *>(record);
}

ED_API void *sig_info_data_change_parser(const char *payload)
{
    return parse_record<sig_info_data_change_data>(
        payload, [](const cJSON *object) { return has_all_keys(object, kInfoFields); },
        [](const cJSON *object, sig_info_data_change_data &record) {
            read_int_fields(object, kInfoFields, record);
        });
}

ED_API void sig_info_data_change_releaser(void *record)
{
    delete static_cast<sig_info_data_change_data *>(record);
}

ED_API void *sig_cam_status_parser(const char *payload)
{
    return parse_record<sig_cam_status_data>(
        payload, [](const cJSON *object) { return has_all_keys(object, kCamStatusFields); },
        [](const cJSON *object, sig_cam_status_data &record) {
            read_int_fields(object, kCamStatusFields, record);
            read_group_id_on(object, record);
        });
}

ED_API void sig_cam_status_releaser(void *record)
{
    delete static_cast<sig_cam_status_data *>(record);
}

// The two microphone signals share one payload form on purpose.
ED_API void *sig_non_list_mic_parser(const char *payload)
{
    return sig_mic_on_parser(payload);
}

ED_API void sig_non_list_mic_releaser(void *record)
{
    sig_mic_on_releaser(record);
}
