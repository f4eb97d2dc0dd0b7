#include "msgqueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <vector>

// Filled up again and again and drained by a few each time, against a model that picks
// the smallest (priority, order sent).
TEST(MsgQueue, SmallerPrioritiesComeFirstAndEqualOnesInTheOrderSent)
{
    constexpr unsigned int kCapacity = 20;
    tMsgQueueHandle queue = 0;
    ASSERT_EQ(MsgQueue_Init(&queue, kCapacity), MSGQUEUE_OK);
    std::vector<std::pair<int, std::uintptr_t>> pending;
    for (std::uintptr_t sent = 0, round = 0; round < 50; ++round) {
        for (; pending.size() < kCapacity; ++sent) {
            pending.emplace_back(int(sent * 7 % 5) - 2, sent);
            ASSERT_EQ(MsgQueue_TrySendMsg(queue, reinterpret_cast<void*>(sent), pending.back().first), MSGQUEUE_OK);
        }
        EXPECT_EQ(MsgQueue_TrySendMsg(queue, nullptr, -3), MSGQUEUE_ERROR_FULL);
        for (auto n = round % 4; n < 4; ++n) {
            const auto first = std::min_element(pending.begin(), pending.end());
            void* received = nullptr;
            ASSERT_EQ(MsgQueue_ReceiveMsg(queue, &received), MSGQUEUE_OK);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(received), first->second) << "round " << round;
            pending.erase(first);
        }
    }

    // More queues at once than the registry first has room for: they may reuse the slot,
    // never the handle.
    const tMsgQueueHandle stale = queue;
    ASSERT_EQ(MsgQueue_DeInit(&queue), MSGQUEUE_OK);
    std::vector<tMsgQueueHandle> queues(17);
    for (tMsgQueueHandle& each : queues)
        ASSERT_EQ(MsgQueue_Init(&each, 1), MSGQUEUE_OK);
    queues.push_back(stale);
    EXPECT_EQ(std::set(queues.begin(), queues.end()).size(), 18u);
    EXPECT_EQ(MsgQueue_TrySendMsg(stale, nullptr, 0), MSGQUEUE_ERROR_INV_HANDLE);
    EXPECT_EQ(MsgQueue_TrySendMsg(queues[16], nullptr, 0), MSGQUEUE_OK);
    for (size_t i = 0; i < 17; ++i)
        EXPECT_EQ(MsgQueue_DeInit(&queues[i]), MSGQUEUE_OK);
}
