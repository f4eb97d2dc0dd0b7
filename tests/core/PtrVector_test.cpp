// TPtrVector: typed pointers over one void* vector, owning nothing.

#include "core/PtrVector.h"

#include <gtest/gtest.h>

namespace {

TEST(PtrVectorTest, StoresThePointersAndLeavesTheObjectsAlone)
{
    const int a = 1, b = 2, c = 3;
    PAL::TPtrVector<const int> v, other;
    v.push_back(&a), v.push_back(&c), v.insert(1, &b), v.insert(4, &b), v.resize(4);
    other.push_back(&c);
    const PAL::TPtrVector<const int> copy(v);
    swap(v, other);
    auto pointers = [](const PAL::TPtrVector<const int>& vector) {
        std::vector<const int*> out;
        for (int i = 0; i <= vector.size(); ++i)
            out.push_back(vector.get(i));
        return out;
    };
    EXPECT_EQ((std::vector<const int*>{&c, nullptr}), pointers(v));
    EXPECT_EQ((std::vector<const int*>{&a, &b, &c, nullptr, nullptr}), pointers(other));
    EXPECT_EQ(pointers(other), pointers(copy));
}

} // namespace
