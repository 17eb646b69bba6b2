// What is encoded decodes to itself, and decoding in place gives what decoding elsewhere gives.
#include <stdlib.h>

#include <string>

#include "vorncore/base/base64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const int length = static_cast<int>(size);
    std::string any(reinterpret_cast<const char *>(data), size), back(size, '#');
    std::string text(static_cast<size_t>(xp_base64_encoded_size(length)), '#'), apart(size / 4 * 3, '#');
    const int encoded = xp_base64_encode_data(data, length, text.data());
    if (xp_base64_decode_data(text.data(), encoded, back.data()) != length || back != any) abort();
    const bool good = xp_base64_decode(any.c_str(), apart.data());
    const int count = xp_base64_decode_data(any.c_str(), length, any.data());
    if (good != (count >= 0) || (good && any.compare(0, size_t(count), apart, 0, size_t(count)) != 0)) abort();
    return 0;
}
