// What the platform calls refuse before they act (missing handles and pointers, values
// out of range), and how a socket call translates what the system refuses.

#include "morvex_pal_mutex.h"
#include "morvex_pal_sema.h"
#include "morvex_pal_socket.h"
#include "morvex_pal_thread.h"
#include "msgqueue.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

static int returnZero(void*) { return 0; }

// Rows are evaluated in order; the socket is neither bound nor connected unless a row
// above did it. The mutex rows run while the process has a single thread, which takes
// quicker paths.
TEST(Refusal, EachCallRefusesBadArgumentsAndTranslatesTheSystemsFailures)
{
    sMorvex_PAL_Socket* s = nullptr;
    sMorvex_PAL_Thread *t = nullptr, *none = nullptr;
    sMorvex_PAL_Sema* sema = nullptr;
    sMorvex_PAL_Mutex* mutex = nullptr;
    ASSERT_EQ(SOCKET_OK, Morvex_PAL_SocketCreateClient(&s, 1, 1, 1));
    ASSERT_EQ(THREAD_OK, Morvex_PAL_ThreadInit(&t, nullptr, THREAD_PRIO_LOWEST));
    ASSERT_EQ(SEMA_OK, Morvex_PAL_SemaInit(&sema, 0));
    char b[4] = "x";
    unsigned int n = 9, m = 9;
    eMorvex_PAL_ThreadPrio priority;
    sMsgQueueStatus status;
    tMsgQueueHandle queue = 0;
    const struct { int line, got, expected; } rows[] = {
        {__LINE__, Morvex_PAL_MutexInit(nullptr), MUTEX_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_MutexDeInit(nullptr), MUTEX_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_MutexWait(nullptr), MUTEX_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_MutexSignal(nullptr), MUTEX_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_MutexInit(&mutex), MUTEX_OK}, // not recursive, and not destroyed while held
        {__LINE__, Morvex_PAL_MutexSignal(mutex), MUTEX_ERROR_SIGNAL_FAILED},
        {__LINE__, Morvex_PAL_MutexWait(mutex), MUTEX_OK},
        {__LINE__, Morvex_PAL_MutexWait(mutex), MUTEX_ERROR_RECURSIVE},
        {__LINE__, Morvex_PAL_MutexDeInit(&mutex), MUTEX_ERROR_DEINIT_FAILED},
        {__LINE__, Morvex_PAL_MutexSignal(mutex), MUTEX_OK},
        {__LINE__, Morvex_PAL_MutexDeInit(&mutex), MUTEX_OK},
        {__LINE__, Morvex_PAL_MutexDeInit(&mutex), MUTEX_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_SemaInit(nullptr, 1), SEMA_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_SemaDeInit(nullptr), SEMA_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_SemaSignal(nullptr), SEMA_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_SemaWait(nullptr), SEMA_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_SemaTimedWait(nullptr, 1), SEMA_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_SemaTryWait(nullptr), SEMA_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_SemaDeInit(&sema), SEMA_OK},
        {__LINE__, Morvex_PAL_SemaDeInit(&sema), SEMA_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_ThreadInit(nullptr, "n", THREAD_PRIO_NORMAL), THREAD_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_ThreadInit(&none, "n", eMorvex_PAL_ThreadPrio(7)), THREAD_ERROR_INV_PRIORITY},
        {__LINE__, Morvex_PAL_ThreadCreate(nullptr, returnZero, nullptr), THREAD_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_ThreadCreate(t, nullptr, nullptr), THREAD_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_ThreadWait(nullptr, nullptr), THREAD_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_ThreadWait(t, nullptr), THREAD_ERROR_NOT_STARTED},
        {__LINE__, Morvex_PAL_ThreadGetName(nullptr, b, 4), THREAD_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_ThreadGetName(t, b, 0), THREAD_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_ThreadGetName(t, b, 4), THREAD_OK}, // no name
        {__LINE__, Morvex_PAL_ThreadGetPriority(nullptr, &priority), THREAD_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_ThreadGetPriority(t, nullptr), THREAD_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_ThreadDeInit(nullptr), THREAD_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_ThreadDeInit(&t), THREAD_OK},
        {__LINE__, Morvex_PAL_ThreadDeInit(&t), THREAD_ERROR_INV_HANDLE},
        {__LINE__, MsgQueue_Init(nullptr, 1), MSGQUEUE_ERROR_INV_POINTER},
        {__LINE__, MsgQueue_Init(&queue, 0), MSGQUEUE_ERROR_INV_PARAM},
        {__LINE__, MsgQueue_DeInit(nullptr), MSGQUEUE_ERROR_INV_POINTER},
        {__LINE__, MsgQueue_DeInit(&queue), MSGQUEUE_ERROR_INV_HANDLE},
        {__LINE__, MsgQueue_GetStatus(queue, nullptr), MSGQUEUE_ERROR_INV_POINTER},
        {__LINE__, MsgQueue_GetStatus(queue, &status), MSGQUEUE_ERROR_INV_HANDLE},
        {__LINE__, MsgQueue_ReceiveMsg(queue, nullptr), MSGQUEUE_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_SocketCreateClient(nullptr, 1, 1, 1), SOCKET_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_SocketCreateClient(&s, 2, 1, 1), SOCKET_ERROR_INV_PARAM},
        {__LINE__, Morvex_PAL_SocketBind(nullptr, 0), SOCKET_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_SocketConnect(nullptr, "127.0.0.1", 1), SOCKET_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_SocketConnect(s, nullptr, 1), SOCKET_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_SocketConnect(s, "", 1), SOCKET_ERROR_INV_PARAM},
        {__LINE__, Morvex_PAL_SocketConnect(s, "no-such-host.invalid", 1), SOCKET_ERROR_UNREACHABLE},
        {__LINE__, Morvex_PAL_SocketConnect(s, "224.0.0.1", 1), SOCKET_ERROR_UNREACHABLE}, // no TCP to a group
        {__LINE__, Morvex_PAL_SocketRead(nullptr, b, 1, &n), SOCKET_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_SocketRead(s, nullptr, 1, &n), SOCKET_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_SocketRead(s, b, 0, &n), SOCKET_OK},
        {__LINE__, Morvex_PAL_SocketRead(s, b, 1, &n), SOCKET_ERROR_INTERNAL}, // not connected
        {__LINE__, Morvex_PAL_NonBlockingSocketRead(nullptr, b, 1, &n, 0), SOCKET_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_NonBlockingSocketRead(s, b, 1, nullptr, 0), SOCKET_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_NonBlockingSocketRead(s, b, 0, &m, 0), SOCKET_OK},
        {__LINE__, Morvex_PAL_SocketWrite(nullptr, b, 1, &n), SOCKET_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_SocketWrite(s, b, 1, nullptr), SOCKET_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_SocketWrite(s, b, 1, &n), SOCKET_ERROR_CONNECTION_CLOSED}, // not connected: a broken pipe
        {__LINE__, Morvex_PAL_SocketSetLinger(nullptr, 0, 0), SOCKET_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_SocketSetLinger(s, 1, -1), SOCKET_ERROR_INV_PARAM},
        {__LINE__, Morvex_PAL_SocketBind(s, 0), SOCKET_OK},
        {__LINE__, Morvex_PAL_SocketBind(s, 0), SOCKET_ERROR_INTERNAL}, // bound already
        {__LINE__, Morvex_PAL_SocketClose(nullptr), SOCKET_ERROR_INV_POINTER},
        {__LINE__, Morvex_PAL_SocketClose(&s), SOCKET_OK},
        {__LINE__, Morvex_PAL_SocketClose(&s), SOCKET_ERROR_INV_HANDLE},
        {__LINE__, Morvex_PAL_SocketDeInitImplementation(), SOCKET_ERROR_NOT_INITIALIZED},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.expected, row.got) << "row of line " << row.line;
    EXPECT_EQ(std::make_tuple(std::string(), none, 0u, 0u), std::make_tuple(std::string(b), t, n, m))
        << "no name, no handle left, nothing read or written";
}
