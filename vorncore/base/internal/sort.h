// The sort of the array: three-way quicksort with a sampled pivot.
#pragma once

#include <algorithm>
#include <stddef.h>

#include "vorncore/base/types.h"

namespace vorncore {

/// Callers depend on the order in which equal items end up and on the sequence of comparisons, so neither the samples
/// nor the order of the steps may change.
class pointer_sort {
  public:
    pointer_sort(void **items, xp_compare_fn by) : items_(items), by_(by) {}

    /// Sorts items first .. last, both included.
    void sort(ptrdiff_t first, ptrdiff_t last) {
        for (;;) {
            const ptrdiff_t n = last - first + 1;
            if (n < 7) return insertion_sort(first, last);
            std::swap(items_[first], items_[choose_pivot(first, last, n)]);
            const split parts = partition(first, last);
            if (!parts.swapped) return insertion_sort(first, last);
            if (parts.less > 1) sort(first, first + parts.less - 1);
            if (parts.greater <= 1) return;
            first = last - parts.greater + 1;
        }
    }

  private:
    struct split {
        ptrdiff_t less;    // items below the pivot, now at the front
        ptrdiff_t greater; // items above it, now at the end
        bool swapped;      // false: the range was (nearly) in order and is still as it was
    };

    int compare(ptrdiff_t a, ptrdiff_t b) const { return by_(items_[a], items_[b]); }

    void insertion_sort(ptrdiff_t first, ptrdiff_t last) {
        for (ptrdiff_t j = first + 1; j <= last; j++)
            for (ptrdiff_t k = j; k > first && compare(k - 1, k) > 0; k--) std::swap(items_[k - 1], items_[k]);
    }

    ptrdiff_t median(ptrdiff_t a, ptrdiff_t b, ptrdiff_t c) const {
        if (compare(a, b) < 0) return compare(b, c) < 0 ? b : compare(a, c) < 0 ? c : a;
        return compare(b, c) > 0 ? b : compare(a, c) < 0 ? a : c;
    }

    ptrdiff_t choose_pivot(ptrdiff_t first, ptrdiff_t last, ptrdiff_t n) const {
        // Kept: the middle sample counts from the start of the array, not of the range. A consistent comparison never
        // lets a sample from outside the range become the pivot.
        const ptrdiff_t middle = n / 2;
        if (n <= 40) return median(first, middle, last);
        const ptrdiff_t d = n / 8;
        const ptrdiff_t low = median(first, first + d, first + 2 * d);
        const ptrdiff_t centre = median(middle - d, middle, middle + d);
        const ptrdiff_t high = median(last - 2 * d, last - d, last);
        return median(low, centre, high);
    }

    /// Partitions around the pivot in items[first]: equal items gather at both ends, then move to the middle.
    split partition(ptrdiff_t first, ptrdiff_t last) {
        void *const pivot = items_[first];
        ptrdiff_t equal_left = first + 1, left = first + 1;
        ptrdiff_t equal_right = last, right = last;
        bool swapped = false;
        for (;;) {
            int order;
            for (; left <= right && (order = by_(items_[left], pivot)) <= 0; left++)
                if (order == 0) {
                    std::swap(items_[equal_left++], items_[left]);
                    swapped = true;
                }
            for (; left <= right && (order = by_(items_[right], pivot)) >= 0; right--)
                if (order == 0) {
                    std::swap(items_[right], items_[equal_right--]);
                    swapped = true;
                }
            if (left > right) break;
            std::swap(items_[left++], items_[right--]);
            swapped = true;
        }
        const ptrdiff_t less = left - equal_left, greater = equal_right - right;
        if (swapped) {
            swap_blocks(first, left, std::min(equal_left - first, less));
            swap_blocks(left, last + 1, std::min(greater, last - equal_right));
        }
        return {less, greater, swapped};
    }

    /// Swaps the `n` items from `front` on with the `n` items before `end`.
    void swap_blocks(ptrdiff_t front, ptrdiff_t end, ptrdiff_t n) {
        std::swap_ranges(items_ + front, items_ + front + n, items_ + end - n);
    }

    void **items_;
    xp_compare_fn by_;
};

} // namespace vorncore
