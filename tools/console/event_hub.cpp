// SPDX-License-Identifier: MIT
#include "event_hub.h"

namespace console {

event_hub::event_hub(size_t capacity, size_t max_clients) : capacity_(capacity), max_clients_(max_clients) {}

void event_hub::publish(const std::string &event, const std::string &data)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++seq_;
        ring_.push_back(record{seq_, "{\"seq\":" + std::to_string(seq_) + ",\"event\":\"" + event +
                                         "\",\"data\":" + data + "}"});
        if (ring_.size() > capacity_)
            ring_.pop_front();
    }
    changed_.notify_all();
}

event_hub::wait_result event_hub::next(uint64_t &cursor, std::vector<record> &out, uint64_t &lost,
                                       std::chrono::milliseconds wait, size_t batch)
{
    std::unique_lock<std::mutex> lock(mutex_);
    lost = 0;
    if (!changed_.wait_for(lock, wait, [&] { return closed_ || seq_ > cursor; }))
        return wait_result::timeout;
    if (closed_)
        return wait_result::closed;
    uint64_t first = ring_.front().seq;
    if (cursor + 1 < first) {
        lost = first - cursor - 1;
        dropped_ += lost;
        cursor = first - 1;
    }
    for (size_t at = static_cast<size_t>(cursor + 1 - first); at < ring_.size() && batch > 0; ++at, --batch) {
        out.push_back(ring_[at]);
        cursor = ring_[at].seq;
    }
    return wait_result::records;
}

uint64_t event_hub::last_seq() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return seq_;
}

bool event_hub::add_client()
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (clients_ >= max_clients_ || closed_)
        return false;
    ++clients_;
    return true;
}

void event_hub::remove_client()
{
    std::lock_guard<std::mutex> lock(mutex_);
    --clients_;
}

void event_hub::close()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
    }
    changed_.notify_all();
}

event_hub::counters event_hub::stats() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return counters{seq_, dropped_, clients_};
}

} // namespace console
