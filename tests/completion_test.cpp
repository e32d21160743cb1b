// SPDX-License-Identifier: MIT
// edctl in a technician's shell: the bash completion sourced into a real bash and driven the way
// bash drives it (COMP_WORDS, COMP_CWORD), its lists checked against what the built edctl, the
// header and the factory configuration really hold; and edctl's output free of terminal escapes.
#include <algorithm>
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "json_text.h"
#include "process.h"

namespace {

using vask_test::describe;
using vask_test::read_file;
using vask_test::run_program;
using words = std::vector<std::string>;

// Sources the completion into a fresh bash, sets the words of a command line whose last word is
// being completed, runs the completion function and returns what it offers, one per line.
words complete(const words &line)
{
    const char *driver = "source \"$1\" || exit 3; shift\n"
                         "COMP_WORDS=(\"$@\"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n"
                         "COMP_LINE=\"$*\"; COMP_POINT=${#COMP_LINE}; COMPREPLY=()\n"
                         "_edctl || exit 4\n"
                         "for w in \"${COMPREPLY[@]}\"; do printf '%s\\n' \"$w\"; done\n";
    words argv = {VASK_BASH, "--norc", "--noprofile", "-c", driver, "bash", VASK_COMPLETION};
    argv.insert(argv.end(), line.begin(), line.end());
    auto r = run_program(argv);
    EXPECT_EQ(r.exit_code, 0) << describe(r);
    EXPECT_EQ(r.err, "");
    words offered;
    std::istringstream in(r.out);
    std::string w;
    while (std::getline(in, w))
        offered.push_back(w);
    return offered;
}

std::set<std::string> as_set(const words &list) { return std::set<std::string>(list.begin(), list.end()); }

// The commands `edctl --help` lists: the lines after "Commands:" up to the first blank one.
std::set<std::string> help_commands()
{
    auto r = run_program({VASK_EDCTL, "--help"});
    EXPECT_EQ(r.exit_code, 0) << describe(r);
    std::set<std::string> names;
    std::istringstream in(r.out.substr(r.out.find("Commands:\n") + 10));
    std::string line;
    std::smatch m;
    while (std::getline(in, line) && !line.empty()) {
        if (std::regex_match(line, m, std::regex(R"(  ([a-z][a-z0-9-]*) +\S.*)")))
            names.insert(m[1]);
    }
    return names;
}

// The literal words of a command's usage line (`edctl COMMAND --help`): its actions and their fixed
// arguments, without the placeholders in capitals, the optional KEY=VALUE words and the options.
std::set<std::string> usage_words(const std::string &command)
{
    auto r = run_program({VASK_EDCTL, command, "--help"});
    EXPECT_EQ(r.exit_code, 0) << describe(r);
    const std::string head = "usage: edctl " + command + " ";
    EXPECT_EQ(r.out.rfind(head, 0), 0u) << r.out;
    // The usage goes on over the following lines that start with blanks.
    std::istringstream in(r.out.substr(head.size()));
    std::string usage, line;
    std::getline(in, usage);
    while (std::getline(in, line) && !line.empty() && line[0] == ' ')
        usage += " " + line;
    std::set<std::string> found;
    std::regex word(R"([^\s|]+)");
    for (auto it = std::sregex_iterator(usage.begin(), usage.end(), word); it != std::sregex_iterator(); ++it) {
        std::string w = it->str();
        if (std::regex_match(w, std::regex("[a-z][a-z0-9-]*")))
            found.insert(w);
    }
    return found;
}

TEST(EdctlCompletion, Sourcing_ShouldRegisterTheCompletionFunctionForEdctl)
{
    auto r = run_program({VASK_BASH, "--norc", "--noprofile", "-c", "source \"$1\" && complete -p edctl", "bash",
                          VASK_COMPLETION});
    EXPECT_EQ(r.exit_code, 0) << describe(r);
    EXPECT_EQ(r.out, "complete -F _edctl edctl\n");
    EXPECT_EQ(r.err, "");
}

TEST(EdctlCompletion, FirstWord_ShouldOfferTheGlobalOptionsAndEveryCommandOfEdctlHelp)
{
    EXPECT_EQ(complete({"edctl", "--"}), (words{"--bus", "--root", "--json", "--help", "--version"}));
    EXPECT_EQ(complete({"edctl", "--v"}), (words{"--version"}));
    EXPECT_EQ(as_set(complete({"edctl", ""})), help_commands());
    EXPECT_EQ(complete({"edctl", "mic"}), (words{"mic", "mic-central", "mic-control"}));
    // The command is found after the global options and their values, `--bus=URL` included.
    EXPECT_EQ(complete({"edctl", "--json", "--bus", "mqtt://192.0.2.10:1883", "--root", "/tmp", "con"}),
              (words{"config"}));
    EXPECT_EQ(complete({"edctl", "--bus", "=", "mqtt://192.0.2.10:1883", "voting", "st"}), (words{"start", "stop"}));
}

TEST(EdctlCompletion, Actions_ShouldBeTheWordsOfEachCommandsUsage)
{
    for (const std::string &command : help_commands()) {
        // watch takes event names, which its usage calls EVENT: they are checked against the header.
        if (command == "watch")
            continue;
        const std::set<std::string> usage = usage_words(command);
        const words actions = complete({"edctl", command, ""});
        std::set<std::string> offered;
        for (const auto &action : actions) {
            EXPECT_TRUE(usage.count(action)) << command << " " << action << " is not in its usage";
            offered.insert(action);
            for (const auto &next : complete({"edctl", command, action, ""}))
                offered.insert(next);
        }
        for (const auto &w : usage)
            EXPECT_TRUE(offered.count(w)) << "edctl " << command << ": '" << w << "' is never offered";
    }
    EXPECT_EQ(complete({"edctl", "rs232", "control", ""}), (words{"get", "set"}));
    EXPECT_EQ(complete({"edctl", "sim", "vote", "a"}), (words{"agree", "abandon"}));
    EXPECT_EQ(complete({"edctl", "imshare", "set", ""}), (words{"on", "off"}));
    EXPECT_EQ(complete({"edctl", "voting", "get", ""}), (words{}));
    EXPECT_EQ(complete({"edctl", "projector", "--"}), (words{"--help"}));
}

TEST(EdctlCompletion, SetterKeys_ShouldBeOfferedAsKeyEquals)
{
    EXPECT_EQ(complete({"edctl", "mic-central", "set", "pro"}), (words{"protocol="}));
    EXPECT_EQ(complete({"edctl", "castdeck", "set", "ip_address", "=", "192.0.2.30", "p"}),
              (words{"protocol=", "password=", "port="}));
}

TEST(EdctlCompletion, ConfigShow_ShouldOfferTheSectionsOfTheFactoryConfiguration)
{
    std::unique_ptr<cJSON, decltype(&cJSON_Delete)> config(cJSON_Parse(read_file(VASK_DEFAULT_CONFIG).c_str()),
                                                           cJSON_Delete);
    ASSERT_NE(config, nullptr);
    words sections;
    for (const cJSON *section = config->child; section != nullptr; section = section->next)
        sections.push_back(section->string);
    EXPECT_EQ(complete({"edctl", "config", "show", ""}), sections);
    EXPECT_EQ(complete({"edctl", "--root", "/tmp/room", "config", "show", "ex"}),
              (words{"external_control", "external_rs232_config"}));
}

TEST(EdctlCompletion, WatchAndMonitor_ShouldOfferTheEventsTheHeaderDocumentsAndTheirOptions)
{
    // The header's table of signals: ` * | "mic_on_event"           | sig_mic_on_data ...`.
    const std::string header = read_file(VASK_HEADER);
    std::set<std::string> events;
    std::regex row(R"re(\n \* \| "([a-z_]+_event)" +\|)re");
    for (auto it = std::sregex_iterator(header.begin(), header.end(), row); it != std::sregex_iterator(); ++it)
        events.insert((*it)[1]);
    ASSERT_EQ(events.size(), 5u);
    EXPECT_EQ(as_set(complete({"edctl", "watch", ""})), events);
    EXPECT_EQ(as_set(complete({"edctl", "--json", "watch", "--count", "3", "mic_on_event", ""})), events);
    EXPECT_EQ(complete({"edctl", "watch", "v"}), (words{"voting_results_event"}));
    EXPECT_EQ(complete({"edctl", "watch", "--c"}), (words{"--count"}));
    EXPECT_EQ(complete({"edctl", "watch", "--count", ""}), (words{}));
    EXPECT_EQ(as_set(complete({"edctl", "monitor", "--event", ""})), events);
    EXPECT_EQ(complete({"edctl", "monitor", "--method", "get_voting_info", "--"}),
              (words{"--count", "--method", "--event", "--help"}));
    EXPECT_EQ(complete({"edctl", "monitor", "--method", ""}), (words{}));
}

// A terminal on standard output, a colour-capable TERM and NO_COLOR empty (which asks for nothing):
// edctl still writes plain text, so that its output reads the same in a log or a pipe.
TEST(EdctlOutput, OnATerminal_ShouldCarryNoEscapeSequences)
{
    for (const std::string &command : {std::string("--help"), std::string("voting --help"), std::string("nosuch")}) {
        auto r = run_program({VASK_SCRIPT, "-qec", std::string(VASK_EDCTL) + " " + command, "/dev/null"},
                             {"TERM=xterm-256color", "NO_COLOR="});
        EXPECT_NE(r.out.find("edctl"), std::string::npos) << command << ": " << describe(r);
        EXPECT_EQ(r.out.find('\x1b'), std::string::npos) << command << ": " << describe(r);
    }
}

} // namespace
