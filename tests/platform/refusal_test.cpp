// What the platform calls refuse before they act (missing handles and pointers, values
// out of range), and how a socket call translates what the system refuses.

#include "morvex_pal.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

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
    char b[4] = "x";
    unsigned int n = 9, m = 9;
    eMorvex_PAL_ThreadPrio priority;
    sMsgQueueStatus status;
    tMsgQueueHandle queue = 0;
    // Each row: the result all its calls give.
    const struct { int line, expected; std::vector<int> got; } rows[] = {
        {__LINE__, MUTEX_ERROR_INV_POINTER, {Morvex_PAL_MutexInit(nullptr), Morvex_PAL_MutexDeInit(nullptr)}},
        {__LINE__, MUTEX_ERROR_INV_HANDLE, {Morvex_PAL_MutexWait(nullptr), Morvex_PAL_MutexSignal(nullptr)}},
        {__LINE__, MUTEX_OK, {Morvex_PAL_MutexInit(&mutex), Morvex_PAL_MutexWait(mutex)}},
        {__LINE__, MUTEX_ERROR_DEINIT_FAILED, {Morvex_PAL_MutexDeInit(&mutex)}}, // held
        {__LINE__, MUTEX_OK, {Morvex_PAL_MutexSignal(mutex), Morvex_PAL_MutexDeInit(&mutex)}},
        {__LINE__, MUTEX_ERROR_INV_HANDLE, {Morvex_PAL_MutexDeInit(&mutex)}},
        {__LINE__, SEMA_ERROR_INV_POINTER, {Morvex_PAL_SemaInit(nullptr, 1), Morvex_PAL_SemaDeInit(nullptr)}},
        {__LINE__, SEMA_ERROR_INV_HANDLE, {Morvex_PAL_SemaSignal(nullptr), Morvex_PAL_SemaWait(nullptr),
                                           Morvex_PAL_SemaTimedWait(nullptr, 1), Morvex_PAL_SemaTryWait(nullptr)}},
        {__LINE__, SEMA_OK, {Morvex_PAL_SemaInit(&sema, 0), Morvex_PAL_SemaDeInit(&sema)}},
        {__LINE__, SEMA_ERROR_INV_HANDLE, {Morvex_PAL_SemaDeInit(&sema)}},
        {__LINE__, THREAD_ERROR_INV_POINTER, {Morvex_PAL_ThreadInit(nullptr, "n", THREAD_PRIO_NORMAL), Morvex_PAL_ThreadDeInit(nullptr),
                                              Morvex_PAL_ThreadCreate(t, nullptr, nullptr), Morvex_PAL_ThreadGetName(t, b, 0),
                                              Morvex_PAL_ThreadGetPriority(t, nullptr)}},
        {__LINE__, THREAD_ERROR_INV_PRIORITY, {Morvex_PAL_ThreadInit(&none, "n", eMorvex_PAL_ThreadPrio(7))}},
        {__LINE__, THREAD_ERROR_INV_HANDLE, {Morvex_PAL_ThreadCreate(nullptr, returnZero, nullptr), Morvex_PAL_ThreadWait(nullptr, nullptr),
                                             Morvex_PAL_ThreadGetName(nullptr, b, 4), Morvex_PAL_ThreadGetPriority(nullptr, &priority)}},
        {__LINE__, THREAD_ERROR_NOT_STARTED, {Morvex_PAL_ThreadWait(t, nullptr)}},
        {__LINE__, THREAD_OK, {Morvex_PAL_ThreadGetName(t, b, 4), Morvex_PAL_ThreadDeInit(&t)}}, // no name
        {__LINE__, THREAD_ERROR_INV_HANDLE, {Morvex_PAL_ThreadDeInit(&t)}},
        {__LINE__, MSGQUEUE_ERROR_INV_POINTER, {MsgQueue_Init(nullptr, 1), MsgQueue_DeInit(nullptr), MsgQueue_GetStatus(queue, nullptr),
                                                MsgQueue_ReceiveMsg(queue, nullptr)}},
        {__LINE__, MSGQUEUE_ERROR_INV_PARAM, {MsgQueue_Init(&queue, 0)}},
        {__LINE__, MSGQUEUE_ERROR_INV_HANDLE, {MsgQueue_DeInit(&queue), MsgQueue_GetStatus(queue, &status)}},
        {__LINE__, SOCKET_ERROR_INV_POINTER, {Morvex_PAL_SocketCreateClient(nullptr, 1, 1, 1), Morvex_PAL_SocketClose(nullptr),
                                              Morvex_PAL_SocketConnect(s, nullptr, 1), Morvex_PAL_SocketRead(s, nullptr, 1, &n),
                                              Morvex_PAL_NonBlockingSocketRead(s, b, 1, nullptr, 0), Morvex_PAL_SocketWrite(s, b, 1, nullptr)}},
        {__LINE__, SOCKET_ERROR_INV_HANDLE, {Morvex_PAL_SocketBind(nullptr, 0), Morvex_PAL_SocketConnect(nullptr, "127.0.0.1", 1),
                                             Morvex_PAL_SocketRead(nullptr, b, 1, &n), Morvex_PAL_NonBlockingSocketRead(nullptr, b, 1, &n, 0),
                                             Morvex_PAL_SocketWrite(nullptr, b, 1, &n), Morvex_PAL_SocketSetLinger(nullptr, 0, 0)}},
        {__LINE__, SOCKET_ERROR_INV_PARAM, {Morvex_PAL_SocketCreateClient(&s, 2, 1, 1), Morvex_PAL_SocketConnect(s, "", 1),
                                            Morvex_PAL_SocketSetLinger(s, 1, -1)}},
        // A name nobody knows, and a group address (no TCP there).
        {__LINE__, SOCKET_ERROR_UNREACHABLE, {Morvex_PAL_SocketConnect(s, "no-such-host.invalid", 1), Morvex_PAL_SocketConnect(s, "224.0.0.1", 1)}},
        {__LINE__, SOCKET_OK, {Morvex_PAL_SocketRead(s, b, 0, &n), Morvex_PAL_NonBlockingSocketRead(s, b, 0, &m, 0), Morvex_PAL_SocketBind(s, 0)}},
        // Not connected, bound already; a write without a connection is a broken pipe.
        {__LINE__, SOCKET_ERROR_INTERNAL, {Morvex_PAL_SocketRead(s, b, 1, &n), Morvex_PAL_SocketBind(s, 0)}},
        {__LINE__, SOCKET_ERROR_CONNECTION_CLOSED, {Morvex_PAL_SocketWrite(s, b, 1, &n)}},
        {__LINE__, SOCKET_OK, {Morvex_PAL_SocketClose(&s)}},
        {__LINE__, SOCKET_ERROR_INV_HANDLE, {Morvex_PAL_SocketClose(&s)}},
        {__LINE__, SOCKET_ERROR_NOT_INITIALIZED, {Morvex_PAL_SocketDeInitImplementation()}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(std::vector<int>(row.got.size(), row.expected), row.got) << "row of line " << row.line;
    EXPECT_EQ(nullptr, Morvex_PAL_memset(nullptr, 0, 4));
    EXPECT_EQ((std::vector<int>{0, -1, 1, 0}), (std::vector<int>{Morvex_PAL_strcmp(nullptr, nullptr), Morvex_PAL_strcmp(nullptr, ""),
                                                             Morvex_PAL_memcmp("", nullptr, 1), Morvex_PAL_memcmp(nullptr, "", 0)}));
    // While any fault is armed, every call takes the long way round, which checks again.
    Morvex_Fault_ArmEx(MORVEX_FAULT_strcmp, 0, 0, 1, 1);
    EXPECT_EQ((std::vector<int>{MUTEX_ERROR_INV_HANDLE, MUTEX_ERROR_INV_HANDLE, SEMA_ERROR_INV_HANDLE, SEMA_ERROR_INV_HANDLE}),
              (std::vector<int>{Morvex_PAL_MutexWait(nullptr), Morvex_PAL_MutexSignal(nullptr), Morvex_PAL_SemaSignal(nullptr),
                                Morvex_PAL_SemaWait(nullptr)}));
    Morvex_Fault_DisarmAll();
    EXPECT_EQ(std::make_tuple(std::string(), none, 0u, 0u), std::make_tuple(std::string(b), t, n, m))
        << "no name, no handle left, nothing read or written";
}
