#include "morvex_pal.h"
#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

namespace {

constexpr int kCode = 42;

std::vector<int> strcmpResults(int calls)
{
    std::vector<int> results;
    while (calls-- > 0)
        results.push_back(Morvex_PAL_strcmp("same", "same"));
    return results;
}

std::vector<int> strcmpElsewhere()
{
    std::vector<int> results;
    std::thread([&] { results = strcmpResults(1); }).join();
    return results;
}

class Fault : public ::testing::Test {
protected:
    osal_kit_test::FaultGuard guard_;
};

TEST_F(Fault, SkipLetsCallsPassCountCallsFailAndThisThreadOnlySparesOthers)
{
    const unsigned long long calls = Morvex_Fault_Calls(MORVEX_FAULT_strcmp);
    const unsigned long long injected = Morvex_Fault_Injected(MORVEX_FAULT_strcmp);
    Morvex_Fault_ArmEx(MORVEX_FAULT_strcmp, kCode, 2, 3, 0);
    EXPECT_EQ(strcmpResults(7), (std::vector<int>{0, 0, kCode, kCode, kCode, 0, 0}));
    EXPECT_EQ(Morvex_Fault_Calls(MORVEX_FAULT_strcmp) - calls, 7u);
    EXPECT_EQ(Morvex_Fault_Injected(MORVEX_FAULT_strcmp) - injected, 3u);
    Morvex_Fault_Arm(MORVEX_FAULT_strcmp, kCode, 5);
    Morvex_Fault_Disarm(MORVEX_FAULT_strcmp);
    EXPECT_EQ(strcmpResults(1), std::vector<int>{0});

    Morvex_Fault_ArmEx(MORVEX_FAULT_strcmp, kCode, 0, 1, 1);
    EXPECT_EQ(strcmpElsewhere(), std::vector<int>{0});
    EXPECT_EQ(strcmpResults(2), (std::vector<int>{kCode, 0}));
    Morvex_Fault_Arm(MORVEX_FAULT_strcmp, kCode, 1);
    EXPECT_EQ(strcmpElsewhere(), std::vector<int>{kCode});
}

// Calls are counted per thread and added up on demand: those of threads that have
// ended still count, as do those of threads still running.
TEST_F(Fault, CallsOfEveryThreadCountEndedOrRunning)
{
    const unsigned long long calls = Morvex_Fault_Calls(MORVEX_FAULT_strcmp);
    std::vector<std::thread> ended;
    for (int i = 0; i < 3; ++i)
        ended.emplace_back([] { strcmpResults(5); });
    for (auto& thread : ended)
        thread.join();
    EXPECT_EQ(Morvex_Fault_Calls(MORVEX_FAULT_strcmp) - calls, 15u);

    sMorvex_PAL_Sema* counted = nullptr;
    sMorvex_PAL_Sema* release = nullptr;
    ASSERT_EQ(Morvex_PAL_SemaInit(&counted, 0), SEMA_OK);
    ASSERT_EQ(Morvex_PAL_SemaInit(&release, 0), SEMA_OK);
    std::thread running([&] {
        strcmpResults(4);
        Morvex_PAL_SemaSignal(counted);
        Morvex_PAL_SemaWait(release);
    });
    Morvex_PAL_SemaWait(counted);
    strcmpResults(2);
    EXPECT_EQ(Morvex_Fault_Calls(MORVEX_FAULT_strcmp) - calls, 21u);
    Morvex_PAL_SemaSignal(release);
    running.join();
    EXPECT_EQ(Morvex_Fault_Calls(MORVEX_FAULT_strcmp) - calls, 21u);
    Morvex_PAL_SemaDeInit(&counted);
    Morvex_PAL_SemaDeInit(&release);
}

// Each row's function fails once: it returns the row's code and leaves out-parameters
// and objects as they were.
TEST_F(Fault, AnInjectedFailureHasNoSideEffect)
{
    static char marker;
    auto* const sentinel = reinterpret_cast<sMorvex_PAL_Mutex*>(&marker);
    const struct {
        int line;
        eMorvex_FaultFunction function;
        int code;
        std::function<void(int code)> callAndCheck;
    } rows[] = {
        {__LINE__, MORVEX_FAULT_zmalloc, kCode, [](int) {
             osal_kit_test::AllocationBalance balance("faulttest");
             EXPECT_EQ(Morvex_PAL_zmalloc(8, "faulttest", "x", __FILE__, __LINE__), nullptr);
             EXPECT_EQ(balance.allocationsSince(), 0u);
         }},
        {__LINE__, MORVEX_FAULT_MutexInit, MUTEX_ERROR_INTERNAL, [&](int code) {
             sMorvex_PAL_Mutex* mutex = sentinel;
             EXPECT_EQ(Morvex_PAL_MutexInit(&mutex), code);
             EXPECT_EQ(mutex, sentinel);
         }},
        {__LINE__, MORVEX_FAULT_SemaSignal, SEMA_ERROR_INTERNAL, [](int code) {
             sMorvex_PAL_Sema* sema = nullptr;
             ASSERT_EQ(Morvex_PAL_SemaInit(&sema, 0), SEMA_OK);
             EXPECT_EQ(Morvex_PAL_SemaSignal(sema), code);
             EXPECT_EQ(Morvex_PAL_SemaTryWait(sema), SEMA_WOULD_BLOCK);
             Morvex_PAL_SemaDeInit(&sema);
         }},
        {__LINE__, MORVEX_FAULT_MsgQueue_DeInit, kCode, [](int code) {
             tMsgQueueHandle queue = 0;
             ASSERT_EQ(MsgQueue_Init(&queue, 1), MSGQUEUE_OK);
             const tMsgQueueHandle kept = queue;
             EXPECT_EQ(MsgQueue_DeInit(&queue), code);
             EXPECT_EQ(queue, kept);
             EXPECT_EQ(MsgQueue_TrySendMsg(queue, nullptr, 0), MSGQUEUE_OK); // still alive
             EXPECT_EQ(MsgQueue_DeInit(&queue), MSGQUEUE_OK);
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << "row at line " << row.line);
        const unsigned long long injected = Morvex_Fault_Injected(row.function);
        Morvex_Fault_ArmEx(row.function, row.code, 0, 1, 1);
        row.callAndCheck(row.code);
        EXPECT_EQ(Morvex_Fault_Injected(row.function) - injected, 1u);
        Morvex_Fault_DisarmAll();
    }
}

} // namespace
