// SPDX-License-Identifier: MIT
// The examples built against an installed tree, the two ways an application builds: with their
// Makefile, which asks pkg-config for the flags, and with their CMakeLists, which finds the CMake
// package. Each returns the result of the step that failed, or of the last one.
#ifndef VASK_TEST_EXAMPLE_BUILD_H
#define VASK_TEST_EXAMPLE_BUILD_H

#include <chrono>
#include <string>
#include <vector>

#include "process.h"

namespace vask_test {

// The programs below examples/, as both builds name them.
inline const std::vector<std::string> &example_names()
{
    static const std::vector<std::string> names = {"mic_monitor", "voting_console", "projector_setup",
                                                   "room_snapshot"};
    return names;
}

// A run's exit code and output, for a failure message.

// `make -f SOURCE/examples/Makefile OUT=out` with `env` added to the environment: it is where
// PKG_CONFIG_PATH (and PKG_CONFIG_SYSROOT_DIR) point pkg-config at the tree. `cxxflags` replaces
// the Makefile's optimisation and warning flags.
inline run_result build_examples_with_pkg_config(const std::string &make, const std::string &source_dir,
                                                 const std::string &out, std::vector<std::string> env,
                                                 const std::string &cxxflags)
{
    env.push_back("CXXFLAGS=" + cxxflags);
    return run_program({make, "-j2", "-f", source_dir + "/examples/Makefile", "OUT=" + out}, env,
                       std::chrono::seconds(120));
}

// Configures SOURCE/examples into `out` with CMAKE_PREFIX_PATH=`prefix` and builds it.
inline run_result build_examples_with_cmake(const std::string &cmake, const std::string &source_dir,
                                            const std::string &out, const std::string &prefix,
                                            const std::string &cxx_flags)
{
    auto configure = run_program({cmake, "-S", source_dir + "/examples", "-B", out, "-DCMAKE_PREFIX_PATH=" + prefix,
                                  "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DCMAKE_CXX_FLAGS=" + cxx_flags},
                                 {}, std::chrono::seconds(60));
    if (configure.exit_code != 0)
        return configure;
    return run_program({cmake, "--build", out, "-j2"}, {}, std::chrono::seconds(120));
}

} // namespace vask_test

#endif
