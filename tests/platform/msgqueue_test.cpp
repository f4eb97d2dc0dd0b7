#include "morvex_pal_fault.h"
#include "msgqueue.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <future>
#include <thread>

namespace {

static_assert(sizeof(tMsgQueueHandle) == 4, "handles are 32-bit on every host");

void* message(std::uintptr_t n)
{
    return reinterpret_cast<void*>(n);
}

class MsgQueue : public ::testing::Test {
protected:
    static constexpr unsigned int kCapacity = 4;

    void SetUp() override { ASSERT_EQ(MsgQueue_Init(&queue_, kCapacity), MSGQUEUE_OK); }
    void TearDown() override { MsgQueue_DeInit(&queue_); }

    void fill()
    {
        for (unsigned int i = 0; i < kCapacity; ++i)
            ASSERT_EQ(MsgQueue_TrySendMsg(queue_, message(i), 0), MSGQUEUE_OK);
    }
    std::uintptr_t receive()
    {
        void* received = nullptr;
        EXPECT_EQ(MsgQueue_ReceiveMsg(queue_, &received), MSGQUEUE_OK);
        return reinterpret_cast<std::uintptr_t>(received);
    }
    // Returns once another thread has entered `function`; it may still be on its way to block.
    static void awaitCallOf(eMorvex_FaultFunction function, unsigned long long callsBefore)
    {
        while (Morvex_Fault_Calls(function) == callsBefore)
            std::this_thread::yield();
    }

    tMsgQueueHandle queue_ = 0;
};

TEST_F(MsgQueue, SmallerPrioritiesFirstAndEqualOnesInOrderSent)
{
    const int priorities[] = {5, 1, 5, -2};
    for (std::uintptr_t n = 0; n < kCapacity; ++n)
        ASSERT_EQ(MsgQueue_SendMsg(queue_, message(n + 1), priorities[n]), MSGQUEUE_OK);
    EXPECT_EQ(receive(), 4u);
    EXPECT_EQ(receive(), 2u);
    ASSERT_EQ(MsgQueue_SendMsg(queue_, message(5), 5), MSGQUEUE_OK);
    ASSERT_EQ(MsgQueue_SendMsg(queue_, message(6), 1), MSGQUEUE_OK);
    EXPECT_EQ(receive(), 6u);
    EXPECT_EQ(receive(), 1u);
    EXPECT_EQ(receive(), 3u);
    EXPECT_EQ(receive(), 5u);
}

TEST_F(MsgQueue, TrySendReportsFullExactlyWhenFull)
{
    fill();
    EXPECT_EQ(MsgQueue_TrySendMsg(queue_, message(9), 0), 4);
    receive();
    EXPECT_EQ(MsgQueue_TrySendMsg(queue_, message(9), 0), MSGQUEUE_OK);
    receive();
    sMsgQueueStatus status{};
    ASSERT_EQ(MsgQueue_GetStatus(queue_, &status), MSGQUEUE_OK);
    EXPECT_EQ(status.count, kCapacity - 1);
    EXPECT_EQ(status.highWater, kCapacity);
    EXPECT_EQ(status.capacity, kCapacity);
}

TEST_F(MsgQueue, ABlockedSendGoesThroughOnceAMessageIsTaken)
{
    fill();
    const unsigned long long calls = Morvex_Fault_Calls(MORVEX_FAULT_MsgQueue_SendMsg);
    auto sent = std::async(std::launch::async, [&] { return MsgQueue_SendMsg(queue_, message(99), -1); });
    awaitCallOf(MORVEX_FAULT_MsgQueue_SendMsg, calls);
    EXPECT_EQ(receive(), 0u);
    EXPECT_EQ(sent.get(), MSGQUEUE_OK);
    EXPECT_EQ(receive(), 99u);
}

// DeInit wakes whoever waits inside the queue, senders and receivers alike.
TEST_F(MsgQueue, DeInitWakesTheWaitersWithInvalidHandle)
{
    struct Row {
        int line;
        bool full;
        eMorvex_FaultFunction waitsIn;
    } const rows[] = {
        {__LINE__, false, MORVEX_FAULT_MsgQueue_ReceiveMsg},
        {__LINE__, true, MORVEX_FAULT_MsgQueue_SendMsg},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << "row at line " << row.line);
        if (queue_ == 0) {
            ASSERT_EQ(MsgQueue_Init(&queue_, kCapacity), MSGQUEUE_OK);
        }
        if (row.full)
            fill();
        const tMsgQueueHandle handle = queue_;
        const unsigned long long calls = Morvex_Fault_Calls(row.waitsIn);
        auto waiter = std::async(std::launch::async, [&] {
            void* received = nullptr;
            return row.full ? MsgQueue_SendMsg(handle, message(1), 0) : MsgQueue_ReceiveMsg(handle, &received);
        });
        awaitCallOf(row.waitsIn, calls);
        ASSERT_EQ(MsgQueue_DeInit(&queue_), MSGQUEUE_OK);
        EXPECT_EQ(queue_, 0u);
        EXPECT_EQ(waiter.get(), MSGQUEUE_ERROR_INV_HANDLE);
    }
}

TEST_F(MsgQueue, StaleUnknownAndNullArgumentsAreReported)
{
    tMsgQueueHandle stale = queue_;
    ASSERT_EQ(MsgQueue_DeInit(&queue_), MSGQUEUE_OK);
    ASSERT_EQ(MsgQueue_Init(&queue_, 1), MSGQUEUE_OK); // may reuse the slot, never the handle
    EXPECT_NE(queue_, stale);
    EXPECT_EQ(MsgQueue_TrySendMsg(stale, nullptr, 0), MSGQUEUE_ERROR_INV_HANDLE);
    EXPECT_EQ(MsgQueue_DeInit(&stale), MSGQUEUE_ERROR_INV_HANDLE);
    EXPECT_EQ(MsgQueue_Init(&stale, 0), MSGQUEUE_ERROR_INV_PARAM);
    EXPECT_EQ(MsgQueue_ReceiveMsg(queue_, nullptr), MSGQUEUE_ERROR_INV_POINTER);
}

} // namespace
