// Both tokenizers against a plain splitter. Input: flags, number of delimiters, the delimiters, the text.
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "vorncore/base/array.h"
#include "vorncore/base/strutil.h"

static std::vector<std::string> split(const std::string &text, const std::string &delimiters, int flags) {
    const char *const white = " \t\n\v\f\r";
    std::vector<std::string> pieces;
    for (size_t begin = 0, end; begin <= text.size() && !text.empty(); begin = end + 1) {
        end = std::min(text.find_first_of(delimiters, begin), text.size());
        std::string piece = text.substr(begin, end - begin);
        if (flags & XP_TOKENIZE_TRIM) {
            piece.erase(0, piece.find_first_not_of(white));
            piece.erase(piece.find_last_not_of(white) + 1);
        }
        if (!piece.empty() || !(flags & XP_TOKENIZE_SKIP_EMPTY)) pieces.push_back(piece);
    }
    return pieces;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2 || size < 2u + data[1] % 8) return 0;
    const auto *bytes = reinterpret_cast<const char *>(data);
    std::string delimiters = std::string(bytes + 2, data[1] % 8).c_str(), table(256, '\0');
    std::string text = std::string(bytes + 2 + data[1] % 8, bytes + size).c_str(), copy = text;
    const int flags = data[0] & 7;
    if (flags & XP_TOKENIZE_TABLE) delimiters += '\x01'; // entry 1 set: a table to the array's tokenizer too
    for (const char c : delimiters + '\0') table[static_cast<unsigned char>(c)] = 1;
    const void *set = flags & XP_TOKENIZE_TABLE ? table.data() : delimiters.c_str();
    auto expected = split(text, delimiters, flags);

    xp_array array;
    xp_init_array(&array, 1, nullptr, nullptr);
    xpar_tokenize(&array, copy.data(), set, flags);
    char **const items = reinterpret_cast<char **>(array.items);
    if (std::vector<std::string>(items, items + array.count) != expected) abort();
    const int capacity = std::max(0, data[0] & 8 ? array.count - 1 : array.count);
    const int count = xp_tokenize(items, capacity, text.data(), set, flags);
    if (count != (capacity < array.count ? -1 : array.count)) abort();
    expected.resize(static_cast<size_t>(capacity));
    if (std::vector<std::string>(items, items + capacity) != expected) abort();
    xp_close_array(&array);
    return 0;
}
