// Memory for the many small records of a document: blocks, cut one behind the other out of larger pieces.
//
// Each block is freed on its own, by whoever holds it; the last one takes its piece along. Where a block may stand, a
// record from malloc may stand too (a node that a caller made), and the address tells them apart: malloc gives
// multiples of 16, while a block lies 8 behind one. In the 8 bytes before it stands how far into its piece it lies.
#pragma once

#include <algorithm>

#include <sys/mman.h>

#include "vorncore/base/internal/alloc.h"

namespace vorncore {

struct block_piece {
    uint32_t users; // blocks in use; atomic, for a node may have moved to another thread than its neighbours
    uint32_t size;  // bytes, this head included
    uint32_t used;

    static constexpr uint32_t grain = 16;
    /// Users of a piece that is still being cut: more than there can be blocks.
    static constexpr uint32_t being_cut = 1u << 31;

    /// Pieces of this size are huge pages, where the kernel has them: for a large document the faults of as many small
    /// ones take longer than the parse. They come from the kernel, all others from malloc.
    static constexpr uint32_t largest = 2u << 20;

    static block_piece *create(uint32_t size) {
        if (size < largest) return static_cast<block_piece *>(malloc(size));
        void *const pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED) return nullptr;
        madvise(pages, size, MADV_HUGEPAGE); // or not: it is all the same but for the time
        return static_cast<block_piece *>(pages);
    }

    void count_off(uint32_t blocks) {
        if (__atomic_sub_fetch(&users, blocks, __ATOMIC_ACQ_REL) != 0) return;
        if (size < largest)
            free(this);
        else
            munmap(this, size);
    }
};
static_assert(sizeof(block_piece) <= block_piece::grain);

/// Cuts blocks, out of pieces that become larger the more are needed.
class block_source {
  public:
    block_source() = default;
    block_source(const block_source &) = delete;
    ~block_source() { leave_piece(); }

    /// A block that is not initialised; null when memory is short.
    template <class Record>
    Record *allocate() {
        constexpr size_t grain = block_piece::grain,
                         size = (sizeof(uint64_t) + sizeof(Record) + grain - 1) / grain * grain;
        if ((!piece_ || piece_->size - piece_->used < size) && !next_piece()) return nullptr;
        auto *const way_back = reinterpret_cast<uint64_t *>(reinterpret_cast<char *>(piece_) + piece_->used);
        *way_back = piece_->used + sizeof(uint64_t);
        piece_->used += static_cast<uint32_t>(size);
        blocks_++;
        auto *block = reinterpret_cast<Record *>(way_back + 1);
        asm("" : "+r"(block)); // or compilers follow it into a free() that block_release does not reach
        return block;
    }

  private:
    bool next_piece() {
        block_piece *const piece = block_piece::create(next_size_);
        if (!piece) return false;
        leave_piece();
        *piece = {block_piece::being_cut, next_size_, block_piece::grain};
        piece_ = piece;
        next_size_ = std::min(2 * next_size_, block_piece::largest);
        return true;
    }

    /// From now on the piece lasts as long as its blocks.
    void leave_piece() {
        if (piece_) piece_->count_off(block_piece::being_cut - blocks_);
        blocks_ = 0;
    }

    block_piece *piece_ = nullptr;
    uint32_t blocks_ = 0; // cut from it
    uint32_t next_size_ = 1 << 10;
};

/// Whether a record is a block, and not from malloc.
inline bool is_block(const void *record) { return reinterpret_cast<uintptr_t>(record) % block_piece::grain; }

/// Frees records, blocks or not. The blocks of one piece are counted off together, at the latest in the end.
class block_release {
  public:
    block_release() = default;
    block_release(const block_release &) = delete;
    ~block_release() { leave_piece(); }

    void operator()(void *record) {
        if (!is_block(record)) return free(record);
        char *const block = static_cast<char *>(record);
        auto *const piece = reinterpret_cast<block_piece *>(block - reinterpret_cast<uint64_t *>(block)[-1]);
        if (piece != piece_) {
            leave_piece();
            piece_ = piece;
        }
        blocks_++;
    }

  private:
    void leave_piece() {
        if (piece_) piece_->count_off(blocks_);
        blocks_ = 0;
    }

    block_piece *piece_ = nullptr;
    uint32_t blocks_ = 0;
};

} // namespace vorncore
