// SPDX-License-Identifier: MIT
// voting_console: runs a delegate vote and prints the tallies as the votes arrive.
//
//   voting_console [--votes N] [--timeout SECONDS]
//
// Opens a vote, starts it, prints "voting_console: vote running", then one line per vote counted.
// After N votes (default 3) it stops the vote, prints the result and closes the vote; after
// SECONDS (default 30) without N votes it does the same and exits with status 1.
#include <libvask_external_device.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

// The actions of ed_set_voting, selected by ed_voting_info::status.
enum { kEnter = 0, kStop = 1, kStart = 2, kExit = 3 };
// The status the service reports while votes are counted.
constexpr int kRunning = 2;

std::mutex lock;
std::condition_variable changed;
int votes_counted = 0;

// Runs on the bus library's dispatch thread. The service reports every change of the vote; only
// the counted votes are printed, so the output does not depend on when the other reports arrive.
void on_voting_results(const char * /*event*/, void *data, void * /*user*/)
{
    const auto *vote = static_cast<const sig_voting_results_data *>(data);
    if (vote->status != kRunning || vote->total == 0)
        return;
    std::printf("tally %d: agree %d, disagree %d, abandon %d\n", vote->total, vote->agree, vote->disagree,
                vote->abandon);
    std::fflush(stdout);
    {
        std::lock_guard<std::mutex> guard(lock);
        votes_counted = vote->total;
    }
    changed.notify_all();
}

int step(int action, ed_voting_info *info)
{
    info->status = action;
    return ed_set_voting(*info);
}

} // namespace

int main(int argc, char **argv)
{
    int votes = 3;
    int timeout_s = 30;
    bool usage_error = argc % 2 == 0; // every option takes a value
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--votes") == 0)
            votes = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--timeout") == 0)
            timeout_s = std::atoi(argv[i + 1]);
        else
            usage_error = true;
    }
    if (usage_error) {
        std::fprintf(stderr, "usage: voting_console [--votes N] [--timeout SECONDS]\n");
        return 2;
    }

    if (ed_init() != 0) {
        std::fprintf(stderr, "voting_console: cannot open the library\n");
        return 1;
    }
    // Registered before the vote starts, so that no vote is missed.
    ed_register_signal("voting_results_event", on_voting_results);

    ed_voting_info info{};
    int rc = step(kEnter, &info);
    if (rc == 0)
        rc = step(kStart, &info);
    if (rc != 0) {
        std::fprintf(stderr, "voting_console: the vote cannot be started (%d)\n", rc);
        ed_unregister_signal("voting_results_event");
        ed_release();
        return 1;
    }
    std::printf("voting_console: vote running\n");
    std::fflush(stdout);

    bool complete;
    {
        std::unique_lock<std::mutex> guard(lock);
        complete = changed.wait_for(guard, std::chrono::seconds(timeout_s), [&] { return votes_counted >= votes; });
    }
    ed_unregister_signal("voting_results_event");

    // Stopping answers the final result in `info`.
    rc = step(kStop, &info);
    if (rc == 0)
        std::printf("result: agree %d, disagree %d, abandon %d, total %d\n", info.agree, info.disagree, info.abandon,
                    info.total);
    else
        std::fprintf(stderr, "voting_console: the vote cannot be stopped (%d)\n", rc);
    if (step(kExit, &info) == 0)
        std::printf("voting_console: vote closed\n");
    ed_release();
    return complete && rc == 0 ? 0 : 1;
}
