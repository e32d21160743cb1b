// SPDX-License-Identifier: MIT
// The caller's side of the direct path: calls to a service on the same host over its unix socket,
// written by the calling thread and answered to exactly that thread.
#include "bus_internal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "tulo_log.h"

namespace vask_bus {
namespace {

// Why a direct socket is not used; logged once per route, since calls then go through the broker.
void give_up_route(client_state *client, const std::string &path, const char *why)
{
    {
        std::lock_guard<std::mutex> hold(client->mutex);
        bool found = false;
        for (auto &entry : client->direct_routes) {
            if (entry.second.path == path && entry.second.usable) {
                entry.second.usable = false;
                found = true;
            }
        }
        client->direct_links.erase(path);
        if (!found)
            return;
        ++client->direct_stats.fallbacks;
    }
    TULO_LOG_write_newline(BUS_LOG_MODULE, 2, kLogSource, __LINE__, "bus_method_call_sync",
                           "direct socket %s not used (%s); calling through the broker", path.c_str(), why);
}

// Connects to the serving process at `path`, which must be `pid`; -1 with the reason in `why`.
int connect_to(const std::string &path, pid_t pid, const char **why)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        *why = "path too long";
        return -1;
    }
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    // Non-blocking, so that a server whose backlog is full cannot hold the caller.
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        *why = strerror(errno);
        return -1;
    }
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        *why = strerror(errno);
        close(fd);
        return -1;
    }
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 || peer.pid != pid) {
        *why = "it belongs to another process than the one the service named";
        close(fd);
        return -1;
    }
    return fd;
}

// Most sockets one caller keeps to one serving process: as many calls can be in flight at once; a
// further call waits for one of them to finish.
constexpr size_t kMaxSocketsPerLink = 32;

// Ends every socket of the link: calls reading on one see it closed and fail, as calls do when the
// broker's connection is lost (link mutex held).
void break_link_locked(direct_link *link)
{
    link->broken = true;
    for (int fd : link->busy)
        shutdown(fd, SHUT_RDWR);
    for (int fd : link->idle)
        close(fd);
    link->idle.clear();
    link->freed.notify_all();
}

// A connected socket of the link for one call, or -1: with `*not_direct` set when the service cannot
// be reached directly (the call then goes through the broker), else on the deadline.
int take_socket(client_state *client, direct_link *link, steady::time_point deadline, bool *not_direct)
{
    std::unique_lock<std::mutex> lock(link->mutex);
    for (;;) {
        if (link->broken) {
            *not_direct = true;
            return -1;
        }
        if (!link->idle.empty()) {
            int fd = link->idle.back();
            link->idle.pop_back();
            link->busy.push_back(fd);
            return fd;
        }
        if (link->idle.size() + link->busy.size() < kMaxSocketsPerLink)
            break;
        if (link->freed.wait_until(lock, deadline) == std::cv_status::timeout)
            return -1;
    }
    const char *why = "";
    int fd = connect_to(link->path, link->pid, &why);
    if (fd < 0) {
        link->broken = true;
        lock.unlock();
        // The route is given up outside the link's mutex: the client's is taken first elsewhere.
        give_up_route(client, link->path, why);
        *not_direct = true;
        return -1;
    }
    link->busy.push_back(fd);
    return fd;
}

// Ends a call's use of `fd`: back to the pool, or closed when it may still carry a reply nobody
// waits for (the call gave up) or is broken.
void release_socket(direct_link *link, int fd, bool reusable)
{
    std::lock_guard<std::mutex> hold(link->mutex);
    link->busy.erase(std::find(link->busy.begin(), link->busy.end(), fd));
    if (reusable && !link->broken) {
        link->idle.push_back(fd);
        link->freed.notify_one();
    } else {
        close(fd);
    }
}

// Waits for `fd` to be readable (or writable) until `deadline`; false on the deadline.
bool wait_for(int fd, short events, steady::time_point deadline)
{
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - steady::now()).count();
        if (left < 0)
            return false;
        pollfd polled{fd, events, 0};
        int ready = poll(&polled, 1, static_cast<int>(left + 1));
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return true; // the next read or write tells what is wrong
    }
}

// Sends one request frame whole, waiting for room until `deadline`. Returns 0, or an errno.
int send_frame(int fd, const msghdr &message, steady::time_point deadline)
{
    for (;;) {
        if (sendmsg(fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
            return 0;
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
            return errno;
        if (!wait_for(fd, POLLOUT, deadline))
            return ETIMEDOUT;
    }
}

enum class reply_state { answered, too_large, no_service, refused, lost, timed_out };

// Reads the reply to request `id` on the call's own socket. The reply is copied to `reply` only
// when it fits, so that every other outcome leaves the caller's buffer untouched.
reply_state read_reply(int fd, uint64_t id, steady::time_point deadline, char *reply, int *reply_length)
{
    thread_local char frame[sizeof(reply_head) + BUS_REPLY_MAX];
    for (;;) {
        ssize_t size = recv(fd, frame, sizeof frame, MSG_DONTWAIT | MSG_TRUNC);
        if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
            if (!wait_for(fd, POLLIN, deadline))
                return reply_state::timed_out;
            continue;
        }
        reply_head head;
        if (size < static_cast<ssize_t>(sizeof head))
            return reply_state::lost;
        memcpy(&head, frame, sizeof head);
        if (head.magic != kReplyMagic)
            return reply_state::lost;
        if (head.status == kReplyRefused)
            return reply_state::refused;
        if (head.id != id)
            continue; // cannot happen on a socket of one call at a time; read past it
        if (head.status == kReplyNoService)
            return reply_state::no_service;
        size_t length = static_cast<size_t>(size) - sizeof head;
        if (length >= BUS_REPLY_MAX)
            return reply_state::too_large;
        memcpy(reply, frame + sizeof head, length);
        reply[length] = '\0';
        *reply_length = static_cast<int>(length);
        return reply_state::answered;
    }
}

} // namespace

direct_link::~direct_link()
{
    // No call uses the link any more: its sockets are all idle.
    for (int fd : idle)
        close(fd);
}

const std::string &boot_id()
{
    static const std::string id = [] {
        char text[64] = "";
        int fd = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
        ssize_t length = fd >= 0 ? read(fd, text, sizeof text - 1) : -1;
        if (fd >= 0)
            close(fd);
        std::string value(text, length > 0 ? static_cast<size_t>(length) : 0);
        while (!value.empty() && (value.back() == '\n' || value.back() == ' '))
            value.pop_back();
        return value;
    }();
    return id;
}

void record_route_locked(client_state *client, const std::string &service, bool online, const std::string &path,
                         pid_t pid, const std::string &boot)
{
    auto found = client->direct_routes.find(service);
    if (!online || path.empty() || pid <= 0 || boot.empty() || boot != boot_id()) {
        if (found != client->direct_routes.end())
            client->direct_routes.erase(found);
        return;
    }
    // The same announcement again (a reconnection) keeps what was learnt of the socket.
    if (found != client->direct_routes.end() && found->second.path == path && found->second.pid == pid)
        return;
    client->direct_routes[service] = direct_route{path, pid, true};
}

bool direct_route_usable_locked(const client_state *client, const std::string &service)
{
    if (!client->direct_enabled || !client->network_running)
        return false;
    auto found = client->direct_routes.find(service);
    return found != client->direct_routes.end() && found->second.usable;
}

std::shared_ptr<direct_link> direct_link_locked(client_state *client, const std::string &service, int body_length)
{
    if (static_cast<size_t>(body_length) > kDirectBodyMax || !direct_route_usable_locked(client, service))
        return nullptr;
    const direct_route &route = client->direct_routes.find(service)->second;
    auto &slot = client->direct_links[route.path];
    if (slot == nullptr) {
        slot = std::make_shared<direct_link>();
        slot->path = route.path;
        slot->pid = route.pid;
    }
    return slot;
}

int call_direct(client_state *client, const std::shared_ptr<direct_link> &link, const char *service,
                const char *method, const char *body, int body_length, char *reply, int *reply_length,
                int timeout_s)
{
    auto deadline = steady::now() + std::chrono::seconds(timeout_s);
    bool not_direct = false;
    int fd = take_socket(client, link.get(), deadline, &not_direct);
    if (fd < 0)
        return not_direct ? kNotDirect : BUS_ERR_TIMEOUT;
    request_head head{kRequestMagic,
                      0,
                      static_cast<uint64_t>(
                          std::chrono::duration_cast<std::chrono::nanoseconds>(deadline.time_since_epoch()).count()),
                      0,
                      static_cast<uint16_t>(strlen(service)),
                      static_cast<uint16_t>(strlen(method)),
                      static_cast<uint32_t>(body_length)};
    {
        std::lock_guard<std::mutex> hold(link->mutex);
        head.id = link->next_id++;
    }
    iovec parts[4] = {{&head, sizeof head},
                      {const_cast<char *>(service), head.service_length},
                      {const_cast<char *>(method), head.method_length},
                      {const_cast<char *>(body), static_cast<size_t>(body_length)}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = body_length > 0 ? 4 : 3;
    int sent = send_frame(fd, message, deadline);
    if (sent != 0) {
        release_socket(link.get(), fd, false);
        if (sent == ETIMEDOUT)
            return BUS_ERR_TIMEOUT;
        // Nothing left: the service never saw the request, the broker may carry it.
        give_up_route(client, link->path, strerror(sent));
        return kNotDirect;
    }
    reply_state state = read_reply(fd, head.id, deadline, reply, reply_length);
    if (state != reply_state::refused)
        ++client->calls_direct;
    switch (state) {
    case reply_state::answered:
        release_socket(link.get(), fd, true);
        return BUS_OK;
    case reply_state::too_large:
        release_socket(link.get(), fd, true);
        return BUS_ERR_REPLY_TOO_LARGE;
    case reply_state::no_service:
        release_socket(link.get(), fd, true);
        give_up_route(client, link->path, "the service is not provided there");
        return kNotDirect;
    case reply_state::refused:
        // Turned away before the request was read: it never ran, the broker carries it.
        release_socket(link.get(), fd, false);
        give_up_route(client, link->path, "the service turned this caller away");
        return kNotDirect;
    case reply_state::timed_out:
        // Its reply may still come: the socket is not used again.
        release_socket(link.get(), fd, false);
        return BUS_ERR_TIMEOUT;
    case reply_state::lost:
        break;
    }
    {
        std::lock_guard<std::mutex> hold(link->mutex);
        break_link_locked(link.get());
    }
    release_socket(link.get(), fd, false);
    give_up_route(client, link->path, "the connection was lost");
    return BUS_ERR_FAILED;
}

void drop_direct_links(client_state *client)
{
    std::map<std::string, std::shared_ptr<direct_link>> links;
    {
        std::lock_guard<std::mutex> hold(client->mutex);
        links.swap(client->direct_links);
        client->direct_routes.clear();
    }
    for (auto &entry : links) {
        std::lock_guard<std::mutex> hold(entry.second->mutex);
        break_link_locked(entry.second.get());
    }
}

} // namespace vask_bus

using namespace vask_bus;

extern "C" int bus_client_get_direct_stats(bus_client *handle, bus_direct_stats *stats)
{
    return copy_figures(handle, stats, [](client_state *client, bus_direct_stats *out) {
        *out = client->direct_stats;
        out->calls_direct = client->calls_direct.load();
    });
}

extern "C" int bus_client_set_direct(bus_client *handle, int enabled)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (enabled != 0 && enabled != 1)
        return BUS_ERR_INVALID;
    std::lock_guard<std::mutex> hold(client->mutex);
    client->direct_enabled = enabled == 1;
    return BUS_OK;
}
