// What is encoded decodes to itself; text and bounded decoding agree, also in place, within exact buffers.
#include <stdlib.h>

#include <string>
#include <vector>

#include "vorncore/base/base64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const int length = static_cast<int>(size);
    std::string any(reinterpret_cast<const char *>(data), size), back(size, '#');
    std::vector<char> text(static_cast<size_t>(xp_base64_encoded_size(length)) + 1);
    const int encoded = xp_base64_encode_data(data, length, text.data());
    if (xp_base64_decode_data(text.data(), encoded, back.data()) != length || back != any) abort();

    any.resize(any.find('\0') == any.npos ? size : any.find('\0'));
    std::string apart(any.size() / 4 * 3 + 1, '#');
    const char *decoded = xp_base64_decode(any.c_str(), apart.data());
    const int count = xp_base64_decode_data(any.c_str(), static_cast<int>(any.size()), any.data());
    const auto made = static_cast<size_t>(count);
    if (decoded ? count < 0 || any.compare(0, made, apart, 0, made) != 0 : count != -1) abort();
    return 0;
}
