// SPDX-License-Identifier: MIT
// The direct path: a service on this host answers over its own unix socket, advertised with its
// presence; what makes a caller use it, fall back to the broker, or be refused.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "bus_test_fixture.h"
#include "direct_internal.h"
#include "process.h"

using namespace std::chrono_literals;

namespace {

bus_direct_stats direct_stats_of(bus_client *client)
{
    bus_direct_stats stats{};
    EXPECT_EQ(bus_client_get_direct_stats(client, &stats), BUS_OK);
    return stats;
}

std::string kernel_boot_id()
{
    std::ifstream file("/proc/sys/kernel/random/boot_id");
    std::string id;
    std::getline(file, id);
    return id;
}

// The retained presence of a service as a plain MQTT v5 client sees it, with its user properties.
struct presence_record {
    std::string state;
    std::map<std::string, std::string> properties;
};

// A plain MQTT v5 client of the test's broker, for what the bus's own clients never do.
class raw_client {
public:
    explicit raw_client(int port)
    {
        mosq_ = mosquitto_new(nullptr, true, this);
        mosquitto_int_option(mosq_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
        mosquitto_message_v5_callback_set(mosq_, on_message);
        connected_ = mosquitto_connect(mosq_, "127.0.0.1", port, 10) == MOSQ_ERR_SUCCESS;
    }
    ~raw_client()
    {
        mosquitto_disconnect(mosq_);
        mosquitto_destroy(mosq_);
    }

    // Announces `service` online with a direct socket of our choosing (retained, as a service does).
    bool announce(const std::string &service, const std::string &path, pid_t pid, const std::string &boot)
    {
        mosquitto_property *properties = nullptr;
        mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, "direct-socket", path.c_str());
        mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, "direct-pid",
                                           std::to_string(pid).c_str());
        mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, "direct-boot", boot.c_str());
        int mid = 0;
        int rc = mosquitto_publish_v5(mosq_, &mid, (service + "/state").c_str(), 6, "online", 1, true, properties);
        mosquitto_property_free_all(&properties);
        for (int i = 0; i < 20 && rc == MOSQ_ERR_SUCCESS; ++i)
            mosquitto_loop(mosq_, 50, 1);
        return connected_ && rc == MOSQ_ERR_SUCCESS;
    }

    presence_record retained_presence(const std::string &service)
    {
        mosquitto_subscribe(mosq_, nullptr, (service + "/state").c_str(), 0);
        for (int i = 0; i < 40 && !received_; ++i)
            mosquitto_loop(mosq_, 50, 1);
        return record_;
    }

private:
    static void on_message(mosquitto *, void *obj, const mosquitto_message *message, const mosquitto_property *props)
    {
        auto *self = static_cast<raw_client *>(obj);
        self->record_.state.assign(static_cast<const char *>(message->payload), message->payloadlen);
        bool skip = false;
        for (const mosquitto_property *at = props;; skip = true) {
            char *name = nullptr;
            char *value = nullptr;
            at = mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, skip);
            if (at == nullptr)
                break;
            self->record_.properties[name] = value;
            free(name);
            free(value);
        }
        self->received_ = true;
    }

    mosquitto *mosq_ = nullptr;
    bool connected_ = false;
    bool received_ = false;
    presence_record record_;
};

// A request frame as a caller sends it on a direct socket: "ping" of "external_device".
std::string ping_frame()
{
    vask_bus::request_head head{};
    head.magic = vask_bus::kRequestMagic;
    head.expires_ns = static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>((std::chrono::steady_clock::now() + 5s).time_since_epoch())
            .count());
    head.id = 7;
    head.service_length = static_cast<uint16_t>(strlen("external_device"));
    head.method_length = static_cast<uint16_t>(strlen("ping"));
    std::string frame(reinterpret_cast<const char *>(&head), sizeof head);
    return frame + "external_device" + "ping";
}

// What came back on a direct socket: 0 an answer, 1 the connection closed or refused without one.
int answered_or_refused(int fd)
{
    char reply[256];
    ssize_t size = recv(fd, reply, sizeof reply, 0);
    vask_bus::reply_head head{};
    if (size < static_cast<ssize_t>(sizeof head))
        return 1;
    memcpy(&head, reply, sizeof head);
    return head.magic == vask_bus::kReplyMagic && head.status == vask_bus::kReplyAnswered ? 0 : 1;
}

// Connects to the direct socket at `path`; -1 when it cannot.
int connect_direct(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// In a child process running as `uid` (nobody for a stranger): connects to the socket at `path`,
// sends a ping and waits 2 s for anything. Returns the child's exit code: 0 answered, 1 closed or
// refused without an answer, 2 nothing at all, 3 could not connect or send, 4 could not change user.
int ping_as(uid_t uid, const std::string &path)
{
    pid_t child = fork();
    if (child == 0) {
        if (uid != 0 && (setgid(uid) != 0 || setuid(uid) != 0))
            _exit(4);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, path.c_str(), path.size() + 1);
        int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
        if (fd < 0 || connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
            _exit(3);
        std::string frame = ping_frame();
        if (send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) < 0)
            _exit(errno == EPIPE || errno == ECONNRESET ? 1 : 3);
        pollfd polled{fd, POLLIN, 0};
        if (poll(&polled, 1, 2000) != 1)
            _exit(2);
        _exit(answered_or_refused(fd));
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

constexpr uid_t kNobody = 65534;

class BusDirectTest : public BusTest {
protected:
    // `threads` threads each echo `calls` bodies of their own through the fixture's one client;
    // the number of calls that failed or got another's reply.
    int echo_from_threads(int threads, int calls)
    {
        std::atomic<int> wrong{0};
        std::vector<std::thread> callers;
        for (int t = 0; t < threads; ++t) {
            callers.emplace_back([&, t] {
                for (int i = 0; i < calls; ++i) {
                    std::string body = "{\"t\":" + std::to_string(t) + ",\"i\":" + std::to_string(i) + "}";
                    std::string reply;
                    if (call("echo", body, &reply) != BUS_OK || reply != body)
                        ++wrong;
                }
            });
        }
        for (auto &caller : callers)
            caller.join();
        return wrong.load();
    }

    presence_record presence() { return raw_client(broker_->port()).retained_presence("external_device"); }
    std::string socket_path() { return presence().properties["direct-socket"]; }

    // Replaces the fixture's service with one made under `variable`=`value`.
    void remake_service_with(const char *variable, const char *value)
    {
        service_.reset();
        setenv(variable, value, 1);
        service_ = std::make_unique<vask_test::fake_service>();
        unsetenv(variable);
        ASSERT_TRUE(service_->ready());
        ASSERT_TRUE(vask_test::eventually([&] { return call("ping", "") == BUS_OK; }));
    }
};

} // namespace

TEST_F(BusDirectTest, Call_ShouldGoOverTheServicesSocket)
{
    std::string reply;
    ASSERT_EQ(call("echo", "{\"a\":1}", &reply), BUS_OK);
    EXPECT_EQ(reply, "{\"a\":1}");
    EXPECT_EQ(direct_stats_of(client_).calls_direct, 1u);
    EXPECT_EQ(direct_stats_of(client_).calls_broker, 0u);
    EXPECT_EQ(direct_stats_of(service_->client()).served_direct, 1u);
}

TEST_F(BusDirectTest, Presence_ShouldNameTheSocketTheProcessAndTheBoot)
{
    presence_record record = presence();
    EXPECT_EQ(record.state, "online");
    const std::string &path = record.properties["direct-socket"];
    EXPECT_EQ(path.rfind(root_ + "/run/vask/bus-" + std::to_string(getpid()) + "-", 0), 0u) << path;
    EXPECT_EQ(record.properties["direct-pid"], std::to_string(getpid()));
    EXPECT_EQ(record.properties["direct-boot"], kernel_boot_id());
    struct stat info{};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_TRUE(S_ISSOCK(info.st_mode));
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(BusDirectTest, SwitchedOffByTheEnvironment_ShouldCallThroughTheBroker)
{
    setenv("VASK_BUS_DIRECT", "0", 1);
    bus_client *other = bus_client_new("bus_test_broker_only");
    unsetenv("VASK_BUS_DIRECT");
    ASSERT_EQ(bus_connect(other, 0), BUS_OK);
    char reply[BUS_REPLY_MAX];
    int length = 0;
    EXPECT_EQ(bus_method_call_sync(other, "external_device", "ping", nullptr, 0, reply, &length, 5), BUS_OK);
    EXPECT_EQ(direct_stats_of(other).calls_broker, 1u);
    EXPECT_EQ(direct_stats_of(other).calls_direct, 0u);
    bus_client_free(other);
}

TEST_F(BusDirectTest, SwitchedOffOnTheClient_ShouldCallThroughTheBroker)
{
    EXPECT_EQ(bus_client_set_direct(client_, 2), BUS_ERR_INVALID);
    ASSERT_EQ(bus_client_set_direct(client_, 0), BUS_OK);
    EXPECT_EQ(call("ping", ""), BUS_OK);
    EXPECT_EQ(direct_stats_of(client_).calls_broker, 1u);
    ASSERT_EQ(bus_client_set_direct(client_, 1), BUS_OK);
    EXPECT_EQ(call("ping", ""), BUS_OK);
    EXPECT_EQ(direct_stats_of(client_).calls_direct, 1u);
    EXPECT_EQ(bus_client_set_direct(nullptr, 1), BUS_ERR_FAILED);
}

TEST_F(BusDirectTest, ServiceWithTheDirectPathOff_ShouldAdvertiseNoSocket)
{
    remake_service_with("VASK_BUS_DIRECT", "0");
    EXPECT_EQ(presence().properties.count("direct-socket"), 0u);
    EXPECT_EQ(call("ping", ""), BUS_OK);
    EXPECT_EQ(direct_stats_of(client_).calls_direct, 0u);
}

TEST_F(BusDirectTest, StalePath_ShouldFallBackToTheBroker)
{
    ASSERT_TRUE(raw_client(broker_->port()).announce("external_device", root_ + "/run/vask/gone.sock", getpid(),
                                                     kernel_boot_id()));
    // The client has taken the new announcement once its calls stop going to the old socket.
    ASSERT_TRUE(vask_test::eventually([&] {
        return call("ping", "") == BUS_OK && direct_stats_of(client_).fallbacks == 1;
    }));
    unsigned long long through_broker = direct_stats_of(client_).calls_broker;
    EXPECT_EQ(call("ping", ""), BUS_OK);
    EXPECT_EQ(direct_stats_of(client_).calls_broker, through_broker + 1);
    EXPECT_EQ(direct_stats_of(client_).fallbacks, 1u) << "an unusable socket is not tried again";
}

TEST_F(BusDirectTest, SocketOfAnotherProcess_ShouldNotBeUsed)
{
    std::string path = root_ + "/run/vask/other.sock";
    int listener = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 8), 0);
    // Named as the socket of process 1: whoever answers there is not the service announced.
    ASSERT_TRUE(raw_client(broker_->port()).announce("external_device", path, 1, kernel_boot_id()));
    ASSERT_TRUE(vask_test::eventually([&] {
        return call("ping", "") == BUS_OK && direct_stats_of(client_).fallbacks == 1;
    }));
    int accepted = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK);
    if (accepted >= 0) {
        char byte;
        EXPECT_LE(recv(accepted, &byte, 1, 0), 0) << "a request went to a stranger's socket";
        close(accepted);
    }
    close(listener);
}

TEST_F(BusDirectTest, OtherHost_ShouldCallThroughTheBroker)
{
    ASSERT_TRUE(raw_client(broker_->port()).announce("external_device", socket_path(), getpid(),
                                                     "00000000-0000-0000-0000-000000000000"));
    ASSERT_TRUE(vask_test::eventually([&] {
        unsigned long long before = direct_stats_of(client_).calls_broker;
        return call("ping", "") == BUS_OK && direct_stats_of(client_).calls_broker == before + 1;
    }));
    EXPECT_EQ(direct_stats_of(client_).fallbacks, 0u);
}

TEST_F(BusDirectTest, ServiceRestart_ShouldBeReachedAtItsNewSocket)
{
    ASSERT_EQ(call("ping", ""), BUS_OK);
    std::string first = socket_path();
    service_.reset();
    service_ = std::make_unique<vask_test::fake_service>();
    ASSERT_TRUE(service_->ready());
    ASSERT_TRUE(vask_test::eventually([&] { return call("ping", "") == BUS_OK; }));
    EXPECT_NE(socket_path(), first);
    struct stat info{};
    EXPECT_NE(stat(first.c_str(), &info), 0) << "the old socket was left behind";
    unsigned long long before = direct_stats_of(client_).calls_direct;
    unsigned long long served = direct_stats_of(service_->client()).served_direct;
    EXPECT_EQ(call("ping", ""), BUS_OK);
    EXPECT_EQ(direct_stats_of(client_).calls_direct, before + 1);
    EXPECT_EQ(direct_stats_of(service_->client()).served_direct, served + 1) << "answered by the new service";
}

TEST_F(BusDirectTest, PeerTheRuleRefuses_ShouldGetNothingAnswered)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to act as another user";
    std::string path = socket_path();
    // Let the stranger reach the socket: the rule is judged on its credentials, not on the mode.
    ASSERT_EQ(chmod(root_.c_str(), 0755), 0);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    EXPECT_EQ(ping_as(kNobody, path), 1);
    EXPECT_EQ(direct_stats_of(service_->client()).peers_refused, 1u);
    EXPECT_EQ(ping_as(0, path), 0) << "the same request from the service's own user is answered";
    EXPECT_EQ(direct_stats_of(service_->client()).served_direct, 1u);
}

TEST_F(BusDirectTest, AccessForAll_ShouldAnswerEveryLocalUser)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to act as another user";
    remake_service_with("VASK_BUS_DIRECT_ACCESS", "all");
    std::string path = socket_path();
    struct stat info{};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0666u);
    ASSERT_EQ(chmod(root_.c_str(), 0755), 0);
    EXPECT_EQ(ping_as(kNobody, path), 0);
    EXPECT_EQ(direct_stats_of(service_->client()).peers_refused, 0u);
}

TEST_F(BusDirectTest, AccessForTheGroup_ShouldOpenTheSocketToTheGroup)
{
    remake_service_with("VASK_BUS_DIRECT_ACCESS", "group");
    struct stat info{};
    ASSERT_EQ(stat(socket_path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0660u);
    EXPECT_EQ(info.st_gid, getegid());
}

TEST_F(BusDirectTest, ServiceProcessDiesWhileACallWaits_ShouldFailTheCallAtOnce)
{
    vask_test::child_process peer;
    ASSERT_TRUE(peer.start({VASK_TEST_HELPER, "serve", "peer", "slow_service"}));
    ASSERT_TRUE(peer.wait_for_line("ready", 10s));
    char reply[BUS_REPLY_MAX];
    int length = 0;
    // Reached directly once its announcement has arrived.
    ASSERT_TRUE(vask_test::eventually([&] {
        return bus_method_call_sync(client_, "slow_service", "ping", nullptr, 0, reply, &length, 5) == BUS_OK &&
               direct_stats_of(client_).calls_direct >= 1;
    }));
    std::thread killer([&] {
        std::this_thread::sleep_for(300ms);
        peer.stop(SIGKILL);
    });
    auto start = std::chrono::steady_clock::now();
    int rc = bus_method_call_sync(client_, "slow_service", "sleep", nullptr, 0, reply, &length, 8);
    double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    killer.join();
    EXPECT_EQ(rc, BUS_ERR_FAILED);
    EXPECT_LT(took, 3.0) << "the call waited for a reply that could no longer arrive";
}

TEST_F(BusDirectTest, LargeBody_ShouldGoThroughTheBroker)
{
    std::string body(70 * 1024, 'x');
    EXPECT_EQ(call("ping", body), BUS_OK);
    EXPECT_EQ(direct_stats_of(client_).calls_broker, 1u);
    EXPECT_EQ(direct_stats_of(client_).calls_direct, 0u);
}

TEST_F(BusDirectTest, ManyThreadsOnOneConnection_ShouldEachGetTheirOwnReply)
{
    EXPECT_EQ(echo_from_threads(8, 200), 0);
    EXPECT_EQ(direct_stats_of(client_).calls_direct, 1600u);
}

namespace {

std::atomic<int> g_inner_result{1};

// Calls the bus from inside its own handler, and answers with what that call returned.
int calling_handler(bus_client *client, void *, const char *, const char *, int, char *reply, int capacity)
{
    char inner[BUS_REPLY_MAX];
    int length = 0;
    int rc = bus_method_call_sync(client, "external_device", "ping", nullptr, 0, inner, &length, 2);
    g_inner_result = rc;
    return snprintf(reply, static_cast<size_t>(capacity), "%d", rc);
}

} // namespace

TEST_F(BusDirectTest, ServiceThatMakesNoBusCalls_ShouldBeAnsweredOnTheNetworkThread)
{
    bus_client *provider = bus_client_new("inline_provider");
    EXPECT_EQ(bus_service_register_flags(provider, "inline_svc", calling_handler, nullptr, 2), BUS_ERR_INVALID);
    ASSERT_EQ(bus_service_register_flags(provider, "inline_svc", calling_handler, nullptr, BUS_SERVICE_NO_BUS_CALLS),
              BUS_OK);
    ASSERT_EQ(bus_connect(provider, 0), BUS_OK);
    // Through the broker the handler runs on the provider's network thread, where a call of its own
    // could never read its reply: refused at once instead of a wait for the timeout.
    ASSERT_EQ(bus_client_set_direct(client_, 0), BUS_OK);
    char reply[BUS_REPLY_MAX];
    int length = 0;
    ASSERT_TRUE(vask_test::eventually([&] {
        return bus_method_call_sync(client_, "inline_svc", "go", nullptr, 0, reply, &length, 5) == BUS_OK;
    }));
    EXPECT_STREQ(reply, "-1002");
    bus_client_free(provider);

    // Registered without the flag, the same handler runs on the dispatch thread and its call works.
    provider = bus_client_new("queued_provider");
    ASSERT_EQ(bus_service_register(provider, "queued_svc", calling_handler, nullptr), BUS_OK);
    ASSERT_EQ(bus_connect(provider, 0), BUS_OK);
    ASSERT_TRUE(vask_test::eventually([&] {
        return bus_method_call_sync(client_, "queued_svc", "go", nullptr, 0, reply, &length, 5) == BUS_OK;
    }));
    EXPECT_STREQ(reply, "0");
    bus_client_free(provider);
}

TEST_F(BusDirectTest, CallerThatReadsNoReplies_ShouldBeDisconnectedWithoutHoldingTheOthers)
{
    std::string path = socket_path();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    int greedy = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    ASSERT_EQ(connect(greedy, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    // Requests without end, their replies never read: the service's replies to it pile up until it
    // can send no more.
    std::string frame = ping_frame();
    auto until = std::chrono::steady_clock::now() + 3s;
    int sent = 0;
    bool cut_off = false;
    while (!cut_off && sent < 5000 && std::chrono::steady_clock::now() < until) {
        if (send(greedy, frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
            ++sent;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            pollfd polled{greedy, POLLOUT, 0};
            poll(&polled, 1, 50);
        } else {
            cut_off = true; // the service has already ended the connection
        }
    }
    ASSERT_GT(sent, 100) << "too few requests to fill the way back";
    // Another caller is answered within the 1 s the service gives the greedy one, and a little more.
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(call("ping", ""), BUS_OK);
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 3.0);
    EXPECT_GE(direct_stats_of(client_).calls_direct, 1u);
    // The greedy caller finds its connection ended once it reads what was sent to it.
    char reply[256];
    ssize_t got = 1;
    auto deadline = std::chrono::steady_clock::now() + 10s;
    while (got > 0 && std::chrono::steady_clock::now() < deadline) {
        pollfd polled{greedy, POLLIN, 0};
        if (poll(&polled, 1, 1000) == 1)
            got = recv(greedy, reply, sizeof reply, 0);
    }
    EXPECT_LE(got, 0) << "the service kept the caller that read nothing";
    close(greedy);
}

TEST_F(BusDirectTest, ServiceSwitchedOffOnItsClient_ShouldStopListeningAtItsNextConnection)
{
    std::string path = socket_path();
    ASSERT_FALSE(path.empty());
    ASSERT_EQ(bus_client_set_direct(service_->client(), 0), BUS_OK);
    ASSERT_EQ(bus_disconnect(service_->client()), BUS_OK);
    ASSERT_EQ(bus_connect(service_->client(), 0), BUS_OK);
    ASSERT_TRUE(vask_test::eventually([&] { return presence().state == "online"; }));
    EXPECT_EQ(presence().properties.count("direct-socket"), 0u);
    struct stat info{};
    EXPECT_NE(stat(path.c_str(), &info), 0) << "the old socket was left behind";
    ASSERT_TRUE(vask_test::eventually([&] { return call("ping", "") == BUS_OK; }));
    unsigned long long before = direct_stats_of(client_).calls_broker;
    EXPECT_EQ(call("ping", ""), BUS_OK);
    EXPECT_EQ(direct_stats_of(client_).calls_broker, before + 1);
}

TEST_F(BusDirectTest, CallerOverTheServicesLimit_ShouldBeTurnedAwayToTheBroker)
{
    // The service's 256 places taken by callers that are answered.
    std::string path = socket_path();
    std::string frame = ping_frame();
    std::vector<int> held;
    int answered = 0;
    for (int i = 0; i < 256; ++i) {
        int fd = connect_direct(path);
        ASSERT_GE(fd, 0);
        held.push_back(fd);
        if (send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) >= 0 && answered_or_refused(fd) == 0)
            ++answered;
    }
    // The fixture's own client may hold a place of its own from the calls that set it up.
    EXPECT_GE(answered, 255);
    unsigned long long refused = direct_stats_of(service_->client()).peers_refused;

    // One more caller: told it is turned away before its request is read, its call goes through the
    // broker instead of failing as a connection lost.
    bus_client *other = bus_client_new("bus_test_one_too_many");
    ASSERT_EQ(bus_connect(other, 0), BUS_OK);
    char reply[BUS_REPLY_MAX];
    int length = 0;
    EXPECT_EQ(bus_method_call_sync(other, "external_device", "echo", "{\"n\":257}", 9, reply, &length, 5), BUS_OK);
    EXPECT_EQ(std::string(reply, static_cast<size_t>(length)), "{\"n\":257}");
    EXPECT_EQ(direct_stats_of(other).calls_broker, 1u);
    EXPECT_EQ(direct_stats_of(other).calls_direct, 0u);
    EXPECT_EQ(direct_stats_of(other).fallbacks, 1u);
    EXPECT_EQ(direct_stats_of(service_->client()).peers_refused, refused + 1);

    for (int fd : held)
        close(fd);
    bus_client_free(other);
}

// The connections to the socket at `path` the service has accepted, as the kernel lists them (an
// accepted connection carries its listener's path).
int accepted_connections(const std::string &path)
{
    std::ifstream table("/proc/net/unix");
    std::string line;
    int found = 0;
    while (std::getline(table, line))
        if (line.size() > path.size() && line.compare(line.size() - path.size(), path.size(), path) == 0)
            ++found;
    return found - 1; // the listening socket itself
}

TEST_F(BusDirectTest, ManyMoreThreadsThanSockets_ShouldShareThePoolOfOneLink)
{
    std::string path = socket_path();
    EXPECT_EQ(echo_from_threads(40, 25), 0);
    EXPECT_GE(direct_stats_of(client_).calls_direct, 1000u);
    // Forty threads, but one caller keeps at most 32 sockets to one service: the others waited for
    // a socket to come free.
    int open = accepted_connections(path);
    EXPECT_LE(open, 32);
    EXPECT_GE(open, 2);
}
