#include "os/ClientSocket.h"

namespace PAL {

CClientSocket::CClientSocket()
{
}

CClientSocket::~CClientSocket()
{
}

CSocket::eResult CClientSocket::Create(const eDomain& domain, const eType& type, const eProtocol& protocol)
{
    if (domain != DOMAIN_IPV4 || type != TYPE_STREAM || protocol != PROTOCOL_TCP) {
        return RESULT_UNSUPPORTED;
    }
    if (mHandle != 0) {
        return RESULT_ALREADY_CREATED;
    }
    // The handle is taken only from a successful creation, so a failure leaves the
    // object without a socket whatever the PAL core wrote.
    sMorvex_PAL_Socket* handle = 0;
    const eResult result = ResultMap::Map(Morvex_PAL_SocketCreateClient(&handle, domain, type, protocol));
    if (result == RESULT_OK) {
        mHandle = handle;
    }
    return result;
}

CSocket::eResult CClientSocket::Bind(const unsigned short& port)
{
    if (mHandle == 0) {
        return RESULT_NO_SOCKET;
    }
    return ResultMap::Map(Morvex_PAL_SocketBind(mHandle, port));
}

CSocket::eResult CClientSocket::Connect(const CString& host, const unsigned short& port)
{
    if (mHandle == 0) {
        return RESULT_NO_SOCKET;
    }
    return ResultMap::Map(Morvex_PAL_SocketConnect(mHandle, host.getBuffer(), port));
}

CSocket::eResult CClientSocket::Read(void* buffer, const unsigned int& size, unsigned int& received)
{
    if (mHandle == 0) {
        return RESULT_NO_SOCKET;
    }
    unsigned int count = 0;
    const eResult result = ResultMap::Map(Morvex_PAL_SocketRead(mHandle, buffer, size, &count));
    received = count;
    return result;
}

CSocket::eResult CClientSocket::Read(void* buffer, const unsigned int& size, unsigned int& received,
                                     const unsigned int& timeout)
{
    if (mHandle == 0) {
        return RESULT_NO_SOCKET;
    }
    unsigned int count = 0;
    const eResult result = ResultMap::Map(Morvex_PAL_NonBlockingSocketRead(mHandle, buffer, size, &count, timeout));
    received = count;
    return result;
}

CSocket::eResult CClientSocket::Write(const void* data, const unsigned int& size, unsigned int& written)
{
    if (mHandle == 0) {
        return RESULT_NO_SOCKET;
    }
    unsigned int count = 0;
    const eResult result = ResultMap::Map(Morvex_PAL_SocketWrite(mHandle, data, size, &count));
    written = count;
    return result;
}

CSocket::eResult CClientSocket::SetLinger(int onOff, int seconds)
{
    if (mHandle == 0) {
        return RESULT_NO_SOCKET;
    }
    return ResultMap::Map(Morvex_PAL_SocketSetLinger(mHandle, onOff, seconds));
}

} // namespace PAL
