/* The frame around every block of exported declarations: C linkage, and visible although the library is compiled with
 * hidden visibility. Nothing a caller needs to use. */
#ifndef VORNCORE_BASE_DECLS_H
#define VORNCORE_BASE_DECLS_H

#ifdef __cplusplus
#define VORNCORE_BEGIN_DECLS _Pragma("GCC visibility push(default)") extern "C" {
#define VORNCORE_END_DECLS                                                                                             \
    }                                                                                                                  \
    _Pragma("GCC visibility pop")
#else
#define VORNCORE_BEGIN_DECLS _Pragma("GCC visibility push(default)")
#define VORNCORE_END_DECLS   _Pragma("GCC visibility pop")
#endif

#endif
