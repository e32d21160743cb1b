// SPDX-License-Identifier: MIT
// The manual pages and the API reference: they render cleanly, they name what the programs and the
// library really have, and they install where man finds them.
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "json_text.h"
#include "process.h"

using vask_test::read_file;
using vask_test::run_program;
using vask_test::run_result;
using vask_test::temp_dir;

namespace {

const std::string kPages[] = {"edctl.1", "external-device-sim.1", "libvask_external_device.3"};

// Every variable the library, the bus and the log read from the environment. The pages must name
// each one; a variable added to the code is added here.
const char *const kEnvironment[] = {
    "VASK_BUS_URL",       "VASK_BUS_USERNAME", "VASK_BUS_PASSWORD", "VASK_BUS_CAFILE",
    "VASK_BUS_NAMESPACE", "VASK_SYSROOT",      "TULO_LOG_LEVEL",    "TULO_LOG_TARGET",
};

std::string page_path(const std::string &page)
{
    return std::string(VASK_MAN_PAGES) + "/" + page;
}


// The page as man shows it at a terminal 80 columns wide, with man's warnings on.
run_result render(const std::string &path)
{
    return run_program({VASK_MAN, "--warnings", "-l", path}, {"MANWIDTH=80", "LC_ALL=C.UTF-8", "MANPAGER=cat"});
}

// The roff source with its escaped hyphens as plain ones, so that options and command names read
// as typed.
std::string source_text(const std::string &page)
{
    return std::regex_replace(read_file(page_path(page)), std::regex(R"(\\-)"), "-");
}

// The source lines of section `name` (from ".SH name" to the next ".SH").
std::string section(const std::string &source, const std::string &name)
{
    size_t start = source.find("\n.SH " + name + "\n");
    if (start == std::string::npos)
        return std::string();
    size_t end = source.find("\n.SH ", start + 1);
    return source.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

// The names a --help text lists in its block of two-space indented entries after `heading`
// ("Commands:"), or every "--option" at the start of an indented line when `heading` is empty.
std::vector<std::string> listed_names(const std::string &help, const std::string &heading)
{
    std::vector<std::string> names;
    std::istringstream lines(heading.empty() ? help : help.substr(help.find(heading) + heading.size()));
    std::string line;
    std::smatch match;
    const std::regex entry(heading.empty() ? R"(^  +(--[a-z-]+)\b.*)" : R"(^  ([a-z0-9-]+)  .*)");
    while (std::getline(lines, line)) {
        if (std::regex_match(line, match, entry))
            names.push_back(match[1]);
    }
    return names;
}

bool has_line_starting(const std::string &text, const std::string &start)
{
    return text.find("\n" + start) != std::string::npos;
}

class ManualPage : public ::testing::TestWithParam<std::string> {};

TEST_P(ManualPage, Render_ShouldPrintThePageWithoutAnyWarning)
{
    if (std::string(VASK_MAN).empty())
        GTEST_SKIP() << "man is not installed";
    run_result r = render(page_path(GetParam()));
    EXPECT_EQ(r.exit_code, 0) << describe(r);
    EXPECT_EQ(r.err, "");
    EXPECT_NE(r.out.find("\nNAME\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\nSEE ALSO\n"), std::string::npos) << r.out;
}

TEST_P(ManualPage, Groff_ShouldReportNoWarningOfAnyKind)
{
    if (std::string(VASK_GROFF).empty())
        GTEST_SKIP() << "groff is not installed";
    run_result r = run_program({VASK_GROFF, "-t", "-man", "-ww", "-z", page_path(GetParam())});
    EXPECT_EQ(r.exit_code, 0) << describe(r);
    EXPECT_EQ(r.err, "");
}

TEST_P(ManualPage, Header_ShouldCarryTheProjectVersionAndDate)
{
    std::string source = read_file(page_path(GetParam()));
    std::smatch th;
    ASSERT_TRUE(std::regex_search(source, th, std::regex(R"re(\.TH ([^ ]+) ([0-9]) "([^"]*)" "([^"]*)")re")))
        << source.substr(0, 200);
    std::string page = GetParam();
    EXPECT_EQ(th[2].str(), page.substr(page.rfind('.') + 1));
    EXPECT_EQ(th[3].str(), "November 2026");
    EXPECT_EQ(th[4].str(), std::string("libvask_external_device ") + VASK_PROJECT_VERSION);
}

TEST_P(ManualPage, Environment_ShouldNameEveryVariableTheLibrariesRead)
{
    std::string environment = section(source_text(GetParam()), "ENVIRONMENT");
    ASSERT_FALSE(environment.empty()) << GetParam() << " has no ENVIRONMENT section";
    for (const char *variable : kEnvironment)
        EXPECT_NE(environment.find(variable), std::string::npos) << GetParam() << " misses " << variable;
}

// "edctl.1" gives the test name suffix "edctl_1".
std::string page_test_name(const ::testing::TestParamInfo<std::string> &info)
{
    return std::regex_replace(info.param, std::regex("[^A-Za-z0-9]"), "_");
}

INSTANTIATE_TEST_SUITE_P(Pages, ManualPage, ::testing::ValuesIn(kPages), page_test_name);

// The names `program --help` lists after `heading` (see listed_names); empty, with a failure
// recorded, when the help cannot be had or lists none.
std::vector<std::string> names_in_help(const char *program, const std::string &heading)
{
    run_result help = run_program({program, "--help"});
    EXPECT_EQ(help.exit_code, 0) << describe(help);
    std::vector<std::string> names = listed_names(help.out, heading);
    EXPECT_FALSE(names.empty()) << help.out;
    return names;
}

// An option described by its own entry in the OPTIONS section of `source`.
bool describes_option(const std::string &source, const std::string &option)
{
    std::string described = section(source, "OPTIONS");
    return has_line_starting(described, ".B " + option) || has_line_starting(described, ".BI " + option + " ");
}

TEST(EdctlPage, Commands_ShouldHaveASubsectionForEveryCommandOfTheHelp)
{
    std::string listed = section(source_text("edctl.1"), "COMMANDS");
    for (const std::string &command : names_in_help(VASK_EDCTL, "\nCommands:\n"))
        EXPECT_TRUE(has_line_starting(listed, ".SS " + command + " ")) << "edctl.1 has no .SS for " << command;
}

TEST(EdctlPage, Options_ShouldDescribeEveryOptionOfTheHelp)
{
    std::string source = source_text("edctl.1");
    for (const std::string &option : names_in_help(VASK_EDCTL, ""))
        EXPECT_TRUE(describes_option(source, option)) << "edctl.1 does not describe " << option;
}

TEST(SimulatorPage, Options_ShouldDescribeEveryOptionOfTheHelp)
{
    std::string source = source_text("external-device-sim.1");
    std::string synopsis = section(source, "SYNOPSIS");
    for (const std::string &option : names_in_help(VASK_SIM, "")) {
        EXPECT_TRUE(describes_option(source, option)) << "external-device-sim.1 does not describe " << option;
        EXPECT_NE(synopsis.find(option), std::string::npos) << "the synopsis misses " << option;
    }
}

// A component installed on its own: the pages land below share/man where man looks them up, and
// they render there as they do in the source tree.
void expect_installed(const std::string &component, const std::string &page, const std::string &name)
{
    temp_dir prefix;
    run_result install = run_program(
        {VASK_CMAKE, "--install", VASK_BUILD_DIR, "--prefix", prefix.path(), "--component", component});
    ASSERT_EQ(install.exit_code, 0) << describe(install);
    std::string folder = "man" + page.substr(page.rfind('.') + 1);
    std::string installed = prefix.path() + "/" + VASK_INSTALL_MANDIR + "/" + folder + "/" + page;
    EXPECT_EQ(read_file(installed), read_file(page_path(page))) << installed;
    if (std::string(VASK_MAN).empty())
        return;
    std::string section_number = page.substr(page.rfind('.') + 1);
    run_result found = run_program({VASK_MAN, "-M", prefix.path() + "/" + VASK_INSTALL_MANDIR, "-w", section_number, name},
                                   {"LC_ALL=C.UTF-8"});
    EXPECT_EQ(found.exit_code, 0) << describe(found);
    EXPECT_EQ(found.out, installed + "\n");
    run_result shown = render(installed);
    EXPECT_EQ(shown.exit_code, 0) << describe(shown);
    EXPECT_EQ(shown.err, "");
}

TEST(InstalledPages, ToolsComponent_ShouldInstallTheSectionOnePages)
{
    expect_installed("tools", "edctl.1", "edctl");
    expect_installed("tools", "external-device-sim.1", "external-device-sim");
}

TEST(InstalledPages, DevComponent_ShouldInstallTheLibraryPage)
{
    expect_installed("dev", "libvask_external_device.3", "libvask_external_device");
}

TEST(ApiReference, Doxygen_ShouldDocumentEveryDeclarationWithoutAWarning)
{
    if (std::string(VASK_DOXYGEN).empty())
        GTEST_SKIP() << "doxygen is not installed: the API reference is not checked";
    temp_dir out;
    run_result r = run_program({VASK_DOCS_SCRIPT, out.path()}, {}, std::chrono::seconds(300));
    EXPECT_EQ(r.exit_code, 0) << describe(r);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "API reference: " + out.path() + "/html/index.html\n");
    EXPECT_EQ(read_file(out.path() + "/doxygen-warnings.log"), "");
    std::string header_page = read_file(out.path() + "/html/libvask__external__device_8h.html");
    for (const char *name : {"ed_init", "ed_register_signal", "ed_zorvo_goto_macro", "Configuration store"})
        EXPECT_NE(header_page.find(name), std::string::npos) << name;
}

} // namespace
