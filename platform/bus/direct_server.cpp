// SPDX-License-Identifier: MIT
// The serving side of the direct path: a client that provides services listens on a unix socket,
// answers the requests of local callers on the socket's own thread, and lets in only the callers
// its access rule grants.
#include "bus_internal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "tulo_log.h"

namespace vask_bus {
namespace {

// Most callers connected at once; one more is turned away (and logged) until one leaves.
constexpr size_t kMaxConnections = 256;
// Requests read from one connection before the others get their turn.
constexpr int kBatch = 32;
// A caller that does not read its replies for this long is disconnected, so that it cannot hold
// the service's socket thread.
constexpr int kReplySendTimeoutMs = 1000;

enum class access_rule { user, group, all };

access_rule rule_from_environment()
{
    const char *text = secure_getenv("VASK_BUS_DIRECT_ACCESS");
    if (text == nullptr || *text == '\0' || strcmp(text, "user") == 0)
        return access_rule::user;
    if (strcmp(text, "group") == 0)
        return access_rule::group;
    if (strcmp(text, "all") == 0)
        return access_rule::all;
    TULO_LOG_write_newline(BUS_LOG_MODULE, 1, kLogSource, __LINE__, "bus_connect",
                           "ignoring VASK_BUS_DIRECT_ACCESS=%s: not user, group or all", text);
    return access_rule::user;
}

mode_t socket_mode(access_rule rule)
{
    return rule == access_rule::all ? 0666 : rule == access_rule::group ? 0660 : 0600;
}

bool peer_in_group(int fd, gid_t primary, gid_t group)
{
    if (primary == group)
        return true;
    gid_t groups[256];
    socklen_t length = sizeof groups;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups, &length) != 0)
        return false;
    for (size_t i = 0; i < length / sizeof(gid_t); ++i)
        if (groups[i] == group)
            return true;
    return false;
}

// The rule judged on the peer's credentials, whatever the socket's mode let through.
bool peer_allowed(int fd, access_rule rule, ucred *peer)
{
    socklen_t length = sizeof *peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, peer, &length) != 0)
        return false;
    if (rule == access_rule::all || peer->uid == 0 || peer->uid == geteuid())
        return true;
    return rule == access_rule::group && peer_in_group(fd, peer->gid, getegid());
}

// The folder the client's socket goes in, made when missing; empty when there is none to use.
std::string runtime_folder()
{
    std::vector<std::string> candidates;
    const char *root = secure_getenv("VASK_SYSROOT");
    if (root != nullptr && *root != '\0') {
        candidates.push_back(std::string(root) + "/run/vask");
    } else {
        candidates.push_back("/run/vask");
        const char *xdg = secure_getenv("XDG_RUNTIME_DIR");
        if (xdg != nullptr && *xdg != '\0')
            candidates.push_back(std::string(xdg) + "/vask");
    }
    for (const std::string &folder : candidates) {
        // 0755: other users' callers must reach a socket whose own mode lets them in.
        if (mkdir(folder.c_str(), 0755) != 0 && errno == ENOENT && root != nullptr) {
            mkdir((std::string(root) + "/run").c_str(), 0755);
            mkdir(folder.c_str(), 0755);
        }
        if (access(folder.c_str(), W_OK | X_OK) == 0)
            return folder;
    }
    return std::string();
}

struct connection {
    int fd;
};

void send_reply(int fd, uint64_t id, int32_t status, const char *reply, int length)
{
    reply_head head{kReplyMagic, status, id};
    iovec parts[2] = {{&head, sizeof head}, {const_cast<char *>(reply), static_cast<size_t>(length > 0 ? length : 0)}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    // A failed send (the caller left, or read nothing for kReplySendTimeoutMs) ends the connection
    // at the next read.
    if (sendmsg(fd, &message, MSG_NOSIGNAL) < 0)
        shutdown(fd, SHUT_RDWR);
}

// Answers one request frame; false when the frame is malformed (the caller is then disconnected).
bool answer(client_state *client, int fd, const char *frame, size_t size, std::vector<char> &reply)
{
    request_head head;
    if (size < sizeof head)
        return false;
    memcpy(&head, frame, sizeof head);
    if (head.magic != kRequestMagic ||
        size != sizeof head + head.service_length + head.method_length + head.body_length)
        return false;
    const char *names = frame + sizeof head;
    std::string service(names, head.service_length);
    std::string topic = method_topic(service, std::string(names + head.service_length, head.method_length));
    // The body is handed on zero-terminated, as from the broker.
    std::string body(names + head.service_length + head.method_length, head.body_length);
    steady::time_point expires{std::chrono::nanoseconds(head.expires_ns)};

    std::unique_lock<std::mutex> lock(client->mutex);
    if (client->services.count(service) == 0) {
        lock.unlock();
        send_reply(fd, head.id, kReplyNoService, nullptr, 0);
        return true;
    }
    claim_handler_slot(client, lock, topic);
    int length = -1;
    if (steady::now() >= expires) {
        drop_expired_request(client, lock, topic);
    } else {
        ++client->direct_stats.served_direct;
        length = serve_request(client, lock, topic, body.data(), body.size(), reply);
    }
    release_handler_slot(client);
    lock.unlock();
    if (length >= 0)
        send_reply(fd, head.id, kReplyAnswered, reply.data(), length);
    return true;
}

void accept_caller(client_state *client, int listen_fd, access_rule rule, std::vector<connection> &connections)
{
    int fd = accept4(listen_fd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        return;
    ucred peer{};
    bool allowed = peer_allowed(fd, rule, &peer);
    if (allowed && connections.size() < kMaxConnections) {
        timeval send_timeout{kReplySendTimeoutMs / 1000, (kReplySendTimeoutMs % 1000) * 1000};
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout);
        connections.push_back(connection{fd});
        return;
    }
    {
        std::lock_guard<std::mutex> hold(client->mutex);
        ++client->direct_stats.peers_refused;
    }
    if (!allowed)
        TULO_LOG_write_newline(BUS_LOG_MODULE, 1, kLogSource, __LINE__, "direct_server",
                               "refused a direct caller (pid %d, uid %d): not allowed by VASK_BUS_DIRECT_ACCESS",
                               static_cast<int>(peer.pid), static_cast<int>(peer.uid));
    else
        TULO_LOG_write_newline(BUS_LOG_MODULE, 1, kLogSource, __LINE__, "direct_server",
                               "refused a direct caller (pid %d): %zu callers connected already",
                               static_cast<int>(peer.pid), connections.size());
    // Told so, so that its call goes through the broker at once instead of failing as a connection
    // lost mid-call. A fresh socket's buffer takes the frame; a caller that left misses nothing.
    reply_head head{kReplyMagic, kReplyRefused, 0};
    (void)send(fd, &head, sizeof head, MSG_DONTWAIT | MSG_NOSIGNAL);
    // Closed only once nothing more can arrive and what did is thrown away unread: a connection
    // closed with unread requests is reset, and the caller would read the reset, not the frame.
    shutdown(fd, SHUT_RDWR);
    char unread[64];
    while (recv(fd, unread, sizeof unread, MSG_DONTWAIT) > 0) {
    }
    close(fd);
}

// Reads what waits on one connection; false when the caller left or broke the protocol.
bool serve_connection(client_state *client, int fd, std::vector<char> &frame, std::vector<char> &reply)
{
    for (int i = 0; i < kBatch; ++i) {
        ssize_t size = recv(fd, frame.data(), frame.size(), MSG_DONTWAIT | MSG_TRUNC);
        if (size < 0)
            return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
        if (size == 0 || static_cast<size_t>(size) > frame.size() ||
            !answer(client, fd, frame.data(), static_cast<size_t>(size), reply))
            return false;
    }
    return true;
}

void serve_main(client_state *client, direct_server *server, access_rule rule)
{
    std::vector<char> frame(kRequestFrameMax);
    std::vector<char> reply(BUS_SERVICE_REPLY_CAPACITY + 1);
    std::vector<connection> connections;
    std::vector<pollfd> polled;
    for (;;) {
        polled.clear();
        polled.push_back(pollfd{server->wake_fd, POLLIN, 0});
        polled.push_back(pollfd{server->listen_fd, POLLIN, 0});
        for (const connection &c : connections)
            polled.push_back(pollfd{c.fd, POLLIN, 0});
        if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR)
            break;
        if (polled[0].revents != 0)
            break;
        for (size_t i = 0; i < connections.size(); ++i) {
            short events = polled[i + 2].revents;
            if (events == 0)
                continue;
            if ((events & POLLIN) == 0 || !serve_connection(client, connections[i].fd, frame, reply)) {
                close(connections[i].fd);
                connections[i].fd = -1;
            }
        }
        connections.erase(std::remove_if(connections.begin(), connections.end(),
                                         [](const connection &c) { return c.fd < 0; }),
                          connections.end());
        if (polled[1].revents != 0)
            accept_caller(client, server->listen_fd, rule, connections);
    }
    for (const connection &c : connections)
        close(c.fd);
}

// Makes the listening socket at `path` with the rule's mode; -1 on failure.
int listen_at(const std::string &path, access_rule rule)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return -1;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    unlink(path.c_str());
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        chmod(path.c_str(), socket_mode(rule)) != 0 || listen(fd, SOMAXCONN) != 0) {
        close(fd);
        unlink(path.c_str());
        return -1;
    }
    return fd;
}

} // namespace

void start_direct_server_locked(client_state *client)
{
    if (client->direct_server != nullptr || !client->direct_enabled || client->services.empty() ||
        !client->network_running)
        return;
    std::string folder = runtime_folder();
    if (folder.empty())
        return;
    char name[64];
    snprintf(name, sizeof name, "/bus-%d-%08x.sock", static_cast<int>(getpid()),
             static_cast<unsigned>(client->random() & 0xffffffffu));
    auto server = std::make_unique<direct_server>();
    server->path = folder + name;
    access_rule rule = rule_from_environment();
    server->listen_fd = listen_at(server->path, rule);
    if (server->listen_fd < 0) {
        TULO_LOG_write_newline(BUS_LOG_MODULE, 1, kLogSource, __LINE__, "direct_server",
                               "cannot listen on %s (%s); serving through the broker only", server->path.c_str(),
                               strerror(errno));
        return;
    }
    server->wake_fd = eventfd(0, EFD_CLOEXEC);
    if (server->wake_fd < 0) {
        close(server->listen_fd);
        unlink(server->path.c_str());
        return;
    }
    try {
        server->thread = std::thread(serve_main, client, server.get(), rule);
    } catch (const std::exception &) {
        close(server->wake_fd);
        close(server->listen_fd);
        unlink(server->path.c_str());
        return;
    }
    client->direct_server = std::move(server);
}

void stop_direct_server(client_state *client)
{
    std::unique_ptr<direct_server> server;
    {
        std::lock_guard<std::mutex> hold(client->mutex);
        server = std::move(client->direct_server);
    }
    if (server == nullptr)
        return;
    // The socket goes first, so that no caller connects to a server that is stopping.
    unlink(server->path.c_str());
    uint64_t one = 1;
    if (write(server->wake_fd, &one, sizeof one) != sizeof one)
        shutdown(server->listen_fd, SHUT_RDWR);
    server->thread.join();
    close(server->listen_fd);
    close(server->wake_fd);
}

} // namespace vask_bus
