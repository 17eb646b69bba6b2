// What the parts of `vorn kv` share.
#pragma once

#include <string>
#include <string_view>

#include "vorncore/app/quillet.h"

namespace vorn {

struct kv_options {
    std::string host;
    int port = 0;
    std::string store;
    int timeout = 10'000;
};

/// A connected client of the service. Its calls say on standard error what failed and why.
class kv_client {
  public:
    explicit kv_client(const kv_options &options);
    ~kv_client() { xp_close_quillet(&client_); }
    kv_client(const kv_client &) = delete;
    kv_client &operator=(const kv_client &) = delete;

    bool connect();
    operator xp_quillet *() { return &client_; }

    /// The exit code for the result of a request, told with what was tried.
    int told(const char *what, int result) const;

  private:
    xp_quillet client_;
};

/// Undoes the escaping of keys and values.
std::string kv_unescaped(std::string_view text);

/// Reads HOST:PORT.
bool kv_address(const char *text, kv_options *options);

int kv_load(kv_client &client, const char *file);
int kv_check(kv_client &client, const char *file);
int kv_bench(int count, char **arguments);

} // namespace vorn
