// SPDX-License-Identifier: MIT
// The public header refuses, at compile time, a program built with the old std::string ABI: the
// library's records hold std::string, so such a program would link and crash at its first call.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "process.h"

namespace {

const char kMessage[] = "libvask_external_device is built with the C++11 ABI of std::string: build this "
                        "program without -D_GLIBCXX_USE_CXX11_ABI=0";

// Compiles (syntax only) a program that includes the header and names a record, with `defines`.
vask_test::run_result compile(const std::vector<std::string> &defines)
{
    static vask_test::temp_dir dir;
    const std::string source = dir.path() + "/program.cpp";
    std::ofstream(source) << "#include <libvask_external_device.h>\n"
                             "int main() { std::vector<mic_node> list; return ed_get_mic_on_list(&list); }\n";
    std::vector<std::string> argv = {VASK_CXX, "-std=c++17", "-fsyntax-only", "-I", VASK_INCLUDE_DIR,
                                     "-I", VASK_BUS_INCLUDE_DIR};
    argv.insert(argv.end(), defines.begin(), defines.end());
    argv.push_back(source);
    return vask_test::run_program(argv, {}, std::chrono::seconds(60));
}

TEST(HeaderAbi, CompileWithTheOldStringAbi_ShouldFailWithTheHeadersMessage)
{
    vask_test::run_result r = compile({"-D_GLIBCXX_USE_CXX11_ABI=0"});
    EXPECT_NE(r.exit_code, 0) << vask_test::describe(r);
    EXPECT_NE(r.err.find(std::string("#error \"") + kMessage + "\""), std::string::npos) << vask_test::describe(r);
}

TEST(HeaderAbi, CompileWithTheDefaultAbi_ShouldSucceed)
{
    vask_test::run_result r = compile({});
    EXPECT_EQ(r.exit_code, 0) << vask_test::describe(r);
    EXPECT_EQ(r.err.find(kMessage), std::string::npos) << vask_test::describe(r);
}

TEST(HeaderAbi, CompileWithTheNewStringAbiNamed_ShouldSucceed)
{
    vask_test::run_result r = compile({"-D_GLIBCXX_USE_CXX11_ABI=1"});
    EXPECT_EQ(r.exit_code, 0) << vask_test::describe(r);
}

} // namespace
