#include "morvex_pal_thread.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <string>
#include <tuple>

static sMorvex_PAL_Thread* seenCurrent;
static char seenName[32];

static int recordSelf(void*)
{
    seenCurrent = Morvex_PAL_ThreadGetCurrent();
    pthread_getname_np(pthread_self(), seenName, sizeof seenName);
    return 0;
}

// Each thread also finds its own handle inside.
TEST(Thread, NamesAreCutToFifteenBytesOnACharacterBoundary)
{
    const struct {
        int line;
        const char* name;
        std::string kept;
    } rows[] = {
        {__LINE__, nullptr, ""},
        {__LINE__, "exactly15bytes!", "exactly15bytes!"},
        {__LINE__, "sixteen-bytes-xx", "sixteen-bytes-x"},
        {__LINE__, "fourteen-bytes\xC3\xA9", "fourteen-bytes"},   // bytes 15 and 16 are one character
        {__LINE__, "thirteen-byte\xE2\x82\xAC", "thirteen-byte"}, // bytes 14 to 16 are one character
        {__LINE__, "twelve-bytes\xC3\xA9xyz", "twelve-bytes\xC3\xA9x"},
    };
    for (const auto& row : rows) {
        sMorvex_PAL_Thread* thread = nullptr;
        char name[32];
        ASSERT_EQ(Morvex_PAL_ThreadInit(&thread, row.name, THREAD_PRIO_NORMAL), THREAD_OK);
        ASSERT_EQ(Morvex_PAL_ThreadCreate(thread, recordSelf, nullptr), THREAD_OK);
        ASSERT_EQ(Morvex_PAL_ThreadGetName(thread, name, sizeof name), THREAD_OK);
        ASSERT_EQ(Morvex_PAL_ThreadWait(thread, nullptr), THREAD_OK);
        EXPECT_EQ(std::make_tuple(std::string(name), std::string(seenName), seenCurrent),
                  std::make_tuple(row.kept, row.kept, thread)) << "row at line " << row.line;
        EXPECT_EQ(Morvex_PAL_ThreadDeInit(&thread), THREAD_OK);
    }
}
