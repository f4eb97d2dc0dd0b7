// TPtrVector: typed pointers over one void* vector, owning nothing.

#include "core/PtrVector.h"

#include "support/CountingElement.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace {

using PAL::TPtrVector;
using osal_kit_test::CountingElement;

static_assert(std::is_base_of<PAL::TVector<void*>, TPtrVector<CountingElement>>::value, "a pointer vector is a void* vector");
static_assert(sizeof(TPtrVector<CountingElement>) == sizeof(PAL::TVector<void*>), "and adds nothing to it");

class PtrVectorTest : public ::testing::Test {
protected:
    void SetUp() override { CountingElement::reset(); }
    void TearDown() override { EXPECT_TRUE(CountingElement::balanced()); }
};

TEST_F(PtrVectorTest, StoresThePointersAndLeavesTheObjectsAlone)
{
    CountingElement a(1), b(2), c(3);
    {
        TPtrVector<CountingElement> v;
        v.push_back(&a);
        v.push_back(&c);
        v.insert(1, &b);
        v.insert(5, &b); // refused
        ASSERT_EQ(3, v.size());
        EXPECT_EQ(&a, v.get(0));
        EXPECT_EQ(&b, v.get(1));
        EXPECT_EQ(&c, v.get(2));
        EXPECT_EQ(nullptr, v.get(3));
        EXPECT_EQ(nullptr, v.get(-1));
        v.erase(0);
        EXPECT_EQ(&b, v.get(0));
        v.clear();
        v.push_back(&a);
    }
    EXPECT_EQ(0, CountingElement::counts().destructions);
    EXPECT_EQ(3u, CountingElement::liveCount());
}

TEST_F(PtrVectorTest, NullPointersAreStoredAndCounted)
{
    TPtrVector<CountingElement> v(2);
    v.push_back(nullptr);
    v.resize(3);
    EXPECT_EQ(3, v.size());
    EXPECT_EQ(nullptr, v.get(0));
    EXPECT_EQ(nullptr, v.get(2));
}

TEST_F(PtrVectorTest, CopiesAndSwapsExchangePointersOnly)
{
    const CountingElement a(1), b(2);
    TPtrVector<const CountingElement> first, second;
    first.push_back(&a);
    second.push_back(&b);
    second.push_back(&a);
    TPtrVector<const CountingElement> copy(second);
    swap(first, second);
    EXPECT_EQ(2, first.size());
    EXPECT_EQ(&b, first.get(0));
    EXPECT_EQ(&a, second.get(0));
    EXPECT_EQ(&a, copy.get(1));
    EXPECT_EQ(2, CountingElement::counts().constructions);
    EXPECT_EQ(0, CountingElement::counts().copies);
}

} // namespace
