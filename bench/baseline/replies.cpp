// SPDX-License-Identifier: MIT
#include "replies.h"

#include <cstdio>
#include <cstring>

namespace vask_bench {

bool parse_replies(int argc, char **argv, const char *usage, std::map<std::string, std::string> &replies)
{
    constexpr int kFirstPair = 3;
    for (int i = kFirstPair; i < argc; ++i) {
        const char *equals = strchr(argv[i], '=');
        if (equals == nullptr || equals == argv[i]) {
            fprintf(stderr, "%s: expected METHOD=REPLY, got '%s'\n", argv[0], argv[i]);
            replies.clear();
            break;
        }
        replies[std::string(argv[i], static_cast<size_t>(equals - argv[i]))] = equals + 1;
    }
    if (argc <= kFirstPair || replies.empty()) {
        fprintf(stderr, "usage: %s %s\n", argc > 0 ? argv[0] : "responder", usage);
        return false;
    }
    return true;
}

} // namespace vask_bench
