// Thread objects over PAL core threads, and the priority translation.

#include "os/Semaphore.h"
#include "os/Thread.h"

#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <optional>
#include <string>

namespace {

using osal_kit_test::failNext;

// A thread whose body counts its runs, waits for `go` and returns a chosen value; its
// PAL handle tells the platform's view of its name, priority and exit value.
class CProbeThread : public PAL::CThread {
public:
    using CThread::CThread;
    int run() override
    {
        ++runs, go.Wait();
        handle = Morvex_PAL_ThreadGetCurrent();
        joinedItself = join();
        return result;
    }
    std::string platformView() const
    {
        char name[64] = {};
        eMorvex_PAL_ThreadPrio priority = THREAD_PRIO_LOWEST;
        int exitValue = -1;
        EXPECT_EQ(THREAD_OK, Morvex_PAL_ThreadGetName(handle, name, sizeof name));
        EXPECT_EQ(THREAD_OK, Morvex_PAL_ThreadGetPriority(handle, &priority));
        EXPECT_EQ(THREAD_OK, Morvex_PAL_ThreadWait(handle, &exitValue));
        return std::string(name) + " " + std::to_string(priority) + " " + std::to_string(exitValue);
    }
    int result = 0, runs = 0;
    bool joinedItself = false;
    sMorvex_PAL_Thread* handle = nullptr;
    PAL::CSemaphore go{1};
};

TEST(ThreadTest, NameAndPriorityReachThePlatformAndRunsResultBecomesTheExitValue)
{
    const struct {
        int line;
        const char* name;
        int priority;
        const char* platformView;
    } rows[] = {
        {__LINE__, "q", 0, "q 0 7"},
        {__LINE__, "JobQueue-worker", 6, "JobQueue-worker 6 7"},
        {__LINE__, "Größe", 2, "Größe 2 7"},
        {__LINE__, "", 9, " 3 7"},
        {__LINE__, "negative", -1, "negative 3 7"},
        {__LINE__, nullptr, 0, "PAL::CThread 3 7"}, // the default constructor's name and priority
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        std::optional<CProbeThread> thread;
        row.name ? (void)thread.emplace(row.name, static_cast<PAL::CThread::ePriority>(row.priority))
                 : (void)thread.emplace();
        thread->result = 7;
        ASSERT_TRUE(thread->start());
        ASSERT_TRUE(thread->join());
        EXPECT_EQ(row.platformView, thread->platformView());
    }
    EXPECT_STREQ("PAL::CThread", PAL::PAL_CTHREAD_NAME.getBuffer());
}

// A thread is started once at a time and joined from another thread; a joined one can
// run again. A thread object the PAL core could not make refuses both without calling it.
TEST(ThreadTest, StartAndJoinFollowTheThreadsLifeAndReportEveryRefusal)
{
    osal_kit_test::FaultGuard faults;
    CProbeThread thread("again");
    thread.go.Wait();
    EXPECT_FALSE(thread.join()) << "not started yet";
    failNext(MORVEX_FAULT_ThreadCreate, THREAD_ERROR_CREATE_FAILED);
    EXPECT_FALSE(thread.start());
    ASSERT_TRUE(thread.start());
    EXPECT_FALSE(thread.start()) << "still running";
    thread.go.Signal();
    failNext(MORVEX_FAULT_ThreadWait, THREAD_ERROR_INTERNAL);
    EXPECT_FALSE(thread.join());
    EXPECT_TRUE(thread.join());
    EXPECT_TRUE(thread.join());
    EXPECT_FALSE(thread.joinedItself);
    thread.go.Signal();
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(thread.join());
    EXPECT_EQ(2, thread.runs);

    const unsigned long long creates = Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate) + Morvex_Fault_Calls(MORVEX_FAULT_ThreadWait);
    failNext(MORVEX_FAULT_ThreadInit, THREAD_ERROR_INTERNAL);
    CProbeThread never("never");
    EXPECT_FALSE(never.start());
    EXPECT_FALSE(never.join());
    EXPECT_EQ(creates, Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate) + Morvex_Fault_Calls(MORVEX_FAULT_ThreadWait));
}

TEST(PriorityMapTest, EveryPriorityMapsToTheSameNumberBothWaysAndAnythingElseToTheMiddleOrMinusOne)
{
    for (int value : {0, 1, 2, 3, 4, 5, 6, 7, -1, 100, INT_MIN}) {
        const bool known = value >= 0 && value <= 6;
        eMorvex_PAL_ThreadPrio palPriority; // held in place: it may lie outside the enumeration
        std::memcpy(&palPriority, &value, sizeof palPriority);
        EXPECT_EQ(known ? value : 3, PAL::PriorityMap::Map(static_cast<PAL::CThread::ePriority>(value))) << value;
        EXPECT_EQ(known ? value : -1, PAL::PriorityMap::Map(palPriority)) << value;
    }
}

} // namespace
