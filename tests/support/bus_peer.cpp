// SPDX-License-Identifier: MIT
// A second process on the bus for tests:
//   bus_peer call NAME SERVICE METHOD BODY   calls once, prints "<result> <reply>"
//   bus_peer serve NAME SERVICE              answers every method with {"code":0,"peer":<pid>}
//                                            until SIGTERM; "sleep" only after 10 s
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

#include "vask_bus.h"

namespace {

int answer(bus_client *, void *, const char *method, const char *, int, char *reply, int capacity)
{
    if (strcmp(method, "sleep") == 0)
        sleep(10);
    return snprintf(reply, static_cast<size_t>(capacity), "{\"code\":0,\"peer\":%d}", static_cast<int>(getpid()));
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 4 || bus_init() != BUS_OK)
        return 2;
    bus_client *client = bus_client_new(argv[2]);
    if (client == nullptr)
        return 2;
    std::string mode = argv[1];
    int rc = 0;
    if (mode == "call" && argc == 6) {
        if (bus_connect(client, 0) != BUS_OK)
            return 3;
        char reply[BUS_REPLY_MAX];
        int length = 0;
        rc = bus_method_call_sync(client, argv[3], argv[4], argv[5], static_cast<int>(strlen(argv[5])), reply,
                                  &length, 5);
        printf("%d %s\n", rc, rc == BUS_OK ? reply : "");
    } else if (mode == "serve" && argc == 4) {
        sigset_t stop;
        sigemptyset(&stop);
        sigaddset(&stop, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &stop, nullptr);
        bus_service_register(client, argv[3], answer, nullptr);
        if (bus_connect(client, 0) != BUS_OK)
            return 3;
        printf("ready\n");
        fflush(stdout);
        int received = 0;
        sigwait(&stop, &received);
    } else {
        return 2;
    }
    bus_client_free(client);
    bus_cleanup();
    return rc == BUS_OK ? 0 : 1;
}
