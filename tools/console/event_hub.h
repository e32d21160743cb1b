// SPDX-License-Identifier: MIT
// The events the console streams: a ring of the latest records, each with a sequence number, read by
// every /api/events client at its own pace.
#ifndef VASK_CONSOLE_EVENT_HUB_H
#define VASK_CONSOLE_EVENT_HUB_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace console {

class event_hub {
public:
    // Keeps the last `capacity` records and admits at most `max_clients` readers at once.
    event_hub(size_t capacity, size_t max_clients);

    // Appends {"seq":N,"event":event,"data":data} (data: a JSON text) and wakes the readers.
    // Never blocks on a reader: a reader that falls `capacity` records behind loses the oldest.
    void publish(const std::string &event, const std::string &data);

    // A record read by next(): its sequence number and its JSON text.
    struct record {
        uint64_t seq;
        std::string text;
    };
    enum class wait_result { records, timeout, closed };
    // Waits at most `wait` for records after `cursor`, appends them (at most `batch`) to `out` and
    // moves `cursor` past them. `lost` receives how many records after `cursor` had already left the
    // ring (added to the hub's dropped count).
    wait_result next(uint64_t &cursor, std::vector<record> &out, uint64_t &lost, std::chrono::milliseconds wait,
                     size_t batch = 256);

    // The sequence number of the last record (0 before the first).
    uint64_t last_seq() const;

    // Readers: false when `max_clients` are already reading.
    bool add_client();
    void remove_client();

    // Wakes every reader with wait_result::closed, now and from then on.
    void close();

    struct counters {
        uint64_t published;
        uint64_t dropped; // records readers lost because they fell behind
        size_t clients;
    };
    counters stats() const;

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<record> ring_;
    size_t capacity_;
    size_t max_clients_;
    size_t clients_ = 0;
    uint64_t seq_ = 0;
    uint64_t dropped_ = 0;
    bool closed_ = false;
};

} // namespace console

#endif
