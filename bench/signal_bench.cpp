// SPDX-License-Identifier: MIT
// Signals per second, losses and order: bursts of 100,000 "mic_on_event" signals emitted by the
// simulator (one process of its own) through a private broker, received either by the library
// (parsed into records and handed to a callback registered with ed_register_signal) or by a raw
// libmosquitto MQTT v5 subscriber in this process that parses the same payload with cJSON into the
// same fields.
//
// Fairness: both receivers take the same stream from the same emitter through the same broker, at
// the same QoS (1), one at a time: a receiver subscribes before its burst and unsubscribes after it,
// so the other never competes for the CPUs while one is measured, and the emitter and the broker do
// the same work for both. A burst is timed from the emit request to the last signal received, so
// whichever part is slowest (emitter, broker or receiver) sets the rate; a receiver that costs more
// than the raw one shows up as a lower rate, or as losses. AlternatingBursts compares the two on
// bursts taken in turn (raw first, then library first) within one run, so that a machine whose load
// changes between benchmarks does not decide the ratio (`library_vs_raw`). Since the emitter often
// sets the rate, the benchmarks also report what receiving cost this process: its CPU time per
// signal (`cpu_us_per_signal`), the receiver's own work whatever the rate.
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <mutex>
#include <string>
#include <vector>

#include "libvask_external_device.h"
#include "sim_process.h"

namespace {

constexpr int kBurst = 100000;
constexpr const char *kEvent = "mic_on_event";
constexpr const char *kTopic = "external_device/signal/mic_on_event";
// A burst that makes no progress for this long is over: what has not arrived is lost.
constexpr auto kStall = std::chrono::seconds(10);

std::unique_ptr<vask_bench::simulated_box> g_box;

// What one receiver saw of a burst: signal i carries microphone id i.
class burst_tally {
public:
    void reset()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        seen_.assign(kBurst, false);
        distinct_ = 0;
        next_ = 0;
        out_of_order_ = 0;
    }

    void record(const std::string &id)
    {
        char *end = nullptr;
        long n = strtol(id.c_str(), &end, 10);
        std::lock_guard<std::mutex> hold(mutex_);
        if (end == id.c_str() || *end != '\0' || n < 0 || n >= kBurst) {
            ++out_of_order_; // not a signal of the burst at all
            return;
        }
        if (n != next_)
            ++out_of_order_;
        next_ = n + 1;
        if (!seen_[static_cast<size_t>(n)]) {
            seen_[static_cast<size_t>(n)] = true;
            if (++distinct_ == kBurst)
                complete_.notify_one();
        }
    }

    // Waits until every signal arrived or none arrived for kStall; the number lost.
    int wait()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        int before = -1;
        while (distinct_ < kBurst && distinct_ != before) {
            before = distinct_;
            complete_.wait_for(lock, kStall, [this] { return distinct_ == kBurst; });
        }
        return kBurst - distinct_;
    }

    int out_of_order()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        return out_of_order_;
    }

private:
    std::mutex mutex_;
    std::condition_variable complete_;
    std::vector<bool> seen_;
    int distinct_ = 0;
    long next_ = 0;
    int out_of_order_ = 0;
};

burst_tally g_tally;

double process_cpu_us()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

struct burst_result {
    double seconds = 0;
    double cpu_us = 0;
    int lost = 0;
    int out_of_order = 0;
};

// One burst of kBurst signals to whichever receiver is subscribed: the wall time from the emit
// request to the last signal (or to the stall), and this process's CPU time meanwhile. False when
// the simulator refuses the burst.
bool one_burst(burst_result *result)
{
    static const std::string request = std::string("{\"event\":\"") + kEvent +
                                       "\",\"payload\":\"{\\\"Group\\\":\\\"1\\\",\\\"Id\\\":\\\"%d\\\","
                                       "\\\"On\\\":true}\",\"count\":" +
                                       std::to_string(kBurst) + "}";
    g_tally.reset();
    auto start = std::chrono::steady_clock::now();
    double cpu_start = process_cpu_us();
    if (g_box->control("emit", request, 120) != "{\"code\":0}")
        return false;
    result->lost += g_tally.wait();
    result->cpu_us += process_cpu_us() - cpu_start;
    result->seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    result->out_of_order += g_tally.out_of_order();
    return true;
}

// Losses, order and CPU of the bursts in `result`, as counters named `prefix` + what they count.
void report(benchmark::State &state, const burst_result &result, const std::string &prefix)
{
    double signals = static_cast<double>(state.iterations()) * kBurst;
    state.counters[prefix + "lost"] = result.lost;
    state.counters[prefix + "out_of_order"] = result.out_of_order;
    state.counters[prefix + "cpu_us_per_signal"] = result.cpu_us / signals;
}

void on_library_signal(const char *, void *data, void *)
{
    g_tally.record(static_cast<const sig_mic_on_data *>(data)->id);
}

// The fields the library's record holds, read the way its parser reads them.
struct raw_mic_record {
    std::string group;
    std::string id;
    bool on = false;
};

bool parse_raw(const char *payload, raw_mic_record *record)
{
    cJSON *document = cJSON_Parse(payload);
    if (document == nullptr)
        return false;
    const cJSON *group = cJSON_GetObjectItem(document, "Group");
    const cJSON *id = cJSON_GetObjectItem(document, "Id");
    const cJSON *on = cJSON_GetObjectItem(document, "On");
    bool complete = group != nullptr || id != nullptr;
    if (complete) {
        record->group = cJSON_IsString(group) ? group->valuestring : "";
        record->id = cJSON_IsString(id) ? id->valuestring : "";
        record->on = on != nullptr && on->valueint == 1;
    }
    cJSON_Delete(document);
    return complete;
}

// A plain MQTT v5 subscriber with libmosquitto's own network thread, parsing in its message callback.
class raw_subscriber {
public:
    raw_subscriber()
    {
        mosquitto_lib_init();
        mosq_ = mosquitto_new(nullptr, true, this);
        mosquitto_int_option(mosq_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
        mosquitto_int_option(mosq_, MOSQ_OPT_TCP_NODELAY, 1);
        mosquitto_message_v5_callback_set(mosq_, [](mosquitto *, void *, const mosquitto_message *message,
                                                    const mosquitto_property *) {
            raw_mic_record record;
            // libmosquitto terminates every payload with a zero byte.
            if (message->payload != nullptr && parse_raw(static_cast<const char *>(message->payload), &record))
                g_tally.record(record.id);
        });
        mosquitto_subscribe_v5_callback_set(mosq_, [](mosquitto *, void *self, int, int, const int *,
                                                      const mosquitto_property *) {
            static_cast<raw_subscriber *>(self)->acknowledged();
        });
        if (mosquitto_connect_bind_v5(mosq_, "127.0.0.1", g_box->broker_port(), 30, nullptr, nullptr) !=
                MOSQ_ERR_SUCCESS ||
            mosquitto_loop_start(mosq_) != MOSQ_ERR_SUCCESS)
            return;
        std::unique_lock<std::mutex> lock(mutex_);
        running_ = true;
        if (mosquitto_subscribe_v5(mosq_, nullptr, kTopic, 1, 0, nullptr) == MOSQ_ERR_SUCCESS)
            subscribed_.wait_for(lock, std::chrono::seconds(5), [this] { return acknowledged_; });
    }
    ~raw_subscriber()
    {
        mosquitto_disconnect_v5(mosq_, 0, nullptr);
        if (running_)
            mosquitto_loop_stop(mosq_, false);
        mosquitto_destroy(mosq_);
        mosquitto_lib_cleanup();
    }
    raw_subscriber(const raw_subscriber &) = delete;
    raw_subscriber &operator=(const raw_subscriber &) = delete;

    bool ready()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        return acknowledged_;
    }

private:
    void acknowledged()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        acknowledged_ = true;
        subscribed_.notify_one();
    }

    mosquitto *mosq_;
    std::mutex mutex_;
    std::condition_variable subscribed_;
    bool running_ = false;
    bool acknowledged_ = false;
};

// The library receives while this lives.
class library_subscription {
public:
    library_subscription() : ok_(ed_register_signal(kEvent, on_library_signal) == 0) {}
    ~library_subscription() { ed_unregister_signal(kEvent); }
    library_subscription(const library_subscription &) = delete;
    library_subscription &operator=(const library_subscription &) = delete;
    bool ready() const { return ok_; }

private:
    bool ok_;
};

// The bursts of one benchmark, received by a `Receiver` made before each burst (untimed).
template <typename Receiver>
void receiver_bursts(benchmark::State &state)
{
    burst_result result;
    for (auto _ : state) {
        Receiver receiver;
        double before = result.seconds;
        if (!receiver.ready() || !one_burst(&result)) {
            state.SkipWithError("cannot subscribe, or the simulator did not emit the burst");
            break;
        }
        state.SetIterationTime(result.seconds - before);
    }
    state.SetItemsProcessed(state.iterations() * kBurst);
    report(state, result, "");
}

void RawMosquittoSignals(benchmark::State &state)
{
    receiver_bursts<raw_subscriber>(state);
}

void LibrarySignals(benchmark::State &state)
{
    receiver_bursts<library_subscription>(state);
}

// One burst, received by a `Receiver` made for it.
template <typename Receiver>
bool burst_to(burst_result *result)
{
    Receiver receiver;
    return receiver.ready() && one_burst(result);
}

void AlternatingBursts(benchmark::State &state)
{
    burst_result raw;
    burst_result library;
    for (auto _ : state) {
        double before = raw.seconds + library.seconds;
        bool raw_first = state.iterations() % 2 == 0;
        bool ok = raw_first ? burst_to<raw_subscriber>(&raw) && burst_to<library_subscription>(&library)
                            : burst_to<library_subscription>(&library) && burst_to<raw_subscriber>(&raw);
        if (!ok) {
            state.SkipWithError("cannot subscribe, or the simulator did not emit the burst");
            break;
        }
        state.SetIterationTime(raw.seconds + library.seconds - before);
    }
    double signals = static_cast<double>(state.iterations()) * kBurst;
    report(state, library, "library_");
    report(state, raw, "raw_");
    state.counters["library_per_s"] = signals / library.seconds;
    state.counters["raw_per_s"] = signals / raw.seconds;
    // Equal counts of signals: the ratio of the rates is the inverse ratio of the times.
    state.counters["library_vs_raw"] = raw.seconds / library.seconds;
}

BENCHMARK(RawMosquittoSignals)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(LibrarySignals)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(AlternatingBursts)->Iterations(2)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    return vask_bench::run_against_box(argc, argv, g_box, [] {
        benchmark::RunSpecifiedBenchmarks();
        return 0;
    });
}
