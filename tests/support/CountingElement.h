#ifndef OSAL_KIT_TEST_SUPPORT_COUNTING_ELEMENT_H
#define OSAL_KIT_TEST_SUPPORT_COUNTING_ELEMENT_H

#include <cstddef>
#include <set>

namespace osal_kit_test {

/// What `CountingElement` has seen since its last `reset`.
struct CountingElementCounts {
    int constructions = 0; ///< default and value constructions
    int copies = 0;        ///< copy constructions
    int assignments = 0;
    int destructions = 0;
    int misuses = 0; ///< constructed over a live object, or used or destroyed while not alive
};

/// An element type for container tests that records every construction, copy,
/// assignment and destruction and knows which objects are alive, so a test can prove
/// that each element is constructed exactly once, destroyed exactly once, and never
/// assigned, read or constructed over while it is (or is not) alive.
///
/// The destructor is virtual, like those of the library's record types. Not for use from
/// several threads at once.
///
///     CountingElement::reset();
///     { PAL::TVector<CountingElement> v(0); v.push_back(CountingElement(7)); }
///     EXPECT_TRUE(CountingElement::balanced());
class CountingElement {
public:
    using Counts = CountingElementCounts;

    CountingElement() : mValue(0) { born(); ++sCounts.constructions; }
    CountingElement(int value) : mValue(value) { born(); ++sCounts.constructions; }
    CountingElement(const CountingElement& other) : mValue(other.value())
    {
        born();
        ++sCounts.copies;
    }
    CountingElement& operator=(const CountingElement& other)
    {
        requireAlive(this);
        mValue = other.value();
        ++sCounts.assignments;
        return *this;
    }
    virtual ~CountingElement()
    {
        if (sLive.erase(this) == 0) {
            ++sCounts.misuses;
        }
        ++sCounts.destructions;
        mValue = -1;
    }

    int value() const
    {
        requireAlive(this);
        return mValue;
    }
    bool operator==(const CountingElement& other) const { return value() == other.value(); }

    static const Counts& counts() { return sCounts; }
    /// Objects constructed and not yet destroyed.
    static std::size_t liveCount() { return sLive.size(); }
    /// True when every object made since `reset` has been destroyed exactly once and
    /// nothing was misused.
    static bool balanced()
    {
        return sLive.empty() && sCounts.misuses == 0 &&
               sCounts.constructions + sCounts.copies == sCounts.destructions;
    }
    /// Zeroes the counts and forgets the live objects (call while none should exist).
    static void reset()
    {
        sCounts = Counts();
        sLive.clear();
    }

private:
    void born()
    {
        if (!sLive.insert(this).second) {
            ++sCounts.misuses;
        }
    }
    static void requireAlive(const CountingElement* p)
    {
        if (sLive.count(p) == 0) {
            ++sCounts.misuses;
        }
    }

    int mValue;

    static inline Counts sCounts;
    static inline std::set<const CountingElement*> sLive;
};

} // namespace osal_kit_test

#endif
