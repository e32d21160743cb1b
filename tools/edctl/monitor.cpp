// SPDX-License-Identifier: MIT
// edctl monitor [--count N] [--method M]... [--event E]...: shows everything on the bus for the
// external_device service, as requests, replies, signals and presence changes arrive.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "commands.h"
#include "vask_bus.h"

namespace edctl {
namespace {

constexpr const char *kMonitoredService = "external_device";
// Requests whose reply never comes are forgotten after this many, oldest first.
constexpr size_t kMaxUnanswered = 10000;

using steady = std::chrono::steady_clock;

struct request_seen {
    std::string method;
    steady::time_point at;
};

struct monitor_state {
    bool json = false;
    std::set<std::string> methods; // empty: every method
    std::set<std::string> events;  // empty: every event
    bool filtered = false;         // a --method or --event was given
    long limit = 0;                // 0: no limit
    std::atomic<long> shown{0};
    std::mutex mutex;
    std::map<std::string, request_seen> pending; // correlation -> request
    std::map<steady::time_point, std::string> by_age;
};

bool wanted(const monitor_state &state, const std::set<std::string> &names, const std::string &name)
{
    if (!state.filtered)
        return true;
    return names.count(name) != 0;
}

// The "code" of a reply, or null when it has none.
const cJSON *reply_code(const cJSON *reply)
{
    const cJSON *code = cJSON_GetObjectItemCaseSensitive(reply, "code");
    return cJSON_IsNumber(code) ? code : nullptr;
}

void show(monitor_state &state, json_ptr record, const std::string &text)
{
    long index = state.shown.fetch_add(1);
    if (state.limit > 0 && index >= state.limit)
        return;
    if (state.json) {
        print_json(record.get());
    } else {
        printf("%s\n", text.c_str());
        fflush(stdout);
    }
}

// Remembers a request until its reply comes (by correlation data), so that the reply can name its
// method and the time it took.
void remember(monitor_state &state, const std::string &correlation, const std::string &method)
{
    std::lock_guard<std::mutex> hold(state.mutex);
    if (state.pending.size() >= kMaxUnanswered && !state.by_age.empty()) {
        state.pending.erase(state.by_age.begin()->second);
        state.by_age.erase(state.by_age.begin());
    }
    auto now = steady::now();
    while (state.by_age.count(now) != 0)
        now += steady::duration(1);
    state.pending[correlation] = request_seen{method, now};
    state.by_age[now] = correlation;
}

bool recall(monitor_state &state, const std::string &correlation, request_seen *seen)
{
    std::lock_guard<std::mutex> hold(state.mutex);
    auto found = state.pending.find(correlation);
    if (found == state.pending.end())
        return false;
    *seen = found->second;
    state.by_age.erase(found->second.at);
    state.pending.erase(found);
    return true;
}

void on_request(monitor_state &state, const bus_monitor_event *event, const std::string &correlation)
{
    remember(state, correlation, event->name);
    if (!wanted(state, state.methods, event->name))
        return;
    json_ptr record(cJSON_CreateObject());
    cJSON_AddStringToObject(record.get(), "type", "request");
    cJSON_AddStringToObject(record.get(), "method", event->name);
    cJSON_AddStringToObject(record.get(), "caller", event->client_id);
    cJSON_AddStringToObject(record.get(), "body", event->payload);
    show(state, std::move(record),
         std::string("request  ") + event->name + " from " + event->client_id + " " + event->payload);
}

void on_reply(monitor_state &state, const bus_monitor_event *event, const std::string &correlation)
{
    request_seen seen;
    // A reply to a call of another service, or to a request seen before the monitor started.
    if (!recall(state, correlation, &seen) || !wanted(state, state.methods, seen.method))
        return;
    double ms = std::chrono::duration<double, std::milli>(steady::now() - seen.at).count();
    json_ptr parsed(cJSON_Parse(event->payload));
    const cJSON *code = reply_code(parsed.get());
    json_ptr record(cJSON_CreateObject());
    cJSON_AddStringToObject(record.get(), "type", "reply");
    cJSON_AddStringToObject(record.get(), "method", seen.method.c_str());
    cJSON_AddStringToObject(record.get(), "caller", event->client_id);
    if (code != nullptr)
        cJSON_AddNumberToObject(record.get(), "code", code->valuedouble);
    else
        cJSON_AddNullToObject(record.get(), "code");
    cJSON_AddNumberToObject(record.get(), "ms", static_cast<double>(static_cast<long>(ms * 1000)) / 1000);
    cJSON_AddStringToObject(record.get(), "body", event->payload);
    char took[32];
    snprintf(took, sizeof took, "%.3f", ms);
    std::string code_text = code != nullptr ? std::to_string(code->valueint) : "-";
    show(state, std::move(record),
         "reply    " + seen.method + " to " + event->client_id + " code " + code_text + " after " + took + " ms " +
             event->payload);
}

void on_event(bus_client *, void *user, const bus_monitor_event *event)
{
    auto &state = *static_cast<monitor_state *>(user);
    std::string correlation(static_cast<const char *>(event->correlation),
                            event->correlation != nullptr ? static_cast<size_t>(event->correlation_length) : 0);
    switch (event->kind) {
    case BUS_MONITOR_REQUEST:
        on_request(state, event, correlation);
        break;
    case BUS_MONITOR_REPLY:
        on_reply(state, event, correlation);
        break;
    case BUS_MONITOR_SIGNAL: {
        if (!wanted(state, state.events, event->name))
            return;
        json_ptr record(cJSON_CreateObject());
        cJSON_AddStringToObject(record.get(), "type", "signal");
        cJSON_AddStringToObject(record.get(), "event", event->name);
        cJSON_AddStringToObject(record.get(), "payload", event->payload);
        show(state, std::move(record), std::string("signal   ") + event->name + " " + event->payload);
        break;
    }
    case BUS_MONITOR_PRESENCE: {
        json_ptr record(cJSON_CreateObject());
        cJSON_AddStringToObject(record.get(), "type", "presence");
        cJSON_AddStringToObject(record.get(), "service", event->service);
        cJSON_AddStringToObject(record.get(), "state", event->payload);
        show(state, std::move(record), std::string("presence ") + event->service + " " + event->payload);
        break;
    }
    default:
        break;
    }
}

} // namespace

int run_monitor(const context &ctx, const arguments &args)
{
    static monitor_state state;
    state.json = ctx.json;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &option = args[i];
        if (option != "--count" && option != "--method" && option != "--event")
            return usage_error("unknown monitor option '%s'", option.c_str());
        if (i + 1 >= args.size())
            return usage_error("%s needs a value", option.c_str());
        const std::string &value = args[++i];
        if (option == "--count") {
            char *end = nullptr;
            state.limit = strtol(value.c_str(), &end, 10);
            if (state.limit < 1 || *end != '\0')
                return usage_error("%s", "--count needs a number of messages, 1 or more");
        } else {
            (option == "--method" ? state.methods : state.events).insert(value);
            state.filtered = true;
        }
    }

    // The stop signals are taken on this thread only; the bus library's threads inherit the mask.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    own_client client("edctl_monitor");
    if (!client.connected())
        return not_connected("monitor");
    bus_monitor(client.get(), kMonitoredService, on_event, &state);
    fprintf(stderr, "edctl: monitoring %s on %s\n", kMonitoredService, bus_url().c_str());
    const timespec tick = {0, 100 * 1000 * 1000};
    while (state.limit == 0 || state.shown < state.limit) {
        if (sigtimedwait(&stop, nullptr, &tick) > 0)
            break;
    }
    return 0;
}

} // namespace edctl
