// TVector: growth, checked positions, copies, element lifetimes and running out of memory.

#include "core/Vector.h"

#include "support/CountingElement.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <vector>

namespace {

using osal_kit_test::CountingElement;
using PAL::CVectorBase;
using PAL::TVector;

int read(int e) { return e; }
int read(const CountingElement& e) { return e.value(); }

template <typename T>
std::vector<int> contents(const TVector<T>& v)
{
    std::vector<int> out;
    for (int i = 0; i < v.size(); ++i)
        out.push_back(read(*v.get(i)));
    return out;
}

// Stands in for malloc behind every vector while it lives, refusing while `failing`.
struct MallocHook {
    static inline bool failing = false;
    static inline int refused = 0;
    CVectorBase::MallocFunction previous = CVectorBase::setMallocFunction(
        [](std::size_t n) { return failing ? (++refused, nullptr) : std::malloc(n); });
    ~MallocHook() { CVectorBase::setMallocFunction(previous), failing = false; }
};

// Scalars move as bytes, class types as objects: the counting element proves that every
// element is constructed once, destroyed once, and never used while it is not alive.
template <typename T>
class VectorTest : public ::testing::Test {
protected:
    void SetUp() override { CountingElement::reset(); }
    void TearDown() override { EXPECT_TRUE(CountingElement::balanced()) << "leaked, died twice or misused"; }
    MallocHook malloc;
};
using ElementTypes = ::testing::Types<int, CountingElement>;
TYPED_TEST_SUITE(VectorTest, ElementTypes);

// Random edits against a std::vector doing the same: refused positions, elements of the
// vector itself and storage that cannot grow among them. An edit whose storage was
// refused changes nothing.
TYPED_TEST(VectorTest, EditsMatchAPlainModelAndRefusedOnesChangeNothing)
{
    std::mt19937 random(20240611u);
    auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned int>(n)); };
    TVector<TypeParam> v(0);
    std::vector<int> model;
    for (int step = 0, capacity = 0; step < 3000; ++step) {
        const int size = static_cast<int>(model.size()), pos = below(size + 3) - 1, k = size > 0 ? below(size) : -1;
        const bool own = k >= 0 && below(2) == 0;
        const int fill = own ? model[static_cast<std::size_t>(k)] : below(1000);
        const TypeParam element(fill);
        const TypeParam& source = own ? *v.get(k) : element;
        std::vector<int> next = model;
        const int refused = MallocHook::refused;
        MallocHook::failing = below(6) == 0;
        switch (below(6)) {
        case 0:
            v.push_back(source);
            next.push_back(fill);
            break;
        case 1:
            v.insert(pos, source); // -1 and size + 1 are refused
            if (pos >= 0 && pos <= size)
                next.insert(next.begin() + pos, fill);
            break;
        case 2: {
            const int last = pos + below(4) - 1;
            v.erase(pos, last);
            if (pos >= 0 && pos <= last && last < size)
                next.erase(next.begin() + pos, next.begin() + last + 1);
            break;
        }
        case 3: {
            const int newSize = pos < 0 ? pos : pos + below(4); // -1 is refused
            v.resize(newSize, source);
            next.resize(static_cast<std::size_t>(newSize < 0 ? size : newSize), fill);
            break;
        }
        case 4: {
            MallocHook::failing = false;
            TVector<TypeParam> target(1);
            target.push_back(element);
            const bool failing = (MallocHook::failing = below(2) == 0) && v.capacity() > 0;
            TVector<TypeParam> copy(v);
            target = v; // kept as it was without storage for the copy
            const std::vector<int> targetAfter = failing ? std::vector<int>{fill} : model;
            ASSERT_EQ(failing ? 0 : v.capacity(), copy.capacity()) << "a copy has the capacity, not the size";
            ASSERT_EQ(failing ? std::vector<int>() : model, contents(copy));
            const TVector<TypeParam>& alias = v;
            v = alias;
            swap(v, target);
            ASSERT_EQ(targetAfter, contents(v));
            swap(v, target);
            break;
        }
        default:
            if (size > 40) {
                v.clear();
                next.clear();
            }
        }
        if (MallocHook::refused == refused)
            model = next;
        ASSERT_EQ(model, contents(v)) << "after step " << step;
        ASSERT_EQ(nullptr, v.get(-1));
        ASSERT_EQ(nullptr, v.get(v.size()));
        ASSERT_LE(capacity, v.capacity()) << "storage never shrinks";
        capacity = v.capacity();
    }
    EXPECT_GT(MallocHook::refused, 0);
}

TEST(VectorTest, StorageDoublesFromTheInitialCapacityOrAFloorOfFour)
{
    const struct {
        int line, initial;
        std::vector<int> capacities; // made, then after each push
    } rows[] = {
        {__LINE__, 0, {0, 4, 4, 4, 4, 8, 8, 8, 8, 16}},
        {__LINE__, -2, {0, 4, 4, 4, 4, 8}},
        {__LINE__, 3, {3, 3, 3, 3, 4, 8}},
        {__LINE__, 5, {5, 5, 5, 5, 5, 5, 10, 10, 10, 10, 10, 20}},
    };
    for (const auto& row : rows) {
        TVector<int> v(row.initial);
        std::vector<int> capacities(1, v.capacity());
        while (capacities.size() < row.capacities.size())
            v.push_back(0), capacities.push_back(v.capacity());
        EXPECT_EQ(row.capacities, capacities) << "row of line " << row.line;
    }
    int items[3] = {1, 2, 3}; // a copy from or to nowhere, or of a negative count, does nothing
    PAL::copy<int>(nullptr, items, 3), PAL::copy<int>(items, nullptr, 3), PAL::copy(items, items + 1, -1);
    EXPECT_EQ((std::vector<int>{1, 2, 3}), std::vector<int>(items, items + 3));
}

} // namespace
