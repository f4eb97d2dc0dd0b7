// A value type that counts its constructions and destructions, so a test can prove a
// container destroys every value it made exactly once.
#ifndef OSAL_KIT_TEST_SUPPORT_COUNTEDVALUE_H
#define OSAL_KIT_TEST_SUPPORT_COUNTEDVALUE_H

#include <atomic>

namespace osal_kit_test {

class CountedValue {
public:
    CountedValue() : mPayload(0), mState(ALIVE) { ++sConstructed; }
    explicit CountedValue(int payload) : mPayload(payload), mState(ALIVE) { ++sConstructed; }
    CountedValue(const CountedValue& other) : mPayload(other.mPayload), mState(ALIVE)
    {
        checkAlive(other);
        ++sConstructed;
        ++sCopies;
    }
    CountedValue& operator=(const CountedValue& other)
    {
        checkAlive(*this);
        checkAlive(other);
        mPayload = other.mPayload;
        return *this;
    }
    ~CountedValue()
    {
        checkAlive(*this);
        mState = DESTROYED;
        ++sDestroyed;
    }

    int payload() const { return mPayload; }
    bool operator==(const CountedValue& other) const { return mPayload == other.mPayload; }

    /// Values constructed and not yet destroyed since the last reset.
    static long live() { return sConstructed - sDestroyed; }
    static long constructed() { return sConstructed; }
    static long destroyed() { return sDestroyed; }
    static long copies() { return sCopies; }
    /// Uses of a value that was already destroyed (or never constructed).
    static long misuses() { return sMisuses; }
    static void reset()
    {
        sConstructed = 0;
        sDestroyed = 0;
        sCopies = 0;
        sMisuses = 0;
    }

private:
    static const unsigned int ALIVE = 0xA11CE5u;
    static const unsigned int DESTROYED = 0xDEADu;

    static void checkAlive(const CountedValue& value)
    {
        if (value.mState != ALIVE) {
            ++sMisuses;
        }
    }

    int mPayload;
    unsigned int mState;

    static inline std::atomic<long> sConstructed{0};
    static inline std::atomic<long> sDestroyed{0};
    static inline std::atomic<long> sCopies{0};
    static inline std::atomic<long> sMisuses{0};
};

} // namespace osal_kit_test

#endif
