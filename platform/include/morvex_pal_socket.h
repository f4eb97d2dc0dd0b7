/* Client sockets of the PAL core: TCP over IPv4. The domain, type and protocol value 1
 * each select IPv4, stream and TCP; every other value is refused. Read timeouts are in
 * milliseconds. Writing to a socket whose peer has gone returns an error, never a signal. */
#ifndef MORVEX_PAL_SOCKET_H
#define MORVEX_PAL_SOCKET_H

#include "morvex_pal_types.h"

MORVEX_BEGIN_DECLS

typedef enum eMorvex_PAL_SocketError {
    SOCKET_OK = 0,
    SOCKET_ERROR_INV_POINTER = 1,      /* a NULL buffer or out pointer */
    SOCKET_ERROR_INV_PARAM = 2,        /* unsupported domain, type or protocol; unparsable host */
    SOCKET_ERROR_TIMEOUT = 3,          /* the read's time limit passed with nothing received */
    SOCKET_ERROR_CONNECTION_REFUSED = 4,
    SOCKET_ERROR_CONNECTION_CLOSED = 5,/* the peer closed the connection (or reset it) */
    SOCKET_ERROR_ADDRESS_IN_USE = 6,   /* bind */
    SOCKET_ERROR_NOT_INITIALIZED = 7,  /* the socket layer is not initialised for the process */
    SOCKET_ERROR_INV_HANDLE = 8,       /* a NULL handle */
    SOCKET_ERROR_UNREACHABLE = 9,      /* host not found, network unreachable, connect timed out */
    SOCKET_ERROR_INTERNAL = 10         /* any other failure of the system */
} eMorvex_PAL_SocketError;

typedef struct sMorvex_PAL_Socket sMorvex_PAL_Socket;

/* Prepares the socket layer for the process; may be called more than once. The layer
 * is usable without it: sockets never need it on this host. */
MORVEX_API eMorvex_PAL_SocketError Morvex_PAL_SocketInitImplementation(void);
MORVEX_API eMorvex_PAL_SocketError Morvex_PAL_SocketDeInitImplementation(void);

MORVEX_API eMorvex_PAL_SocketError Morvex_PAL_SocketCreateClient(sMorvex_PAL_Socket** handle, int domain,
                                                               int type, int protocol);
/* Binds to `port` on any local address (0: a port the system picks). */
MORVEX_API eMorvex_PAL_SocketError Morvex_PAL_SocketBind(sMorvex_PAL_Socket* handle, unsigned short port);
/* Connects to `host` (dotted IPv4 text or a host name) at `port`. */
MORVEX_API eMorvex_PAL_SocketError Morvex_PAL_SocketConnect(sMorvex_PAL_Socket* handle, const char* host,
                                                          unsigned short port);
/* Blocks until at least one byte (at most `size`) has arrived; *count gets the number. */
MORVEX_API eMorvex_PAL_SocketError Morvex_PAL_SocketRead(sMorvex_PAL_Socket* handle, void* buffer,
                                                       unsigned int size, unsigned int* count);
/* As Morvex_PAL_SocketRead, giving up with SOCKET_ERROR_TIMEOUT after `timeoutMs` ms. */
MORVEX_API eMorvex_PAL_SocketError Morvex_PAL_NonBlockingSocketRead(sMorvex_PAL_Socket* handle, void* buffer,
                                                                  unsigned int size, unsigned int* count,
                                                                  unsigned int timeoutMs);
/* Sends all `size` bytes unless an error comes first; *count gets the number sent. */
MORVEX_API eMorvex_PAL_SocketError Morvex_PAL_SocketWrite(sMorvex_PAL_Socket* handle, const void* data,
                                                        unsigned int size, unsigned int* count);
/* onOff non-zero: closing waits up to `seconds` for unsent data; zero: linger off. */
MORVEX_API eMorvex_PAL_SocketError Morvex_PAL_SocketSetLinger(sMorvex_PAL_Socket* handle, int onOff,
                                                            int seconds);
/* Closes the socket and sets *handle to NULL. */
MORVEX_API eMorvex_PAL_SocketError Morvex_PAL_SocketClose(sMorvex_PAL_Socket** handle);

MORVEX_END_DECLS

#endif
