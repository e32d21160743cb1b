// SPDX-License-Identifier: MIT
// The simulated box: the state behind the "external_device" service and the control service.
#ifndef VASK_SIM_SIMULATOR_H
#define VASK_SIM_SIMULATOR_H

#include <chrono>
#include <deque>
#include <cjson/cJSON.h>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "vask_bus.h"
#include "voting.h"

namespace vask_sim {

struct json_deleter {
    void operator()(cJSON *json) const { cJSON_Delete(json); }
};
using json_ptr = std::unique_ptr<cJSON, json_deleter>;

// The text of a reply: {"code":N} followed by `members` (already printed, each ",\"key\":value").
std::string reply_text(int code, const std::string &members = std::string());
// The string member `key` of `object`, or "" when absent or not a string.
std::string string_member(const cJSON *object, const char *key);
// `json` printed unformatted.
std::string print(const cJSON *json);

// The calls of "external_device" kept for the control service's "calls": the last ones, so that a
// simulator under load for days keeps a bounded record; each body kept as far as "calls" shows it.
constexpr size_t kCallsKept = 10000;
constexpr size_t kCallBodyShown = 1024;

// How long a signal waits for room in a full sending queue before it is given up.
constexpr std::chrono::seconds kEmitRoomWait{10};

class simulator {
public:
    // `device` provides "external_device" and emits its signals; `control` provides the control service.
    simulator(bus_client *device, bus_client *control);

    static int handle_device(bus_client *, void *user, const char *method, const char *body, int body_length,
                             char *reply, int capacity);
    static int handle_control(bus_client *, void *user, const char *method, const char *body, int body_length,
                              char *reply, int capacity);

private:
    using method = std::function<std::string(simulator &, const cJSON *body)>;
    struct call {
        std::string method;
        std::string body;
    };
    struct canned {
        bool silent = false;
        std::string text;
    };
    using mic = std::pair<std::string, std::string>; // group, id

    // Signals a handler asks for, sent once it has let go of the lock: `count` copies of `payload`,
    // the first "%d" at `counter` (npos: none) replaced by the copy's number.
    struct emission {
        std::string event;
        std::string payload;
        size_t counter = std::string::npos;
        int count = 1;
        bool reported = false; // a signal that cannot be sent turns the handler's reply into an error
    };

    static int answer(const std::string &text, char *reply, int capacity);
    // Queues a signal for the end of the running handler (mutex_ held).
    void emit(const char *event, const std::string &payload);
    // Sends what the handler queued. The control service waits up to kEmitRoomWait for room in a full
    // sending queue; the box's service runs on the device client's network thread, which alone empties
    // that queue, so it never waits and a refused signal is logged. False when a reported one failed.
    bool send_emissions(std::vector<emission> emissions, bool wait_for_room);
    // Runs `found` under the lock, then sends its signals without it: a handler of the other service
    // never waits behind a signal waiting for room.
    int run_method(const method &found, const cJSON *body, bool wait_for_room, char *reply, int capacity);

    // The box's service.
    std::string query_voting(const cJSON *);
    std::string enter_voting(const cJSON *);
    std::string start_voting(const cJSON *);
    std::string stop_voting(const cJSON *);
    std::string exit_voting(const cJSON *);
    std::string voting_step(int (vote::*step)(), bool with_results);
    std::string mic_connection_test(const cJSON *body);
    std::string get_mic_connection_state(const cJSON *);
    std::string get_microphone_on_list(const cJSON *);
    std::string get_ex_rs232_device_list(const cJSON *);
    std::string get_imshare_info(const cJSON *);
    std::string set_imshare_info(const cJSON *body);
    std::string apply_section(const char *section, const char *file = "/etc/external_device.json");
    std::string microphone_item(const char *list, bool must_exist, const cJSON *body);
    std::string execute_item(bool simulated, const cJSON *body);
    std::string projector_test(const cJSON *body);
    std::string zorvo_goto_macro(const cJSON *body);

    // The control service.
    std::string press_mic(const cJSON *body);
    std::string release_mic(const cJSON *body);
    std::string cast_vote(const cJSON *body);
    std::string emit_cam_status(const cJSON *body);
    std::string emit_info_change(const cJSON *body);
    std::string emit_non_list_mic(const cJSON *body);
    std::string emit_any(const cJSON *body);
    std::string set_reply(const cJSON *body);
    std::string clear_reply(const cJSON *body);
    std::string set_state(const cJSON *body);
    std::string calls(const cJSON *body);
    std::string clear_calls(const cJSON *);
    std::string applied(const cJSON *body);

    std::string mic_event_payload(const mic &m, bool on) const;

    bus_client *device_;
    bus_client *control_;
    const std::map<std::string, method> device_methods_;
    const std::map<std::string, method> control_methods_;

    std::mutex mutex_; // guards everything below; both services' handlers take it
    std::vector<emission> outbox_; // the running handler's signals
    vote vote_;
    int isconnect_ = 0;
    bool hid_ = false;
    json_ptr rs232_list_;
    std::set<mic> listed_mics_;
    std::vector<mic> mics_on_; // in the order they went on
    std::map<std::string, canned> canned_;
    std::deque<call> calls_;  // the last kCallsKept calls received
    size_t calls_first_ = 0;  // the number of calls_.front() since the last clear_calls
    int last_macro_ = 0; // the remote controller's macro run last; 0: none
    std::map<std::string, json_ptr> applied_; // section name -> the section as last applied
};

} // namespace vask_sim

#endif
