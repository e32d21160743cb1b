// SPDX-License-Identifier: MIT
// mic_monitor: prints every microphone that goes on or off, as the box's service reports it.
//
//   mic_monitor [--count N] [--timeout SECONDS]
//
// Stops after N microphone events (default 4), or after SECONDS (default 30) with exit status 1
// when fewer arrived. The bus is the one VASK_BUS_URL names.
#include <libvask_external_device.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

std::mutex lock;
std::condition_variable changed;
int events_seen = 0;

// Runs on the bus library's dispatch thread, one signal at a time. The record is freed when the
// callback returns, so everything is printed here and nothing is kept.
void on_microphone(const char *event, void *data, void * /*user*/)
{
    const auto *mic = static_cast<const sig_mic_on_data *>(data);
    // "non_list_mic_event": a microphone the mic central does not have on its list.
    const char *kind = std::strcmp(event, "mic_on_event") == 0 ? "microphone" : "unlisted microphone";
    std::printf("%s %s/%s %s\n", kind, mic->group.c_str(), mic->id.c_str(), mic->on ? "on" : "off");
    std::fflush(stdout);
    {
        std::lock_guard<std::mutex> guard(lock);
        ++events_seen;
    }
    changed.notify_all();
}

} // namespace

int main(int argc, char **argv)
{
    int count = 4;
    int timeout_s = 30;
    bool usage_error = argc % 2 == 0; // every option takes a value
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--count") == 0)
            count = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--timeout") == 0)
            timeout_s = std::atoi(argv[i + 1]);
        else
            usage_error = true;
    }
    if (usage_error) {
        std::fprintf(stderr, "usage: mic_monitor [--count N] [--timeout SECONDS]\n");
        return 2;
    }

    if (ed_init() != 0) {
        std::fprintf(stderr, "mic_monitor: cannot open the library\n");
        return 1;
    }
    // Subscribing waits for the broker's acknowledgement, so every event after this line arrives.
    ed_register_signal("mic_on_event", on_microphone);
    ed_register_signal("non_list_mic_event", on_microphone);
    std::printf("mic_monitor: listening\n");
    std::fflush(stdout);

    bool complete;
    {
        std::unique_lock<std::mutex> guard(lock);
        complete = changed.wait_for(guard, std::chrono::seconds(timeout_s), [&] { return events_seen >= count; });
    }

    // Unregistering waits for a callback still running; only then may the library be closed.
    ed_unregister_signal("mic_on_event");
    ed_unregister_signal("non_list_mic_event");
    ed_release();
    std::printf("mic_monitor: %s\n", complete ? "done" : "timed out");
    return complete ? 0 : 1;
}
