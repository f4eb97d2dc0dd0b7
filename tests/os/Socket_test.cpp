// The sockets: CClientSocket against a TCP server on 127.0.0.1 that the test runs itself,
// PAL core failures, and the translation of PAL core codes.

#include "os/ClientSocket.h"

#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>
#include <tuple>

namespace {

using osal_kit_test::failNext;
using PAL::CClientSocket;
using PAL::CSocket;

CSocket::eResult create(CClientSocket& client)
{
    return client.Create(CSocket::DOMAIN_IPV4, CSocket::TYPE_STREAM, CSocket::PROTOCOL_TCP);
}

// Data goes both ways, and reads end when the peer closes. Linger on with no time resets
// the connection on close; off, the peer sees an orderly end. A port the server holds is
// not shared, and once it is closed nobody answers there.
TEST(ClientSocketTest, ExchangesDataWithALoopbackServerAndEndsAsLingerSays)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    sockaddr* raw = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(0, ::bind(listener, raw, length) | ::listen(listener, 4) | ::getsockname(listener, raw, &length));
    const unsigned short port = ntohs(address.sin_port);
    auto connect = [&](CClientSocket& client, const char* host) {
        EXPECT_EQ(CSocket::RESULT_OK, create(client));
        EXPECT_EQ(CSocket::RESULT_OK, client.Connect(host, port));
        return ::accept(listener, nullptr, nullptr);
    };
    CClientSocket client;
    char buffer[8];
    unsigned int count = 99;
    int peer = connect(client, "127.0.0.1");
    EXPECT_EQ(CSocket::RESULT_TIMEOUT, client.Read(buffer, sizeof buffer, count, 50));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(CSocket::RESULT_OK, client.Write("ping", 4, count));
    EXPECT_EQ(4u, count);
    EXPECT_EQ(4, ::recv(peer, buffer, 4, MSG_WAITALL));
    EXPECT_EQ(4, ::send(peer, "pong", 4, 0) + ::close(peer));
    EXPECT_EQ(CSocket::RESULT_OK, client.Read(buffer, 2, count, 5000));
    std::string text(buffer, count);
    CSocket::eResult result;
    while ((result = client.Read(buffer, 3, count)) == CSocket::RESULT_OK)
        text.append(buffer, count);
    EXPECT_EQ(CSocket::RESULT_CONNECTION_CLOSED, result) << "after what was sent before the close";
    EXPECT_EQ("pong", text);
    for (const auto& [line, onOff, received, error] : {std::tuple{__LINE__, 1, -1, ECONNRESET}, {__LINE__, 0, 0, 0}}) {
        CClientSocket lingering;
        peer = connect(lingering, "localhost");
        EXPECT_EQ(CSocket::RESULT_OK, lingering.SetLinger(onOff, 0));
        EXPECT_EQ(CSocket::RESULT_OK, lingering.Close());
        pollfd ready{peer, POLLIN, 0};
        errno = 0;
        EXPECT_EQ(1, ::poll(&ready, 1, 10000));
        EXPECT_EQ(std::pair(received, error), std::pair(int(::recv(peer, buffer, 1, 0)), errno)) << "row of line " << line;
        ::close(peer);
    }
    CClientSocket late;
    EXPECT_EQ(CSocket::RESULT_OK, create(late));
    EXPECT_EQ(CSocket::RESULT_ADDRESS_IN_USE, late.Bind(port));
    ::close(listener);
    EXPECT_EQ(CSocket::RESULT_CONNECTION_REFUSED, late.Connect("127.0.0.1", port));
}

// One operation by its letter: r Read, t Read with a time limit, w Write, b Bind,
// c Connect, l SetLinger, x Close.
CSocket::eResult call(CClientSocket& socket, char operation, unsigned int& count)
{
    char buffer[4] = {};
    switch (operation) {
    case 'r': return socket.Read(buffer, sizeof buffer, count);
    case 't': return socket.Read(buffer, sizeof buffer, count, 10);
    case 'w': return socket.Write(buffer, sizeof buffer, count);
    case 'b': return socket.Bind(0);
    case 'c': return socket.Connect("127.0.0.1", 1);
    case 'l': return socket.SetLinger(1, -1);
    default: return socket.Close();
    }
}

// Without a socket each operation answers RESULT_NO_SOCKET and leaves its count alone;
// with one, a failing PAL call is translated and its count stored all the same.
TEST(ClientSocketFaultTest, EachOperationRefusesAMissingSocketAndTranslatesThePalCoresFailure)
{
    osal_kit_test::FaultGuard faults;
    CClientSocket fresh, open;
    ASSERT_EQ(CSocket::RESULT_OK, create(open));
    const struct { int line; char operation; eMorvex_FaultFunction function; int code, result, countAfter; } rows[] = {
        {__LINE__, 'r', MORVEX_FAULT_SocketRead, SOCKET_ERROR_NOT_INITIALIZED, CSocket::RESULT_INTERNAL_ERROR, 0},
        {__LINE__, 't', MORVEX_FAULT_NonBlockingSocketRead, SOCKET_ERROR_INV_HANDLE, CSocket::RESULT_NO_SOCKET, 0},
        {__LINE__, 'w', MORVEX_FAULT_SocketWrite, SOCKET_ERROR_CONNECTION_CLOSED, CSocket::RESULT_CONNECTION_CLOSED, 0},
        {__LINE__, 'b', MORVEX_FAULT_SocketBind, SOCKET_ERROR_ADDRESS_IN_USE, CSocket::RESULT_ADDRESS_IN_USE, 7},
        {__LINE__, 'c', MORVEX_FAULT_SocketConnect, SOCKET_ERROR_UNREACHABLE, CSocket::RESULT_UNREACHABLE, 7},
        {__LINE__, 'l', MORVEX_FAULT_SocketSetLinger, SOCKET_ERROR_INV_PARAM, CSocket::RESULT_INVALID_PARAMETER, 7},
        {__LINE__, 'x', MORVEX_FAULT_SocketClose, SOCKET_ERROR_INTERNAL, CSocket::RESULT_INTERNAL_ERROR, 7},
    };
    for (const auto& row : rows) {
        unsigned int count = 7;
        EXPECT_EQ(CSocket::RESULT_NO_SOCKET, call(fresh, row.operation, count)) << "row of line " << row.line;
        failNext(row.function, row.code);
        EXPECT_EQ(row.result, call(open, row.operation, count)) << "row of line " << row.line;
        EXPECT_EQ(row.countAfter, static_cast<int>(count)) << "row of line " << row.line;
    }
    // Create checks its arguments before anything else, and keeps a socket it has.
    const unsigned long long creates = Morvex_Fault_Calls(MORVEX_FAULT_SocketCreateClient);
    for (CClientSocket* socket : {&fresh, &open}) {
        for (const auto& [d, t, p] : {std::array{2, 1, 1}, {0, 1, 1}, {1, 2, 1}, {1, 1, 0}})
            EXPECT_EQ(CSocket::RESULT_UNSUPPORTED, socket->Create(CSocket::eDomain(d), CSocket::eType(t), CSocket::eProtocol(p)));
    }
    EXPECT_EQ(CSocket::RESULT_ALREADY_CREATED, create(open));
    EXPECT_EQ(creates, Morvex_Fault_Calls(MORVEX_FAULT_SocketCreateClient));
    EXPECT_EQ(CSocket::RESULT_OK, open.SetLinger(0, 0)) << "the first socket is kept";
    failNext(MORVEX_FAULT_SocketCreateClient, SOCKET_ERROR_INTERNAL);
    EXPECT_EQ(CSocket::RESULT_INTERNAL_ERROR, create(fresh));
    EXPECT_EQ(CSocket::RESULT_NO_SOCKET, fresh.SetLinger(0, 0)) << "a failed create leaves no socket";
    // A failed close kept the socket: closing ends it once; a destructor closes what is left.
    const unsigned long long closes = Morvex_Fault_Calls(MORVEX_FAULT_SocketClose);
    EXPECT_EQ(CSocket::RESULT_OK, open.Close());
    EXPECT_EQ(CSocket::RESULT_NO_SOCKET, open.Close());
    {
        CClientSocket left;
        EXPECT_EQ(CSocket::RESULT_OK, create(left));
    }
    EXPECT_EQ(2u, Morvex_Fault_Calls(MORVEX_FAULT_SocketClose) - closes);
}

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

} // namespace
