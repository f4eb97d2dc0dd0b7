// Round trips and time limits are covered through CClientSocket's tests; what only the
// PAL layer decides is here.
#include "morvex_pal_socket.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace {

constexpr int kTcp = 1;         // domain, type and protocol value of IPv4 / stream / TCP
constexpr int kBoundMs = 10000; // no step of these tests waits longer

// A listening socket on 127.0.0.1 at a port the system picked.
int listeningSocket(unsigned short* port)
{
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (bind(fd, raw, length) != 0 || listen(fd, 4) != 0 || getsockname(fd, raw, &length) != 0)
        ADD_FAILURE() << "loopback socket: errno " << errno;
    *port = ntohs(address.sin_port);
    return fd;
}

std::string whatThePeerReads(int peer)
{
    char buffer[64];
    pollfd ready{peer, POLLIN, 0};
    if (poll(&ready, 1, kBoundMs) != 1)
        return "<nothing came>";
    ssize_t n = recv(peer, buffer, sizeof buffer, 0);
    return n > 0 ? std::string(buffer, size_t(n)) : n == 0 ? "<closed>" : "<errno " + std::to_string(errno) + ">";
}

// Linger on with no time resets the connection on close; off, the peer sees an orderly end.
TEST(Socket, LingerDecidesHowCloseEndsTheConnection)
{
    unsigned short port = 0;
    const int listener = listeningSocket(&port);
    const struct {
        int line;
        int onOff;
        std::string peerSees;
    } rows[] = {
        {__LINE__, 1, "<errno " + std::to_string(ECONNRESET) + ">"},
        {__LINE__, 0, "<closed>"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << "row at line " << row.line);
        sMorvex_PAL_Socket* client = nullptr;
        ASSERT_EQ(Morvex_PAL_SocketCreateClient(&client, kTcp, kTcp, kTcp), SOCKET_OK);
        ASSERT_EQ(Morvex_PAL_SocketConnect(client, "localhost", port), SOCKET_OK);
        const int peer = accept(listener, nullptr, nullptr);
        ASSERT_EQ(Morvex_PAL_SocketSetLinger(client, row.onOff, 0), SOCKET_OK);
        ASSERT_EQ(Morvex_PAL_SocketClose(&client), SOCKET_OK);
        EXPECT_EQ(client, nullptr);
        EXPECT_EQ(whatThePeerReads(peer), row.peerSees);
        close(peer);
    }
    sMorvex_PAL_Socket* client = nullptr;
    ASSERT_EQ(Morvex_PAL_SocketCreateClient(&client, kTcp, kTcp, kTcp), SOCKET_OK);
    EXPECT_EQ(Morvex_PAL_SocketBind(client, port), SOCKET_ERROR_ADDRESS_IN_USE) << "a held port is not shared";
    close(listener);
    EXPECT_EQ(Morvex_PAL_SocketConnect(client, "127.0.0.1", port), SOCKET_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(Morvex_PAL_SocketClose(&client), SOCKET_OK);
}

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

} // namespace
