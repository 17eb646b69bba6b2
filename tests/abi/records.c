/* The records as callers were compiled with them: sizes, and where each field lies. */
#include <stdio.h>

#include "vorncore/vorncore.h"

struct figure {
    const char *name;
    size_t found, published;
};

static int differences = 0;

static void compare(const char *record, const struct figure *figures, size_t count) {
    for (const struct figure *f = figures; f < figures + count; f++) {
        if (f->found == f->published) continue;
        printf("%s: %s is %zu, published %zu\n", record, f->name, f->found, f->published);
        differences++;
    }
}

#define LAYOUT(type, size, ...)                                                                                        \
    do {                                                                                                               \
        typedef type record;                                                                                           \
        const struct figure figures[] = {{"its size", sizeof(record), size}, __VA_ARGS__};                             \
        compare(#type, figures, sizeof figures / sizeof *figures);                                                     \
    } while (0)
#define AT(field, offset)                                                                                              \
    { #field, offsetof(record, field), offset }

int records_differ(void) {
    LAYOUT(xp_pair, 16, AT(key, 0), AT(value, 8));
    LAYOUT(xpi_istream, 40, AT(destroy, 0), AT(lasterrmsg, 8), AT(lasterrcode, 16), AT(read, 24), AT(context, 32));
    LAYOUT(xpi_ostream, 56, AT(destroy, 0), AT(lasterrmsg, 8), AT(lasterrcode, 16), AT(read, 24), AT(write, 32),
           AT(flush, 40), AT(context, 48));
    LAYOUT(xpi_iostream, 64, AT(destroy, 0), AT(lasterrmsg, 8), AT(lasterrcode, 16), AT(read, 24), AT(write, 32),
           AT(flush, 40), AT(context, 48), AT(read_offset, 56));
    LAYOUT(xp_fmt_target, 32, AT(begin, 0), AT(end, 8), AT(cursor, 16), AT(newbuf, 24));
    LAYOUT(xp_membuf, 40, AT(data, 0), AT(capacity, 8), AT(cursor, 16), AT(initial_capacity, 24), AT(max_length, 32));
    LAYOUT(xp_resentry, 16, AT(release, 0), AT(value, 8));
    LAYOUT(xp_respool, 16, AT(count, 0), AT(capacity, 4), AT(entries, 8));
    LAYOUT(xp_mempool, 48, AT(free_list, 0), AT(block_size, 8), AT(in_use, 12), AT(cached, 16), AT(allocate, 24),
           AT(release, 32), AT(cache_max, 40));
    LAYOUT(xp_objnode, 16, AT(next, 0), AT(object, 8));
    LAYOUT(xp_objpool, 104, AT(free_list, 0), AT(in_use, 8), AT(cached, 12), AT(create, 16), AT(destroy, 24),
           AT(on_alloc, 32), AT(on_free, 40), AT(nodes, 48), AT(cache_max, 96));
    LAYOUT(xp_xobjpool, 144, AT(pool, 0), AT(mutex, 104));
    LAYOUT(xp_objpool_stat, 40, AT(largest, 0), AT(smallest, 8), AT(total, 16), AT(cached, 24), AT(in_use, 32));
    LAYOUT(xp_array, 40, AT(items, 0), AT(copy, 8), AT(release, 16), AT(capacity, 24), AT(initial_capacity, 28),
           AT(count, 32));
    LAYOUT(xp_hashitem, 24, AT(next, 0), AT(key, 8), AT(value, 16));
    LAYOUT(xp_hashtable, 64, AT(buckets, 0), AT(bucket_count, 8), AT(count, 12), AT(key_copy, 16), AT(key_release, 24),
           AT(value_copy, 32), AT(value_release, 40), AT(hash, 48), AT(compare, 56));
    LAYOUT(xp_hashenum, 40, AT(table, 0), AT(bucket, 8), AT(current, 16), AT(previous, 24), AT(end, 32));
    LAYOUT(xp_hashiter, 16, AT(key, 0), AT(next, 8));
    LAYOUT(xp_lrubucket, 16, AT(first, 0), AT(last, 8));
    LAYOUT(xp_lrunode, 40, AT(next, 0), AT(previous, 8), AT(older, 16), AT(newer, 24), AT(bucket, 32));
    LAYOUT(xp_lruitem, 56, AT(next, 0), AT(previous, 8), AT(older, 16), AT(newer, 24), AT(bucket, 32), AT(key, 40),
           AT(value, 48));
    LAYOUT(xp_lruhash, 112, AT(buckets, 0), AT(count, 8), AT(capacity, 12), AT(bucket_count, 16), AT(recency, 24),
           AT(hash, 64), AT(compare, 72), AT(key_copy, 80), AT(key_release, 88), AT(value_copy, 96),
           AT(value_release, 104));
    LAYOUT(xp_lruhashiter, 24, AT(key, 0), AT(next, 8), AT(head, 16));
    LAYOUT(xp_lruhashenum, 24, AT(table, 0), AT(current, 8), AT(sentinel, 16));
    LAYOUT(xp_listnode, 24, AT(next, 0), AT(previous, 8), AT(datum, 16));
    LAYOUT(xp_listlink, 16, AT(first, 0), AT(last, 8));
    LAYOUT(xp_list, 40, AT(count, 0), AT(copy, 8), AT(release, 16), AT(sentinel, 24));
    LAYOUT(xp_listenum, 16, AT(list, 0), AT(current, 8));
    LAYOUT(xp_datanode, 16, AT(next, 0), AT(previous, 8), AT(data, 16));
    LAYOUT(xp_datalink, 16, AT(first, 0), AT(last, 8));
    LAYOUT(xp_datalist, 40, AT(item_size, 0), AT(count, 4), AT(copy, 8), AT(release, 16), AT(sentinel, 24));
    LAYOUT(xp_datalistenum, 16, AT(list, 0), AT(current, 8));
    LAYOUT(xp_dataarray, 40, AT(data, 0), AT(copy, 8), AT(release, 16), AT(item_size, 24), AT(capacity, 28),
           AT(initial_capacity, 32), AT(count, 36));
    LAYOUT(xp_dataitem, 8, AT(next, 0), AT(data, 8));
    LAYOUT(xp_datahash, 72, AT(buckets, 0), AT(bucket_count, 8), AT(key_size, 12), AT(item_size, 16), AT(count, 20),
           AT(key_copy, 24), AT(key_release, 32), AT(value_copy, 40), AT(value_release, 48), AT(hash, 56),
           AT(compare, 64));
    LAYOUT(xp_datahashenum, 40, AT(table, 0), AT(bucket, 8), AT(current, 16), AT(previous, 24), AT(end, 32));
    LAYOUT(xp_ptrbag, 48, AT(slots, 0), AT(capacity, 8), AT(count, 12), AT(used, 16), AT(free_head, 24), AT(copy, 32),
           AT(release, 40));
    LAYOUT(xp_ptrbagenum, 16, AT(bag, 0), AT(index, 8));
    LAYOUT(xp_cirqueue, 24, AT(slots, 0), AT(put, 8), AT(get, 12), AT(size, 16), AT(state, 20));
    LAYOUT(xp_xhashtable, 288, AT(table, 0), AT(lock, 64), AT(slot_count, 240), AT(count_mutex, 248));
    LAYOUT(xp_xhashenum, 48, AT(table, 0), AT(bucket, 8), AT(current, 16), AT(previous, 24), AT(end, 32),
           AT(locked, 36), AT(mode, 40));
    LAYOUT(xp_xlruitem, 64, AT(next, 0), AT(previous, 8), AT(older, 16), AT(newer, 24), AT(bucket, 32), AT(key, 40),
           AT(value, 48), AT(references, 56), AT(valid, 60));
    LAYOUT(xp_xlruhash, 528, AT(lru, 0), AT(bucket_lock, 112), AT(list_lock, 288), AT(slot_count, 464),
           AT(live_count, 468), AT(count_mutex, 472), AT(item_mutexes, 512), AT(pending, 520));
    LAYOUT(xp_xlruhashenum, 32, AT(table, 0), AT(current, 8), AT(sentinel, 16), AT(mode, 24));
    LAYOUT(xp_md5, 124, AT(state, 0), AT(count_high, 16), AT(count_low, 20), AT(block, 24), AT(has_text, 88),
           AT(text, 89));
    LAYOUT(xp_rwlock, 176, AT(mode, 0), AT(mutex, 8), AT(readers, 48), AT(writers, 96), AT(active_readers, 144),
           AT(active_writers, 152), AT(waiting_writers, 160), AT(waiting_readers, 168));
    LAYOUT(xp_iofilter, 8, AT(filter, 0));
    LAYOUT(xprb, 80, AT(fd, 0), AT(max_record, 4), AT(timeout, 8), AT(block, 16), AT(block_end, 24), AT(data, 32),
           AT(data_end, 40), AT(scan, 48), AT(last_error, 56), AT(message, 64), AT(saved_errno, 72));
    LAYOUT(xprb2, 80, AT(fd, 0), AT(timeout, 4), AT(input, 8), AT(input_position, 16), AT(input_end, 24),
           AT(input_size, 32), AT(record, 40), AT(record_position, 48), AT(max_record, 56), AT(last_error, 60),
           AT(message, 64), AT(saved_errno, 72));
    LAYOUT(xpwb_block, 24, AT(start, 0), AT(write_position, 8), AT(flush_position, 16));
    LAYOUT(xpwb, 120, AT(last_error, 0), AT(message, 8), AT(saved_errno, 16), AT(status, 20), AT(fd, 24),
           AT(block_size, 28), AT(current, 32), AT(pending, 56), AT(timeout, 96), AT(max_pending, 100),
           AT(flush_noti, 104), AT(noti_argument, 112));
    LAYOUT(xp_xcirqueue, 168, AT(mutex, 0), AT(not_empty, 40), AT(not_full, 88), AT(queue, 136), AT(shutdown, 160));
    LAYOUT(xp_interlocked_counter, 48, AT(mutex, 0), AT(value, 40));
    LAYOUT(xp_acounter_snapshot, 8, AT(sum, 0), AT(count, 4));
    LAYOUT(xp_interlocked_accumulation_counter, 48, AT(sum, 0), AT(count, 4), AT(mutex, 8));
    LAYOUT(xp_average, 8, AT(average, 0), AT(count, 4));
    LAYOUT(xp_reference_counter, 64, AT(object, 0), AT(destroy, 8), AT(references, 16));
    LAYOUT(xp_random, 32, AT(seed, 0), AT(clock, 4), AT(state, 8));
    LAYOUT(xp_filedata, 16, AT(data, 0), AT(length, 8));
    LAYOUT(xp_http_url, 24, AT(host, 0), AT(port, 8), AT(path, 16));
    LAYOUT(xp_http, 160, AT(pool, 0), AT(timeout, 16), AT(resp_stream, 24), AT(cookie_table, 32), AT(header_table, 40),
           AT(user_agent, 48), AT(cookie_line, 56), AT(header_block, 64), AT(cookies_dirty, 72), AT(headers_dirty, 76),
           AT(errmsg, 80), AT(wbuf, 88), AT(rbuf, 96), AT(resp_code, 104), AT(resp_headers, 112), AT(resp_body, 120),
           AT(method, 128), AT(max_redirects, 136), AT(redirect_count, 138), AT(absorb_cookies, 140),
           AT(proxy_host, 144), AT(proxy_port, 152), AT(resp_maxlength, 156));
    LAYOUT(xp_quillet, 48, AT(host, 0), AT(port, 8), AT(timeout, 12), AT(state, 16), AT(fd, 20), AT(rbuf, 24),
           AT(store_id, 32), AT(errmsg, 40));
    LAYOUT(xp_marrow, 72, AT(host, 0), AT(port, 8), AT(timeout, 12), AT(state, 16), AT(curline, 24), AT(fd, 32),
           AT(rbuf, 40), AT(columns, 48), AT(errmsg, 56), AT(rows, 64));
    LAYOUT(xp_xmlnode, 64, AT(kind, 0), AT(text, 8), AT(ns, 16), AT(prefix, 24), AT(parent, 32), AT(children, 40),
           AT(attributes, 48), AT(attribute_count, 56));
    LAYOUT(xp_xmlattr, 56, AT(kind, 0), AT(value, 8), AT(ns, 16), AT(prefix, 24), AT(owner, 32), AT(name, 40),
           AT(next, 48));
    LAYOUT(xp_xmltree, 56, AT(kind, 0), AT(source, 8), AT(skip_mask, 16), AT(ns_enabled, 24), AT(root, 32),
           AT(nodes, 40), AT(declaration, 48));
    LAYOUT(xp_xpath, 48, AT(text, 0), AT(steps, 8));
    LAYOUT(xp_lineinfo, 40, AT(starts, 0));
    LAYOUT(xp_dbi, 64, AT(statements, 0), AT(custom, 48), AT(custom_release, 56));
    LAYOUT(xp_dbistmt, 24, AT(name, 0), AT(custom, 8), AT(custom_release, 16));
    return differences;
}
