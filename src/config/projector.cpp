// SPDX-License-Identifier: MIT
// The "projector_control" section: how the box drives a projector.
#include <cstddef>
#include <string>

#include "config/config_cycle.h"
#include "config/protocol.h"
#include "core/record_fields.h"

namespace vask_ed {
namespace {

using projector_field = string_field<external_protocol_info>;

const projector_field kAddressFields[] = {
    {"ip_address", &external_protocol_info::ip_address},
    {"password", &external_protocol_info::password},
};
const projector_field kSerialFields[] = {
    {"baud_rate", &external_protocol_info::baud_rate},
};

// The projector's own names: they share the numbers of the control-device table, not its names.
// A protocol with parameters keeps them in the member of "parameters" named after it.
struct projector_protocol {
    const char *name;
    int number;
    const projector_field *fields;
    size_t field_count;
};

const projector_protocol kProjectorProtocols[] = {
    {"none", 0, nullptr, 0},
    {"hitachi_tcp", 1, kAddressFields, sizeof kAddressFields / sizeof kAddressFields[0]},
    {"hitachi_rs232", 21, kSerialFields, sizeof kSerialFields / sizeof kSerialFields[0]},
    {"pjlink", 24, kAddressFields, sizeof kAddressFields / sizeof kAddressFields[0]},
};

const projector_protocol *find_projector_protocol(const std::string &name)
{
    for (const projector_protocol &protocol : kProjectorProtocols)
        if (name == protocol.name)
            return &protocol;
    return nullptr;
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ReadProjectorConfig(external_protocol_info *info)
{
    config_call call("ReadProjectorConfig", __LINE__);
    if (info == nullptr) {
        log_config_error(call, kInfoNull);
        return -1;
    }
    reset_protocol_record(info);
    call.section = "projector_control";
    call.missing_section = kNoParseError;
    int result = read_config(call, [info, &call](const cJSON *, const cJSON *projector) {
        const cJSON *protocol = cJSON_GetObjectItem(projector, "protocol");
        const cJSON *parameters = cJSON_GetObjectItem(projector, "parameters");
        if (protocol == nullptr || parameters == nullptr) {
            log_config_error(call, kNoParseError);
            return -1;
        }
        const projector_protocol *entry = find_projector_protocol(string_value(protocol));
        if (entry == nullptr) {
            info->protocol = -1;
            return 0;
        }
        if (entry->field_count > 0) {
            const cJSON *block = cJSON_GetObjectItem(parameters, entry->name);
            if (block == nullptr) {
                log_config_error(call, kNoParseError);
                return -1;
            }
            for (size_t i = 0; i < entry->field_count; ++i)
                (*info).*entry->fields[i].member = string_value(cJSON_GetObjectItem(block, entry->fields[i].key));
        }
        info->protocol = entry->number;
        return 0;
    });
    if (result != 0)
        info->protocol = -1;
    return result;
}
