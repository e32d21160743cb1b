// SPDX-License-Identifier: MIT
// The "external_control" section: how an outside controller may drive the box over TCP or RS232.
#include <string>

#include "config/config_cycle.h"
#include "config/json_members.h"
#include "core/record_fields.h"

using namespace vask_ed;

ED_API int ReadExternalControlConfig(external_control_info *info)
{
    config_call call("ReadExternalControlConfig", __LINE__);
    if (info == nullptr) {
        log_config_error(call, kInfoNull);
        return -1;
    }
    call.section = "external_control";
    call.missing_section = "Get external_control failed";
    return read_config(call, [info, &call](const cJSON *, const cJSON *control) {
        const cJSON *tcp = cJSON_GetObjectItem(control, "tcp");
        if (tcp == nullptr) {
            log_config_error(call, "Get tcp failed");
            return -1;
        }
        const cJSON *rs232 = cJSON_GetObjectItem(control, "rs232");
        if (rs232 == nullptr) {
            log_config_error(call, "Get rs232 failed");
            return -1;
        }
        const cJSON *authentication = cJSON_GetObjectItem(tcp, "authentication");
        external_control_info read;
        read.authentication = authentication != nullptr && authentication->valueint != 0;
        read.port = string_value(cJSON_GetObjectItem(tcp, "port"));
        read.baud_rate = string_value(cJSON_GetObjectItem(rs232, "baud_rate"));
        read.portname = string_value(cJSON_GetObjectItem(rs232, "portname"));
        *info = std::move(read);
        return 0;
    });
}

ED_API int UpdateExternalControlConfig(const external_control_info *info)
{
    config_call call("UpdateExternalControlConfig", __LINE__);
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, call.source, call.line, call.function, "%s", call.function);
    if (info == nullptr) {
        log_config_error(call, kInfoNull);
        return -1;
    }
    call.open_failed = kOpenWriterConfigFailed;
    call.section = "external_control";
    return edit_config(call, [info](cJSON *, cJSON *control) {
        // Kept: a missing section is not created; it comes with the default document. The file
        // is written back as it was.
        if (control == nullptr)
            return 0;
        cJSON *tcp = object_member(control, "tcp");
        cJSON *rs232 = object_member(control, "rs232");
        bool stored = tcp != nullptr && rs232 != nullptr &&
                      replace_or_add(tcp, "authentication", cJSON_CreateBool(info->authentication)) &&
                      replace_or_add(tcp, "port", cJSON_CreateString(info->port.c_str())) &&
                      replace_or_add(rs232, "baud_rate", cJSON_CreateString(info->baud_rate.c_str())) &&
                      replace_or_add(rs232, "portname", cJSON_CreateString(info->portname.c_str()));
        return stored ? 0 : -1;
    });
}
