// SPDX-License-Identifier: MIT
// external-device-sim: a reference "external_device" service on the bus, for development without a box.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "simulator.h"
#include "sim_protocol.h"
#include "tulo_log.h"
#include "vask_bus.h"

namespace {

const char kUsage[] =
    "usage: external-device-sim [OPTIONS]\n"
    "Provides the \"external_device\" service, and its own control service \"external_device_sim\",\n"
    "on the bus until SIGINT or SIGTERM.\n"
    "\n"
    "  --bus URL      broker address (default: VASK_BUS_URL, else mqtt://127.0.0.1:1883)\n"
    "  --root DIR     system root for the files the service reads (sets VASK_SYSROOT)\n"
    "  --foreground   stay in the foreground; without it the simulator detaches once it is ready,\n"
    "                 printing the ready line and \"external-device-sim: pid N\"\n"
    "  --verbose      log every call\n"
    "  --help         show this help\n"
    "  --version      show the version\n";

// Detaches into a new session. The parent waits until the child reports that it is ready (or gave
// up), prints the ready line and the child's pid, and exits; the child goes on and returns the
// descriptor it reports on. Called before any thread exists.
int detach()
{
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0)
        return -1;
    pid_t child = fork();
    if (child < 0)
        return -1;
    if (child > 0) {
        close(ready[1]);
        char state = 0;
        ssize_t n = read(ready[0], &state, 1);
        if (n != 1 || state != 'r')
            _exit(1);
        printf("%s\nexternal-device-sim: pid %d\n", vask_sim::kReadyLine, static_cast<int>(child));
        fflush(stdout);
        _exit(0);
    }
    close(ready[0]);
    setsid();
    if (chdir("/") != 0)
        _exit(1);
    return ready[1];
}

// Tells whoever started the simulator that it is ready: the ready line in the foreground, a byte to
// the waiting parent when detached (whose standard output is then let go).
void announce_ready(int detached_fd)
{
    if (detached_fd < 0) {
        printf("%s\n", vask_sim::kReadyLine);
        fflush(stdout);
        return;
    }
    int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null >= 0) {
        dup2(null, STDIN_FILENO);
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    ssize_t ignored = write(detached_fd, "r", 1);
    (void)ignored;
    close(detached_fd);
}

int run(bool foreground)
{
    int detached_fd = -1;
    if (!foreground && (detached_fd = detach()) < 0) {
        fprintf(stderr, "external-device-sim: cannot detach\n");
        return 1;
    }
    // Block the stop signals before any thread starts, and wait for them on this thread.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    if (bus_init() != BUS_OK) {
        fprintf(stderr, "external-device-sim: cannot start the bus library\n");
        return 1;
    }
    bus_client *device = bus_client_new(vask_sim::kClientName);
    bus_client *control = bus_client_new(vask_sim::kControlClientName);
    if (device == nullptr || control == nullptr) {
        fprintf(stderr, "external-device-sim: cannot create a bus client\n");
        bus_client_free(device);
        bus_client_free(control);
        bus_cleanup();
        return 1;
    }
    vask_sim::simulator simulator(device, control);
    // The box's service makes no calls of its own: it answers on the network thread, with no hand-over.
    bus_service_register_flags(device, vask_sim::kServiceName, vask_sim::simulator::handle_device, &simulator,
                               BUS_SERVICE_NO_BUS_CALLS);
    bus_service_register(control, vask_sim::kControlService, vask_sim::simulator::handle_control, &simulator);
    int rc = bus_connect(device, 0);
    if (rc == BUS_OK)
        rc = bus_connect(control, 0);
    if (rc != BUS_OK) {
        fprintf(stderr, "external-device-sim: cannot connect to the broker (%d)\n", rc);
        bus_client_free(device);
        bus_client_free(control);
        bus_cleanup();
        return 1;
    }
    announce_ready(detached_fd);

    int received = 0;
    sigwait(&stop, &received);
    TULO_LOG_write_newline(vask_sim::kLogModule, 2, vask_sim::kLogSource, __LINE__, "run",
                           "stopping on signal %d", received);
    bus_service_unregister(control, vask_sim::kControlService);
    bus_service_unregister(device, vask_sim::kServiceName);
    bus_client_free(control);
    bus_client_free(device);
    bus_cleanup();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    static const option options[] = {
        {"bus", required_argument, nullptr, 'b'},   {"root", required_argument, nullptr, 'r'},
        {"verbose", no_argument, nullptr, 'v'},     {"foreground", no_argument, nullptr, 'f'},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'V'},     {nullptr, 0, nullptr, 0},
    };
    bool foreground = false;
    int opt;
    while ((opt = getopt_long(argc, argv, "", options, nullptr)) != -1) {
        switch (opt) {
        case 'b': setenv("VASK_BUS_URL", optarg, 1); break;
        case 'r': setenv("VASK_SYSROOT", optarg, 1); break;
        case 'v': TULO_LOG_set_level(2); break;
        case 'f': foreground = true; break;
        case 'h': fputs(kUsage, stdout); return 0;
        case 'V': printf("external-device-sim %s\n", VASK_VERSION); return 0;
        default: fprintf(stderr, "try 'external-device-sim --help'\n"); return 2;
        }
    }
    if (optind < argc) {
        fprintf(stderr, "external-device-sim: unexpected argument '%s'\ntry 'external-device-sim --help'\n",
                argv[optind]);
        return 2;
    }
    return run(foreground);
}
