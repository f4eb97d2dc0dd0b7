// A value type that counts its constructions and destructions, so a test can prove a
// container destroys every value it made exactly once.
#ifndef OSAL_KIT_TEST_SUPPORT_COUNTEDVALUE_H
#define OSAL_KIT_TEST_SUPPORT_COUNTEDVALUE_H

#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <atomic>

namespace osal_kit_test {

class CountedValue {
public:
    explicit CountedValue(int payload = 0) : mPayload(payload) { ++sLive; }
    CountedValue(const CountedValue& other) : mPayload(other.payload()) { ++sLive; }
    CountedValue& operator=(const CountedValue& other)
    {
        sMisuses += mAlive ? 0 : 1;
        mPayload = other.payload();
        return *this;
    }
    ~CountedValue()
    {
        sMisuses += mAlive ? 0 : 1;
        mAlive = false;
        --sLive;
    }
    int payload() const
    {
        sMisuses += mAlive ? 0 : 1;
        return mPayload;
    }
    /// Values constructed and not destroyed since the fixture's set-up.
    static long live() { return sLive; }

private:
    friend class CountedValueTest;
    int mPayload;
    bool mAlive = true;
    static inline std::atomic<long> sLive{0};
    static inline std::atomic<long> sMisuses{0};
};

// Checks that every CountedValue a test made was destroyed exactly once and never misused.
class CountedValueTest : public ::testing::Test {
protected:
    void SetUp() override { CountedValue::sLive = CountedValue::sMisuses = 0; }
    void TearDown() override
    {
        EXPECT_EQ(0, CountedValue::sLive) << "every value is destroyed exactly once";
        EXPECT_EQ(0, CountedValue::sMisuses);
    }
    FaultGuard faults;
};

} // namespace osal_kit_test

#endif
