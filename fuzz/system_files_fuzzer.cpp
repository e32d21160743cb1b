// SPDX-License-Identifier: MIT
// Hostile system files and hex text: a udev rules file, /proc/cmdline and /etc/os-release under a
// private system root, and the hex helpers of the serial commands.
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "libvask_external_device.h"

namespace {

constexpr size_t kHexBytesMax = 128;

void read_rules(const std::string &text)
{
    const std::string path = vask_fuzz::system_root() + "/etc/99-fuzz.rules";
    vask_test::write_file(path, text);
    std::vector<std::string> links;
    if (ReadUdevRulesSYMLINK(path, &links) != 0)
        abort(); // a rules file that opens is always read
    for (const std::string &link : links)
        if (link.compare(0, 5, "/dev/") != 0)
            abort(); // every link lies below /dev
}

void read_console(const std::string &text)
{
    vask_fuzz::write_box_file("/proc/cmdline", text);
    if (GetCmdlineConsoleName().size() > 16)
        abort(); // a console name is cut at 16 characters
}

void read_model(const std::string &text)
{
    vask_fuzz::write_box_file("/etc/os-release", text);
    if (GetFirmwareModelName().size() > 36)
        abort(); // a model name is cut at 36 characters
}

// Hex text to bytes; what it accepts, printed back as hex, must give the same text in lower case.
void hex_to_bytes(const std::string &text)
{
    std::vector<unsigned char> bytes(kHexBytesMax);
    int count = -1;
    int result = String_To_HexArray(text, bytes.data(), &count);
    if (result != 0) {
        if (count != 0)
            abort();
        return;
    }
    if (count < 0 || static_cast<size_t>(count) * 2 != text.size())
        abort();
    std::string printed;
    TuloRS232Cmd_To_String(reinterpret_cast<const char *>(bytes.data()), &printed, count);
    for (size_t i = 0; i < text.size(); ++i) {
        int digit = parse_hex(text[i]);
        if (digit < 0 || parse_hex(printed[i]) != digit)
            abort();
    }
}

// Bytes to hex text and back: the round trip keeps every byte.
void bytes_to_hex(const std::string &text)
{
    const size_t n = text.size() < kHexBytesMax ? text.size() : kHexBytesMax;
    std::string printed;
    if (TuloRS232Cmd_To_String(text.data(), &printed, static_cast<int>(n)) != 0 || printed.size() != 2 * n)
        abort();
    std::vector<unsigned char> bytes(kHexBytesMax);
    int count = 0;
    if (String_To_HexArray(printed, bytes.data(), &count) != 0 || static_cast<size_t>(count) != n ||
        memcmp(bytes.data(), text.data(), n) != 0)
        abort();
}

void sixteen_digits(const std::string &text)
{
    unsigned char out[8] = {};
    RepresentHexInByte(text.c_str(), out);
}

} // namespace

void vask_fuzz::prepare()
{
    vask_fuzz::system_root();
}

// Selector: 0 udev rules, 1 /proc/cmdline, 2 /etc/os-release, 3 hex text to bytes, 4 bytes to hex
// text and back, 5 sixteen hex digits to eight bytes.
void vask_fuzz::run(const vask_fuzz::input &in)
{
    switch (in.selector % 6) {
    case 0: read_rules(in.text); break;
    case 1: read_console(in.text); break;
    case 2: read_model(in.text); break;
    case 3: hex_to_bytes(in.text); break;
    case 4: bytes_to_hex(in.text); break;
    default: sixteen_digits(in.text); break;
    }
}
