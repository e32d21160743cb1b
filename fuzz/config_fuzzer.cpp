// SPDX-License-Identifier: MIT
// Hostile configuration files: the fuzzed bytes become /etc/external_device.json or
// /etc/microphone_control.json under a private system root, and one reader or writer of that file
// runs on them. The item parser of the microphone file and the TCP device parser are also fed directly.
#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "libvask_external_device.h"

namespace {

constexpr const char *kDeviceFile = "/etc/external_device.json";
constexpr const char *kMicrophoneFile = "/etc/microphone_control.json";

// The box models whose remote controller differs in size; the zorvo reader sizes by them.
const char *const kOsReleases[] = {
    "ID=RV710\n",
    "ID=RV720\n",
    "ID=RV730\n",
    "ID=OTHER\n",
};

void read_device_file(unsigned which)
{
    switch (which) {
    case 0: {
        external_protocol_info info{};
        ReadControlDeviceConfig("miccentral_control", &info);
        break;
    }
    case 1: {
        external_protocol_info info{};
        ReadControlDeviceConfig("castdeck_control", &info);
        break;
    }
    case 2: {
        external_protocol_info info{};
        ReadProjectorConfig(&info);
        break;
    }
    case 3: {
        external_control_info info{};
        ReadExternalControlConfig(&info);
        break;
    }
    case 4: {
        external_rs232_control info{};
        ReadExternalRS232ControlConfig(&info);
        break;
    }
    default: {
        external_zorvo_info info{};
        ReadExternalZORVOControlConfig(&info);
        break;
    }
    }
}

void read_microphone_file(unsigned which)
{
    switch (which) {
    case 0: {
        int cancel_mode = 0;
        microphone_info info;
        ReadMicrophoneDefaultConfig(&cancel_mode, &info);
        break;
    }
    case 1: {
        microphone_info info;
        ReadMicrophoneGeneralConflictConfig(&info);
        break;
    }
    case 2: {
        multiple_speakers_mode mode;
        ReadMicrophoneMultipleSpeakersMode(&mode);
        break;
    }
    case 3: {
        std::vector<microphone_info> list;
        ReadRegisteredMicListFromConfig("", "", &list);
        break;
    }
    case 4: {
        std::vector<microphone_info> list;
        ReadRegisteredMicListFromConfig("1", "7", &list);
        break;
    }
    default: {
        std::vector<microphone_info> list;
        ReadMicrophoneGroupConflictConfig("", &list);
        break;
    }
    }
}

// A record every writer can store whatever the box model: four macros of nine channels.
external_zorvo_info full_zorvo_record()
{
    external_zorvo_info info;
    info.fw = "1.2";
    info.bootloader_fw = "0.9";
    for (int index = 1; index <= 4; ++index) {
        external_zorvo_macro_info macro;
        macro.index = index;
        macro.scenes = 2;
        for (int n = 1; n <= 9; ++n)
            macro.channels.push_back(macro_channel{n, n % 2 == 0, std::to_string(n)});
        info.macros.push_back(macro);
    }
    return info;
}

microphone_info sample_item()
{
    microphone_info item;
    item.gr = "1";
    item.id = "7";
    item.nt = "Chair";
    item.cp_list.push_back(cpreset{3, 1});
    item.l = 2;
    return item;
}

// A writer storing a fixed record into a hostile file: the read-parse-edit-print-write cycle of
// each section's writer.
void write_section(unsigned which)
{
    switch (which) {
    case 0: {
        external_protocol_info info{true, 1, "192.0.2.7", "admin", "secret", "9600", "23"};
        UpdateControlDeviceConfig("miccentral_control", &info);
        break;
    }
    case 1: {
        external_control_info info{true, "23", "9600", "ttyS1"};
        UpdateExternalControlConfig(&info);
        break;
    }
    case 2: {
        external_rs232_control info;
        info.builtin_TTY = "ttyS1";
        info.ignored_TTYUSB_A = 0;
        UpdateExternalRS232ControlConfig(&info);
        break;
    }
    case 3: {
        const external_zorvo_info info = full_zorvo_record();
        UpdateExternalZORVOControlConfig(&info);
        break;
    }
    case 4: {
        microphone_info item = sample_item();
        AddMicrophoneControlSettings(&item);
        break;
    }
    default: {
        microphone_info item = sample_item();
        DeleteMicrophoneGroupConflictConfig(&item);
        break;
    }
    }
}

// The item parser, then the item written back and read again: what one reading keeps, the writer
// must store so that a second reading gives it back (the pairs aside: the writer renumbers them).
void round_trip_item(const std::string &text)
{
    cJSON *object = cJSON_Parse(text.c_str());
    microphone_info first;
    cJSON_GetMicroPhoneInfo(object, &first);
    cJSON_Delete(object);

    cJSON *written = cJSON_CreateObject();
    if (written == nullptr)
        return;
    cJSON_AddMicroPhoneInfo(written, &first, false, false);
    microphone_info second;
    cJSON_GetMicroPhoneInfo(written, &second);
    cJSON_Delete(written);
    // A negative number means "not set" and is not written, so it reads back as -1.
    auto set_or_not = [](int32_t value) { return value < 0 ? -1 : value; };
    if (second.gr != first.gr || second.id != first.id || second.nt != first.nt ||
        second.l != set_or_not(first.l) || second.o != set_or_not(first.o) || second.b != set_or_not(first.b) ||
        second.s != set_or_not(first.s))
        abort();
}

void read_tcp_device(const std::string &text)
{
    cJSON *section = cJSON_Parse(text.c_str());
    external_protocol_info info{};
    cJSON_ReadTCPDeviceConfig(section, &info);
    cJSON_Delete(section);
}

} // namespace

void vask_fuzz::prepare()
{
    vask_fuzz::system_root();
}

// Selector: 0-5 a reader of the device file, 6-11 a reader of the microphone file, 12 the item
// parser, 13 the TCP device parser, 14-17 a writer of the device file, 18-19 a writer of the
// microphone file. The zorvo reader and writer (5 and 17) size by the model that the selector's
// two high bits choose.
void vask_fuzz::run(const vask_fuzz::input &in)
{
    const unsigned which = in.selector % 20;
    if (which == 5 || which == 17)
        vask_fuzz::write_box_file("/etc/os-release", kOsReleases[in.selector >> 6]);
    if (which < 6) {
        vask_fuzz::write_box_file(kDeviceFile, in.text);
        read_device_file(which);
    } else if (which < 12) {
        vask_fuzz::write_box_file(kMicrophoneFile, in.text);
        read_microphone_file(which - 6);
    } else if (which == 12) {
        round_trip_item(in.text);
    } else if (which == 13) {
        read_tcp_device(in.text);
    } else {
        vask_fuzz::write_box_file(which < 18 ? kDeviceFile : kMicrophoneFile, in.text);
        write_section(which - 14);
    }
}
