// SPDX-License-Identifier: MIT
// A call's timeout is counted on the monotonic clock: the box's wall clock set forward or back by
// an hour while the call waits neither ends the call early nor keeps it waiting. The caller is a
// process of its own (bus_peer) under libfaketime, which moves only that process's wall clock, as
// told by a file the test rewrites; the call's duration is measured here on the steady clock.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <thread>

#include "bus_test_fixture.h"
#include "json_text.h"

using namespace std::chrono_literals;

namespace {

// bus_peer's "call" waits this long (seconds) for a reply; the call must end within a second of it.
constexpr double kCallTimeout = 5;
constexpr double kTolerance = 1;

class ClockJumpTest : public BusTest {
protected:
    void SetUp() override
    {
        BusTest::SetUp();
        service_->no_reply("silent");
        set_offset("+0");
    }

    // Replaced whole by a rename, so that the caller never reads a half-written offset.
    void set_offset(const char *offset)
    {
        vask_test::write_file(offset_file() + ".new", std::string(offset) + "\n");
        ASSERT_EQ(rename((offset_file() + ".new").c_str(), offset_file().c_str()), 0);
    }

    std::string offset_file() const { return dir_.path() + "/faketime"; }

    // The environment of a process whose wall clock follows the offset file at every reading.
    std::vector<std::string> faked_clock_env() const
    {
        const char *asan = getenv("ASAN_OPTIONS");
        return {"LD_PRELOAD=" VASK_FAKETIME_LIBRARY, "FAKETIME_TIMESTAMP_FILE=" + offset_file(),
                "FAKETIME_NO_CACHE=1", "FAKETIME_DONT_FAKE_MONOTONIC=1",
                // The preloaded library comes before the sanitizer's runtime; that order is harmless here.
                std::string("ASAN_OPTIONS=") + (asan != nullptr ? asan : "") + ":verify_asan_link_order=0"};
    }

    // Runs one call of a method that never answers from a caller under the faked clock. `during`
    // runs once the request has reached the service. Returns the seconds from then to the caller's exit.
    double timed_silent_call(const std::function<void()> &during)
    {
        vask_test::run_result result;
        std::chrono::steady_clock::time_point ended;
        std::thread caller([&] {
            result = vask_test::run_program({VASK_TEST_HELPER, "call", "clock_jump", "external_device", "silent", "{}"},
                                            faked_clock_env(), 60s);
            ended = std::chrono::steady_clock::now();
        });
        bool arrived = vask_test::eventually([&] { return !service_->calls().empty(); }, 20s);
        auto start = std::chrono::steady_clock::now();
        if (arrived)
            during();
        caller.join();
        EXPECT_TRUE(arrived) << "the request never reached the service";
        EXPECT_EQ(result.out, std::to_string(BUS_ERR_TIMEOUT) + " \n") << result.err;
        EXPECT_EQ(result.exit_code, 1) << result.err;
        return std::chrono::duration<double>(ended - start).count();
    }

    vask_test::temp_dir dir_;
};

} // namespace

TEST_F(ClockJumpTest, FakedClock_ShouldMoveTheWallClockOfTheCallerOnly)
{
    // The harness itself: a process with this environment sees the hour, the test process does not.
    set_offset("+3600");
    auto shown = vask_test::run_program({"/bin/date", "+%s"}, faked_clock_env());
    ASSERT_EQ(shown.exit_code, 0) << shown.err;
    long difference = std::stol(shown.out) - static_cast<long>(time(nullptr));
    EXPECT_GE(difference, 3600 - 5);
    EXPECT_LE(difference, 3600 + 5);
}

TEST_F(ClockJumpTest, WallClockForwardAnHourDuringACall_ShouldNotShortenItsTimeout)
{
    auto elapsed = timed_silent_call([&] { set_offset("+3600"); });
    EXPECT_GE(elapsed, kCallTimeout - kTolerance);
    EXPECT_LE(elapsed, kCallTimeout + kTolerance);
}

TEST_F(ClockJumpTest, WallClockBackAnHourDuringACall_ShouldNotLengthenItsTimeout)
{
    auto elapsed = timed_silent_call([&] { set_offset("-3600"); });
    EXPECT_GE(elapsed, kCallTimeout - kTolerance);
    EXPECT_LE(elapsed, kCallTimeout + kTolerance);
}

TEST_F(ClockJumpTest, WallClockSteppedBackAndForthThroughoutACall_ShouldNotMoveItsTimeout)
{
    // The clock swings between an hour ahead and an hour behind from before the call until after
    // it, so that every reading the caller makes, whenever it makes it, may be off by an hour.
    std::atomic<bool> stop{false};
    std::thread stepper([&] {
        for (bool ahead = true; !stop; ahead = !ahead) {
            set_offset(ahead ? "+3600" : "-3600");
            std::this_thread::sleep_for(20ms);
        }
    });
    auto elapsed = timed_silent_call([] {});
    stop = true;
    stepper.join();
    EXPECT_GE(elapsed, kCallTimeout - kTolerance);
    EXPECT_LE(elapsed, kCallTimeout + kTolerance);
}
