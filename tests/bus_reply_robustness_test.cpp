// SPDX-License-Identifier: MIT
// Replies that are not the caller's own (duplicated, foreign, misrouted, empty or oversized), put
// on a real broker by a raw MQTT v5 peer that answers the requests itself.
#include <atomic>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "bus_test_fixture.h"
#include "mqtt_watcher.h"

using namespace std::chrono_literals;

namespace {

constexpr const char *kRawService = "raw_service";

struct request {
    std::string body;
    std::string response_topic;
    std::string correlation;
};

// One reply as the peer publishes it; an empty correlation is left out of the message.
struct wire_reply {
    std::string topic;
    std::string payload;
    std::string correlation;
};

// What the peer sends for the request it just received; `earlier` holds the requests before it.
using reply_script = std::function<std::vector<wire_reply>(const request &, const std::vector<request> &earlier)>;

// A raw MQTT v5 client that serves "raw_service": each request, in arrival order, gets the replies
// its script makes of it, published in order on one connection (so the broker keeps that order
// towards each caller).
class raw_responder {
public:
    raw_responder(int port, reply_script script) : watcher_(port), script_(std::move(script))
    {
        ready_ = watcher_.connected() && watcher_.subscribe(std::string(kRawService) + "/method/+", 0);
        if (ready_)
            server_ = std::thread([this] { serve(); });
    }

    ~raw_responder()
    {
        stop_ = true;
        if (server_.joinable())
            server_.join();
    }

    raw_responder(const raw_responder &) = delete;
    raw_responder &operator=(const raw_responder &) = delete;

    bool ready() const { return ready_; }
    size_t requests() const { return served_.load(); }
    int publish_failures() const { return publish_failures_.load(); }

private:
    void serve()
    {
        std::vector<request> earlier;
        while (!stop_) {
            if (!watcher_.wait_for(earlier.size() + 1, 100ms))
                continue;
            std::vector<vask_test::mqtt_message> received = watcher_.messages();
            for (size_t i = earlier.size(); i < received.size(); ++i) {
                request got{received[i].payload, received[i].response_topic, received[i].correlation};
                // Counted before the replies go out, so that a caller that has its reply sees it counted.
                ++served_;
                for (const wire_reply &reply : script_(got, earlier)) {
                    vask_test::mqtt_publish_options options;
                    options.correlation = reply.correlation;
                    if (!watcher_.publish(reply.topic, reply.payload, options))
                        ++publish_failures_;
                }
                earlier.push_back(got);
            }
        }
    }

    vask_test::mqtt_watcher watcher_;
    reply_script script_;
    bool ready_ = false;
    std::atomic<bool> stop_{false};
    std::atomic<size_t> served_{0};
    std::atomic<int> publish_failures_{0};
    std::thread server_;
};

wire_reply answer(const request &to, const std::string &payload)
{
    return {to.response_topic, payload, to.correlation};
}

// Calls "raw_service" through `client`; the reply text, or "error <result>".
std::string call_raw(bus_client *client, const std::string &body)
{
    char buffer[BUS_REPLY_MAX];
    int length = 0;
    int rc = bus_method_call_sync(client, kRawService, "m", body.data(), static_cast<int>(body.size()), buffer,
                                  &length, 10);
    return rc == BUS_OK ? std::string(buffer, static_cast<size_t>(length)) : "error " + std::to_string(rc);
}

} // namespace

TEST_F(BusTest, DuplicatedReply_ShouldBeTakenOnceAndNeverReachALaterCall)
{
    // Each request is answered twice, and the next request first gets the previous duplicate once more.
    raw_responder peer(broker_->port(), [](const request &got, const std::vector<request> &earlier) {
        std::vector<wire_reply> replies;
        if (!earlier.empty())
            replies.push_back(answer(earlier.back(), "{\"stale\":" + earlier.back().body + "}"));
        replies.push_back(answer(got, "{\"first\":" + got.body + "}"));
        replies.push_back(answer(got, "{\"second\":" + got.body + "}"));
        return replies;
    });
    ASSERT_TRUE(peer.ready());
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(call_raw(client_, std::to_string(i)), "{\"first\":" + std::to_string(i) + "}");
    EXPECT_EQ(peer.requests(), 200u);
    EXPECT_EQ(peer.publish_failures(), 0);
}

TEST_F(BusTest, ForeignReplies_ShouldBeIgnoredWhileTheCallsInFlightGetTheirOwn)
{
    // Before its own answer, every request is preceded by replies that belong to nobody or to
    // someone else: an unknown correlation, none at all, a correlation cut short or made longer,
    // this call's correlation on every other caller's reply topic, an empty payload and 10 KB.
    std::set<std::string> reply_topics;
    raw_responder peer(broker_->port(), [&reply_topics](const request &got, const std::vector<request> &) {
        reply_topics.insert(got.response_topic);
        const std::string unknown(got.correlation.size(), '\x5a');
        const std::string big(10 * 1024, 'b');
        std::vector<wire_reply> replies = {
            {got.response_topic, "{\"foreign\":\"unknown\"}", unknown},
            {got.response_topic, "{\"foreign\":\"none\"}", std::string()},
            {got.response_topic, "{\"foreign\":\"short\"}", got.correlation.substr(0, got.correlation.size() / 2)},
            {got.response_topic, "{\"foreign\":\"long\"}", got.correlation + "x"},
            {got.response_topic, std::string(), unknown},
            {got.response_topic, big, unknown},
            {got.response_topic, big, std::string()},
        };
        for (const std::string &topic : reply_topics)
            if (topic != got.response_topic)
                replies.push_back({topic, "{\"foreign\":\"misrouted\"}", got.correlation});
        replies.push_back(answer(got, got.body));
        return replies;
    });
    ASSERT_TRUE(peer.ready());

    bus_client *other = bus_client_new("other_caller");
    ASSERT_NE(other, nullptr);
    ASSERT_EQ(bus_connect(other, 0), BUS_OK);
    // Both reply topics are known to the peer before the calls run side by side.
    ASSERT_EQ(call_raw(client_, "{\"warm\":1}"), "{\"warm\":1}");
    ASSERT_EQ(call_raw(other, "{\"warm\":2}"), "{\"warm\":2}");

    std::atomic<int> wrong{0};
    std::mutex mutex;
    std::vector<std::string> first_wrong;
    std::vector<std::thread> callers;
    for (int t = 0; t < 6; ++t) {
        bus_client *client = t % 2 == 0 ? client_ : other;
        callers.emplace_back([&, t, client] {
            for (int i = 0; i < 100; ++i) {
                std::string body = "{\"t\":" + std::to_string(t) + ",\"i\":" + std::to_string(i) + "}";
                std::string got = call_raw(client, body);
                if (got != body && wrong++ == 0) {
                    std::lock_guard<std::mutex> hold(mutex);
                    first_wrong = {body, got};
                }
            }
        });
    }
    for (auto &caller : callers)
        caller.join();
    EXPECT_EQ(wrong.load(), 0) << "call " << (first_wrong.empty() ? "" : first_wrong[0]) << " got "
                               << (first_wrong.empty() ? "" : first_wrong[1]);
    EXPECT_EQ(peer.requests(), 602u);
    EXPECT_EQ(peer.publish_failures(), 0);
    // Both clients still answer normally afterwards.
    EXPECT_EQ(call_raw(client_, "{\"after\":1}"), "{\"after\":1}");
    EXPECT_EQ(call_raw(other, "{\"after\":2}"), "{\"after\":2}");
    bus_client_free(other);
}
