// Priority order and a full queue's refusal are covered through the job queue's tests.
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

TEST_F(MsgQueue, ABlockedSendGoesThroughOnceAMessageIsTaken)
{
    fill();
    const unsigned long long calls = Morvex_Fault_Calls(MORVEX_FAULT_MsgQueue_SendMsg);
    auto sent = std::async(std::launch::async, [&] { return MsgQueue_SendMsg(queue_, message(99), -1); });
    awaitCallOf(MORVEX_FAULT_MsgQueue_SendMsg, calls);
    EXPECT_EQ(receive(), 0u);
    EXPECT_EQ(sent.get(), MSGQUEUE_OK);
    EXPECT_EQ(receive(), 99u);
    sMsgQueueStatus status{};
    ASSERT_EQ(MsgQueue_GetStatus(queue_, &status), MSGQUEUE_OK);
    EXPECT_EQ(status.count, kCapacity - 1);
    EXPECT_EQ(status.highWater, kCapacity);
    EXPECT_EQ(status.capacity, kCapacity);
}

// DeInit wakes whoever waits inside the queue, senders and receivers alike.
TEST_F(MsgQueue, DeInitWakesTheWaitersWithInvalidHandle)
{
    for (const bool full : {false, true}) {
        SCOPED_TRACE(full ? "sender" : "receiver");
        if (queue_ == 0) {
            ASSERT_EQ(MsgQueue_Init(&queue_, kCapacity), MSGQUEUE_OK);
        }
        if (full)
            fill();
        const eMorvex_FaultFunction waitsIn = full ? MORVEX_FAULT_MsgQueue_SendMsg : MORVEX_FAULT_MsgQueue_ReceiveMsg;
        const tMsgQueueHandle handle = queue_;
        const unsigned long long calls = Morvex_Fault_Calls(waitsIn);
        auto waiter = std::async(std::launch::async, [&] {
            void* received = nullptr;
            return full ? MsgQueue_SendMsg(handle, message(1), 0) : MsgQueue_ReceiveMsg(handle, &received);
        });
        awaitCallOf(waitsIn, calls);
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
