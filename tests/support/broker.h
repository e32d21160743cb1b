// SPDX-License-Identifier: MIT
// A private mosquitto broker on a free loopback port, with a generated configuration.
#ifndef VASK_TEST_BROKER_H
#define VASK_TEST_BROKER_H

#include <functional>
#include <string>

#include "process.h"

namespace vask_test {

class broker {
public:
    // Starts the broker with the project's test configuration (broker_config); aborts the test
    // program when it cannot.
    broker();
    // Starts it with the configuration `make_config(port)` writes for a free port.
    explicit broker(std::function<std::string(int port)> make_config);
    ~broker();

    bool started() const { return started_; }
    int port() const { return port_; }
    // "mqtt://127.0.0.1:<port>"
    std::string url() const;
    // Where the broker's configuration and log live.
    const std::string &dir() const { return dir_.path(); }

    // Stops the broker as a crash would (SIGKILL), and starts it again on the same port.
    void kill();
    bool restart();
    // Freezes the broker (SIGSTOP): its connections stay open and nothing is answered; and thaws it.
    void pause();
    void resume();

private:
    bool launch();
    std::function<std::string(int port)> make_config_;
    temp_dir dir_;
    child_process process_;
    int port_ = 0;
    bool started_ = false;
};

// Writes a broker configuration with the project's settings for a listener on `port`.
std::string broker_config(int port);

} // namespace vask_test

#endif
