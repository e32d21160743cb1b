// SPDX-License-Identifier: MIT
// The connection a client's synchronous calls through the broker take, beside the connection
// that carries its signals, services and presence. The calling thread writes its request on it
// and, while it waits, reads it itself: the reply wakes the caller and no other thread.
#ifndef VASK_BUS_CALLS_INTERNAL_H
#define VASK_BUS_CALLS_INTERNAL_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <random>
#include <string>
#include <unordered_map>

struct client_state;
struct mosquitto;

namespace vask_bus {

struct pending_call;
struct broker_address;

// What the calls connection's client id and reply topic add to the client's id. Its reply topic
// ends with its own client id, as the box's broker ACL asks of every reader of replies.
constexpr const char *kCallsIdSuffix = "-calls";

struct calls_connection {
    std::string client_id;   // the client's id with kCallsIdSuffix
    std::string reply_topic; // as on the wire
    // Guards everything below, and every use of `mosq`: libmosquitto runs without threads of its
    // own here, so it is used by one thread at a time, the one that holds the mutex (or makes the
    // connection, see `connecting`).
    std::mutex mutex;
    std::condition_variable changed; // connection made or given up, reading handed on
    mosquitto *mosq = nullptr;       // while a connection is up
    bool connecting = false;         // a caller makes the connection; nobody else uses `mosq`
    bool reading = false;            // a waiting caller polls the socket (without the mutex)
    bool stopping = false;           // bus_disconnect: no new connection, the reader lets go
    uint64_t made_on = 0;            // the client's connection count when this one was made
    std::chrono::steady_clock::time_point last_read{};
    std::chrono::steady_clock::time_point last_sent{};
    std::chrono::steady_clock::time_point retry_after{}; // no attempt before, after a failed one
    std::chrono::seconds idle_limit{0}; // made anew when idle longer (the broker's keepalive), 0: none
    std::unordered_map<std::string, pending_call *> calls; // correlation -> caller
    std::mt19937_64 random;

    // Set (with a write to `wake_fd`) by whoever finds the connection unusable while a caller
    // reads it: the client's own connection lost, the client disconnecting, a request that could
    // not be written. The reader drops the connection.
    std::atomic<bool> drop_requested{false};
    int wake_fd = -1; // eventfd, polled by the reader beside the socket

    // Written only by the thread that makes the connection, while `connecting`.
    int handshake_rc = -1;         // CONNACK's reason code, -1 until it arrives
    int handshake_subscribed = -1; // 1 when the reply topic's subscription is granted, 0 refused
    int server_keepalive_s = 0;
};

// A result of call_on_calls_connection meaning: not sent, use the client's own connection.
constexpr int kNoCallsConnection = 2;

// Makes the calls connection of a new client; false when it cannot (no eventfd).
bool init_calls_connection(client_state *client);
void free_calls_connection(client_state *client);

// Calls `topic` (as on the wire) over the calls connection, made first (to `address`) when there is
// none or the one there was made before the client's present connection (`connection_count`). Returns a BUS_*
// result, or kNoCallsConnection when the connection cannot be made: the call then goes through the
// client's own connection, and the calls connection is not tried again for a while.
int call_on_calls_connection(client_state *client, uint64_t connection_count, const broker_address &address,
                             const std::string &topic, const char *body, int body_length, char *reply,
                             int *reply_length, std::chrono::steady_clock::time_point deadline);

// The client's own connection is lost: calls waiting on the calls connection fail at once, as calls
// on the lost connection do, and the next call makes it anew. Safe with the client's mutex held.
void calls_connection_lost(client_state *client);

// bus_disconnect: ends the calls connection (its waiting calls fail) and makes none until the
// client connects again.
void close_calls_connection(client_state *client);
void reopen_calls_connection(client_state *client);

// The id of the client that made a call, from the client id its reply topic ends with.
std::string calling_client(const std::string &reply_client_id);

} // namespace vask_bus

#endif
