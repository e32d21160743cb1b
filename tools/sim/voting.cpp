// SPDX-License-Identifier: MIT
#include "voting.h"

#include <cstdio>

#include "sim_protocol.h"

namespace vask_sim {

int vote::enter()
{
    if (status_ != kVoteIdle && status_ != kVoteStopped)
        return kCodeWrongState;
    *this = vote();
    status_ = kVoteEntered;
    return 0;
}

int vote::start()
{
    if (status_ != kVoteEntered)
        return kCodeWrongState;
    status_ = kVoteRunning;
    started_ = std::chrono::steady_clock::now();
    return 0;
}

int vote::stop()
{
    if (status_ != kVoteRunning)
        return kCodeWrongState;
    time_s_ = elapsed_s();
    status_ = kVoteStopped;
    return 0;
}

int vote::exit()
{
    if (status_ == kVoteIdle)
        return kCodeWrongState;
    *this = vote();
    return 0;
}

int vote::cast(const std::string &choice)
{
    if (status_ != kVoteRunning)
        return kCodeWrongState;
    if (choice == "agree")
        ++agree_;
    else if (choice == "disagree")
        ++disagree_;
    else if (choice == "abandon")
        ++abandon_;
    else
        return kCodeBadRequest;
    return 0;
}

int vote::elapsed_s() const
{
    if (status_ == kVoteRunning)
        return static_cast<int>(std::chrono::duration_cast<std::chrono::seconds>(
                                    std::chrono::steady_clock::now() - started_)
                                    .count());
    return time_s_;
}

std::string vote::results_json() const
{
    char text[160];
    snprintf(text, sizeof text,
             "{\"Status\":%d,\"Agree\":%d,\"Disagree\":%d,\"Abandon\":%d,\"Total\":%d,\"Time\":%d}",
             status_, agree_, disagree_, abandon_, agree_ + disagree_ + abandon_, elapsed_s());
    return text;
}

} // namespace vask_sim
