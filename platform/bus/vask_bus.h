// SPDX-License-Identifier: MIT
/**
 * @file vask_bus.h
 * @brief libvask_bus: the box's message bus, on MQTT v5.
 *
 * A client connects to one broker, calls methods of services synchronously, subscribes to their
 * signals, and may itself provide services and emit signals.
 *
 * @par Topics
 * Service S, method M, event E; names must be non-empty and free of '/', '+', '\#'.
 * - S/method/M: requests, QoS 0, with response topic bus/reply/\<client id\>, random correlation
 *   data and a message expiry equal to the call's timeout;
 * - S/signal/E: signals, QoS 1;
 * - S/state: presence, retained, QoS 1: "online" on registration, "offline" on unregistration and
 *   as the will of the connection that registered S first.
 *
 * @par Results
 * Every int-returning function returns BUS_OK or one of the negative BUS_ERR_* codes.
 *
 * @par Threads
 * Each connected client runs one network thread (socket I/O; the calls connection excepted, which
 * its callers read themselves) and one dispatch thread that runs signal handlers and service method handlers one at a time,
 * in arrival order. A client that provides services runs one more thread while connected, which
 * answers the requests of its direct socket (see "Direct path") itself. However many threads run
 * them, the handlers of one client run one at a time. Handlers may call any function of this library on any client, including
 * bus_method_call_sync, except the teardown calls that would wait for the handler itself
 * (bus_signal_unsubscribe, bus_service_unregister, bus_disconnect, bus_client_free), which refuse with
 * BUS_ERR_INVALID when called from a handler. bus_method_call_sync and bus_signal_emit may be called
 * from any number of threads on one client at once; the other functions of one client should be
 * called from one thread at a time. A client must not be used after bus_client_free.
 *
 * @par Connection
 * The broker is named by VASK_BUS_URL ("mqtt://host:port" or "mqtts://host:port" for TLS;
 * default mqtt://127.0.0.1:1883), with VASK_BUS_USERNAME / VASK_BUS_PASSWORD and VASK_BUS_CAFILE.
 * VASK_BUS_NAMESPACE (read by bus_client_new), when set, is put in front of every topic of the client
 * ("room12/external_device/method/M", reply topics and presence included), so that the boxes of
 * many rooms share one broker without seeing each other; handlers still see topics without it.
 * The client reconnects by itself after a lost connection (waiting 1 s, doubling up to 30 s) and
 * subscribes again to everything it had; its session outlives a short outage so that QoS 1 signals
 * are not lost. Deadlines use the monotonic clock, so setting the box's clock does not change them.
 *
 * @par Time bounds
 * - bus_connect waits at most 2 s. Each connection attempt in the background (name resolution,
 *   TCP, TLS and the broker's CONNACK) is given up after 5 s, then retried after the back-off; a
 *   broker host that does not answer never holds the network thread longer than that.
 * - bus_disconnect and bus_client_free return within 1 s whatever the network does (at most
 *   0.4 s for the broker to acknowledge "offline", 0.4 s for the DISCONNECT to leave, then the
 *   connection is dropped), plus the time a handler of the client that is running takes to return.
 *   With a broker named by a host name over TLS (mqtts://name), the system resolver, which cannot
 *   be interrupted, may add its own timeout once.
 * - bus_method_call_sync waits at most its timeout; a call in flight fails at once with
 *   BUS_ERR_FAILED when the connection is lost (the client's own or its calls connection), since
 *   its reply can no longer arrive.
 * - Requests carry their caller's timeout as their message expiry: a request that is still queued
 *   for its handler when it expires is dropped without running (counted in requests_expired).
 *
 * @par Queues
 * Each client has two bounded queues, both limited to 10,000 messages and 16 MiB by default
 * (VASK_BUS_QUEUE_MESSAGES and VASK_BUS_QUEUE_BYTES, read by bus_client_new, or
 * bus_client_set_limits):
 * - the dispatch queue of signals and requests waiting for the dispatch thread: when a handler falls
 *   behind, the oldest signals are dropped to make room (the oldest requests only when no signal is
 *   queued); drops are counted (bus_client_get_stats) and logged at level 1, at most once a second;
 * - the sending queue of signals and presence published at QoS 1 and not yet acknowledged by the
 *   broker: bus_signal_emit refuses with BUS_ERR_QUEUE_FULL while it is full.
 *
 * @par Calls connection
 * A client's calls through the broker go out on a second connection of its own, made at its first
 * such call (client id "<client id>-calls", reply topic "bus/reply/<client id>-calls", the same
 * broker, credentials and TLS). The calling thread writes its request there and, while it waits,
 * reads the connection itself (one waiting thread at a time reads and hands each reply to its
 * caller): no other thread of the client is involved. It is made anew after the client's own
 * connection was lost, after a call that heard nothing at all, and before an idle spell reaches half
 * the keepalive the broker gives it. Making it counts against the call's timeout and is given up
 * after 5 s like any connection attempt; when it cannot be made, calls go on the client's own
 * connection for 30 s and a line is logged at level 1. bus_monitor names the calling client without
 * the "-calls". VASK_BUS_CALLS_CONNECTION=0 (read by bus_client_new) keeps calls on the client's
 * one connection.
 *
 * @par Direct path
 * A connected client that provides services also listens on a unix-domain socket (SOCK_SEQPACKET)
 * in the runtime folder: $VASK_SYSROOT/run/vask when VASK_SYSROOT is set, else /run/vask when the
 * process may create its socket there, else $XDG_RUNTIME_DIR/vask; without one of these it serves
 * through the broker only. Its "online" presence names the socket in MQTT v5 user properties
 * ("direct-socket": the path, "direct-pid": the serving process, "direct-boot": the kernel's boot id).
 * A client on the same host (same boot id) that has seen them sends its requests to that service
 * over the socket, one connection per serving process shared by all its threads, and reads the
 * replies there: the calling thread writes the request and the reply wakes exactly its caller.
 * Signals, presence, callers on other hosts and topic namespaces stay on the broker. Timeouts, the
 * reply cap, result codes and log lines are the same on both paths. A call goes through the broker
 * instead when the socket cannot be reached, belongs to another process than the one advertised
 * (SO_PEERCRED), refuses the caller, or no longer provides the service; after such a fallback the
 * socket is tried again only once the service announces itself again. A direct connection lost while
 * a call waits on it fails that call with BUS_ERR_FAILED, as a lost broker connection does. While the
 * broker is down, calls to a service already reached directly keep working. Requests answered
 * directly are not seen by bus_monitor. VASK_BUS_DIRECT=0 (read by bus_client_new) or
 * bus_client_set_direct turns the direct path off, for calls and services alike.
 *
 * @par Who may call on the direct path
 * VASK_BUS_DIRECT_ACCESS, read by the serving process when it starts listening, sets the rule that
 * stands in for the broker's ACL (on the box, data/box/vask.acl):
 * - "user" (the default): socket mode 0600; processes of the same user, and root, are answered;
 * - "group": mode 0660 with the process's group; also processes whose primary or supplementary
 *   groups include it (SO_PEERCRED, SO_PEERGROUPS);
 * - "all": mode 0666; every local process (the box's external_device service, which the broker's
 *   ACL lets every local client call).
 * A peer the rule refuses is disconnected without an answer (checked on the peer's credentials, not
 * only by the socket's mode), counted in peers_refused and logged at level 1; it is told it is
 * refused before any of its requests is read, so that its calls, the first included, go through the
 * broker, whose ACL decides. A service takes 256 direct callers at a time; one more is turned away
 * the same way (counted and logged too) and calls through the broker.
 *
 * @par Logging
 * Log lines of this library use module 58 and source name "vask_bus" (see tulo_log.h).
 */
#ifndef VASK_BUS_H
#define VASK_BUS_H

#ifdef __cplusplus
extern "C" {
#endif

/** @def VASK_BUS_API
 * Marks a function of the bus library's interface: exported from libvask_bus.so.0 (with GCC and
 * Clang, default visibility); everything else is hidden. */
#if defined(__GNUC__)
#define VASK_BUS_API __attribute__((visibility("default")))
#else
#define VASK_BUS_API
#endif

/** The call succeeded. */
#define BUS_OK                    0
#define BUS_ERR_TIMEOUT           (-5)    /**< no reply within the timeout */
#define BUS_ERR_FAILED            (-1001) /**< not connected, transport error, null or freed client */
#define BUS_ERR_INVALID           (-1002) /**< bad arguments, or a teardown call made from a handler */
#define BUS_ERR_NO_SERVICE        (-1003) /**< the service is known to be offline */
#define BUS_ERR_REPLY_TOO_LARGE   (-1004) /**< the reply does not fit BUS_REPLY_MAX; nothing written */
#define BUS_ERR_QUEUE_FULL        (-1005) /**< the client's sending queue is full; nothing was sent */

/** Size of a caller's reply buffer, including the terminating zero byte. */
#define BUS_REPLY_MAX 2048
/** Capacity handed to a service method handler for its reply. A service may answer more than
 * BUS_REPLY_MAX; the caller then gets BUS_ERR_REPLY_TOO_LARGE. */
#define BUS_SERVICE_REPLY_CAPACITY 65536

/** The module number of this library's log lines. */
#define BUS_LOG_MODULE 58

/** A client of the bus: opaque; made by bus_client_new, freed by bus_client_free. */
typedef struct bus_client bus_client;

/** Called on the client's dispatch thread for each delivered signal. `user` is the client's user
 * pointer (bus_client_set_user), `topic` the full topic "S/signal/E", `payload` a zero-terminated
 * copy of the signal's bytes and `length` their number without the terminator. The strings are
 * valid only during the call. */
typedef void (*bus_signal_handler)(bus_client *client, void *user, const char *topic,
                                   const void *payload, int length);

/** Called on the providing client's dispatch thread for each request to a registered service.
 * `method` is M, `body` the request bytes (zero-terminated; "" when empty) and `body_length` their
 * number. Fill `reply` (at most `capacity` bytes, BUS_SERVICE_REPLY_CAPACITY) and return the reply's
 * length; return < 0 to send no reply (the caller then times out). */
typedef int (*bus_method_handler)(bus_client *client, void *user, const char *method,
                                  const char *body, int body_length, char *reply, int capacity);

/** Starts the library; reference counted, pair each successful call with bus_cleanup.
 * @return BUS_OK, or BUS_ERR_FAILED when the MQTT library cannot be started. */
VASK_BUS_API int bus_init(void);

/** Releases one bus_init. The last one shuts the MQTT library down: free every client before it. */
VASK_BUS_API void bus_cleanup(void);

/** Creates a disconnected client named `name` (1 to 64 characters, no '/', '+', '#'). Its MQTT client
 * id is the name, the process id and a random suffix, so two processes with one name never take each
 * other's session. Starts the client's dispatch thread.
 * @return NULL when bus_init has not been
 * called, the name or VASK_BUS_NAMESPACE (wildcards, a leading, trailing or doubled '/') is
 * invalid, or resources are exhausted.
 * @param name the client's bus name */
VASK_BUS_API bus_client *bus_client_new(const char *name);

/** Sets the pointer handed to this client's signal handlers (NULL by default).
 * @param client the client
 * @param user the pointer, or NULL */
VASK_BUS_API void bus_client_set_user(bus_client *client, void *user);

/** Connects to the broker of VASK_BUS_URL and starts the network thread. `flags` must be 0: wait up
 * to 2 s for the connection and the acknowledgement of every subscription the client already has
 * (by then the retained presence of every service has arrived, so a call to a service known to be
 * offline fails at once), and keep retrying in the background when the broker cannot be reached.
 * @return BUS_OK when connected; BUS_ERR_FAILED when not connected within 2 s (the client keeps
 * trying), also for a null or freed client; BUS_ERR_INVALID for a bad URL or flags; BUS_OK at once
 * when already connecting or connected.
 * @param client the client
 * @param flags must be 0 */
VASK_BUS_API int bus_connect(bus_client *client, int flags);

/** Calls method `method` of service `service` and waits for the reply.
 * `body`/`body_length`: the request bytes (NULL and 0 for none). `reply` must hold BUS_REPLY_MAX
 * bytes; on BUS_OK it receives the reply text followed by a zero byte and `*reply_length` its length
 * without the zero (0 for an empty reply). `timeout_s` (1 to 3600) bounds the wait and is the
 * request's message expiry, so a request that waited out a disconnection is never executed late.
 * Blocks the calling thread; safe from many threads on one client and from handlers (except, on
 * the same client, from a handler of a service registered with BUS_SERVICE_NO_BUS_CALLS). Goes over
 * the service's direct socket when it offers one on this host (see "Direct path"). After the client
 * has reconnected, a call through the broker to a service whose presence it learnt on the earlier
 * connection first waits, within `timeout_s`, for that presence on the new one: a broker restarted
 * without its retained states knows nothing of the service until it announces itself again, and a
 * request sent before would reach nobody.
 * @return BUS_OK; BUS_ERR_TIMEOUT when no reply came in time; BUS_ERR_FAILED when not connected
 * (at once; a service reached over its direct socket is still called) or when the connection the
 * call waits on is lost, or for a null or freed client; BUS_ERR_INVALID for bad arguments, or on the
 * network thread of the same client; BUS_ERR_NO_SERVICE at
 * once when the service's presence is "offline"; BUS_ERR_REPLY_TOO_LARGE when the reply has
 * BUS_REPLY_MAX bytes or more (nothing is written, `*reply_length` is 0). On every result but
 * BUS_OK, `reply` is left untouched and `*reply_length` (when not NULL) is 0.
 * @param client the calling client
 * @param service the service's name S
 * @param method the method's name M
 * @param body the request bytes, or NULL
 * @param body_length their number (0 for none)
 * @param reply a buffer of BUS_REPLY_MAX bytes
 * @param reply_length receives the reply's length without the zero (may be NULL)
 * @param timeout_s seconds to wait, 1 to 3600 */
VASK_BUS_API int bus_method_call_sync(bus_client *client, const char *service, const char *method,
                                      const char *body, int body_length, char *reply,
                                      int *reply_length, int timeout_s);

/** Subscribes `handler` to signal `event` of `service` (QoS 1). Subscribing again to the same signal
 * replaces the handler. The subscription is kept in the client's own table and made again on every
 * connection. When connected, returns after the broker acknowledged it (at most 2 s); when not, it is
 * made on the next connection.
 * @return BUS_OK, BUS_ERR_INVALID for bad arguments, BUS_ERR_FAILED for
 * a null or freed client.
 * @param client the client
 * @param service the service's name S
 * @param event the event's name E
 * @param handler called for each signal */
VASK_BUS_API int bus_signal_subscribe(bus_client *client, const char *service, const char *event,
                                      bus_signal_handler handler);

/** Removes the subscription. Signals of it that are queued and not yet handled are dropped; when its
 * handler is running, waits until it returns.
 * @return BUS_OK (also when there was no such
 * subscription), BUS_ERR_INVALID for bad arguments or when called from a handler, BUS_ERR_FAILED for
 * a null or freed client.
 * @param client the client
 * @param service the service's name S
 * @param event the event's name E */
VASK_BUS_API int bus_signal_unsubscribe(bus_client *client, const char *service, const char *event);

/** Provides service `service`: `handler` answers every request to S/method/+, with `user` handed to
 * it. Publishes "online" on S/state (retained) on every connection. The first service registered on
 * a client is also the connection's will, published "offline" by the broker when the connection is
 * lost; registering it while connected reconnects once to set the will. Register each service that
 * needs its own will on its own client.
 * @return BUS_OK, BUS_ERR_INVALID for bad arguments or a
 * service already registered on this client, BUS_ERR_FAILED for a null or freed client.
 * @param client the providing client
 * @param service the service's name S
 * @param handler answers the service's requests
 * @param user handed to `handler` */
VASK_BUS_API int bus_service_register(bus_client *client, const char *service,
                                      bus_method_handler handler, void *user);

/** Stops providing `service`: publishes "offline" on S/state, drops its queued requests and waits
 * for its running handler.
 * @return BUS_OK, BUS_ERR_INVALID for an unknown service, bad arguments or
 * a call from a handler, BUS_ERR_FAILED for a null or freed client.
 * @param client the providing client
 * @param service the service's name S */
VASK_BUS_API int bus_service_unregister(bus_client *client, const char *service);

/** Emits signal `event` of `service` with `payload` (`length` bytes; NULL and 0 for none) at QoS 1.
 * Safe from many threads.
 * @return BUS_OK once the message is queued for sending; BUS_ERR_QUEUE_FULL when the client's
 * sending queue is full (the broker acknowledges too slowly; nothing is sent, try again later);
 * BUS_ERR_FAILED when not connected or for a null or freed client; BUS_ERR_INVALID for bad arguments.
 * @param client the emitting client
 * @param service the service's name S
 * @param event the event's name E
 * @param payload the signal's bytes, or NULL
 * @param length their number (0 for none) */
VASK_BUS_API int bus_signal_emit(bus_client *client, const char *service, const char *event,
                                 const void *payload, int length);

/** What a monitor sees: one message of a service's traffic (bus_monitor). */
typedef struct bus_monitor_event {
    int kind;                /**< BUS_MONITOR_REQUEST, BUS_MONITOR_REPLY, BUS_MONITOR_SIGNAL or BUS_MONITOR_PRESENCE */
    const char *service;     /**< S ("" for a reply, whose topic names no service) */
    const char *name;        /**< the method M of a request, the event E of a signal, "" otherwise */
    const char *payload;     /**< zero-terminated copy of the bytes: body, reply, signal or presence state */
    int length;              /**< their number without the terminator */
    const char *client_id;   /**< request: the caller's client id; reply: the client id it goes to; else "" */
    const void *correlation; /**< request and reply: the correlation data that pairs them; else NULL */
    int correlation_length;  /**< its number of bytes */
} bus_monitor_event;

#define BUS_MONITOR_REQUEST  1 /**< a request to one of the service's methods */
#define BUS_MONITOR_REPLY    2 /**< a reply to any caller (pair it with its request by correlation) */
#define BUS_MONITOR_SIGNAL   3 /**< a signal of the service */
#define BUS_MONITOR_PRESENCE 4 /**< the service's presence state */

/** Called on the client's dispatch thread, in arrival order, for each message a monitor sees. The
 * event and its strings are valid only during the call. */
typedef void (*bus_monitor_handler)(bus_client *client, void *user, const bus_monitor_event *event);

/** Makes the client watch everything on the bus for `service`: its requests (whoever calls), every
 * reply on the bus, its signals and its presence, at QoS 0, on this connection and every later one.
 * Set on a connected client, it starts with the service's presence as the client knows it.
 * It only watches: requests still go to the service, and nothing is answered. One monitor per client;
 * calling again replaces the handler. Meant for tools (edctl monitor); the broker's ACL decides
 * whether a client may read other clients' traffic.
 * @return BUS_OK, BUS_ERR_INVALID for bad arguments, BUS_ERR_FAILED for a null or freed client.
 * @param client the watching client
 * @param service the service's name S
 * @param handler called for each message
 * @param user handed to `handler` */
VASK_BUS_API int bus_monitor(bus_client *client, const char *service, bus_monitor_handler handler, void *user);

/** What a client's queues hold and what they counted since the client was made. */
typedef struct bus_client_stats {
    unsigned long long signals_dropped;  /**< signals dropped from a full dispatch queue */
    unsigned long long requests_dropped; /**< requests dropped from a full dispatch queue */
    unsigned long long requests_expired; /**< requests dropped because they expired before their handler ran */
    unsigned long long emits_refused;    /**< bus_signal_emit calls refused with BUS_ERR_QUEUE_FULL */
    unsigned long dispatch_queued;       /**< messages waiting in the dispatch queue now */
    unsigned long dispatch_bytes;        /**< their bytes (topic, payload and reply routing) */
    unsigned long send_queued;           /**< QoS 1 messages not yet acknowledged by the broker now */
    unsigned long send_bytes;            /**< their payload bytes */
} bus_client_stats;

/** Sets the limits of the client's two queues (see "Queues" above). Takes effect for the next
 * message; what already waits is not dropped for it.
 * @return BUS_OK, BUS_ERR_INVALID when a limit is below 1, BUS_ERR_FAILED for a null or freed client.
 * @param client the client
 * @param dispatch_messages most messages waiting for the dispatch thread
 * @param dispatch_bytes most bytes waiting for the dispatch thread
 * @param send_messages most QoS 1 messages not yet acknowledged by the broker
 * @param send_bytes most payload bytes of those */
VASK_BUS_API int bus_client_set_limits(bus_client *client, int dispatch_messages, unsigned long dispatch_bytes,
                                       int send_messages, unsigned long send_bytes);

/** Copies the client's counters and queue levels into `stats`.
 * @return BUS_OK, BUS_ERR_INVALID for a null `stats`, BUS_ERR_FAILED for a null or freed client.
 * @param client the client
 * @param stats receives the figures */
VASK_BUS_API int bus_client_get_stats(bus_client *client, bus_client_stats *stats);

/** What the direct path of a client did since the client was made (see "Direct path" above). */
typedef struct bus_direct_stats {
    unsigned long long calls_direct;   /**< calls this client made over a service's direct socket */
    unsigned long long calls_broker;   /**< calls this client made through the broker */
    unsigned long long fallbacks;      /**< direct sockets found unusable, after which calls went through the broker */
    unsigned long long served_direct;  /**< requests this client's services answered over their direct socket */
    unsigned long long peers_refused;  /**< direct connections refused by the access rule or over the 256 callers */
} bus_direct_stats;

/** Copies the client's direct-path counters into `stats`.
 * @return BUS_OK, BUS_ERR_INVALID for a null `stats`, BUS_ERR_FAILED for a null or freed client.
 * @param client the client
 * @param stats receives the figures */
VASK_BUS_API int bus_client_get_direct_stats(bus_client *client, bus_direct_stats *stats);

/** Turns the direct path on (1, the default unless VASK_BUS_DIRECT=0 was set when the client was
 * made) or off (0) for this client: off, its calls go through the broker from the next call on, and
 * its services stop listening on a direct socket from the next bus_connect (or at once when not
 * connected).
 * @return BUS_OK, BUS_ERR_INVALID for `enabled` other than 0 or 1, BUS_ERR_FAILED for a null or
 * freed client.
 * @param client the client
 * @param enabled 1 to use the direct path, 0 to insist on the broker */
VASK_BUS_API int bus_client_set_direct(bus_client *client, int enabled);

/** Flag of bus_service_register_flags: the service's handler never calls this library's blocking
 * functions (bus_method_call_sync, the teardown calls); it may emit signals. Its requests from the
 * broker are then answered on the network thread that read them, without a hand-over to the dispatch
 * thread, whenever the dispatch thread is idle; a bus_method_call_sync on the same client from such a
 * handler is refused with BUS_ERR_INVALID instead of waiting for a reply only that thread could read. */
#define BUS_SERVICE_NO_BUS_CALLS 1

/** bus_service_register with `flags` (0 or BUS_SERVICE_NO_BUS_CALLS).
 * @return as bus_service_register; BUS_ERR_INVALID for unknown flags.
 * @param client the providing client
 * @param service the service's name S
 * @param handler answers the service's requests
 * @param user handed to `handler`
 * @param flags 0 or BUS_SERVICE_NO_BUS_CALLS */
VASK_BUS_API int bus_service_register_flags(bus_client *client, const char *service, bus_method_handler handler,
                                            void *user, int flags);

/** Publishes "offline" for the client's services, closes the connection, stops the network thread,
 * fails calls in flight with BUS_ERR_FAILED, drops queued signals and requests and waits for a running
 * handler. The client can connect again. Returns within 1 s whatever the network does, plus the time
 * a running handler takes (see "Time bounds").
 * @return BUS_OK (also when not connected), BUS_ERR_INVALID
 * when called from a handler, BUS_ERR_FAILED for a null or freed client.
 * @param client the client */
VASK_BUS_API int bus_disconnect(bus_client *client);

/** Disconnects if needed, stops the dispatch thread and frees the client. A null or freed client is
 * ignored; a call from a handler is refused (logged, nothing freed).
 * @param client the client, or NULL */
VASK_BUS_API void bus_client_free(bus_client *client);

#ifdef __cplusplus
}
#endif

#endif
