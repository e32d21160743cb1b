// SPDX-License-Identifier: MIT
/**
 * @file libvask_external_device.h
 * @brief libvask_external_device: control and query the external devices of a conference-room
 * media box.
 *
 * The one header applications include. It declares the operations that call the box's
 * "external_device" service, the signal records and their callbacks, the configuration functions
 * that keep the box's JSON files, and the free utilities. The library-wide rules:
 *
 * @par Results
 * Every operation returns an int, 0 for success and a negative value for failure.
 * - -1: general failure (bad file, bad JSON, missing section, empty result, unknown service code,
 *   bus not connected or not opened)
 * - -2: unknown selector, unsupported protocol, or bad arguments refused by the bus
 * - -3: unknown signal event, option-table failure, or the service is offline
 * - -4: the service did not answer in time (8 s)
 *
 * Each operation lists the values it returns. A service call folds the reply's "code" into these:
 * 0 stays 0, BUS_ERR_TIMEOUT gives -4, BUS_ERR_FAILED -1, BUS_ERR_INVALID -2 (so does the
 * service's own -1002), BUS_ERR_NO_SERVICE -3, and any other code (the service's positive codes,
 * a reply without "code", a reply too large) -1.
 *
 * @par Order
 * Call ed_init once, then any operation and any signal subscription, then ed_release.
 * ed_set_opt may be called at any time, also before ed_init. Configuration functions do not need
 * ed_init. An operation that needs the service before ed_init or after ed_release returns -1: the
 * library drops its client in ed_release and never hands a freed one to the bus library. The
 * library may be opened again after ed_release; the signal callbacks stored by ed_register_signal
 * are kept and ed_init subscribes them again. ed_release called from a signal callback is refused
 * with -1 (see ed_release).
 *
 * @par Threads
 * ed_init starts two threads, both the bus library's, for the library's client: its dispatch thread
 * (made with the client) and its network thread (made on connecting; it does the socket I/O and
 * hands replies to the waiting callers). ed_release stops both before it returns; nothing else in
 * the library starts a thread. Signal callbacks run on the dispatch thread, one at a time (see the
 * callback contract under "Signals"). Service operations run on the calling thread and block it
 * until the service answers (at most 8 s); they may be called from several threads at once.
 * Configuration functions and utilities run on the calling thread. ed_init, ed_release and
 * ed_register_signal / ed_unregister_signal belong to the application's control thread while no
 * other call is in flight.
 *
 * @par Configuration lock
 * The functions that read or write /etc/external_device.json or /etc/microphone_control.json take
 * one process-wide lock for their whole read-parse-modify-write cycle and, inside it, an advisory
 * flock(2) on "<resolved file>.lock" beside the file the links lead to, so that neither the threads
 * of one process nor other processes interleave their cycles (see "Configuration store" below).
 * A call waits at most 5 s for a lock file another process holds, without holding the process-wide
 * lock meanwhile; then it returns -1, reads and writes nothing and logs at level 0 "configuration
 * file \<resolved path\> is locked by another process, gave up after 5 s".
 * The lock is never held while the service is called.
 *
 * @par Bus
 * The library connects as client "libvaskexternal_device" to the broker named by VASK_BUS_URL
 * (default mqtt://127.0.0.1:1883; VASK_BUS_USERNAME, VASK_BUS_PASSWORD, VASK_BUS_CAFILE and
 * VASK_BUS_NAMESPACE as in vask_bus.h) and calls the "external_device" service.
 *
 * @par Files
 * The fixed paths the library reads and writes (/etc/external_device.json,
 * /usr/share/vask/etc/external_device.json, /var/lib/vask/etc/external_device.json,
 * /etc/microphone_control.json, /etc/os-release, /proc/cmdline, /etc/hostname, /etc/description)
 * are prefixed with VASK_SYSROOT when that environment variable is set and not empty. Paths a
 * caller passes in are used as given.
 *
 * @par Logging
 * Every line goes through TULO_LOG_write_newline with module 59 (ED_LOG_MODULE); TULO_LOG_LEVEL
 * and TULO_LOG_TARGET choose what is written and where (see tulo_log.h).
 */
#ifndef LIBVASK_EXTERNAL_DEVICE_H
#define LIBVASK_EXTERNAL_DEVICE_H

#include <cjson/cJSON.h>
#include <cstdint>
#include <string>
#include <vector>

#include "vask_bus.h"

/* The records cross the library's boundary holding std::string, whose layout differs between the two
 * ABIs of libstdc++: a program built with the old one would link and then crash in the first call that
 * fills a record. The check follows <string>, which defines the macro when the program did not. */
#if defined(_GLIBCXX_USE_CXX11_ABI) && _GLIBCXX_USE_CXX11_ABI == 0
#error "libvask_external_device is built with the C++11 ABI of std::string: build this program without -D_GLIBCXX_USE_CXX11_ABI=0"
#endif

/** @def ED_API
 * Marks a function of the library's interface: exported from libvask_external_device.so.0 (with
 * GCC and Clang, default visibility); everything else is hidden. */
#if defined(__GNUC__)
#define ED_API __attribute__((visibility("default")))
#else
#define ED_API
#endif

/** The module number of the library's log lines (the `module` of TULO_LOG_write_newline). */
#define ED_LOG_MODULE 59

/** @name Lifecycle and options */
/** @{ */

/** Option ids of ed_set_opt. */
enum {
    /** Non-zero (the default, 1): each signal payload is parsed into a record, handed to the
     * callback and freed after it. 0: the raw payload text is handed to the callback. */
    ED_OPT_SIGNAL_PARSE = 0,
};

/** Opens the library: starts the bus library, creates the bus client (which starts its dispatch
 * thread), subscribes it to every event that has a non-NULL callback stored by ed_register_signal
 * (also one stored before an earlier ed_release, or before the first ed_init), and connects it
 * (starting its network thread and waiting up to 2 s for the connection and those subscriptions;
 * the client keeps trying in the background).
 * @return 0 on success, also when already open (logged at level 0, "External device library
 * already initialized"), also when the client cannot be made (a VASK_BUS_NAMESPACE the bus library
 * refuses: service operations then return -1 until ed_release and a new ed_init); -1 when the bus
 * library cannot be started (a later ed_init may try again). */
ED_API int ed_init();

/** Closes the library: disconnects and frees the bus client (stopping its two threads, after a
 * running signal callback has returned) and releases the bus library. Later service operations
 * return -1 until the next ed_init; the stored signal callbacks are kept for it. When the library
 * is not open it logs at level 0 "External device library not initialized" and returns 0.
 * Called from a signal callback (or any other handler of the bus library) it is refused, unlike
 * every other case: it logs at level 0 "ed_release called from a signal callback: refused" and
 * returns -1 without changing anything; the library stays open and keeps delivering signals.
 * Call it again from the application's own thread.
 * @return 0; -1 when called from a signal callback. */
ED_API int ed_release();

/** Stores `value` under `option` (any id is stored; only ED_OPT_SIGNAL_PARSE is read). Takes effect
 * on the next signal delivered. Returns 0.
 * @param option the option id, ED_OPT_SIGNAL_PARSE (any other id is stored but never read)
 * @param value the value to store under `option`
 * @return 0. */
ED_API int ed_set_opt(int option, int value);

/** Copies the counters and queue levels of the library's bus client into `stats`: how many signals
 * were dropped because the callbacks fell behind (the dispatch queue keeps the newest ones within
 * VASK_BUS_QUEUE_MESSAGES / VASK_BUS_QUEUE_BYTES), how many wait now. Any thread may call it.
 * @return 0; -1 when the library is not open or `stats` is null.
 * @param stats receives the figures (see bus_client_stats in vask_bus.h) */
ED_API int ed_get_bus_stats(bus_client_stats *stats);

/** Copies the direct-path counters of the library's bus client into `stats`: how many calls went
 * over the external_device service's direct socket on this host and how many through the broker
 * (VASK_BUS_DIRECT=0 makes them all go through the broker). Any thread may call it.
 * @return 0; -1 when the library is not open or `stats` is null.
 * @param stats receives the figures (see bus_direct_stats in vask_bus.h) */
ED_API int ed_get_bus_direct_stats(bus_direct_stats *stats);

/** @} */
/** @name Voting */
/** @{ */

/** The state of a delegate vote as the service reports it. A value the reply lacks is -1. */
struct ed_voting_info {
    int status;   /**< "Status": on output the vote's status; on input to ed_set_voting the action */
    int agree;    /**< "Agree" */
    int disagree; /**< "Disagree" */
    int abandon;  /**< "Abandon" */
    int total;    /**< "Total" */
    int time;     /**< "Time" */
};

/** Reads the current vote ("query_voting") into `info`.
 * @return 0, or -1 to -4 as in the rules
 * above; on failure `info` is left as it was.
 * @param info receives the vote's state on success */
ED_API int ed_get_voting(ed_voting_info &info);

/** Performs the action selected by info.status: 0 "enter_voting", 1 "stop_voting", 2 "start_voting",
 * 3 "exit_voting", any other value "query_voting". For "stop_voting" and "query_voting" `info` is
 * filled from the reply on success (the selector is overwritten by the reported status); for the
 * other actions `info` is not changed.
 * @return 0, or -1 to -4 as in the rules above.
 * @param info info.status selects the action; receives the reported state after "stop_voting" and
 *   "query_voting" */
ED_API int ed_set_voting(ed_voting_info &info);

/** @} */
/** @name Signals
 * The service "external_device" broadcasts five signals, each carrying a small JSON object:
 *
 * | event                    | record handed to the callback | parser / releaser |
 * |--------------------------|-------------------------------|-------------------|
 * | "mic_on_event"           | sig_mic_on_data               | sig_mic_on_parser / sig_mic_on_releaser |
 * | "voting_results_event"   | sig_voting_results_data       | sig_voting_results_parser / sig_voting_results_releaser |
 * | "info_data_change_event" | sig_info_data_change_data     | sig_info_data_change_parser / sig_info_data_change_releaser |
 * | "cam_status_event"       | sig_cam_status_data           | sig_cam_status_parser / sig_cam_status_releaser |
 * | "non_list_mic_event"     | sig_mic_on_data               | sig_non_list_mic_parser / sig_non_list_mic_releaser |
 *
 * On the bus each travels on the topic "external_device/signal/" followed by the event name.
 *
 * Callback contract:
 * - The callback runs on the bus library's dispatch thread, one signal at a time, in arrival
 *   order, concurrently with the application's own threads. Do not block it: every later signal
 *   waits until the callback returns. It may call the library's service operations.
 * - `event` is the event name ("mic_on_event", ...), valid only during the call.
 * - `data` is the parsed record (cast it to the record type of the event). The record is freed when
 *   the callback returns: copy what you keep. With ED_OPT_SIGNAL_PARSE at 0, `data` is instead the
 *   raw, zero-terminated JSON payload as the bus delivered it, also valid only during the call.
 * - A signal whose payload is not valid JSON or lacks a required key does not reach the callback.
 * - `user` is always NULL: the library's bus client is its own and not handed out, so nothing
 *   sets its user pointer.
 * - Register before the first signal can arrive, and unregister only while no delivery is in
 *   progress. A signal for an event that has no callback is dropped.
 * - Do not call ed_release or ed_unregister_signal from the callback: ed_release is refused
 *   with -1, and ed_unregister_signal cannot unsubscribe there.
 * - An exception thrown by the callback propagates out of ed_signal_handler to the bus library;
 *   the record is freed all the same.
 */
/** @{ */

/** "mic_on_event" and "non_list_mic_event". */
struct sig_mic_on_data {
    int status;        /**< not set by the parsers: its value is unspecified, do not read it */
    std::string group; /**< "Group"; empty when missing or not a string */
    std::string id;    /**< "Id"; empty when missing or not a string */
    bool on;           /**< "On": true exactly when its integer value is 1 (true or 1); false when missing */
};

/** "voting_results_event". Every member is the integer value of its key. */
struct sig_voting_results_data {
    int status;   /**< "Status" */
    int agree;    /**< "Agree" */
    int disagree; /**< "Disagree" */
    int abandon;  /**< "Abandon" */
    int total;    /**< "Total" */
    int time;     /**< "Time" */
};

/** "info_data_change_event". The service defines what the values mean. */
struct sig_info_data_change_data {
    int type; /**< "Type" */
    int data; /**< "Data" */
};

/** "cam_status_event". */
struct sig_cam_status_data {
    int status;        /**< "Status" */
    std::string group; /**< "Group"; empty when missing or not a string */
    std::string id;    /**< "Id"; empty when missing or not a string */
    bool on;           /**< "On": true exactly when its integer value is 1 (true or 1); false when missing */
};

/** @} */
/** @name Signal parsers and releasers
 * Parsers: each turns a zero-terminated JSON payload into a record allocated with new, to be freed
 * with the matching releaser, or returns NULL when the text is not JSON, a required key is missing
 * at the top level of the object, or memory runs out. Integers are the integer value of their
 * member, whatever its JSON type (3.7 reads as 3, true as 1, a string as 0). Nothing is logged.
 *
 * Releasers: each frees a record made by its parser; NULL is accepted and ignored.
 */
/** @{ */

/** @return a sig_mic_on_data, or NULL unless "Group" or "Id" (at least one) is present.
 * @param payload the zero-terminated JSON text of the signal (may be NULL: gives NULL) */
ED_API void *sig_mic_on_parser(const char *payload);
/** Frees a sig_mic_on_data.
 * @param record a record made by sig_mic_on_parser, or NULL */
ED_API void sig_mic_on_releaser(void *record);

/** @return a sig_voting_results_data, or NULL unless all of "Status", "Agree", "Disagree",
 * "Abandon", "Total" and "Time" are present.
 * @param payload the zero-terminated JSON text of the signal (may be NULL: gives NULL) */
ED_API void *sig_voting_results_parser(const char *payload);
/** Frees a sig_voting_results_data.
 * @param record a record made by sig_voting_results_parser, or NULL */
ED_API void sig_voting_results_releaser(void *record);

/** @return a sig_info_data_change_data, or NULL unless "Type" and "Data" are present.
 * @param payload the zero-terminated JSON text of the signal (may be NULL: gives NULL) */
ED_API void *sig_info_data_change_parser(const char *payload);
/** Frees a sig_info_data_change_data.
 * @param record a record made by sig_info_data_change_parser, or NULL */
ED_API void sig_info_data_change_releaser(void *record);

/** @return a sig_cam_status_data, or NULL unless "Status" is present.
 * @param payload the zero-terminated JSON text of the signal (may be NULL: gives NULL) */
ED_API void *sig_cam_status_parser(const char *payload);
/** Frees a sig_cam_status_data.
 * @param record a record made by sig_cam_status_parser, or NULL */
ED_API void sig_cam_status_releaser(void *record);

/** The same as sig_mic_on_parser: the two microphone signals share one payload form.
 * @param payload the zero-terminated JSON text of the signal (may be NULL: gives NULL)
 * @return a new sig_mic_on_data, or NULL as sig_mic_on_parser. */
ED_API void *sig_non_list_mic_parser(const char *payload);
/** Frees a sig_mic_on_data made by sig_non_list_mic_parser.
 * @param record a record made by sig_non_list_mic_parser, or NULL */
ED_API void sig_non_list_mic_releaser(void *record);

/** Sets `callback` for signal `event` (the short name, e.g. "mic_on_event", not the full topic),
 * replacing an earlier one, and subscribes the library's bus client to it with ed_signal_handler.
 * Registering an event again subscribes again. A NULL callback is stored too: the event's signals
 * are then dropped. Call it from the application's control thread. Called while the library is
 * closed (before ed_init, after ed_release) it only stores the callback, and the next ed_init
 * subscribes it; the callback stays stored across ed_release and ed_init until
 * ed_unregister_signal.
 * @return 0 when the event is one of the five, also when the bus refused the subscription (not
 * connected, library closed); -3 for any other event name or a NULL `event`, without subscribing.
 * @param event the event's short name, one of the five
 * @param callback called for each signal of the event on the dispatch thread with the event name, the record
 *   (or the raw payload) and NULL; NULL drops the event's signals */
ED_API int ed_register_signal(const char *event,
                              void (*callback)(const char *event, void *data, void *user));

/** Unsubscribes from signal `event` and clears its callback. Signals of it already queued are
 * dropped; when its callback is running, waits until it returns, so do not call it from a callback
 * (the bus then keeps the subscription, but the event's signals are still dropped).
 * @return 0 when the event is one of the five, also when the bus refused; -3 for any other event
 * name or a NULL `event`.
 * @param event the event's short name, one of the five */
ED_API int ed_unregister_signal(const char *event);

/** The dispatcher the library hands to the bus library; applications do not call it.
 * For a `topic` that is not one of the five full topics it returns at once, silently. Otherwise,
 * with ED_OPT_SIGNAL_PARSE non-zero, it parses the zero-terminated JSON text `payload` with the
 * event's parser, calls the event's callback with the record (not when the parser returned NULL)
 * and then frees the record with the event's releaser; with ED_OPT_SIGNAL_PARSE at 0 it calls the
 * callback with `payload` itself and frees nothing. The callback is never called when it is NULL.
 * `user` is handed to the callback unchanged; `client` and `length` are not used.
 * @param client the bus client that received the signal (not used)
 * @param user the client's user pointer, handed to the callback (NULL for the library's own client)
 * @param topic the full topic of the signal, "external_device/signal/\<event\>"
 * @param payload the zero-terminated JSON text of the signal
 * @param length the payload's length without the terminator (not used) */
ED_API void ed_signal_handler(bus_client *client, void *user, const char *topic, const void *payload,
                              int length);

/** @} */
/** @name Utilities: strings, paths and URIs
 * Free helpers for strings, paths, files, shell commands, JSON editing, time, network, hex and baud
 * rates. They hold no state and take no lock; any of them may be called from any thread. Strings
 * are byte strings: no character-set handling is done. Paths are used as given (no ~ expansion, no
 * resolution of ".."). Only the functions that say so log; their lines have source "utils".
 */
/** @{ */

/** Replaces every occurrence of `from` in *str by `to`, left to right; the search goes on after the
 * inserted text, so `to` is never searched again ("a" by "aa" in "aaa" gives six "a"). An empty
 * `from` changes nothing.
 * @return 0; -1 when `str` is null.
 * @param str the string edited in place
 * @param from the text searched for
 * @param to the text put in its place */
ED_API int ReplaceString(std::string *str, const std::string &from, const std::string &to);

/** Searches `str` for the GLib regular expression `pattern` (no compile or match flags; unanchored:
 * a match anywhere counts).
 * @return 0 on a match, -1 otherwise, also when the pattern does not
 * compile or either text is not valid UTF-8 (the regular-expression engine requires UTF-8).
 * @param pattern a GLib regular expression
 * @param str the text searched */
ED_API int MatchString(const std::string &pattern, const std::string &str);

/** Erases the first occurrence of `sub` from `str`; nothing happens when it is absent.
 * @param str the string edited in place
 * @param sub the text erased once */
ED_API void EraseSubStr(std::string &str, const std::string &sub);

/** Joins a directory and a name: `dir` + `name` when `dir` is not empty and ends in '/', otherwise
 * `dir` + "/" + `name` (an empty `dir` gives "/" + name). Nothing else is normalised: a leading
 * '/' in `name` is kept ("/tmp/" and "/x" give "/tmp//x").
 * @param dir the directory
 * @param name the name appended to it
 * @return the joined path. */
ED_API std::string ConcateFilePath(const std::string &dir, std::string name);

/** Inserts `text` in front of the last path component of `uri`: after the last '/' found at index 1
 * or later, or after the first character when there is none ("file:///a/b.jpg" with "thumb_"
 * gives "file:///a/thumb_b.jpg"). An empty `uri` gives `text`.
 * @param uri a URI or path
 * @param text the text inserted in front of its last component
 * @return the new URI. */
ED_API std::string AppendFileUri(const std::string &uri, const std::string &text);

/** Sets *path to the path of a "file" URI: the text after "file://" ("file:///tmp/a" gives
 * "/tmp/a"; a "file:" URI shorter than "file://" gives the empty string). A URI of any other
 * scheme (compared exactly, so "FILE" is another scheme) and a string without a scheme are copied
 * unchanged.
 * @return 0; -1 when `path` is null.
 * @param uri the URI to convert
 * @param path receives the path */
ED_API int GetFilepathFromUri(const std::string &uri, std::string *path);

/** The text after the last '.' at index 1 or later, without the dot ("a.tar.gz" gives "gz", "x."
 * gives ""). The dot may lie in a directory name ("/a.d/f" gives "d/f"). Without such a dot the
 * whole path but its first character is returned ("photo" gives "hoto", ".bashrc" gives
 * "bashrc"); applications rely on this fallback. An empty or one-character path gives "".
 * @param path the path whose extension is wanted
 * @return the extension, without the dot. */
ED_API std::string GetFileExt(const std::string &path);

/** Replaces the extension found as by GetFileExt with `ext` (given without a dot), keeping the dot
 * ("a/b.jpg" with "png" gives "a/b.png"). Without a dot the first character of `path` is kept and
 * `ext` appended ("abc" with "png" gives "apng"), matching GetFileExt. An empty path gives "".
 * @param path the path whose extension is replaced
 * @param ext the new extension, without a dot
 * @return the new path. */
ED_API std::string ReplaceFileExt(const std::string &path, const std::string &ext);

/** True when something exists at `path`, a plain path or a "file://" URI (every "file://" in it is
 * removed first). True for directories as well.
 * @param path a path or a "file://" URI
 * @return true when something exists there, false otherwise. */
ED_API bool IsFile(const std::string &path);

/** True when `path` names a directory (symbolic links are followed).
 * @param path the path examined
 * @return true for a directory (or a link to one), false otherwise. */
ED_API bool IsDir(const std::string &path);

/** Removes the file or empty directory at `path`.
 * @return 0 when it was removed or when nothing is
 * there (then nothing is logged; a dangling symbolic link counts as nothing). On failure logs at
 * level 1 "Failed to remove \<path\> (-1)" and returns -1.
 * @param path the file or empty directory to remove */
ED_API int Remove(const std::string &path);

/** Renames `from` to `to` with rename(2).
 * @return 0, or -1 after logging at level 0
 * "Rename file \<from\> to \<to\> failed. errno=\<errno\>".
 * @param from the current path
 * @param to the new path */
ED_API int Rename(const std::string &from, const std::string &to);

/** The size in bytes of `path` itself (a symbolic link's own size, not its target's); -1 when the
 * path cannot be examined.
 * @param path the path examined (a symbolic link is not followed)
 * @return the size in bytes, or -1 when the path cannot be examined. */
ED_API int64_t FileSize(const std::string &path);

/** Erases the characters equal to `c` from the end of *str until its last character differs or it
 * is empty.
 * @return 0; -1 when `str` is null.
 * @param c the character removed
 * @param str the string edited in place */
ED_API int RemoveTrailingChar(char c, std::string *str);

/** Creates the directory that would hold `file_path` (its dirname; "." when it has no '/') with
 * its missing parents, each with permissions `mode` (e.g. 0755).
 *   depth < 1: the whole chain is created as needed.
 *   depth >= 1: only below an anchor directory that must already exist: the dirname up to its
 *     (depth+1)-th '/' (the whole dirname when it has exactly `depth` slashes). For
 *     "/mnt/usb/a/b/f.txt" and depth 2 the anchor is "/mnt/usb": nothing is created in the mount
 *     point when no medium is mounted there.
 * @return 0 on success (also when the directory exists); -1 when the dirname has fewer than
 * `depth` slashes, the anchor is not an existing directory, or the creation fails.
 * @param file_path the path of a file; its directory is created
 * @param mode the permissions of each directory created, e.g. 0755
 * @param depth how many leading levels of the dirname form the anchor that must exist (< 1: none) */
ED_API int MakeDirByFilePath(const std::string &file_path, unsigned int mode, int depth);

/** MakeDirByFilePath for the path of `uri` as given by GetFilepathFromUri (a plain path is used
 * as it is). Same results.
 * @param uri a "file://" URI or a plain path of a file
 * @param mode the permissions of each directory created
 * @param depth as for MakeDirByFilePath
 * @return as MakeDirByFilePath: 0 on success, -1 on failure. */
ED_API int MakeDirByFileUri(const std::string &uri, unsigned int mode, int depth);

/** @} */
/** @name Utilities: shell, JSON editing, time, images, network and device identity */
/** @{ */

/** Runs `cmd` with /bin/sh -c -- (started with every descriptor above 2 closed) and appends everything it writes to standard output to *output
 * (a null `output` discards it; output is read as text, so it ends at a zero byte of each line).
 * Blocks until the command ends.
 * @return the command's exit code (0 to 255); 0 also when its
 * status cannot be collected because SIGCHLD is ignored (ECHILD); -1 when the command cannot be
 * started or was killed by a signal.
 * @param cmd the command line handed to /bin/sh
 * @param output receives (appended) the command's standard output; NULL discards it */
ED_API int ExecShellCmd(const std::string &cmd, std::string *output);

/** Replace-or-add of member `key` of `obj`: an existing member `key` (the first one, compared
 * without regard to case, as cJSON_DeleteItemFromObject does) is deleted, then a new member with
 * `value` is added at the end of the object, so an edited member moves to the end.
 * @return 0; -1
 * when `obj` is null or `key` is null or empty (nothing changes), or when memory runs out (the old
 * member is then already gone).
 * @param obj the object edited
 * @param key the member's name (not null, not empty)
 * @param value the integer value of the new number member */
ED_API int cJSON_UpdateObjectItem(cJSON *obj, const char *key, int value);
/** The same with a number member holding `value`.
 * @param obj the object edited
 * @param key the member's name (not null, not empty)
 * @param value the value of the new number member
 * @return 0; -1 as for the integer form. */
ED_API int cJSON_UpdateObjectItem(cJSON *obj, const char *key, double value);
/** The same with a string member; an empty `value` deletes the member and adds nothing (an empty
 * string removes the key). A null `value` returns -1 and changes nothing.
 * @param obj the object edited
 * @param key the member's name (not null, not empty)
 * @param value the new string; "" deletes the member
 * @return 0; -1 as for the integer form, and for a null `value`. */
ED_API int cJSON_UpdateObjectItem(cJSON *obj, const char *key, const char *value);
/** The same with a true or false member.
 * @param obj the object edited
 * @param key the member's name (not null, not empty)
 * @param value the new true or false member
 * @return 0; -1 as for the integer form. */
ED_API int cJSON_UpdateObjectItem(cJSON *obj, const char *key, bool value);

/** Appends to array `dst` a copy of each element of array `src`, in order. The copies are shallow
 * (cJSON_Duplicate without recursion): an object or array element arrives empty, without its
 * children. `src` is not changed and may be `dst` itself (its elements are then doubled).
 * @return
 * 0; -1 when either is null or has no element (an empty `dst` is refused too), or when memory runs
 * out (elements copied so far stay appended).
 * @param dst the array appended to
 * @param src the array whose elements are copied */
ED_API int cJSON_AppendTwoArrays(cJSON *dst, cJSON *src);

/** Seconds since the epoch.
 * @return the current time in seconds since the epoch. */
ED_API int64_t GetTimeStamp();

/** Microseconds since the epoch (seconds * 1000000 + microseconds).
 * @return the current time in microseconds since the epoch. */
ED_API uint64_t GetTimeStampU();

/** Sets *out to the local time of `t` (seconds since the epoch) as "\%Y_\%m_\%d_\%H_\%M_\%S", e.g.
 * "2024_03_01_09_05_07".
 * @return 0; -1 when `out` is null or `t` has no local time (*out is then
 * unchanged).
 * @param t the time, in seconds since the epoch
 * @param out receives the text */
ED_API int MakeTimeString(long t, std::string *out);

/** The current offset of local time from UTC in seconds, positive east of UTC (7200 for UTC+2).
 * @return the offset in seconds. */
ED_API double GetCurrentTzOffset();

/** Reads the 54-byte header of the BMP file at `path` and sets *width and *height to the 32-bit
 * little-endian values at byte offsets 18 and 22 (a top-down image's negative height arrives as
 * its two's-complement value). A file shorter than the header logs at level 1
 * "read file query 54 , but \<bytes read\>" and the missing bytes count as zero.
 * @return 0; -1 when
 * `width` or `height` is null, or when the file cannot be opened (logged at level 0
 * "Failed to open bmp file: \<path\>").
 * @param path the BMP file
 * @param width receives the width
 * @param height receives the height */
ED_API int GetBmpWidthHeight(const std::string &path, unsigned int *width, unsigned int *height);

/** True when `ip` is an IPv4 address in dotted-quad form ("192.168.1.10"); no other forms.
 * @param ip the text examined
 * @return true for a dotted-quad IPv4 address, false otherwise. */
ED_API bool IsValidIpAddress(const std::string &ip);

/** True when `ip` is a valid IPv4 address (see IsValidIpAddress) in 224.0.0.0 to 239.255.255.255.
 * @param ip the text examined
 * @return true for an IPv4 multicast address, false otherwise. */
ED_API bool IsMulticastIpAddress(const std::string &ip);

/** Sets *ip to the IPv4 address of network interface `ifname` (at most 16 bytes of the name are
 * used) in dotted form.
 * @return 0; -1 when the interface does not exist or has no IPv4 address,
 * or when `ip` is null (*ip is then unchanged).
 * @param ifname the network interface's name, e.g. "eth0"
 * @param ip receives the address */
ED_API int GetIpAddress(const std::string &ifname, std::string *ip);

/** The first 24 bytes at most of /etc/hostname (under VASK_SYSROOT when set), exactly as read: a
 * trailing newline is kept, and the text ends at a zero byte. When the file cannot be opened logs
 * at level 0 "file open \<description path\> error \<errno\>" (the message names /etc/description
 * even here) and returns ""; a read error logs at level 1 "read failed \<errno\>" and returns what
 * was read before it.
 * @return the text read, or "" when the file cannot be opened. */
ED_API std::string GetDeviceHostname();

/** The same for /etc/description, with the same messages.
 * @return the text read, or "" when the file cannot be opened. */
ED_API std::string GetDeviceDescription();

/** @} */
/** @name Utilities: hex strings and serial speeds */
/** @{ */

/** a > b: a comparator for sorting in descending order.
 * @param a the first value
 * @param b the second value
 * @return a > b. */
ED_API bool IntReverseSort(int a, int b);

/** Parses 8 bytes into out[0..7] from the first 16 characters of `hex`, two hex digits per byte
 * with sscanf "\%2hhx" (which also skips leading blanks); a pair that does not parse leaves its
 * byte unchanged.
 * @return 1; -1 when `hex` or `out` is null or `hex` is shorter than 16
 * characters (nothing written).
 * @param hex at least 16 hex digits
 * @param out receives 8 bytes */
ED_API int RepresentHexInByte(const char *hex, unsigned char *out);

/** The termios speed constant (B0, B50, ... B4000000) of `baud` bits per second, for 0, 50, 75,
 * 110, 134, 150, 200, 300, 600, 1200, 1800, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400,
 * 460800, 500000, 576000, 921600, 1000000, 1152000, 1500000, 2000000, 2500000, 3000000, 3500000 and
 * 4000000; -1 for any other value.
 * @param baud the speed in bits per second
 * @return the speed constant, or -1. */
ED_API int ConvertBaudrate(int baud);

/** The value (0 to 15) of hex digit `c`, upper or lower case; -1 for any other character.
 * @param c the character
 * @return the digit's value, or -1. */
ED_API int parse_hex(char c);

/** Converts a string of hex digit pairs (high digit first, either case) into bytes: out[i] is the
 * value of pair i and *count the number of bytes (length / 2, at most 128; `out` must hold that
 * many). The empty string gives *count 0.
 * @return 0, or -1 with *count 0 and nothing written:
 *   - a string longer than 256 characters or of odd length (logged at level 0
 *     "overflow or string must odd length");
 *   - a character that is not a hex digit (logged at level 0 "invalid hex digit");
 *   - a null `out` or `count`.
 * @param hex pairs of hex digits
 * @param out receives the bytes (room for length / 2 of them, at most 128)
 * @param count receives the number of bytes */
ED_API int String_To_HexArray(const std::string &hex, unsigned char *out, int *count);

/** Appends the `n` bytes at `bytes` to *out as lower-case two-digit hex without separators
 * ({0x01, 0xab} gives "01ab"); nothing for n < 1.
 * @return 0; -1 when `out` is null, or `bytes` is
 * null while n >= 1.
 * @param bytes the bytes to print
 * @param out the string appended to
 * @param n the number of bytes */
ED_API int TuloRS232Cmd_To_String(const char *bytes, std::string *out, int n);

/** @} */
/** @name Mic central, RS232 device list and image share */
/** @{ */

/** One microphone of the mic-on list. */
struct mic_node {
    std::string group; /**< "Group"; empty when missing or not a string */
    std::string id;    /**< "ID"; empty when missing or not a string */
    bool on;           /**< "On": true when its integer value is non-zero, and when it is missing */
};

/** One RS232 serial device the service sees. */
struct external_rs232_info {
    int number;              /**< "Number"; -1 when missing */
    std::string port;        /**< "Port"; empty when missing or not a string */
    std::string description; /**< "Description"; empty when missing or not a string */
};

/** The image-share setting the service keeps. */
struct imshare_info {
    bool hid; /**< "hid" */
};

struct external_protocol_info; /**< below, with the configuration store */

/** Asks the service to test a connection to the mic central with `info`'s protocol, ip_address,
 * username and password ("mic_connection_test" with
 * {"parameters":{"tcp":{"ip_address":..,"username":..,"password":..}},"protocol":N}); the other
 * fields are not sent. Logs its name, then the request, at level 2.
 * @return the call's result
 * (0, -1 to -4); -1 when the request cannot be built.
 * @param info the protocol, ip_address, username and password to test with */
ED_API int ed_mic_central_connection_test(const external_protocol_info &info);

/** Reads whether the mic central is connected ("get_mic_connection_state"): on success `*state` is the
 * reply's "isconnect" (0 when the reply lacks it). Logs its name at level 2.
 * @return 0, -1 to -4
 * (`*state` untouched on failure), -1 for a null `state`.
 * @param state receives the reply's "isconnect" */
ED_API int ed_get_mic_central_connection_state(int *state);

/** Appends the microphones that are on ("get_microphone_on_list", reply member "mic_on_list") to
 * `*list`, in the service's order, after the entries already there (the list is not cleared). A
 * reply without the list appends nothing.
 * @return 0, -1 to -4 (list untouched on failure), -1 for a
 * null `list`.
 * @param list the list appended to */
ED_API int ed_get_mic_on_list(std::vector<mic_node> *list);

/** Appends the RS232 devices the service sees ("get_ex_rs232_device_list", reply member
 * "rs232_list") to `*list`, after the entries already there. A reply without the list appends
 * nothing.
 * @return 0, -1 to -4 (list untouched on failure), -1 for a null `list`.
 * @param list the list appended to */
ED_API int ed_get_external_rs232_device_list(std::vector<external_rs232_info> *list);

/** Reads the image-share flag ("get_imshare_info"): on success info->hid is whether the reply's "hid"
 * is true or a non-zero number. Logs its name at level 2.
 * @return 0, -1 to -4 (`info` untouched on
 * failure), -1 for a null `info`.
 * @param info receives the flag */
ED_API int ed_get_imshare_info(imshare_info *info);

/** Sets the image-share flag ("set_imshare_info" with {"hid":true|false}). Logs its name at level 2.
 * @return the call's result (0, -1 to -4); -1 when the request cannot be built.
 * @param info info.hid is the flag sent */
ED_API int ed_set_imshare_info(imshare_info info);

/** @} */
/** @name Configuration store and control devices */
/** @{ */

/** One control device (the mic central, the media station, the projector, external control), as
 * stored in /etc/external_device.json. */
struct external_protocol_info {
    bool enable;             /**< the device is enabled */
    int32_t protocol;        /**< number of the protocol table; -1: reading failed or name unknown */
    std::string ip_address;  /**< device address, for TCP protocols */
    std::string username;    /**< login name, for TCP protocols */
    std::string password;    /**< login password, for TCP protocols */
    std::string baud_rate;   /**< serial speed as decimal text, for the "rs232" protocol */
    std::string port;        /**< TCP port as text */
};

/** @} */
/** @name Configuration store: the file, the lock, reading and writing
 * The configuration file /etc/external_device.json (under VASK_SYSROOT when set) holds one JSON
 * object whose members are the sections: "projector_control", "external_control",
 * "miccentral_control", "castdeck_control", "external_rs232_config", "zorvo_config". The factory
 * default is /usr/share/vask/etc/external_device.json; /etc/external_device.json is usually a
 * symbolic link to the writable copy /var/lib/vask/etc/external_device.json.
 *
 * Configuration lock: one process-wide lock serialises the configuration functions below. Every
 * function that says "takes the configuration lock" holds it from before it reads the file until
 * after it has written it, so that read-modify-write cycles of the threads of one process never
 * interleave and no write is lost; a reader never sees a half-written file. The lock is never held
 * while the service is called, and is not taken again while held (an operation that reads and then
 * writes takes it twice in turn). Inside it, every cycle also holds an advisory lock (flock) on
 * "\<resolved file\>.lock" beside the file the links lead to (e.g.
 * /var/lib/vask/etc/external_device.json.lock, created mode 0640 with the configuration file's group,
 * an older, wider one narrowed by its owner; never removed), so that the
 * cycles of other processes (applications, edctl, the service) do not interleave either: writers
 * lock it exclusively, readers shared. The call waits at most 5 s (VASK_CONFIG_LOCK_TIMEOUT_MS: 1 to
 * 600000 ms, for tests) while another process holds it, then returns -1 as above. Where the lock file cannot be opened or created (read-only folder, no permission), the
 * call goes on under the process-wide lock only and other processes are not locked out; this is
 * logged once per process at level 1 ("lock file \<path\> unavailable, errno=\<n\>: ..."). A write that
 * succeeds removes the temporary files that writers killed before their rename left beside the file.
 *
 * Reading: the whole file is read and parsed on every call; nothing is cached. Log lines (source
 * "utils" unless said otherwise, function = the public function's name):
 *   "open config file failed" (readers) / "open external_device config file failed" (writers),
 *   level 0, when the file cannot be opened; "read file query \<size\> , but \<count\>", level 1, on a
 *   short read (the shorter text is parsed); "error:\<text from the parse error on\>", level 0, when
 *   the text is not JSON; "error:(null)", level 0, for a missing section or block after a good parse.
 *
 * Writing: a writer edits its section only; every other section keeps its members, values and
 * order. The document is printed formatted (tabs, one member per line) and replaces the file
 * atomically: a new file in the folder of the resolved path (".\<name\>.tmp\<pid\>.\<n\>"; links
 * stay links) is flushed to the disk, takes the old file's mode and owner and is renamed over it; where no such file can be made
 * (read-only folder, no permission) the file is rewritten in place after its room is reserved.
 * When the write fails (no room, no permission) the old file is left as it was, "write \<path\>
 * failed, errno=\<n\>" is logged at level 0, the writer returns -1 and an operation that called it
 * does not tell the service. A member written with "replace" keeps its place; one written with
 * "update" is dropped and appended anew, so it moves to the end of its object (applications read
 * the printed order).
 */
/** @{ */

/** Checks that the configuration file holds a JSON object and restores the factory default when it
 * does not: when the text is not JSON (logged "error:\<text\>") or its root is not an object (logged
 * at level 0 "JSON 不是預期的 Object 格式，收到的是類型: \<cJSON type code\>", e.g. 32 for an array),
 * logs "copy default config" at level 2 and replaces /var/lib/vask/etc/external_device.json with
 * the bytes of /usr/share/vask/etc/external_device.json atomically, under the exclusive lock, so
 * that a process reading meanwhile sees the old text or the whole default (a default that cannot be
 * read logs "read \<path\> failed, errno=\<n\>", a failed replacement "write \<path\> failed,
 * errno=\<n\>", both at level 0). The copy is not checked again and /var/lib/vask/etc/ is not created. A missing file is logged
 * ("open config file failed") and not restored. Call it once at start, before relying on the file.
 * @return 0 in every case.
 * @note Takes the configuration lock, exclusively. */
ED_API int ValidateJsonConfig();

/** The name of control-device protocol `protocol`: -1 "", 0 "none", 1 "tcp", 2 "shure-tcp",
 * 3 "show-tcp", 4 "creator-tcp", 5 "sennheiser-tcp", 6 "bosch-tcp", 7 "bxb-tcp", 8 "hayaco-tcp",
 * 9 "televic-tcp", 10 "atuc-tcp", 11 "atnd-tcp", 12 "atnd_8_district-tcp", 13 "bosch_ccu2-tcp",
 * 14 "televic_dcerno-tcp", 15 "shure_mxa-tcp", 16 "shure_mxw-tcp", 17 "shure_mxcw-tcp",
 * 18 "televic_tlv-tcp", 19 "bxb_fcs-tcp", 20 "none", 21 "rs232", 22 "show-rs232", 23 "none", 24 "",
 * 25 "usb-olvin-s1", 26 ""; "none" for every other number. Never fails; no lock.
 * @param protocol the protocol number
 * @return the protocol's name. */
ED_API std::string GetProtocolString(int protocol);

/** Reads `section` / "parameters" / "tcp" into info->ip_address, password, username and port (a
 * missing key, or one that is not a string, gives ""); enable, protocol and baud_rate are not
 * touched. `section` is a control-device section of a document the caller holds (may be NULL).
 * @return 0; -1 when the block is missing (logged "error:(null)"; info->protocol is set to -1 and the
 * text fields are left as they were) or `info` is NULL.
 * @note No lock.
 * @param section the control-device section object (may be NULL)
 * @param info receives ip_address, password, username and port */
ED_API int cJSON_ReadTCPDeviceConfig(cJSON *section, external_protocol_info *info);

/** Reads control-device section `section` ("miccentral_control", "castdeck_control") into *info.
 * The record is first reset (enable false, protocol 0, ip_address "0.0.0.0", username, password
 * and baud_rate empty; port is left as it was), then: enable = "enable" is true (or a non-zero
 * number); protocol = the number of the stored "protocol" name: "none" 0, "tcp" 1, "shure-tcp" 2,
 * "show-tcp" 3, "sennheiser-tcp" 5, "bosch-tcp" 6, "hayaco-tcp" 8 ... "bxb_fcs-tcp" 19 (with the
 * "tcp" block read as by cJSON_ReadTCPDeviceConfig), "rs232" 21 (baud_rate from
 * "parameters"/"rs232"/"baud_rate"), "usb-olvin-s1" 25. Any other name, a missing one and the
 * names written but not read back ("creator-tcp", "bxb-tcp", "show-rs232") give protocol -1 with
 * result 0. Names are compared exactly.
 * @return 0; -1 with info->protocol -1 when the file cannot be opened or parsed, the section is
 * missing (or not an object), or a TCP or rs232 protocol lacks its block (logged as above); -1 for
 * a NULL `info`
 * (logged "info = NULL").
 * @note Takes the configuration lock.
 * @param section the section's name, "miccentral_control" or "castdeck_control"
 * @param info receives the stored settings */
ED_API int ReadControlDeviceConfig(std::string section, external_protocol_info *info);

/** Writes record *info into control-device section `section` (logged at level 2 "Update Control
 * Device Config \<section\>"). In an existing section:
 *   - enable true appends a second "enable": true and leaves the first (which readers see) as it
 *     was; enable false leaves "enable" untouched (UpdateControlDeviceSettings sets it for real);
 *   - protocol 1 to 19: "protocol" updated to GetProtocolString(protocol); a missing "parameters"
 *     or "tcp" is added holding the non-empty ip_address, username, password; an existing "tcp"
 *     gets ip_address, password, username updated in this order (an empty value drops the key);
 *     "port" is never written;
 *   - 21: "protocol" updated to "rs232", "parameters"/"rs232"/"baud_rate" updated (created as needed);
 *   - 25: "protocol" updated to "usb-olvin-s1", "parameters" deleted; any other number: "none",
 *     "parameters" deleted.
 * A missing section is added at the end of the document: "enable": true (only when enable), then
 * for 1 to 19 "protocol" and "parameters" {"tcp": {non-empty ip_address, username, password}}; for
 * 21 "parameters" {"rs232": {"baud_rate"}} and "protocol" "rs232"; for 25 "protocol"
 * "usb-olvin-s1" and "parameters" {}; otherwise "protocol" "none". A missing file is created
 * holding only this section.
 * @return 0; -1 when the file cannot be parsed or read, its root is not an object, a node cannot
 * be made, or the write fails (the file is then unchanged); -1 for a NULL `info` (logged
 * "info = NULL", the lock is not taken).
 * @note Takes the configuration lock.
 * @param section the section's name, "miccentral_control" or "castdeck_control"
 * @param info the settings to store */
ED_API int UpdateControlDeviceConfig(std::string section, external_protocol_info *info);

/** Writes loose settings into control-device section `section` (logged at level 2
 * "UpdateControlDeviceSettings \<section\>, enable <0|1> protocol \<protocol\>, username \<username\>").
 * In an existing section "enable" is updated to `enable`, then by `protocol`:
 *   - "": the "protocol" member is deleted, nothing else changes;
 *   - a name containing "tcp" (stored as given, not checked against the table): "protocol"
 *     updated; a missing "parameters" or "tcp" is added holding the non-empty ip_address, username,
 *     password, port in this order; an existing "tcp" gets ip_address, password, username, port
 *     updated in this order (an empty value drops the key);
 *   - "rs232": "protocol" updated, "parameters"/"rs232"/"baud_rate" updated (created as needed);
 *   - "usb-olvin-s1", or any other name stored as "none": "protocol" updated, "parameters" deleted.
 * A missing section is added at the end: "enable", then "protocol" and "parameters" ({"tcp":
 * {...}} in creation order, {"rs232": {"baud_rate"}}, {} for "usb-olvin-s1"; no "parameters" for
 * "none"); an empty protocol gives "protocol": "" and "parameters": {}. A missing file is created
 * holding only this section.
 * @return 0; -1 as for UpdateControlDeviceConfig.
 * @note Takes the configuration lock.
 * @param section the section's name, "miccentral_control" or "castdeck_control"
 * @param enable the value of "enable"
 * @param protocol the protocol's name ("" deletes "protocol")
 * @param port "tcp"/"port" for a TCP protocol
 * @param ip_address "tcp"/"ip_address" for a TCP protocol
 * @param password "tcp"/"password" for a TCP protocol
 * @param baud_rate "rs232"/"baud_rate" for "rs232"
 * @param username "tcp"/"username" for a TCP protocol */
ED_API int UpdateControlDeviceSettings(std::string section, bool enable, std::string protocol, std::string port,
                                       std::string ip_address, std::string password, std::string baud_rate,
                                       std::string username);

/** External control of the box: section "external_control",
 * {"tcp": {"authentication": bool, "port": string}, "rs232": {"baud_rate": string, "portname": string}}. */
struct external_control_info {
    bool authentication;   /**< "tcp"/"authentication" */
    std::string port;      /**< "tcp"/"port" */
    std::string baud_rate; /**< "rs232"/"baud_rate" */
    std::string portname;  /**< "rs232"/"portname": the serial device name */
};

/** Reads section "projector_control" into *info. The record is first reset as by
 * ReadControlDeviceConfig. protocol = by the stored "protocol" name, compared exactly: "none" 0,
 * "hitachi_tcp" 1 (ip_address, password from "parameters"/"hitachi_tcp"), "hitachi_rs232" 21
 * (baud_rate from "parameters"/"hitachi_rs232"), "pjlink" 24 (ip_address, password from
 * "parameters"/"pjlink"); an absent key gives "". Any other name gives protocol -1 with result 0.
 * @return 0; -1 with info->protocol -1 when the file cannot be opened or parsed, or the section,
 * its "protocol", its "parameters" or the protocol's block is missing ("error:(null)"); -1 for a
 * NULL `info` ("info = NULL").
 * @note Takes the configuration lock.
 * @param info receives the stored projector settings */
ED_API int ReadProjectorConfig(external_protocol_info *info);

/** Reads section "external_control" into *info: authentication = "tcp"/"authentication" is true (or
 * a non-zero number); the texts are "" when absent or not strings.
 * @return 0; -1 with *info unchanged when the file cannot be opened or parsed, or when the section,
 * its "tcp" or its "rs232" is missing (logged at level 0 "Get external_control failed", "Get tcp
 * failed", "Get rs232 failed"); -1 for a NULL `info` ("info = NULL").
 * @note Takes the configuration lock.
 * @param info receives the stored settings */
ED_API int ReadExternalControlConfig(external_control_info *info);

/** Writes *info into section "external_control" (logged at level 2 "UpdateExternalControlConfig"):
 * "tcp"/"authentication" (bool), "tcp"/"port", "rs232"/"baud_rate", "rs232"/"portname" are replaced
 * in place, or added at the end when missing; a missing "tcp" or "rs232" is added with both. A
 * missing section is not created (it comes with the default document): the file is written back
 * as it was and 0 returned.
 * @return 0; -1 when the file cannot be opened or parsed, a node cannot be made or the write fails;
 * -1 for a NULL `info`.
 * @note Takes the configuration lock.
 * @param info the settings to store */
ED_API int UpdateExternalControlConfig(const external_control_info *info);

/** @} */
/** @name Control-device operations
 * Getters read the file; setters store first and then tell the service (no request body, no reply
 * read), after the configuration lock has been released. A failed store returns its -1 and the
 * service is not told; a failed notification is not rolled back: the file keeps the new settings
 * and the call's result (-1 to -4, see the rules above) is returned. Each logs its name at level 2
 * (source "libvask_external_device") on entry.
 */
/** @{ */

/** ReadControlDeviceConfig("miccentral_control", info) and its result.
 * @param info receives the stored settings
 * @return the reader's result: 0, or -1. */
ED_API int ed_get_mic_central_info(external_protocol_info *info);

/** ReadControlDeviceConfig("castdeck_control", info) and its result.
 * @param info receives the stored settings
 * @return the reader's result: 0, or -1. */
ED_API int ed_get_castdeck_info(external_protocol_info *info);

/** ReadProjectorConfig(info) and its result.
 * @param info receives the stored settings
 * @return the reader's result: 0, or -1. */
ED_API int ed_get_projector_settings(external_protocol_info *info);

/** ReadExternalControlConfig(info) and its result.
 * @param info receives the stored settings
 * @return the reader's result: 0, or -1. */
ED_API int ed_get_tcp_control_settings(external_control_info *info);

/** Changes the mic central's settings (logged "ed_set_mic_central_info [\<protocol\>]@\<ip\> \<username\>").
 * Reads the stored section first; when every field (enable, protocol, ip_address, password,
 * baud_rate, username, port) equals `info`, returns the read's result at once without writing or
 * calling the service. Otherwise UpdateControlDeviceSettings("miccentral_control", info.enable,
 * GetProtocolString(info.protocol), info.port, info.ip_address, info.password, info.baud_rate,
 * info.username), then "set_mic_central_info". Note that some stored names do not read back (see
 * ReadControlDeviceConfig): setting protocol 4 stores "creator-tcp", read back as -1.
 * @return the writer's -1, or the call's result (0, -1 to -4).
 * @note Takes the configuration lock twice
 * in turn (read, then write).
 * @param info the new settings */
ED_API int ed_set_mic_central_info(const external_protocol_info &info);

/** Changes the media station's settings (logged "ed_set_castdeck_settings"), without comparing with
 * the stored ones: protocol 1 stores "tcp" with info.port, ip_address, password and username;
 * 0 stores "none"; 21 stores "rs232" with info.baud_rate; all with info.enable. Then calls
 * "castdeck_control_settings".
 * @return -2 for any other protocol (nothing stored, service not told); the writer's -1; or the
 * call's result (0, -1 to -4).
 * @note Takes the configuration lock.
 * @param info the new settings; info.protocol is 0, 1 or 21 */
ED_API int ed_set_castdeck_info(const external_protocol_info &info);

/** @} */
/** @name Projector and TCP control operations
 * Log lines have source "libvask_external_device".
 */
/** @{ */

/** Asks the service to test a PJLink projector ("projector_control_pjlink_test" with
 * {"ip_address": ip_address, "password": password}). Logs "ed_pjlink_test" at level 2.
 * @return the call's result (0, -1 to -4); -1 when the request cannot be built.
 * @note No lock.
 * @param ip_address the projector's IPv4 address
 * @param password its PJLink password */
ED_API int ed_pjlink_test(std::string ip_address, std::string password);

/** The same for a Hitachi projector over TCP ("projector_control_hitachi_tcp_test").
 * @param ip_address the projector's IPv4 address
 * @param password its password
 * @return the call's result (0, -1 to -4); -1 when the request cannot be built. */
ED_API int ed_hitachi_tcp_test(std::string ip_address, std::string password);

/** @} */
/** @name Projector setters
 * The projector setters replace members of "projector_control" in place, then call their method.
 * A member, block or section that does not exist is left as it is (nothing is added) and the
 * service is told all the same. All values are JSON strings. Logged at level 2 on entry;
 * "open projector config file failed" (level 0) when the file cannot be opened.
 * Each returns -1 when the file cannot be opened or parsed, its root is not an object, or the
 * write fails (service not told); otherwise the call's result (0, -1 to -4). Each takes the
 * configuration lock for its store.
 */
/** @{ */

/** "protocol" := "pjlink"; "parameters"/"pjlink"/"ip_address" and "password" := the arguments.
 * Calls "projector_control_pjlink_settings". Its entry line reads "ed_set_hitachi_pjlink_settings".
 * @param ip_address the projector's address
 * @param password its PJLink password
 * @return -1 when the file cannot be opened or parsed, its root is not an object, or the write fails (the
 *   service is not told); otherwise the call's result (0, -1 to -4). */
ED_API int ed_set_pjlink_settings(std::string ip_address, std::string password);

/** "protocol" := "hitachi_tcp"; "parameters"/"hitachi_tcp"/"ip_address" and "password" := the
 * arguments. Calls "projector_control_hitachi_tcp_settings".
 * @param ip_address the projector's address
 * @param password its password
 * @return as ed_set_pjlink_settings. */
ED_API int ed_set_hitachi_tcp_settings(std::string ip_address, std::string password);

/** "protocol" := "hitachi_rs232"; "parameters"/"hitachi_rs232"/"baud_rate" := `baud_rate`. Calls
 * "projector_control_hitachi_rs232_settings".
 * @param baud_rate the serial speed as decimal text
 * @return as ed_set_pjlink_settings. */
ED_API int ed_set_hitachi_rs232_settings(std::string baud_rate);

/** "protocol" := "none"; the parameter blocks are kept. Calls "projector_control_none_settings".
 * @return as ed_set_pjlink_settings. */
ED_API int ed_set_none_settings();

/** "external_control"/"tcp"/"authentication" := `authentication` (a JSON bool) and "port" := `port`,
 * replaced in place like the projector setters (same results and log texts, including the open
 * failure's). Calls "external_control_tcp_settings".
 * @param authentication whether external control over TCP asks for a login
 * @param port the TCP port as text
 * @return as ed_set_pjlink_settings. */
ED_API int ed_set_tcp_control_settings(bool authentication, std::string port);

/** @} */
/** @name Microphone control
 * The microphone control configuration lives in /etc/microphone_control.json (under VASK_SYSROOT
 * when set), one JSON object with five members:
 * - "microphone_config", array: the registered control items, one per (gr, id)
 * - "microphone_group_conflict_config", array: the group-conflict items, one per gr, no "id"
 * - "microphone_default_config", object: "cancel_mode" and the default item (no gr/id)
 * - "microphone_general_conflict_config", object: the general-conflict item (no gr/id)
 * - "microphone_multiple_speakers_mode", object: "multi_mode", "cancel_mode"
 *
 * The project ships a default file holding empty lists and the default modes.
 *
 * Every function below that reads or writes the file takes the configuration lock (the one of the
 * configuration store above) for its whole read-parse-modify-write cycle and follows the store's
 * rules for reading and writing: the whole file is read and parsed on every call, a writer prints
 * the whole document formatted and replaces the file atomically, leaving every other member as it
 * was and in its order, and a failed write ("write \<path\> failed, errno=\<n\>", level 0) leaves the
 * old file and returns -1. The file is never created by these functions: a missing file fails
 * every one of them. Their log lines have source "utils" and the public function's name; the
 * common failures are logged at level 0 as "open config file failed" (or, where stated,
 * "open external_device config file failed") when the file cannot be opened, "error:\<text from
 * the parse error on\>" when it is not JSON, and "error:(null)" when its root is not an object or
 * the member a function needs is missing or of the wrong kind (a list that is not an array, a mode
 * member that is not an object). A writer that cannot make a JSON node returns -1 and changes
 * nothing. Section names are found without regard to case (cJSON's rule); the keys inside a
 * section or an item ("cancel_mode", "gr", "c0", ...) are compared exactly. Any thread may call
 * these functions; the lock orders them within the process.
 */
/** @{ */

/** One pair (c, p) of a microphone item's list; -1 in either member marks the pair as not set. */
struct cpreset {
    int32_t c = -1; /**< "c\<K\>": the first number of the pair; -1 = not set */
    int32_t p = -1; /**< "p\<K\>": the second number of the pair; -1 = not set */
};

/** One microphone control item, group-conflict item, default item or general-conflict item. Its JSON
 * form is one flat object: "gr", "id", "nt" (strings), "c0"/"p0" ... (numbers, one pair per
 * position), "l", "o", "b", "s" (numbers). The record owns its strings and its list (plain value
 * semantics). */
struct microphone_info {
    uint8_t tag = 0;              /**< the application's own: copied with the record, never set or read here */
    std::string gr;               /**< "gr": the item's group; empty = not set */
    std::string id;               /**< "id": the item's identifier in its group; empty = not set */
    std::string nt;               /**< "nt": free text; empty = not set */
    std::vector<cpreset> cp_list; /**< "c\<K\>"/"p\<K\>": the ordered pairs */
    int32_t l = -1;               /**< "l"; -1 (any negative value) = not set */
    int32_t o = -1;               /**< "o"; likewise */
    int32_t b = -1;               /**< "b"; likewise */
    int32_t s = -1;               /**< "s"; likewise */
};

/** The multiple-speakers mode; the service defines what the numbers mean. */
struct multiple_speakers_mode {
    int32_t multi_mode = 1;  /**< "multi_mode"; 1 when the file has none */
    int32_t cancel_mode = 0; /**< "cancel_mode"; 0 when the file has none */
};

/** @} */
/** @name The JSON form of an item
 * These four take no lock, touch no file and log nothing.
 */
/** @{ */

/** Adds the set members of *info to `object` (which the caller created and owns), in this order:
 *   "gr" (a string, unless `omit_gr` or gr is empty), "id" (unless `omit_id` or id is empty),
 *   "nt" (unless empty), then the pairs, then "l", "o", "b", "s" (numbers, each only when >= 0).
 * Pairs are written in list order as "c\<K\>"/"p\<K\>" with K counting 0, 1, 2 ... densely: a pair with
 * -1 in c or p is skipped, and so is a pair whose c equals the c of a pair already written (the
 * first pair with a given c wins, whatever its p). There is no upper bound on K, although readers
 * keep only K = 0 to 8. Applications rely on this renumbering.
 * Control items and request bodies are written with both flags false, group-conflict items with
 * `omit_id` true, the default and general-conflict items with both true.
 * Does nothing when `object` or `info` is NULL. A member that cannot be made (no memory) is left out.
 * @param object the JSON object members are added to
 * @param info the item written
 * @param omit_id leave "id" out
 * @param omit_gr leave "gr" out */
ED_API void cJSON_AddMicroPhoneInfo(cJSON *object, microphone_info *info, bool omit_id, bool omit_gr);

/** Fills *info from the item object `object`; `tag` is left as it was and cp_list is replaced.
 *   gr, id: the text of a string member, or the decimal text of a number member's integer value
 *     (12 gives "12", -5 gives "-5"); "" when missing or of any other type.
 *   nt: the text of a string member; "" when missing or not a string.
 *   cp_list: for K = 0 to 8, the pair ("c\<K\>", "p\<K\>") when both are present (their integer
 *     values), in K order; a K with either key missing is skipped and the scan goes on. Pairs with
 *     K of 9 or more are never read.
 *   l, o, b, s: the member's integer value when present (whatever its JSON type), else -1.
 * @return 0; -1 when `object` or `info` is NULL (*info untouched).
 * @param object the item object read
 * @param info receives the item */
ED_API int cJSON_GetMicroPhoneInfo(cJSON *object, microphone_info *info);

/** Removes from `array` the first (lowest index) element that matches *info, and frees it; at most
 * one element per call, none when nothing matches. An element matches when its "gr" matches
 * info->gr and, unless `match_group_only`, its "id" matches info->id:
 *   - next to a string "gr" (its text compared with info->gr), "id" is compared as text (an "id"
 *     that is not a string reads as "");
 *   - next to a number "gr" (the decimal text of its integer value compared with info->gr), "id" is
 *     compared as the decimal text of its integer value (so a string "id" reads as "0").
 * An element without "gr", or whose "gr" is neither a string nor a number, never matches; without
 * `match_group_only` an element without "id" never matches either. Does nothing when `array` or
 * `info` is NULL.
 * @param array the array edited
 * @param info the item whose gr (and id) are searched for
 * @param match_group_only compare "gr" only */
ED_API void cJSON_DeleteMicroPhoneInfoFromArray(cJSON *array, microphone_info *info, bool match_group_only);

/** Clears *info: gr, id and nt empty, cp_list empty, l, o, b and s -1; `tag` is left as it was.
 * @return 0; -1 when `info` is NULL.
 * @param info the record cleared */
ED_API int ResetMicrophoneInfo(microphone_info *info);

/** @} */
/** @name Modes */
/** @{ */

/** Reads "microphone_default_config" (entry logged at level 2 "Read Mic Default Config"):
 * *cancel_mode = its "cancel_mode" (integer value; 0 when missing), then *info as by
 * cJSON_GetMicroPhoneInfo.
 * @return 0; -1 when the file cannot be opened ("open config file
 * failed") or parsed, or the section is missing or not an object; -1 for a NULL `info` (logged
 * "cJSON_GetMicroPhoneInfo:-1"; *cancel_mode is still set); -1 for a NULL `cancel_mode` (logged
 * "null point", the file is not read).
 * @note Takes the configuration lock.
 * @param cancel_mode receives "cancel_mode"
 * @param info receives the default item */
ED_API int ReadMicrophoneDefaultConfig(int *cancel_mode, microphone_info *info);

/** Replaces "microphone_default_config" (entry logged "Update Mic Default Config") by a new object
 * holding "cancel_mode" = `cancel_mode` and then the members of *info without "gr" and "id" (see
 * cJSON_AddMicroPhoneInfo; a NULL `info` adds none). The section moves to the end of the document.
 * @return 0; -1 when the file cannot be opened ("open external_device config file failed") or
 * parsed, its root is not an object, a node cannot be made or the write fails (file unchanged).
 * @note Takes the configuration lock.
 * @param cancel_mode the value of "cancel_mode"
 * @param info the default item (NULL: none) */
ED_API int UpdateMicrophoneDefaultConfig(int cancel_mode, microphone_info *info);

/** Reads "microphone_general_conflict_config" into *info as by cJSON_GetMicroPhoneInfo (entry
 * logged "Read Mic GeneralConflict Config"). Returns as ReadMicrophoneDefaultConfig (without the
 * cancel mode).
 * @note Takes the configuration lock.
 * @param info receives the general-conflict item
 * @return 0; -1 as ReadMicrophoneDefaultConfig. */
ED_API int ReadMicrophoneGeneralConflictConfig(microphone_info *info);

/** Replaces "microphone_general_conflict_config" (entry logged "Update Mic GeneralConflict Config")
 * by a new object holding the members of *info without "gr" and "id" (a NULL `info` writes an
 * empty object); it moves to the end of the document. Returns as UpdateMicrophoneDefaultConfig.
 * @note Takes the configuration lock.
 * @param info the general-conflict item (NULL: an empty object)
 * @return 0; -1 as UpdateMicrophoneDefaultConfig. */
ED_API int UpdateMicrophoneGeneralConflictConfig(microphone_info *info);

/** Reads "microphone_multiple_speakers_mode" (entry logged "Read Mic MultipleSpeakers Mode"):
 * multi_mode = "multi_mode" (1 when missing), cancel_mode = "cancel_mode" (0 when missing).
 * @return 0; -1 as ReadMicrophoneDefaultConfig; -1 for a NULL `mode` ("null point", the file is not
 * read).
 * @note Takes the configuration lock.
 * @param mode receives the mode */
ED_API int ReadMicrophoneMultipleSpeakersMode(multiple_speakers_mode *mode);

/** Replaces "microphone_multiple_speakers_mode" (entry logged "Update Mic MultipleSpeakers Config")
 * by {"multi_mode": ..., "cancel_mode": ...}; it moves to the end of the document.
 * @return as
 * UpdateMicrophoneDefaultConfig; -1 for a NULL `mode` (logged "null point", the lock is not
 * taken).
 * @note Takes the configuration lock.
 * @param mode the mode to store */
ED_API int UpdateMicrophoneMultipleSpeakersMode(multiple_speakers_mode *mode);

/** @} */
/** @name Control items and group conflicts */
/** @{ */

/** Merges *item into *list: every element with the same gr and id (compared exactly, empty strings
 * included) is erased, then a copy of *item is appended, so a replaced entry moves to the end.
 * Note: after an erased element, the one that slides into its place is not compared; a list built
 * only through this function holds at most one entry per (gr, id), where this does not matter.
 * No lock, no file, no log.
 * @return 0; -1 when `list` or `item` is NULL or memory runs out (the
 * list is then as it was).
 * @param list the list edited
 * @param item the item merged in */
ED_API int UpdateControlItem(std::vector<microphone_info> *list, microphone_info *item);

/** Reads the control items of "microphone_config" into *list (entry logged "Read Mic Control
 * Config"). The list is replaced: it is emptied once the file is open (also when it then fails to
 * parse), and left as it was when the file cannot be opened. Each element is read as by
 * cJSON_GetMicroPhoneInfo (a number "gr" or "id" reads as its decimal text) and kept unless its gr
 * is empty, `gr` is not empty and differs from its gr, or `id` is not empty and differs from its
 * id; the kept entries are merged as by UpdateControlItem, so of two entries with the same (gr, id)
 * the later one stays, at the place of that later one.
 * @return 0, also when no entry is kept; -1 when the file cannot be opened ("open config file
 * failed") or parsed, or "microphone_config" is missing or not an array; -1 for a NULL `list`
 * ("null point").
 * @note Takes the configuration lock.
 * @param gr keep only this group ("" = every group)
 * @param id keep only this id ("" = every id)
 * @param list replaced by the kept items */
ED_API int ReadRegisteredMicListFromConfig(std::string gr, std::string id, std::vector<microphone_info> *list);

/** The same for the group-conflict items of "microphone_group_conflict_config" (entry logged "Read
 * Mic GroupConflict Config"), with the `gr` filter only: one entry per group (the last in file
 * order).
 * @note Takes the configuration lock.
 * @param gr keep only this group ("" = every group)
 * @param list replaced by the kept items
 * @return as ReadRegisteredMicListFromConfig, for "microphone_group_conflict_config". */
ED_API int ReadMicrophoneGroupConflictConfig(std::string gr, std::vector<microphone_info> *list);

/** Adds or replaces one control item (entry logged "Add Mic Control Settings"): the first element
 * of "microphone_config" matching item's gr and id (cJSON_DeleteMicroPhoneInfoFromArray without
 * `match_group_only`) is removed and the item, with all its set members, is appended at the end.
 * @return 0; -1 when the file cannot be opened ("open config file failed") or parsed, its root is
 * not an object, "microphone_config" is missing or not an array, a node cannot be made or the
 * write fails (file unchanged); -1 for a NULL `item` ("null point").
 * @note Takes the configuration lock.
 * @param item the control item stored */
ED_API int AddMicrophoneControlSettings(microphone_info *item);

/** Replaces the whole "microphone_config" (entry logged "Update Mic Control Config") by a new array
 * holding the records of *list in order, each with all its set members (each logged at level 2
 * "Update microphone_list \<gr\>-\<id\>"); the array moves to the end of the document, and an empty
 * list writes an empty array. A file that is not JSON is logged ("error:\<text\>") and rebuilt: the
 * damaged content is dropped and the new file holds this array alone.
 * @return 0; -1 when the file cannot be opened ("open external_device config file failed"), its
 * root is not an object, a node cannot be made or the write fails (file unchanged); -1 for a NULL
 * `list` ("null point").
 * @note Takes the configuration lock.
 * @param list the control items written */
ED_API int UpdateMicrophoneControlConfig(std::vector<microphone_info> *list);

/** Deletes one control item (entry logged "Delete Mic Control Config"): the first element of
 * "microphone_config" matching item's gr and id is removed; the file is rewritten also when none
 * matched.
 * @return 0, also when nothing matched; -1 as AddMicrophoneControlSettings.
 * @note Takes the configuration lock.
 * @param item the item whose gr and id are deleted */
ED_API int DeleteMicrophoneControlConfig(microphone_info *item);

/** Adds or replaces the group-conflict item of item's group (entry logged "Add Mic GroupConflict
 * Config"): the first element of "microphone_group_conflict_config" whose "gr" matches is removed,
 * whatever its other members, and the item is appended with its set members but without "id".
 * @return as AddMicrophoneControlSettings.
 * @note Takes the configuration lock.
 * @param item the group-conflict item stored */
ED_API int AddMicrophoneGroupConflictConfig(microphone_info *item);

/** Replaces the whole "microphone_group_conflict_config" (entry logged "Update Mic GroupConflict
 * Config") by the records of *list without "id" (each logged at level 2 "Update group_conflict
 * \<gr\>"), rebuilding a file that is not JSON, as UpdateMicrophoneControlConfig.
 * @note Takes the configuration lock.
 * @param list the group-conflict items written
 * @return as UpdateMicrophoneControlConfig. */
ED_API int UpdateMicrophoneGroupConflictConfig(std::vector<microphone_info> *list);

/** Deletes the first group-conflict item whose "gr" matches item's gr (entry logged "Delete Mic
 * GroupConflict Config").
 * @return as DeleteMicrophoneControlConfig.
 * @note Takes the configuration lock.
 * @param item the item whose gr is deleted */
ED_API int DeleteMicrophoneGroupConflictConfig(microphone_info *item);

/** @} */
/** @name Microphone control operations
 * Readers read the file; setters store first and then call the service, after the configuration
 * lock has been released. A failed store returns its -1 and the service is not told; a failed call
 * is not rolled back: the file keeps the change and the call's result (-1 to -4, see the rules
 * above) is returned. An item's request body is the JSON form of `info` with every set member
 * ("gr" and "id" included); when it cannot be built (no memory) nothing is sent and -1 is returned,
 * the store having been done. No reply is read. These operations log nothing of their own.
 * Each setter returns the store's -1, or the call's result (0, -1 to -4).
 */
/** @{ */

/** ReadMicrophoneMultipleSpeakersMode(mode) and its result.
 * @param mode receives the mode
 * @return the reader's result. */
ED_API int ed_get_mic_control_multiple_speakers_mode_info(multiple_speakers_mode *mode);

/** ReadMicrophoneDefaultConfig(cancel_mode, info) and its result.
 * @param cancel_mode receives "cancel_mode"
 * @param info receives the default item
 * @return the reader's result. */
ED_API int ed_get_mic_control_cancel_mode_info(int *cancel_mode, microphone_info *info);

/** ReadMicrophoneGeneralConflictConfig(info) and its result.
 * @param info receives the general-conflict item
 * @return the reader's result. */
ED_API int ed_get_mic_control_conflict_mode_info(microphone_info *info);

/** Replaces *list with the group-conflict items, filtered by `gr` ("" = all), as
 * ReadMicrophoneGroupConflictConfig.
 * @return 0 when *list is not empty afterwards, -1 when it is
 * (no matching entry, or the file could not be read); when the file cannot be opened the list is
 * left as it was, so a list that held entries gives 0. -1 for a NULL `list` (no file access).
 * @param gr keep only this group ("" = all)
 * @param list replaced by the kept items */
ED_API int ed_get_mic_group_conflict_info(std::string gr, std::vector<microphone_info> *list);

/** Replaces *list with the control items, filtered by `gr` and `id` ("" = no filter), as
 * ReadRegisteredMicListFromConfig.
 * @return as ed_get_mic_group_conflict_info.
 * @param gr keep only this group ("" = all)
 * @param id keep only this id ("" = all)
 * @param list replaced by the kept items */
ED_API int ed_get_mic_control_info(std::string gr, std::string id, std::vector<microphone_info> *list);

/** Asks the service to act on item `info` without storing it. `action`: 0 calls
 * "simulate_microphone_control_item" and 1 "execute_microphone_control_item", each with the item's
 * body; 2 calls "execute_microphone_control_home" without a body, whatever `info` holds. The file
 * is not touched and no lock is taken.
 * @return the call's result (0, -1 to -4); -2 for any other
 * `action` (no call); -1 when the body cannot be built (no call).
 * @param action 0 simulate, 1 execute, 2 go home
 * @param info the item simulated or executed (not read for 2) */
ED_API int ed_exe_mic_control_info(int action, microphone_info &info);

/** AddMicrophoneControlSettings(&info), then "update_microphone_control_item" with the item's body.
 * @param info the control item stored and sent
 * @return the store's -1, or the call's result (0, -1 to -4). */
ED_API int ed_set_mic_control_info(microphone_info &info);

/** DeleteMicrophoneControlConfig(&info), then "delete_microphone_control_item" with the item's body
 * (also when no stored item matched).
 * @param info the item whose gr and id are deleted and sent
 * @return the store's -1, or the call's result (0, -1 to -4). */
ED_API int ed_del_mic_control_info(microphone_info &info);

/** AddMicrophoneGroupConflictConfig(&info), then "update_mic_group_conflict_item" with the item's
 * body ("id" included when set, although the stored item has none).
 * @param info the group-conflict item stored and sent
 * @return the store's -1, or the call's result (0, -1 to -4). */
ED_API int ed_set_mic_group_conflict_info(microphone_info &info);

/** DeleteMicrophoneGroupConflictConfig(&info), then "delete_mic_group_conflict_item" with the item's
 * body.
 * @param info the item whose gr is deleted and sent
 * @return the store's -1, or the call's result (0, -1 to -4). */
ED_API int ed_del_mic_group_conflict_info(microphone_info &info);

/** UpdateMicrophoneGeneralConflictConfig(&info), then "mic_control_conflict_mode" without a body
 * (the service reads the file).
 * @param info the general-conflict item stored
 * @return the store's -1, or the call's result (0, -1 to -4). */
ED_API int ed_set_mic_control_conflict_mode_info(microphone_info &info);

/** UpdateMicrophoneDefaultConfig(cancel_mode, &info), then "mic_control_cancel_mode" without a body.
 * @param cancel_mode the value of "cancel_mode"
 * @param info the default item stored
 * @return the store's -1, or the call's result (0, -1 to -4). */
ED_API int ed_set_mic_control_cancel_mode_info(int cancel_mode, microphone_info &info);

/** UpdateMicrophoneMultipleSpeakersMode(&mode), then "mic_control_multiple_speakers_mode" without a
 * body.
 * @param mode the mode stored
 * @return the store's -1, or the call's result (0, -1 to -4). */
ED_API int ed_set_mic_control_multiple_speakers_mode_info(multiple_speakers_mode &mode);

/** @} */
/** @name RS232 control
 * Section "external_rs232_config" of the configuration file (file, lock and log lines: see the
 * configuration store above). Every key is optional: an unset value is never written, and a key
 * that is missing reads as unset, so the two mean the same in both directions.
 */
/** @{ */

/** The RS232 control options of the box. A value-initialised record (external_rs232_control{}) has
 * every field unset. */
struct external_rs232_control {
    std::string builtin_TTY;          /**< "builtin_TTY": the box's built-in serial device; "" unset */
    int ignored_TTYUSB_A = -1;        /**< "ignored_TTYUSB_A": a ttyUSB number to ignore; -1 unset (0 is a port) */
    int ignored_TTYUSB_B = -1;        /**< "ignored_TTYUSB_B": a second one; -1 unset */
    bool disable_USB_camctrl = false; /**< "disable_USB_camctrl": camera control over USB serial is off */
    bool enable_USB_wenk9 = false;    /**< "enable_USB_wenk9": the wenk9 USB accessory is enabled */
    bool enable_USB_zorvo = false;    /**< "enable_USB_zorvo": the zorvo remote controller is enabled */
    std::string port;                 /**< "port": the serial port of external control; "" unset */
    std::string baud_rate;            /**< "baud_rate": its speed as text, e.g. "9600"; "" unset */
    std::string default_command;      /**< "default_command": passed to the service unchanged; "" unset */
    std::string focus_command;        /**< "focus_command": the same */
    std::string conflict_command;     /**< "conflict_command": the same */
};

/** Reads section "external_rs232_config" into *info (logged at level 2 "Read External RS232 Control
 * Config"). The record is first reset to unset; then each key that is present sets its field: a
 * text its string ("" when the key holds another JSON type), a port number its integer value, a
 * flag true when its value is true or a non-zero number. Other keys of the section are ignored.
 * @return 0 (a section {} gives an all-unset record); -1 when the file cannot be opened or parsed,
 * or the section is missing or no object (logged "error:(null)"), the record then being reset; -1
 * for a NULL `info` (logged "info = NULL"; the lock is not taken).
 * @note Takes the configuration lock.
 * @param info receives the options */
ED_API int ReadExternalRS232ControlConfig(external_rs232_control *info);

/** Writes *info into section "external_rs232_config" (logged at level 2 "Update External RS232
 * Control Config"), key by key in the order builtin_TTY, ignored_TTYUSB_A, ignored_TTYUSB_B,
 * disable_USB_camctrl, enable_USB_wenk9, enable_USB_zorvo, port, baud_rate, focus_command,
 * default_command, conflict_command: a set value is updated (texts as strings, ports as numbers,
 * flags as true), so it moves to the end of the section; an unset one deletes its key (false is
 * never written). Keys not named here keep their values and so end up first. A missing section (or
 * a member of that name that is no object) is added at the end of the document holding the set
 * keys only ({} when none is set). *info is not changed.
 * @return 0; -1 with the file unchanged when it cannot be opened ("open external_device config
 * file failed") or parsed, its root is not an object, a node cannot be made or the write fails;
 * -1 for a NULL `info` ("info = NULL"; the lock is not taken).
 * @note Takes the configuration lock.
 * @param info the options to store */
ED_API int UpdateExternalRS232ControlConfig(external_rs232_control *info);

/** ReadExternalRS232ControlConfig(info) and its result; nothing logged of its own.
 * @param info receives the options
 * @return the reader's result: 0, or -1. */
ED_API int ed_get_external_rs232_control_info(external_rs232_control *info);

/** Stores `info` with UpdateExternalRS232ControlConfig, then tells the service to apply it
 * ("set_external_rs232_control_info", no request body, no reply read), after the configuration
 * lock has been released. Nothing logged of its own.
 * @return the writer's -1 (the service is then
 * not told), or the call's result (0, -1 to -4; on failure the file keeps the new values).
 * @param info the options to store and apply */
ED_API int ed_set_external_rs232_control_info(external_rs232_control &info);

/** @} */
/** @name Serial-device discovery
 * The box names its own USB serial devices with links that its udev rules create under /dev; the
 * devices behind them form an ignore list, the serial devices that are no external RS232 control
 * devices. ReadUdevRulesSYMLINK gives the links of a rules file, ChecksSYMLINKandGetDevice the
 * devices behind the links that exist, CompareUdevIgnoreLists searches that list. These three take
 * the configuration lock for their whole run, and replace their output list (clear it, then fill
 * it) instead of appending to it. Their log lines have source "utils".
 */
/** @{ */

/** Replaces *symlink_list with the links that the udev rules file `rules_path` (used as given)
 * creates. Each line (of any length; its newline belongs to it) is split at commas with
 * StringSplit, and every field that contains "SYMLINK" (SYMLINK+= and SYMLINK=) gives "/dev/" plus
 * the text between the field's first and its last double quote: from the field's start when it has
 * no quote, to its end when it has no closing quote (so a field without quotes gives "/dev/" plus
 * the whole field, blanks and newline included). Lines are taken as the service takes them: a
 * commented-out rule counts too, and a value naming several links gives one entry holding the
 * blanks. Logs "Read UdevRulesSYMLINK" at level 2.
 * @return 0 (an empty file gives an empty list); -1 with the list unchanged when the file cannot be
 * opened or is a folder (logged at level 0 "open rules file failed") or cannot be read ("read rules
 * file failed"); -1 for a NULL `symlink_list` ("symlink_list failed").
 * @note Takes the configuration lock.
 * @param rules_path the udev rules file
 * @param symlink_list replaced by the links */
ED_API int ReadUdevRulesSYMLINK(std::string rules_path, std::vector<std::string> *symlink_list);

/** Replaces *usbtty_list with the names of the devices behind the links of *symlink_list, in list
 * order: each link is resolved with realpath(3) and the first "/dev/" is erased from the result (a
 * link to /dev/ttyUSB0 gives "ttyUSB0"), each logged at level 2 "udev Ignored [\<name\>]". A link that
 * is absent or dangling is skipped silently; two links to one device give its name twice. Both
 * arguments may be the same list.
 * @return 0 (an empty input gives an empty list); -1 with nothing changed for a NULL
 * `symlink_list` ("symlink_list failed") or `usbtty_list` ("usbtty_list failed").
 * @note Takes the configuration lock.
 * @param symlink_list the links to resolve
 * @param usbtty_list replaced by the device names */
ED_API int ChecksSYMLINKandGetDevice(std::vector<std::string> *symlink_list, std::vector<std::string> *usbtty_list);

/** 1 when `name` equals an entry of *ignored_list exactly (same bytes: no case folding, no prefix
 * match), otherwise 0; 0 as well for a NULL `ignored_list` (logged at level 0 "Ignored_List
 * failed").
 * @note Takes the configuration lock.
 * @param name the device name searched for
 * @param ignored_list the ignore list
 * @return 1 when found, otherwise 0. */
ED_API int CompareUdevIgnoreLists(std::string name, std::vector<std::string> *ignored_list);

/** The console device named on the kernel command line, /proc/cmdline (under VASK_SYSROOT when set),
 * read as the service reads it: in pieces of at most 127 characters, each cut at its first comma;
 * the first piece that then holds "console=" gives at most 16 characters after it. So
 * "console=ttyS2,1500000n8" gives "ttyS2"; a blank does not end the name ("console=ttyS0
 * root=/dev/mmcblk0p1" gives "ttyS0 root=/dev/"), a newline ending the piece is kept, and a
 * "console=" behind a comma of its piece, or split across two pieces, is not seen. Logs
 * "GetCmdlineConsoleName \<name\>" at level 2 when one is found. Returns "" when none is named, and
 * when the file cannot be opened (logged at level 0 "file open \<path\> error \<errno\>").
 * @note No lock.
 * @return the console's name, or "". */
ED_API std::string GetCmdlineConsoleName();

/** Replaces `pieces` with the pieces of `text` between separators, empty pieces included, and a last
 * piece only when it is not empty: split at ",", "a,,b," gives "a", "", "b"; "abc" gives "abc"; ""
 * gives none. The first separator is searched as any one character of `separator`, later ones as
 * the whole of it (the same for a one-character separator). `text` may be an element of `pieces`.
 * @return 0; -1 when memory runs out (`pieces` may then hold the first pieces only).
 * @note No lock.
 * @param text the text split
 * @param separator the separator
 * @param pieces replaced by the pieces */
ED_API int StringSplit(const std::string &text, const std::string &separator, std::vector<std::string> &pieces);

/** Copies `from` to `to`, recursively, with the shell command cp -rf -- '\<from\>' '\<to\>'. Each path is
 * quoted as one shell word: blanks, quotes, ';', '$', '`', newlines and a leading '-' belong to the
 * file name and run nothing. The command inherits no descriptor above 2. Blocks until cp ends.
 * @return system(3)'s result: 0 when cp succeeded,
 * its wait status otherwise (cp's exit code times 256); 0 without running anything when nothing is
 * at `from`; -1 when no shell could be started or a path holds a zero byte (logged at level 1
 * "Failed to copy \<from\> to \<to\> (-1)").
 * @note No lock.
 * @param from the file or folder copied
 * @param to where the copy goes */
ED_API int Copy(const std::string &from, const std::string &to);

/** Removes `path` and everything below it with rm -rf -- '\<path\>', quoted as by Copy. The command
 * inherits no descriptor above 2.
 * @return
 * system(3)'s result as Copy does; 0 without running anything when nothing is at `path`; -1 when
 * no shell could be started or the path holds a zero byte (logged at level 1
 * "Failed to remove \<path\> (-1)").
 * @note No lock.
 * @param path the file or folder removed */
ED_API int RemoveAll(const std::string &path);

/** @} */
/** @name Remote controller
 * The zorvo USB remote controller keeps M macros of C channels each, by the box model (see
 * GetFirmwareModelName):
 * - "RV710": C 2, M 3;
 * - "RV720": C 4, M 3;
 * - "RV730": C 4, M 9;
 * - any other model, or none: C 4, M 3.
 *
 * They are stored in section "zorvo_config" of the configuration file, members in this order:
 * @verbatim
   {"fw": "<version>", "bootloader_fw": "<version>",
    "Macro_1": {"scenes": 1, "channel_1_enable": false, "channel_1_preset": "1", ...
                "channel_C_enable": false, "channel_C_preset": "1"},
    ... "Macro_M": {...}}
   @endverbatim
 * Members of other names (such as a Macro_10 on a box of 3 macros) are ignored and kept.
 */
/** @{ */

/** One channel of a macro. */
struct macro_channel {
    int channel = 0;          /**< channel number from 1: the n of "channel_\<n\>_enable" / "channel_\<n\>_preset" */
    bool enable = false;      /**< "channel_\<n\>_enable": the channel is switched on */
    std::string preset = "1"; /**< "channel_\<n\>_preset": its preset text */
};

/** One macro. */
struct external_zorvo_macro_info {
    int index = 0;                       /**< macro number from 1: the n of the member "Macro_\<n\>" */
    int scenes = 0;                      /**< "scenes": its scene count */
    std::vector<macro_channel> channels; /**< its channels, in order */
};

/** The whole section "zorvo_config". */
struct external_zorvo_info {
    std::string fw;                                /**< "fw": the controller's firmware version */
    std::string bootloader_fw;                     /**< "bootloader_fw": its boot loader's version */
    std::vector<external_zorvo_macro_info> macros; /**< the macros, in order */
};

/** The controller's two version texts. */
struct external_zorvo_fw_info {
    std::string fw;            /**< "fw" */
    std::string bootloader_fw; /**< "bootloader_fw" */
};

/** The box model: what follows "ID=" on the first line of /etc/os-release (under VASK_SYSROOT when
 * set) that holds "ID=" anywhere, at most 36 characters, without the newline. Read as the box reads
 * it: lines in pieces of at most 127 characters; quotes are kept ("\"RV710\"" is no known model);
 * a VERSION_ID= line before the ID= line wins. Returns "" when no line holds "ID=", and when the
 * file cannot be opened (logged at level 0 "file open \<path\> error \<errno\>").
 * @note No lock.
 * @return the model, or "". */
ED_API std::string GetFirmwareModelName();

/** Reads section "zorvo_config" into *info (logged at level 2 "ReadExternalZORVOControlConfig"),
 * sized by the model: info->macros is replaced by exactly M macros numbered 1 to M, each of C
 * channels numbered 1 to C, whatever the file holds. Macro i comes from member "Macro_\<i\>": scenes =
 * the integer value of its "scenes"; channel n is on when "channel_\<n\>_enable" is true or a
 * non-zero number; its preset is the string of "channel_\<n\>_preset" ("1" when the key is absent,
 * "" when it is no string). A missing member gives scenes 1 and every channel off with preset "1".
 * fw and bootloader_fw are the strings of "fw" and "bootloader_fw" ("" when no strings).
 * @return 0; 0 as well when the file cannot be opened (logged "open config file failed"; *info is
 * left as it was); -1 with *info unchanged when the file cannot be parsed, or the section, its "fw"
 * or "bootloader_fw", or the "scenes" of a present macro member is missing (logged "error:(null)");
 * -1 for a NULL `info` ("info = NULL").
 * @note Reads /etc/os-release first, then takes the configuration lock.
 * @param info receives the section */
ED_API int ReadExternalZORVOControlConfig(external_zorvo_info *info);

/** Writes *info into section "zorvo_config" (logged at level 2 "UpdateExternalZORVOControlConfig"),
 * sized by the model. "fw" and "bootloader_fw" are replaced in their places (added at the end when
 * missing). Then the first M macros of info->macros, each under "Macro_\<its index field\>" (not its
 * position): its "scenes" and, for its first C channels by position n (not by their channel
 * field), "channel_\<n\>_enable" (bool) and "channel_\<n\>_preset" (string) are replaced in their
 * places, or added at the end when missing. A missing member (or one that is no object) is added
 * at the end of the section, a missing section at the end of the document. Other members keep
 * their values and places; a macro whose index repeats an earlier one's overwrites it; macros
 * beyond M and channels beyond C are not written.
 * @return 0; 0 as well when the file cannot be opened (logged "open config file failed"; nothing is
 * written); -1 with the file unchanged when info->macros holds fewer than M macros or one of the
 * first M fewer than C channels (logged at level 0 "zorvo_config needs \<M\> macros of \<C\>
 * channels"), when the file cannot be parsed, its root is not an object, a node cannot be made or
 * the write fails; -1 for a NULL `info` ("info = NULL").
 * @note Reads /etc/os-release first, then takes the configuration lock.
 * @param info the section to store */
ED_API int UpdateExternalZORVOControlConfig(const external_zorvo_info *info);

/** Rewrites section "zorvo_config" in its full form with unknown versions (logged at level 2
 * "InitExternalZORVOControlConfig"): reads it with ReadExternalZORVOControlConfig and writes it back
 * with UpdateExternalZORVOControlConfig, fw and bootloader_fw set to "". The section then holds
 * exactly the members Macro_1 to Macro_M read from it, each of C channels (missing ones with the
 * defaults), besides any other members it had. When the file does not exist nothing is written.
 * @return 0, also when the write fails; -1 when the read fails (logged at level 0
 * "ReadExternalZORVOControlConfig fail").
 * @note Takes the configuration lock twice in turn, never nested. */
ED_API int InitExternalZORVOControlConfig();

/** @} */
/** @name Remote controller operations
 * Each logs its name at level 2 (source "libvask_external_device") on entry. The three on the
 * stored macros read the section with ReadExternalZORVOControlConfig into a record of their own.
 */
/** @{ */

/** Sets *info to the stored fw and bootloader_fw.
 * @return the read's result: 0 (both "" when the
 * file does not exist), or -1 with *info unchanged (see ReadExternalZORVOControlConfig); -1 for a
 * NULL `info`.
 * @note Takes the configuration lock.
 * @param info receives the two version texts */
ED_API int ed_get_zorvo_fw_info(external_zorvo_fw_info *info);

/** Replaces *macros (it is not appended to) with the stored macros: M macros of C channels each,
 * whatever the file holds; an empty vector when the file does not exist.
 * @return the read's
 * result: 0, or -1 with *macros unchanged; -1 for a NULL `macros`.
 * @note Takes the configuration lock.
 * @param macros replaced by the stored macros */
ED_API int ed_get_zorvo_macro_info(std::vector<external_zorvo_macro_info> *macros);

/** Stores `macros` with UpdateExternalZORVOControlConfig, keeping the stored fw and bootloader_fw.
 * The service is not called: it reads the macros from the file. Pass at least M macros of at least
 * C channels each (ed_get_zorvo_macro_info gives such a vector).
 * @return the update's result (0 as
 * well when the file does not exist: nothing is written); -1 without writing when the stored
 * section cannot be read, or as the update says.
 * @note Takes the configuration lock twice in turn (read,
 * then write).
 * @param macros the macros to store */
ED_API int ed_set_zorvo_macro_info(const std::vector<external_zorvo_macro_info> &macros);

/** Asks the service to run macro `macro_index` now: method "zorvo_goto_marco" (spelled so) with the
 * body {"macro_index":\<macro_index\>}, the number passed on unchecked, no reply read. Logs the body
 * at level 2 "======= client send messagebus : \<body\> " (the blank at the end belongs to it).
 * @return the call's result (0, -1 to -4); -1 when the request cannot be built.
 * @note No lock.
 * @param macro_index the number of the macro, from 1 */
ED_API int ed_zorvo_goto_macro(int macro_index);

/** @} */

#endif
