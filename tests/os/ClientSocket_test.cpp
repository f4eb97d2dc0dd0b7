// CClientSocket against a real TCP server on 127.0.0.1 that the test runs itself:
// connect, write, blocking and time-limited reads, a peer that closes, a refused
// connection, bind and linger, and the refusals made before the PAL core is reached.

#include "os/ClientSocket.h"

#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using PAL::CClientSocket;
using PAL::CSocket;

// No wait of the server side, and no time-limited read of a test, lasts longer.
const int WAIT_LIMIT_MS = 5000;

// A descriptor of the server side, closed when it goes.
class Fd {
public:
    explicit Fd(int fd = -1) : mFd(fd) {}
    Fd(Fd&& other) noexcept : mFd(other.mFd) { other.mFd = -1; }
    Fd& operator=(Fd&& other) noexcept
    {
        std::swap(mFd, other.mFd);
        return *this;
    }
    ~Fd() { close(); }
    int get() const { return mFd; }
    void close()
    {
        if (mFd >= 0)
            ::close(mFd);
        mFd = -1;
    }

private:
    int mFd;
};

// Waits at most WAIT_LIMIT_MS for `fd` to become readable; not in time is a failure.
bool readable(const Fd& fd)
{
    pollfd entry = {fd.get(), POLLIN, 0};
    const bool ready = ::poll(&entry, 1, WAIT_LIMIT_MS) == 1;
    EXPECT_TRUE(ready) << "nothing came in time";
    return ready;
}

// Up to `size` bytes; empty at the end of the stream.
std::string receive(const Fd& peer, std::size_t size = 64)
{
    std::string data(size, '\0');
    const ssize_t n = readable(peer) ? ::recv(peer.get(), &data[0], size, 0) : 0;
    data.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return data;
}

bool send(const Fd& peer, const std::string& data)
{
    return ::send(peer.get(), data.data(), data.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(data.size());
}

// A TCP socket on 127.0.0.1 at a port the system picks; listening unless asked not to,
// in which case a connection to it is refused.
class LoopbackServer {
public:
    explicit LoopbackServer(bool listening = true) : mSocket(::socket(AF_INET, SOCK_STREAM, 0)), mPort(0)
    {
        sockaddr_in address;
        std::memset(&address, 0, sizeof address);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        sockaddr* raw = reinterpret_cast<sockaddr*>(&address);
        if (::bind(mSocket.get(), raw, sizeof address) != 0 || (listening && ::listen(mSocket.get(), 4) != 0) ||
            ::getsockname(mSocket.get(), raw, &length) != 0) {
            ADD_FAILURE() << "no loopback server: " << std::strerror(errno);
        }
        mPort = ntohs(address.sin_port);
    }
    unsigned short port() const { return mPort; }
    // The server's side of the next connection.
    Fd accept() { return Fd(readable(mSocket) ? ::accept(mSocket.get(), nullptr, nullptr) : -1); }

private:
    Fd mSocket;
    unsigned short mPort;
};

class ClientSocketTest : public ::testing::Test {
protected:
    CSocket::eResult create(CClientSocket& client)
    {
        return client.Create(CSocket::DOMAIN_IPV4, CSocket::TYPE_STREAM, CSocket::PROTOCOL_TCP);
    }
    // Connects `client` to the server and returns the server's side.
    Fd connect(CClientSocket& client)
    {
        EXPECT_EQ(CSocket::RESULT_OK, create(client));
        EXPECT_EQ(CSocket::RESULT_OK, client.Connect("127.0.0.1", server.port()));
        return server.accept();
    }
    CSocket::eResult write(CClientSocket& client, const std::string& data)
    {
        unsigned int written = 0;
        const CSocket::eResult result = client.Write(data.data(), static_cast<unsigned int>(data.size()), written);
        EXPECT_TRUE(result != CSocket::RESULT_OK || written == data.size());
        return result;
    }
    // Reads until `terminator` arrives or a read fails; blocking reads unless `limitMs`.
    CSocket::eResult readUntil(CClientSocket& client, char terminator, std::string& text, unsigned int limitMs = 0)
    {
        char buffer[8];
        unsigned int received = 0;
        CSocket::eResult result = CSocket::RESULT_OK;
        while (result == CSocket::RESULT_OK && text.find(terminator) == std::string::npos) {
            result = limitMs != 0 ? client.Read(buffer, sizeof buffer, received, limitMs)
                                  : client.Read(buffer, sizeof buffer, received);
            EXPECT_LE(received, sizeof buffer);
            text.append(buffer, result == CSocket::RESULT_OK ? received : 0);
        }
        return result;
    }

    osal_kit_test::FaultGuard faults;
    LoopbackServer server;
};

TEST_F(ClientSocketTest, BlockingReadsWaitForTheAnswersOfAServerThread)
{
    CClientSocket client;
    Fd peer = connect(client);
    // The server answers each request with its length until the client closes.
    std::thread answering([&peer] {
        for (std::string request = receive(peer); !request.empty(); request = receive(peer))
            send(peer, std::to_string(request.size()) + ";");
    });
    for (const char* request : {"a", "bb", "cccccccccccc"}) {
        SCOPED_TRACE(request);
        ASSERT_EQ(CSocket::RESULT_OK, write(client, request));
        std::string answer;
        ASSERT_EQ(CSocket::RESULT_OK, readUntil(client, ';', answer));
        EXPECT_EQ(std::to_string(std::strlen(request)) + ";", answer);
    }
    EXPECT_EQ(CSocket::RESULT_OK, client.Close());
    answering.join();
}

TEST_F(ClientSocketTest, AReadWithATimeLimitGivesUpOnASilentPeer)
{
    CClientSocket client;
    Fd peer = connect(client);
    char buffer[8];
    unsigned int received = 99;
    EXPECT_EQ(CSocket::RESULT_TIMEOUT, client.Read(buffer, sizeof buffer, received, 50));
    EXPECT_EQ(0u, received);

    ASSERT_TRUE(send(peer, "late;"));  // the connection is still good
    std::string text;
    EXPECT_EQ(CSocket::RESULT_OK, readUntil(client, ';', text, WAIT_LIMIT_MS));
    EXPECT_EQ("late;", text);
}

TEST_F(ClientSocketTest, APeerThatClosesEndsTheReadsAndFailsLaterWrites)
{
    for (unsigned int limitMs : {0, WAIT_LIMIT_MS}) {
        SCOPED_TRACE(limitMs != 0 ? "read with a time limit" : "blocking read");
        CClientSocket client;
        Fd peer = connect(client);
        ASSERT_TRUE(send(peer, "bye"));
        peer.close();
        std::string text;
        EXPECT_EQ(CSocket::RESULT_CONNECTION_CLOSED, readUntil(client, ';', text, limitMs));
        EXPECT_EQ("bye", text) << "what was sent before the close still arrives";

        // A write may still be taken locally; once the peer's reset is back, writes
        // fail (and the process gets no signal).
        CSocket::eResult result = CSocket::RESULT_OK;
        for (int attempt = 0; attempt < 50 && result == CSocket::RESULT_OK; ++attempt)
            result = write(client, std::string(512, 'x'));
        EXPECT_NE(CSocket::RESULT_OK, result);
    }
}

TEST_F(ClientSocketTest, ConnectAndBindAreRefusedWhereThePortSaysNo)
{
    LoopbackServer notListening(false);
    CClientSocket refused;
    ASSERT_EQ(CSocket::RESULT_OK, create(refused));
    EXPECT_EQ(CSocket::RESULT_CONNECTION_REFUSED, refused.Connect("127.0.0.1", notListening.port()));

    CClientSocket bound;
    ASSERT_EQ(CSocket::RESULT_OK, create(bound));
    EXPECT_EQ(CSocket::RESULT_OK, bound.Bind(0));
    EXPECT_EQ(CSocket::RESULT_OK, bound.Connect("127.0.0.1", server.port()));

    CClientSocket clashing;
    ASSERT_EQ(CSocket::RESULT_OK, create(clashing));
    EXPECT_EQ(CSocket::RESULT_ADDRESS_IN_USE, clashing.Bind(server.port()));
}

TEST_F(ClientSocketTest, ClosingOrDestroyingTheClientEndsTheConnectionAfterItsData)
{
    CClientSocket client;
    Fd peer = connect(client);
    EXPECT_EQ(CSocket::RESULT_OK, client.SetLinger(0, 0));
    EXPECT_EQ(CSocket::RESULT_OK, client.SetLinger(1, 1));
    ASSERT_EQ(CSocket::RESULT_OK, write(client, "flushed;"));
    EXPECT_EQ(CSocket::RESULT_OK, client.Close());
    EXPECT_EQ("flushed;", receive(peer));
    EXPECT_EQ("", receive(peer)) << "the close reached the peer";

    ASSERT_EQ(CSocket::RESULT_OK, create(client)) << "a closed object can create again";
    Fd second;
    {
        CClientSocket temporary;
        second = connect(temporary);
    }
    EXPECT_EQ("", receive(second));
}

TEST_F(ClientSocketTest, EveryOperationRefusesAnObjectWithoutASocket)
{
    CClientSocket client;
    char buffer[4];
    unsigned int count = 1234;
    const std::function<CSocket::eResult()> calls[] = {
        [&] { return client.Bind(0); },
        [&] { return client.Connect("127.0.0.1", server.port()); },
        [&] { return client.Read(buffer, sizeof buffer, count); },
        [&] { return client.Read(buffer, sizeof buffer, count, 10); },
        [&] { return client.Write(buffer, sizeof buffer, count); },
        [&] { return client.SetLinger(1, 1); },
        [&] { return client.Close(); },
    };
    for (const auto& call : calls)
        EXPECT_EQ(CSocket::RESULT_NO_SOCKET, call()) << "counts are left alone: " << count;
    EXPECT_EQ(1234u, count);
}

TEST_F(ClientSocketTest, CreateChecksItsArgumentsFirstAndKeepsAnExistingSocket)
{
    const osal_kit_test::PalCalls creates{MORVEX_FAULT_SocketCreateClient};
    CClientSocket client;
    const int unsupported[][3] = {{2, 1, 1}, {0, 1, 1}, {1, 2, 1}, {1, 1, 0}, {-1, 3, 6}};
    for (int round = 0; round < 2; ++round) {
        for (const auto& row : unsupported) {
            EXPECT_EQ(CSocket::RESULT_UNSUPPORTED,
                      client.Create(static_cast<CSocket::eDomain>(row[0]), static_cast<CSocket::eType>(row[1]),
                                    static_cast<CSocket::eProtocol>(row[2])))
                << row[0] << " " << row[1] << " " << row[2];
        }
        EXPECT_EQ(std::vector<unsigned long long>{static_cast<unsigned long long>(round)}, creates.since())
            << "the PAL core is not asked";
        if (round == 0) {
            ASSERT_EQ(CSocket::RESULT_OK, create(client)); // the second round has a socket
        }
    }
    EXPECT_EQ(CSocket::RESULT_ALREADY_CREATED, create(client));
    EXPECT_EQ(CSocket::RESULT_OK, client.Connect("127.0.0.1", server.port())) << "the first socket is kept";
}

TEST_F(ClientSocketTest, PalFailuresAreTranslatedAndCountsStillStored)
{
    CClientSocket client;
    osal_kit_test::failNext(MORVEX_FAULT_SocketCreateClient, SOCKET_ERROR_INTERNAL);
    EXPECT_EQ(CSocket::RESULT_INTERNAL_ERROR, create(client));
    EXPECT_EQ(CSocket::RESULT_NO_SOCKET, client.SetLinger(0, 0)) << "a failed create leaves no socket";

    Fd peer = connect(client);
    char buffer[4];
    unsigned int count = 1234;
    const struct {
        int line;
        eMorvex_FaultFunction function;
        eMorvex_PAL_SocketError code;
        CSocket::eResult result;
        unsigned int countAfter;  // the PAL core reported 0; calls without a count leave it
        std::function<CSocket::eResult()> call;
    } rows[] = {
        {__LINE__, MORVEX_FAULT_SocketRead, SOCKET_ERROR_NOT_INITIALIZED, CSocket::RESULT_INTERNAL_ERROR, 0,
         [&] { return client.Read(buffer, sizeof buffer, count); }},
        {__LINE__, MORVEX_FAULT_NonBlockingSocketRead, SOCKET_ERROR_INV_HANDLE, CSocket::RESULT_NO_SOCKET, 0,
         [&] { return client.Read(buffer, sizeof buffer, count, 10); }},
        {__LINE__, MORVEX_FAULT_SocketWrite, SOCKET_ERROR_CONNECTION_CLOSED, CSocket::RESULT_CONNECTION_CLOSED, 0,
         [&] { return client.Write(buffer, sizeof buffer, count); }},
        {__LINE__, MORVEX_FAULT_SocketBind, SOCKET_ERROR_ADDRESS_IN_USE, CSocket::RESULT_ADDRESS_IN_USE, 1234,
         [&] { return client.Bind(0); }},
        {__LINE__, MORVEX_FAULT_SocketConnect, SOCKET_ERROR_UNREACHABLE, CSocket::RESULT_UNREACHABLE, 1234,
         [&] { return client.Connect("127.0.0.1", 1); }},
        {__LINE__, MORVEX_FAULT_SocketSetLinger, SOCKET_ERROR_INV_PARAM, CSocket::RESULT_INVALID_PARAMETER, 1234,
         [&] { return client.SetLinger(1, -1); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        count = 1234;
        osal_kit_test::failNext(row.function, row.code);
        EXPECT_EQ(row.result, row.call());
        EXPECT_EQ(row.countAfter, count);
    }
    unsigned int received = 1234;
    EXPECT_EQ(CSocket::RESULT_INVALID_POINTER, client.Read(nullptr, 4, received, 10)) << "the PAL core's refusal";
    EXPECT_EQ(0u, received);
}

} // namespace
