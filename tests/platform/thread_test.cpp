// Starting twice, running again, waiting for itself or before a start, and the
// priorities kept are covered through CThread's tests.
#include "morvex_pal_sema.h"
#include "morvex_pal_thread.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

namespace {

// A semaphore the test and its threads hand to each other.
struct Latch {
    Latch() { Morvex_PAL_SemaInit(&sema, 0); }
    ~Latch() { Morvex_PAL_SemaDeInit(&sema); }
    void open() { Morvex_PAL_SemaSignal(sema); }
    void pass() { Morvex_PAL_SemaWait(sema); }
    sMorvex_PAL_Sema* sema = nullptr;
};

struct Seen {
    sMorvex_PAL_Thread* current = nullptr;
    char osName[32] = {};
};

int recordSelf(void* argument)
{
    auto* seen = static_cast<Seen*>(argument);
    seen->current = Morvex_PAL_ThreadGetCurrent();
    pthread_getname_np(pthread_self(), seen->osName, sizeof seen->osName);
    return 7;
}

class Thread : public ::testing::Test {
protected:
    void TearDown() override { Morvex_PAL_ThreadDeInit(&thread_); }

    void start(tMorvex_PAL_ThreadFunction function, void* argument, const char* name = "worker")
    {
        ASSERT_EQ(Morvex_PAL_ThreadInit(&thread_, name, THREAD_PRIO_NORMAL), THREAD_OK);
        ASSERT_EQ(Morvex_PAL_ThreadCreate(thread_, function, argument), THREAD_OK);
    }

    sMorvex_PAL_Thread* thread_ = nullptr;
    Seen seen_;
};

TEST_F(Thread, NamesAreCutToFifteenBytesOnACharacterBoundary)
{
    struct Row {
        int line;
        const char* name;
        std::string kept;
    } const rows[] = {
        {__LINE__, nullptr, ""},
        {__LINE__, "exactly15bytes!", "exactly15bytes!"},
        {__LINE__, "sixteen-bytes-xx", "sixteen-bytes-x"},
        {__LINE__, "fourteen-bytes\xC3\xA9", "fourteen-bytes"},   // bytes 15 and 16 are one character
        {__LINE__, "thirteen-byte\xE2\x82\xAC", "thirteen-byte"}, // bytes 14 to 16 are one character
        {__LINE__, "twelve-bytes\xC3\xA9xyz", "twelve-bytes\xC3\xA9x"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << "row at line " << row.line);
        start(recordSelf, &seen_, row.name);
        char name[32];
        ASSERT_EQ(Morvex_PAL_ThreadGetName(thread_, name, sizeof name), THREAD_OK);
        EXPECT_EQ(name, row.kept);
        ASSERT_EQ(Morvex_PAL_ThreadWait(thread_, nullptr), THREAD_OK);
        EXPECT_EQ(seen_.osName, row.kept);
        ASSERT_EQ(Morvex_PAL_ThreadDeInit(&thread_), THREAD_OK);
    }
}

TEST_F(Thread, EveryWaiterGetsTheExitValueAndSeesTheStoredHandleInside)
{
    start(recordSelf, &seen_);
    std::vector<int> values(3, -1);
    std::vector<std::thread> waiters;
    for (int& value : values)
        waiters.emplace_back([&] { EXPECT_EQ(Morvex_PAL_ThreadWait(thread_, &value), THREAD_OK); });
    for (auto& waiter : waiters)
        waiter.join();
    EXPECT_EQ(values, std::vector<int>(3, 7));
    EXPECT_EQ(Morvex_PAL_ThreadWait(thread_, &values[0]), THREAD_OK); // again: at once, same value
    EXPECT_EQ(values[0], 7);
    EXPECT_EQ(seen_.current, thread_);
    EXPECT_EQ(Morvex_PAL_ThreadGetCurrent(), nullptr);
}

struct Handshake {
    Latch running, release, finished;
    static int run(void* argument)
    {
        auto* self = static_cast<Handshake*>(argument);
        self->running.open();
        self->release.pass();
        self->finished.open();
        return 0;
    }
};

// The object outlives its handle; the sanitizers' leak and use-after-free checks tell
// whether the thread releases it exactly once.
TEST_F(Thread, DeInitWhileRunningReleasesTheObjectWhenTheThreadEnds)
{
    Handshake handshake;
    start(Handshake::run, &handshake);
    handshake.running.pass();
    ASSERT_EQ(Morvex_PAL_ThreadDeInit(&thread_), THREAD_OK);
    EXPECT_EQ(thread_, nullptr);
    handshake.release.open();
    handshake.finished.pass();
}

TEST_F(Thread, AnUnknownPriorityIsRefused)
{
    EXPECT_EQ(Morvex_PAL_ThreadInit(&thread_, "p", eMorvex_PAL_ThreadPrio(7)), THREAD_ERROR_INV_PRIORITY);
}

} // namespace
