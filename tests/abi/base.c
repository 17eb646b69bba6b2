#include "abi.h"

#include <stdlib.h>
#include <string.h>

#include "vorncore/vorncore.h"

#if !VORNCORE_VERSION_AT_LEAST(1, 1, 0) || VORNCORE_VERSION_AT_LEAST(1, 1, 1)
#error "the version check of the headers is wrong"
#endif

SIZE_IS(xp_pair, 16);
SIZE_IS(xpi_istream, 40);
SIZE_IS(xpi_ostream, 56);
SIZE_IS(xpi_iostream, 64);
AT(xpi_iostream, read_offset, 56);

SIZE_IS(xp_array, 40);
AT(xp_array, items, 0);
AT(xp_array, copy, 8);
AT(xp_array, release, 16);
AT(xp_array, capacity, 24);
AT(xp_array, initial_capacity, 28);
AT(xp_array, count, 32);

SIZE_IS(xp_fmt_target, 32);
AT(xp_fmt_target, begin, 0);
AT(xp_fmt_target, end, 8);
AT(xp_fmt_target, cursor, 16);
AT(xp_fmt_target, newbuf, 24);
SIZE_IS(xp_list, 40);
AT(xp_list, copy, 8);
AT(xp_list, release, 16);
AT(xp_list, sentinel, 24);
SIZE_IS(xp_listnode, 24);
AT(xp_listnode, previous, 8);
AT(xp_listnode, datum, 16);
SIZE_IS(xp_listenum, 16);
AT(xp_listenum, current, 8);

SIZE_IS(xp_datalist, 40);
AT(xp_datalist, count, 4);
AT(xp_datalist, copy, 8);
AT(xp_datalist, release, 16);
AT(xp_datalist, sentinel, 24);
AT(xp_datanode, previous, 8);
AT(xp_datanode, data, 16);
SIZE_IS(xp_datalistenum, 16);
AT(xp_datalistenum, current, 8);

/* One block a family, so that each has its own names. */
SIZE_IS(xp_membuf, 40);
AT(xp_membuf, data, 0);
AT(xp_membuf, capacity, 8);
AT(xp_membuf, cursor, 16);
AT(xp_membuf, initial_capacity, 24);
AT(xp_membuf, max_length, 32);

SIZE_IS(xp_ptrbag, 48);
AT(xp_ptrbag, capacity, 8);
AT(xp_ptrbag, count, 12);
AT(xp_ptrbag, used, 16);
AT(xp_ptrbag, free_head, 24);
AT(xp_ptrbag, copy, 32);
AT(xp_ptrbag, release, 40);
SIZE_IS(xp_ptrbagenum, 16);
AT(xp_ptrbagenum, index, 8);

SIZE_IS(xp_cirqueue, 24);
AT(xp_cirqueue, put, 8);
AT(xp_cirqueue, get, 12);
AT(xp_cirqueue, size, 16);
AT(xp_cirqueue, state, 20);

SIZE_IS(xp_resentry, 16);
AT(xp_resentry, value, 8);
SIZE_IS(xp_respool, 16);
AT(xp_respool, capacity, 4);
AT(xp_respool, entries, 8);

SIZE_IS(xp_mempool, 48);
AT(xp_mempool, block_size, 8);
AT(xp_mempool, in_use, 12);
AT(xp_mempool, cached, 16);
AT(xp_mempool, allocate, 24);
AT(xp_mempool, release, 32);
AT(xp_mempool, cache_max, 40);

SIZE_IS(xp_objnode, 16);
AT(xp_objnode, object, 8);
SIZE_IS(xp_objpool, 104);
AT(xp_objpool, in_use, 8);
AT(xp_objpool, cached, 12);
AT(xp_objpool, create, 16);
AT(xp_objpool, destroy, 24);
AT(xp_objpool, on_alloc, 32);
AT(xp_objpool, on_free, 40);
AT(xp_objpool, nodes, 48);
AT(xp_objpool, cache_max, 96);
SIZE_IS(xp_xobjpool, 104 + sizeof(pthread_mutex_t));
AT(xp_xobjpool, mutex, 104);
SIZE_IS(xp_objpool_stat, 40);
AT(xp_objpool_stat, smallest, 8);
AT(xp_objpool_stat, total, 16);
AT(xp_objpool_stat, cached, 24);
AT(xp_objpool_stat, in_use, 32);

static void *new_object(void) { return malloc(1); }

SIZE_IS(xp_md5, 124);
AT(xp_md5, count_high, 16);
AT(xp_md5, count_low, 20);
AT(xp_md5, block, 24);
AT(xp_md5, has_text, 88);
AT(xp_md5, text, 89);

void abi_base(void) {
    CHECK(strstr(vorncore_name, " " VORNCORE_VERSION_STRING " ") != NULL);
    {
        xp_array *array = xp_create_array(1, NULL, NULL);
        xpar_add(array, "b");
        xpar_insert(array, 0, "a");
        CHECK(array->count == 2 && strcmp((const char *)array->items[0], "a") == 0);
        xp_destroy_array(array);
    }
    {
        xp_list list;
        xp_init_list(&list, NULL, NULL);
        CHECK(xpls_add(&list, "a") == list.sentinel.first && list.sentinel.first->next == xpls_head(&list));
        xp_close_list(&list);
    }
    {
        xp_datalist *data = xp_create_datalist(2, NULL, NULL);
        CHECK(strcmp(xpdl_add(data, "b")->data, "b") == 0 && data->sentinel.last->next == xpdl_head(data));
        xp_destroy_datalist(data);
    }
    CHECK(xp_char_to_upper('q') == 'Q' && xp_char_hex_value('f') == 15 && xp_char_hex_value('g') < 0);
    {
        char *text = xp_sprintf("%'d%s", 1000, "!");
        CHECK(strcmp(text, "1,000!") == 0);
        free(text);
    }
    {
        char text[16], encoded[48];
        CHECK(strcmp(xp_url_encode("a b/c", encoded), "a+b%2Fc") == 0 && xp_strcpy(text, " x ") == 3);
        CHECK(strcmp(xp_trim(text), "x") == 0);
    }

    char *text = xp_sprintf("%'d%s", 1000, "!");
    CHECK(strcmp(text, "1,000!") == 0);
    free(text);
    char trimmed[] = " x ", encoded[16];
    CHECK(strcmp(xp_trim(trimmed), "x") == 0 && strcmp(xp_url_encode("a b/c", encoded), "a+b%2Fc") == 0);

    xp_membuf *mb = xp_create_membuf(16);
    CHECK(xpmb_add_str(mb, "x") && xpmb_printf(mb, "%d", 1) == 1 && strcmp(xpmb_tostr(mb), "x1") == 0);
    xp_destroy_membuf(mb);

    CHECK(strcmp(xp_base64_encode("ab", encoded), "YWI=") == 0);
    {
        xp_ptrbag *bag = xp_create_ptrbag(1, NULL, NULL);
        CHECK(xppb_add(bag, "a") == 0 && xppb_add(bag, "b") == 1);
        xp_destroy_ptrbag(bag);
    }
    {
        xp_cirqueue *queue = xp_create_cirqueue(1);
        CHECK(xpcq_put(queue, "a") == 1 && xpcq_put(queue, "b") == 0);
        xp_destroy_cirqueue(queue);
    }
    {
        xp_array *stack = xp_create_array(1, NULL, NULL);
        CHECK(xpst_pop(stack, NULL) == 0);
        xp_destroy_array(stack);
    }
    {
        xp_respool *pool = xp_create_respool();
        CHECK(strcmp(xprp_strcat_v(pool, "a", "b", (char *)NULL), "ab") == 0 && xprp_last_index(pool) == 0);
        xp_destroy_respool(pool);
    }
    CHECK(sizeof xp_conv62_map == 63 && sizeof xp_rconv62_map == 256);
    CHECK(strcmp(xp_convert(61, trimmed, 4, XP_CONVERT_PAD('0') | 62), "00z") == 0);
    CHECK(xp_reverse_convert("00z", 62) == 61);
    CHECK(strcmp(xp_decode_skey(xp_encode_rawskey("key", encoded)), "key") == 0);
    {
        xp_mempool *blocks = xp_create_mempool(3);
        void *block = xpmp_alloc(blocks);
        xpmp_free_inline(blocks, block);
        CHECK(xpmp_alloc_inline(blocks) == block && blocks->block_size == 8);
        xpmp_free(blocks, block);
        xp_destroy_mempool(blocks);
    }
    {
        xp_objpool *objects = xp_create_objpool(new_object, free, NULL, NULL);
        xpop_free(objects, xpop_alloc(objects));
        CHECK(objects->cached == 1 && objects->in_use == 0);
        xp_destroy_objpool(objects);
    }
    {
        xp_xobjpool *objects = xp_create_xobjpool(new_object, free, NULL, NULL);
        xpxop_free(objects, xpxop_alloc(objects));
        CHECK(objects->pool.cached == 1 && objects->pool.in_use == 0);
        xp_destroy_xobjpool(objects);
    }
    {
        xp_md5 md5;
        xp_md5_init(&md5);
        xp_md5_update(&md5, "abc", 3);
        CHECK(xp_md5_close(&md5)[0] == 0x90 && xp_md5_padding[0] == 0x80);
        CHECK(strcmp(xp_md5_result_str(&md5), "900150983cd24fb0d6963f7d28e17f72") == 0);
    }
}
