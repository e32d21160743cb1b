// SPDX-License-Identifier: MIT
// Restoring the factory default while other processes validate and read the file: the restore is
// one atomic replacement under the exclusive lock, so that nobody ever reads a part of a document.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "config_test_support.h"
#include "libvask_external_device.h"

using namespace std::chrono_literals;
using vask_test::sysroot;

namespace {

// Validators in parallel processes and the rounds of breaking the file that they restore. The
// rounds are many, since an unguarded restore shows a reader a part of the file only now and then.
constexpr int kValidators = 4;
constexpr int kReaders = 2;
constexpr int kRounds = 300;

// What the readers saw of the file the link leads to, read whole and raw.
struct reader_tally {
    std::atomic<long> broken{0};
    std::atomic<long> restored{0};
    std::atomic<long> other{0};
    std::mutex mutex;
    std::string first_other;
};

// Puts `text` in place of the file at `path` by a rename, as one step for any reader.
void replace_atomically(const std::string &path, const std::string &text)
{
    std::string temp = path + ".broken";
    vask_test::write_file(temp, text);
    ASSERT_EQ(rename(temp.c_str(), path.c_str()), 0);
}

} // namespace

TEST(ValidateJsonConfigProcesses, ValidatorsRestoringTogether_ShouldNeverShowAReaderAPartialDocument)
{
    sysroot root;
    const std::string broken = "{\"projector_control\": tru";
    const std::string restored = vask_test::default_document();
    const std::string stop_file = root.dir() + "/stop";

    std::vector<std::unique_ptr<vask_test::child_process>> validators;
    for (int i = 0; i < kValidators; ++i) {
        validators.push_back(std::make_unique<vask_test::child_process>());
        // Each broken text it sees is logged at level 0: to a file of its own, not the test's output.
        ASSERT_TRUE(validators.back()->start({VASK_CONFIG_PROCESS_HELPER, "validate", stop_file}, {},
                                             root.dir() + "/validator" + std::to_string(i) + ".log"));
        ASSERT_TRUE(validators.back()->wait_for_line("ready", 10s));
    }

    reader_tally tally;
    std::atomic<bool> stop_reading{false};
    std::vector<std::thread> readers;
    for (int i = 0; i < kReaders; ++i)
        readers.emplace_back([&] {
            while (!stop_reading) {
                std::string text = vask_test::read_file(root.config_path());
                if (text == broken)
                    ++tally.broken;
                else if (text == restored)
                    ++tally.restored;
                else if (tally.other++ == 0) {
                    std::lock_guard<std::mutex> hold(tally.mutex);
                    tally.first_other = text;
                }
            }
        });

    int rounds_restored = 0;
    for (int round = 0; round < kRounds; ++round) {
        replace_atomically(root.config_path(), broken);
        if (vask_test::eventually([&] { return vask_test::read_file(root.config_path()) == restored; }, 10s))
            ++rounds_restored;
    }
    stop_reading = true;
    for (std::thread &reader : readers)
        reader.join();
    vask_test::write_file(stop_file, "");
    for (auto &validator : validators) {
        // No line reads so: this returns once the validator has ended its output by exiting.
        validator->wait_for_line("\x01 end of output", 20s);
        EXPECT_NE(validator->output().find("validated "), std::string::npos) << validator->output();
    }

    EXPECT_EQ(tally.other.load(), 0) << "first partial text seen:\n" << tally.first_other;
    EXPECT_EQ(rounds_restored, kRounds);
    // The readers did watch both texts come and go.
    EXPECT_GT(tally.broken.load(), 0);
    EXPECT_GT(tally.restored.load(), 0);
    // Still a link to the writable copy, which holds the default.
    struct stat link {};
    ASSERT_EQ(lstat(root.path("/etc/external_device.json").c_str(), &link), 0);
    EXPECT_TRUE(S_ISLNK(link.st_mode));
    EXPECT_EQ(root.config(), restored);
    RecordProperty("partial_reads", static_cast<int>(tally.other.load()));
}
