// SPDX-License-Identifier: MIT
#include "tcp_relay.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vask_test {

namespace {

constexpr int kPollMs = 50;

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

// Carries what is readable on `from` to `to`; false when either side is done.
bool carry(int from, int to)
{
    char buffer[16384];
    ssize_t size = recv(from, buffer, sizeof buffer, 0);
    return size > 0 && send(to, buffer, static_cast<size_t>(size), MSG_NOSIGNAL) == size;
}

} // namespace

tcp_relay::tcp_relay(int upstream_port) : upstream_port_(upstream_port)
{
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    if (listener_ < 0 || bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener_, 16) != 0 || getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length) != 0)
        return;
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread(&tcp_relay::accept_loop, this);
}

tcp_relay::~tcp_relay()
{
    stopping_ = true;
    if (acceptor_.joinable())
        acceptor_.join();
    for (auto &relayed : links_) {
        if (relayed->pump.joinable())
            relayed->pump.join();
        close(relayed->client);
        if (relayed->upstream >= 0)
            close(relayed->upstream);
    }
    if (listener_ >= 0)
        close(listener_);
}

std::string tcp_relay::url() const
{
    return "mqtt://127.0.0.1:" + std::to_string(port_);
}

int tcp_relay::accepted()
{
    std::lock_guard<std::mutex> hold(mutex_);
    return static_cast<int>(links_.size());
}

void tcp_relay::freeze(int index)
{
    std::lock_guard<std::mutex> hold(mutex_);
    if (index >= 0 && index < static_cast<int>(links_.size()))
        links_[static_cast<size_t>(index)]->frozen = true;
}

void tcp_relay::accept_loop()
{
    while (!stopping_) {
        pollfd waiting{listener_, POLLIN, 0};
        if (poll(&waiting, 1, kPollMs) != 1)
            continue;
        int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            continue;
        auto relayed = std::make_unique<link>();
        relayed->client = client;
        bool carried = false;
        if (!hold_new_) {
            relayed->upstream = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            sockaddr_in address = loopback(upstream_port_);
            carried = connect(relayed->upstream, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        }
        // Counted before anything is carried, so that a client that got its answer finds its
        // connection counted.
        std::lock_guard<std::mutex> hold(mutex_);
        link *counted = relayed.get();
        links_.push_back(std::move(relayed));
        if (carried)
            counted->pump = std::thread(pump, counted, &stopping_);
    }
}

void tcp_relay::pump(link *relayed, const std::atomic<bool> *stopping)
{
    while (!*stopping) {
        if (relayed->frozen) {
            usleep(kPollMs * 1000);
            continue;
        }
        pollfd ends[2] = {{relayed->client, POLLIN, 0}, {relayed->upstream, POLLIN, 0}};
        if (poll(ends, 2, kPollMs) <= 0 || relayed->frozen)
            continue;
        if ((ends[0].revents != 0 && !carry(relayed->client, relayed->upstream)) ||
            (ends[1].revents != 0 && !carry(relayed->upstream, relayed->client))) {
            // One side went: the other is told by closing its socket's writing half.
            shutdown(relayed->client, SHUT_RDWR);
            shutdown(relayed->upstream, SHUT_RDWR);
            return;
        }
    }
}

} // namespace vask_test
