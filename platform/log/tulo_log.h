// SPDX-License-Identifier: MIT
/**
 * @file tulo_log.h
 * @brief libtulo_log: the box's logging library.
 *
 * Every line carries a module number, a level, the source name, a line number and a function name.
 * Levels: 0 error, 1 warning, 2 trace. A line whose level is above the threshold is dropped before
 * it is formatted. The threshold starts at the value of the environment variable TULO_LOG_LEVEL
 * (1 when unset or not a number) and is changed with TULO_LOG_set_level.
 *
 * The default sink writes one line per call to stderr, or to syslog when TULO_LOG_TARGET=syslog.
 * Every function here may be called from any thread at any time; lines are never interleaved, and
 * a sink is never called from two threads at once.
 */
#ifndef TULO_LOG_H
#define TULO_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/** @def TULO_LOG_API
 * Marks a function of the logging library's interface: exported from libtulo_log.so.0 (with GCC
 * and Clang, default visibility).
 *
 * @def TULO_LOG_PRINTF
 * Lets GCC and Clang check the arguments of a printf-style function against its format.
 * @param f the position of the format parameter, counting from 1
 * @param a the position of the first argument it formats
 */
#if defined(__GNUC__)
#define TULO_LOG_API __attribute__((visibility("default")))
#define TULO_LOG_PRINTF(f, a) __attribute__((format(printf, f, a)))
#else
#define TULO_LOG_API
#define TULO_LOG_PRINTF(f, a)
#endif

/** Level of an error line. */
#define TULO_LOG_LEVEL_ERROR   0
/** Level of a warning line. */
#define TULO_LOG_LEVEL_WARNING 1
/** Level of a trace line. */
#define TULO_LOG_LEVEL_TRACE   2

/** Receives every line that passes the threshold. `message` is the formatted text exactly as the
 * caller formed it (a trailing newline, if the caller wrote one, is kept). The strings are valid
 * only during the call. */
typedef void (*tulo_log_sink)(void *user, int module, int level, const char *source_file, int line,
                              const char *function, const char *message);

/** Formats `format` printf-style and hands the line to the sink when `level` <= the threshold.
 * `source_file` and `function` may be NULL (written as "?").
 * @param module the module number of the line
 * @param level 0 error, 1 warning, 2 trace
 * @param source_file the source name, or NULL
 * @param line the line number
 * @param function the function's name, or NULL
 * @param format a printf format, followed by its arguments */
TULO_LOG_API void TULO_LOG_write_newline(int module, int level, const char *source_file, int line,
                                         const char *function, const char *format, ...)
    TULO_LOG_PRINTF(6, 7);

/** Replaces the sink; NULL restores the default sink. Returns once no line is being written to the
 * previous sink, so the caller may release what `user` of the previous sink points to.
 * @param sink the new sink, or NULL for the default one
 * @param user handed to every call of `sink` */
TULO_LOG_API void TULO_LOG_set_sink(tulo_log_sink sink, void *user);

/** Sets the threshold: lines with level > max_level are dropped (a negative value drops all).
 * @param max_level the highest level that is written */
TULO_LOG_API void TULO_LOG_set_level(int max_level);

#ifdef __cplusplus
}
#endif

#endif
