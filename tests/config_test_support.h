// SPDX-License-Identifier: MIT
// A temporary system root laid out as on the box, and helpers to read and compare the
// configuration file it holds.
#ifndef VASK_TEST_CONFIG_TEST_SUPPORT_H
#define VASK_TEST_CONFIG_TEST_SUPPORT_H

#include <cjson/cJSON.h>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "json_text.h"
#include "log_capture.h"
#include "log_lines.h"
#include "process.h"

namespace vask_test {

// The factory default document shipped with the project.
inline std::string default_document()
{
    return read_file(VASK_DEFAULT_CONFIG);
}

// A system root in a temporary folder, set as VASK_SYSROOT while it lives: the factory default in
// /usr/share/vask/etc, the writable copy in /var/lib/vask/etc and /etc/external_device.json a
// relative symbolic link to it, as on the box.
class sysroot {
public:
    // `inside`: a folder name under the temporary folder to use as the root (e.g. one with blanks).
    explicit sysroot(bool seeded = true, const std::string &inside = std::string())
        : root_(inside.empty() ? dir_.path() : dir_.path() + "/" + inside)
    {
        mkdir(root_.c_str(), 0755);
        for (const char *folder : {"/etc", "/usr", "/usr/share", "/usr/share/vask", "/usr/share/vask/etc", "/var",
                                   "/var/lib", "/var/lib/vask", "/var/lib/vask/etc"})
            mkdir((root_ + folder).c_str(), 0755);
        write_file(path("/usr/share/vask/etc/external_device.json"), default_document());
        if (symlink("../var/lib/vask/etc/external_device.json", path("/etc/external_device.json").c_str()) != 0)
            ADD_FAILURE() << "cannot link the configuration file";
        if (seeded)
            set_config(default_document());
        setenv("VASK_SYSROOT", root_.c_str(), 1);
    }
    ~sysroot() { unsetenv("VASK_SYSROOT"); }
    sysroot(const sysroot &) = delete;
    sysroot &operator=(const sysroot &) = delete;

    const std::string &dir() const { return root_; }
    std::string path(const std::string &fixed) const { return root_ + fixed; }
    // The file the link leads to.
    std::string config_path() const { return path("/var/lib/vask/etc/external_device.json"); }
    std::string config() const { return read_file(path("/etc/external_device.json")); }
    void set_config(const std::string &text) const { write_file(config_path(), text); }
    void remove_config() const { unlink(config_path().c_str()); }
    bool has_config() const { return access(config_path().c_str(), F_OK) == 0; }

private:
    temp_dir dir_;
    std::string root_;
};

#ifdef VASK_CONFIG_FAULT_HELPER
struct helper_run {
    int result = 99;
    std::vector<std::string> log;
};

// Runs `operation` of the fault helper in the current system root with `faults` (see fault_shim.c).
inline helper_run run_helper(const std::string &operation, const std::string &faults)
{
    std::vector<std::string> env = {"VASK_SYSROOT=" + std::string(getenv("VASK_SYSROOT"))};
    if (!faults.empty())
        env.push_back("VASK_FAULT=" + faults);
    if (const char *url = getenv("VASK_BUS_URL"))
        env.push_back(std::string("VASK_BUS_URL=") + url);
    vask_test::run_result run = vask_test::run_program({VASK_CONFIG_FAULT_HELPER, operation}, env);
    helper_run parsed;
    EXPECT_EQ(run.exit_code, 0) << run.err;
    size_t start = 0;
    while (start < run.out.size()) {
        size_t end = run.out.find('\n', start);
        std::string line = run.out.substr(start, end - start);
        if (line.rfind("result ", 0) == 0)
            parsed.result = std::stoi(line.substr(7));
        else if (line.rfind("log ", 0) == 0)
            parsed.log.push_back(line.substr(4));
        start = end == std::string::npos ? run.out.size() : end + 1;
    }
    return parsed;
}
#endif

} // namespace vask_test

#endif
