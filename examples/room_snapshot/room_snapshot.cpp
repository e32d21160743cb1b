// SPDX-License-Identifier: MIT
// room_snapshot: reads every setting of the room's external devices and prints one JSON document.
//
//   room_snapshot
//
// Each member of the document is one reading; a reading that failed holds {"error": <result>}
// instead, and the exit status is then 1. Passwords are not printed.
#include <libvask_external_device.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

using json_ptr = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

int failures = 0;

// Adds `value` under `name`, or an error object when the reading failed.
void add_reading(cJSON *document, const char *name, int rc, cJSON *value)
{
    if (rc != 0) {
        cJSON_Delete(value);
        value = cJSON_CreateObject();
        cJSON_AddNumberToObject(value, "error", rc);
        ++failures;
    }
    cJSON_AddItemToObject(document, name, value);
}

cJSON *device_json(const external_protocol_info &info)
{
    cJSON *device = cJSON_CreateObject();
    cJSON_AddBoolToObject(device, "enable", info.enable);
    cJSON_AddNumberToObject(device, "protocol", info.protocol);
    cJSON_AddStringToObject(device, "ip_address", info.ip_address.c_str());
    cJSON_AddStringToObject(device, "username", info.username.c_str());
    cJSON_AddStringToObject(device, "baud_rate", info.baud_rate.c_str());
    return device;
}

void add_voting(cJSON *document)
{
    ed_voting_info vote{};
    int rc = ed_get_voting(vote);
    cJSON *value = cJSON_CreateObject();
    cJSON_AddNumberToObject(value, "status", vote.status);
    cJSON_AddNumberToObject(value, "agree", vote.agree);
    cJSON_AddNumberToObject(value, "disagree", vote.disagree);
    cJSON_AddNumberToObject(value, "abandon", vote.abandon);
    cJSON_AddNumberToObject(value, "total", vote.total);
    add_reading(document, "voting", rc, value);
}

void add_devices(cJSON *document)
{
    external_protocol_info info{};
    int rc = ed_get_mic_central_info(&info);
    add_reading(document, "mic_central", rc, device_json(info));

    int connected = 0;
    rc = ed_get_mic_central_connection_state(&connected);
    add_reading(document, "mic_central_connected", rc, cJSON_CreateBool(connected != 0));

    info = external_protocol_info{};
    rc = ed_get_castdeck_info(&info);
    add_reading(document, "castdeck", rc, device_json(info));

    info = external_protocol_info{};
    rc = ed_get_projector_settings(&info);
    add_reading(document, "projector", rc, device_json(info));

    external_control_info control{};
    rc = ed_get_tcp_control_settings(&control);
    cJSON *value = cJSON_CreateObject();
    cJSON_AddBoolToObject(value, "authentication", control.authentication);
    cJSON_AddStringToObject(value, "port", control.port.c_str());
    cJSON_AddStringToObject(value, "baud_rate", control.baud_rate.c_str());
    cJSON_AddStringToObject(value, "portname", control.portname.c_str());
    add_reading(document, "tcp_control", rc, value);

    imshare_info imshare{};
    rc = ed_get_imshare_info(&imshare);
    value = cJSON_CreateObject();
    cJSON_AddBoolToObject(value, "hid", imshare.hid);
    add_reading(document, "image_share", rc, value);
}

void add_microphones(cJSON *document)
{
    std::vector<mic_node> on_list;
    int rc = ed_get_mic_on_list(&on_list);
    cJSON *value = cJSON_CreateArray();
    for (const mic_node &mic : on_list) {
        cJSON *item = cJSON_CreateObject();
        cJSON_AddStringToObject(item, "group", mic.group.c_str());
        cJSON_AddStringToObject(item, "id", mic.id.c_str());
        cJSON_AddItemToArray(value, item);
    }
    add_reading(document, "microphones_on", rc, value);

    multiple_speakers_mode mode;
    rc = ed_get_mic_control_multiple_speakers_mode_info(&mode);
    value = cJSON_CreateObject();
    cJSON_AddNumberToObject(value, "multi_mode", mode.multi_mode);
    cJSON_AddNumberToObject(value, "cancel_mode", mode.cancel_mode);
    add_reading(document, "multiple_speakers_mode", rc, value);

    // Empty group and id: every registered control item. The call also answers -1 for an empty
    // list; the file was just read successfully above, so -1 with no items means none registered.
    std::vector<microphone_info> items;
    int mode_rc = rc;
    rc = ed_get_mic_control_info("", "", &items);
    if (rc == -1 && items.empty() && mode_rc == 0)
        rc = 0;
    value = cJSON_CreateArray();
    for (microphone_info &item : items) {
        cJSON *object = cJSON_CreateObject();
        cJSON_AddMicroPhoneInfo(object, &item, false, false);
        cJSON_AddItemToArray(value, object);
    }
    add_reading(document, "mic_control_items", rc, value);
}

void add_serial(cJSON *document)
{
    std::vector<external_rs232_info> devices;
    int rc = ed_get_external_rs232_device_list(&devices);
    cJSON *value = cJSON_CreateArray();
    for (const external_rs232_info &device : devices) {
        cJSON *item = cJSON_CreateObject();
        cJSON_AddNumberToObject(item, "number", device.number);
        cJSON_AddStringToObject(item, "port", device.port.c_str());
        cJSON_AddStringToObject(item, "description", device.description.c_str());
        cJSON_AddItemToArray(value, item);
    }
    add_reading(document, "rs232_devices", rc, value);

    external_rs232_control control{};
    rc = ed_get_external_rs232_control_info(&control);
    value = cJSON_CreateObject();
    cJSON_AddStringToObject(value, "builtin_TTY", control.builtin_TTY.c_str());
    cJSON_AddStringToObject(value, "port", control.port.c_str());
    cJSON_AddStringToObject(value, "baud_rate", control.baud_rate.c_str());
    add_reading(document, "rs232_control", rc, value);

    external_zorvo_fw_info firmware;
    rc = ed_get_zorvo_fw_info(&firmware);
    value = cJSON_CreateObject();
    cJSON_AddStringToObject(value, "fw", firmware.fw.c_str());
    cJSON_AddStringToObject(value, "bootloader_fw", firmware.bootloader_fw.c_str());
    add_reading(document, "remote_controller", rc, value);
}

} // namespace

int main()
{
    if (ed_init() != 0) {
        std::fprintf(stderr, "room_snapshot: cannot open the library\n");
        return 1;
    }
    json_ptr document(cJSON_CreateObject(), cJSON_Delete);
    add_voting(document.get());
    add_devices(document.get());
    add_microphones(document.get());
    add_serial(document.get());
    ed_release();

    std::unique_ptr<char, decltype(&std::free)> text(cJSON_Print(document.get()), std::free);
    if (!text) {
        std::fprintf(stderr, "room_snapshot: out of memory\n");
        return 1;
    }
    std::printf("%s\n", text.get());
    return failures == 0 ? 0 : 1;
}
