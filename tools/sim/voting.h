// SPDX-License-Identifier: MIT
// The simulator's delegate vote.
#ifndef VASK_SIM_VOTING_H
#define VASK_SIM_VOTING_H

#include <chrono>
#include <string>

namespace vask_sim {

class vote {
public:
    // Each returns 0 or kCodeWrongState; a change of status is reported by changed().
    int enter();
    int start();
    int stop();
    int exit();
    // Counts a vote while running: "agree", "disagree" or "abandon"; kCodeWrongState otherwise.
    int cast(const std::string &choice);

    // The six values as a JSON object text: {"Status":..,"Agree":..,...,"Time":..}.
    std::string results_json() const;

private:
    int status_ = 0;
    int agree_ = 0;
    int disagree_ = 0;
    int abandon_ = 0;
    std::chrono::steady_clock::time_point started_{};
    int time_s_ = 0; // seconds the vote ran, fixed at stop
    int elapsed_s() const;
};

} // namespace vask_sim

#endif
