// What is reported through the log hook while the object lives: one at a time.
#pragma once

#include <stdarg.h>
#include <stdio.h>

#include <string>
#include <utility>

#include "vorncore/base/log.h"

namespace harness {

class log_lines {
  public:
    log_lines() { xp_set_logproc(hook, this); }
    ~log_lines() { xp_set_logproc(before_, before_parameter_); }
    log_lines(const log_lines &) = delete;

    /// The reports since the last call: category, "FILE: ", message and a line feed each.
    std::string take() { return std::exchange(lines_, {}); }
    int last_number = 0; // of the line that reported

  private:
    static int hook(void *self, const char *category, const char *file, int number, const char *format, ...) {
        char message[4096];
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(message, sizeof message, format, arguments);
        va_end(arguments);
        auto *log = static_cast<log_lines *>(self);
        log->lines_ += std::string(category) + file + ": " + message + '\n';
        log->last_number = number;
        return 0;
    }

    std::string lines_;
    xp_logproc before_ = xp_logfn;
    void *before_parameter_ = xp_logparam;
};

} // namespace harness
