/* The interface as a plain C program sees it: every header, the layout of the records, calls of each family. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vorncore/vorncore.h"

#if !VORNCORE_VERSION_AT_LEAST(1, 1, 0) || VORNCORE_VERSION_AT_LEAST(1, 1, 1)
#error "the version check of the headers is wrong"
#endif

int records_differ(void);

static int failures = 0;

#define CHECK(condition) ((condition) ? (void)0 : (void)(failures++, printf("line %d: %s\n", __LINE__, #condition)))

static int same(const void *a, const char *b) { return a && strcmp((const char *)a, b) == 0; }
static void *new_object(void) { return malloc(1); }

static void call_texts(void) {
    char text[] = " x ", coded[48], scrambled[9], byte;
    CHECK(strstr(vorncore_name, " " VORNCORE_VERSION_STRING " "));
    CHECK(xp_char_to_upper('q') == 'Q' && xp_char_hex_value('f') == 15 && xp_char_hex_value('g') < 0);
    CHECK(sizeof xp_conv62_map == 63 && sizeof xp_rconv62_map == 256 && sizeof xp_hash_randseed == 1024);
    CHECK(same(xp_trim(text), "x") && same(xp_url_encode("a b/c", coded), "a+b%2Fc"));
    CHECK(same(xp_base64_encode("ab", coded), "YWI="));
    CHECK(same(xp_convert(61, text, 4, XP_CONVERT_PAD('0') | 62), "00z"));
    CHECK(same(xp_decode_skey(xp_encode_rawskey("key", coded)), "key"));

    xp_md5 md5;
    xp_md5_init(&md5);
    xp_md5_update(&md5, "abc", 3);
    CHECK(xp_md5_close(&md5)[0] == 0x90 && xp_md5_padding[0] == 0x80);
    CHECK(same(xp_md5_result_str(&md5), "900150983cd24fb0d6963f7d28e17f72"));
    uint8_t key[16];
    xp_crypt_init(key, "abc", 3);
    CHECK(key[0] == 0x90 && xp_crypt_encrypt(key, "x", 1, scrambled) == 9);
    CHECK(xp_crypt_decrypt(key, scrambled, 9, &byte) == 1 && byte == 'x');
}

static void call_containers(void) {
    xp_array *array = xp_create_array(1, NULL, NULL);
    CHECK(xpar_insert(array, 0, "a") == array && xpst_pop(array, NULL) == 1);
    xp_destroy_array(array);
    xp_list *list = xp_create_list(NULL, NULL);
    CHECK(xpls_add(list, "a") == list->sentinel.first && list->sentinel.first->next == xpls_head(list));
    xp_destroy_list(list);
    int n = 7, square = 49;
    xp_dataarray *numbers = xp_create_dataarray(1, sizeof(int), NULL, NULL);
    CHECK(*(int *)xpda_add(numbers, &n) == 7 && xpda_insert(numbers, 0, NULL) == numbers->data);
    xp_destroy_dataarray(numbers);
    xp_datalist *data = xp_create_datalist(2, NULL, NULL);
    CHECK(same(xpdl_add(data, "b")->data, "b") && data->sentinel.last->next == xpdl_head(data));
    xp_destroy_datalist(data);
    xp_datahash *squares = xp_create_datahash(3, NULL, NULL, sizeof(int), NULL, NULL, sizeof(int), NULL, NULL);
    CHECK(xpdh_put(squares, &n, &square) == 1 && *(int *)xpdh_get(squares, &n) == 49);
    xp_destroy_datahash(squares);
    xp_hashtable *table = xp_create_hashtable(3, NULL, NULL, NULL, NULL, NULL, NULL);
    CHECK(xpht_put(table, "a", "1") == 1 && same(xpht_get(table, "a"), "1") && !xpht_get_pair(table, "b"));
    xp_destroy_hashtable(table);
    xp_lruhash *cache = xp_create_lruhash(1, 3, NULL, NULL, NULL, NULL, NULL, NULL);
    xplh_put(cache, "a", "1");
    CHECK(xplh_contains(cache, "a") && !xplh_contains(cache, "b"));
    xp_destroy_lruhash(cache);
    xp_ptrbag *bag = xp_create_ptrbag(1, NULL, NULL);
    CHECK(xppb_add(bag, "a") == 0 && xppb_add(bag, "b") == 1);
    xp_destroy_ptrbag(bag);
    xp_cirqueue *queue = xp_create_cirqueue(1);
    CHECK(xpcq_put(queue, "a") == 1 && xpcq_put(queue, "b") == 0);
    xp_destroy_cirqueue(queue);
}

static void call_shared(void) {
    xp_xhashtable *shared = xp_create_xhashtable(2, XP_RWLOCK_NOPREF, 3, NULL, NULL, NULL, NULL, NULL, NULL);
    const int bucket = xpxht_write_lock(shared, "a");
    CHECK(xpxht_put(shared, "a", "1", bucket) == 1 && xpxht_count(shared) == 1);
    xpxht_write_unlock(shared, bucket);
    xp_destroy_xhashtable(shared);
    xp_xlruhash *shared_cache = xp_create_xlruhash(2, XP_RWLOCK_NOPREF, 1, 3, NULL, NULL, NULL, NULL, NULL, NULL);
    const uint32_t marked = xpxlh_write_lock(shared_cache, "a");
    xpxlh_put(shared_cache, "a", "1", marked);
    CHECK(marked >> 31 == 1 && xpxlh_contains(shared_cache, "a", marked) && xpxlh_count(shared_cache) == 1);
    xpxlh_write_unlock(shared_cache, marked);
    xp_destroy_xlruhash(shared_cache);
    xp_rwlock *lock = xp_create_rwlock(2, XP_RWLOCK_WRITER_CLAIM);
    xprwl_write_lock(lock, 1);
    CHECK(lock->active_writers[1] == 1);
    xprwl_write_unlock(lock, 1);
    xp_destroy_rwlock(lock);
    xp_xcirqueue *waiting = xp_create_xcirqueue(1);
    void *item = NULL;
    CHECK(xpxcq_put(waiting, "a", 0) == XP_XCQ_OK && xpxcq_get(waiting, &item, -1) == XP_XCQ_OK && same(item, "a"));
    xp_destroy_xcirqueue(waiting);
}

static void call_memory(void) {
    xp_membuf *mb = xp_create_membuf(16);
    CHECK(xpmb_add_str(mb, "x") && xpmb_printf(mb, "%'d", 1000) == 5 && same(xpmb_tostr(mb), "x1,000"));
    xp_destroy_membuf(mb);
    xp_respool *pool = xp_create_respool();
    CHECK(same(xprp_strcat_v(pool, "a", "b", (char *)NULL), "ab") && xprp_last_index(pool) == 0);
    CHECK(xprp_fopen(pool, "/", "w") == NULL && pool->count == 1);
    xp_destroy_respool(pool);
    xp_xobjpool *objects = xp_create_xobjpool(new_object, free, NULL, NULL);
    xpxop_free(objects, xpxop_alloc(objects));
    xpmp_free_inline(&objects->pool.nodes, xpmp_alloc_inline(&objects->pool.nodes));
    CHECK(objects->pool.cached == 1 && objects->pool.nodes.block_size == 16);
    xp_destroy_xobjpool(objects);
}

static void call_io(void) {
    char text[16];
    CHECK(same(xp_ioerror_str(IOERROR_SELECTERR), "IOERROR_SELECTERR") && IOERROR_SELECTERR == -981);
    CHECK(same(xp_inet_ntoa(xp_inet_addr(10, 0, 0, 255), text), "10.0.0.255") && XP_INADDR_ANY == 0);
    CHECK(xp_file_set_flag(-1, 1) == 0 && xp_set_fdlimit(-1) == 0);
    xprb *lines = xp_create_readbuf(-1, 16);
    CHECK(xprb_unread(lines, "a\r\n", 3) && same(xprb_read_line(lines, NULL), "a"));
    xp_destroy_readbuf(lines);
    xprb2 *records = xp_create_readbuf2(-1, 16);
    CHECK(xprb2_unread(records, "a||", 3) && same(xprb2_read_to_pattern(records, NULL, "||", 2), "a"));
    xp_destroy_readbuf2(records);
    xpwb wb;
    xp_init_writebuf(&wb, -1, 8);
    CHECK(xpwb_printf(&wb, "%d", 1234) == 4 && xpwb_write_str(&wb, "5678") == -1 && wb.status == 0);
    xp_close_writebuf(&wb);
    xp_reference_counter *counter = xp_create_reference_counter(NULL, NULL);
    CHECK(xprc_release(xprc_addref(counter)) == 1 && xprc_release(counter) == 0);
    xp_random generator;
    xp_rand32_init(&generator, 1);
    CHECK(generator.seed == 1 && xp_time_ms() - generator.clock < 60000);
}

static void call_clients(void) {
    char date[30], address[] = "alpha:81/x", connection[32];
    CHECK(same(xp_make_http_date(0, date), "Thu, 01 Jan 1970 00:00:00 GMT") && xp_parse_http_date(date) == 0);
    xp_http_url url;
    CHECK(xp_parse_http_url(address, &url) == 1 && url.port == 81 && same(url.path, "x"));
    xp_http client;
    xp_init_http(&client, NULL);
    CHECK(xphttp_get(&client, "https://alpha", NULL) == 0 && same(client.errmsg, "Malformed URL <https://alpha>"));
    xp_close_http(&client);
    xp_quillet *ql = xp_create_quillet("127.0.0.1", 1, 64, 0);
    CHECK(xpql_del(ql, "k") == XPQL_WRONG_STATE && same(xpql_lasterror(ql), "NO ERROR"));
    xp_destroy_quillet(ql);
    xp_marrow gateway;
    xp_init_marrow(&gateway, "alpha", 4000, 64, 0);
    CHECK(xpmw_stmt_fetch(&gateway) == XPMW_WRONG_STATE && same(xpmw_lasterror(&gateway), "Connection is not opened"));
    xp_close_marrow(&gateway);
    CHECK(same(xpdbi_gen_connstr(connection, sizeof connection, "tcp", "db1", 80, "test", NULL), "!tcp:db1:80:test"));
    CHECK(XP_DBI_SQLITE == 4 && xp_create_dbi(XP_DBI_SQLITE) == NULL);
}

static void call_xml(void) {
    char text[] = "<a xmlns='U' i='1'><b/></a>";
    xp_xmltree tree;
    CHECK(xp_init_xmltree(&tree, text, 0, NULL) == 1 && xpxt_enable_ns(&tree) == 1);
    CHECK(xpxn_child(xpxt_node(&tree), 0) == tree.root && same(xpxn_attribute_ns(tree.root, NULL, "i"), "1"));
    CHECK(same(xpxn_find(xpxt_node(&tree), "a/b")->ns, "U"));
    xp_close_xmltree(&tree);
    int line = 0, column = -1;
    xp_lineinfo *info = xp_create_lineinfo("ab\ncd");
    xpli_resolve_pos(info, 1, &line, &column);
    CHECK(line == 1 && column == 0);
    xp_destroy_lineinfo(info);
}

int main(void) {
    call_texts();
    call_containers();
    call_shared();
    call_memory();
    call_io();
    call_clients();
    call_xml();
    puts(vorncore_name);
    return failures || records_differ();
}
