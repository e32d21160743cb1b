// SPDX-License-Identifier: MIT
// What the RS232 control, serial-discovery and remote-controller suites share: a temporary system
// root holding the configuration file, the fixtures folder, JSON printing as the library prints the
// file, exact comparison of log lines, and a log sink that notes the configuration lock.
#ifndef VASK_TEST_RS232_ZORVO_TEST_SUPPORT_H
#define VASK_TEST_RS232_ZORVO_TEST_SUPPORT_H

#include <cjson/cJSON.h>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "config/config_cycle.h"
#include "json_text.h"
#include "log_capture.h"
#include "log_lines.h"
#include "process.h"
#include "tulo_log.h"

namespace rs232_zorvo_test {

using vask_test::formatted;
using vask_test::line_fields;
using vask_test::read_file;
using vask_test::section_names;
using vask_test::section_of;
using vask_test::write_file;

// The path of fixture `name` (e.g. "udev/99-vask-serial.rules").
inline std::string fixture(const std::string &name)
{
    return std::string(VASK_TEST_FIXTURES) + "/" + name;
}

// The project's factory default document.
inline std::string shipped_default()
{
    return read_file(fixture("../../data/external_device.json"));
}

// A system root in a temporary folder, set as VASK_SYSROOT while it lives, laid out as on the box:
// /etc/external_device.json is a relative link to /var/lib/vask/etc/external_device.json, which
// starts as the project's factory default.
class sysroot {
public:
    sysroot()
    {
        for (const char *folder : {"/etc", "/proc", "/var", "/var/lib", "/var/lib/vask", "/var/lib/vask/etc"})
            mkdir(path(folder).c_str(), 0755);
        if (symlink("../var/lib/vask/etc/external_device.json", path("/etc/external_device.json").c_str()) != 0)
            ADD_FAILURE() << "cannot link the configuration file";
        std::string text = shipped_default();
        if (text.empty())
            ADD_FAILURE() << "no factory default document";
        set_config(text);
        setenv("VASK_SYSROOT", dir_.path().c_str(), 1);
    }
    ~sysroot() { unsetenv("VASK_SYSROOT"); }
    sysroot(const sysroot &) = delete;
    sysroot &operator=(const sysroot &) = delete;

    std::string path(const std::string &fixed) const { return dir_.path() + fixed; }
    std::string config() const { return read_file(path("/etc/external_device.json")); }
    void set_config(const std::string &text) const { write_file(config_path(), text); }
    void remove_config() const { unlink(config_path().c_str()); }
    bool has_config() const { return access(config_path().c_str(), F_OK) == 0; }

private:
    std::string config_path() const { return path("/var/lib/vask/etc/external_device.json"); }
    vask_test::temp_dir dir_;
};

// Puts the text of fixture `name` at `fixed_path` ("/proc/cmdline", "/etc/os-release") of `root`.
inline void install_fixture(const sysroot &root, const std::string &name, const std::string &fixed_path)
{
    std::string text = read_file(fixture(name));
    ASSERT_FALSE(text.empty()) << name;
    write_file(root.path(fixed_path), text);
}

using vask_test::expect_lines;
using vask_test::kAnyLine;

// Each log line written while it lives, with whether the configuration lock was held (by any
// thread) when it was written.
class lock_noting_log {
public:
    struct entry {
        std::string function;
        std::string message;
        bool lock_held;
    };
    lock_noting_log()
    {
        TULO_LOG_set_level(TULO_LOG_LEVEL_TRACE);
        TULO_LOG_set_sink(sink, this);
    }
    ~lock_noting_log()
    {
        TULO_LOG_set_sink(nullptr, nullptr);
        TULO_LOG_set_level(TULO_LOG_LEVEL_WARNING);
    }
    lock_noting_log(const lock_noting_log &) = delete;
    lock_noting_log &operator=(const lock_noting_log &) = delete;
    std::vector<entry> entries()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        return entries_;
    }

private:
    static void sink(void *user, int, int, const char *, int, const char *function, const char *message)
    {
        auto *self = static_cast<lock_noting_log *>(user);
        bool held = !vask_ed::config_lock_is_free();
        std::lock_guard<std::mutex> hold(self->mutex_);
        self->entries_.push_back({function, message, held});
    }
    std::mutex mutex_;
    std::vector<entry> entries_;
};

} // namespace rs232_zorvo_test

#endif
