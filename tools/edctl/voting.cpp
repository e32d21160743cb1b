// edctl voting get|enter|start|stop|exit
#include "voting.h"

#include <cstdio>
#include <cstring>

#include "libvask_external_device.h"

namespace edctl {
namespace {

struct action {
    const char *name;
    int selector; // the first field of ed_voting_info for ed_set_voting; -1 for a query
    bool prints;
};

const action kActions[] = {
    {"get", -1, true}, {"enter", 0, false}, {"start", 2, false}, {"stop", 1, true}, {"exit", 3, false},
};

void print_voting(const context &context, const ed_voting_info &info)
{
    if (context.json) {
        printf("{\"status\":%d,\"agree\":%d,\"disagree\":%d,\"abandon\":%d,\"total\":%d,\"time\":%d}\n",
               info.status, info.agree, info.disagree, info.abandon, info.total, info.time);
        return;
    }
    printf("status:   %d\nagree:    %d\ndisagree: %d\nabandon:  %d\ntotal:    %d\ntime:     %d\n",
           info.status, info.agree, info.disagree, info.abandon, info.total, info.time);
}

} // namespace

int run_voting(const context &context, const std::vector<std::string> &args)
{
    if (args.size() != 1)
        return usage_error("%s", "voting needs one of get, enter, start, stop, exit");
    for (const action &a : kActions) {
        if (args[0] != a.name)
            continue;
        ed_init();
        ed_voting_info info{a.selector, -1, -1, -1, -1, -1};
        int result = a.selector < 0 ? ed_get_voting(info) : ed_set_voting(info);
        ed_release();
        std::string what = "voting " + args[0];
        if (result == 0 && a.prints)
            print_voting(context, info);
        return report(what.c_str(), result);
    }
    return usage_error("unknown voting action '%s'", args[0].c_str());
}

} // namespace edctl
