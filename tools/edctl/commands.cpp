#include "commands.h"

#include <cstdio>

#include "libvask_external_device.h"
#include "voting.h"

namespace edctl {

const std::vector<command> &commands()
{
    static const std::vector<command> table = {
        {"voting", "get|enter|start|stop|exit", "read the delegate vote or move it to its next step",
         "edctl --json voting get", run_voting},
    };
    return table;
}

const command *find_command(const std::string &name)
{
    for (const command &c : commands())
        if (name == c.name)
            return &c;
    return nullptr;
}

int report(const char *what, int result)
{
    if (result == 0)
        return 0;
    const char *meaning = "general failure (no connection to the bus, or the service refused)";
    switch (result) {
    case -2: meaning = "refused as invalid"; break;
    case -3: meaning = "the external_device service is offline"; break;
    case -4: meaning = "the service did not answer in time"; break;
    default: break;
    }
    fprintf(stderr, "edctl: %s failed: %d (%s)\n", what, result, meaning);
    return 1;
}

} // namespace edctl
