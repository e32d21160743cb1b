// SPDX-License-Identifier: MIT
// The direct path between a caller and a service on the same host: a unix socket per serving
// client, advertised with its presence. Shared by the serving side (direct_server.cpp) and the
// calling side (direct_client.cpp).
#ifndef VASK_BUS_DIRECT_INTERNAL_H
#define VASK_BUS_DIRECT_INTERNAL_H

#include <condition_variable>
#include <cstdint>
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
// Sent (id 0) to a caller turned away when it connects, by the access rule or because the service
// has as many callers as it takes; none of its requests is read: it asks the broker.
constexpr int32_t kReplyRefused = 2;
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

// Where a service says it answers directly, from its "online" presence.
struct direct_route {
    std::string path;
    pid_t pid = 0;
    bool usable = true; // false once found unusable, until the service announces itself again
};

// A caller's connections to one serving process. Each call takes a socket of its own from the pool
// (making one when none is idle), writes its request and reads its own reply on it, so that the reply
// wakes exactly the calling thread and no other thread reads for it.
struct direct_link {
    std::string path;
    pid_t pid = 0; // the serving process the route named
    std::mutex mutex;
    std::condition_variable freed; // a socket went back to the pool
    std::vector<int> idle;          // connected sockets no call uses now
    std::vector<int> busy;          // sockets calls use now
    bool broken = false;
    uint64_t next_id = 1;
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

// The caller's connection to the process that serves `service` directly, made (not yet connected)
// when missing; null when the service has no usable route or the body is too large for a frame
// (client mutex held).
std::shared_ptr<direct_link> direct_link_locked(client_state *client, const std::string &service, int body_length);

// Makes the call over `link`. Returns a BUS_* result, or kNotDirect when the call must go through the
// broker (nothing reached the service).
constexpr int kNotDirect = 1;
int call_direct(client_state *client, const std::shared_ptr<direct_link> &link, const char *service,
                const char *method, const char *body, int body_length, char *reply, int *reply_length,
                int timeout_s);

// Breaks every direct connection of the caller (calls waiting on them fail) and forgets the routes.
void drop_direct_links(client_state *client);

// Starts listening when the client provides a service, is connected or connecting and may serve
// directly (client mutex held). A failure leaves the client serving through the broker only.
void start_direct_server_locked(client_state *client);

// Stops listening and removes the socket; waits for a running direct handler (mutex not held).
void stop_direct_server(client_state *client);

} // namespace vask_bus

#endif
