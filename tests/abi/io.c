#include "abi.h"

#include <string.h>

#include "vorncore/vorncore.h"

void abi_io(void) {
    CHECK(strcmp(xp_ioerror_str(IOERROR_SELECTERR), "IOERROR_SELECTERR") == 0 && IOERROR_SELECTERR == -981);
}
