/* libvask_external_device: control and query the external devices of a conference-room media box.
 *
 * Library-wide rules
 * ------------------
 * Results: every operation returns an int, 0 for success and a negative value for failure.
 *   -1  general failure (bad file, bad JSON, missing section, empty result, unknown service code, bus
 *       not connected or not opened)
 *   -2  unknown selector, unsupported protocol, or bad arguments refused by the bus
 *   -3  unknown signal event, option-table failure, or the service is offline
 *   -4  the service did not answer in time (8 s)
 *   Each operation lists the values it returns.
 *
 * Order: call ed_init once, then any operation and any signal subscription, then ed_release.
 *   ed_set_opt may be called at any time, also before ed_init. Configuration functions do not need
 *   ed_init. An operation that needs the service before ed_init or after ed_release returns -1.
 *
 * Threads: the library starts no threads of its own. Service operations block the calling thread
 *   until the service answers (at most 8 s) and may be called from several threads at once.
 *   ed_init, ed_release and ed_register_signal / ed_unregister_signal belong to the application's
 *   control thread while no other call is in flight. Signal callbacks run on the bus library's
 *   dispatch thread.
 *
 * Bus: the library connects as client "libvaskexternal_device" to the broker named by VASK_BUS_URL
 *   (default mqtt://127.0.0.1:1883) and calls the "external_device" service.
 *
 * Files: the fixed paths the library reads and writes (/etc/external_device.json, ...) are prefixed
 *   with VASK_SYSROOT when that environment variable is set and not empty.
 *
 * Logging: every line goes through TULO_LOG_write_newline with module 59.
 */
#ifndef LIBVASK_EXTERNAL_DEVICE_H
#define LIBVASK_EXTERNAL_DEVICE_H

#include <cjson/cJSON.h>
#include <cstdint>
#include <string>
#include <vector>

#include "vask_bus.h"

#if defined(__GNUC__)
#define ED_API __attribute__((visibility("default")))
#else
#define ED_API
#endif

/* The module number of the library's log lines. */
#define ED_LOG_MODULE 59

/* ---- Lifecycle and options ---------------------------------------------------------------- */

/* Option ids of ed_set_opt. */
enum {
    /* Non-zero (the default, 1): each signal payload is parsed into a record, handed to the
     * callback and freed after it. 0: the raw payload text is handed to the callback. */
    ED_OPT_SIGNAL_PARSE = 0,
};

/* Opens the library: starts the bus library, creates the bus client and connects it (waiting up to
 * 2 s; the client keeps trying in the background). Returns 0 on success, also when already open
 * (logged at level 0, "External device library already initialized"); -1 when the bus library
 * cannot be started (a later ed_init may try again). */
ED_API int ed_init();

/* Closes the library: disconnects and frees the bus client and releases the bus library. Later
 * service operations return -1 until the next ed_init. Always returns 0; when the library is not
 * open it logs at level 0 "External device library not initialized". */
ED_API int ed_release();

/* Stores `value` under `option` (any id is stored; only ED_OPT_SIGNAL_PARSE is read). Takes effect
 * on the next signal delivered. Returns 0. */
ED_API int ed_set_opt(int option, int value);

/* ---- Voting ------------------------------------------------------------------------------ */

/* The state of a delegate vote as the service reports it. A value the reply lacks is -1. */
struct ed_voting_info {
    int status;   /* "Status": on output the vote's status; on input to ed_set_voting the action */
    int agree;    /* "Agree" */
    int disagree; /* "Disagree" */
    int abandon;  /* "Abandon" */
    int total;    /* "Total" */
    int time;     /* "Time" */
};

/* Reads the current vote ("query_voting") into `info`. Returns 0, or -1 to -4 as in the rules
 * above; on failure `info` is left as it was. */
ED_API int ed_get_voting(ed_voting_info &info);

/* Performs the action selected by info.status: 0 "enter_voting", 1 "stop_voting", 2 "start_voting",
 * 3 "exit_voting", any other value "query_voting". For "stop_voting" and "query_voting" `info` is
 * filled from the reply on success (the selector is overwritten by the reported status); for the
 * other actions `info` is not changed. Returns 0, or -1 to -4 as in the rules above. */
ED_API int ed_set_voting(ed_voting_info &info);

/* ---- Signals ----------------------------------------------------------------------------- */
/* The service "external_device" broadcasts five signals, each carrying a small JSON object:
 *
 *   event                     record handed to the callback    parser / releaser
 *   "mic_on_event"            sig_mic_on_data                  sig_mic_on_parser / sig_mic_on_releaser
 *   "voting_results_event"    sig_voting_results_data          sig_voting_results_parser / ..._releaser
 *   "info_data_change_event"  sig_info_data_change_data        sig_info_data_change_parser / ..._releaser
 *   "cam_status_event"        sig_cam_status_data              sig_cam_status_parser / ..._releaser
 *   "non_list_mic_event"      sig_mic_on_data                  sig_non_list_mic_parser / ..._releaser
 *
 * On the bus each travels on the topic "external_device/signal/" followed by the event name.
 *
 * Callback contract:
 *   - The callback runs on the bus library's dispatch thread, one signal at a time, in arrival
 *     order, concurrently with the application's own threads. Do not block it: every later signal
 *     waits until the callback returns. It may call the library's service operations.
 *   - `event` is the event name ("mic_on_event", ...), valid only during the call.
 *   - `data` is the parsed record (cast it to the record type of the event). The record is freed when
 *     the callback returns: copy what you keep. With ED_OPT_SIGNAL_PARSE at 0, `data` is instead the
 *     raw, zero-terminated JSON payload as the bus delivered it, also valid only during the call.
 *   - A signal whose payload is not valid JSON or lacks a required key does not reach the callback.
 *   - `user` is the user pointer of the library's bus client (NULL unless set with
 *     bus_client_set_user).
 *   - Register before the first signal can arrive, and unregister only while no delivery is in
 *     progress. A signal for an event that has no callback is dropped.
 *   - An exception thrown by the callback propagates out of ed_signal_handler to the bus library;
 *     the record is freed all the same. */

/* "mic_on_event" and "non_list_mic_event". */
struct sig_mic_on_data {
    int status;        /* not set by the parsers: its value is unspecified, do not read it */
    std::string group; /* "Group"; empty when missing or not a string */
    std::string id;    /* "Id"; empty when missing or not a string */
    bool on;           /* "On": true exactly when its integer value is 1 (true or 1); false when missing */
};

/* "voting_results_event". Every member is the integer value of its key. */
struct sig_voting_results_data {
    int status;   /* "Status" */
    int agree;    /* "Agree" */
    int disagree; /* "Disagree" */
    int abandon;  /* "Abandon" */
    int total;    /* "Total" */
    int time;     /* "Time" */
};

/* "info_data_change_event". The service defines what the values mean. */
struct sig_info_data_change_data {
    int type; /* "Type" */
    int data; /* "Data" */
};

/* "cam_status_event". */
struct sig_cam_status_data {
    int status;        /* "Status" */
    std::string group; /* "Group"; empty when missing or not a string */
    std::string id;    /* "Id"; empty when missing or not a string */
    bool on;           /* "On": true exactly when its integer value is 1 (true or 1); false when missing */
};

/* Parsers: each turns a zero-terminated JSON payload into a record allocated with new, to be freed
 * with the matching releaser, or returns NULL when the text is not JSON, a required key is missing
 * at the top level of the object, or memory runs out. Integers are the integer value of their
 * member, whatever its JSON type (3.7 reads as 3, true as 1, a string as 0). Nothing is logged.
 * Releasers: each frees a record made by its parser; NULL is accepted and ignored. */

/* Returns a sig_mic_on_data, or NULL unless "Group" or "Id" (at least one) is present. */
ED_API void *sig_mic_on_parser(const char *payload);
/* Frees a sig_mic_on_data. */
ED_API void sig_mic_on_releaser(void *record);

/* Returns a sig_voting_results_data, or NULL unless all of "Status", "Agree", "Disagree",
 * "Abandon", "Total" and "Time" are present. */
ED_API void *sig_voting_results_parser(const char *payload);
/* Frees a sig_voting_results_data. */
ED_API void sig_voting_results_releaser(void *record);

/* Returns a sig_info_data_change_data, or NULL unless "Type" and "Data" are present. */
ED_API void *sig_info_data_change_parser(const char *payload);
/* Frees a sig_info_data_change_data. */
ED_API void sig_info_data_change_releaser(void *record);

/* Returns a sig_cam_status_data, or NULL unless "Status" is present. */
ED_API void *sig_cam_status_parser(const char *payload);
/* Frees a sig_cam_status_data. */
ED_API void sig_cam_status_releaser(void *record);

/* The same as sig_mic_on_parser: the two microphone signals share one payload form. */
ED_API void *sig_non_list_mic_parser(const char *payload);
/* Frees a sig_mic_on_data made by sig_non_list_mic_parser. */
ED_API void sig_non_list_mic_releaser(void *record);

/* Sets `callback` for signal `event` (the short name, e.g. "mic_on_event", not the full topic),
 * replacing an earlier one, and subscribes the library's bus client to it with ed_signal_handler.
 * Registering an event again subscribes again. A NULL callback is stored too: the event's signals
 * are then dropped. Call it after ed_init (before, the callback is stored but nothing is
 * subscribed) from the application's control thread.
 * Returns 0 when the event is one of the five, also when the bus refused the subscription (not
 * connected, library closed); -3 for any other event name or a NULL `event`, without subscribing. */
ED_API int ed_register_signal(const char *event,
                              void (*callback)(const char *event, void *data, void *user));

/* Unsubscribes from signal `event` and clears its callback. Signals of it already queued are
 * dropped; when its callback is running, waits until it returns, so do not call it from a callback
 * (the bus then keeps the subscription, but the event's signals are still dropped).
 * Returns 0 when the event is one of the five, also when the bus refused; -3 for any other event
 * name or a NULL `event`. */
ED_API int ed_unregister_signal(const char *event);

/* The dispatcher the library hands to the bus library; applications do not call it.
 * For a `topic` that is not one of the five full topics it returns at once, silently. Otherwise,
 * with ED_OPT_SIGNAL_PARSE non-zero, it parses the zero-terminated JSON text `payload` with the
 * event's parser, calls the event's callback with the record (not when the parser returned NULL)
 * and then frees the record with the event's releaser; with ED_OPT_SIGNAL_PARSE at 0 it calls the
 * callback with `payload` itself and frees nothing. The callback is never called when it is NULL.
 * `user` is handed to the callback unchanged; `client` and `length` are not used. */
ED_API void ed_signal_handler(bus_client *client, void *user, const char *topic, const void *payload,
                              int length);

/* ---- Utilities --------------------------------------------------------------------------- */
/* Free helpers for strings, paths, files, shell commands, JSON editing, time, network, hex and baud
 * rates. They hold no state and take no lock; any of them may be called from any thread. Strings
 * are byte strings: no character-set handling is done. Paths are used as given (no ~ expansion, no
 * resolution of ".."). Only the functions that say so log; their lines have source "utils". */

/* -- Strings, paths and URIs -- */

/* Replaces every occurrence of `from` in *str by `to`, left to right; the search goes on after the
 * inserted text, so `to` is never searched again ("a" by "aa" in "aaa" gives six "a"). An empty
 * `from` changes nothing. Returns 0; -1 when `str` is null. */
ED_API int ReplaceString(std::string *str, const std::string &from, const std::string &to);

/* Searches `str` for the GLib regular expression `pattern` (no compile or match flags; unanchored:
 * a match anywhere counts). Returns 0 on a match, -1 otherwise, also when the pattern does not
 * compile or either text is not valid UTF-8 (the regular-expression engine requires UTF-8). */
ED_API int MatchString(const std::string &pattern, const std::string &str);

/* Erases the first occurrence of `sub` from `str`; nothing happens when it is absent. */
ED_API void EraseSubStr(std::string &str, const std::string &sub);

/* Joins a directory and a name: `dir` + `name` when `dir` is not empty and ends in '/', otherwise
 * `dir` + "/" + `name` (an empty `dir` gives "/" + name). Nothing else is normalised: a leading
 * '/' in `name` is kept ("/tmp/" and "/x" give "/tmp//x"). */
ED_API std::string ConcateFilePath(const std::string &dir, std::string name);

/* Inserts `text` in front of the last path component of `uri`: after the last '/' found at index 1
 * or later, or after the first character when there is none ("file:///a/b.jpg" with "thumb_"
 * gives "file:///a/thumb_b.jpg"). An empty `uri` gives `text`. */
ED_API std::string AppendFileUri(const std::string &uri, const std::string &text);

/* Sets *path to the path of a "file" URI: the text after "file://" ("file:///tmp/a" gives
 * "/tmp/a"; a "file:" URI shorter than "file://" gives the empty string). A URI of any other
 * scheme (compared exactly, so "FILE" is another scheme) and a string without a scheme are copied
 * unchanged. Returns 0; -1 when `path` is null. */
ED_API int GetFilepathFromUri(const std::string &uri, std::string *path);

/* The text after the last '.' at index 1 or later, without the dot ("a.tar.gz" gives "gz", "x."
 * gives ""). The dot may lie in a directory name ("/a.d/f" gives "d/f"). Without such a dot the
 * whole path but its first character is returned ("photo" gives "hoto", ".bashrc" gives
 * "bashrc"); applications rely on this fallback. An empty or one-character path gives "". */
ED_API std::string GetFileExt(const std::string &path);

/* Replaces the extension found as by GetFileExt with `ext` (given without a dot), keeping the dot
 * ("a/b.jpg" with "png" gives "a/b.png"). Without a dot the first character of `path` is kept and
 * `ext` appended ("abc" with "png" gives "apng"), matching GetFileExt. An empty path gives "". */
ED_API std::string ReplaceFileExt(const std::string &path, const std::string &ext);

/* True when something exists at `path`, a plain path or a "file://" URI (every "file://" in it is
 * removed first). True for directories as well. */
ED_API bool IsFile(const std::string &path);

/* True when `path` names a directory (symbolic links are followed). */
ED_API bool IsDir(const std::string &path);

/* Removes the file or empty directory at `path`. Returns 0 when it was removed or when nothing is
 * there (then nothing is logged; a dangling symbolic link counts as nothing). On failure logs at
 * level 1 "Failed to remove <path> (-1)" and returns -1. */
ED_API int Remove(const std::string &path);

/* Renames `from` to `to` with rename(2). Returns 0, or -1 after logging at level 0
 * "Rename file <from> to <to> failed. errno=<errno>". */
ED_API int Rename(const std::string &from, const std::string &to);

/* The size in bytes of `path` itself (a symbolic link's own size, not its target's); -1 when the
 * path cannot be examined. */
ED_API int64_t FileSize(const std::string &path);

/* Erases the characters equal to `c` from the end of *str until its last character differs or it
 * is empty. Returns 0; -1 when `str` is null. */
ED_API int RemoveTrailingChar(char c, std::string *str);

/* Creates the directory that would hold `file_path` (its dirname; "." when it has no '/') with
 * its missing parents, each with permissions `mode` (e.g. 0755).
 *   depth < 1: the whole chain is created as needed.
 *   depth >= 1: only below an anchor directory that must already exist: the dirname up to its
 *     (depth+1)-th '/' (the whole dirname when it has exactly `depth` slashes). For
 *     "/mnt/usb/a/b/f.txt" and depth 2 the anchor is "/mnt/usb": nothing is created in the mount
 *     point when no medium is mounted there.
 * Returns 0 on success (also when the directory exists); -1 when the dirname has fewer than
 * `depth` slashes, the anchor is not an existing directory, or the creation fails. */
ED_API int MakeDirByFilePath(const std::string &file_path, unsigned int mode, int depth);

/* MakeDirByFilePath for the path of `uri` as given by GetFilepathFromUri (a plain path is used
 * as it is). Same results. */
ED_API int MakeDirByFileUri(const std::string &uri, unsigned int mode, int depth);

/* -- Shell, JSON editing, time, images, network and device identity -- */

/* Runs `cmd` with /bin/sh (popen) and appends everything it writes to standard output to *output
 * (a null `output` discards it; output is read as text, so it ends at a zero byte of each line).
 * Blocks until the command ends. Returns the command's exit code (0 to 255); 0 also when its
 * status cannot be collected because SIGCHLD is ignored (ECHILD); -1 when the command cannot be
 * started or was killed by a signal. */
ED_API int ExecShellCmd(const std::string &cmd, std::string *output);

/* Replace-or-add of member `key` of `obj`: an existing member `key` (the first one, compared
 * without regard to case, as cJSON_DeleteItemFromObject does) is deleted, then a new member with
 * `value` is added at the end of the object, so an edited member moves to the end. Returns 0; -1
 * when `obj` is null or `key` is null or empty (nothing changes), or when memory runs out (the old
 * member is then already gone). */
ED_API int cJSON_UpdateObjectItem(cJSON *obj, const char *key, int value);
/* The same with a number member holding `value`. */
ED_API int cJSON_UpdateObjectItem(cJSON *obj, const char *key, double value);
/* The same with a string member; an empty `value` deletes the member and adds nothing (an empty
 * string removes the key). A null `value` returns -1 and changes nothing. */
ED_API int cJSON_UpdateObjectItem(cJSON *obj, const char *key, const char *value);
/* The same with a true or false member. */
ED_API int cJSON_UpdateObjectItem(cJSON *obj, const char *key, bool value);

/* Appends to array `dst` a copy of each element of array `src`, in order. The copies are shallow
 * (cJSON_Duplicate without recursion): an object or array element arrives empty, without its
 * children. `src` is not changed and may be `dst` itself (its elements are then doubled). Returns
 * 0; -1 when either is null or has no element (an empty `dst` is refused too), or when memory runs
 * out (elements copied so far stay appended). */
ED_API int cJSON_AppendTwoArrays(cJSON *dst, cJSON *src);

/* Seconds since the epoch. */
ED_API int64_t GetTimeStamp();

/* Microseconds since the epoch (seconds * 1000000 + microseconds). */
ED_API uint64_t GetTimeStampU();

/* Sets *out to the local time of `t` (seconds since the epoch) as "%Y_%m_%d_%H_%M_%S", e.g.
 * "2024_03_01_09_05_07". Returns 0; -1 when `out` is null or `t` has no local time (*out is then
 * unchanged). */
ED_API int MakeTimeString(long t, std::string *out);

/* The current offset of local time from UTC in seconds, positive east of UTC (7200 for UTC+2). */
ED_API double GetCurrentTzOffset();

/* Reads the 54-byte header of the BMP file at `path` and sets *width and *height to the 32-bit
 * little-endian values at byte offsets 18 and 22 (a top-down image's negative height arrives as
 * its two's-complement value). A file shorter than the header logs at level 1
 * "read file query 54 , but <bytes read>" and the missing bytes count as zero. Returns 0; -1 when
 * `width` or `height` is null, or when the file cannot be opened (logged at level 0
 * "Failed to open bmp file: <path>"). */
ED_API int GetBmpWidthHeight(const std::string &path, unsigned int *width, unsigned int *height);

/* True when `ip` is an IPv4 address in dotted-quad form ("192.168.1.10"); no other forms. */
ED_API bool IsValidIpAddress(const std::string &ip);

/* True when `ip` is a valid IPv4 address (see IsValidIpAddress) in 224.0.0.0 to 239.255.255.255. */
ED_API bool IsMulticastIpAddress(const std::string &ip);

/* Sets *ip to the IPv4 address of network interface `ifname` (at most 16 bytes of the name are
 * used) in dotted form. Returns 0; -1 when the interface does not exist or has no IPv4 address,
 * or when `ip` is null (*ip is then unchanged). */
ED_API int GetIpAddress(const std::string &ifname, std::string *ip);

/* The first 24 bytes at most of /etc/hostname (under VASK_SYSROOT when set), exactly as read: a
 * trailing newline is kept, and the text ends at a zero byte. When the file cannot be opened logs
 * at level 0 "file open <description path> error <errno>" (the message names /etc/description
 * even here) and returns ""; a read error logs at level 1 "read failed <errno>" and returns what
 * was read before it. */
ED_API std::string GetDeviceHostname();

/* The same for /etc/description, with the same messages. */
ED_API std::string GetDeviceDescription();

/* -- Hex strings and serial speeds -- */

/* a > b: a comparator for sorting in descending order. */
ED_API bool IntReverseSort(int a, int b);

/* Parses 8 bytes into out[0..7] from the first 16 characters of `hex`, two hex digits per byte
 * with sscanf "%2hhx" (which also skips leading blanks); a pair that does not parse leaves its
 * byte unchanged. Returns 1; -1 when `hex` or `out` is null or `hex` is shorter than 16
 * characters (nothing written). */
ED_API int RepresentHexInByte(const char *hex, unsigned char *out);

/* The termios speed constant (B0, B50, ... B4000000) of `baud` bits per second, for 0, 50, 75,
 * 110, 134, 150, 200, 300, 600, 1200, 1800, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400,
 * 460800, 500000, 576000, 921600, 1000000, 1152000, 1500000, 2000000, 2500000, 3000000, 3500000 and
 * 4000000; -1 for any other value. */
ED_API int ConvertBaudrate(int baud);

/* The value (0 to 15) of hex digit `c`, upper or lower case; -1 for any other character. */
ED_API int parse_hex(char c);

/* Converts a string of hex digit pairs (high digit first, either case) into bytes: out[i] is the
 * value of pair i and *count the number of bytes (length / 2, at most 128; `out` must hold that
 * many). The empty string gives *count 0. Returns 0, or -1 with *count 0 and nothing written:
 *   - a string longer than 256 characters or of odd length (logged at level 0
 *     "overflow or string must odd length");
 *   - a character that is not a hex digit (logged at level 0 "invalid hex digit");
 *   - a null `out` or `count`. */
ED_API int String_To_HexArray(const std::string &hex, unsigned char *out, int *count);

/* Appends the `n` bytes at `bytes` to *out as lower-case two-digit hex without separators
 * ({0x01, 0xab} gives "01ab"); nothing for n < 1. Returns 0; -1 when `out` is null, or `bytes` is
 * null while n >= 1. */
ED_API int TuloRS232Cmd_To_String(const char *bytes, std::string *out, int n);

/* ---- Mic central, RS232 device list and image share ---------------------------------------- */

/* One microphone of the mic-on list. */
struct mic_node {
    std::string group; /* "Group"; empty when missing or not a string */
    std::string id;    /* "ID"; empty when missing or not a string */
    bool on;           /* "On": true when its integer value is non-zero, and when it is missing */
};

/* One RS232 serial device the service sees. */
struct external_rs232_info {
    int number;              /* "Number"; -1 when missing */
    std::string port;        /* "Port"; empty when missing or not a string */
    std::string description; /* "Description"; empty when missing or not a string */
};

/* The image-share setting the service keeps. */
struct imshare_info {
    bool hid; /* "hid" */
};

struct external_protocol_info; /* below, with the configuration store */

/* Asks the service to test a connection to the mic central with `info`'s protocol, ip_address,
 * username and password ("mic_connection_test" with
 * {"parameters":{"tcp":{"ip_address":..,"username":..,"password":..}},"protocol":N}); the other
 * fields are not sent. Logs its name, then the request, at level 2. Returns the call's result
 * (0, -1 to -4); -1 when the request cannot be built. */
ED_API int ed_mic_central_connection_test(const external_protocol_info &info);

/* Reads whether the mic central is connected ("get_mic_connection_state"): on success `*state` is the
 * reply's "isconnect" (0 when the reply lacks it). Logs its name at level 2. Returns 0, -1 to -4
 * (`*state` untouched on failure), -1 for a null `state`. */
ED_API int ed_get_mic_central_connection_state(int *state);

/* Appends the microphones that are on ("get_microphone_on_list", reply member "mic_on_list") to
 * `*list`, in the service's order, after the entries already there (the list is not cleared). A
 * reply without the list appends nothing. Returns 0, -1 to -4 (list untouched on failure), -1 for a
 * null `list`. */
ED_API int ed_get_mic_on_list(std::vector<mic_node> *list);

/* Appends the RS232 devices the service sees ("get_ex_rs232_device_list", reply member
 * "rs232_list") to `*list`, after the entries already there. A reply without the list appends
 * nothing. Returns 0, -1 to -4 (list untouched on failure), -1 for a null `list`. */
ED_API int ed_get_external_rs232_device_list(std::vector<external_rs232_info> *list);

/* Reads the image-share flag ("get_imshare_info"): on success info->hid is whether the reply's "hid"
 * is true or a non-zero number. Logs its name at level 2. Returns 0, -1 to -4 (`info` untouched on
 * failure), -1 for a null `info`. */
ED_API int ed_get_imshare_info(imshare_info *info);

/* Sets the image-share flag ("set_imshare_info" with {"hid":true|false}). Logs its name at level 2.
 * Returns the call's result (0, -1 to -4); -1 when the request cannot be built. */
ED_API int ed_set_imshare_info(imshare_info info);

/* ---- Configuration store and control devices --------------------------------------------- */

/* One control device (the mic central, the media station, the projector, external control), as
 * stored in /etc/external_device.json. */
struct external_protocol_info {
    bool enable;             /* the device is enabled */
    int32_t protocol;        /* number of the protocol table; -1: reading failed or name unknown */
    std::string ip_address;  /* device address, for TCP protocols */
    std::string username;    /* login name, for TCP protocols */
    std::string password;    /* login password, for TCP protocols */
    std::string baud_rate;   /* serial speed as decimal text, for the "rs232" protocol */
    std::string port;        /* TCP port as text */
};

/* (configuration files, protocol table, control devices and their operations go here) */

#endif
