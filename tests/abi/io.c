#include "abi.h"

#include <string.h>

#include "vorncore/vorncore.h"

void abi_io(void) {
    CHECK(strcmp(xp_ioerror_str(IOERROR_SELECTERR), "IOERROR_SELECTERR") == 0 && IOERROR_SELECTERR == -981);

    char text[16];
    CHECK(strcmp(xp_inet_ntoa(xp_inet_addr(10, 0, 0, 255), text), "10.0.0.255") == 0 && XP_INADDR_ANY == 0);
}
