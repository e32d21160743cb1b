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

// Ends the link: every call waiting on it fails, as calls do when the broker's connection is lost
// (link mutex held).
void break_link_locked(direct_link *link)
{
    link->broken = true;
    if (link->fd >= 0)
        shutdown(link->fd, SHUT_RDWR);
    for (auto &entry : link->pending) {
        entry.second->result = BUS_ERR_FAILED;
        entry.second->done = true;
        entry.second->finished.notify_one();
    }
    link->pending.clear();
}

// Hands a reply frame to its caller (link mutex held). A reply nobody waits for any more is dropped.
// Returns false for a frame that breaks the protocol.
bool deliver_frame(direct_link *link, const char *frame, size_t size, bool *no_service)
{
    reply_head head;
    if (size < sizeof head)
        return false;
    memcpy(&head, frame, sizeof head);
    if (head.magic != kReplyMagic)
        return false;
    auto found = link->pending.find(head.id);
    if (found == link->pending.end())
        return true;
    direct_call *call = found->second;
    link->pending.erase(found);
    size_t length = size - sizeof head;
    if (head.status == kReplyNoService) {
        call->result = kNotDirect;
        *no_service = true;
    } else if (length >= BUS_REPLY_MAX) {
        call->result = BUS_ERR_REPLY_TOO_LARGE;
    } else {
        memcpy(call->reply, frame + sizeof head, length);
        call->reply[length] = '\0';
        *call->reply_length = static_cast<int>(length);
        call->result = BUS_OK;
    }
    call->done = true;
    call->finished.notify_one();
    return true;
}

// Reads the replies waiting on the link, or waits for one until `deadline`; called by the one caller
// that reads (link mutex not held). Returns false when the link broke.
bool read_replies(direct_link *link, steady::time_point deadline, bool *no_service)
{
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - steady::now()).count();
    pollfd polled{link->fd, POLLIN, 0};
    int ready = poll(&polled, 1, static_cast<int>(std::max<long long>(left + 1, 0)));
    if (ready < 0)
        return errno == EINTR;
    if (ready == 0)
        return true;
    for (;;) {
        ssize_t size = recv(link->fd, link->buffer.data(), link->buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
        if (size < 0)
            return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
        if (size == 0 || static_cast<size_t>(size) > link->buffer.size())
            return false;
        std::lock_guard<std::mutex> hold(link->mutex);
        if (!deliver_frame(link, link->buffer.data(), static_cast<size_t>(size), no_service))
            return false;
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
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - steady::now()).count();
        if (left <= 0)
            return ETIMEDOUT;
        pollfd polled{fd, POLLOUT, 0};
        poll(&polled, 1, static_cast<int>(left));
    }
}

// The link to the route's serving process, connected on first use; null when it cannot be used.
std::shared_ptr<direct_link> open_link(client_state *client, const char *service)
{
    direct_route route;
    std::shared_ptr<direct_link> link;
    {
        std::lock_guard<std::mutex> hold(client->mutex);
        if (!direct_route_usable_locked(client, service))
            return nullptr;
        route = client->direct_routes.find(service)->second;
        auto &slot = client->direct_links[route.path];
        if (slot == nullptr) {
            slot = std::make_shared<direct_link>();
            slot->path = route.path;
        }
        link = slot;
    }
    std::unique_lock<std::mutex> lock(link->mutex);
    if (link->fd < 0 && !link->broken) {
        const char *why = "";
        int fd = connect_to(route.path, route.pid, &why);
        if (fd < 0) {
            link->broken = true;
            // The route is given up outside the link's mutex: the client's is taken first elsewhere.
            lock.unlock();
            give_up_route(client, route.path, why);
            return nullptr;
        }
        link->fd = fd;
        link->buffer.resize(kReplyFrameMax);
    }
    if (link->broken)
        return nullptr;
    return link;
}

} // namespace

direct_link::~direct_link()
{
    if (fd >= 0)
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

int call_direct(client_state *client, const char *service, const char *method, const char *body, int body_length,
                char *reply, int *reply_length, int timeout_s)
{
    if (static_cast<size_t>(body_length) > kDirectBodyMax)
        return kNotDirect;
    std::shared_ptr<direct_link> link = open_link(client, service);
    if (link == nullptr)
        return kNotDirect;
    auto deadline = steady::now() + std::chrono::seconds(timeout_s);
    direct_call call;
    call.reply = reply;
    call.reply_length = reply_length;
    request_head head{kRequestMagic,
                      0,
                      static_cast<uint64_t>(
                          std::chrono::duration_cast<std::chrono::nanoseconds>(deadline.time_since_epoch()).count()),
                      0,
                      static_cast<uint16_t>(strlen(service)),
                      static_cast<uint16_t>(strlen(method)),
                      static_cast<uint32_t>(body_length)};
    std::unique_lock<std::mutex> lock(link->mutex);
    if (link->broken)
        return kNotDirect;
    head.id = link->next_id++;
    // Registered before the request leaves, so that an early reply finds its caller.
    link->pending.emplace(head.id, &call);
    int fd = link->fd;
    lock.unlock();
    iovec parts[4] = {{&head, sizeof head},
                      {const_cast<char *>(service), head.service_length},
                      {const_cast<char *>(method), head.method_length},
                      {const_cast<char *>(body), static_cast<size_t>(body_length)}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = body_length > 0 ? 4 : 3;
    int sent = send_frame(fd, message, deadline);
    lock.lock();
    if (sent != 0 && !call.done) {
        link->pending.erase(head.id);
        lock.unlock();
        if (sent == ETIMEDOUT)
            return BUS_ERR_TIMEOUT;
        // Nothing left: the service never saw the request, the broker may carry it.
        give_up_route(client, link->path, strerror(sent));
        return kNotDirect;
    }
    {
        std::lock_guard<std::mutex> hold(client->mutex);
        ++client->direct_stats.calls_direct;
    }
    bool no_service = false;
    while (!call.done) {
        if (steady::now() >= deadline)
            break;
        if (link->reading) {
            call.finished.wait_until(lock, deadline);
            continue;
        }
        link->reading = true;
        lock.unlock();
        bool alive = read_replies(link.get(), std::min(deadline, steady::now() + std::chrono::seconds(1)), &no_service);
        lock.lock();
        link->reading = false;
        if (!alive)
            break_link_locked(link.get());
        // Someone else waiting takes over the reading.
        for (auto &entry : link->pending) {
            if (entry.second != &call) {
                entry.second->finished.notify_one();
                break;
            }
        }
    }
    if (!call.done)
        link->pending.erase(head.id);
    bool broken = link->broken;
    lock.unlock();
    if (broken || no_service)
        give_up_route(client, link->path, broken ? "the connection was lost" : "the service is not provided there");
    if (!call.done)
        return BUS_ERR_TIMEOUT;
    return call.result;
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
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (stats == nullptr)
        return BUS_ERR_INVALID;
    std::lock_guard<std::mutex> hold(client->mutex);
    *stats = client->direct_stats;
    return BUS_OK;
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
