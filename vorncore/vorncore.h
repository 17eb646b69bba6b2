/* Every public header of vorncore. */
#ifndef VORNCORE_VORNCORE_H
#define VORNCORE_VORNCORE_H

#include "vorncore/base/base.h"

#include "vorncore/io/io.h"
#include "vorncore/app/httpdate.h"
#include "vorncore/io/socket.h"

#endif
