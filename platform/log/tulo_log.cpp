// SPDX-License-Identifier: MIT
#include "tulo_log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr int kUnsetLevel = -1000;

std::mutex g_sink_mutex;
tulo_log_sink g_sink = nullptr;
void *g_sink_user = nullptr;
std::atomic<int> g_level{kUnsetLevel};

int level_from_environment()
{
    const char *text = getenv("TULO_LOG_LEVEL");
    if (text == nullptr || *text == '\0')
        return TULO_LOG_LEVEL_WARNING;
    char *end = nullptr;
    long value = strtol(text, &end, 10);
    if (*end != '\0' || value < -1 || value > 100)
        return TULO_LOG_LEVEL_WARNING;
    return static_cast<int>(value);
}

int threshold()
{
    int level = g_level.load(std::memory_order_relaxed);
    if (level == kUnsetLevel) {
        int from_env = level_from_environment();
        // Only the first reader stores it; a concurrent TULO_LOG_set_level wins.
        g_level.compare_exchange_strong(level, from_env);
        level = g_level.load(std::memory_order_relaxed);
    }
    return level;
}

const char *level_name(int level)
{
    switch (level) {
    case TULO_LOG_LEVEL_ERROR: return "error";
    case TULO_LOG_LEVEL_WARNING: return "warning";
    case TULO_LOG_LEVEL_TRACE: return "trace";
    default: return "level?";
    }
}

bool to_syslog()
{
    static const bool use_syslog = [] {
        const char *target = getenv("TULO_LOG_TARGET");
        return target != nullptr && strcmp(target, "syslog") == 0;
    }();
    return use_syslog;
}

// The default sink: one write(2) per line so that lines from several processes sharing stderr do not
// mix either.
void default_sink(int module, int level, const char *source_file, int line, const char *function,
                  const char *message)
{
    size_t length = strlen(message);
    if (length > 0 && message[length - 1] == '\n')
        --length;
    if (to_syslog()) {
        int priority = level <= TULO_LOG_LEVEL_ERROR ? LOG_ERR
                       : level == TULO_LOG_LEVEL_WARNING ? LOG_WARNING
                                                          : LOG_DEBUG;
        syslog(priority, "[%d] %s:%d %s: %.*s", module, source_file, line, function,
               static_cast<int>(length), message);
        return;
    }
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm local;
    localtime_r(&now.tv_sec, &local);
    char stamp[32];
    strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    std::string text(stamp);
    char head[64];
    snprintf(head, sizeof head, ".%03ld [%d] %s ", now.tv_nsec / 1000000, module, level_name(level));
    text += head;
    text += source_file;
    text += ':';
    text += std::to_string(line);
    text += ' ';
    text += function;
    text += ": ";
    text.append(message, length);
    text += '\n';
    ssize_t ignored = write(STDERR_FILENO, text.data(), text.size());
    (void)ignored;
}

} // namespace

extern "C" void TULO_LOG_write_newline(int module, int level, const char *source_file, int line,
                                       const char *function, const char *format, ...)
{
    if (level > threshold() || format == nullptr)
        return;
    char small[512];
    va_list args;
    va_start(args, format);
    int needed = vsnprintf(small, sizeof small, format, args);
    va_end(args);
    if (needed < 0)
        return;
    std::string large;
    const char *message = small;
    if (static_cast<size_t>(needed) >= sizeof small) {
        large.resize(static_cast<size_t>(needed) + 1);
        va_start(args, format);
        vsnprintf(&large[0], large.size(), format, args);
        va_end(args);
        large.resize(static_cast<size_t>(needed));
        message = large.c_str();
    }
    if (source_file == nullptr)
        source_file = "?";
    if (function == nullptr)
        function = "?";

    std::lock_guard<std::mutex> hold(g_sink_mutex);
    if (g_sink != nullptr)
        g_sink(g_sink_user, module, level, source_file, line, function, message);
    else
        default_sink(module, level, source_file, line, function, message);
}

extern "C" void TULO_LOG_set_sink(tulo_log_sink sink, void *user)
{
    std::lock_guard<std::mutex> hold(g_sink_mutex);
    g_sink = sink;
    g_sink_user = user;
}

extern "C" void TULO_LOG_set_level(int max_level)
{
    g_level.store(max_level < -1 ? -1 : max_level, std::memory_order_relaxed);
}
