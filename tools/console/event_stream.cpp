// SPDX-License-Identifier: MIT
#include <memory>

#include "http_parts.h"

namespace console {

namespace {

// One client's place in the hub; gives the client's slot back when the stream ends.
struct stream_state {
    stream_state(event_hub &owner, uint64_t from, std::string first) : hub(owner), cursor(from), greeting(std::move(first)) {}
    ~stream_state() { hub.remove_client(); }
    stream_state(const stream_state &) = delete;
    stream_state &operator=(const stream_state &) = delete;
    event_hub &hub;
    uint64_t cursor;
    std::string greeting; // the presence record sent first
};

uint64_t resume_point(event_hub &hub, const httplib::Request &request)
{
    uint64_t last = hub.last_seq();
    std::string id = request.get_header_value("Last-Event-ID");
    if (id.empty() || id.size() > 19 || id.find_first_not_of("0123456789") != std::string::npos)
        return last;
    uint64_t asked = std::stoull(id);
    // An id from before a restart of the console names nothing here: start from now.
    return asked <= last ? asked : last;
}

std::string frame(const event_hub::record &record)
{
    return "id: " + std::to_string(record.seq) + "\ndata: " + record.text + "\n\n";
}

} // namespace

void stream_events(event_hub &hub, room_events &events, const httplib::Request &request,
                   httplib::Response &response)
{
    if (!hub.add_client()) {
        response.status = 503;
        response.set_content("{\"code\":-503,\"error\":\"too many event clients\"}", kJsonType);
        return;
    }
    auto state = std::make_shared<stream_state>(
        hub, resume_point(hub, request),
        "retry: 1000\ndata: {\"seq\":0,\"event\":\"presence\",\"data\":{\"state\":\"" + events.presence() +
            "\"}}\n\n");
    response.set_header("X-Accel-Buffering", "no");
    response.set_chunked_content_provider(
        "text/event-stream", [state](size_t, httplib::DataSink &sink) {
            if (!state->greeting.empty()) {
                std::string greeting;
                greeting.swap(state->greeting);
                return sink.write(greeting.data(), greeting.size());
            }
            std::vector<event_hub::record> records;
            uint64_t lost = 0;
            switch (state->hub.next(state->cursor, records, lost, kKeepAlive)) {
            case event_hub::wait_result::closed:
                return false;
            case event_hub::wait_result::timeout: {
                static const char keep_alive[] = ": keep-alive\n\n";
                return sink.write(keep_alive, sizeof keep_alive - 1);
            }
            case event_hub::wait_result::records:
                break;
            }
            std::string text;
            if (lost > 0)
                text += "data: {\"seq\":0,\"event\":\"lost\",\"data\":{\"count\":" + std::to_string(lost) + "}}\n\n";
            for (const event_hub::record &record : records)
                text += frame(record);
            return sink.write(text.data(), text.size());
        });
}

} // namespace console
