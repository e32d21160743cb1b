// SPDX-License-Identifier: MIT
// What the remote-controller suites share: macros built from channel values, their JSON as the
// writer prints it, the box model set from an os-release fixture, and the log lines of the
// zorvo configuration functions.
#ifndef VASK_TEST_ZORVO_TEST_SUPPORT_H
#define VASK_TEST_ZORVO_TEST_SUPPORT_H

#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "core_test_fixture.h"
#include "rs232_zorvo_test_support.h"

inline bool operator==(const macro_channel &a, const macro_channel &b)
{
    return std::tie(a.channel, a.enable, a.preset) == std::tie(b.channel, b.enable, b.preset);
}

inline bool operator==(const external_zorvo_macro_info &a, const external_zorvo_macro_info &b)
{
    return std::tie(a.index, a.scenes, a.channels) == std::tie(b.index, b.scenes, b.channels);
}

inline std::ostream &operator<<(std::ostream &out, const external_zorvo_macro_info &m)
{
    out << "{Macro_" << m.index << ", scenes " << m.scenes << ",";
    for (const macro_channel &c : m.channels)
        out << " [" << c.channel << " " << (c.enable ? "on" : "off") << " \"" << c.preset << "\"]";
    return out << "}";
}

namespace zorvo_test {

using namespace rs232_zorvo_test;

using macros = std::vector<external_zorvo_macro_info>;
using channel_values = std::vector<std::pair<bool, std::string>>;

const char *const kLib = "libvask_external_device";

// Sets the box model by installing an os-release fixture ("rv710", ...).
inline void set_model(const sysroot &root, const char *name)
{
    install_fixture(root, std::string("os-release/") + name, "/etc/os-release");
}

inline external_zorvo_macro_info macro(int index, int scenes, const channel_values &channels)
{
    external_zorvo_macro_info m;
    m.index = index;
    m.scenes = scenes;
    int n = 0;
    for (const auto &value : channels)
        m.channels.push_back({++n, value.first, value.second});
    return m;
}

// A macro as read for a member the file lacks.
inline external_zorvo_macro_info default_macro(int index, int channels)
{
    return macro(index, 1, channel_values(static_cast<size_t>(channels), {false, "1"}));
}

// The compact JSON of a macro member as the writer builds it: "scenes", then each channel's flag
// and preset.
inline std::string macro_json(int scenes, const channel_values &channels)
{
    std::string text = "{\"scenes\":" + std::to_string(scenes);
    int n = 0;
    for (const auto &value : channels) {
        ++n;
        text += ",\"channel_" + std::to_string(n) + "_enable\":" + (value.first ? "true" : "false");
        text += ",\"channel_" + std::to_string(n) + "_preset\":\"" + value.second + "\"";
    }
    return text + "}";
}

inline std::string default_macro_json(int channels)
{
    return macro_json(1, channel_values(static_cast<size_t>(channels), {false, "1"}));
}

// Three RV710 macros of two channels, all different from the defaults.
inline macros rv710_macros()
{
    return {macro(1, 3, {{true, "A"}, {false, "B"}}), macro(2, 4, {{false, "C"}, {true, "D"}}),
            macro(3, 5, {{true, "E"}, {true, "F"}})};
}

inline std::string rv710_macros_json()
{
    return "\"Macro_1\":" + macro_json(3, {{true, "A"}, {false, "B"}}) + ",\"Macro_2\":" +
           macro_json(4, {{false, "C"}, {true, "D"}}) + ",\"Macro_3\":" + macro_json(5, {{true, "E"}, {true, "F"}});
}

inline external_zorvo_info info_of(std::string fw, std::string bootloader_fw, macros list)
{
    external_zorvo_info info;
    info.fw = std::move(fw);
    info.bootloader_fw = std::move(bootloader_fw);
    info.macros = std::move(list);
    return info;
}

inline line_fields utils_line(int level, const char *function, const std::string &message)
{
    return {level, "utils", kAnyLine, function, message};
}

const char *const kRead = "ReadExternalZORVOControlConfig";
const char *const kUpdate = "UpdateExternalZORVOControlConfig";
const char *const kInit = "InitExternalZORVOControlConfig";

} // namespace zorvo_test

#endif
