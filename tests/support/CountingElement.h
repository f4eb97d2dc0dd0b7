#ifndef OSAL_KIT_TEST_SUPPORT_COUNTING_ELEMENT_H
#define OSAL_KIT_TEST_SUPPORT_COUNTING_ELEMENT_H

#include <set>

namespace osal_kit_test {

/// An element type for container tests that knows which of its objects are alive, so a
/// test can prove that each element is constructed once, destroyed once, and never
/// assigned, read or constructed over while it is not (or is) alive. The destructor is
/// virtual, like those of the library's record types. Not for use from several threads.
///
///     CountingElement::reset();
///     { PAL::TVector<CountingElement> v(0); v.push_back(CountingElement(7)); }
///     EXPECT_TRUE(CountingElement::balanced());
class CountingElement {
public:
    CountingElement(int value = 0) : mValue(value) { born(); }
    CountingElement(const CountingElement& other) : mValue(other.value()) { born(); }
    CountingElement& operator=(const CountingElement& other)
    {
        requireAlive(this);
        mValue = other.value();
        return *this;
    }
    virtual ~CountingElement()
    {
        sMisuses += sLive.erase(this) == 0 ? 1 : 0;
        mValue = -1;
    }
    int value() const
    {
        requireAlive(this);
        return mValue;
    }
    bool operator==(const CountingElement& other) const { return value() == other.value(); }

    /// True when every object made since `reset` has been destroyed exactly once and
    /// nothing was misused.
    static bool balanced() { return sLive.empty() && sMisuses == 0; }
    /// Forgets the live objects and the misuses (call while none should exist).
    static void reset()
    {
        sLive.clear();
        sMisuses = 0;
    }

private:
    void born() { sMisuses += sLive.insert(this).second ? 0 : 1; }
    static void requireAlive(const CountingElement* p) { sMisuses += sLive.count(p) == 0 ? 1 : 0; }

    int mValue;
    static inline int sMisuses = 0;
    static inline std::set<const CountingElement*> sLive;
};

} // namespace osal_kit_test

#endif
