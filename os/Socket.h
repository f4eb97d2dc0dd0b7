#ifndef OSAL_KIT_OS_SOCKET_H
#define OSAL_KIT_OS_SOCKET_H

#include "core/Export.h"
#include "morvex_pal_socket.h"

namespace PAL {

/// Owns one PAL core socket and closes it when destroyed.
///
/// Every operation reports through `eResult`, translated from the PAL core's codes by
/// `ResultMap`; nothing throws or traces. An object without a socket answers every
/// operation with `RESULT_NO_SOCKET`. A socket is not copyable.
///
/// Threads: no locking. One socket object is used by one thread at a time; `Close` and
/// the destructor must not run while another thread reads or writes on the object.
class OSAL_KIT_API CSocket {
public:
    /// Results of the socket operations (0 is success).
    enum eResult : int {
        RESULT_OK = 0,
        RESULT_INVALID_POINTER = 1,    ///< a null buffer or count
        RESULT_INVALID_PARAMETER = 2,  ///< e.g. a host that is neither a name nor an address
        RESULT_TIMEOUT = 3,            ///< a read's time limit passed with nothing received
        RESULT_NO_SOCKET = 4,          ///< the object has no socket (or the PAL core's handle was null)
        RESULT_ALREADY_CREATED = 5,    ///< `Create` on an object that has a socket
        RESULT_UNSUPPORTED = 6,        ///< `Create` with a domain, type or protocol other than 1
        RESULT_CONNECTION_REFUSED = 7,
        RESULT_CONNECTION_CLOSED = 8,  ///< the peer closed (or reset) the connection
        RESULT_ADDRESS_IN_USE = 9,
        RESULT_UNREACHABLE = 10,       ///< host not found, network unreachable, connect timed out
        RESULT_INTERNAL_ERROR = 11     ///< any other failure, and PAL core codes without a pair
    };
    /// Address families; the one supported is passed to the PAL core unchanged.
    enum eDomain : int { DOMAIN_IPV4 = 1 };
    /// Socket types; the one supported is passed to the PAL core unchanged.
    enum eType : int { TYPE_STREAM = 1 };
    /// Protocols; the one supported is passed to the PAL core unchanged.
    enum eProtocol : int { PROTOCOL_TCP = 1 };

    /// Translates between the PAL core's socket codes and `eResult` through `MAP_TABLE`.
    /// A constant table: any thread may call `Map`.
    class OSAL_KIT_API ResultMap {
    public:
        /// One row: a PAL core code and the result it stands for.
        struct SPair {
            eMorvex_PAL_SocketError palCode; ///< the PAL core's code
            eResult result;                  ///< the library's result
        };
        /// The ten pairs, in this order: 0-0, 1-1, 2-2, 3-3, 4-7, 5-8, 6-9, 8-4, 9-10, 10-11.
        static const SPair MAP_TABLE[10];

        /// The `eResult` paired with `code`; `RESULT_INTERNAL_ERROR` for a code without
        /// a pair (7, or anything above 10).
        static eResult Map(const eMorvex_PAL_SocketError& code);
        /// The PAL core code paired with `result`; `SOCKET_ERROR_INTERNAL` (10) for a
        /// result without a pair (5, 6, or anything above 11).
        static eMorvex_PAL_SocketError Map(const eResult& result);

    private:
        ResultMap() = delete;
    };

    /// An object without a socket.
    CSocket();
    /// Closes an open socket; the result is dropped.
    virtual ~CSocket();

    /// Closes the socket; `RESULT_NO_SOCKET` without one. A failed close keeps the
    /// socket, so it can be tried again (the destructor does once more).
    eResult Close();

    /// Prepares the PAL core's socket layer for the process; for the application to
    /// call, never called by the library. Call it once, from one thread, before the
    /// first socket is created; the PAL core's code comes back translated.
    static eResult InitImplementation();
    /// Releases what `InitImplementation` prepared; call it once no socket is in use.
    static eResult DeInitImplementation();

protected:
    /// The PAL core handle; null while there is no socket.
    sMorvex_PAL_Socket* mHandle;

private:
    CSocket(const CSocket&) = delete;
    CSocket& operator=(const CSocket&) = delete;
};

} // namespace PAL

#endif
