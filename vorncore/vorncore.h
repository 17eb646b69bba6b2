/* Every public header of vorncore. */
#ifndef VORNCORE_VORNCORE_H
#define VORNCORE_VORNCORE_H

#include "vorncore/base/base.h"

#include "vorncore/io/counter.h"
#include "vorncore/io/fdlimit.h"
#include "vorncore/io/file.h"
#include "vorncore/io/io.h"
#include "vorncore/io/rand.h"
#include "vorncore/io/readbuf.h"
#include "vorncore/io/readbuf2.h"
#include "vorncore/io/rwlock.h"
#include "vorncore/io/socket.h"
#include "vorncore/io/timeutil.h"
#include "vorncore/io/writebuf.h"
#include "vorncore/io/xcirqueue.h"

#include "vorncore/app/http.h"
#include "vorncore/app/httpdate.h"
#include "vorncore/app/httpurl.h"
#include "vorncore/app/marrow.h"
#include "vorncore/app/quillet.h"
#include "vorncore/app/rputil.h"

#include "vorncore/xml/lineinfo.h"
#include "vorncore/xml/xmlns.h"
#include "vorncore/xml/xmltree.h"
#include "vorncore/xml/xpath.h"

#include "vorncore/dbi/dbi.h" /* dbi/driver.h is for those who write drivers */

#endif
