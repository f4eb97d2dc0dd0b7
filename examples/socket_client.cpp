// Sockets: a client connection through CClientSocket, against a small echo server on
// 127.0.0.1 that this program runs itself on a CThread. The server side uses the
// host's POSIX sockets (the library offers client sockets only). Every result is an
// eResult; none is an exception.

#include "os/ClientSocket.h"
#include "os/Semaphore.h"
#include "os/Socket.h"
#include "os/Thread.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

// No wait of this program lasts longer, so a broken network cannot hang it.
const unsigned int WAIT_LIMIT_MS = 5000;

const char* resultName(PAL::CSocket::eResult result)
{
    static const char* const NAMES[] = {"RESULT_OK", "RESULT_INVALID_POINTER", "RESULT_INVALID_PARAMETER",
                                        "RESULT_TIMEOUT", "RESULT_NO_SOCKET", "RESULT_ALREADY_CREATED",
                                        "RESULT_UNSUPPORTED", "RESULT_CONNECTION_REFUSED",
                                        "RESULT_CONNECTION_CLOSED", "RESULT_ADDRESS_IN_USE",
                                        "RESULT_UNREACHABLE", "RESULT_INTERNAL_ERROR"};
    return result >= 0 && result <= PAL::CSocket::RESULT_INTERNAL_ERROR ? NAMES[result] : "?";
}

// A TCP socket bound to 127.0.0.1 at a port the system picks; -1 on failure.
int loopbackSocket(unsigned short& port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address;
    std::memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        if (fd >= 0) {
            ::close(fd);
        }
        return -1;
    }
    port = ntohs(address.sin_port);
    return fd;
}

bool readable(int fd)
{
    pollfd entry = {fd, POLLIN, 0};
    return ::poll(&entry, 1, static_cast<int>(WAIT_LIMIT_MS)) == 1;
}

// Serves two connections: the first gets its line echoed back and is closed; the
// second gets nothing until the client says it is done waiting.
class CEchoServer : public PAL::CThread {
public:
    CEchoServer(int listener, PAL::CSemaphore& clientDone)
        : CThread("echo server", PRIORITY_NORMAL), mListener(listener), mClientDone(clientDone)
    {
    }
    // run() uses the members, so the thread ends before they go.
    ~CEchoServer() { join(); }

    int run() override
    {
        const int first = accept();
        if (first >= 0) {
            char line[64];
            unsigned int used = 0;
            while (used < sizeof line && (used == 0 || line[used - 1] != '\n') && readable(first)) {
                const ssize_t n = ::recv(first, line + used, sizeof line - used, 0);
                if (n <= 0) {
                    break;
                }
                used += static_cast<unsigned int>(n);
            }
            const char prefix[] = "echo: ";
            ::send(first, prefix, sizeof prefix - 1, MSG_NOSIGNAL);
            ::send(first, line, used, MSG_NOSIGNAL);
            ::close(first);
        }
        const int second = accept();
        if (second >= 0) {
            mClientDone.TimedWait(WAIT_LIMIT_MS);
            ::close(second);
        }
        return 0;
    }

private:
    int accept() { return readable(mListener) ? ::accept(mListener, 0, 0) : -1; }

    int mListener;
    PAL::CSemaphore& mClientDone;
};

// Reads until a line is complete, the peer closes, or nothing comes in time.
PAL::CSocket::eResult readLine(PAL::CClientSocket& socket, char* line, unsigned int size)
{
    unsigned int used = 0;
    PAL::CSocket::eResult result = PAL::CSocket::RESULT_OK;
    while (used + 1 < size && (used == 0 || line[used - 1] != '\n')) {
        unsigned int received = 0;
        result = socket.Read(line + used, size - 1 - used, received, WAIT_LIMIT_MS);
        if (result != PAL::CSocket::RESULT_OK) {
            break;
        }
        used += received;
    }
    line[used] = '\0';
    return result;
}

void talkToServer(unsigned short port, PAL::CSemaphore& clientDone)
{
    std::printf("-- a conversation --\n");
    PAL::CClientSocket socket;
    std::printf("create:  %s\n", resultName(socket.Create(PAL::CSocket::DOMAIN_IPV4, PAL::CSocket::TYPE_STREAM,
                                                         PAL::CSocket::PROTOCOL_TCP)));
    std::printf("connect: %s\n", resultName(socket.Connect("127.0.0.1", port)));
    const char request[] = "hello\n";
    unsigned int written = 0;
    const PAL::CSocket::eResult writeResult = socket.Write(request, sizeof request - 1, written);
    std::printf("write:   %s, %u bytes\n", resultName(writeResult), written);
    char reply[64];
    const PAL::CSocket::eResult readResult = readLine(socket, reply, sizeof reply);
    std::printf("read:    %s, \"%.*s\"\n", resultName(readResult), static_cast<int>(std::strcspn(reply, "\n")), reply);
    unsigned int received = 0;
    std::printf("read after the server closed: %s\n",
                resultName(socket.Read(reply, sizeof reply, received, WAIT_LIMIT_MS)));
    std::printf("close:   %s\n", resultName(socket.Close()));
    std::printf("read on the closed object: %s\n", resultName(socket.Read(reply, sizeof reply, received)));

    std::printf("-- a time limit --\n");
    PAL::CClientSocket quiet;
    quiet.Create(PAL::CSocket::DOMAIN_IPV4, PAL::CSocket::TYPE_STREAM, PAL::CSocket::PROTOCOL_TCP);
    std::printf("connect: %s\n", resultName(quiet.Connect("127.0.0.1", port)));
    std::printf("read within 100 ms from a silent server: %s\n", resultName(quiet.Read(reply, sizeof reply, received, 100)));
    clientDone.Signal();
}

void refusals()
{
    std::printf("-- refusals --\n");
    PAL::CClientSocket socket;
    std::printf("create a datagram socket: %s\n",
                resultName(socket.Create(PAL::CSocket::DOMAIN_IPV4, static_cast<PAL::CSocket::eType>(2),
                                         PAL::CSocket::PROTOCOL_TCP)));
    unsigned int written = 0;
    std::printf("write before create: %s\n", resultName(socket.Write("x", 1, written)));
    socket.Create(PAL::CSocket::DOMAIN_IPV4, PAL::CSocket::TYPE_STREAM, PAL::CSocket::PROTOCOL_TCP);
    std::printf("create twice: %s\n", resultName(socket.Create(PAL::CSocket::DOMAIN_IPV4, PAL::CSocket::TYPE_STREAM,
                                                               PAL::CSocket::PROTOCOL_TCP)));
    // A port that is bound but not listening refuses connections.
    unsigned short port = 0;
    const int closedPort = loopbackSocket(port);
    std::printf("connect to a port nobody listens on: %s\n", resultName(socket.Connect("127.0.0.1", port)));
    if (closedPort >= 0) {
        ::close(closedPort);
    }
}

} // namespace

int main()
{
    std::printf("== Socket client ==\n");
    // Needed once per process on some platforms; harmless where it is not.
    if (PAL::CSocket::InitImplementation() != PAL::CSocket::RESULT_OK) {
        std::printf("no socket layer\n");
        return 1;
    }
    unsigned short port = 0;
    const int listener = loopbackSocket(port);
    if (listener < 0 || ::listen(listener, 2) != 0) {
        std::printf("no loopback server\n");
        return 1;
    }
    {
        PAL::CSemaphore clientDone(0);
        CEchoServer server(listener, clientDone);
        if (!server.start()) {
            std::printf("the server thread did not start\n");
        } else {
            talkToServer(port, clientDone);
        }
    }
    ::close(listener);
    refusals();
    PAL::CSocket::DeInitImplementation();
    return 0;
}
