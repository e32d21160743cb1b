// Constants shared by external-device-sim, edctl and the tests: what the simulator answers and when.
#ifndef VASK_SIM_PROTOCOL_H
#define VASK_SIM_PROTOCOL_H

namespace vask_sim {

// Bus name of the simulator's client and the service it provides.
constexpr const char *kClientName = "external_device_sim";
constexpr const char *kServiceName = "external_device";

// Line printed on standard output once the service is registered and reachable.
constexpr const char *kReadyLine = "external-device-sim: ready";

// Reply codes of the simulator besides 0.
constexpr int kCodeWrongState = 1;      // the call makes no sense in the current state
constexpr int kCodeUnknownMethod = -1002; // no such method (the library maps it to -2)
constexpr int kCodeBadRequest = -1002;  // the body is not the JSON the method needs

// Vote status as reported in "Status".
enum vote_status {
    kVoteIdle = 0,     // no vote: "enter_voting" opens one
    kVoteEntered = 1,  // opened, not started: "start_voting" starts it
    kVoteRunning = 2,  // votes are counted: "stop_voting" ends it
    kVoteStopped = 3,  // results final: "enter_voting" opens a new one, "exit_voting" closes
};

} // namespace vask_sim

#endif
