/* The interface as a plain C program sees it: every header, record layouts, one call of each family. */
#include "abi.h"

#include <stdio.h>

#include "vorncore/vorncore.h"

int abi_failures = 0;

int main(void) {
    abi_base();
    abi_io();
    abi_app();
    abi_xml();
    abi_dbi();
    if (abi_failures == 0) puts(vorncore_name);
    return abi_failures != 0;
}
