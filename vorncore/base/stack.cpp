#include "vorncore/base/stack.h"

int xpst_pop(xp_array *stack, void **out) {
    if (!xpst_peek(stack, out)) return 0;
    xpar_del(stack, stack->count - 1);
    return 1;
}

int xpst_peek(const xp_array *stack, void **out) {
    if (stack->count == 0) return 0;
    if (out) *out = stack->items[stack->count - 1];
    return 1;
}
