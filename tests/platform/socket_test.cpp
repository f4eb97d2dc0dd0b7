#include "morvex_pal_socket.h"

#include <gtest/gtest.h>

TEST(Socket, OnlyTcpOverIPv4AndALingerTimeOfAtLeastZeroAreAccepted)
{
    sMorvex_PAL_Socket* client = nullptr;
    EXPECT_EQ(Morvex_PAL_SocketCreateClient(&client, 2, 1, 1), SOCKET_ERROR_INV_PARAM);
    ASSERT_EQ(Morvex_PAL_SocketCreateClient(&client, 1, 1, 1), SOCKET_OK);
    EXPECT_EQ(Morvex_PAL_SocketSetLinger(client, 1, -1), SOCKET_ERROR_INV_PARAM);
    EXPECT_EQ(Morvex_PAL_SocketSetLinger(client, 1, 0), SOCKET_OK);
    EXPECT_EQ(Morvex_PAL_SocketClose(&client), SOCKET_OK);
    EXPECT_EQ(Morvex_PAL_SocketClose(&client), SOCKET_ERROR_INV_HANDLE);
    EXPECT_EQ(Morvex_PAL_SocketDeInitImplementation(), SOCKET_ERROR_NOT_INITIALIZED);
}
