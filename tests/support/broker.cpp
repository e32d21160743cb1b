// SPDX-License-Identifier: MIT
#include "broker.h"

#include <arpa/inet.h>
#include <csignal>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#ifndef VASK_MOSQUITTO_BROKER
#error "the build passes the broker's path in VASK_MOSQUITTO_BROKER"
#endif

namespace vask_test {
namespace {

int free_port()
{
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    int port = 0;
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    close(fd);
    return port;
}

bool accepts(int port)
{
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    bool ok = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    close(fd);
    return ok;
}

} // namespace

std::string broker_config(int port)
{
    std::string config = "listener " + std::to_string(port) + " 127.0.0.1\n"
                         "allow_anonymous true\n"
                         "persistence false\n"
                         // Without no-delay a QoS 1 exchange stalls on delayed acknowledgements.
                         "set_tcp_nodelay true\n"
                         // The default of 1000 drops QoS 1 signals to a subscriber behind in a burst.
                         "max_queued_messages 1000000\n"
                         "max_queued_bytes 0\n"
                         "log_dest stderr\n"
                         "log_type error\n"
                         "log_type warning\n";
    // As root, mosquitto would switch to its own user, which may not reach our temporary folder.
    if (geteuid() == 0)
        config += "user root\n";
    return config;
}

broker::broker() : broker(broker_config) {}

broker::broker(std::function<std::string(int port)> make_config) : make_config_(std::move(make_config))
{
    for (int attempt = 0; attempt < 5 && !started_; ++attempt) {
        port_ = free_port();
        started_ = port_ > 0 && launch();
    }
    if (!started_)
        abort();
}

broker::~broker()
{
    process_.stop(SIGTERM);
}

std::string broker::url() const
{
    return "mqtt://127.0.0.1:" + std::to_string(port_);
}

bool broker::launch()
{
    std::string config_path = dir_.path() + "/mosquitto.conf";
    std::ofstream(config_path) << make_config_(port_);
    if (!process_.start({VASK_MOSQUITTO_BROKER, "-c", config_path}, {}, dir_.path() + "/broker.log"))
        return false;
    bool ready = eventually([&] { return !process_.running() || accepts(port_); }, std::chrono::seconds(5));
    if (ready && process_.running())
        return true;
    process_.stop(SIGKILL);
    return false;
}

void broker::kill()
{
    process_.stop(SIGKILL);
}

void broker::pause()
{
    ::kill(process_.pid(), SIGSTOP);
}

void broker::resume()
{
    ::kill(process_.pid(), SIGCONT);
}

bool broker::restart()
{
    // The port may stay briefly unavailable after the kill; try for a while.
    return eventually([&] { return launch(); }, std::chrono::seconds(10));
}

} // namespace vask_test
