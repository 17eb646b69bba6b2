#include "abi.h"

#include <string.h>

#include "vorncore/vorncore.h"

void abi_app(void) {}
