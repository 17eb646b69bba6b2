#include "abi.h"

#include <string.h>

#include "vorncore/vorncore.h"

SIZE_IS(xp_interlocked_counter, 48);
AT(xp_interlocked_counter, value, 40);
SIZE_IS(xp_acounter_snapshot, 8);
AT(xp_acounter_snapshot, count, 4);
SIZE_IS(xp_interlocked_accumulation_counter, 48);
AT(xp_interlocked_accumulation_counter, count, 4);
AT(xp_interlocked_accumulation_counter, mutex, 8);
SIZE_IS(xp_average, 8);
AT(xp_average, count, 4);
SIZE_IS(xp_reference_counter, 64);
AT(xp_reference_counter, destroy, 8);
AT(xp_reference_counter, references, 16);

SIZE_IS(xp_random, 32);
AT(xp_random, clock, 4);
AT(xp_random, state, 8);

SIZE_IS(xp_iofilter, 8);

SIZE_IS(xprb, 80);
AT(xprb, timeout, 8);
AT(xprb, block, 16);
AT(xprb, data, 32);
AT(xprb, scan, 48);
AT(xprb, last_error, 56);
AT(xprb, message, 64);
AT(xprb, saved_errno, 72);
SIZE_IS(xprb2, 80);
AT(xprb2, timeout, 4);
AT(xprb2, input, 8);
AT(xprb2, input_size, 32);
AT(xprb2, record, 40);
AT(xprb2, max_record, 56);
AT(xprb2, last_error, 60);
AT(xprb2, message, 64);
AT(xprb2, saved_errno, 72);

SIZE_IS(xp_rwlock, 176);
AT(xp_rwlock, mutex, 8);
AT(xp_rwlock, readers, 48);
AT(xp_rwlock, writers, 96);
AT(xp_rwlock, active_readers, 144);
AT(xp_rwlock, active_writers, 152);
AT(xp_rwlock, waiting_writers, 160);
AT(xp_rwlock, waiting_readers, 168);

SIZE_IS(xp_xcirqueue, 168);
AT(xp_xcirqueue, not_empty, 40);
AT(xp_xcirqueue, not_full, 88);
AT(xp_xcirqueue, queue, 136);
AT(xp_xcirqueue, shutdown, 160);
SIZE_IS(xpwb_block, 24);
AT(xpwb_block, write_position, 8);
AT(xpwb_block, flush_position, 16);
SIZE_IS(xpwb, 120);
AT(xpwb, message, 8);
AT(xpwb, saved_errno, 16);
AT(xpwb, status, 20);
AT(xpwb, fd, 24);
AT(xpwb, block_size, 28);
AT(xpwb, current, 32);
AT(xpwb, pending, 56);
AT(xpwb, timeout, 96);
AT(xpwb, max_pending, 100);
AT(xpwb, flush_noti, 104);
AT(xpwb, noti_argument, 112);

void abi_io(void) {
    CHECK(strcmp(xp_ioerror_str(IOERROR_SELECTERR), "IOERROR_SELECTERR") == 0 && IOERROR_SELECTERR == -981);
    {
        char text[16];
        CHECK(strcmp(xp_inet_ntoa(xp_inet_addr(10, 0, 0, 255), text), "10.0.0.255") == 0 && XP_INADDR_ANY == 0);
    }
    {
        xprb *lines = xp_create_readbuf(-1, 16);
        CHECK(xprb_unread(lines, "a\r\n", 3) && strcmp(xprb_read_line(lines, NULL), "a") == 0);
        xp_destroy_readbuf(lines);

        xprb2 *records = xp_create_readbuf2(-1, 16);
        CHECK(xprb2_unread(records, "a||", 3) && strcmp(xprb2_read_to_pattern(records, NULL, "||", 2), "a") == 0);
        xp_destroy_readbuf2(records);
    }
    {
        xp_reference_counter *counter = xp_create_reference_counter(NULL, NULL);
        CHECK(xprc_release(xprc_addref(counter)) == 1 && xprc_release(counter) == 0);
    }
    {
        xp_random generator;
        xp_rand32_init(&generator, 1);
        CHECK(generator.seed == 1 && xp_time_ms() - generator.clock < 60000);
    }
    CHECK(xp_file_set_flag(-1, 1) == 0 && xp_set_fdlimit(-1) == 0);
    {
        xp_rwlock *lock = xp_create_rwlock(2, XP_RWLOCK_WRITER_CLAIM);
        xprwl_write_lock(lock, 1);
        CHECK(lock->active_writers[1] == 1);
        xprwl_write_unlock(lock, 1);
        xp_destroy_rwlock(lock);
    }
    {
        xp_xcirqueue *queue = xp_create_xcirqueue(1);
        void *item = NULL;
        CHECK(xpxcq_put(queue, "a", 0) == XP_XCQ_OK && xpxcq_get(queue, &item, -1) == XP_XCQ_OK);
        CHECK(item && strcmp((const char *)item, "a") == 0);
        xp_destroy_xcirqueue(queue);
        xpwb wb;
        xp_init_writebuf(&wb, -1, 8);
        CHECK(xpwb_printf(&wb, "%d", 1234) == 4 && xpwb_write_str(&wb, "5678") == -1 && wb.status == 0);
        xp_close_writebuf(&wb);
    }
}
