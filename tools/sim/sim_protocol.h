// SPDX-License-Identifier: MIT
// Constants shared by external-device-sim, edctl and the tests: what the simulator answers and when.
#ifndef VASK_SIM_PROTOCOL_H
#define VASK_SIM_PROTOCOL_H

namespace vask_sim {

// The box's service, and the bus name of the client that provides it.
constexpr const char *kServiceName = "external_device";
constexpr const char *kClientName = "external_device_sim";
// The simulator's own control service, on a client of its own so that each has its will.
constexpr const char *kControlService = "external_device_sim";
constexpr const char *kControlClientName = "external_device_sim_control";

// Line printed on standard output once both services are registered and reachable.
constexpr const char *kReadyLine = "external-device-sim: ready";
// Module number and source name of the simulator's log lines.
constexpr int kLogModule = 57;
constexpr const char *kLogSource = "external-device-sim";

// Reply codes of the simulator besides 0.
constexpr int kCodeWrongState = 1;        // the call makes no sense in the current state
constexpr int kCodeUnreachable = 2;       // a connection test to an address that is not IPv4
constexpr int kCodeBadConfig = 3;         // the configuration file or the section to apply is missing or bad
constexpr int kCodeNoSuchMacro = 4;       // "zorvo_goto_marco": the box model has no macro of that number
constexpr int kCodeNoSuchItem = 5;        // a microphone control item that the file does not hold (or,
                                          // for a delete, still holds)
constexpr int kCodeUnknownMethod = -1002; // no such method (the library maps it to -2)
constexpr int kCodeBadRequest = -1002;    // the body is not the JSON the method needs

// Vote status as reported in "Status".
enum vote_status {
    kVoteIdle = 0,    // no vote: "enter_voting" opens one
    kVoteEntered = 1, // opened, not started: "start_voting" starts it
    kVoteRunning = 2, // votes are counted: "stop_voting" ends it
    kVoteStopped = 3, // results final: "enter_voting" opens a new one, "exit_voting" closes
};

// Methods of the control service (bodies are JSON objects):
//   "press_mic"         {"group":"1","id":"7"}  a listed microphone goes on: "mic_on_event" with
//                       On true; one not listed gives "non_list_mic_event"
//   "release_mic"       {"group":"1","id":"7"}  it goes off: "mic_on_event" with On false
//   "cast_vote"         {"choice":"agree"|"disagree"|"abandon"}  while a vote runs
//   "emit_cam_status"   the "cam_status_event" payload, emitted as given
//   "emit_info_change"  the "info_data_change_event" payload, emitted as given
//   "emit_non_list_mic" the "non_list_mic_event" payload, emitted as given
//   "emit"              {"event":E,"payload":P,"count":N}  P (a JSON value, or a string sent as
//                       its text) emitted N times (default 1); "%d" in a string P becomes 0..N-1
//   "set_reply"         {"method":M,"reply":TEXT} answer M with TEXT as it is, even when it is
//                       longer than a caller's buffer; {"method":M,"no_reply":true} never answer M
//   "clear_reply"       {"method":M}  M answers normally again
//   "set_state"         {"isconnect":N, "rs232_list":[...], "listed_mics":[{"Group":G,"ID":I}]}
//   "calls"             {"from":K}  the calls received from index K on, as many as fit a reply:
//                       {"code":0,"total":T,"next":K2,"calls":[{"method":M,"body":B},...]}
//   "clear_calls"       forget the calls received
//   "applied"           {"section":S}  what the service last applied of section S of
//                       /etc/external_device.json or /etc/microphone_control.json:
//                       {"code":0,"section":S,"applied":{...}} (null when nothing was applied yet);
//                       section "executed" is the microphone control item executed or simulated last

} // namespace vask_sim

#endif
