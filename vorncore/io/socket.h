/* Sockets: connect, bind and probe, over IPv4 and local (AF_UNIX) addresses.
 *
 * What opens a socket returns its descriptor or a code of io/io.h. On failure no socket is left open and `errno` still
 * holds the system's reason. Descriptors are close-on-exec and blocking. Ports are in host byte order, addresses in
 * network byte order. Where `xp_io_sigsafe` is set, connects and waits go on after a signal.
 *
 *     int fd = xp_connect_tcp("localhost", 4071, 2000);
 *     if (fd < 0) fprintf(stderr, "%s: %s\n", xp_ioerror_str(fd), strerror(errno));
 *
 * Threads: every call may run on any thread. */
#ifndef VORNCORE_IO_SOCKET_H
#define VORNCORE_IO_SOCKET_H

#include <netinet/in.h>
#include <stdint.h>
#include <sys/socket.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

/* The wildcard address, 0. */
extern const uint32_t XP_INADDR_ANY;

/* Options of xp_set_sock_opt and xp_bind_tcp, set in this order. Other bits are ignored. */
enum {
    XP_SOCKOPT_REUSEADDR = 1,
    XP_SOCKOPT_LINGER = 4, /* of 0 seconds: close() drops what is unsent and resets the connection */
    XP_SOCKOPT_NODELAY = 8 /* TCP_NODELAY */
};

/* Bits of xp_check_sock_state. */
enum {
    XP_SOCKSTATE_CLOSED = 16, /* the peer closed or reset the connection, and nothing is left to read; stands alone */
    XP_SOCKSTATE_READABLE = 32,
    XP_SOCKSTATE_WRITABLE = 64,
    XP_SOCKSTATE_ERROR = 128 /* the check itself failed; stands alone */
};

/* Looks a host name or dotted address up, blocking for as long as the resolver takes, and stores the first address:
 * of the record only sin_addr is written. 0, or the resolver's error number (netdb.h). A host whose data needs more
 * than 8192 bytes fails. */
int xp_resolve_host(struct sockaddr_in *address, const char *host);
/* The text of a resolver error number. Kept for callers: taken from the texts of `errno`, not the resolver's. */
const char *xp_hstrerror(int error);

/* Connects within `timeout` milliseconds, the resolver not counted; a negative time-out blocks in connect(). The
 * descriptor is blocking either way. IOERROR_RESOLVE; IOERROR_SOCKET; IOERROR_CONNECT; with a time-out also
 * IOERROR_CONNECTTIMEOUT (`errno` is ETIMEDOUT), IOERROR_FCNTL, IOERROR_POLL, IOERROR_POLLERR, IOERROR_HUP,
 * IOERROR_SOCKETOPT. */
int xp_connect_tcp(const char *host, int port, int timeout);
/* IOERROR_RESOLVE, IOERROR_SOCKET or IOERROR_CONNECT. */
int xp_connect_udp(const char *host, int port);
/* Bind without listening. Options that cannot be set are passed over. IOERROR_SOCKET or IOERROR_BIND. */
int xp_bind_tcp(uint32_t address, int port, int flags);
int xp_bind_udp(uint32_t address, int port);
/* Local sockets: `type` is SOCK_STREAM or SOCK_DGRAM, a bound one is a stream that does not listen yet. A path of more
 * than 107 bytes is IOERROR_OVERFLOW; else IOERROR_SOCKET, IOERROR_CONNECT or IOERROR_BIND. A file that is already at
 * the path is not removed, so binding to it fails. */
int xp_connect_unix(const char *path, int type);
int xp_bind_unix(const char *path);

/* What a connected socket is ready for at this moment, without waiting or reading: a sum of the bits above. 0 when
 * nothing is ready, also for a descriptor that is not open. */
int xp_check_sock_state(int descriptor);

/* Switches the options on or off. 1, or 0 at the first one that fails; those before it stay set. */
int xp_set_sock_opt(int descriptor, int flags, int on);
/* SO_RCVBUF and SO_SNDBUF, in bytes (the kernel doubles the number). 1 or 0. */
int xp_set_sock_recv_buf(int descriptor, int size);
int xp_set_sock_send_buf(int descriptor, int size);

/* The address a.b.c.d. */
uint32_t xp_inet_addr(int a, int b, int c, int d);
/* Writes the dotted text of an address to `buffer`, of at least 16 bytes, and returns it. */
char *xp_inet_ntoa(uint32_t address, char *buffer);

/* As connect, repeated while a signal interrupts it, whatever xp_io_sigsafe says. */
int xp_sigsafe_connect(int descriptor, const struct sockaddr *address, socklen_t length);
/* As accept, the new descriptor close-on-exec. Kept for callers: despite the name it is tried once and fails with EINTR
 * when a signal comes, so that an accepting loop can be stopped by one. */
int xp_sigsafe_accept(int descriptor, struct sockaddr *address, socklen_t *length);

VORNCORE_END_DECLS

#endif
