// SPDX-License-Identifier: MIT
// Several processes on one configuration file: the file lock beside it, writers that must not
// lose each other's updates, and writers killed in the middle of a write.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <random>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "config_test_support.h"
#include "libvask_external_device.h"

namespace {

using namespace std::chrono_literals;

// The factory document with "external_control"/"tcp"/"port" set to `port`, printed as the library
// prints it.
std::string document_with_port(const std::string &port)
{
    cJSON *tree = cJSON_Parse(vask_test::default_document().c_str());
    cJSON *tcp = cJSON_GetObjectItemCaseSensitive(cJSON_GetObjectItemCaseSensitive(tree, "external_control"), "tcp");
    cJSON_ReplaceItemInObjectCaseSensitive(tcp, "port", cJSON_CreateString(port.c_str()));
    char *text = cJSON_Print(tree);
    std::string result = text != nullptr ? text : "";
    cJSON_free(text);
    cJSON_Delete(tree);
    return result;
}

// The kill rounds: the build's count, unless VASK_TEST_KILL_ROUNDS asks for fewer (a run under
// valgrind starts each helper tens of times slower).
int kill_rounds()
{
    const char *text = getenv("VASK_TEST_KILL_ROUNDS");
    int rounds = text != nullptr ? atoi(text) : 0;
    return rounds > 0 && rounds < VASK_KILL_ROUNDS ? rounds : VASK_KILL_ROUNDS;
}

// The temporary files of the configuration writers in `folder`.
std::vector<std::string> temp_files(const std::string &folder)
{
    std::vector<std::string> names;
    std::unique_ptr<DIR, int (*)(DIR *)> dir(opendir(folder.c_str()), closedir);
    if (!dir)
        return names;
    while (const struct dirent *entry = readdir(dir.get()))
        if (strncmp(entry->d_name, ".external_device.json.tmp", 25) == 0)
            names.push_back(entry->d_name);
    return names;
}

// The port of the tcp block of `section` in document `text`, or "<missing>".
std::string port_in(const std::string &text, const char *section, bool external_control)
{
    cJSON *tree = cJSON_Parse(text.c_str());
    const cJSON *block = cJSON_GetObjectItemCaseSensitive(tree, section);
    if (!external_control)
        block = cJSON_GetObjectItemCaseSensitive(block, "parameters");
    block = cJSON_GetObjectItemCaseSensitive(block, "tcp");
    const cJSON *port = cJSON_GetObjectItemCaseSensitive(block, "port");
    std::string result = cJSON_IsString(port) ? port->valuestring : "<missing>";
    cJSON_Delete(tree);
    return result;
}

bool parses(const std::string &text)
{
    cJSON *tree = cJSON_Parse(text.c_str());
    bool object = cJSON_IsObject(tree);
    cJSON_Delete(tree);
    return object;
}

// Waits (bounded) until the child has closed its output by exiting, then reaps it: true when it
// exited with 0. A child that is still running then is stopped and counts as a failure.
bool exited_cleanly(vask_test::child_process &child)
{
    // No line ever reads so: this returns at the end of the output, once the exit status is fixed.
    child.wait_for_line("\x01 end of output", std::chrono::seconds(20));
    int status = child.stop(SIGTERM);
    return status >= 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(ConfigProcessesTest, ConfigCycle_ShouldCreateLockFileBesideResolvedFile)
{
    vask_test::sysroot root;
    external_control_info info{};
    ASSERT_EQ(ReadExternalControlConfig(&info), 0);
    struct stat lock;
    ASSERT_EQ(lstat((root.config_path() + ".lock").c_str(), &lock), 0);
    EXPECT_TRUE(S_ISREG(lock.st_mode));
    EXPECT_EQ(lock.st_mode & 07777, 0640u);
    // Beside the file the link leads to, not beside the link: every path to the file locks one file.
    EXPECT_NE(access(root.path("/etc/external_device.json.lock").c_str(), F_OK), 0);
}

TEST(ConfigProcessesTest, HeldFileLock_ShouldMakeWriterOfOtherProcessWait)
{
    vask_test::sysroot root;
    root.set_config(document_with_port("1111"));
    int fd = open((root.config_path() + ".lock").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(flock(fd, LOCK_SH), 0);

    vask_test::child_process writer;
    ASSERT_TRUE(writer.start({VASK_CONFIG_PROCESS_HELPER, "once", "3333"}));
    // Bounded: the writer must still be waiting for the lock when the time is up.
    EXPECT_FALSE(writer.wait_for_line("result 0", 500ms));
    EXPECT_EQ(root.config(), document_with_port("1111"));

    close(fd);
    EXPECT_TRUE(writer.wait_for_line("result 0", 10s)) << writer.output();
    EXPECT_TRUE(exited_cleanly(writer));
    EXPECT_EQ(root.config(), document_with_port("3333"));
}

TEST(ConfigProcessesTest, UnavailableLockFile_ShouldGoOnUnderProcessLockAndLogOnce)
{
    vask_test::sysroot root;
    // A link where the lock file belongs is never followed, so the lock file cannot be opened, as
    // root too (a read-only folder stops only an ordinary user).
    ASSERT_EQ(symlink("nowhere", (root.config_path() + ".lock").c_str()), 0);
    vask_test::log_capture capture;
    external_control_info info{};
    EXPECT_EQ(ReadExternalControlConfig(&info), 0);
    EXPECT_EQ(info.port, "23");
    info.port = "4444";
    EXPECT_EQ(UpdateExternalControlConfig(&info), 0);
    EXPECT_EQ(port_in(root.config(), "external_control", true), "4444");
    EXPECT_EQ(ReadExternalControlConfig(&info), 0);

    int unavailable = 0;
    for (const vask_test::log_line &line : capture.lines())
        if (line.message.find("lock file ") == 0 && line.message.find(" unavailable, errno=") != std::string::npos) {
            ++unavailable;
            EXPECT_EQ(line.level, 1) << line.message;
            // Beside the file the link leads to (the path is not made canonical: "etc/../var/...").
            EXPECT_NE(line.message.find("/var/lib/vask/etc/external_device.json.lock unavailable"), std::string::npos)
                << line.message;
        }
    EXPECT_EQ(unavailable, 1);
}

TEST(ConfigProcessesTest, Write_ShouldRemoveTempFilesOfDeadWritersOnly)
{
    vask_test::sysroot root;
    // A process id that no longer runs: a child that has exited and been reaped.
    pid_t dead = fork();
    ASSERT_GE(dead, 0);
    if (dead == 0)
        _exit(0);
    int status = 0;
    ASSERT_EQ(waitpid(dead, &status, 0), dead);
    std::string folder = root.path("/var/lib/vask/etc");
    std::string dead_temp = folder + "/.external_device.json.tmp" + std::to_string(dead) + ".0";
    // The parent of the test is alive: its file may be about to be renamed.
    std::string live_temp = folder + "/.external_device.json.tmp" + std::to_string(getppid()) + ".0";
    vask_test::write_file(dead_temp, "{");
    vask_test::write_file(live_temp, "{");

    external_control_info info{};
    ASSERT_EQ(ReadExternalControlConfig(&info), 0);
    EXPECT_EQ(access(dead_temp.c_str(), F_OK), 0) << "a reader removes nothing";
    ASSERT_EQ(UpdateExternalControlConfig(&info), 0);
    EXPECT_NE(access(dead_temp.c_str(), F_OK), 0);
    EXPECT_EQ(access(live_temp.c_str(), F_OK), 0);
}

TEST(ConfigProcessesTest, WritesOfFourProcesses_ShouldLoseNoUpdate)
{
    constexpr int kWrites = 200;
    struct writer_section {
        const char *name;
        bool external_control;
    };
    const writer_section sections[] = {{"external_control", true},
                                       {"miccentral_control", false},
                                       {"castdeck_control", false},
                                       {"lock_test_control", false}};
    vask_test::sysroot root;
    std::string go_file = root.dir() + "/go";
    std::vector<std::unique_ptr<vask_test::child_process>> writers;
    for (const writer_section &section : sections) {
        writers.push_back(std::make_unique<vask_test::child_process>());
        ASSERT_TRUE(writers.back()->start(
            {VASK_CONFIG_PROCESS_HELPER, "write", section.name, std::to_string(kWrites), go_file}));
    }
    for (auto &writer : writers)
        ASSERT_TRUE(writer->wait_for_line("ready", 10s));
    // All four start together, so that their cycles overlap.
    vask_test::write_file(go_file, "");

    for (size_t i = 0; i < writers.size(); ++i) {
        ASSERT_TRUE(writers[i]->wait_for_line("done", 60s)) << sections[i].name << ": " << writers[i]->output();
        EXPECT_NE(writers[i]->output().find("lost 0 failed 0\n"), std::string::npos)
            << sections[i].name << ": " << writers[i]->output();
        EXPECT_TRUE(exited_cleanly(*writers[i])) << sections[i].name;
    }

    std::string text = root.config();
    ASSERT_TRUE(parses(text)) << text;
    for (const writer_section &section : sections)
        EXPECT_EQ(port_in(text, section.name, section.external_control), std::to_string(kWrites)) << section.name;
    // The sections nobody wrote are all still there.
    std::vector<std::string> names = vask_test::section_names(text);
    for (const char *kept : {"projector_control", "external_rs232_config", "zorvo_config"})
        EXPECT_NE(std::find(names.begin(), names.end(), kept), names.end()) << kept;
    EXPECT_TRUE(temp_files(root.path("/var/lib/vask/etc")).empty());
}

TEST(ConfigProcessesTest, KilledWriter_ShouldLeaveOldOrNewDocument)
{
    vask_test::sysroot root;
    const std::string first = document_with_port("1111");
    const std::string second = document_with_port("2222");
    root.set_config(first);
    std::string folder = root.path("/var/lib/vask/etc");

    // Seeded, so that a failing round can be repeated.
    std::mt19937 random(20261122);
    std::uniform_int_distribution<int> delay_us(0, VASK_KILL_MAX_DELAY_US);
    int rounds_with_temp = 0;
    const int rounds = kill_rounds();
    auto started = std::chrono::steady_clock::now();
    for (int round = 0; round < rounds; ++round) {
        vask_test::child_process writer;
        ASSERT_TRUE(writer.start({VASK_CONFIG_PROCESS_HELPER, "alternate"})) << round;
        // The first write of this writer succeeded: the temporary files of earlier (killed) writers
        // must be gone now.
        ASSERT_TRUE(writer.wait_for_line("ready", 10s)) << round << ": " << writer.output();
        struct timespec pause = {0, static_cast<long>(delay_us(random)) * 1000};
        nanosleep(&pause, nullptr);
        pid_t killed = writer.pid();
        int status = writer.stop(SIGKILL);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << round << ": " << writer.output();

        std::string text = root.config();
        ASSERT_TRUE(text == first || text == second) << "round " << round << ":\n" << text;
        std::string own = ".external_device.json.tmp" + std::to_string(killed) + ".";
        for (const std::string &name : temp_files(folder))
            ASSERT_EQ(name.compare(0, own.size(), own), 0) << "round " << round << ": " << name;
        if (!temp_files(folder).empty())
            ++rounds_with_temp;
    }
    vask_test::run_result last = vask_test::run_program({VASK_CONFIG_PROCESS_HELPER, "once", "1111"});
    EXPECT_EQ(last.out, "result 0\n") << last.err;
    EXPECT_EQ(root.config(), first);
    EXPECT_TRUE(temp_files(folder).empty());
    auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    // How often a kill hit a writer between creating and renaming its file.
    RecordProperty("rounds_with_temp_file", rounds_with_temp);
    printf("%d rounds in %.1f s, %d killed with a temporary file\n", rounds, seconds, rounds_with_temp);
}

} // namespace
