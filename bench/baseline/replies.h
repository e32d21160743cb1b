// SPDX-License-Identifier: MIT
// The canned replies of a baseline responder, given on its command line as METHOD=REPLY.
#ifndef VASK_BENCH_REPLIES_H
#define VASK_BENCH_REPLIES_H

#include <map>
#include <string>

namespace vask_bench {

// Reads a responder's command line, "PROGRAM WHERE NAME METHOD=REPLY...": the pairs from argv[3] on
// go to `replies`. False, with a message and "usage: PROGRAM <usage>" on stderr, for a short or
// malformed command line.
bool parse_replies(int argc, char **argv, const char *usage, std::map<std::string, std::string> &replies);

} // namespace vask_bench

#endif
