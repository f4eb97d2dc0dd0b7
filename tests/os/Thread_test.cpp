// Thread objects over PAL core threads, and the priority translation.

#include "os/Semaphore.h"
#include "os/Thread.h"

#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <climits>
#include <cstring>
#include <string>

namespace {

using osal_kit_test::failNext;

// A thread whose body waits for `go`, tries to join itself and returns 7; afterwards
// it tells the platform's view of its name (from outside and inside), priority and
// exit value.
class CProbeThread : public PAL::CThread {
public:
    using CThread::CThread;
    int run() override
    {
        go.Wait(), ++runs;
        handle = Morvex_PAL_ThreadGetCurrent();
        pthread_getname_np(pthread_self(), inside, sizeof inside);
        return join() ? 0 : 7;
    }
    std::string platformView() const
    {
        char name[32] = {};
        eMorvex_PAL_ThreadPrio priority = THREAD_PRIO_LOWEST;
        int exitValue = 0;
        Morvex_PAL_ThreadGetName(handle, name, sizeof name), Morvex_PAL_ThreadGetPriority(handle, &priority);
        Morvex_PAL_ThreadWait(handle, &exitValue);
        return std::string(name) + "|" + inside + " " + std::to_string(priority) + " " + std::to_string(exitValue);
    }
    int runs = 0;
    sMorvex_PAL_Thread* handle = nullptr;
    char inside[32] = {};
    PAL::CSemaphore go{0};
};

// Name (cut to fifteen bytes, never inside a character) and priority (the middle one
// when out of range) reach the platform; run()'s result is the exit value. A started
// thread refuses another start until it is joined, and it cannot join itself; a joined
// one runs again. Refusals of the PAL core come back as false, and a thread object it
// could not make refuses both without asking it (nor is it destroyed there).
TEST(ThreadTest, StartAndJoinFollowTheThreadsLifeAndReportEveryRefusal)
{
    osal_kit_test::FaultGuard faults;
    const struct { int line; const char* name; int priority; const char* platformView; } rows[] = {
        {__LINE__, "JobQueue-worker", 6, "JobQueue-worker|JobQueue-worker 6 7"},
        {__LINE__, "sixteen-bytes-xx", 0, "sixteen-bytes-x|sixteen-bytes-x 0 7"}, {__LINE__, "", 2, "| 2 7"},
        {__LINE__, "fourteen-bytes\xC3\xA9", 9, "fourteen-bytes|fourteen-bytes 3 7"},
        {__LINE__, "thirteen-byte\xE2\x82\xAC", -1, "thirteen-byte|thirteen-byte 3 7"},
        {__LINE__, "twelve-bytes\xC3\xA9xyz", 1, "twelve-bytes\xC3\xA9x|twelve-bytes\xC3\xA9x 1 7"},
        {__LINE__, nullptr, 0, "PAL::CThread|PAL::CThread 3 7"}, // the default constructor
    };
    for (const auto& row : rows) {
        CProbeThread defaulted, named(row.name ? row.name : "", static_cast<PAL::CThread::ePriority>(row.priority));
        CProbeThread& thread = row.name ? named : defaulted;
        EXPECT_FALSE(thread.join()) << "not started yet";
        failNext(MORVEX_FAULT_ThreadCreate, THREAD_ERROR_CREATE_FAILED);
        EXPECT_FALSE(thread.start());
        ASSERT_TRUE(thread.start());
        EXPECT_FALSE(thread.start()) << "still running";
        thread.go.Signal(), thread.go.Signal();
        failNext(MORVEX_FAULT_ThreadWait, THREAD_ERROR_INTERNAL);
        EXPECT_FALSE(thread.join());
        EXPECT_TRUE(thread.join() && thread.join());
        EXPECT_EQ(row.platformView, thread.platformView()) << "row of line " << row.line;
        EXPECT_TRUE(thread.start() && thread.join());
        EXPECT_EQ(2, thread.runs);
    }
    auto palCalls = [] { return Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate) + Morvex_Fault_Calls(MORVEX_FAULT_ThreadWait); };
    const unsigned long long calls = palCalls(), destroyed = Morvex_Fault_Calls(MORVEX_FAULT_ThreadDeInit);
    {
        failNext(MORVEX_FAULT_ThreadInit, THREAD_ERROR_INTERNAL);
        CProbeThread never("never");
        EXPECT_FALSE(never.start() || never.join());
        EXPECT_EQ(calls, palCalls());
    }
    EXPECT_EQ(destroyed, Morvex_Fault_Calls(MORVEX_FAULT_ThreadDeInit));
    EXPECT_STREQ("PAL::CThread", PAL::PAL_CTHREAD_NAME.getBuffer());
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
