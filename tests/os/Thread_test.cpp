// Thread objects over PAL core threads, and the priority translation.

#include "os/Semaphore.h"
#include "os/Thread.h"

#include "support/AllocationBalance.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

// A thread whose body records its PAL handle (to ask the platform about it later)
// and returns a chosen value.
class CProbeThread : public PAL::CThread {
public:
    CProbeThread() : mResult(0) {}
    CProbeThread(const PAL::CString& name, const ePriority& priority, int result) : CThread(name, priority), mResult(result) {}

    int run() override
    {
        ++mRuns;
        if (mStarted != nullptr)
            mStarted->Signal();
        if (mGo != nullptr)
            mGo->Wait();
        mHandle = Morvex_PAL_ThreadGetCurrent();
        if (mJoinItself)
            mJoinedItself = join();
        return mResult;
    }

    // The PAL thread's exit value, read again after the thread was joined.
    int exitValue() const
    {
        int value = -12345;
        EXPECT_EQ(THREAD_OK, Morvex_PAL_ThreadWait(mHandle, &value));
        return value;
    }

    std::string palName() const
    {
        char name[64] = {};
        EXPECT_EQ(THREAD_OK, Morvex_PAL_ThreadGetName(mHandle, name, sizeof name));
        return name;
    }

    eMorvex_PAL_ThreadPrio palPriority() const
    {
        eMorvex_PAL_ThreadPrio priority = THREAD_PRIO_LOWEST;
        EXPECT_EQ(THREAD_OK, Morvex_PAL_ThreadGetPriority(mHandle, &priority));
        return priority;
    }

    int mResult;
    int mRuns = 0;
    bool mJoinItself = false;
    bool mJoinedItself = true;
    sMorvex_PAL_Thread* mHandle = nullptr;
    PAL::CSemaphore* mStarted = nullptr; // signalled when the body begins
    PAL::CSemaphore* mGo = nullptr;      // waited for before the body ends
};

class ThreadTest : public ::testing::Test {
protected:
    osal_kit_test::FaultGuard faults;
};

TEST_F(ThreadTest, NameAndPriorityReachThePlatformAndRunResultBecomesTheExitValue)
{
    struct Row {
        int line;
        const char* name;
        int priority;
        const char* palName;
        eMorvex_PAL_ThreadPrio palPriority;
    };
    const Row rows[] = {
        // How the PAL core cuts long names: its own tests.
        {__LINE__, "q", 0, "q", THREAD_PRIO_LOWEST},
        {__LINE__, "JobQueue-worker", 6, "JobQueue-worker", THREAD_PRIO_HIGHEST},
        {__LINE__, "Größe", 2, "Größe", THREAD_PRIO_LOW},
        {__LINE__, "", 9, "", THREAD_PRIO_NORMAL},
        {__LINE__, "negative", -1, "negative", THREAD_PRIO_NORMAL},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        CProbeThread thread(row.name, static_cast<PAL::CThread::ePriority>(row.priority), row.line);
        ASSERT_TRUE(thread.start());
        ASSERT_TRUE(thread.join());
        EXPECT_EQ(row.palName, thread.palName());
        EXPECT_EQ(row.palPriority, thread.palPriority());
        EXPECT_EQ(row.line, thread.exitValue());
    }
}

TEST_F(ThreadTest, DefaultThreadIsNamedAfterTheClass)
{
    EXPECT_STREQ("PAL::CThread", PAL::PAL_CTHREAD_NAME.getBuffer());
    CProbeThread thread;
    ASSERT_TRUE(thread.start());
    ASSERT_TRUE(thread.join());
    EXPECT_EQ(PAL::PAL_CTHREAD_NAME.getBuffer(), thread.palName());
    EXPECT_EQ(THREAD_PRIO_NORMAL, thread.palPriority());
}

TEST_F(ThreadTest, FailedPalInitialisationRefusesStartAndJoinWithoutCallingThePalCore)
{
    const osal_kit_test::PalCalls calls{MORVEX_FAULT_ThreadCreate, MORVEX_FAULT_ThreadWait, MORVEX_FAULT_ThreadDeInit};
    osal_kit_test::TraceCapture capture;
    {
        osal_kit_test::failNext(MORVEX_FAULT_ThreadInit, THREAD_ERROR_INTERNAL);
        CProbeThread thread("never", PAL::CThread::PRIORITY_NORMAL, 1);
        EXPECT_FALSE(thread.start());
        EXPECT_FALSE(thread.join());
        EXPECT_EQ(0, thread.mRuns);
    }
    EXPECT_EQ(calls.none(), calls.since());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(ThreadTest, ARunningThreadRefusesAStartAndAJoinedOneRunsAgain)
{
    CProbeThread thread("again", PAL::CThread::PRIORITY_NORMAL, 5);
    PAL::CSemaphore go(0);
    thread.mGo = &go;
    thread.mJoinItself = true;
    EXPECT_FALSE(thread.join()); // not started yet
    ASSERT_TRUE(thread.start());
    EXPECT_FALSE(thread.start()); // still running
    go.Signal();
    EXPECT_TRUE(thread.join());
    EXPECT_TRUE(thread.join());
    EXPECT_EQ(1, thread.mRuns);
    // The thread itself cannot join itself.
    EXPECT_FALSE(thread.mJoinedItself);

    go.Signal();
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(thread.join());
    EXPECT_EQ(2, thread.mRuns);
}

TEST_F(ThreadTest, PalRefusalsOfCreateAndWaitComeBackAsFalse)
{
    CProbeThread thread("refused", PAL::CThread::PRIORITY_NORMAL, 5);
    osal_kit_test::failNext(MORVEX_FAULT_ThreadCreate, THREAD_ERROR_CREATE_FAILED);
    EXPECT_FALSE(thread.start());
    EXPECT_EQ(0, thread.mRuns);
    ASSERT_TRUE(thread.start());
    osal_kit_test::failNext(MORVEX_FAULT_ThreadWait, THREAD_ERROR_INTERNAL);
    EXPECT_FALSE(thread.join());
    EXPECT_TRUE(thread.join());
    EXPECT_EQ(1, thread.mRuns);
}

TEST_F(ThreadTest, ManyThreadsRunTogetherAndEachReturnsItsOwnResult)
{
    const int count = 8;
    PAL::CSemaphore started(0);
    PAL::CSemaphore go(0);
    std::vector<std::unique_ptr<CProbeThread>> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(new CProbeThread("probe", PAL::CThread::PRIORITY_NORMAL, 100 + i));
        threads.back()->mStarted = &started;
        threads.back()->mGo = &go;
        ASSERT_TRUE(threads.back()->start());
    }
    // Every body is running before any of them may finish.
    for (int i = 0; i < count; ++i)
        ASSERT_TRUE(started.Wait());
    for (int i = 0; i < count; ++i)
        ASSERT_TRUE(go.Signal());
    for (int i = 0; i < count; ++i) {
        SCOPED_TRACE(i);
        ASSERT_TRUE(threads[i]->join());
        EXPECT_EQ(1, threads[i]->mRuns);
        EXPECT_EQ(100 + i, threads[i]->exitValue());
    }
}

TEST(PriorityMapTest, EveryPriorityMapsToTheSameNumberBothWays)
{
    for (int value = 0; value <= 6; ++value) {
        SCOPED_TRACE(value);
        const auto priority = static_cast<PAL::CThread::ePriority>(value);
        const auto palPriority = static_cast<eMorvex_PAL_ThreadPrio>(value);
        EXPECT_EQ(palPriority, PAL::PriorityMap::Map(priority));
        EXPECT_EQ(priority, PAL::PriorityMap::Map(palPriority));
    }
}

TEST(PriorityMapTest, ValuesOutsideTheTableGetTheMiddleOrMinusOne)
{
    for (const int value : {7, -1, 100, -2147483647 - 1}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(THREAD_PRIO_NORMAL, PAL::PriorityMap::Map(static_cast<PAL::CThread::ePriority>(value)));
        eMorvex_PAL_ThreadPrio palPriority;
        std::memcpy(&palPriority, &value, sizeof palPriority);
        EXPECT_EQ(-1, static_cast<int>(PAL::PriorityMap::Map(palPriority)));
    }
}

} // namespace
