#include "abi.h"

#include <stdlib.h>
#include <string.h>

#include "vorncore/vorncore.h"

#if !VORNCORE_VERSION_AT_LEAST(1, 1, 0) || VORNCORE_VERSION_AT_LEAST(1, 1, 1)
#error "the version check of the headers is wrong"
#endif

/* Besides the last field those where same-sized neighbours could change places or padding could hide a shift. */
SIZE_IS(xp_pair, 16);
SIZE_IS(xpi_istream, 40);
SIZE_IS(xpi_ostream, 56);
RECORD(xpi_iostream, 64, read_offset, 56);
RECORD(xp_array, 40, count, 32);
AT(xp_array, capacity, 24);
RECORD(xp_fmt_target, 32, newbuf, 24);
RECORD(xp_membuf, 40, max_length, 32);
AT(xp_membuf, cursor, 16);
RECORD(xp_list, 40, sentinel, 24);
RECORD(xp_listnode, 24, datum, 16);
RECORD(xp_listenum, 16, current, 8);
RECORD(xp_datalist, 40, sentinel, 24);
AT(xp_datalist, count, 4);
AT(xp_datanode, data, 16);
RECORD(xp_datalistenum, 16, current, 8);
RECORD(xp_dataarray, 40, count, 36);
AT(xp_dataarray, item_size, 24);
RECORD(xp_datahash, 72, compare, 64);
AT(xp_datahash, item_size, 16);
AT(xp_dataitem, data, 8);
RECORD(xp_datahashenum, 40, end, 32);
RECORD(xp_ptrbag, 48, release, 40);
AT(xp_ptrbag, used, 16);
RECORD(xp_ptrbagenum, 16, index, 8);
RECORD(xp_cirqueue, 24, state, 20);
AT(xp_cirqueue, get, 12);
RECORD(xp_resentry, 16, value, 8);
RECORD(xp_respool, 16, entries, 8);
RECORD(xp_mempool, 48, cache_max, 40);
AT(xp_mempool, cached, 16);
RECORD(xp_objnode, 16, object, 8);
RECORD(xp_objpool, 104, cache_max, 96);
AT(xp_objpool, cached, 12);
RECORD(xp_xobjpool, 104 + sizeof(pthread_mutex_t), mutex, 104);
RECORD(xp_objpool_stat, 40, in_use, 32);
RECORD(xp_hashitem, 24, value, 16);
RECORD(xp_hashtable, 64, compare, 56);
AT(xp_hashtable, count, 12);
RECORD(xp_hashenum, 40, end, 32);
SIZE_IS(xp_hashiter, 16);
SIZE_IS(xp_hash_randseed, 1024);
RECORD(xp_md5, 124, text, 89);
AT(xp_md5, block, 24);
SIZE_IS(xp_lrunode, 40);
RECORD(xp_lruitem, 56, key, 40);
RECORD(xp_lruhash, 112, value_release, 104);
AT(xp_lruhash, recency, 24);
SIZE_IS(xp_lruhashiter, 24);
SIZE_IS(xp_lruhashenum, 24);
RECORD(xp_xhashtable, 64 + sizeof(xp_rwlock) + 8 + sizeof(pthread_mutex_t), count_mutex, 64 + sizeof(xp_rwlock) + 8);
AT(xp_xhashtable, slot_count, 64 + sizeof(xp_rwlock));
RECORD(xp_xhashenum, 48, mode, 40);
AT(xp_xhashenum, locked, 36);
RECORD(xp_xlruitem, 64, valid, 60);
AT(xp_xlruitem, key, 40);
RECORD(xp_xlruhash, 128 + 2 * sizeof(xp_rwlock) + sizeof(pthread_mutex_t) + 8, pending,
       120 + 2 * sizeof(xp_rwlock) + sizeof(pthread_mutex_t) + 8);
AT(xp_xlruhash, live_count, 112 + 2 * sizeof(xp_rwlock) + 4);
SIZE_IS(xp_xlruhashiter, 24);
RECORD(xp_xlruhashenum, 32, mode, 24);

static void *new_object(void) { return malloc(1); }

void abi_base(void) {
    CHECK(strstr(vorncore_name, " " VORNCORE_VERSION_STRING " ") != NULL);
    CHECK(xp_char_to_upper('q') == 'Q' && xp_char_hex_value('f') == 15 && xp_char_hex_value('g') < 0);
    CHECK(sizeof xp_conv62_map == 63 && sizeof xp_rconv62_map == 256);
    char text[] = " x ", coded[48];
    CHECK(strcmp(xp_trim(text), "x") == 0 && strcmp(xp_url_encode("a b/c", coded), "a+b%2Fc") == 0);
    CHECK(strcmp(xp_base64_encode("ab", coded), "YWI=") == 0);
    CHECK(strcmp(xp_convert(61, text, 4, XP_CONVERT_PAD('0') | 62), "00z") == 0);
    CHECK(strcmp(xp_decode_skey(xp_encode_rawskey("key", coded)), "key") == 0);

    xp_array *array = xp_create_array(1, NULL, NULL);
    CHECK(xpar_insert(array, 0, "a") == array && xpst_pop(array, NULL) == 1);
    xp_destroy_array(array);

    xp_list *list = xp_create_list(NULL, NULL);
    CHECK(xpls_add(list, "a") == list->sentinel.first && list->sentinel.first->next == xpls_head(list));
    xp_destroy_list(list);

    xp_datalist *data = xp_create_datalist(2, NULL, NULL);
    CHECK(strcmp(xpdl_add(data, "b")->data, "b") == 0 && data->sentinel.last->next == xpdl_head(data));
    xp_destroy_datalist(data);

    int n = 7, square = 49;
    xp_dataarray *numbers = xp_create_dataarray(1, sizeof(int), NULL, NULL);
    CHECK(*(int *)xpda_add(numbers, &n) == 7 && xpda_insert(numbers, 0, NULL) == numbers->data);
    xp_destroy_dataarray(numbers);

    xp_datahash *squares = xp_create_datahash(3, NULL, NULL, sizeof(int), NULL, NULL, sizeof(int), NULL, NULL);
    CHECK(xpdh_put(squares, &n, &square) == 1 && *(int *)xpdh_get(squares, &n) == 49);
    xp_destroy_datahash(squares);

    xp_hashtable *table = xp_create_hashtable(3, NULL, NULL, NULL, NULL, NULL, NULL);
    xpht_put(table, "a", "1");
    CHECK(strcmp((const char *)xpht_get(table, "a"), "1") == 0 && xpht_get_pair(table, "b") == NULL);
    xp_destroy_hashtable(table);

    xp_xhashtable *shared = xp_create_xhashtable(2, XP_RWLOCK_NOPREF, 3, NULL, NULL, NULL, NULL, NULL, NULL);
    const int bucket = xpxht_write_lock(shared, "a");
    CHECK(xpxht_put(shared, "a", "1", bucket) == 1 && xpxht_count(shared) == 1);
    xpxht_write_unlock(shared, bucket);
    xp_destroy_xhashtable(shared);

    xp_lruhash *cache = xp_create_lruhash(1, 3, NULL, NULL, NULL, NULL, NULL, NULL);
    xplh_put(cache, "a", "1");
    CHECK(xplh_contains(cache, "a") && !xplh_contains(cache, "b"));
    xp_destroy_lruhash(cache);

    xp_xlruhash *shared_cache = xp_create_xlruhash(2, XP_RWLOCK_NOPREF, 1, 3, NULL, NULL, NULL, NULL, NULL, NULL);
    const uint32_t marked = xpxlh_write_lock(shared_cache, "a");
    xpxlh_put(shared_cache, "a", "1", marked);
    CHECK(marked >> 31 == 1 && xpxlh_contains(shared_cache, "a", marked) && xpxlh_count(shared_cache) == 1);
    xpxlh_write_unlock(shared_cache, marked);
    xp_destroy_xlruhash(shared_cache);

    xp_membuf *mb = xp_create_membuf(16);
    CHECK(xpmb_add_str(mb, "x") && xpmb_printf(mb, "%'d", 1000) == 5 && strcmp(xpmb_tostr(mb), "x1,000") == 0);
    xp_destroy_membuf(mb);

    xp_respool *pool = xp_create_respool();
    CHECK(strcmp(xprp_strcat_v(pool, "a", "b", (char *)NULL), "ab") == 0 && xprp_last_index(pool) == 0);
    xp_destroy_respool(pool);

    xp_ptrbag *bag = xp_create_ptrbag(1, NULL, NULL);
    CHECK(xppb_add(bag, "a") == 0 && xppb_add(bag, "b") == 1);
    xp_destroy_ptrbag(bag);

    xp_cirqueue *queue = xp_create_cirqueue(1);
    CHECK(xpcq_put(queue, "a") == 1 && xpcq_put(queue, "b") == 0);
    xp_destroy_cirqueue(queue);

    xp_xobjpool *objects = xp_create_xobjpool(new_object, free, NULL, NULL);
    xpxop_free(objects, xpxop_alloc(objects));
    xpmp_free_inline(&objects->pool.nodes, xpmp_alloc_inline(&objects->pool.nodes));
    CHECK(objects->pool.cached == 1 && objects->pool.nodes.block_size == 16);
    xp_destroy_xobjpool(objects);

    xp_md5 md5;
    xp_md5_init(&md5);
    xp_md5_update(&md5, "abc", 3);
    CHECK(xp_md5_close(&md5)[0] == 0x90 && xp_md5_padding[0] == 0x80);
    CHECK(strcmp(xp_md5_result_str(&md5), "900150983cd24fb0d6963f7d28e17f72") == 0);

    uint8_t key[16];
    char scrambled[9], byte;
    xp_crypt_init(key, "abc", 3);
    CHECK(key[0] == 0x90 && xp_crypt_encrypt(key, "x", 1, scrambled) == 9);
    CHECK(xp_crypt_decrypt(key, scrambled, 9, &byte) == 1 && byte == 'x');
}
