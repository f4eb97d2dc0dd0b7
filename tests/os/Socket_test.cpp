// CSocket and CSocket::ResultMap: the translation of PAL core codes, closing, and the
// process-wide socket layer calls.

#include "os/ClientSocket.h"

#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

namespace {

using osal_kit_test::failNext;
using PAL::CSocket;

TEST(SocketTest, ResultMapTranslatesBothWaysThroughItsTable)
{
    const int pairs[][2] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 7}, {5, 8}, {6, 9}, {8, 4}, {9, 10}, {10, 11}};
    for (const auto& [code, result] : pairs) {
        EXPECT_EQ(result, CSocket::ResultMap::Map(static_cast<eMorvex_PAL_SocketError>(code))) << code;
        EXPECT_EQ(code, CSocket::ResultMap::Map(static_cast<CSocket::eResult>(result))) << result;
    }
    for (int code : {7, 11, 15})
        EXPECT_EQ(CSocket::RESULT_INTERNAL_ERROR, CSocket::ResultMap::Map(static_cast<eMorvex_PAL_SocketError>(code)));
    for (int result : {5, 6, 12, -1})
        EXPECT_EQ(SOCKET_ERROR_INTERNAL, CSocket::ResultMap::Map(static_cast<CSocket::eResult>(result)));
    EXPECT_EQ(CSocket::RESULT_OK, CSocket::InitImplementation());
    failNext(MORVEX_FAULT_SocketInitImplementation, SOCKET_ERROR_INTERNAL);
    EXPECT_EQ(CSocket::RESULT_INTERNAL_ERROR, CSocket::InitImplementation());
    failNext(MORVEX_FAULT_SocketDeInitImplementation, SOCKET_ERROR_INV_HANDLE);
    EXPECT_EQ(CSocket::RESULT_NO_SOCKET, CSocket::DeInitImplementation());
    EXPECT_EQ(CSocket::RESULT_OK, CSocket::DeInitImplementation());
}

// Closing ends the socket once; a failed close keeps it (the client socket's test), and
// the destructor closes what is left.
TEST(SocketTest, CloseEndsTheSocketOnceAndTheDestructorClosesWhatIsLeft)
{
    const unsigned long long closes = Morvex_Fault_Calls(MORVEX_FAULT_SocketClose);
    EXPECT_EQ(CSocket::RESULT_NO_SOCKET, CSocket().Close());
    {
        PAL::CClientSocket closed, open;
        for (PAL::CClientSocket* socket : {&closed, &open})
            ASSERT_EQ(CSocket::RESULT_OK, socket->Create(CSocket::DOMAIN_IPV4, CSocket::TYPE_STREAM, CSocket::PROTOCOL_TCP));
        EXPECT_EQ(CSocket::RESULT_OK, closed.Close());
        EXPECT_EQ(CSocket::RESULT_NO_SOCKET, closed.Close());
    }
    EXPECT_EQ(2u, Morvex_Fault_Calls(MORVEX_FAULT_SocketClose) - closes);
}

} // namespace
