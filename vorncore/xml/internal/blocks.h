// Memory for the many small records of a document: blocks, cut one behind the other out of larger pieces.
//
// Each block is freed on its own, by whoever holds it; the last one takes its piece along. Where a block may stand, a
// record from malloc may stand too (a node that a caller made), and the address tells them apart: malloc gives
// multiples of 16, while a block lies 8 behind one.
#pragma once

#include <stddef.h>

#include <algorithm>

#include "vorncore/base/internal/alloc.h"

namespace vorncore {

/// A record, and what leads from it to its piece.
template <class Record>
struct block {
    Record record;
    uint64_t offset; // of the block in its piece
};

inline bool is_block(const void *record) { return reinterpret_cast<uintptr_t>(record) % 16 != 0; }

/// How far ahead of its use a block is called for: a document's blocks do not fit the caches, and memory is a hundred
/// nanoseconds away.
constexpr ptrdiff_t blocks_ahead = 4096;

/// Calls for all cache lines of a block. An address is all it takes: the block need not be there.
template <class Block>
void prefetch(const char *at) {
    for (size_t line = 0; line < sizeof(Block); line += 64) __builtin_prefetch(at + line, 1);
}

/// The head of a piece; blocks follow.
struct block_piece {
    uint64_t users; // blocks in use; atomic, for a node may have moved to another thread than its neighbours

    /// Users of a piece that is still being cut: more than there can be blocks.
    static constexpr uint64_t being_cut = 1u << 31;

    void count_off(uint64_t blocks) {
        if (__atomic_sub_fetch(&users, blocks, __ATOMIC_ACQ_REL) == 0) free(this);
    }
};

/// Cuts blocks, out of pieces that become larger the more are needed.
class block_source {
  public:
    block_source() = default;
    block_source(const block_source &) = delete;
    ~block_source() { leave_piece(); }

    /// A block that is not initialised but for its offset; null when memory is short.
    template <class Block>
    Block *allocate() {
        constexpr size_t size = (sizeof(Block) + 15) / 16 * 16;
        if (size_ - used_ < size && !next_piece()) return nullptr;
        auto *const cut = reinterpret_cast<Block *>(reinterpret_cast<char *>(piece_) + used_);
        cut->offset = used_;
        used_ += size;
        prefetch<Block>(reinterpret_cast<char *>(cut) + blocks_ahead);
        blocks_++;
        return cut;
    }

  private:
    /// Twice the size of the last one, up to one that malloc still takes from its heap.
    bool next_piece() {
        const size_t size = std::min<size_t>(2 * size_, 64 << 10);
        auto *const piece = static_cast<block_piece *>(malloc(size));
        if (!piece) return false;
        leave_piece();
        piece_ = piece;
        piece_->users = block_piece::being_cut;
        size_ = size;
        used_ = sizeof(block_piece);
        return true;
    }

    /// From now on the piece lasts as long as its blocks.
    void leave_piece() {
        if (piece_) piece_->count_off(block_piece::being_cut - blocks_);
        blocks_ = 0;
    }

    block_piece *piece_ = nullptr;
    size_t size_ = 512, used_ = 512;
    uint64_t blocks_ = 0; // cut from it
};

/// Frees records, blocks or not. The blocks of one piece are counted off together, at the latest in the end.
class block_release {
  public:
    block_release() = default;
    block_release(const block_release &) = delete;
    ~block_release() { leave_piece(); }

    template <class Record>
    void operator()(Record *record) {
        if (!is_block(record)) return free(record);
        const uint64_t offset = reinterpret_cast<const block<Record> *>(record)->offset;
        auto *const piece = reinterpret_cast<block_piece *>(reinterpret_cast<char *>(record) - offset);
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
    uint64_t blocks_ = 0;
};

} // namespace vorncore
