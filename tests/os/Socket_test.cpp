// CSocket and CSocket::ResultMap: the translation of PAL core codes, closing, and the
// process-wide socket layer calls.

#include "os/ClientSocket.h"
#include "os/Socket.h"

#include "support/AllocationBalance.h"  // FaultGuard

#include <gtest/gtest.h>

#include <vector>

namespace {

using PAL::CClientSocket;
using PAL::CSocket;

class SocketTest : public ::testing::Test {
protected:
    osal_kit_test::FaultGuard faults;
};

TEST_F(SocketTest, ResultMapTranslatesBothWaysThroughItsTable)
{
    // {PAL core code, eResult}: the ten pairs of MAP_TABLE in order, then codes and
    // results without a pair.
    const int pairs[10][2] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 7}, {5, 8}, {6, 9}, {8, 4}, {9, 10}, {10, 11}};
    for (int i = 0; i < 10; ++i) {
        SCOPED_TRACE(i);
        const eMorvex_PAL_SocketError code = static_cast<eMorvex_PAL_SocketError>(pairs[i][0]);
        const CSocket::eResult result = static_cast<CSocket::eResult>(pairs[i][1]);
        EXPECT_EQ(result, CSocket::ResultMap::Map(code));
        EXPECT_EQ(code, CSocket::ResultMap::Map(result));
    }
    for (int code : {7, 11, 15})
        EXPECT_EQ(CSocket::RESULT_INTERNAL_ERROR, CSocket::ResultMap::Map(static_cast<eMorvex_PAL_SocketError>(code))) << code;
    for (int result : {5, 6, 12, -1})
        EXPECT_EQ(SOCKET_ERROR_INTERNAL, CSocket::ResultMap::Map(static_cast<CSocket::eResult>(result))) << result;
}

TEST_F(SocketTest, CloseEndsTheSocketOnceAndOnlyWhenThereIsOne)
{
    const osal_kit_test::PalCalls closes{MORVEX_FAULT_SocketClose};
    {
        CSocket empty;
        EXPECT_EQ(CSocket::RESULT_NO_SOCKET, empty.Close());
    }
    EXPECT_EQ(closes.none(), closes.since()) << "neither Close nor the destructor reached the PAL core";
    CClientSocket socket;
    ASSERT_EQ(CSocket::RESULT_OK, socket.Create(CSocket::DOMAIN_IPV4, CSocket::TYPE_STREAM, CSocket::PROTOCOL_TCP));
    EXPECT_EQ(CSocket::RESULT_OK, socket.Close());
    EXPECT_EQ(CSocket::RESULT_NO_SOCKET, socket.Close());
    EXPECT_EQ(std::vector<unsigned long long>{1}, closes.since());
}

TEST_F(SocketTest, AFailedCloseKeepsTheSocketAndTheDestructorTriesAgain)
{
    const osal_kit_test::PalCalls closes{MORVEX_FAULT_SocketClose};
    {
        CClientSocket socket;
        ASSERT_EQ(CSocket::RESULT_OK, socket.Create(CSocket::DOMAIN_IPV4, CSocket::TYPE_STREAM, CSocket::PROTOCOL_TCP));
        osal_kit_test::failNext(MORVEX_FAULT_SocketClose, SOCKET_ERROR_NOT_INITIALIZED);
        EXPECT_EQ(CSocket::RESULT_INTERNAL_ERROR, socket.Close());
        EXPECT_EQ(CSocket::RESULT_OK, socket.SetLinger(0, 0)) << "the socket is still there";
    }
    EXPECT_EQ(std::vector<unsigned long long>{2}, closes.since());
}

TEST_F(SocketTest, TheSocketLayerCallsAreTranslated)
{
    EXPECT_EQ(CSocket::RESULT_OK, CSocket::InitImplementation());
    osal_kit_test::failNext(MORVEX_FAULT_SocketInitImplementation, SOCKET_ERROR_INTERNAL);
    EXPECT_EQ(CSocket::RESULT_INTERNAL_ERROR, CSocket::InitImplementation());
    osal_kit_test::failNext(MORVEX_FAULT_SocketDeInitImplementation, SOCKET_ERROR_INV_HANDLE);
    EXPECT_EQ(CSocket::RESULT_NO_SOCKET, CSocket::DeInitImplementation());
    EXPECT_EQ(CSocket::RESULT_OK, CSocket::DeInitImplementation());
}

} // namespace
