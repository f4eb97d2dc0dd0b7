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

// A plain socket on 127.0.0.1 at a port the system picked.
int loopbackSocket(unsigned short* port, bool listening)
{
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (bind(fd, raw, length) != 0 || (listening && listen(fd, 4) != 0) || getsockname(fd, raw, &length) != 0)
        ADD_FAILURE() << "loopback socket: errno " << errno;
    *port = ntohs(address.sin_port);
    return fd;
}

// The test's own server end: a listener, and the peer the client connects to.
class Socket : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(Morvex_PAL_SocketCreateClient(&client_, kTcp, kTcp, kTcp), SOCKET_OK); }
    void TearDown() override
    {
        Morvex_PAL_SocketClose(&client_);
        close(peer_);
        close(listener_);
    }

    void connectToServer(const char* host = "127.0.0.1")
    {
        ASSERT_EQ(Morvex_PAL_SocketConnect(client_, host, port_), SOCKET_OK);
        pollfd ready{listener_, POLLIN, 0};
        ASSERT_EQ(poll(&ready, 1, kBoundMs), 1);
        close(peer_);
        peer_ = accept(listener_, nullptr, nullptr);
    }

    std::string peerReads()
    {
        char buffer[64];
        pollfd ready{peer_, POLLIN, 0};
        if (poll(&ready, 1, kBoundMs) != 1)
            return "<nothing came>";
        ssize_t n = recv(peer_, buffer, sizeof buffer, 0);
        return n > 0 ? std::string(buffer, size_t(n)) : n == 0 ? "<closed>" : "<errno " + std::to_string(errno) + ">";
    }

    unsigned short port_ = 0;
    int listener_ = loopbackSocket(&port_, true);
    int peer_ = -1;
    sMorvex_PAL_Socket* client_ = nullptr;
    char buffer_[16] = {};
    unsigned int count_ = 99;
};

TEST_F(Socket, WriteAndReadRoundTrip)
{
    connectToServer("localhost");
    ASSERT_EQ(Morvex_PAL_SocketWrite(client_, "hello", 5, &count_), SOCKET_OK);
    EXPECT_EQ(count_, 5u);
    EXPECT_EQ(peerReads(), "hello");
    ASSERT_EQ(send(peer_, "world", 5, 0), 5);
    ASSERT_EQ(Morvex_PAL_NonBlockingSocketRead(client_, buffer_, sizeof buffer_, &count_, kBoundMs), SOCKET_OK);
    EXPECT_EQ(std::string(buffer_, count_), "world");
}

TEST_F(Socket, ReadWithATimeLimitTimesOutWhenNothingComes)
{
    connectToServer();
    EXPECT_EQ(Morvex_PAL_NonBlockingSocketRead(client_, buffer_, sizeof buffer_, &count_, 20), SOCKET_ERROR_TIMEOUT);
    EXPECT_EQ(count_, 0u);
}

TEST_F(Socket, APeerThatClosesEndsReadsAndWrites)
{
    connectToServer();
    close(peer_);
    peer_ = -1;
    EXPECT_EQ(Morvex_PAL_SocketRead(client_, buffer_, sizeof buffer_, &count_), SOCKET_ERROR_CONNECTION_CLOSED);
    EXPECT_EQ(count_, 0u);
    // The first writes may still be accepted locally; the reset must surface soon, as an error.
    eMorvex_PAL_SocketError result = SOCKET_OK;
    for (int i = 0; i < 100 && result == SOCKET_OK; ++i)
        result = Morvex_PAL_SocketWrite(client_, "x", 1, &count_);
    EXPECT_EQ(result, SOCKET_ERROR_CONNECTION_CLOSED);
}

TEST_F(Socket, ConnectAndBindAreRefusedWhereThePortSaysNo)
{
    unsigned short unheard = 0;
    const int boundOnly = loopbackSocket(&unheard, false); // keeps the port from any listener
    EXPECT_EQ(Morvex_PAL_SocketConnect(client_, "127.0.0.1", unheard), SOCKET_ERROR_CONNECTION_REFUSED);
    close(boundOnly);
    sMorvex_PAL_Socket* other = nullptr;
    ASSERT_EQ(Morvex_PAL_SocketCreateClient(&other, kTcp, kTcp, kTcp), SOCKET_OK);
    EXPECT_EQ(Morvex_PAL_SocketBind(other, port_), SOCKET_ERROR_ADDRESS_IN_USE);
    EXPECT_EQ(Morvex_PAL_SocketBind(other, 0), SOCKET_OK);
    EXPECT_EQ(Morvex_PAL_SocketClose(&other), SOCKET_OK);
    EXPECT_EQ(other, nullptr);
}

// Linger on with no time resets the connection on close; off, the peer sees an orderly end.
TEST_F(Socket, LingerDecidesHowCloseEndsTheConnection)
{
    struct Row {
        int line;
        int onOff;
        std::string peerSees;
    } const rows[] = {
        {__LINE__, 1, "<errno " + std::to_string(ECONNRESET) + ">"},
        {__LINE__, 0, "<closed>"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << "row at line " << row.line);
        if (client_ == nullptr) {
            ASSERT_EQ(Morvex_PAL_SocketCreateClient(&client_, kTcp, kTcp, kTcp), SOCKET_OK);
        }
        connectToServer();
        ASSERT_EQ(Morvex_PAL_SocketSetLinger(client_, row.onOff, 0), SOCKET_OK);
        ASSERT_EQ(Morvex_PAL_SocketClose(&client_), SOCKET_OK);
        EXPECT_EQ(peerReads(), row.peerSees);
    }
}

TEST_F(Socket, BadArgumentsAreReported)
{
    sMorvex_PAL_Socket* none = nullptr;
    EXPECT_EQ(Morvex_PAL_SocketCreateClient(&none, 2, kTcp, kTcp), SOCKET_ERROR_INV_PARAM);
    EXPECT_EQ(Morvex_PAL_SocketCreateClient(&none, kTcp, kTcp, 0), SOCKET_ERROR_INV_PARAM);
    EXPECT_EQ(Morvex_PAL_SocketConnect(client_, "", port_), SOCKET_ERROR_INV_PARAM);
    EXPECT_EQ(Morvex_PAL_SocketRead(client_, buffer_, 4, nullptr), SOCKET_ERROR_INV_POINTER);
    EXPECT_EQ(Morvex_PAL_NonBlockingSocketRead(nullptr, buffer_, 4, &count_, 1), SOCKET_ERROR_INV_HANDLE);
    EXPECT_EQ(Morvex_PAL_SocketSetLinger(client_, 1, -1), SOCKET_ERROR_INV_PARAM);
    EXPECT_EQ(Morvex_PAL_SocketClose(&none), SOCKET_ERROR_INV_HANDLE);
    EXPECT_EQ(Morvex_PAL_SocketDeInitImplementation(), SOCKET_ERROR_NOT_INITIALIZED);
}

} // namespace
