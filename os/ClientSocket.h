#ifndef OSAL_KIT_OS_CLIENTSOCKET_H
#define OSAL_KIT_OS_CLIENTSOCKET_H

#include "core/Export.h"
#include "core/String.h"
#include "os/Socket.h"

namespace PAL {

/// A client connection over a PAL core socket: create, bind, connect, read (blocking
/// or with a time limit), write and linger.
///
/// Every operation returns a `CSocket::eResult`; all but `Create` return
/// `RESULT_NO_SOCKET` on an object without a socket and then leave their out-arguments
/// alone. Counts (`received`, `written`) are stored after every call that reached the
/// PAL core, success or not. After a successful `Close` the same object can `Create`
/// again. Threads: as `CSocket`, one thread at a time per object.
///
///     PAL::CClientSocket socket;
///     unsigned int received = 0;
///     char reply[64];
///     if (socket.Create(PAL::CSocket::DOMAIN_IPV4, PAL::CSocket::TYPE_STREAM,
///                       PAL::CSocket::PROTOCOL_TCP) == PAL::CSocket::RESULT_OK &&
///         socket.Connect("127.0.0.1", 7000) == PAL::CSocket::RESULT_OK &&
///         socket.Read(reply, sizeof reply, received, 500) == PAL::CSocket::RESULT_OK)
///         use(reply, received);                     // 1 to 64 bytes, within 500 ms
class OSAL_KIT_API CClientSocket : public CSocket {
public:
    CClientSocket();
    /// Closes an open socket, as `CSocket` does.
    virtual ~CClientSocket();

    /// Opens a socket. `RESULT_UNSUPPORTED` unless domain, type and protocol are all 1
    /// (checked before anything else); `RESULT_ALREADY_CREATED` when the object has a
    /// socket (which it keeps).
    eResult Create(const eDomain& domain, const eType& type, const eProtocol& protocol);
    /// Binds to `port` on any local address (0: the system picks one);
    /// `RESULT_ADDRESS_IN_USE` when the port is taken.
    eResult Bind(const unsigned short& port);
    /// Connects to `host` (dotted IPv4 address or host name) at `port`.
    /// `RESULT_CONNECTION_REFUSED` when nothing listens there, `RESULT_UNREACHABLE` for
    /// an unknown host or network, `RESULT_INVALID_PARAMETER` for an empty host.
    eResult Connect(const CString& host, const unsigned short& port);
    /// Waits for at least one byte and reads up to `size` into `buffer`.
    /// `RESULT_CONNECTION_CLOSED` once the peer has closed and everything it sent has
    /// been read; `RESULT_INVALID_POINTER` for a null `buffer`.
    eResult Read(void* buffer, const unsigned int& size, unsigned int& received);
    /// As the blocking `Read`, giving up with `RESULT_TIMEOUT` after `timeout`
    /// (milliseconds on the PAL core of this host; passed on unchanged).
    eResult Read(void* buffer, const unsigned int& size, unsigned int& received, const unsigned int& timeout);
    /// Sends `size` bytes of `data`; `written` gets the number the PAL core sent.
    /// `RESULT_CONNECTION_CLOSED` once the connection is known to be gone (a write is
    /// never answered by a signal); `RESULT_INVALID_POINTER` for null `data`.
    eResult Write(const void* data, const unsigned int& size, unsigned int& written);
    /// Sets lingering on close: `onOff` non-zero makes closing wait up to `seconds` for
    /// unsent data. Both are passed to the PAL core unchanged.
    eResult SetLinger(int onOff, int seconds);
};

} // namespace PAL

#endif
