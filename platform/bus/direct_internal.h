// SPDX-License-Identifier: MIT
// The direct path between a caller and a service on the same host: a unix socket per serving
// client, advertised with its presence. Shared by the serving side (direct_server.cpp) and the
// calling side (direct_client.cpp).
#ifndef VASK_BUS_DIRECT_INTERNAL_H
#define VASK_BUS_DIRECT_INTERNAL_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

struct client_state;

namespace vask_bus {

// The user properties of an "online" presence that name a service's direct socket.
constexpr const char *kDirectSocketProperty = "direct-socket";
constexpr const char *kDirectPidProperty = "direct-pid";
constexpr const char *kDirectBootProperty = "direct-boot";

// Frames are single SOCK_SEQPACKET messages in host byte order (both ends are on one host).
// A request: head, service name, method name, body. A reply: head, reply bytes.
constexpr uint32_t kRequestMagic = 0x56425131;    // "VBQ1"
constexpr uint32_t kReplyMagic = 0x56425231;      // "VBR1"
constexpr int32_t kReplyAnswered = 0;
constexpr int32_t kReplyNoService = 1;            // not (or no longer) provided here: ask the broker
struct request_head {
    uint32_t magic;
    uint32_t reserved;
    // When the caller gives up, on the monotonic clock both ends share: the request's expiry, as
    // the broker's message expiry is on the other path.
    uint64_t expires_ns;
    uint64_t id;
    uint16_t service_length;
    uint16_t method_length;
    uint32_t body_length;
};
struct reply_head {
    uint32_t magic;
    int32_t status;
    uint64_t id;
};
// Bodies larger than this go through the broker: a frame must fit a socket's send buffer whole.
constexpr size_t kDirectBodyMax = 60 * 1024;
constexpr size_t kRequestFrameMax = sizeof(request_head) + 2 * 64 * 1024 + kDirectBodyMax;
constexpr size_t kReplyFrameMax = sizeof(reply_head) + 65536;

// Where a service says it answers directly, from its "online" presence.
struct direct_route {
    std::string path;
    pid_t pid = 0;
    bool usable = true; // false once found unusable, until the service announces itself again
};

// One waiting call on a direct connection; lives on the caller's stack while it is in `pending`.
struct direct_call {
    char *reply = nullptr;
    int *reply_length = nullptr;
    bool done = false;
    int result = 0;
    std::condition_variable finished;
};

// A caller's connection to one serving process, shared by all the caller's threads. Whoever waits
// for a reply reads the socket while nobody else does and hands the replies it reads to their
// callers, so a lone caller reads its own reply without any other thread waking.
struct direct_link {
    std::string path;
    std::mutex mutex;
    int fd = -1;
    bool broken = false;
    bool reading = false;
    uint64_t next_id = 1;
    std::map<uint64_t, direct_call *> pending;
    std::vector<char> buffer; // used by the reading caller only
    ~direct_link();
};

// The serving side's socket and its thread.
struct direct_server {
    std::string path;
    int listen_fd = -1;
    int wake_fd = -1; // an eventfd that stops the thread
    std::thread thread;
};

// The kernel's boot id: two processes that see the same one run on the same host.
const std::string &boot_id();

// Records or forgets a service's route from an arriving presence (client mutex held).
void record_route_locked(client_state *client, const std::string &service, bool online, const std::string &path,
                         pid_t pid, const std::string &boot);

// True when calls to `service` may go over its direct socket (client mutex held).
bool direct_route_usable_locked(const client_state *client, const std::string &service);

// Makes the call over the service's direct socket when there is a usable one. Returns a BUS_* result,
// or kNotDirect when the call must go through the broker (nothing was sent).
constexpr int kNotDirect = 1;
int call_direct(client_state *client, const char *service, const char *method, const char *body, int body_length,
                char *reply, int *reply_length, int timeout_s);

// Breaks every direct connection of the caller (calls waiting on them fail) and forgets the routes.
void drop_direct_links(client_state *client);

// Starts listening when the client provides a service, is connected or connecting and may serve
// directly (client mutex held). A failure leaves the client serving through the broker only.
void start_direct_server_locked(client_state *client);

// Stops listening and removes the socket; waits for a running direct handler (mutex not held).
void stop_direct_server(client_state *client);

} // namespace vask_bus

#endif
