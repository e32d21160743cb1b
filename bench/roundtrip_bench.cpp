// SPDX-License-Identifier: MIT
// Round trip of one method call, per call (p50_us, p99_us, cpu_us_per_call), all in one run:
//   Library    the library's operation against external-device-sim through the broker
//              (VASK_BUS_DIRECT=0);
//   Direct     the same operation over the simulator's direct socket (the default on one host);
//   Bus        bus_method_call_sync against the same simulator through the broker (the bus
//              without the library);
//   BusDirect  bus_method_call_sync over the direct socket;
//   UnixFloor  a bare unix-socket (SOCK_SEQPACKET) request and reply with a responder process: the
//              floor of any local call;
//   RawMqtt  a hand-written libmosquitto requester against a hand-written responder process;
//   SdBus    sd_bus_call_method against an sd-bus responder process on a private dbus-daemon;
//   GDBus    g_dbus_connection_call_sync against a GDBus responder process on the same daemon;
//   LibraryVsRawMqtt  Library and RawMqtt taken turn about in the same iterations (vs_baseline: the
//              ratio of their medians), the fairest comparison on a machine whose speed drifts.
// Each for two operations with the library's own payloads: get_voting (no body, the voting reply)
// and set_imshare (body {"hid":true}, reply {"code":0}); the baselines answer the simulator's texts.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>

#include "baseline/mqtt_requester.h"
#include "call_samples.h"
#include "dbus/dbus_callers.h"
#include "dbus/dbus_names.h"
#include "dbus/private_bus.h"
#include "libvask_external_device.h"
#include "process.h"
#include "sim_process.h"
#include "vask_bus.h"

namespace {

using namespace std::chrono_literals;
using namespace vask_bench;

constexpr int kTimeoutS = 8; // what the library passes on every call
constexpr int kDefaultCalls = 5000;
// As long as "external_device" and "libvaskexternal_device", so that the raw requests carry topics
// and response topics of the same length as the library's.
constexpr const char *kRawService = "raw_mqtt_device";
constexpr const char *kRawClientName = "rawmqttexternal_device";

struct operation {
    const char *name;
    const char *method;
    std::string body;  // as the library prints it
    bool (*library)(); // the library's operation that sends it
    std::string reply; // as the simulator answers it, read at start-up
};

bool get_voting()
{
    ed_voting_info info{};
    return ed_get_voting(info) == 0;
}

bool set_imshare()
{
    imshare_info info{};
    info.hid = true;
    return ed_set_imshare_info(info) == 0;
}

std::vector<operation> g_operations = {
    {"get_voting", "query_voting", "", get_voting, ""},
    {"set_imshare", "set_imshare_info", "{\"hid\":true}", set_imshare, ""},
};

struct environment {
    simulated_box box; // the broker and the simulator
    vask_test::child_process mqtt_responder;
    private_bus dbus;
    vask_test::child_process sdbus_responder;
    vask_test::child_process gdbus_responder;
    vask_test::child_process unix_responder;
    int unix_fd = -1;
    bus_client *client = nullptr;        // through the broker
    bus_client *direct_client = nullptr; // over the direct socket
    std::unique_ptr<mqtt_requester> raw;
    std::unique_ptr<sdbus_caller> sdbus;
    std::unique_ptr<gdbus_caller> gdbus;

    std::string start();
    void stop();
};

std::unique_ptr<environment> g_env;

std::string client_id(const char *name)
{
    char id[96];
    snprintf(id, sizeof id, "%s-%d-%08x", name, static_cast<int>(getpid()), static_cast<unsigned>(random()));
    return id;
}

std::vector<std::string> reply_arguments()
{
    std::vector<std::string> arguments;
    for (const operation &op : g_operations)
        arguments.push_back(std::string(op.method) + "=" + op.reply);
    return arguments;
}

bool start_responder(vask_test::child_process &process, std::vector<std::string> argv, const std::string &log)
{
    for (const std::string &argument : reply_arguments())
        argv.push_back(argument);
    return process.start(argv, {}, log) && process.wait_for_line("ready", 10s);
}

// Returns an empty text when everything runs, else what did not.
std::string environment::start()
{
    if (!box.ready())
        return "the broker and the simulator did not start";
    setenv("VASK_SYSROOT", box.root().c_str(), 1);
    if (ed_init() != 0)
        return "ed_init failed";
    client = bus_client_new("bench_client");
    if (client == nullptr || bus_client_set_direct(client, 0) != BUS_OK || bus_connect(client, 0) != BUS_OK)
        return "the bus client did not connect";
    direct_client = bus_client_new("bench_direct");
    if (direct_client == nullptr || bus_connect(direct_client, 0) != BUS_OK)
        return "the direct bus client did not connect";
    for (operation &op : g_operations) {
        char reply[BUS_REPLY_MAX];
        int length = 0;
        if (bus_method_call_sync(client, "external_device", op.method, op.body.data(),
                                 static_cast<int>(op.body.size()), reply, &length, kTimeoutS) != BUS_OK)
            return std::string("the simulator does not answer ") + op.method;
        op.reply.assign(reply, static_cast<size_t>(length));
    }
    std::string logs = box.root() + "/";
    if (!start_responder(mqtt_responder, {VASK_MQTT_RESPONDER, std::to_string(box.broker_port()), kRawService},
                         logs + "mqtt_responder.log"))
        return "mqtt_responder did not start";
    raw = std::make_unique<mqtt_requester>(box.broker_port(), client_id(kRawClientName));
    if (!raw->ready())
        return "the raw MQTT requester did not connect";
    if (!dbus.started())
        return "dbus-daemon did not start";
    if (!start_responder(sdbus_responder, {VASK_SDBUS_RESPONDER, dbus.address(), kSdBusName},
                         logs + "sdbus_responder.log") ||
        !start_responder(gdbus_responder, {VASK_GDBUS_RESPONDER, dbus.address(), kGDBusName},
                         logs + "gdbus_responder.log"))
        return "a D-Bus responder did not start";
    std::string unix_path = box.root() + "/floor.sock";
    if (!start_responder(unix_responder, {VASK_UNIX_RESPONDER, unix_path, "floor"}, logs + "unix_responder.log"))
        return "unix_responder did not start";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", unix_path.c_str());
    unix_fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (unix_fd < 0 || connect(unix_fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        return "cannot connect to unix_responder";
    sdbus = std::make_unique<sdbus_caller>(dbus.address());
    gdbus = std::make_unique<gdbus_caller>(dbus.address());
    if (!sdbus->connected() || !gdbus->connected())
        return "a D-Bus caller did not connect";
    return std::string();
}

void environment::stop()
{
    sdbus.reset();
    gdbus.reset();
    raw.reset();
    if (unix_fd >= 0)
        close(unix_fd);
    for (vask_test::child_process *process : {&gdbus_responder, &sdbus_responder, &mqtt_responder, &unix_responder})
        if (process->running())
            process->stop(SIGTERM);
    bus_client_free(direct_client);
    bus_client_free(client);
    ed_release();
}

// Opens the library again for `direct`'s path, runs `measure` and checks that every call took it.
template <typename Measure>
void on_library_path(benchmark::State &state, bool direct, Measure measure)
{
    bus_direct_stats before{}, after{};
    if (!reopen_library(direct) || ed_get_bus_direct_stats(&before) != 0) {
        state.SkipWithError("the library did not open");
        return;
    }
    // The library learns the simulator's socket from its presence while ed_init connects.
    measure();
    ed_get_bus_direct_stats(&after);
    check_path(state, before, after, direct, static_cast<unsigned long long>(state.iterations()));
}

void measure_library(benchmark::State &state, const operation *op, bool direct)
{
    on_library_path(state, direct, [&] { measure_calls(state, op->library); });
}

void library_call(benchmark::State &state, const operation *op)
{
    measure_library(state, op, false);
}

void direct_call(benchmark::State &state, const operation *op)
{
    measure_library(state, op, true);
}

void measure_bus(benchmark::State &state, const operation *op, bus_client *client, bool direct)
{
    char reply[BUS_REPLY_MAX];
    int length = 0;
    bus_direct_stats before{}, after{};
    bus_client_get_direct_stats(client, &before);
    measure_calls(state, [&] {
        return bus_method_call_sync(client, "external_device", op->method, op->body.data(),
                                    static_cast<int>(op->body.size()), reply, &length, kTimeoutS) == BUS_OK &&
               op->reply.compare(0, std::string::npos, reply, static_cast<size_t>(length)) == 0;
    });
    bus_client_get_direct_stats(client, &after);
    check_path(state, before, after, direct, static_cast<unsigned long long>(state.iterations()));
}

void bus_call(benchmark::State &state, const operation *op)
{
    measure_bus(state, op, g_env->client, false);
}

void bus_direct_call(benchmark::State &state, const operation *op)
{
    measure_bus(state, op, g_env->direct_client, true);
}

void unix_floor_call(benchmark::State &state, const operation *op)
{
    std::vector<char> reply(BUS_REPLY_MAX);
    size_t method_length = strlen(op->method);
    measure_calls(state, [&] {
        if (send(g_env->unix_fd, op->method, method_length, MSG_NOSIGNAL) < 0)
            return false;
        ssize_t size = recv(g_env->unix_fd, reply.data(), reply.size(), 0);
        return size >= 0 && op->reply.compare(0, std::string::npos, reply.data(), static_cast<size_t>(size)) == 0;
    });
}

// One call of `op` through the raw requester, checked against the simulator's reply.
std::function<bool()> raw_mqtt_caller(const operation *op)
{
    return [op, topic = std::string(kRawService) + "/method/" + op->method, reply = std::string()]() mutable {
        return g_env->raw->call(topic, op->body, reply, kTimeoutS) && reply == op->reply;
    };
}

void raw_mqtt_call(benchmark::State &state, const operation *op)
{
    measure_calls(state, raw_mqtt_caller(op));
}

// The library through the broker and the raw requester, call about call in the same iterations.
void library_vs_raw_call(benchmark::State &state, const operation *op)
{
    on_library_path(state, false, [&] { measure_paired(state, op->library, raw_mqtt_caller(op)); });
}

void sdbus_call(benchmark::State &state, const operation *op)
{
    std::string reply;
    measure_calls(state, [&] {
        return g_env->sdbus->call(kSdBusName, op->method, op->body, reply) && reply == op->reply;
    });
}

void gdbus_call(benchmark::State &state, const operation *op)
{
    std::string reply;
    measure_calls(state, [&] {
        return g_env->gdbus->call(kGDBusName, op->method, op->body, reply) && reply == op->reply;
    });
}

int calls_per_case()
{
    const char *text = getenv("VASK_BENCH_CALLS");
    int calls = text != nullptr ? atoi(text) : 0;
    return calls > 0 ? calls : kDefaultCalls;
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    srandom(static_cast<unsigned>(getpid()));
    g_env = std::make_unique<environment>();
    std::string failure = g_env->start();
    if (!failure.empty()) {
        fprintf(stderr, "roundtrip_bench: %s\n", failure.c_str());
        g_env->stop();
        return 1;
    }
    const struct {
        const char *name;
        void (*run)(benchmark::State &, const operation *);
    } transports[] = {
        {"Library", library_call}, {"Direct", direct_call}, {"Bus", bus_call},     {"BusDirect", bus_direct_call},
        {"RawMqtt", raw_mqtt_call}, {"SdBus", sdbus_call},  {"GDBus", gdbus_call}, {"UnixFloor", unix_floor_call},
        {"LibraryVsRawMqtt", library_vs_raw_call},
    };
    int calls = calls_per_case();
    for (const operation &op : g_operations)
        for (const auto &transport : transports)
            benchmark::RegisterBenchmark((std::string(transport.name) + "/" + op.name).c_str(), transport.run, &op)
                ->Iterations(calls)
                ->UseRealTime()
                ->Unit(benchmark::kMicrosecond);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_env->stop();
    g_env.reset();
    return 0;
}
