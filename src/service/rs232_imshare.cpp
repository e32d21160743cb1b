// SPDX-License-Identifier: MIT
// The RS232 devices the service sees, and the image-share flag it keeps.
#include "core/internal.h"
#include "core/method_call.h"
#include "core/record_fields.h"
#include "service/service_replies.h"

namespace vask_ed {
namespace {

const string_field<external_rs232_info> kRs232Strings[] = {
    {"Port", &external_rs232_info::port},
    {"Description", &external_rs232_info::description},
};
const int_field<external_rs232_info> kRs232Ints[] = {
    {"Number", &external_rs232_info::number},
};

void read_rs232_device(const cJSON *element, external_rs232_info &device)
{
    read_string_fields(element, kRs232Strings, device);
    read_int_fields(element, kRs232Ints, device);
}

} // namespace

void read_rs232_device_list(const cJSON *reply, std::vector<external_rs232_info> *list)
{
    append_records(reply, "rs232_list", list, read_rs232_device);
}

void read_imshare_info(const cJSON *reply, imshare_info *info)
{
    const cJSON *hid = cJSON_GetObjectItem(reply, "hid");
    info->hid = hid != nullptr && hid->valueint != 0;
}

} // namespace vask_ed

using namespace vask_ed;

ED_API int ed_get_external_rs232_device_list(std::vector<external_rs232_info> *list)
{
    if (list == nullptr)
        return -1;
    return call_reading_reply("get_ex_rs232_device_list", nullptr,
                              [list](const cJSON *reply) { read_rs232_device_list(reply, list); });
}

ED_API int ed_get_imshare_info(imshare_info *info)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogLibrary, 1038, "ed_get_imshare_info", "%s",
                           "ed_get_imshare_info");
    if (info == nullptr)
        return -1;
    return call_reading_reply("get_imshare_info", nullptr,
                              [info](const cJSON *reply) { read_imshare_info(reply, info); });
}

ED_API int ed_set_imshare_info(imshare_info info)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogLibrary, 1020, "ed_set_imshare_info", "%s",
                           "ed_set_imshare_info");
    json_ptr request(cJSON_CreateObject());
    if (!request || cJSON_AddBoolToObject(request.get(), "hid", info.hid) == nullptr)
        return -1;
    return ed_method_call("set_imshare_info", request.get(), nullptr);
}
