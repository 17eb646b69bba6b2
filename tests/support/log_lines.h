// What is reported through the log hook while the object lives: one at a time.
#pragma once

#include <stdarg.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "vorncore/base/log.h"

namespace harness {

class log_lines {
  public:
    struct line {
        std::string category, file, message;
        int number;
    };
    std::vector<line> lines;

    log_lines() { xp_set_logproc(hook, this); }
    ~log_lines() { xp_set_logproc(before_, before_parameter_); }
    log_lines(const log_lines &) = delete;

  private:
    static int hook(void *self, const char *category, const char *file, int number, const char *format, ...) {
        char message[4096];
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(message, sizeof message, format, arguments);
        va_end(arguments);
        static_cast<log_lines *>(self)->lines.push_back({category, file, message, number});
        return 0;
    }

    xp_logproc before_ = xp_logfn;
    void *before_parameter_ = xp_logparam;
};

} // namespace harness
