// Both tokenizers against a plain splitter. Input: flags, number of delimiters, the delimiters, the text.
#include "tests/fuzz/target.h"
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

static void check(std::string_view input) {
    const size_t size = input.size(), count = size < 2 ? 0 : input[1] & 7;
    if (size < 2 + count) return;
    std::string delimiters = std::string(input.substr(2, count)).c_str(), table(256, '\0');
    std::string text = std::string(input.substr(2 + count)).c_str();
    const int flags = input[0] & 7;
    if (flags & XP_TOKENIZE_TABLE) delimiters += '\x01'; // entry 1 set: a table to the array's tokenizer too
    for (const char c : delimiters + '\0') table[static_cast<unsigned char>(c)] = 1;
    const void *set = flags & XP_TOKENIZE_TABLE ? table.data() : delimiters.c_str();
    std::string unaligned = delimiters + text;
    auto expected = split(text, delimiters, flags);

    xp_array array;
    xp_init_array(&array, 1, nullptr, nullptr);
    xpar_tokenize(&array, unaligned.data() + delimiters.size(), set, flags);
    char **const items = reinterpret_cast<char **>(array.items);
    require(std::vector<std::string>(items, items + array.count) == expected);
    if (text.find('\x01') == text.npos) table[1] = 0;
    const int capacity = std::max(0, input[0] & 8 ? array.count - 1 : array.count);
    require(xp_tokenize(items, capacity, text.data(), set, flags) == (capacity < array.count ? -1 : array.count));
    expected.resize(static_cast<size_t>(capacity));
    require(std::vector<std::string>(items, items + capacity) == expected);
    require(xp_tokenize(nullptr, 0, nullptr, set, flags) == 0);
    xp_close_array(&array);
}
