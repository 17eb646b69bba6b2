#include "vorncore/io/readbuf.h"

#include <errno.h>
#include <limits.h>

#include "support/channel.h"
#include "support/fault.h"
#include "support/harness.h"
#include "vorncore/io/io.h"
#include "vorncore/io/readbuf2.h"

using namespace harness;

namespace {

/// A read buffer of either kind, without patience, on a socket whose other end the test plays.
struct player {
    channel peer{channel::kind::sockets};
    xprb *const one;
    xprb2 *const two;
    xp_membuf mb;
    std::string gathered = {}; // what failed calls have left in `mb`
    std::string late = {};     // arrives when a call waits for it

    explicit player(bool second = false, int max_record = 8)
        : one(second ? nullptr : xp_create_readbuf(peer[0], max_record)),
          two(second ? xp_create_readbuf2(peer[0], max_record) : nullptr) {
        (two ? two->timeout : one->timeout) = 0;
        xp_init_membuf(&mb, 1);
    }
    ~player() {
        two ? xp_destroy_readbuf2(two) : xp_destroy_readbuf(one);
        xp_close_membuf(&mb);
    }

    /// What the calls of letters give, or the signs of their failures. A digit is a count of bytes, and '/' is -1.
    std::string play(const char *letters) {
        std::string results;
        for (; *letters; letters++) {
            std::string result = play(*letters);
            if (result == "?") peer.with(std::exchange(late, "")), result = play(*letters);
            results += result + '|';
        }
        return results;
    }
    std::string play(char letter) {
        char *end = nullptr, *bytes = nullptr;
        int length = -1;
        switch (letter) {
        case 'l': bytes = line(&end, nullptr); break;
        case 'x': bytes = line(&end, &mb); break;
        case 'p': bytes = find("aba", &end); break;
        case 'q': bytes = find("\r\n\r\n", &end); break;
        case 'e': bytes = find("", &end); break;
        case 'n': bytes = xprb_read_line(one, &end); break;
        case 'U': bytes = xprb_read_upto(one, &length, 2); break;
        case 'r': bytes = two ? xprb2_read(two, &length) : xprb_read(one, &length); break;
        case 'b': bytes = two ? xprb2_read_bufdata(two, &length) : xprb_read_bufdata(one, &length); break;
        case 'u': return (two ? xprb2_unread(two, "UVW", 3) : xprb_unread(one, "UVW", 3)) ? "+" : "!";
        case 'R': return two ? xprb2_reset(two, peer[0]) : xprb_reset(one, peer[0]), failure() ? "!" : "R";
        case '>': return peer.with("aba"), ">";
        case '.': return peer.drop(1), ".";
        default: length = letter - '0', bytes = two ? xprb2_read_all(two, length) : xprb_read_all(one, length); break;
        }
        if (bytes)
            return std::exchange(gathered, "") + std::string(bytes, end ? end : bytes + length) +
                   (end && *end ? "+" : "");
        if (letter == 'x') gathered.append(mb.data, mb.cursor);
        if (length == 0) return "0";
        return failure() == IOERROR_READTIMEOUT ? "?" : failure() == IOERROR_OVERFLOW ? "!" : ".";
    }
    char *line(char **end, xp_membuf *to) {
        return two ? xprb2_read_to_delimiter_ex(two, end, '\n', to) : xprb_read_to_delimiter_ex(one, end, '\n', to);
    }
    char *find(std::string_view pattern, char **end) {
        const int length = static_cast<int>(pattern.size());
        return two ? xprb2_read_to_pattern(two, end, pattern.data(), length)
                   : xprb_read_to_pattern(one, end, pattern.data(), length);
    }
    int failure() const { return two ? two->last_error : one->last_error; }
};

} // namespace

TEST(ReadBuffers, GiveTheSameInWhateverPiecesTheInputArrives) {
    const struct {
        const char *name;
        int max, area;
        std::string input;
        const char *calls, *results, *of_second = results;
        int reads = 0; // of the first kind alone, when they are counted
    } cases[] = {
        {"lines", 4, 6, "a\nabc\n\nabcd\n", "llll", "a|abc||!|"},
        {"lines without end", 4, 3, "abc\nde\nf\n\nghi\njkl\nmn", "lllllll", "abc|de|f||ghi|jkl|?|"},
        {"lines of any length", 4, 6, "abc\nabcd\nabcdefghij\n\nabcdef", "xxxxx>3",
         "abc|abcd|abcdefghij||?|>|abcdefaba|", "abc|abcd|abcdefghij||?|>|abcdefa|"},
        {"pattern", 9, 6, "xabababaabbabbabaababbaba", "ppppp", "x|b|abbabb||bb|"},
        {"pattern and body", 12, 5, "ab\r\r\n\r\n12345", "q5", "ab\r|12345|"},
        {"longest pattern", 4, 6, "\r\n\r\nx\r\n\r\n", "qq", "|!|"},
        {"pattern of no size", 3, 6, "\r\nab", "eq2", "!|!|\r\n|"},
        {"bytes", 8, 6, "abcdefghijk", "80/293", "abcdefgh||!|ij|!|?|"},
        {"bytes across the block", 4, 3, "abcdefghijklmnopq", "341432", "abc|defg|h|ijkl|mno|pq|"},
        {"lines and bytes", 4, 5, "ab\nabc\nab\nabc\nabc\nabc", "3l3lll", "ab\n|abc|ab\n|abc|abc|?|"},
        {"another ending", 8, 9, "xabay", "l>p", "?|>|xabay|"},
        {"another ending, begun before", 8, 9, "xab", "l>p", "?|>|x|"},
        {"another ending, moved", 5, 9, "ab\nab\nxaba", "lll>p", "ab|ab|?|>|!|"},
        {"bytes after a line", 8, 6, "abc", "l2b", "?|ab|c|", "?|ab|0|"},
        {"read after a line", 8, 6, "abc", "l>r3", "?|>|abc|aba|", "?|>|aba|abc|"},
        {"put back after a line", 8, 6, "abc", "lur>3", "?|+|UVW|>|aba|", "?|+|UVW|>|abc|"},
        {"reset", 8, 6, "ab\ncd", "l8R>>1R>l>3", "ab|?|R|>|>|a|R|>|?|>|aba|"},
        {"rest at the end", 8, 6, "ab", "l.lb", "?|.|.|ab|", "?|.|.|0|"},
        {"reads of a record", 8, 6, "abcdefghijkl", "rrb", "abcdefgh|ijkl|0|"},
        {"reads of an area", 4, 6, "abcdefghijkl", "rrb", "abcd|efgh|0|", "abcdef|ghijkl|0|"},
        {"put back", 8, 6, "\n\n\ndef", "lllur", "|||+|UVWdef|"},
        {"put back and moved", 8, 6, "a\ncd", "lur", "a|+|UVWcd|"},
        {"put back, full", 8, 8, "x\nabcde", "lurur", "x|+|UVWabcde|+|UVW|"},
        {"put back, overflow", 8, 8, "x\nabcdef", "lur", "x|!|abcdef|"},
        {"put back, by size", 4, 9, "x\nab", "lur", "x|!|ab|", "x|+|UVWab|"},
        {"lost with a line too long", 4, 6, "abcdefgh", "lb", "!|0|"},
        {"lines of a protocol", 8, 6, "\r\n\r\nbb\nc\rd\n7890", "n1nnn>7", "|\r||bb|c\rd|>|7890aba|", nullptr, 2},
        {"whole blocks", 8, 6, "0123456789ab", "444>>>>444", "0123|4567|89ab|>|>|>|>|abaa|baab|aaba|", nullptr, 2},
        {"few bytes", 8, 6, "abcdefgh", "UUur", "ab|cd|+|UVWefgh|", nullptr, 1},
        {"no room for a record", 0, 6, "abc", "lx01r", "!|!||!|!|", "!|!||!|abc|"},
    };
    for (const auto &row : cases) {
        const size_t size = row.input.size(), first_split = row.reads || strpbrk(row.calls, "rbuR") ? size : 0;
        for (const bool second : {false, true}) {
            if (second && !row.of_second) continue;
            for (size_t split = first_split; split <= size; split++) {
                const setting area(xp_io_buffer_size, row.area);
                player p(second, row.max);
                p.peer.with(row.input.substr(0, split));
                p.late = row.input.substr(split);
                const fault_io byte_by_byte(call::read, split % 2 && !first_split ? 0 : INT_MAX, 0);
                EXPECT_EQ(p.play(row.calls), second ? row.of_second : row.results) << row.name << split;
                EXPECT_TRUE(row.reads == 0 || byte_by_byte.calls() == row.reads) << row.name;
            }
        }
    }
}

TEST(ReadBuffers, StreamForwardsToABufferMadeWithOrWithoutMemory) {
    for (const bool second : {false, true})
        oom_sweep([second] {
            channel sender(channel::kind::sockets);
            xprb *one = second ? nullptr : xp_create_readbuf(sender.with("chunk")[0], 8);
            xprb2 *two = second ? xp_create_readbuf2(sender.with("chunk")[0], 8) : nullptr;
            if (!one && !two) return;
            EXPECT_EQ(std::exchange(two ? two->timeout : one->timeout, 0), -1);
            if (xpi_istream *stream = two ? xprb2_create_istream(two) : xprb_create_istream(one)) {
                uint32_t length = 99;
                EXPECT_EQ(memcmp(stream->read(stream, &length), "chunk", 5), 0);
                EXPECT_TRUE(!stream->read(stream, &length) && length == 5) << "a failure stores no length";
                sender.drop(1);
                EXPECT_TRUE(!stream->read(stream, &length) && length == 0) << "but for the end";
                EXPECT_EQ(stream->lasterrcode(stream), IOERROR_EOF);
                EXPECT_EQ(strncmp(stream->lasterrmsg(stream), "IOERROR_EOF", 11), 0);
                stream->destroy(stream);
            }
            two ? xp_destroy_readbuf2(two) : xp_destroy_readbuf(one);
        });
}

TEST(ReadBuffers, FailureKeepsWhatHasArrivedAndSaysWhyUntilReset) {
    player p;
    for (const auto &[error, text] : {std::pair(ECONNRESET, "IOERROR_READ:errno=104<Connection reset by peer>"),
                                      std::pair(EIO, "IOERROR_READ:errno=5<Input/output error>")}) {
        EXPECT_STREQ(xprb_lasterrmsg(p.one), "NO ERROR");
        p.peer.with("ab");
        EXPECT_EQ(p.play("l"), "?|");
        p.peer.with("cd\n");
        EXPECT_EQ((fault_io(call::read, 1, error), p.play("l")), ".|");
        for (int time = 0; time < 2; time++) EXPECT_STREQ(xprb_lasterrmsg(p.one), text);
        EXPECT_EQ(p.play("lR"), "abcd|R|");
    }
    xpmb_set_maxlength(&p.mb, 12);
    p.peer.with("0123456789ab\n0123456789abc\n");
    EXPECT_EQ(p.play("xx"), "0123456789ab|!|") << "what the memory buffer refuses";
    EXPECT_EQ(xprb_unread(p.one, "x", -1), 0);
    EXPECT_TRUE(!xprb_read_upto(p.one, nullptr, -1) && p.one->last_error == IOERROR_OVERFLOW);
    xprb first;
    xprb2 second;
    EXPECT_DEATH(xp_init_readbuf(&first, -1, -1), "vorncore: xp_init_readbuf: out of memory");
    EXPECT_DEATH(xp_init_readbuf2(&second, -1, -1), "vorncore: xp_init_readbuf2: out of memory");
}
