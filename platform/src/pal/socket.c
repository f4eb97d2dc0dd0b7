#include "morvex_pal_socket.h"

#include "fault_internal.h"

#include <arpa/inet.h>
#include <errno.h>
#include <limits.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdatomic.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#define SELECT_DEFAULT 1 /* domain, type and protocol value of IPv4 / stream / TCP */

struct sMorvex_PAL_Socket {
    int fd;
};

/* Sockets need no set-up on this host; the count only pairs Init with DeInit. */
static atomic_uint g_initCount;

static eMorvex_PAL_SocketError fromErrno(int error)
{
    switch (error) {
    case ECONNREFUSED:
        return SOCKET_ERROR_CONNECTION_REFUSED;
    case EPIPE:
    case ECONNRESET:
    case ECONNABORTED:
        return SOCKET_ERROR_CONNECTION_CLOSED;
    case EADDRINUSE:
        return SOCKET_ERROR_ADDRESS_IN_USE;
    case ENETUNREACH:
    case EHOSTUNREACH:
    case ETIMEDOUT:
        return SOCKET_ERROR_UNREACHABLE;
    default:
        return SOCKET_ERROR_INTERNAL;
    }
}

eMorvex_PAL_SocketError Morvex_PAL_SocketInitImplementation(void)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SocketInitImplementation, eMorvex_PAL_SocketError);
    atomic_fetch_add_explicit(&g_initCount, 1u, memory_order_relaxed);
    return SOCKET_OK;
}

eMorvex_PAL_SocketError Morvex_PAL_SocketDeInitImplementation(void)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SocketDeInitImplementation, eMorvex_PAL_SocketError);
    unsigned int count = atomic_load_explicit(&g_initCount, memory_order_relaxed);
    do {
        if (count == 0)
            return SOCKET_ERROR_NOT_INITIALIZED;
    } while (!atomic_compare_exchange_weak_explicit(&g_initCount, &count, count - 1u, memory_order_relaxed,
                                                    memory_order_relaxed));
    return SOCKET_OK;
}

eMorvex_PAL_SocketError Morvex_PAL_SocketCreateClient(sMorvex_PAL_Socket** handle, int domain, int type,
                                                    int protocol)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SocketCreateClient, eMorvex_PAL_SocketError);
    if (handle == Morvex_NULL)
        return SOCKET_ERROR_INV_POINTER;
    if (domain != SELECT_DEFAULT || type != SELECT_DEFAULT || protocol != SELECT_DEFAULT)
        return SOCKET_ERROR_INV_PARAM;
    sMorvex_PAL_Socket* sock = (sMorvex_PAL_Socket*)malloc(sizeof *sock);
    if (sock == Morvex_NULL)
        return SOCKET_ERROR_INTERNAL;
    sock->fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (sock->fd < 0) {
        eMorvex_PAL_SocketError result = fromErrno(errno);
        free(sock);
        return result;
    }
    *handle = sock;
    return SOCKET_OK;
}

eMorvex_PAL_SocketError Morvex_PAL_SocketBind(sMorvex_PAL_Socket* handle, unsigned short port)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SocketBind, eMorvex_PAL_SocketError);
    if (handle == Morvex_NULL)
        return SOCKET_ERROR_INV_HANDLE;
    /* No SO_REUSEADDR: a port someone else holds must be refused, not shared. */
    struct sockaddr_in address;
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(port);
    if (bind(handle->fd, (const struct sockaddr*)&address, sizeof address) != 0)
        return fromErrno(errno);
    return SOCKET_OK;
}

static eMorvex_PAL_SocketError resolve(const char* host, struct in_addr* result)
{
    if (host[0] == '\0')
        return SOCKET_ERROR_INV_PARAM;
    if (inet_pton(AF_INET, host, result) == 1)
        return SOCKET_OK;
    struct addrinfo hints;
    memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    struct addrinfo* found = Morvex_NULL;
    int rc = getaddrinfo(host, Morvex_NULL, &hints, &found);
    if (rc != 0) {
        switch (rc) {
        case EAI_NONAME:
        case EAI_AGAIN:
        case EAI_FAIL:
#ifdef EAI_NODATA
        case EAI_NODATA:
#endif
#ifdef EAI_ADDRFAMILY
        case EAI_ADDRFAMILY:
#endif
            return SOCKET_ERROR_UNREACHABLE;
        default:
            return SOCKET_ERROR_INTERNAL;
        }
    }
    eMorvex_PAL_SocketError status = SOCKET_ERROR_UNREACHABLE;
    for (const struct addrinfo* entry = found; entry != Morvex_NULL; entry = entry->ai_next) {
        if (entry->ai_family == AF_INET && entry->ai_addrlen >= sizeof(struct sockaddr_in)) {
            struct sockaddr_in address;
            memcpy(&address, entry->ai_addr, sizeof address); /* ai_addr is not aligned for us */
            *result = address.sin_addr;
            status = SOCKET_OK;
            break;
        }
    }
    freeaddrinfo(found);
    return status;
}

eMorvex_PAL_SocketError Morvex_PAL_SocketConnect(sMorvex_PAL_Socket* handle, const char* host,
                                               unsigned short port)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SocketConnect, eMorvex_PAL_SocketError);
    if (handle == Morvex_NULL)
        return SOCKET_ERROR_INV_HANDLE;
    if (host == Morvex_NULL)
        return SOCKET_ERROR_INV_POINTER;
    struct sockaddr_in address;
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    eMorvex_PAL_SocketError result = resolve(host, &address.sin_addr);
    if (result != SOCKET_OK)
        return result;
    if (connect(handle->fd, (const struct sockaddr*)&address, sizeof address) != 0)
        return fromErrno(errno);
    return SOCKET_OK;
}

static eMorvex_PAL_SocketError checkReadArguments(const sMorvex_PAL_Socket* handle, const void* buffer,
                                                  const unsigned int* count)
{
    if (handle == Morvex_NULL)
        return SOCKET_ERROR_INV_HANDLE;
    if (buffer == Morvex_NULL || count == Morvex_NULL)
        return SOCKET_ERROR_INV_POINTER;
    return SOCKET_OK;
}

/* One recv: a result of 0 bytes for a non-empty buffer is the peer's orderly close. */
static eMorvex_PAL_SocketError receive(int fd, void* buffer, unsigned int size, unsigned int* count, int flags)
{
    ssize_t received;
    do {
        received = recv(fd, buffer, size, flags);
    } while (received < 0 && errno == EINTR);
    if (received < 0)
        return (errno == EAGAIN || errno == EWOULDBLOCK) ? SOCKET_ERROR_TIMEOUT : fromErrno(errno);
    if (received == 0)
        return SOCKET_ERROR_CONNECTION_CLOSED;
    *count = (unsigned int)received;
    return SOCKET_OK;
}

eMorvex_PAL_SocketError Morvex_PAL_SocketRead(sMorvex_PAL_Socket* handle, void* buffer, unsigned int size,
                                            unsigned int* count)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SocketRead, eMorvex_PAL_SocketError);
    eMorvex_PAL_SocketError result = checkReadArguments(handle, buffer, count);
    if (result != SOCKET_OK)
        return result;
    *count = 0;
    if (size == 0)
        return SOCKET_OK;
    return receive(handle->fd, buffer, size, count, 0);
}

static long long monotonicMs(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (long long)now.tv_sec * 1000LL + now.tv_nsec / 1000000L;
}

eMorvex_PAL_SocketError Morvex_PAL_NonBlockingSocketRead(sMorvex_PAL_Socket* handle, void* buffer,
                                                       unsigned int size, unsigned int* count,
                                                       unsigned int timeoutMs)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_NonBlockingSocketRead, eMorvex_PAL_SocketError);
    eMorvex_PAL_SocketError result = checkReadArguments(handle, buffer, count);
    if (result != SOCKET_OK)
        return result;
    *count = 0;
    if (size == 0)
        return SOCKET_OK;
    long long deadline = monotonicMs() + timeoutMs;
    /* Loops when a signal cuts the poll short or another reader took the data first. */
    for (;;) {
        long long remaining = deadline - monotonicMs();
        if (remaining < 0)
            remaining = 0;
        struct pollfd watch = {handle->fd, POLLIN, 0};
        int ready = poll(&watch, 1, remaining > INT_MAX ? INT_MAX : (int)remaining);
        if (ready < 0 && errno != EINTR)
            return fromErrno(errno);
        if (ready > 0) {
            result = receive(handle->fd, buffer, size, count, MSG_DONTWAIT);
            if (result != SOCKET_ERROR_TIMEOUT)
                return result;
        } else if (ready == 0 && remaining == 0) {
            return SOCKET_ERROR_TIMEOUT;
        }
    }
}

eMorvex_PAL_SocketError Morvex_PAL_SocketWrite(sMorvex_PAL_Socket* handle, const void* data, unsigned int size,
                                             unsigned int* count)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SocketWrite, eMorvex_PAL_SocketError);
    if (handle == Morvex_NULL)
        return SOCKET_ERROR_INV_HANDLE;
    if (data == Morvex_NULL || count == Morvex_NULL)
        return SOCKET_ERROR_INV_POINTER;
    unsigned int sent = 0;
    eMorvex_PAL_SocketError result = SOCKET_OK;
    while (sent < size) {
        ssize_t n = send(handle->fd, (const char*)data + sent, size - sent, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            result = fromErrno(errno);
            break;
        }
        sent += (unsigned int)n;
    }
    *count = sent;
    return result;
}

eMorvex_PAL_SocketError Morvex_PAL_SocketSetLinger(sMorvex_PAL_Socket* handle, int onOff, int seconds)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SocketSetLinger, eMorvex_PAL_SocketError);
    if (handle == Morvex_NULL)
        return SOCKET_ERROR_INV_HANDLE;
    if (onOff && seconds < 0)
        return SOCKET_ERROR_INV_PARAM;
    struct linger linger;
    linger.l_onoff = onOff != 0;
    linger.l_linger = onOff ? seconds : 0;
    if (setsockopt(handle->fd, SOL_SOCKET, SO_LINGER, &linger, sizeof linger) != 0)
        return fromErrno(errno);
    return SOCKET_OK;
}

eMorvex_PAL_SocketError Morvex_PAL_SocketClose(sMorvex_PAL_Socket** handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SocketClose, eMorvex_PAL_SocketError);
    if (handle == Morvex_NULL)
        return SOCKET_ERROR_INV_POINTER;
    if (*handle == Morvex_NULL)
        return SOCKET_ERROR_INV_HANDLE;
    /* The descriptor is gone after close() whatever it returns (EINTR included), so a
     * failure is not reported back as a handle the caller could retry with. */
    close((*handle)->fd);
    free(*handle);
    *handle = Morvex_NULL;
    return SOCKET_OK;
}
