// external-device-sim: a reference "external_device" service on the bus, for development without a box.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <pthread.h>

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
    "  --verbose      log every call\n"
    "  --help         show this help\n"
    "  --version      show the version\n";

int run()
{
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
    bus_service_register(device, vask_sim::kServiceName, vask_sim::simulator::handle_device, &simulator);
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
    printf("%s\n", vask_sim::kReadyLine);
    fflush(stdout);

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
        {"verbose", no_argument, nullptr, 'v'},     {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'V'},     {nullptr, 0, nullptr, 0},
    };
    int opt;
    while ((opt = getopt_long(argc, argv, "", options, nullptr)) != -1) {
        switch (opt) {
        case 'b': setenv("VASK_BUS_URL", optarg, 1); break;
        case 'r': setenv("VASK_SYSROOT", optarg, 1); break;
        case 'v': TULO_LOG_set_level(2); break;
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
    return run();
}
