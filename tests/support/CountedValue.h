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
    explicit CountedValue(int payload = 0) : mPayload(payload) { ++sConstructed; }
    CountedValue(const CountedValue& other) : mPayload(other.payload()) { ++sConstructed; }
    CountedValue& operator=(const CountedValue& other)
    {
        check();
        mPayload = other.payload();
        return *this;
    }
    ~CountedValue()
    {
        check();
        mAlive = false;
        ++sDestroyed;
    }

    int payload() const
    {
        check();
        return mPayload;
    }

    /// Values constructed and not destroyed since the last reset.
    static long live() { return sConstructed - sDestroyed; }
    static long constructed() { return sConstructed; }
    /// Uses (destruction included) of a value that was already destroyed.
    static long misuses() { return sMisuses; }
    static void reset() { sConstructed = sDestroyed = sMisuses = 0; }

private:
    void check() const
    {
        if (!mAlive) {
            ++sMisuses;
        }
    }

    int mPayload;
    bool mAlive = true;

    static inline std::atomic<long> sConstructed{0};
    static inline std::atomic<long> sDestroyed{0};
    static inline std::atomic<long> sMisuses{0};
};

// Checks that every CountedValue a test made was destroyed exactly once and never misused.
class CountedValueTest : public ::testing::Test {
protected:
    void SetUp() override { CountedValue::reset(); }
    void TearDown() override
    {
        EXPECT_EQ(0, CountedValue::live()) << "every value is destroyed exactly once";
        EXPECT_EQ(0, CountedValue::misuses());
    }

    FaultGuard faults;
};

} // namespace osal_kit_test

#endif
