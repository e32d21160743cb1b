// SPDX-License-Identifier: MIT
// The "external_rs232_config" section: the serial devices the box keeps for itself, the USB
// accessories it enables and how it is driven over RS232.
#include <string>

#include "config/config_cycle.h"
#include "config/json_members.h"
#include "core/method_call.h"
#include "core/record_fields.h"

namespace vask_ed {
namespace {

constexpr const char *kSection = "external_rs232_config";
constexpr int kNoPort = -1;

// One managed key and the member of the record that holds it; exactly one member is set.
struct rs232_key {
    const char *key;
    std::string external_rs232_control::*text;
    int external_rs232_control::*number;
    bool external_rs232_control::*flag;
};

using rs = external_rs232_control;

// In the order the writer stores them: after an update they stand at the end of the section in
// this order, after the keys that are not managed here.
const rs232_key kKeys[] = {
    {"builtin_TTY", &rs::builtin_TTY, nullptr, nullptr},
    {"ignored_TTYUSB_A", nullptr, &rs::ignored_TTYUSB_A, nullptr},
    {"ignored_TTYUSB_B", nullptr, &rs::ignored_TTYUSB_B, nullptr},
    {"disable_USB_camctrl", nullptr, nullptr, &rs::disable_USB_camctrl},
    {"enable_USB_wenk9", nullptr, nullptr, &rs::enable_USB_wenk9},
    {"enable_USB_zorvo", nullptr, nullptr, &rs::enable_USB_zorvo},
    {"port", &rs::port, nullptr, nullptr},
    {"baud_rate", &rs::baud_rate, nullptr, nullptr},
    {"focus_command", &rs::focus_command, nullptr, nullptr},
    {"default_command", &rs::default_command, nullptr, nullptr},
    {"conflict_command", &rs::conflict_command, nullptr, nullptr},
};

void read_key(const cJSON *section, const rs232_key &key, external_rs232_control &info)
{
    const cJSON *item = cJSON_GetObjectItem(section, key.key);
    if (item == nullptr)
        return;
    if (key.text != nullptr)
        info.*key.text = string_value(item);
    else if (key.number != nullptr)
        info.*key.number = item->valueint;
    else
        // A number stands for a flag as well: any non-zero value is true.
        info.*key.flag = item->valueint != 0;
}

// Write when set, delete when unset: unset values never reach the file.
int store_key(cJSON *section, const rs232_key &key, const external_rs232_control &info)
{
    if (key.text != nullptr) {
        if (!(info.*key.text).empty())
            return cJSON_UpdateObjectItem(section, key.key, (info.*key.text).c_str());
    } else if (key.number != nullptr) {
        if (info.*key.number != kNoPort)
            return cJSON_UpdateObjectItem(section, key.key, info.*key.number);
    } else if (info.*key.flag) {
        return cJSON_UpdateObjectItem(section, key.key, true);
    }
    cJSON_DeleteItemFromObject(section, key.key);
    return 0;
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ReadExternalRS232ControlConfig(external_rs232_control *info)
{
    config_call call("ReadExternalRS232ControlConfig", __LINE__);
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, call.source, call.line, call.function,
                           "Read External RS232 Control Config");
    if (info == nullptr) {
        log_config_error(call, kInfoNull);
        return -1;
    }
    *info = external_rs232_control{};
    call.section = kSection;
    call.missing_section = kNoParseError;
    return read_config(call, [info](const cJSON *, const cJSON *section) {
        external_rs232_control read;
        for (const rs232_key &key : kKeys)
            read_key(section, key, read);
        *info = std::move(read);
        return 0;
    });
}

ED_API int UpdateExternalRS232ControlConfig(external_rs232_control *info)
{
    config_call call("UpdateExternalRS232ControlConfig", __LINE__);
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, call.source, call.line, call.function,
                           "Update External RS232 Control Config");
    if (info == nullptr) {
        log_config_error(call, kInfoNull);
        return -1;
    }
    call.open_failed = kOpenWriterConfigFailed;
    // Named so that a document whose root is not an object is refused rather than given a section.
    call.section = kSection;
    return edit_config(call, [info](cJSON *root, cJSON *) {
        // A missing section is added at the end of the document, holding the set keys only.
        cJSON *section = object_member(root, kSection);
        if (section == nullptr)
            return -1;
        for (const rs232_key &key : kKeys)
            if (store_key(section, key, *info) != 0)
                return -1;
        return 0;
    });
}

ED_API int ed_get_external_rs232_control_info(external_rs232_control *info)
{
    return ReadExternalRS232ControlConfig(info);
}

ED_API int ed_set_external_rs232_control_info(external_rs232_control &info)
{
    int stored = UpdateExternalRS232ControlConfig(&info);
    if (stored != 0)
        return stored;
    // Store first, then tell: the lock is released here.
    return ed_method_call("set_external_rs232_control_info", nullptr, nullptr);
}
