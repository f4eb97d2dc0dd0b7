// The vectors: TVector's growth, checked positions, copies, element lifetimes and
// running out of memory; CVectorBase's growth rule where a vector cannot show it;
// TPtrVector's typed pointers, owning nothing.

#include "core/PtrVector.h"

#include "support/CountingElement.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <random>
#include <utility>

namespace {

using osal_kit_test::CountingElement;
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
    PAL::CVectorBase::MallocFunction previous = PAL::CVectorBase::setMallocFunction(
        [](std::size_t n) { return failing ? (++refused, nullptr) : std::malloc(n); });
    ~MallocHook() { PAL::CVectorBase::setMallocFunction(previous), failing = false; }
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

// Random edits against a std::vector doing the same: refused positions (-1, size + 1,
// first above last), elements of the vector itself and storage that cannot grow among
// them. An edit whose storage was refused changes nothing; storage never shrinks.
TYPED_TEST(VectorTest, EditsMatchAPlainModelAndRefusedOnesChangeNothing)
{
    std::mt19937 random(20240611u);
    auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned int>(n)); };
    TVector<TypeParam> v(0);
    std::vector<int> model;
    for (int step = 0, capacity = 0; step < 3000; ++step) {
        const int size = static_cast<int>(model.size()), pos = below(size + 3) - 1, last = pos + below(4) - 1;
        const int own = size > 0 && below(2) == 0 ? below(size) : -1;
        const TypeParam element(own >= 0 ? model[static_cast<std::size_t>(own)] : below(1000));
        const TypeParam& source = own >= 0 ? *v.get(own) : element;
        const int value = read(element), refused = MallocHook::refused;
        std::vector<int> next = model;
        MallocHook::failing = below(6) == 0;
        switch (below(6)) {
        case 0:
            v.insert(pos, source);
            next.insert(next.begin() + (pos >= 0 && pos <= size ? pos : 0), pos >= 0 && pos <= size ? 1 : 0, value);
            break;
        case 4:
            v.push_back(source);
            next.push_back(value);
            break;
        case 1:
            v.erase(pos, last);
            if (pos >= 0 && pos <= last && last < size)
                next.erase(next.begin() + pos, next.begin() + last + 1);
            break;
        case 2:
            v.resize(last, source);
            next.resize(static_cast<std::size_t>(last < 0 ? size : last), value);
            break;
        case 3: { // a copy has the capacity, not the size
            const TVector<TypeParam> copy(v), &alias = v;
            const bool stored = MallocHook::refused == refused;
            ASSERT_TRUE(contents(copy) == (stored ? model : std::vector<int>()) && copy.capacity() == (stored ? v.capacity() : 0));
            v = alias;
            break;
        }
        default:
            if (size > 40)
                v.clear(), next.clear();
        }
        if (MallocHook::refused == refused)
            model = next;
        ASSERT_TRUE(model == contents(v) && v.get(-1) == nullptr && v.get(v.size()) == nullptr) << "after step " << step;
        ASSERT_LE(std::exchange(capacity, v.capacity()), v.capacity());
    }
    EXPECT_GT(MallocHook::refused, 0);
}

// A base holding exactly `capacity` slots, as a vector would after growing.
struct BaseWithCapacity : PAL::CVectorBase {
    explicit BaseWithCapacity(int capacity) { mCapacity = capacity; }
};

// Growth keeps a capacity that suffices, else doubles it from at least four until it
// does (stopping at the need where doubling would overflow). A base records a positive
// initial capacity or four; a vector reserves its initial capacity exactly.
TEST(VectorBaseTest, StorageDoublesFromTheCapacityOrAFloorOfFour)
{
    const int rows[][4] = { // line, capacity, needed, grown
        {__LINE__, 0, 1, 4}, {__LINE__, 0, 5, 8}, {__LINE__, 3, 4, 4}, {__LINE__, 3, 5, 8}, {__LINE__, 5, 11, 20},
        {__LINE__, 8, 3, 8}, {__LINE__, 1 << 30, (1 << 30) + 1, (1 << 30) + 1}, {__LINE__, 4, INT_MAX, INT_MAX},
        {__LINE__, INT_MAX / 2, INT_MAX / 2 + 1, INT_MAX - 1},
    };
    for (const auto& [line, capacity, needed, grown] : rows)
        EXPECT_EQ(grown, BaseWithCapacity(capacity).calcNewCapacity(needed)) << "row of line " << line;
    for (const int initial : {5, 1, 0, -7})
        EXPECT_EQ(initial > 0 ? initial : 4, PAL::CVectorBase(initial).capacity()) << initial;
    TVector<int> three(3), none(-2);
    std::vector<int> capacities;
    for (int i = 0; i < 5; ++i)
        capacities.push_back(three.capacity() * 100 + none.capacity()), three.push_back(i), none.push_back(i);
    EXPECT_EQ((std::vector<int>{300, 304, 304, 304, 404}), capacities);
    const MallocHook refusing; // growth that finds no storage changes nothing
    MallocHook::failing = true;
    TVector<int> empty(0);
    empty.insert(0, 1), three.resize(9, 7);
    EXPECT_TRUE(empty.size() == 0 && three.size() == 5 && TVector<int>(empty).capacity() == 0);
}

TEST(PtrVectorTest, StoresThePointersAndLeavesTheObjectsAlone)
{
    const int a = 1, b = 2, c = 3;
    PAL::TPtrVector<const int> v, other;
    v.push_back(&a), v.push_back(&c), v.insert(1, &b), v.insert(4, &b), v.resize(4), other.push_back(&c);
    const PAL::TPtrVector<const int> copy(v);
    swap(v, other);
    auto pointers = [](const PAL::TPtrVector<const int>& vector) { // and null one past the end
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
