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
/* (signal records, parsers, releasers and registration go here) */

/* ---- Utilities --------------------------------------------------------------------------- */
/* (string, path, system and format utilities go here) */

#endif
