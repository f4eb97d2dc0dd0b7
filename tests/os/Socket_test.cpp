// CSocket and CSocket::ResultMap: the translation of PAL core codes, closing, and the
// process-wide socket layer calls.

#include "os/ClientSocket.h"
#include "os/Socket.h"

#include "support/AllocationBalance.h"  // FaultGuard

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

namespace {

using PAL::CClientSocket;
using PAL::CSocket;

unsigned long long closeCalls()
{
    return Morvex_Fault_Calls(MORVEX_FAULT_SocketClose);
}

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
        EXPECT_EQ(code, CSocket::ResultMap::MAP_TABLE[i].palCode);
        EXPECT_EQ(result, CSocket::ResultMap::MAP_TABLE[i].result);
        EXPECT_EQ(result, CSocket::ResultMap::Map(code));
        EXPECT_EQ(code, CSocket::ResultMap::Map(result));
    }
    for (int code : {7, 11, 15}) {
        EXPECT_EQ(CSocket::RESULT_INTERNAL_ERROR, CSocket::ResultMap::Map(static_cast<eMorvex_PAL_SocketError>(code)))
            << code;
    }
    for (int result : {5, 6, 12, -1}) {
        EXPECT_EQ(SOCKET_ERROR_INTERNAL, CSocket::ResultMap::Map(static_cast<CSocket::eResult>(result))) << result;
    }
}

TEST_F(SocketTest, CloseEndsTheSocketOnceAndOnlyWhenThereIsOne)
{
    const unsigned long long before = closeCalls();
    {
        CSocket empty;
        EXPECT_EQ(CSocket::RESULT_NO_SOCKET, empty.Close());
    }
    EXPECT_EQ(before, closeCalls()) << "neither Close nor the destructor reached the PAL core";

    CClientSocket socket;
    ASSERT_EQ(CSocket::RESULT_OK, socket.Create(CSocket::DOMAIN_IPV4, CSocket::TYPE_STREAM, CSocket::PROTOCOL_TCP));
    EXPECT_EQ(CSocket::RESULT_OK, socket.Close());
    EXPECT_EQ(CSocket::RESULT_NO_SOCKET, socket.Close());
    EXPECT_EQ(before + 1, closeCalls());
}

TEST_F(SocketTest, AFailedCloseKeepsTheSocketAndTheDestructorTriesAgain)
{
    const unsigned long long before = closeCalls();
    {
        CClientSocket socket;
        ASSERT_EQ(CSocket::RESULT_OK, socket.Create(CSocket::DOMAIN_IPV4, CSocket::TYPE_STREAM, CSocket::PROTOCOL_TCP));
        Morvex_Fault_ArmEx(MORVEX_FAULT_SocketClose, SOCKET_ERROR_NOT_INITIALIZED, 0, 1, 1);
        EXPECT_EQ(CSocket::RESULT_INTERNAL_ERROR, socket.Close());
        EXPECT_EQ(CSocket::RESULT_OK, socket.SetLinger(0, 0)) << "the socket is still there";
    }
    EXPECT_EQ(before + 2, closeCalls());
}

TEST_F(SocketTest, TheSocketLayerCallsAreTranslated)
{
    EXPECT_EQ(CSocket::RESULT_OK, CSocket::InitImplementation());
    Morvex_Fault_ArmEx(MORVEX_FAULT_SocketInitImplementation, SOCKET_ERROR_INTERNAL, 0, 1, 1);
    EXPECT_EQ(CSocket::RESULT_INTERNAL_ERROR, CSocket::InitImplementation());
    Morvex_Fault_ArmEx(MORVEX_FAULT_SocketDeInitImplementation, SOCKET_ERROR_INV_HANDLE, 0, 1, 1);
    EXPECT_EQ(CSocket::RESULT_NO_SOCKET, CSocket::DeInitImplementation());
    EXPECT_EQ(CSocket::RESULT_OK, CSocket::DeInitImplementation());
}

} // namespace
