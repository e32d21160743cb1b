// SPDX-License-Identifier: MIT
// Collects the log lines written while it lives.
#ifndef VASK_TEST_LOG_CAPTURE_H
#define VASK_TEST_LOG_CAPTURE_H

#include <mutex>
#include <string>
#include <vector>

#include "tulo_log.h"

namespace vask_test {

struct log_line {
    int module;
    int level;
    std::string source;
    int line;
    std::string function;
    std::string message;
};

class log_capture {
public:
    explicit log_capture(int level = TULO_LOG_LEVEL_TRACE)
    {
        TULO_LOG_set_level(level);
        TULO_LOG_set_sink(sink, this);
    }
    ~log_capture()
    {
        TULO_LOG_set_sink(nullptr, nullptr);
        TULO_LOG_set_level(TULO_LOG_LEVEL_WARNING);
    }
    std::vector<log_line> lines()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        return lines_;
    }
    // The lines whose message equals `message`.
    std::vector<log_line> with_message(const std::string &message)
    {
        std::vector<log_line> found;
        for (const log_line &l : lines())
            if (l.message == message)
                found.push_back(l);
        return found;
    }

private:
    static void sink(void *user, int module, int level, const char *source, int line, const char *function,
                     const char *message)
    {
        auto *self = static_cast<log_capture *>(user);
        std::lock_guard<std::mutex> hold(self->mutex_);
        self->lines_.push_back({module, level, source, line, function, message});
    }
    std::mutex mutex_;
    std::vector<log_line> lines_;
};

} // namespace vask_test

#endif
