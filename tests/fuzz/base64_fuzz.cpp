// What is encoded decodes to itself, and decoding in place gives what decoding elsewhere gives.
#include "tests/fuzz/target.h"
#include "vorncore/base/base64.h"

static void check(std::string_view input) {
    const int length = static_cast<int>(input.size());
    std::string any(input), back(any.size(), '#'), apart(any.size() / 4 * 3, '#');
    std::string text(static_cast<size_t>(xp_base64_encoded_size(length)), '#');
    const int encoded = xp_base64_encode_data(any.data(), length, text.data());
    require(xp_base64_decode_data(text.data(), encoded, back.data()) == length && back == any);
    const bool good = xp_base64_decode(any.c_str(), apart.data());
    const int count = xp_base64_decode_data(any.c_str(), length, any.data());
    require(good == (count >= 0) && any.compare(0, size_t(good ? count : 0), apart, 0, size_t(good ? count : 0)) == 0);
}
