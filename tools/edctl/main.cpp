// SPDX-License-Identifier: MIT
// edctl: the command-line face of libvask_external_device, one subcommand per operation.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <string>
#include <vector>

#include "commands.h"

namespace edctl {
namespace {

const char kUsageHead[] =
    "usage: edctl [OPTIONS] COMMAND [ARGS...]\n"
    "Controls and queries the external devices of a media box through its external_device service.\n"
    "\n"
    "Options:\n"
    "  --bus URL     broker address (default: VASK_BUS_URL, else mqtt://127.0.0.1:1883)\n"
    "  --root DIR    system root for the configuration files (sets VASK_SYSROOT)\n"
    "  --json        print results as JSON\n"
    "  --help        show this help; 'edctl COMMAND --help' shows a command's help\n"
    "  --version     show the version\n"
    "\n"
    "Commands:\n";

void print_usage(FILE *out)
{
    fputs(kUsageHead, out);
    for (const command &c : commands())
        fprintf(out, "  %-12s %s\n", c.name, c.summary);
    fputs("\nExit status: 0 success, 1 the operation failed, 2 usage error.\n", out);
}

} // namespace

int usage_error(const char *format, const char *argument)
{
    fputs("edctl: ", stderr);
    fprintf(stderr, format, argument);
    fputs("\ntry 'edctl --help'\n", stderr);
    return 2;
}

} // namespace edctl

int main(int argc, char **argv)
{
    static const option options[] = {
        {"bus", required_argument, nullptr, 'b'}, {"root", required_argument, nullptr, 'r'},
        {"json", no_argument, nullptr, 'j'},      {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'V'},   {nullptr, 0, nullptr, 0},
    };
    edctl::context context;
    int opt;
    // '+': options end at the command, so that command arguments may start with '-'.
    while ((opt = getopt_long(argc, argv, "+", options, nullptr)) != -1) {
        switch (opt) {
        case 'b': setenv("VASK_BUS_URL", optarg, 1); break;
        case 'r': setenv("VASK_SYSROOT", optarg, 1); break;
        case 'j': context.json = true; break;
        case 'h': edctl::print_usage(stdout); return 0;
        case 'V': printf("edctl %s\n", VASK_VERSION); return 0;
        default: fputs("try 'edctl --help'\n", stderr); return 2;
        }
    }
    if (optind >= argc)
        return edctl::usage_error("%s", "no command given");
    const edctl::command *found = edctl::find_command(argv[optind]);
    if (found == nullptr)
        return edctl::usage_error("unknown command '%s'", argv[optind]);
    std::vector<std::string> args(argv + optind + 1, argv + argc);
    for (const std::string &arg : args) {
        if (arg == "--help") {
            printf("usage: edctl %s %s\n%s\n\nexample: %s\n", found->name, found->synopsis,
                   found->summary, found->example);
            return 0;
        }
    }
    return found->run(context, args);
}
