// CClientSocket against a TCP server on 127.0.0.1 that the test runs itself, PAL core
// failures, and the refusals made before the PAL core is reached.

#include "os/ClientSocket.h"

#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

namespace {

using osal_kit_test::failNext;
using PAL::CClientSocket;
using PAL::CSocket;

CSocket::eResult create(CClientSocket& client)
{
    return client.Create(CSocket::DOMAIN_IPV4, CSocket::TYPE_STREAM, CSocket::PROTOCOL_TCP);
}

TEST(ClientSocketTest, DataGoesBothWaysAndReadsEndWhenThePeerCloses)
{
    // The server: a listening socket on 127.0.0.1 at a port the system picks.
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    sockaddr* raw = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(0, ::bind(listener, raw, length) | ::listen(listener, 1) | ::getsockname(listener, raw, &length));
    CClientSocket client;
    char buffer[8];
    unsigned int count = 99;
    ASSERT_EQ(CSocket::RESULT_OK, create(client));
    ASSERT_EQ(CSocket::RESULT_OK, client.Connect("127.0.0.1", ntohs(address.sin_port)));
    const int peer = ::accept(listener, nullptr, nullptr);
    EXPECT_EQ(CSocket::RESULT_TIMEOUT, client.Read(buffer, sizeof buffer, count, 50));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(CSocket::RESULT_OK, client.Write("ping", 4, count));
    EXPECT_EQ(4u, count);
    EXPECT_EQ(4, ::recv(peer, buffer, 4, MSG_WAITALL));
    EXPECT_EQ(4, ::send(peer, "pong", 4, 0) + ::close(peer) + ::close(listener));
    EXPECT_EQ(CSocket::RESULT_OK, client.Read(buffer, 2, count, 5000));
    std::string text(buffer, count);
    CSocket::eResult result;
    while ((result = client.Read(buffer, 3, count)) == CSocket::RESULT_OK)
        text.append(buffer, count);
    EXPECT_EQ(CSocket::RESULT_CONNECTION_CLOSED, result) << "after what was sent before the close";
    EXPECT_EQ("pong", text);
}

// Without a socket each operation answers RESULT_NO_SOCKET and leaves its count alone;
// with one, a failing PAL call is translated and its count stored all the same.
TEST(ClientSocketTest, EachOperationRefusesAMissingSocketAndTranslatesThePalCoresFailure)
{
    osal_kit_test::FaultGuard faults;
    CClientSocket fresh, open;
    ASSERT_EQ(CSocket::RESULT_OK, create(open));
    typedef CSocket::eResult (*Call)(CClientSocket&, unsigned int&);
    static char buffer[4];
    const struct {
        int line;
        eMorvex_FaultFunction function;
        eMorvex_PAL_SocketError code;
        CSocket::eResult result;
        unsigned int countAfter; // the PAL core reported 0; calls without a count leave it
        Call call;
    } rows[] = {
        {__LINE__, MORVEX_FAULT_SocketRead, SOCKET_ERROR_NOT_INITIALIZED, CSocket::RESULT_INTERNAL_ERROR, 0,
         [](CClientSocket& s, unsigned int& n) { return s.Read(buffer, sizeof buffer, n); }},
        {__LINE__, MORVEX_FAULT_NonBlockingSocketRead, SOCKET_ERROR_INV_HANDLE, CSocket::RESULT_NO_SOCKET, 0,
         [](CClientSocket& s, unsigned int& n) { return s.Read(buffer, sizeof buffer, n, 10); }},
        {__LINE__, MORVEX_FAULT_SocketWrite, SOCKET_ERROR_CONNECTION_CLOSED, CSocket::RESULT_CONNECTION_CLOSED, 0,
         [](CClientSocket& s, unsigned int& n) { return s.Write(buffer, sizeof buffer, n); }},
        {__LINE__, MORVEX_FAULT_SocketBind, SOCKET_ERROR_ADDRESS_IN_USE, CSocket::RESULT_ADDRESS_IN_USE, 7,
         [](CClientSocket& s, unsigned int&) { return s.Bind(0); }},
        {__LINE__, MORVEX_FAULT_SocketConnect, SOCKET_ERROR_UNREACHABLE, CSocket::RESULT_UNREACHABLE, 7,
         [](CClientSocket& s, unsigned int&) { return s.Connect("127.0.0.1", 1); }},
        {__LINE__, MORVEX_FAULT_SocketSetLinger, SOCKET_ERROR_INV_PARAM, CSocket::RESULT_INVALID_PARAMETER, 7,
         [](CClientSocket& s, unsigned int&) { return s.SetLinger(1, -1); }},
        {__LINE__, MORVEX_FAULT_SocketClose, SOCKET_ERROR_INTERNAL, CSocket::RESULT_INTERNAL_ERROR, 7,
         [](CClientSocket& s, unsigned int&) { return s.Close(); }},
    };
    for (const auto& row : rows) {
        unsigned int count = 7;
        EXPECT_EQ(CSocket::RESULT_NO_SOCKET, row.call(fresh, count)) << "row of line " << row.line;
        failNext(row.function, row.code);
        EXPECT_EQ(row.result, row.call(open, count)) << "row of line " << row.line;
        EXPECT_EQ(row.countAfter, count) << "row of line " << row.line;
    }
    // Create checks its arguments before anything else, and keeps a socket it has.
    const unsigned long long creates = Morvex_Fault_Calls(MORVEX_FAULT_SocketCreateClient);
    for (CClientSocket* socket : {&fresh, &open}) {
        for (const auto& [domain, type, protocol] : {std::array{2, 1, 1}, {0, 1, 1}, {1, 2, 1}, {1, 1, 0}}) {
            EXPECT_EQ(CSocket::RESULT_UNSUPPORTED, socket->Create(static_cast<CSocket::eDomain>(domain),
                                                                  static_cast<CSocket::eType>(type),
                                                                  static_cast<CSocket::eProtocol>(protocol)));
        }
    }
    EXPECT_EQ(CSocket::RESULT_ALREADY_CREATED, create(open));
    EXPECT_EQ(creates, Morvex_Fault_Calls(MORVEX_FAULT_SocketCreateClient));
    EXPECT_EQ(CSocket::RESULT_OK, open.SetLinger(0, 0)) << "the first socket is kept";
    failNext(MORVEX_FAULT_SocketCreateClient, SOCKET_ERROR_INTERNAL);
    EXPECT_EQ(CSocket::RESULT_INTERNAL_ERROR, create(fresh));
    EXPECT_EQ(CSocket::RESULT_NO_SOCKET, fresh.SetLinger(0, 0)) << "a failed create leaves no socket";
}

} // namespace
