#ifndef EDCTL_VOTING_H
#define EDCTL_VOTING_H

#include "commands.h"

namespace edctl {

int run_voting(const context &context, const std::vector<std::string> &args);

} // namespace edctl

#endif
