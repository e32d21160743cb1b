// SPDX-License-Identifier: MIT
// What the fuzz targets share: the input read as a selector byte and a text, and a private system
// root made once per process. Plain C++ so that the targets also build with the replay driver under
// the normal compiler.
#ifndef VASK_FUZZ_FUZZ_INPUT_H
#define VASK_FUZZ_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/stat.h>

#include "json_text.h"
#include "process.h"

namespace vask_fuzz {

// The first byte chooses what the rest of the input is fed to; the rest is kept byte for byte (zero
// bytes included), and c_str() gives the zero-terminated form the library's parsers receive.
struct input {
    unsigned selector = 0;
    std::string text;
};

// What each target defines; fuzz_entry.cpp calls them from libFuzzer's entry points, with the log
// already silenced. prepare() runs once per process, run() once per input.
void prepare();
void run(const input &in);

// The system root of this process, under TMPDIR, with the folders of the box's fixed files. Made on
// first use and removed when the process ends normally.
inline const std::string &system_root()
{
    static const vask_test::temp_dir root;
    static const bool prepared = [] {
        for (const char *folder : {"/etc", "/proc", "/usr", "/usr/share", "/usr/share/vask",
                                   "/usr/share/vask/etc", "/var", "/var/lib", "/var/lib/vask", "/var/lib/vask/etc"})
            mkdir((root.path() + folder).c_str(), 0755);
        setenv("VASK_SYSROOT", root.path().c_str(), 1);
        return true;
    }();
    (void)prepared;
    return root.path();
}

// Replaces the box file `fixed_path` ("/etc/os-release") below the system root with `bytes`.
inline void write_box_file(const char *fixed_path, const std::string &bytes)
{
    vask_test::write_file(system_root() + fixed_path, bytes);
}

} // namespace vask_fuzz

#endif
