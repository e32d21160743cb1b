// SPDX-License-Identifier: MIT
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "bus_test_fixture.h"
#include "log_capture.h"
#include "process.h"

using namespace std::chrono_literals;

TEST_F(BusTest, MethodCall_ShouldCarryTheBodyAndReturnTheReply)
{
    service_->reply("get_thing", "{\"code\":0,\"thing\":42}");
    std::string reply;
    ASSERT_EQ(call("get_thing", "{\"which\":1}", &reply), BUS_OK);
    EXPECT_EQ(reply, "{\"code\":0,\"thing\":42}");
    auto calls = service_->calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].method, "get_thing");
    EXPECT_EQ(calls[0].body, "{\"which\":1}");
    EXPECT_EQ(calls[0].body_length, 11);
}

TEST_F(BusTest, MethodCall_ShouldSendAnEmptyBodyWhenThereIsNone)
{
    char buffer[BUS_REPLY_MAX];
    int length = -1;
    ASSERT_EQ(bus_method_call_sync(client_, "external_device", "ping", nullptr, 0, buffer, &length, 5), BUS_OK);
    EXPECT_STREQ(buffer, "{\"code\":0}");
    EXPECT_EQ(length, 10);
    auto calls = service_->calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].body, "");
    EXPECT_EQ(calls[0].body_length, 0);
}

TEST_F(BusTest, MethodCall_ShouldReturnAnEmptyReplyAsLengthZero)
{
    service_->reply("quiet", "");
    char buffer[BUS_REPLY_MAX];
    memset(buffer, 'Z', sizeof buffer);
    int length = -1;
    ASSERT_EQ(bus_method_call_sync(client_, "external_device", "quiet", nullptr, 0, buffer, &length, 5), BUS_OK);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(buffer[0], '\0');
}

TEST_F(BusTest, MethodCall_ShouldFitAReplyOf2047Bytes)
{
    std::string big(2047, 'a');
    service_->reply("big", big);
    std::string reply;
    ASSERT_EQ(call("big", "", &reply), BUS_OK);
    EXPECT_EQ(reply, big);
}

TEST_F(BusTest, MethodCall_ShouldRefuseAReplyOf2048BytesAndWriteNothing)
{
    service_->reply("big", std::string(2048, 'a'));
    char buffer[BUS_REPLY_MAX];
    memset(buffer, 'Z', sizeof buffer);
    int length = -1;
    EXPECT_EQ(bus_method_call_sync(client_, "external_device", "big", nullptr, 0, buffer, &length, 5),
              BUS_ERR_REPLY_TOO_LARGE);
    EXPECT_EQ(length, 0);
    for (char c : buffer)
        ASSERT_EQ(c, 'Z');
}

TEST_F(BusTest, MethodCall_ShouldTimeOutWhenNoReplyComes)
{
    service_->no_reply("silent");
    char buffer[BUS_REPLY_MAX];
    int length = -1;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(bus_method_call_sync(client_, "external_device", "silent", nullptr, 0, buffer, &length, 1),
              BUS_ERR_TIMEOUT);
    auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, 1s);
    EXPECT_LT(elapsed, 3s);
    EXPECT_EQ(length, 0);
    // The client is still usable afterwards.
    EXPECT_EQ(call("ping", ""), BUS_OK);
}

TEST_F(BusTest, MethodCall_ShouldFailAtOnceWhenTheServiceWentOffline)
{
    ASSERT_EQ(call("ping", ""), BUS_OK);
    service_->unregister();
    // The presence arrives asynchronously; once seen, every call fails without waiting.
    ASSERT_TRUE(vask_test::eventually([&] { return call("ping", "", nullptr, 1) == BUS_ERR_NO_SERVICE; }));
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(call("ping", "", nullptr, 30), BUS_ERR_NO_SERVICE);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

TEST_F(BusTest, MethodCall_ShouldMatchEveryReplyToItsCallerFrom8Threads)
{
    std::atomic<int> mismatches{0};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 1000; ++i) {
                std::string body = "{\"thread\":" + std::to_string(t) + ",\"call\":" + std::to_string(i) + "}";
                std::string reply;
                if (call("echo", body, &reply, 10) != BUS_OK)
                    ++failures;
                else if (reply != body)
                    ++mismatches;
            }
        });
    }
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(service_->calls().size(), 8000u);
}

TEST_F(BusTest, MethodCall_ShouldDropALateReply)
{
    service_->hold("slow");
    EXPECT_EQ(call("slow", "", nullptr, 1), BUS_ERR_TIMEOUT);
    ASSERT_TRUE(vask_test::eventually([&] { return service_->held(); }));
    // The late reply to "slow" goes out now; the next call must get its own reply, not that one.
    service_->reply("slow", "{\"late\":true}");
    service_->release();
    std::string reply;
    ASSERT_EQ(call("echo", "{\"mine\":1}", &reply), BUS_OK);
    EXPECT_EQ(reply, "{\"mine\":1}");
}

TEST_F(BusTest, MethodCall_ShouldRefuseBadArguments)
{
    char buffer[BUS_REPLY_MAX];
    int length = 0;
    EXPECT_EQ(bus_method_call_sync(client_, nullptr, "m", nullptr, 0, buffer, &length, 5), BUS_ERR_INVALID);
    EXPECT_EQ(bus_method_call_sync(client_, "external_device", "", nullptr, 0, buffer, &length, 5), BUS_ERR_INVALID);
    EXPECT_EQ(bus_method_call_sync(client_, "external_device", "a/b", nullptr, 0, buffer, &length, 5), BUS_ERR_INVALID);
    EXPECT_EQ(bus_method_call_sync(client_, "external_device", "m+", nullptr, 0, buffer, &length, 5), BUS_ERR_INVALID);
    EXPECT_EQ(bus_method_call_sync(client_, "ext#", "m", nullptr, 0, buffer, &length, 5), BUS_ERR_INVALID);
    EXPECT_EQ(bus_method_call_sync(client_, "external_device", "m", nullptr, 3, buffer, &length, 5), BUS_ERR_INVALID);
    EXPECT_EQ(bus_method_call_sync(client_, "external_device", "m", "x", -1, buffer, &length, 5), BUS_ERR_INVALID);
    EXPECT_EQ(bus_method_call_sync(client_, "external_device", "m", nullptr, 0, nullptr, &length, 5), BUS_ERR_INVALID);
    EXPECT_EQ(bus_method_call_sync(client_, "external_device", "m", nullptr, 0, buffer, nullptr, 5), BUS_ERR_INVALID);
    EXPECT_EQ(bus_method_call_sync(client_, "external_device", "m", nullptr, 0, buffer, &length, 0), BUS_ERR_INVALID);
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(BusTest, MethodCall_ShouldFailForANullClient)
{
    char buffer[BUS_REPLY_MAX];
    int length = 5;
    EXPECT_EQ(bus_method_call_sync(nullptr, "external_device", "m", nullptr, 0, buffer, &length, 5), BUS_ERR_FAILED);
    EXPECT_EQ(length, 0);
}

TEST_F(BusTest, MethodCall_ShouldFailAtOnceWhenNotConnected)
{
    bus_client *idle = bus_client_new("idle");
    ASSERT_NE(idle, nullptr);
    char buffer[BUS_REPLY_MAX];
    int length = 0;
    EXPECT_EQ(bus_method_call_sync(idle, "external_device", "ping", nullptr, 0, buffer, &length, 5), BUS_ERR_FAILED);
    ASSERT_EQ(bus_connect(idle, 0), BUS_OK);
    EXPECT_EQ(bus_method_call_sync(idle, "external_device", "ping", nullptr, 0, buffer, &length, 5), BUS_OK);
    ASSERT_EQ(bus_disconnect(idle), BUS_OK);
    EXPECT_EQ(bus_method_call_sync(idle, "external_device", "ping", nullptr, 0, buffer, &length, 5), BUS_ERR_FAILED);
    bus_client_free(idle);
}

TEST_F(BusTest, ClientNew_ShouldRefuseBadNames)
{
    EXPECT_EQ(bus_client_new(nullptr), nullptr);
    EXPECT_EQ(bus_client_new(""), nullptr);
    EXPECT_EQ(bus_client_new("a/b"), nullptr);
    EXPECT_EQ(bus_client_new(std::string(65, 'n').c_str()), nullptr);
}

TEST_F(BusTest, Connect_ShouldRefuseABadUrlOrFlags)
{
    bus_client *other = bus_client_new("other");
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(bus_connect(other, 1), BUS_ERR_INVALID);
    for (const char *url : {"http://127.0.0.1:1", "mqtt://", "mqtt://host:0", "mqtt://host:70000", "mqtt://host:x"}) {
        setenv("VASK_BUS_URL", url, 1);
        EXPECT_EQ(bus_connect(other, 0), BUS_ERR_INVALID) << url;
    }
    bus_client_free(other);
}

TEST_F(BusTest, TwoProcessesWithOneName_ShouldBothWork)
{
    bus_client *same = bus_client_new("libvaskexternal_device");
    ASSERT_NE(same, nullptr);
    vask_test::log_capture capture;
    ASSERT_EQ(bus_connect(same, 0), BUS_OK);
    auto peer = vask_test::run_program(
        {VASK_TEST_HELPER, "call", "libvaskexternal_device", "external_device", "echo", "{\"peer\":1}"});
    EXPECT_EQ(peer.exit_code, 0) << peer.err;
    EXPECT_EQ(peer.out, "0 {\"peer\":1}\n");
    char buffer[BUS_REPLY_MAX];
    int length = 0;
    EXPECT_EQ(bus_method_call_sync(same, "external_device", "echo", "{}", 2, buffer, &length, 5), BUS_OK);
    // Neither connection was taken over by the other.
    for (const auto &line : capture.lines()) {
        EXPECT_EQ(line.message.find("session taken over"), std::string::npos) << line.message;
        EXPECT_EQ(line.message.find("lost its connection"), std::string::npos) << line.message;
    }
    bus_client_free(same);
}

TEST_F(BusTest, ServiceInAnotherProcess_ShouldAnswerAndGoOfflineWhenKilled)
{
    vask_test::child_process peer;
    ASSERT_TRUE(peer.start({VASK_TEST_HELPER, "serve", "peer", "other_service"}));
    ASSERT_TRUE(peer.wait_for_line("ready", 5s));
    char buffer[BUS_REPLY_MAX];
    int length = 0;
    ASSERT_EQ(bus_method_call_sync(client_, "other_service", "anything", nullptr, 0, buffer, &length, 5), BUS_OK);
    EXPECT_EQ(std::string(buffer), "{\"code\":0,\"peer\":" + std::to_string(peer.pid()) + "}");
    // A crash publishes the connection's will: the service is offline and calls fail at once.
    peer.stop(SIGKILL);
    EXPECT_TRUE(vask_test::eventually([&] {
        return bus_method_call_sync(client_, "other_service", "anything", nullptr, 0, buffer, &length, 1) ==
               BUS_ERR_NO_SERVICE;
    }));
}

TEST_F(BusTest, ClientFreedByAnotherThread_ShouldLeaveItsCreatorRunning)
{
    std::mutex mutex;
    std::condition_variable changed;
    bus_client *created = nullptr;
    bool may_finish = false;
    bool finished = false;
    std::thread creator([&] {
        bus_client *client = bus_client_new("created_elsewhere");
        bus_connect(client, 0);
        std::unique_lock<std::mutex> hold(mutex);
        created = client;
        changed.notify_all();
        changed.wait(hold, [&] { return may_finish; });
        finished = true;
        changed.notify_all();
    });
    {
        std::unique_lock<std::mutex> hold(mutex);
        ASSERT_TRUE(changed.wait_for(hold, 10s, [&] { return created != nullptr; }));
    }
    bus_client_free(created);
    EXPECT_EQ(bus_connect(created, 0), BUS_ERR_FAILED) << "the freed client still counts as live";
    bool ran_to_its_end;
    {
        std::unique_lock<std::mutex> hold(mutex);
        may_finish = true;
        changed.notify_all();
        ran_to_its_end = changed.wait_for(hold, 10s, [&] { return finished; });
    }
    if (!ran_to_its_end) {
        // The thread is stuck and cannot be joined; end the test program rather than hang it.
        ADD_FAILURE() << "the creating thread did not run to its end";
        std::_Exit(1);
    }
    creator.join();
}
