// SPDX-License-Identifier: MIT
// The installed tree of this build: what `cmake --install` puts where, the pkg-config files and the
// CMake package an application builds with, the examples built both ways and run against a private
// broker and the installed simulator, and the names the shared library exports.
#include <algorithm>
#include <cJSON.h>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "broker.h"
#include "example_build.h"
#include "process.h"

namespace {

using vask_test::describe;
using vask_test::example_names;
using vask_test::run_program;

const char *const kLibraries[] = {"libvask_external_device", "libvask_bus", "libtulo_log"};

std::string read_file(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

bool is_file(const std::string &path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool is_executable(const std::string &path)
{
    return is_file(path) && access(path.c_str(), X_OK) == 0;
}

std::string link_target(const std::string &path)
{
    char buffer[4096];
    ssize_t n = readlink(path.c_str(), buffer, sizeof buffer);
    return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : std::string();
}

// Installs this build below `prefix` (with DESTDIR set when `destdir` is not empty).
vask_test::run_result install(const std::string &prefix, const std::string &destdir = std::string())
{
    std::vector<std::string> argv = {VASK_CMAKE, "--install", VASK_BUILD_DIR};
    if (!prefix.empty()) {
        argv.push_back("--prefix");
        argv.push_back(prefix);
    }
    return run_program(argv, {"DESTDIR=" + destdir}, std::chrono::seconds(60));
}

// One installed tree in a temporary folder, with the paths an application needs.
class InstalledTree : public ::testing::Test {
protected:
    void SetUp() override
    {
        prefix_ = dir_.path() + "/usr";
        libdir_ = prefix_ + "/" + VASK_INSTALL_LIBDIR;
        auto r = install(prefix_);
        ASSERT_EQ(r.exit_code, 0) << describe(r);
    }

    // The environment of a program built against the tree: its libraries first, and its
    // pkg-config files.
    std::vector<std::string> tree_env() const
    {
        return {"LD_LIBRARY_PATH=" + libdir_, "PKG_CONFIG_PATH=" + libdir_ + "/pkgconfig"};
    }

    vask_test::temp_dir dir_;
    std::string prefix_;
    std::string libdir_;
};

TEST_F(InstalledTree, Install_ShouldPlaceLibrariesWithSonamesHeadersToolsAndData)
{
    const std::string version = VASK_PROJECT_VERSION;
    const std::string soversion = VASK_SOVERSION;
    for (const char *library : kLibraries) {
        std::string base = libdir_ + "/" + library + ".so";
        EXPECT_TRUE(is_file(base + "." + version)) << base;
        EXPECT_EQ(link_target(base + "." + soversion), std::string(library) + ".so." + version);
        EXPECT_EQ(link_target(base), std::string(library) + ".so." + soversion);
        auto r = run_program({VASK_OBJDUMP, "-p", base + "." + version});
        EXPECT_NE(r.out.find("SONAME               " + std::string(library) + ".so." + soversion), std::string::npos)
            << describe(r);
    }
    for (const char *header : {"libvask_external_device.h", "vask_bus.h", "tulo_log.h"})
        EXPECT_TRUE(is_file(prefix_ + "/include/" + header)) << header;
    for (const char *tool : {"edctl", "external-device-sim"})
        EXPECT_TRUE(is_executable(prefix_ + "/bin/" + tool)) << tool;
    for (const char *data : {"external_device.json", "microphone_control.json"}) {
        EXPECT_EQ(read_file(prefix_ + "/share/vask/etc/" + data), read_file(std::string(VASK_SOURCE_DIR) + "/data/" + data))
            << data;
    }
    const std::string cmake_dir = libdir_ + "/cmake/VaskExternalDevice/";
    for (const char *file : {"VaskExternalDeviceConfig.cmake", "VaskExternalDeviceConfigVersion.cmake",
                             "VaskExternalDeviceTargets.cmake"})
        EXPECT_TRUE(is_file(cmake_dir + file)) << file;

    auto edctl = run_program({prefix_ + "/bin/edctl", "--version"}, tree_env());
    EXPECT_EQ(edctl.exit_code, 0) << describe(edctl);
    EXPECT_NE(edctl.out.find(version), std::string::npos) << describe(edctl);
}

TEST_F(InstalledTree, PkgConfigFiles_ShouldNameTheInstalledPrefixAndTheDependencies)
{
    auto env = tree_env();
    auto r = run_program({VASK_PKG_CONFIG, "--cflags", "--libs", "vask-external-device"}, env);
    ASSERT_EQ(r.exit_code, 0) << describe(r);
    EXPECT_NE(r.out.find("-I" + prefix_ + "/include"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("-L" + libdir_ + " "), std::string::npos) << r.out;
    for (const char *lib : {"-lvask_external_device", "-lvask_bus", "-ltulo_log", "-lcjson"})
        EXPECT_NE(r.out.find(lib), std::string::npos) << lib << " in " << r.out;

    for (const char *module : {"vask-bus", "tulo-log", "vask-external-device"}) {
        auto v = run_program({VASK_PKG_CONFIG, "--modversion", module}, env);
        EXPECT_EQ(v.out, std::string(VASK_PROJECT_VERSION) + "\n") << module << ": " << describe(v);
        auto libdir = run_program({VASK_PKG_CONFIG, "--variable=libdir", module}, env);
        EXPECT_EQ(libdir.out, libdir_ + "\n") << module;
    }
}

TEST(InstallDestdir, Install_ShouldStageTheConfiguredPrefixBelowDestdir)
{
    vask_test::temp_dir stage;
    auto r = install(std::string(), stage.path());
    ASSERT_EQ(r.exit_code, 0) << describe(r);
    const std::string prefix = VASK_INSTALL_PREFIX;
    const std::string libdir = std::string(VASK_INSTALL_LIBDIR).front() == '/'
                                   ? std::string(VASK_INSTALL_LIBDIR)
                                   : prefix + "/" + VASK_INSTALL_LIBDIR;
    EXPECT_TRUE(is_file(stage.path() + libdir + "/libvask_external_device.so." + VASK_PROJECT_VERSION));
    EXPECT_TRUE(is_executable(stage.path() + prefix + "/bin/edctl"));
    EXPECT_TRUE(is_file(stage.path() + prefix + "/share/vask/etc/microphone_control.json"));
    // The staged file names where the tree will live, not the staging folder.
    std::string pc = read_file(stage.path() + libdir + "/pkgconfig/vask-external-device.pc");
    EXPECT_NE(pc.find("\nlibdir=" + libdir + "\n"), std::string::npos) << pc;
    EXPECT_EQ(pc.find(stage.path()), std::string::npos) << pc;
}

// The examples, built against the tree and run against a private broker and the tree's simulator.
class ExamplesTest : public InstalledTree {
protected:
    void start_room()
    {
        broker_ = std::make_unique<vask_test::broker>();
        ASSERT_TRUE(broker_->started());
        ASSERT_EQ(mkdir((root_.path() + "/etc").c_str(), 0755), 0);
        for (const char *data : {"external_device.json", "microphone_control.json"}) {
            std::ofstream(root_.path() + "/etc/" + data) << read_file(prefix_ + "/share/vask/etc/" + data);
        }
        env_ = tree_env();
        env_.push_back("VASK_BUS_URL=" + broker_->url());
        env_.push_back("VASK_SYSROOT=" + root_.path());
        ASSERT_TRUE(sim_.start({prefix_ + "/bin/external-device-sim", "--foreground"}, env_, dir_.path() + "/sim.log"));
        ASSERT_TRUE(sim_.wait_for_line("external-device-sim: ready", std::chrono::seconds(10)))
            << read_file(dir_.path() + "/sim.log");
    }

    void TearDown() override
    {
        if (sim_.running()) {
            int status = sim_.stop(SIGTERM);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "simulator exit status " << status;
        }
        broker_.reset();
    }

    vask_test::run_result edctl(const std::vector<std::string> &args)
    {
        std::vector<std::string> argv = {prefix_ + "/bin/edctl"};
        argv.insert(argv.end(), args.begin(), args.end());
        return run_program(argv, env_);
    }

    // Starts example `program`, waits for its `ready` line, runs `drive`, then reads its output to
    // the end and returns it with its exit status.
    template <typename Drive>
    vask_test::run_result run_while(const std::vector<std::string> &argv, const std::string &ready, Drive drive)
    {
        vask_test::run_result result;
        vask_test::child_process child;
        std::string err_file = dir_.path() + "/example.err";
        unlink(err_file.c_str());
        if (!child.start(argv, env_, err_file))
            return result;
        if (child.wait_for_line(ready, std::chrono::seconds(10)))
            drive();
        child.wait_for_line("\x01 never printed \x01", std::chrono::seconds(20));
        result.out = child.output();
        int status = child.stop(0, std::chrono::seconds(5));
        if (WIFEXITED(status))
            result.exit_code = WEXITSTATUS(status);
        result.err = read_file(err_file);
        return result;
    }

    // Runs the four examples in `bin` against a fresh room.
    void run_examples(const std::string &bin)
    {
        ASSERT_NO_FATAL_FAILURE(start_room());

        // Two listed microphones on and off, and one the mic central does not list.
        auto mic = run_while({bin + "/mic_monitor", "--count", "5", "--timeout", "15"}, "mic_monitor: listening", [&] {
            for (auto step : std::vector<std::vector<std::string>>{{"press", "1", "7"}, {"press", "2", "3"},
                                                                    {"release", "1", "7"}, {"release", "2", "3"},
                                                                    {"press", "9", "9"}}) {
                std::vector<std::string> args = {"sim"};
                args.insert(args.end(), step.begin(), step.end());
                auto r = edctl(args);
                EXPECT_EQ(r.exit_code, 0) << describe(r);
            }
        });
        EXPECT_EQ(mic.exit_code, 0) << describe(mic);
        EXPECT_EQ(mic.out, "mic_monitor: listening\n"
                           "microphone 1/7 on\n"
                           "microphone 2/3 on\n"
                           "microphone 1/7 off\n"
                           "microphone 2/3 off\n"
                           "unlisted microphone 9/9 on\n"
                           "mic_monitor: done\n")
            << describe(mic);

        auto vote = run_while({bin + "/voting_console", "--votes", "3", "--timeout", "15"}, "voting_console: vote running",
                              [&] {
                                  for (const char *choice : {"agree", "disagree", "agree"}) {
                                      auto r = edctl({"sim", "vote", choice});
                                      EXPECT_EQ(r.exit_code, 0) << describe(r);
                                  }
                              });
        EXPECT_EQ(vote.exit_code, 0) << describe(vote);
        EXPECT_EQ(vote.out, "voting_console: vote running\n"
                            "tally 1: agree 1, disagree 0, abandon 0\n"
                            "tally 2: agree 1, disagree 1, abandon 0\n"
                            "tally 3: agree 2, disagree 1, abandon 0\n"
                            "result: agree 2, disagree 1, abandon 0, total 3\n"
                            "voting_console: vote closed\n")
            << describe(vote);

        // An address that is not IPv4 is stored, and fails the simulator's connection test.
        auto unreachable = run_program({bin + "/projector_setup", "projector.invalid", "secret"}, env_);
        EXPECT_EQ(unreachable.exit_code, 1) << describe(unreachable);
        EXPECT_NE(unreachable.out.find("connection test: failed"), std::string::npos) << describe(unreachable);

        // Then a reachable one: the snapshot below reads it.
        auto projector = run_program({bin + "/projector_setup", "192.0.2.20", "secret"}, env_);
        EXPECT_EQ(projector.exit_code, 0) << describe(projector);
        EXPECT_EQ(projector.out, "projector: protocol pjlink, address 192.0.2.20\nconnection test: ok\n")
            << describe(projector);
        // The simulator applied what the example stored.
        auto applied = edctl({"--json", "sim", "applied", "projector_control"});
        EXPECT_NE(applied.out.find("192.0.2.20"), std::string::npos) << describe(applied);
        EXPECT_NE(applied.out.find("pjlink"), std::string::npos) << describe(applied);
        auto press = edctl({"sim", "press", "2", "5"});
        EXPECT_EQ(press.exit_code, 0) << describe(press);
        auto snapshot = run_program({bin + "/room_snapshot"}, env_);
        EXPECT_EQ(snapshot.exit_code, 0) << describe(snapshot);
        std::unique_ptr<cJSON, decltype(&cJSON_Delete)> doc(cJSON_Parse(snapshot.out.c_str()), cJSON_Delete);
        ASSERT_NE(doc, nullptr) << describe(snapshot);
        auto member = [&](const char *section, const char *key) {
            return cJSON_GetObjectItemCaseSensitive(cJSON_GetObjectItemCaseSensitive(doc.get(), section), key);
        };
        for (const char *section : {"voting", "mic_central", "mic_central_connected", "castdeck", "projector",
                                    "tcp_control", "image_share", "microphones_on", "multiple_speakers_mode",
                                    "mic_control_items", "rs232_devices", "rs232_control", "remote_controller"})
            EXPECT_NE(cJSON_GetObjectItemCaseSensitive(doc.get(), section), nullptr) << section;
        EXPECT_TRUE(cJSON_IsNumber(member("voting", "status")));
        EXPECT_EQ(member("voting", "status")->valueint, 0);
        EXPECT_STREQ(cJSON_GetStringValue(member("projector", "ip_address")), "192.0.2.20");
        EXPECT_EQ(member("projector", "protocol")->valueint, 24);
        EXPECT_STREQ(cJSON_GetStringValue(member("tcp_control", "port")), "23");
        EXPECT_STREQ(cJSON_GetStringValue(member("rs232_control", "baud_rate")), "9600");
        EXPECT_EQ(member("multiple_speakers_mode", "multi_mode")->valueint, 1);
        cJSON *on = cJSON_GetObjectItemCaseSensitive(doc.get(), "microphones_on");
        ASSERT_EQ(cJSON_GetArraySize(on), 1) << snapshot.out;
        EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(cJSON_GetArrayItem(on, 0), "id")), "5");
        EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(doc.get(), "rs232_devices")), 2) << snapshot.out;
        // Passwords stay out of the document.
        EXPECT_EQ(snapshot.out.find("secret"), std::string::npos) << snapshot.out;
    }

    vask_test::temp_dir root_;
    std::unique_ptr<vask_test::broker> broker_;
    vask_test::child_process sim_;
    std::vector<std::string> env_;
};

TEST_F(ExamplesTest, ExamplesBuiltWithPkgConfig_ShouldWorkAgainstTheSimulator)
{
    const std::string bin = dir_.path() + "/pkg-config-build";
    auto build = vask_test::build_examples_with_pkg_config(VASK_MAKE, VASK_SOURCE_DIR, bin, tree_env(),
                                                           std::string("-O1 -Wall -Wextra -Werror ") +
                                                               VASK_EXAMPLE_FLAGS);
    ASSERT_EQ(build.exit_code, 0) << describe(build);
    for (const auto &example : example_names())
        ASSERT_TRUE(is_executable(bin + "/" + example)) << example;
    run_examples(bin);
}

TEST_F(ExamplesTest, ExamplesBuiltWithTheCMakePackage_ShouldWorkAgainstTheSimulator)
{
    const std::string bin = dir_.path() + "/cmake-build";
    auto build = vask_test::build_examples_with_cmake(VASK_CMAKE, VASK_SOURCE_DIR, bin, prefix_,
                                                      std::string("-Werror ") + VASK_EXAMPLE_FLAGS);
    ASSERT_EQ(build.exit_code, 0) << describe(build);
    for (const auto &example : example_names())
        ASSERT_TRUE(is_executable(bin + "/" + example)) << example;
    run_examples(bin);
}

// The header without its comments and preprocessor lines, where "ED_API" is only a declaration's.
std::string header_declarations()
{
    std::string text = std::regex_replace(read_file(VASK_HEADER), std::regex(R"(/\*[\s\S]*?\*/)"), " ");
    text = std::regex_replace(text, std::regex(R"(//[^\n]*)"), " ");
    return std::regex_replace(text, std::regex(R"((^|\n)[ \t]*#[^\n]*)"), "\n");
}

// The function names the header declares with ED_API, once per declaration (overloads repeat).
std::multiset<std::string> declared_functions()
{
    std::string header = header_declarations();
    std::multiset<std::string> names;
    // "ED_API <return type> <name>(": the name is the last identifier before the parenthesis.
    std::regex declaration(R"(\bED_API\s+[^;(){}]*?\b([A-Za-z_][A-Za-z0-9_]*)\s*\()");
    for (auto it = std::sregex_iterator(header.begin(), header.end(), declaration); it != std::sregex_iterator(); ++it)
        names.insert((*it)[1]);
    return names;
}

// The names of the functions the library exports, demangled, without parameters, ABI tags
// ("[abi:cxx11]" on those returning std::string) and symbol versions,
// once per symbol. Symbols that are not functions are listed in *others.
std::multiset<std::string> exported_functions(std::string *others)
{
    auto r = run_program({VASK_NM, "-D", "--defined-only", VASK_ED_LIBRARY});
    EXPECT_EQ(r.exit_code, 0) << describe(r);
    std::vector<std::string> argv = {VASK_CXXFILT};
    std::istringstream lines(r.out);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string address, type, symbol;
        fields >> address >> type >> symbol;
        // The ABI version node is an absolute symbol of its own.
        if (type == "A")
            continue;
        if (type != "T")
            *others += line + "\n";
        else
            argv.push_back(symbol.substr(0, symbol.find('@')));
    }
    std::multiset<std::string> names;
    if (argv.size() == 1)
        return names;
    auto demangled = run_program(argv);
    EXPECT_EQ(demangled.exit_code, 0) << describe(demangled);
    std::istringstream out(demangled.out);
    while (std::getline(out, line))
        names.insert(line.substr(0, line.find_first_of("([")));
    EXPECT_EQ(names.size(), argv.size() - 1) << demangled.out;
    return names;
}

TEST(ExportedSymbols, SharedLibrary_ShouldExportExactlyTheHeaderFunctions)
{
    std::multiset<std::string> declared = declared_functions();
    ASSERT_GT(declared.size(), 100u) << "the header's declarations were not found";
    std::string others;
    std::multiset<std::string> exported = exported_functions(&others);
    EXPECT_EQ(others, "") << "exported symbols that are not functions";

    std::vector<std::string> missing, extra;
    std::set_difference(declared.begin(), declared.end(), exported.begin(), exported.end(), std::back_inserter(missing));
    std::set_difference(exported.begin(), exported.end(), declared.begin(), declared.end(), std::back_inserter(extra));
    std::string missing_text, extra_text;
    for (const auto &name : missing)
        missing_text += name + " ";
    for (const auto &name : extra)
        extra_text += name + " ";
    EXPECT_TRUE(missing.empty()) << "declared but not exported: " << missing_text;
    EXPECT_TRUE(extra.empty()) << "exported but not declared: " << extra_text;
}

} // namespace
