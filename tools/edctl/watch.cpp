// SPDX-License-Identifier: MIT
// edctl watch [--count N] [EVENT...]: prints the service's signals as they arrive.
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "commands.h"
#include "libvask_external_device.h"

namespace edctl {
namespace {

const char *const kEvents[] = {"mic_on_event", "voting_results_event", "info_data_change_event", "cam_status_event",
                               "non_list_mic_event"};

std::atomic<bool> g_json{false};
std::atomic<long> g_received{0};
std::atomic<long> g_limit{0}; // 0: no limit

void add_group_id_on(cJSON *json, const std::string &group, const std::string &id, bool on)
{
    cJSON_AddStringToObject(json, "group", group.c_str());
    cJSON_AddStringToObject(json, "id", id.c_str());
    cJSON_AddBoolToObject(json, "on", on);
}

// Runs on the bus library's dispatch thread, one signal at a time.
void print_signal(const char *event, void *data, void *)
{
    long index = g_received.fetch_add(1);
    if (g_limit > 0 && index >= g_limit)
        return;
    std::string name = event != nullptr ? event : "";
    json_ptr json(cJSON_CreateObject());
    cJSON_AddStringToObject(json.get(), "event", name.c_str());
    if (name == "mic_on_event" || name == "non_list_mic_event") {
        auto *r = static_cast<sig_mic_on_data *>(data);
        add_group_id_on(json.get(), r->group, r->id, r->on);
    } else if (name == "cam_status_event") {
        auto *r = static_cast<sig_cam_status_data *>(data);
        cJSON_AddNumberToObject(json.get(), "status", r->status);
        add_group_id_on(json.get(), r->group, r->id, r->on);
    } else if (name == "voting_results_event") {
        auto *r = static_cast<sig_voting_results_data *>(data);
        cJSON_AddNumberToObject(json.get(), "status", r->status);
        cJSON_AddNumberToObject(json.get(), "agree", r->agree);
        cJSON_AddNumberToObject(json.get(), "disagree", r->disagree);
        cJSON_AddNumberToObject(json.get(), "abandon", r->abandon);
        cJSON_AddNumberToObject(json.get(), "total", r->total);
        cJSON_AddNumberToObject(json.get(), "time", r->time);
    } else if (name == "info_data_change_event") {
        auto *r = static_cast<sig_info_data_change_data *>(data);
        cJSON_AddNumberToObject(json.get(), "type", r->type);
        cJSON_AddNumberToObject(json.get(), "data", r->data);
    }
    if (g_json) {
        print_json(json.get());
    } else {
        // The same members as "key=value" after the event's name.
        std::string line = name;
        const cJSON *member = nullptr;
        cJSON_ArrayForEach(member, json.get())
        {
            if (strcmp(member->string, "event") == 0)
                continue;
            char *value = cJSON_IsString(member) ? nullptr : cJSON_PrintUnformatted(member);
            line += std::string(" ") + member->string + "=" + (value != nullptr ? value : member->valuestring);
            cJSON_free(value);
        }
        printf("%s\n", line.c_str());
        fflush(stdout);
    }
}

} // namespace

int run_watch(const context &ctx, const arguments &args)
{
    long count = 0;
    std::vector<std::string> events;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--count") {
            char *end = nullptr;
            count = i + 1 < args.size() ? strtol(args[i + 1].c_str(), &end, 10) : 0;
            if (count < 1 || *end != '\0')
                return usage_error("%s", "--count needs a number of signals, 1 or more");
            ++i;
        } else {
            events.push_back(args[i]);
        }
    }
    if (events.empty())
        events.assign(std::begin(kEvents), std::end(kEvents));
    g_json = ctx.json;
    g_limit = count;

    // The stop signals are taken on this thread only; the bus library's threads inherit the mask.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    // Registered while the library is closed, the callbacks are subscribed by ed_init.
    std::string watched;
    for (const std::string &event : events) {
        if (ed_register_signal(event.c_str(), print_signal) != 0)
            return usage_error("unknown event '%s'", event.c_str());
        watched += " " + event;
    }
    // "watching" promises signals: said only once the broker answers.
    if (!broker_answers()) {
        fprintf(stderr, "edctl: not connected to %s\n", bus_url().c_str());
        return 1;
    }
    ed_init();
    fprintf(stderr, "edctl: watching%s\n", watched.c_str());
    const timespec tick = {0, 100 * 1000 * 1000};
    while (count == 0 || g_received < count) {
        if (sigtimedwait(&stop, nullptr, &tick) > 0)
            break;
    }
    for (const std::string &event : events)
        ed_unregister_signal(event.c_str());
    ed_release();
    return 0;
}

} // namespace edctl
