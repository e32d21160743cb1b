// SPDX-License-Identifier: MIT
// A client of /api/events on a thread of its own, collecting the records it receives.
#ifndef VASK_TEST_CONSOLE_EVENT_READER_H
#define VASK_TEST_CONSOLE_EVENT_READER_H

#include <atomic>
#include <httplib.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vask_test {

class event_reader {
public:
    // Connects to the console on `port` (plain HTTP) and reads until stopped.
    explicit event_reader(int port, httplib::Headers headers = {}) : client_("127.0.0.1", port)
    {
        client_.set_read_timeout(30, 0);
        thread_ = std::thread([this, headers] {
            httplib::Result result = client_.Get("/api/events", headers, [this](const char *data, size_t length) {
                std::lock_guard<std::mutex> lock(mutex_);
                pending_.append(data, length);
                for (size_t end; (end = pending_.find("\n\n")) != std::string::npos;) {
                    std::string frame = pending_.substr(0, end);
                    pending_.erase(0, end + 2);
                    size_t at = frame.find("data: ");
                    if (at != std::string::npos)
                        records_.push_back(frame.substr(at + 6, frame.find('\n', at) - at - 6));
                }
                return !stopping_;
            });
            status_ = result ? result->status : -1;
            done_ = true;
        });
    }
    ~event_reader() { stop(); }

    // The JSON texts of the records received so far.
    std::vector<std::string> records()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return records_;
    }
    // The records whose text holds `needle`.
    size_t count(const std::string &needle)
    {
        size_t n = 0;
        for (const std::string &record : records())
            n += record.find(needle) != std::string::npos;
        return n;
    }
    bool done() const { return done_; }
    int status() const { return status_; }

    void stop()
    {
        stopping_ = true;
        client_.stop();
        if (thread_.joinable())
            thread_.join();
    }

private:
    httplib::Client client_;
    std::thread thread_;
    std::mutex mutex_;
    std::string pending_;
    std::vector<std::string> records_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> done_{false};
    std::atomic<int> status_{0};
};

} // namespace vask_test

#endif
