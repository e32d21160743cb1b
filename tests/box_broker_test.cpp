// SPDX-License-Identifier: MIT
// The mosquitto configuration shipped for a box: loopback only, anonymous applications limited by
// the ACL, the service logged in.
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <mosquitto.h>
#include <mutex>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

#include "broker.h"
#include "log_capture.h"
#include "process.h"
#include "vask_bus.h"

using namespace std::chrono_literals;

namespace {

std::string read_file(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void replace_all(std::string &text, const std::string &from, const std::string &to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

std::mutex g_mutex;
std::vector<std::string> g_signals;

// A raw MQTT v5 client that records what it receives.
struct raw_client {
    mosquitto *mosq = nullptr;
    std::mutex mutex;
    std::vector<std::string> received;

    explicit raw_client(int port)
    {
        mosq = mosquitto_new(nullptr, true, this);
        mosquitto_int_option(mosq, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
        mosquitto_message_v5_callback_set(mosq, [](mosquitto *, void *user, const mosquitto_message *m,
                                                   const mosquitto_property *) {
            auto *self = static_cast<raw_client *>(user);
            std::lock_guard<std::mutex> hold(self->mutex);
            self->received.push_back(std::string(m->topic) + " " +
                                     std::string(static_cast<const char *>(m->payload), m->payloadlen));
        });
        mosquitto_connect(mosq, "127.0.0.1", port, 30);
        mosquitto_loop_start(mosq);
    }
    ~raw_client()
    {
        mosquitto_disconnect(mosq);
        mosquitto_loop_stop(mosq, false);
        mosquitto_destroy(mosq);
    }
    std::vector<std::string> seen()
    {
        std::lock_guard<std::mutex> hold(mutex);
        return received;
    }
};

class BoxBrokerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(mosquitto_lib_init(), MOSQ_ERR_SUCCESS);
        {
            std::lock_guard<std::mutex> hold(g_mutex);
            g_signals.clear();
        }
        std::string passwords = dir_.path() + "/vask.passwd";
        auto made = vask_test::run_program({VASK_MOSQUITTO_PASSWD, "-b", "-c", passwords, "external_device", "s3cret"});
        ASSERT_EQ(made.exit_code, 0) << made.err;
        std::string acl = dir_.path() + "/vask.acl";
        std::ofstream(acl) << read_file(VASK_BOX_DIR "/vask.acl");
        std::string dir = dir_.path();
        broker_ = std::make_unique<vask_test::broker>([dir](int port) {
            std::string config = read_file(VASK_BOX_DIR "/mosquitto-vask.conf");
            replace_all(config, "listener 1883 ", "listener " + std::to_string(port) + " ");
            replace_all(config, "/etc/mosquitto/", dir + "/");
            if (geteuid() == 0)
                config += "user root\n";
            return config;
        });
        url_ = broker_->url();
        ASSERT_TRUE(sim_.start({VASK_SIM, "--foreground"},
                               {"VASK_BUS_URL=" + url_, "VASK_BUS_USERNAME=external_device", "VASK_BUS_PASSWORD=s3cret"},
                               dir_.path() + "/sim.log"));
        ASSERT_TRUE(sim_.wait_for_line("external-device-sim: ready", 10s)) << read_file(dir_.path() + "/sim.log");
        setenv("VASK_BUS_URL", url_.c_str(), 1);
        ASSERT_EQ(bus_init(), BUS_OK);
        app_ = bus_client_new("application");
        ASSERT_EQ(bus_connect(app_, 0), BUS_OK);
    }

    void TearDown() override
    {
        bus_client_free(app_);
        bus_cleanup();
        sim_.stop(SIGTERM);
        broker_.reset();
        mosquitto_lib_cleanup();
    }

    std::string call(const char *method)
    {
        char reply[BUS_REPLY_MAX];
        int length = 0;
        int rc = bus_method_call_sync(app_, "external_device", method, nullptr, 0, reply, &length, 3);
        return rc == BUS_OK ? std::string(reply, static_cast<size_t>(length)) : "error " + std::to_string(rc);
    }

    vask_test::temp_dir dir_;
    std::unique_ptr<vask_test::broker> broker_;
    vask_test::child_process sim_;
    std::string url_;
    bus_client *app_ = nullptr;
};

void remember(bus_client *, void *, const char *topic, const void *payload, int)
{
    std::lock_guard<std::mutex> hold(g_mutex);
    g_signals.push_back(std::string(topic) + " " + static_cast<const char *>(payload));
}

} // namespace

TEST_F(BoxBrokerTest, AnonymousApplication_ShouldCallTheServiceAndReadItsSignals)
{
    ASSERT_EQ(bus_signal_subscribe(app_, "external_device", "voting_results_event", remember), BUS_OK);
    EXPECT_EQ(call("enter_voting"), "{\"code\":0}");
    EXPECT_TRUE(vask_test::eventually([] {
        std::lock_guard<std::mutex> hold(g_mutex);
        return !g_signals.empty();
    }));
}

TEST_F(BoxBrokerTest, AnonymousApplication_ShouldBeLetMakeItsCallsConnection)
{
    // Through the broker, not over the simulator's socket; a calls connection the ACL turned away
    // would leave the calls on the client's own connection, and say so.
    ASSERT_EQ(bus_client_set_direct(app_, 0), BUS_OK);
    vask_test::log_capture log(TULO_LOG_LEVEL_WARNING);
    EXPECT_EQ(call("enter_voting"), "{\"code\":0}");
    for (const vask_test::log_line &line : log.lines())
        ADD_FAILURE() << line.function << ": " << line.message;
}

TEST_F(BoxBrokerTest, AnonymousClient_ShouldNotPublishSignals)
{
    ASSERT_EQ(bus_signal_subscribe(app_, "external_device", "voting_results_event", remember), BUS_OK);
    bus_client *forger = bus_client_new("forger");
    ASSERT_EQ(bus_connect(forger, 0), BUS_OK);
    ASSERT_EQ(bus_signal_emit(forger, "external_device", "voting_results_event", "forged", 6), BUS_OK);
    // A real signal after the forged one: once it is here, the forged one would have been too.
    EXPECT_EQ(call("enter_voting"), "{\"code\":0}");
    ASSERT_TRUE(vask_test::eventually([] {
        std::lock_guard<std::mutex> hold(g_mutex);
        return !g_signals.empty();
    }));
    {
        std::lock_guard<std::mutex> hold(g_mutex);
        ASSERT_EQ(g_signals.size(), 1u);
        EXPECT_EQ(g_signals[0].find("forged"), std::string::npos) << g_signals[0];
    }
    bus_client_free(forger);
}

TEST_F(BoxBrokerTest, AnonymousImpostor_ShouldNeitherAnswerCallsNorTakeThePresence)
{
    bus_client *impostor = bus_client_new("impostor");
    ASSERT_EQ(bus_service_register(impostor, "external_device",
                                   [](bus_client *, void *, const char *, const char *, int, char *reply, int) {
                                       memcpy(reply, "impostor", 8);
                                       return 8;
                                   },
                                   nullptr),
              BUS_OK);
    ASSERT_EQ(bus_connect(impostor, 0), BUS_OK);
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(call("query_voting").rfind("{\"code\":0,\"voting_results\":", 0), 0u);
    // Its "offline" is refused too: the service stays reachable after the impostor leaves.
    bus_client_free(impostor);
    EXPECT_EQ(call("query_voting").rfind("{\"code\":0,", 0), 0u);
}

TEST_F(BoxBrokerTest, AnonymousClient_ShouldNotReadOtherClientsReplies)
{
    raw_client snoop(broker_->port());
    mosquitto_subscribe(snoop.mosq, nullptr, "bus/reply/#", 0);
    mosquitto_subscribe(snoop.mosq, nullptr, "external_device/signal/#", 1);
    auto signals_seen = [&] {
        size_t n = 0;
        for (const auto &line : snoop.seen())
            n += line.rfind("external_device/signal/", 0) == 0;
        return n;
    };
    // The snoop's subscriptions are in place once it sees a signal.
    ASSERT_TRUE(vask_test::eventually([&] {
        call("exit_voting");
        call("enter_voting");
        return signals_seen() > 0;
    }));
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(call("query_voting").rfind("{\"code\":0,", 0), 0u);
    // The service answered those calls before it emits this signal: had the replies reached the
    // snoop, they would be there before it.
    size_t before = signals_seen();
    EXPECT_EQ(call("exit_voting"), "{\"code\":0}");
    ASSERT_TRUE(vask_test::eventually([&] { return signals_seen() > before; }));
    for (const auto &line : snoop.seen())
        EXPECT_NE(line.rfind("bus/reply/", 0), 0u) << line;
}

TEST_F(BoxBrokerTest, ServiceWithAWrongPassword_ShouldNotGetOnTheBus)
{
    sim_.stop(SIGTERM);
    auto r = vask_test::run_program({VASK_SIM, "--foreground"},
                                    {"VASK_BUS_URL=" + url_, "VASK_BUS_USERNAME=external_device", "VASK_BUS_PASSWORD=wrong"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_NE(r.err.find("cannot connect to the broker"), std::string::npos) << r.err;
}
