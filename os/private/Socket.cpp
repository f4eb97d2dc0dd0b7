#include "os/Socket.h"

namespace PAL {

const CSocket::ResultMap::SPair CSocket::ResultMap::MAP_TABLE[10] = {
    {SOCKET_OK, RESULT_OK},
    {SOCKET_ERROR_INV_POINTER, RESULT_INVALID_POINTER},
    {SOCKET_ERROR_INV_PARAM, RESULT_INVALID_PARAMETER},
    {SOCKET_ERROR_TIMEOUT, RESULT_TIMEOUT},
    {SOCKET_ERROR_CONNECTION_REFUSED, RESULT_CONNECTION_REFUSED},
    {SOCKET_ERROR_CONNECTION_CLOSED, RESULT_CONNECTION_CLOSED},
    {SOCKET_ERROR_ADDRESS_IN_USE, RESULT_ADDRESS_IN_USE},
    {SOCKET_ERROR_INV_HANDLE, RESULT_NO_SOCKET},
    {SOCKET_ERROR_UNREACHABLE, RESULT_UNREACHABLE},
    {SOCKET_ERROR_INTERNAL, RESULT_INTERNAL_ERROR},
};

namespace {

const unsigned int MAP_TABLE_SIZE = sizeof(CSocket::ResultMap::MAP_TABLE) / sizeof(CSocket::ResultMap::MAP_TABLE[0]);

} // namespace

CSocket::eResult CSocket::ResultMap::Map(const eMorvex_PAL_SocketError& code)
{
    for (unsigned int i = 0; i < MAP_TABLE_SIZE; ++i) {
        if (MAP_TABLE[i].palCode == code) {
            return MAP_TABLE[i].result;
        }
    }
    return RESULT_INTERNAL_ERROR;
}

eMorvex_PAL_SocketError CSocket::ResultMap::Map(const eResult& result)
{
    for (unsigned int i = 0; i < MAP_TABLE_SIZE; ++i) {
        if (MAP_TABLE[i].result == result) {
            return MAP_TABLE[i].palCode;
        }
    }
    return SOCKET_ERROR_INTERNAL;
}

CSocket::CSocket()
    : mHandle(0)
{
}

CSocket::~CSocket()
{
    if (mHandle != 0) {
        (void)Close();
    }
}

CSocket::eResult CSocket::Close()
{
    if (mHandle == 0) {
        return RESULT_NO_SOCKET;
    }
    // The PAL core clears the handle it closed; a failed close keeps it for a retry.
    const eResult result = ResultMap::Map(Morvex_PAL_SocketClose(&mHandle));
    if (result == RESULT_OK) {
        mHandle = 0;
    }
    return result;
}

CSocket::eResult CSocket::InitImplementation()
{
    return ResultMap::Map(Morvex_PAL_SocketInitImplementation());
}

CSocket::eResult CSocket::DeInitImplementation()
{
    return ResultMap::Map(Morvex_PAL_SocketDeInitImplementation());
}

} // namespace PAL
