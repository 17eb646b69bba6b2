/* The version of these headers. A program checks at compile time, without a call:
 *
 *     #if !VORNCORE_VERSION_AT_LEAST(1, 1, 0)
 *     #error "vorncore 1.1.0 or later is needed"
 *     #endif
 *
 * The version of the library that a program runs with stands in the banner `vorncore_name` (base/log.h). */
#ifndef VORNCORE_BASE_VERSION_H
#define VORNCORE_BASE_VERSION_H

#define VORNCORE_VERSION_MAJOR 1
#define VORNCORE_VERSION_MINOR 1
#define VORNCORE_VERSION_PATCH 0
#define VORNCORE_VERSION_BUILD 369            /* build number */
#define VORNCORE_VERSION_STAMP "201204261409" /* build time: year, month, day, hour, minute */

#define VORNCORE_VERSION_TEXT_(n) #n
#define VORNCORE_VERSION_TEXT(n)  VORNCORE_VERSION_TEXT_(n)
#define VORNCORE_VERSION_STRING                                                                                        \
    VORNCORE_VERSION_TEXT(VORNCORE_VERSION_MAJOR)                                                                      \
    "." VORNCORE_VERSION_TEXT(VORNCORE_VERSION_MINOR) "." VORNCORE_VERSION_TEXT(VORNCORE_VERSION_PATCH)

/* One comparable number: 10203 for 1.2.3. */
#define VORNCORE_VERSION_NUMBER (VORNCORE_VERSION_MAJOR * 10000 + VORNCORE_VERSION_MINOR * 100 + VORNCORE_VERSION_PATCH)
#define VORNCORE_VERSION_AT_LEAST(major, minor, patch)                                                                 \
    (VORNCORE_VERSION_NUMBER >= (major)*10000 + (minor)*100 + (patch))

#endif
