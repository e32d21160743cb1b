// SPDX-License-Identifier: MIT
// The Debian packages as a user gets them: scripts/package (dpkg-buildpackage on a copy of the
// source tree, then lintian) run into this build, each package's control fields and exact contents,
// the exported symbols against debian/'s symbols file, the three unpacked with dpkg into a
// throw-away root, and the examples built against that root (pkg-config and the CMake package) and
// run against its simulator.
#include <algorithm>
#include <csignal>
#include <dirent.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
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
#include "json_text.h"
#include "process.h"

namespace {

using vask_test::describe;
using vask_test::read_file;
using vask_test::run_program;

const std::string kVersion = VASK_PROJECT_VERSION;
const std::string kSource = VASK_SOURCE_DIR;
const std::string kLibDir = std::string("usr/lib/") + VASK_MULTIARCH;
const std::string kRuntime = "libvask-external-device" VASK_SOVERSION;
const std::string kDev = "libvask-external-device-dev";
const std::string kTools = "vask-external-device-tools";
const std::string kPython = "python3-vask-external-device";
const std::string kConsole = "vask-external-device-console";
const char *const kLibraries[] = {"libtulo_log", "libvask_bus", "libvask_external_device"};
const std::string kSymbolsFile = kSource + "/debian/" + kRuntime + ".symbols";

// One line of `dpkg-deb -c` as the tests compare it: mode, owner and path, without size and date.
std::string dir(const std::string &path) { return "drwxr-xr-x root/root " + (path == "." ? "./" : "./" + path); }
std::string file(const std::string &path) { return "-rw-r--r-- root/root ./" + path; }
std::string program(const std::string &path) { return "-rwxr-xr-x root/root ./" + path; }
std::string link(const std::string &path, const std::string &target)
{
    return "lrwxrwxrwx root/root ./" + path + " -> " + target;
}

std::vector<std::string> sorted(std::vector<std::string> lines)
{
    std::sort(lines.begin(), lines.end());
    return lines;
}

// The folder of a package's copyright and changelog, and the two.
std::vector<std::string> doc(const std::string &package)
{
    const std::string at = "usr/share/doc/" + package;
    return {dir("usr/share/doc"), dir(at), file(at + "/changelog.gz"), file(at + "/copyright")};
}

std::vector<std::string> expected_runtime()
{
    std::vector<std::string> lines = {dir("."),          dir("usr"),            dir("usr/lib"),
                                      dir(kLibDir),      dir("usr/share"),      dir("usr/share/vask"),
                                      dir("usr/share/vask/etc"), file("usr/share/vask/etc/external_device.json"),
                                      file("usr/share/vask/etc/microphone_control.json")};
    for (std::string library : kLibraries) {
        lines.push_back(link(kLibDir + "/" + library + ".so." VASK_SOVERSION, library + ".so." + kVersion));
        lines.push_back(file(kLibDir + "/" + library + ".so." + kVersion));
    }
    for (const auto &line : doc(kRuntime))
        lines.push_back(line);
    return sorted(lines);
}

std::vector<std::string> expected_dev()
{
    const std::string cmake = kLibDir + "/cmake/VaskExternalDevice";
    std::vector<std::string> lines = {dir("."), dir("usr"), dir("usr/include"), dir("usr/lib"), dir(kLibDir),
                                      dir(kLibDir + "/cmake"), dir(cmake), dir(kLibDir + "/pkgconfig"),
                                      dir("usr/share"), dir("usr/share/man"), dir("usr/share/man/man3"),
                                      file("usr/include/libvask_external_device.h"), file("usr/include/tulo_log.h"),
                                      file("usr/include/vask_bus.h"), file(cmake + "/VaskExternalDeviceConfig.cmake"),
                                      file(cmake + "/VaskExternalDeviceConfigVersion.cmake"),
                                      file(cmake + "/VaskExternalDeviceTargets.cmake"),
                                      file(cmake + "/VaskExternalDeviceTargets-none.cmake"),
                                      file(kLibDir + "/pkgconfig/tulo-log.pc"), file(kLibDir + "/pkgconfig/vask-bus.pc"),
                                      file(kLibDir + "/pkgconfig/vask-external-device.pc"),
                                      file("usr/share/man/man3/libvask_external_device.3.gz")};
    for (std::string library : kLibraries)
        lines.push_back(link(kLibDir + "/" + library + ".so", library + ".so." VASK_SOVERSION));
    for (const auto &line : doc(kDev))
        lines.push_back(line);
    return sorted(lines);
}

// The unit goes where Debian 12's systemd and dh_installsystemd look for units, /lib.
std::vector<std::string> expected_tools()
{
    std::vector<std::string> lines = {
        dir("."), dir("lib"), dir("lib/systemd"), dir("lib/systemd/system"),
        file("lib/systemd/system/external-device-sim.service"), dir("usr"), dir("usr/bin"), dir("usr/share"),
        dir("usr/share/bash-completion"), dir("usr/share/bash-completion/completions"), dir("usr/share/man"),
        dir("usr/share/man/man1"), dir("usr/share/vask"), dir("usr/share/vask/box"), program("usr/bin/edctl"),
        program("usr/bin/external-device-sim"), file("usr/share/bash-completion/completions/edctl"),
        file("usr/share/man/man1/edctl.1.gz"), file("usr/share/man/man1/external-device-sim.1.gz"),
        file("usr/share/vask/box/mosquitto-vask.conf"), file("usr/share/vask/box/vask.acl")};
    for (const auto &line : doc(kTools))
        lines.push_back(line);
    return sorted(lines);
}

// `dpkg-deb -c` of `deb`, one entry per line as dir() and the others make them.
std::vector<std::string> contents(const std::string &deb)
{
    auto r = run_program({VASK_DPKG_DEB, "-c", deb});
    EXPECT_EQ(r.exit_code, 0) << describe(r);
    std::vector<std::string> lines;
    std::istringstream in(r.out);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string mode, owner, size, date, time, path;
        fields >> mode >> owner >> size >> date >> time;
        std::getline(fields >> std::ws, path);
        // dpkg-deb writes a folder as "./usr/" and the root as "./".
        if (mode[0] == 'd' && path.size() > 2 && path.back() == '/')
            path.pop_back();
        while (!path.empty() && path.back() == ' ')
            path.pop_back();
        lines.push_back(mode + " " + owner + " " + path);
    }
    return sorted(lines);
}

std::string field(const std::string &deb, const std::string &name)
{
    auto r = run_program({VASK_DPKG_DEB, "-f", deb, name});
    EXPECT_EQ(r.exit_code, 0) << describe(r);
    return r.out;
}

// The entries of a Depends field: "name (op version)" or "name".
std::vector<std::string> entries(const std::string &depends)
{
    std::vector<std::string> list;
    std::istringstream in(depends.substr(0, depends.find('\n')));
    std::string entry;
    while (std::getline(in >> std::ws, entry, ','))
        list.push_back(entry);
    return list;
}

std::string package_name(const std::string &entry) { return entry.substr(0, entry.find(' ')); }

bool is_executable(const std::string &path) { return access(path.c_str(), X_OK) == 0; }

// The packages are built, and unpacked into one root, once for the whole suite: building them is
// the slow part.
class PackageTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        script_ = run_program({kSource + "/scripts/package", packages_dir()}, {"JOBS=2"}, std::chrono::minutes(20));
        arch_ = run_program({VASK_DPKG, "--print-architecture"}).out;
        arch_ = arch_.substr(0, arch_.find('\n'));
        if (script_.exit_code != 0)
            return;
        root_ = std::make_unique<vask_test::temp_dir>();
        const std::string admin = root_->path() + "/var/lib/dpkg";
        for (const char *sub : {"/info", "/updates", "/triggers"})
            std::filesystem::create_directories(admin + sub);
        vask_test::write_file(admin + "/status", "");
        // Unpacked, not configured: configuring runs the runtime package's ldconfig and the tools'
        // systemd helper, which would change this machine's linker cache and unit state rather
        // than the root's. The root has none of the system libraries the packages depend on, nor a
        // shell to chroot into: the maintainer scripts run outside it with DPKG_ROOT set to it,
        // and on unpacking a new install they do nothing.
        unpack_ = run_program({VASK_DPKG, "--instdir=" + root_->path(), "--admindir=" + admin,
                               "--log=" + root_->path() + "/dpkg.log", "--force-not-root", "--force-depends",
                               "--force-script-chrootless", "--unpack", deb(kRuntime), deb(kDev), deb(kTools),
                               deb(kPython), deb(kConsole)},
                              {}, std::chrono::seconds(60));
    }

    static void TearDownTestSuite() { root_.reset(); }

    void SetUp() override { ASSERT_EQ(script_.exit_code, 0) << describe(script_); }

    static std::string packages_dir() { return std::string(VASK_BUILD_DIR) + "/packages"; }
    static std::string deb(const std::string &name)
    {
        return packages_dir() + "/" + name + "_" + kVersion + "_" + arch_ + ".deb";
    }
    // The .changes or .buildinfo file of the build.
    static std::string build_file(const std::string &extension)
    {
        return packages_dir() + "/vask-external-device_" + kVersion + "_" + arch_ + "." + extension;
    }
    static std::string root() { return root_ ? root_->path() : std::string(); }
    // The environment of a program that runs from the root.
    static std::vector<std::string> root_env() { return {"LD_LIBRARY_PATH=" + root() + "/" + kLibDir}; }

    static inline vask_test::run_result script_;
    static inline vask_test::run_result unpack_;
    static inline std::string arch_;
    static inline std::unique_ptr<vask_test::temp_dir> root_;
};

TEST_F(PackageTest, PackageScript_ShouldLeaveThePackagesWithTheirDebugSymbolsAndSayWhere)
{
    // Every package with its -dbgsym companion, in the order the script lists them.
    std::vector<std::string> debs;
    for (const std::string &name : {kDev, kRuntime, kPython, kConsole, kTools}) {
        if (name != kDev)
            debs.push_back(deb(name + "-dbgsym"));
        debs.push_back(deb(name));
    }
    std::string listed = "lintian: no errors or warnings\nDebian packages in " + packages_dir() + ":\n";
    for (const auto &path : debs)
        listed += "  " + path + "\n";
    EXPECT_NE(script_.out.find(listed), std::string::npos) << describe(script_);
    std::set<std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(packages_dir()))
        files.insert(entry.path().string());
    std::set<std::string> expected(debs.begin(), debs.end());
    expected.insert(build_file("changes"));
    expected.insert(build_file("buildinfo"));
    EXPECT_EQ(files, expected);
}

TEST_F(PackageTest, Lintian_ShouldFindNoErrorOrWarningInAnyPackage)
{
    auto lintian = run_program({VASK_LINTIAN, "--fail-on", "error,warning", build_file("changes")}, {},
                               std::chrono::minutes(5));
    EXPECT_EQ(lintian.exit_code, 0) << describe(lintian);
    // Every line it prints is a note of its own, never a finding.
    std::istringstream in(lintian.out);
    std::string line;
    while (std::getline(in, line))
        EXPECT_FALSE(line.rfind("E: ", 0) == 0 || line.rfind("W: ", 0) == 0) << line;
}

TEST_F(PackageTest, ControlFields_ShouldNamePackageVersionArchitectureSectionAndRelations)
{
    EXPECT_FALSE(arch_.empty());
    const std::map<std::string, std::string> sections = {{kRuntime, "libs"}, {kDev, "libdevel"}, {kTools, "utils"}};
    for (const auto &[name, section] : sections) {
        EXPECT_EQ(field(deb(name), "Package"), name + "\n");
        EXPECT_EQ(field(deb(name), "Version"), kVersion + "\n") << name;
        EXPECT_EQ(field(deb(name), "Source"), "vask-external-device\n") << name;
        EXPECT_EQ(field(deb(name), "Architecture"), arch_ + "\n") << name;
        EXPECT_EQ(field(deb(name), "Section"), section + "\n") << name;
        EXPECT_EQ(field(deb(name), "Priority"), "optional\n") << name;
        EXPECT_NE(field(deb(name), "Maintainer"), "") << name;
        // A summary line, then a long description.
        std::string description = field(deb(name), "Description");
        EXPECT_GT(std::count(description.begin(), description.end(), '\n'), 3) << description;
    }
    EXPECT_EQ(field(deb(kDev), "Depends"), "libcjson-dev, " + kRuntime + " (= " + kVersion + ")\n");
    // Libraries and their development files of several architectures install side by side.
    EXPECT_EQ(field(deb(kRuntime), "Multi-Arch"), "same\n");
    EXPECT_EQ(field(deb(kDev), "Multi-Arch"), "same\n");
    EXPECT_EQ(field(deb(kTools), "Recommends"), "mosquitto\n");

    // The system libraries each package links, as dpkg-shlibdeps names them: every one with a
    // lower version bound, and the tools exactly this build's runtime package first.
    auto names = [](const std::vector<std::string> &list) {
        std::set<std::string> set;
        for (const auto &entry : list) {
            EXPECT_TRUE(std::regex_match(entry, std::regex(R"([a-z0-9.+-]+ \(>= [0-9][0-9.]*\))"))) << entry;
            set.insert(package_name(entry));
        }
        return set;
    };
    auto runtime = entries(field(deb(kRuntime), "Depends"));
    EXPECT_EQ(names(runtime), (std::set<std::string>{"libc6", "libcjson1", "libgcc-s1", "libglib2.0-0", "libmosquitto1",
                                                     "libstdc++6"}));
    auto tools = entries(field(deb(kTools), "Depends"));
    ASSERT_FALSE(tools.empty());
    EXPECT_EQ(tools.front(), kRuntime + " (= " + kVersion + ")");
    tools.erase(tools.begin());
    EXPECT_EQ(names(tools), (std::set<std::string>{"libc6", "libcjson1", "libgcc-s1", "libstdc++6"}));

    auto shlibs = run_program({VASK_DPKG_DEB, "--info", deb(kRuntime), "shlibs"});
    EXPECT_EQ(shlibs.out, "libtulo_log 0 " + kRuntime + " (>= " + kVersion + ")\nlibvask_bus 0 " + kRuntime + " (>= " +
                              kVersion + ")\nlibvask_external_device 0 " + kRuntime + " (>= " + kVersion + ")\n")
        << describe(shlibs);
}

TEST_F(PackageTest, Dependencies_ShouldBeSatisfiedByThisSystemsPackages)
{
    for (const std::string &name : {kRuntime, kTools}) {
        for (const auto &entry : entries(field(deb(name), "Depends"))) {
            if (entry.rfind(kRuntime + " ", 0) == 0)
                continue;
            std::smatch m;
            ASSERT_TRUE(std::regex_match(entry, m, std::regex(R"((\S+) \(>= (\S+)\))"))) << entry;
            auto installed = run_program({VASK_DPKG_QUERY, "-W", "-f=${Version}", m[1].str() + ":" + arch_});
            ASSERT_EQ(installed.exit_code, 0) << entry << ": " << describe(installed);
            auto compare = run_program({VASK_DPKG, "--compare-versions", installed.out, "ge", m[2].str()});
            EXPECT_EQ(compare.exit_code, 0) << entry << " against installed " << installed.out;
        }
    }
}

TEST_F(PackageTest, Contents_ShouldBeExactlyTheFilesOfEachPackage)
{
    EXPECT_EQ(contents(deb(kRuntime)), expected_runtime());
    EXPECT_EQ(contents(deb(kDev)), expected_dev());
    EXPECT_EQ(contents(deb(kTools)), expected_tools());
}

// The simulator stands in for the box's own service: installing the tools leaves its unit disabled
// and stopped (the scripts only keep an administrator's choice across upgrades).
TEST_F(PackageTest, ToolsMaintainerScripts_ShouldNeitherEnableNorStartTheSimulator)
{
    auto postinst = run_program({VASK_DPKG_DEB, "--info", deb(kTools), "postinst"});
    ASSERT_EQ(postinst.exit_code, 0) << describe(postinst);
    EXPECT_NE(postinst.out.find("if deb-systemd-helper debian-installed 'external-device-sim.service'; then"),
              std::string::npos)
        << postinst.out;
    EXPECT_EQ(postinst.out.find("deb-systemd-invoke"), std::string::npos) << postinst.out;
    EXPECT_EQ(postinst.out.find("was-enabled defaults to true"), std::string::npos) << postinst.out;
}

// dpkg-gensymbols as the build runs it (every difference fails), on the libraries unpacked from the
// package: with debian/'s symbols file it passes; a symbol missing from the file, or one the
// libraries no longer export, fails it. The file's versions sit just below the release's ("0.1.0~"),
// so that a symbol gone within a release counts as gone.
vask_test::run_result check_symbols(const std::string &root, const std::string &symbols_file)
{
    return run_program({VASK_DPKG_GENSYMBOLS, "-c4", "-p" + kRuntime, "-v" + kVersion, "-P" + root,
                        "-I" + symbols_file, "-O/dev/null"},
                       {}, std::chrono::seconds(60));
}

TEST_F(PackageTest, SymbolsFile_ShouldMatchTheExportsExactlyAndFailOnAnyDifference)
{
    ASSERT_EQ(unpack_.exit_code, 0) << describe(unpack_);
    auto same = check_symbols(root(), kSymbolsFile);
    EXPECT_EQ(same.exit_code, 0) << describe(same);

    const std::string symbols = read_file(kSymbolsFile);
    const std::string entry = " (c++)\"ed_init()@VASK_EXTERNAL_DEVICE_0\" " + kVersion + "~\n";
    const auto at = symbols.find(entry);
    ASSERT_NE(at, std::string::npos) << symbols;
    vask_test::temp_dir edited;
    vask_test::write_file(edited.path() + "/without", symbols.substr(0, at) + symbols.substr(at + entry.size()));
    auto added = check_symbols(root(), edited.path() + "/without");
    EXPECT_NE(added.exit_code, 0) << describe(added);
    EXPECT_NE(added.out.find("\n+ _Z7ed_initv@VASK_EXTERNAL_DEVICE_0 " + kVersion + "\n"), std::string::npos)
        << describe(added);

    const std::string gone = " (c++)\"ed_gone(int)@VASK_EXTERNAL_DEVICE_0\" " + kVersion + "~\n";
    vask_test::write_file(edited.path() + "/with", symbols.substr(0, at) + gone + symbols.substr(at));
    auto removed = check_symbols(root(), edited.path() + "/with");
    EXPECT_NE(removed.exit_code, 0) << describe(removed);
    EXPECT_NE(removed.out.find("\n+#MISSING: " + kVersion + "#" + gone), std::string::npos) << describe(removed);
}

TEST_F(PackageTest, UnpackedRoot_ShouldHoldStrippedLibrariesProgramsDataAndAUnitForTheSimulator)
{
    ASSERT_EQ(unpack_.exit_code, 0) << describe(unpack_);
    auto query = run_program({VASK_DPKG_QUERY, "--admindir=" + root() + "/var/lib/dpkg", "-W",
                              "-f=${Package} ${Version} ${Status}\n"});
    std::string unpacked;
    for (const std::string &name : {kDev, kRuntime, kPython, kConsole, kTools})
        unpacked += name + " " + kVersion + " install ok unpacked\n";
    EXPECT_EQ(query.out, unpacked) << describe(query);

    std::vector<std::string> binaries = {root() + "/usr/bin/edctl", root() + "/usr/bin/external-device-sim"};
    for (const char *library : kLibraries) {
        std::string path = root() + "/" + kLibDir + "/" + library + ".so." + kVersion;
        binaries.push_back(path);
        auto p = run_program({VASK_OBJDUMP, "-p", path});
        EXPECT_NE(p.out.find(std::string("SONAME               ") + library + ".so." VASK_SOVERSION "\n"),
                  std::string::npos)
            << describe(p);
    }
    for (const auto &binary : binaries) {
        auto p = run_program({VASK_OBJDUMP, "-p", binary});
        ASSERT_EQ(p.exit_code, 0) << describe(p);
        EXPECT_EQ(p.out.find("RUNPATH"), std::string::npos) << binary;
        EXPECT_EQ(p.out.find("RPATH"), std::string::npos) << binary;
        auto h = run_program({VASK_OBJDUMP, "-h", binary});
        EXPECT_EQ(h.out.find(".debug_info"), std::string::npos) << binary << " is not stripped";
    }
    auto version = run_program({root() + "/usr/bin/edctl", "--version"}, root_env());
    EXPECT_EQ(version.exit_code, 0) << describe(version);
    EXPECT_NE(version.out.find(kVersion), std::string::npos) << describe(version);

    for (const char *data : {"external_device.json", "microphone_control.json"})
        EXPECT_EQ(read_file(root() + "/usr/share/vask/etc/" + data), read_file(kSource + "/data/" + data)) << data;
    for (const char *box : {"mosquitto-vask.conf", "vask.acl"})
        EXPECT_EQ(read_file(root() + "/usr/share/vask/box/" + box), read_file(kSource + "/data/box/" + box)) << box;
    // The unit runs the simulator from where the package puts it.
    std::string unit = read_file(root() + "/lib/systemd/system/external-device-sim.service");
    EXPECT_EQ(unit, read_file(kSource + "/data/box/external-device-sim.service"));
    EXPECT_NE(unit.find("\nExecStart=/usr/bin/external-device-sim --foreground\n"), std::string::npos) << unit;
    EXPECT_TRUE(is_executable(root() + "/usr/bin/external-device-sim"));
    EXPECT_EQ(read_file(root() + "/usr/share/bash-completion/completions/edctl"),
              read_file(kSource + "/data/completion/edctl"));
    for (const std::string &name : {kRuntime, kDev, kTools})
        EXPECT_EQ(read_file(root() + "/usr/share/doc/" + name + "/copyright"), read_file(kSource + "/debian/copyright"))
            << name;
    // The manual pages are compressed and read back as written.
    const std::map<std::string, std::string> pages = {{"man1/edctl.1", "edctl.1"},
                                                      {"man1/external-device-sim.1", "external-device-sim.1"},
                                                      {"man3/libvask_external_device.3", "libvask_external_device.3"}};
    for (const auto &[installed, source] : pages) {
        auto page = run_program({VASK_GZIP, "-dc", root() + "/usr/share/man/" + installed + ".gz"});
        EXPECT_EQ(page.exit_code, 0) << describe(page);
        EXPECT_TRUE(page.out == read_file(kSource + "/docs/man/" + source)) << installed << " differs from its source";
    }

    // The pkg-config files name where the packages install, not where they were staged.
    std::vector<std::string> pc_env = {"PKG_CONFIG_PATH=" + root() + "/" + kLibDir + "/pkgconfig"};
    for (const char *module : {"tulo-log", "vask-bus", "vask-external-device"}) {
        EXPECT_EQ(run_program({VASK_PKG_CONFIG, "--variable=libdir", module}, pc_env).out, "/" + kLibDir + "\n")
            << module;
        EXPECT_EQ(run_program({VASK_PKG_CONFIG, "--variable=includedir", module}, pc_env).out, "/usr/include\n")
            << module;
        EXPECT_EQ(run_program({VASK_PKG_CONFIG, "--modversion", module}, pc_env).out, kVersion + "\n") << module;
    }
}

// Runs `snapshot` (a room_snapshot example) against the root's simulator in a room of its own;
// every reading must succeed.
void expect_snapshot(const std::vector<std::string> &snapshot_command, const std::string &root,
                     const std::vector<std::string> &root_env)
{
    vask_test::broker broker;
    ASSERT_TRUE(broker.started());
    vask_test::temp_dir room;
    std::filesystem::create_directories(room.path() + "/etc");
    for (const char *data : {"external_device.json", "microphone_control.json"})
        std::filesystem::copy_file(root + "/usr/share/vask/etc/" + data, room.path() + "/etc/" + data);
    std::vector<std::string> env = root_env;
    env.push_back("VASK_BUS_URL=" + broker.url());
    env.push_back("VASK_SYSROOT=" + room.path());
    vask_test::child_process sim;
    ASSERT_TRUE(sim.start({root + "/usr/bin/external-device-sim", "--foreground"}, env, room.path() + "/sim.log"));
    ASSERT_TRUE(sim.wait_for_line("external-device-sim: ready", std::chrono::seconds(20)))
        << read_file(room.path() + "/sim.log");

    auto snapshot = run_program(snapshot_command, env);
    EXPECT_EQ(snapshot.exit_code, 0) << describe(snapshot);
    std::unique_ptr<cJSON, decltype(&cJSON_Delete)> doc(cJSON_Parse(snapshot.out.c_str()), cJSON_Delete);
    ASSERT_NE(doc, nullptr) << describe(snapshot);
    const cJSON *voting = cJSON_GetObjectItemCaseSensitive(doc.get(), "voting");
    EXPECT_EQ(cJSON_GetObjectItemCaseSensitive(voting, "status")->valueint, 0) << snapshot.out;
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(doc.get(), "rs232_devices")), 2) << snapshot.out;

    int status = sim.stop(SIGTERM);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "simulator exit status " << status;
}

TEST_F(PackageTest, ExamplesBuiltWithPkgConfigAgainstTheRoot_ShouldRunAgainstItsSimulator)
{
    ASSERT_EQ(unpack_.exit_code, 0) << describe(unpack_);
    vask_test::temp_dir out;
    // The .pc files name /usr; the sysroot puts the root in front of their paths.
    auto build = vask_test::build_examples_with_pkg_config(
        VASK_MAKE, kSource, out.path(),
        {"PKG_CONFIG_PATH=" + root() + "/" + kLibDir + "/pkgconfig", "PKG_CONFIG_SYSROOT_DIR=" + root()},
        "-O1 -Wall -Wextra -Werror");
    ASSERT_EQ(build.exit_code, 0) << describe(build);
    EXPECT_NE(build.out.find("-L" + root() + "/" + kLibDir), std::string::npos) << describe(build);
    expect_snapshot({out.path() + "/room_snapshot"}, root(), root_env());
}

TEST_F(PackageTest, ExamplesBuiltWithTheCMakePackageInTheRoot_ShouldRunAgainstItsSimulator)
{
    ASSERT_EQ(unpack_.exit_code, 0) << describe(unpack_);
    vask_test::temp_dir out;
    auto build = vask_test::build_examples_with_cmake(VASK_CMAKE, kSource, out.path(), root() + "/usr", "-Werror");
    ASSERT_EQ(build.exit_code, 0) << describe(build);
    // The imported targets point into the root.
    std::string cache = read_file(out.path() + "/CMakeCache.txt");
    EXPECT_NE(cache.find("VaskExternalDevice_DIR:PATH=" + root() + "/" + kLibDir + "/cmake/VaskExternalDevice\n"),
              std::string::npos)
        << cache;
    expect_snapshot({out.path() + "/room_snapshot"}, root(), root_env());
}

TEST_F(PackageTest, PythonPackageInTheRoot_ShouldRunTheSnapshotExampleAgainstItsSimulator)
{
    ASSERT_EQ(unpack_.exit_code, 0) << describe(unpack_);
    EXPECT_TRUE(std::filesystem::exists(root() + "/usr/lib/python3/dist-packages/vask_external_device/py.typed"));
    std::vector<std::string> env = root_env();
    env.push_back("PYTHONPATH=" + root() + "/usr/lib/python3/dist-packages");
    expect_snapshot({"/usr/bin/python3", kSource + "/examples/python/room_snapshot.py"}, root(), env);
}

TEST_F(PackageTest, ConsolePackageInTheRoot_ShouldServeItsPageFromWhereThePackagePutsIt)
{
    ASSERT_EQ(unpack_.exit_code, 0) << describe(unpack_);
    for (const char *page : {"index.html", "console.js", "console.css", "openapi.json"})
        EXPECT_EQ(read_file(root() + "/usr/share/vask/console/" + page), read_file(kSource + "/tools/console/www/" + page))
            << page;
    std::string unit = read_file(root() + "/lib/systemd/system/vask-console.service");
    EXPECT_NE(unit.find("\nExecStart=/usr/bin/vask-console"), std::string::npos) << unit;
    auto help = run_program({root() + "/usr/bin/vask-console", "--help"}, root_env());
    EXPECT_EQ(help.exit_code, 0) << describe(help);
    EXPECT_NE(help.out.find("the page's folder (/usr/share/vask/console)"), std::string::npos) << describe(help);
    auto page = run_program({VASK_GZIP, "-dc", root() + "/usr/share/man/man8/vask-console.8.gz"});
    EXPECT_TRUE(page.out == read_file(kSource + "/docs/man/vask-console.8"));
}

} // namespace
