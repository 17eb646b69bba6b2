/* The frame and the containers. */
#ifndef VORNCORE_BASE_BASE_H
#define VORNCORE_BASE_BASE_H

#include "vorncore/base/version.h"

#include "vorncore/base/format.h"
#include "vorncore/base/log.h"
#include "vorncore/base/membuf.h"
#include "vorncore/base/mempool.h"
#include "vorncore/base/objpool.h"
#include "vorncore/base/respool.h"
#include "vorncore/base/stream.h"
#include "vorncore/base/types.h"

#include "vorncore/base/array.h"
#include "vorncore/base/dataarray.h"
#include "vorncore/base/datahash.h"
#include "vorncore/base/datalist.h"
#include "vorncore/base/hashtable.h"
#include "vorncore/base/list.h"
#include "vorncore/base/lruhash.h"
#include "vorncore/base/ptrbag.h"
#include "vorncore/base/queue.h"
#include "vorncore/base/stack.h"
#include "vorncore/base/xhashtable.h"
#include "vorncore/base/xlruhash.h"

#include "vorncore/base/base64.h"
#include "vorncore/base/chartype.h"
#include "vorncore/base/convert.h"
#include "vorncore/base/crypt.h"
#include "vorncore/base/md5.h"
#include "vorncore/base/skey.h"
#include "vorncore/base/strutil.h"

#endif
