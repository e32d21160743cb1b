// SPDX-License-Identifier: MIT
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "log_capture.h"
#include "process.h"
#include "tulo_log.h"

using vask_test::log_capture;

TEST(TuloLog, WriteNewline_ShouldHandTheSinkEveryField)
{
    log_capture capture;
    TULO_LOG_write_newline(59, 0, "libvask_external_device", 109, "ed_init", "value %d of %s", 7, "x");
    auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].module, 59);
    EXPECT_EQ(lines[0].level, 0);
    EXPECT_EQ(lines[0].source, "libvask_external_device");
    EXPECT_EQ(lines[0].line, 109);
    EXPECT_EQ(lines[0].function, "ed_init");
    EXPECT_EQ(lines[0].message, "value 7 of x");
}

TEST(TuloLog, WriteNewline_ShouldKeepATrailingNewlineOfTheMessage)
{
    log_capture capture;
    TULO_LOG_write_newline(59, 0, "libvask_external_device", 1448, "ed_signal_handler", "not supported topic\n");
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0].message, "not supported topic\n");
}

TEST(TuloLog, SetLevel_ShouldDropLinesAboveTheThreshold)
{
    log_capture capture(TULO_LOG_LEVEL_WARNING);
    TULO_LOG_write_newline(1, 2, "s", 1, "f", "trace");
    TULO_LOG_write_newline(1, 1, "s", 2, "f", "warning");
    TULO_LOG_write_newline(1, 0, "s", 3, "f", "error");
    TULO_LOG_set_level(-1);
    TULO_LOG_write_newline(1, 0, "s", 4, "f", "dropped");
    auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].message, "warning");
    EXPECT_EQ(lines[1].message, "error");
}

// The threshold is taken from the environment at the first line a process writes, so these run in a
// fresh process: the test program itself, started again for one of its disabled tests.
namespace {

std::vector<std::string> lines_seen_with_default_threshold()
{
    std::vector<std::string> seen;
    TULO_LOG_set_sink([](void *user, int, int, const char *, int, const char *, const char *message) {
        static_cast<std::vector<std::string> *>(user)->push_back(message);
    }, &seen);
    TULO_LOG_write_newline(1, 2, "s", 1, "f", "trace");
    TULO_LOG_write_newline(1, 1, "s", 1, "f", "warning");
    TULO_LOG_write_newline(1, 0, "s", 1, "f", "error");
    TULO_LOG_set_sink(nullptr, nullptr);
    return seen;
}

// Runs the test `name` of this program in a new process with TULO_LOG_LEVEL set to `level`
// ("" leaves it unset) and returns its exit code.
int run_fresh(const std::string &name, const std::string &level)
{
    std::vector<std::string> env;
    if (!level.empty())
        env.push_back("TULO_LOG_LEVEL=" + level);
    else
        unsetenv("TULO_LOG_LEVEL");
    // The program's real path: a memory checker running this test cannot start /proc/self/exe.
    char self[4096];
    ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        return -1;
    self[length] = '\0';
    auto r = vask_test::run_program(
        {self, "--gtest_also_run_disabled_tests", "--gtest_filter=TuloLogFresh.DISABLED_" + name}, env);
    return r.out.find("[  PASSED  ] 1 test") != std::string::npos ? r.exit_code : -1;
}

} // namespace

TEST(TuloLogFresh, DISABLED_TraceLevel)
{
    EXPECT_EQ(lines_seen_with_default_threshold(), (std::vector<std::string>{"trace", "warning", "error"}));
}

TEST(TuloLogFresh, DISABLED_Unset)
{
    EXPECT_EQ(lines_seen_with_default_threshold(), (std::vector<std::string>{"warning", "error"}));
}

TEST(TuloLogFresh, DISABLED_ErrorLevel)
{
    EXPECT_EQ(lines_seen_with_default_threshold(), (std::vector<std::string>{"error"}));
}

TEST(TuloLog, DefaultThreshold_ShouldComeFromTheEnvironment)
{
    EXPECT_EQ(run_fresh("TraceLevel", "2"), 0);
    EXPECT_EQ(run_fresh("ErrorLevel", "0"), 0);
}

TEST(TuloLog, DefaultThreshold_ShouldBeWarningWhenUnsetOrNotANumber)
{
    EXPECT_EQ(run_fresh("Unset", ""), 0);
    EXPECT_EQ(run_fresh("Unset", "loud"), 0);
}

TEST(TuloLog, WriteNewline_ShouldFormatLongMessagesWhole)
{
    log_capture capture;
    std::string long_text(5000, 'q');
    TULO_LOG_write_newline(1, 0, "s", 1, "f", "<%s>", long_text.c_str());
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0].message, "<" + long_text + ">");
}

TEST(TuloLog, DefaultSink_ShouldWriteWholeLinesFromManyThreads)
{
    vask_test::temp_dir dir;
    std::string path = dir.path() + "/stderr";
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(file, 0);
    int saved = dup(STDERR_FILENO);
    dup2(file, STDERR_FILENO);
    TULO_LOG_set_level(2);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 1000; ++i)
                TULO_LOG_write_newline(7, 1, "utils", 42, "worker", "thread %d line %d end", t, i);
        });
    for (auto &thread : threads)
        thread.join();
    dup2(saved, STDERR_FILENO);
    close(saved);
    close(file);

    FILE *in = fopen(path.c_str(), "r");
    ASSERT_NE(in, nullptr);
    char line[512];
    int count = 0;
    int counts[8] = {0};
    while (fgets(line, sizeof line, in) != nullptr) {
        ++count;
        const char *marker = strstr(line, "[7] warning utils:42 worker: thread ");
        ASSERT_NE(marker, nullptr) << line;
        int t = -1, i = -1;
        ASSERT_EQ(sscanf(marker, "[7] warning utils:42 worker: thread %d line %d end", &t, &i), 2) << line;
        ASSERT_TRUE(t >= 0 && t < 8);
        EXPECT_EQ(i, counts[t]++) << "lines of one thread keep their order";
        EXPECT_EQ(line[strlen(line) - 1], '\n');
    }
    fclose(in);
    EXPECT_EQ(count, 8000);
}
