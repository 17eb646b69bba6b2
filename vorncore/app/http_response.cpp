// The receiving half of the HTTP client.
#include <errno.h>
#include <inttypes.h>
#include <limits.h>
#include <strings.h>

#include <algorithm>

#include "vorncore/app/internal/httpclient.h"
#include "vorncore/app/internal/httphead.h"
#include "vorncore/base/chartype.h"
#include "vorncore/io/internal/readbuf.h"

using namespace vorncore;

/// Two spellings of a name fall into one bucket. The first byte picks the seed in lower case, the sum takes upper case:
/// programs depend on the order in which response headers are enumerated.
static uint32_t __casehashf(const void *key, uint32_t bucket_count) {
    const auto *text = static_cast<const char *>(key);
    uint32_t hash = xp_hash_randseed[xp_char_to_lower(*text)];
    for (; *text; text++) hash = (hash << 4 | hash >> 28) ^ xp_char_to_upper(*text);
    return hash % bucket_count;
}

static int __casestrcmp(const void *a, const void *b) {
    return strcasecmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

namespace {

constexpr int64_t trusted_length = 1 << 20; // reserved on a peer's word; longer bodies grow as they arrive
constexpr int64_t to_the_end = -1;          // length of a body that ends with the connection

int stream_error(xp_http *client, const char *operation) {
    return __xphttp_error_log(client, "xpi_ostream.%s() fail : %s", operation,
                              client->resp_stream->lasterrmsg(client->resp_stream));
}

int line_error(xp_http *client) {
    return __xphttp_error_log(client, "xprb_read_line() fail : %s", xprb_lasterrmsg(client->rbuf));
}

/// A read that gave nothing: the end of a body that lasts as long as the connection, a failure otherwise.
int end_of_input(xp_http *client, int64_t wanted, int64_t received) {
    if (client->rbuf->last_error != IOERROR_EOF)
        return __xphttp_error_log(client, "xprb_read() fail : %s", xprb_lasterrmsg(client->rbuf));
    if (wanted == to_the_end) return 1;
    return __xphttp_error_log(client, "Short response : %" PRId64 " bytes are required. %" PRId64 " bytes are received",
                              wanted, received);
}

int piece_limit(int64_t wanted, int64_t received) {
    return wanted == to_the_end ? INT_MAX : static_cast<int>(std::min<int64_t>(wanted - received, INT_MAX));
}

int receive_into_stream(xp_http *client, int64_t wanted) {
    xpi_ostream *stream = client->resp_stream;
    int64_t received = 0;
    while (received != wanted) {
        int length;
        const char *piece = xprb_read_upto(client->rbuf, &length, piece_limit(wanted, received));
        if (!piece) {
            if (!end_of_input(client, wanted, received)) return 0;
            break;
        }
        if (stream->write(stream, piece, static_cast<uint32_t>(length)) < 0) return stream_error(client, "write");
        received += length;
    }
    return stream->flush(stream) ? 1 : stream_error(client, "flush");
}

/// The empty body buffer, with room for what the peer announced as far as it is trusted.
xp_membuf *prepare_body(xp_http *client, int64_t wanted) {
    const int64_t limit = client->resp_maxlength;
    int64_t room = wanted == to_the_end ? 1024 : std::min(wanted, trusted_length);
    if (limit > 0) room = std::min(room, limit);
    if (!client->resp_body) {
        client->resp_body = pooled_membuf(client, static_cast<uint32_t>(room));
        if (!client->resp_body) return nullptr;
        if (limit > 0) xpmb_set_maxlength(client->resp_body, static_cast<uint64_t>(limit));
    }
    xpmb_clear(client->resp_body);
    // A hint: an older buffer may be limited to less, and what memory cannot hold shows when it arrives.
    xpmb_ensure(client->resp_body, static_cast<uint64_t>(room));
    return client->resp_body;
}

/// One read into the body itself, as the read buffer is empty: the bytes read; below 1 on failure, which is the read
/// buffer's, unless memory is short (0).
int read_into_body(xp_http *client, int limit) {
    xp_membuf *body = client->resp_body;
    const auto length = static_cast<uint64_t>(body->cursor - body->data);
    if (!xpmb_ensure(body, length + static_cast<uint64_t>(std::min(limit, http_buffer_size)))) return 0;
    const auto room = static_cast<int64_t>(body->capacity - length);
    const int got = read_into(client->rbuf, body->cursor, std::min<int64_t>(limit, room));
    if (got > 0) body->cursor += got;
    return got;
}

/// One piece of what is buffered or arrives, appended to the body; results as above.
int append_piece(xp_http *client, int limit) {
    xp_membuf *body = client->resp_body;
    int length = 0;
    const char *piece = xprb_read_upto(client->rbuf, &length, limit);
    if (!piece) return client->rbuf->last_error;
    // A body at its maximum drops the piece; without a maximum only memory can be short.
    return xpmb_add_data(body, piece, static_cast<uint64_t>(length)) || body->max_length ? length : 0;
}

int receive_into_body(xp_http *client, int64_t wanted) {
    if (!prepare_body(client, wanted)) return http_out_of_memory(client);
    const xprb *in = client->rbuf;
    for (int64_t received = 0, got; received != wanted; received += got) {
        const int limit = piece_limit(wanted, received);
        const bool directly = in->data == in->data_end && !client->resp_body->max_length;
        got = directly ? read_into_body(client, limit) : append_piece(client, limit);
        if (got < 0) return end_of_input(client, wanted, received);
        if (got == 0) return http_out_of_memory(client);
    }
    return 1;
}

} // namespace

/// Receives exactly `wanted` bytes into the stream or the body.
static int __xphttp_recv_resp__(xp_http *client, int64_t wanted) {
    wanted = std::max<int64_t>(wanted, 0);
    return client->resp_stream ? receive_into_stream(client, wanted) : receive_into_body(client, wanted);
}

static int __xphttp_recv_resp_eof(xp_http *client) {
    return client->resp_stream ? receive_into_stream(client, to_the_end) : receive_into_body(client, to_the_end);
}

namespace {

/// Kept: the body is cleared for every chunk, so it ends up with the last one; a stream gets them all.
int receive_chunks(xp_http *client) {
    for (;;) {
        char *line = xprb_read_line(client->rbuf, nullptr);
        if (!line) return client->rbuf->last_error == IOERROR_EOF ? 1 : line_error(client);
        if (!*line) continue;
        int32_t size;
        const chunk_line kind = parse_chunk_line(line, &size);
        if (kind == chunk_line::last) return 1;
        if (kind == chunk_line::size && !__xphttp_recv_resp__(client, size)) return 0;
    }
}

int receive_content(xp_http *client, const char *length_text) {
    int64_t length;
    if (!parse_content_length(length_text, &length))
        return __xphttp_error_log(client, "Invalid Content-Length value  <%s>", length_text);
    return __xphttp_recv_resp__(client, length);
}

/// The status line and the headers up to the empty line.
int receive_head(xp_http *client) {
    char *line = xprb_read_line(client->rbuf, nullptr);
    if (!line) return line_error(client);
    if (!parse_status_line(line, client->resp_code))
        return __xphttp_error_log(client, "Invalid Response line <%s>", line);
    while ((line = xprb_read_line(client->rbuf, nullptr)) && *line) {
        const header_line header = cut_header_line(line);
        if (!header.name) return __xphttp_error_log(client, "Invalid Header <%s>", line);
        xpht_add(client->resp_headers, header.name, header.value);
    }
    return line ? 1 : line_error(client);
}

} // namespace

int __xphttp_receive_response(xp_http *client, int descriptor) {
    if (!client->resp_headers) client->resp_headers = pooled_table(client, 23, __casehashf, __casestrcmp);
    if (!client->resp_headers) return http_out_of_memory(client);
    xprb_reset(client->rbuf, descriptor);

    if (!receive_head(client)) return 0;
    if (client->method == XP_HTTP_HEAD) return 1;
    if (xphttp_response_header(client, "Transfer-Encoding")) return receive_chunks(client);
    const char *length = xphttp_response_header(client, "Content-Length");
    return length ? receive_content(client, length) : __xphttp_recv_resp_eof(client);
}
