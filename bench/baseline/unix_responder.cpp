// SPDX-License-Identifier: MIT
// The floor of a local call: a process that answers requests on a unix socket (SOCK_SEQPACKET) with
// the canned reply of their method, one recv and one send per call. A request is the method's name;
// the reply its text. Nothing can carry a call between two processes on one host for less.
//
//   unix_responder PATH NAME METHOD=REPLY...
// Prints "ready" once it listens on PATH; stops on SIGTERM or SIGINT.
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "replies.h"

namespace {

volatile sig_atomic_t g_stop = 0;

void on_signal(int) { g_stop = 1; }

// Answers one caller until it leaves.
void serve(int fd, const std::map<std::string, std::string> *replies)
{
    char request[256];
    for (;;) {
        ssize_t size = recv(fd, request, sizeof request, 0);
        if (size <= 0)
            break;
        auto found = replies->find(std::string(request, static_cast<size_t>(size)));
        const std::string empty;
        const std::string &reply = found != replies->end() ? found->second : empty;
        if (send(fd, reply.data(), reply.size(), MSG_NOSIGNAL) < 0)
            break;
    }
    close(fd);
}

} // namespace

int main(int argc, char **argv)
{
    std::map<std::string, std::string> replies;
    if (!vask_bench::parse_replies(argc, argv, "PATH NAME METHOD=REPLY...", replies))
        return 2;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (strlen(argv[1]) >= sizeof address.sun_path)
        return 2;
    strcpy(address.sun_path, argv[1]);
    int listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    unlink(argv[1]);
    if (listener < 0 || bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener, 16) != 0) {
        perror("unix_responder");
        return 1;
    }
    struct sigaction action{};
    action.sa_handler = on_signal;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    printf("ready\n");
    fflush(stdout);
    std::vector<std::thread> callers;
    while (!g_stop) {
        pollfd polled{listener, POLLIN, 0};
        if (poll(&polled, 1, 200) != 1)
            continue;
        int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0)
            callers.emplace_back(serve, fd, &replies);
    }
    for (auto &caller : callers)
        caller.detach();
    unlink(argv[1]);
    return 0;
}
