// SPDX-License-Identifier: MIT
// The simulator with a system root seeded from the project's default configuration files.
#ifndef VASK_TEST_CONFIG_SIM_FIXTURE_H
#define VASK_TEST_CONFIG_SIM_FIXTURE_H

#include <filesystem>
#include <fstream>
#include <sstream>

#include "sim_fixture.h"

namespace fs = std::filesystem;
using vask_test::run_program;
using vask_test::run_result;

namespace config_sim {

inline std::string read_file(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The section `name` of the JSON text, printed unformatted.
inline std::string section_of(const std::string &text, const char *name)
{
    cJSON *document = cJSON_Parse(text.c_str());
    char *printed = cJSON_PrintUnformatted(cJSON_GetObjectItemCaseSensitive(document, name));
    std::string section = printed != nullptr ? printed : "";
    cJSON_free(printed);
    cJSON_Delete(document);
    return section;
}

} // namespace config_sim
using config_sim::read_file;
using config_sim::section_of;

class ConfigSimTest : public SimTest {
protected:
    void SetUp() override
    {
        SimTest::SetUp();
        fs::create_directories(root_.path() + "/etc");
        fs::copy_file(VASK_DEFAULT_CONFIG, config_path());
        fs::copy_file(VASK_DEFAULT_MIC_CONFIG, microphone_path());
    }
    std::string microphone_path() const { return root_.path() + "/etc/microphone_control.json"; }
    std::string config_path() const { return root_.path() + "/etc/external_device.json"; }
    // What the simulator last applied of `section`, as it reports it.
    std::string applied(const char *section)
    {
        std::string reply = control("applied", std::string("{\"section\":\"") + section + "\"}");
        return section_of(reply, "applied");
    }
    run_result edctl(std::vector<std::string> args)
    {
        args.insert(args.begin(), VASK_EDCTL);
        return run_program(args, env_);
    }
};

#endif
