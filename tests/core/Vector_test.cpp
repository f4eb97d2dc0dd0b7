// TVector: growth, checked positions, copies, element lifetimes and running out of memory.

#include "core/Vector.h"

#include "core/String.h"

#include "support/CountingElement.h"
#include "support/StringBlock.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using PAL::CString;
using PAL::CVectorBase;
using PAL::TVector;
using osal_kit_test::CountingElement;

struct PodRecord {
    int number;
    unsigned char tag;
};

// How each element type used below is made from an int and read back as one.
template <typename T>
struct Element { // int and CountingElement
    static T make(int i) { return T(i); }
    static int read(const T& e) { return static_cast<int>(e); }
};
template <>
struct Element<PodRecord> {
    static PodRecord make(int i) { return PodRecord{i, static_cast<unsigned char>(i)}; }
    static int read(const PodRecord& r) { return r.tag == static_cast<unsigned char>(r.number) ? r.number : -999; }
};
template <>
struct Element<CString> {
    static CString make(int i) { return CString(std::to_string(i).c_str()); }
    static int read(const CString& s) { return std::atoi(s.getBuffer()); }
};
template <>
int Element<CountingElement>::read(const CountingElement& e)
{
    return e.value();
}

// Takes the place of malloc behind every vector while it lives: records each request
// and fails the requests made after `failFromNow()`.
class VectorMalloc {
public:
    VectorMalloc() : mPrevious(CVectorBase::setMallocFunction(&allocate))
    {
        sRequests.clear();
        sFailing = false;
    }
    ~VectorMalloc() { CVectorBase::setMallocFunction(mPrevious); }

    void failFromNow() { sFailing = true; }
    void succeedFromNow() { sFailing = false; }
    const std::vector<std::size_t>& requests() const { return sRequests; }

private:
    static void* allocate(std::size_t size)
    {
        sRequests.push_back(size);
        return sFailing ? nullptr : std::malloc(size);
    }

    CVectorBase::MallocFunction mPrevious;
    static inline std::vector<std::size_t> sRequests;
    static inline bool sFailing = false;
};

template <typename T>
class VectorTest : public ::testing::Test {
protected:
    using E = Element<T>;

    void SetUp() override { CountingElement::reset(); }
    void TearDown() override { EXPECT_TRUE(CountingElement::balanced()) << "an element leaked, died twice or was misused"; }

    static TVector<T> vectorOf(std::initializer_list<int> values, int capacity)
    {
        TVector<T> v(capacity);
        for (int value : values)
            v.push_back(E::make(value));
        return v;
    }

    static std::vector<int> contents(const TVector<T>& v)
    {
        std::vector<int> out;
        for (int i = 0; i < v.size(); ++i)
            out.push_back(E::read(*v.get(i)));
        return out;
    }

    VectorMalloc mMalloc;
};

using ElementTypes = ::testing::Types<int, PodRecord, CString, CountingElement>;
TYPED_TEST_SUITE(VectorTest, ElementTypes);

TYPED_TEST(VectorTest, PushBackGrowsByDoublingFromFourAndKeepsOrder)
{
    TVector<TypeParam> v(0);
    EXPECT_EQ(0, v.capacity());
    std::vector<int> capacities, expected;
    for (int i = 0; i < 17; ++i) {
        v.push_back(TestFixture::E::make(i));
        capacities.push_back(v.capacity());
        expected.push_back(i);
    }
    EXPECT_EQ((std::vector<int>{4, 4, 4, 4, 8, 8, 8, 8, 16, 16, 16, 16, 16, 16, 16, 16, 32}), capacities);
    const std::size_t n = sizeof(TypeParam);
    EXPECT_EQ((std::vector<std::size_t>{4 * n, 8 * n, 16 * n, 32 * n}), this->mMalloc.requests());
    EXPECT_EQ(expected, this->contents(v));
}

// Copies and assignments take the original's capacity, not its size, and own their
// elements; swaps exchange both.
TYPED_TEST(VectorTest, CopiesAssignmentsAndSwapsCarryTheCapacity)
{
    TVector<TypeParam> original = this->vectorOf({0, 1, 2}, 10);
    TVector<TypeParam> copy(original);
    EXPECT_EQ(10, copy.capacity());
    copy.erase(0);
    copy.push_back(TestFixture::E::make(7));
    EXPECT_EQ((std::vector<int>{0, 1, 2}), this->contents(original));

    TVector<TypeParam> a = this->vectorOf({0, 1, 2}, 4);
    const TVector<TypeParam> b = this->vectorOf({5, 6, 7, 8, 9}, 16);
    a = b;
    EXPECT_EQ((std::vector<int>{5, 6, 7, 8, 9}), this->contents(a));
    EXPECT_EQ(16, a.capacity());
    const TVector<TypeParam>& alias = a;
    a = alias;
    EXPECT_EQ((std::vector<int>{5, 6, 7, 8, 9}), this->contents(a));

    swap(a, copy);
    EXPECT_EQ((std::vector<int>{1, 2, 7}), this->contents(a));
    EXPECT_EQ(10, a.capacity());
    EXPECT_EQ((std::vector<int>{5, 6, 7, 8, 9}), this->contents(copy));
    EXPECT_EQ(16, copy.capacity());
}

// Neither clearing nor a refused position touches the storage; a default fill is a
// default-constructed element. (Erasing and refusals among other edits: the model below.)
TYPED_TEST(VectorTest, ClearKeepsTheStorageAndPositionsOutsideAreRefused)
{
    TVector<TypeParam> v = this->vectorOf({0, 1, 2, 3, 4}, 8);
    const std::size_t requests = this->mMalloc.requests().size();
    v.clear();
    EXPECT_EQ(0, v.size());
    EXPECT_EQ(8, v.capacity());
    v.push_back(TestFixture::E::make(3));
    v.insert(-1, TestFixture::E::make(9));
    v.insert(2, TestFixture::E::make(9));
    v.erase(1, 0);
    v.erase(0, 1);
    v.resize(-1, TestFixture::E::make(9));
    EXPECT_EQ((std::vector<int>{3}), this->contents(v));
    EXPECT_EQ(requests, this->mMalloc.requests().size());
    EXPECT_EQ(nullptr, v.get(-1));
    EXPECT_EQ(nullptr, v.get(1));
    v.resize(3);
    EXPECT_EQ((std::vector<int>{3, 0, 0}), this->contents(v));
}

TYPED_TEST(VectorTest, WhenMallocFailsTheElementsAndCapacityAreKept)
{
    TVector<TypeParam> v = this->vectorOf({0, 1, 2, 3}, 4);
    TVector<TypeParam> target = this->vectorOf({7}, 1);
    this->mMalloc.failFromNow();

    v.reserve(100);
    v.push_back(TestFixture::E::make(4));
    v.insert(0, TestFixture::E::make(9));
    v.resize(10, TestFixture::E::make(5));
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3}), this->contents(v));
    EXPECT_EQ(4, v.capacity());

    const TVector<TypeParam> copy(v);
    EXPECT_EQ(0, copy.size());
    EXPECT_EQ(0, copy.capacity());
    target = v;
    EXPECT_EQ((std::vector<int>{7}), this->contents(target));

    this->mMalloc.succeedFromNow();
    v.push_back(TestFixture::E::make(4));
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4}), this->contents(v));
    EXPECT_EQ(8, v.capacity());
}

TYPED_TEST(VectorTest, AnElementOfTheSameVectorCanBeInsertedOrUsedAsFill)
{
    TVector<TypeParam> v = this->vectorOf({0, 1, 2, 3}, 4);
    v.insert(0, *v.get(3)); // grows: the old storage is freed while inserting
    EXPECT_EQ((std::vector<int>{3, 0, 1, 2, 3}), this->contents(v));
    v.insert(1, *v.get(4)); // no growth: the tail moves under the reference
    EXPECT_EQ((std::vector<int>{3, 3, 0, 1, 2, 3}), this->contents(v));
    v.resize(9, *v.get(2));
    EXPECT_EQ((std::vector<int>{3, 3, 0, 1, 2, 3, 0, 0, 0}), this->contents(v));
}

TYPED_TEST(VectorTest, RandomEditsMatchAReferenceModel)
{
    std::mt19937 random(20240611u);
    auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned int>(n)); };
    TVector<TypeParam> v(0);
    std::vector<int> model;
    int capacity = 0;
    for (int step = 0; step < 3000; ++step) {
        const int size = static_cast<int>(model.size());
        const int value = below(1000);
        switch (below(7)) {
        case 0:
            v.push_back(TestFixture::E::make(value));
            model.push_back(value);
            break;
        case 1:
        case 2: {
            const int pos = below(size + 3) - 1; // includes the refused -1 and size + 1
            v.insert(pos, TestFixture::E::make(value));
            if (pos >= 0 && pos <= size) {
                model.insert(model.begin() + pos, value);
            }
            break;
        }
        case 3: {
            const int first = below(size + 2) - 1;
            const int last = first + below(4) - 1;
            v.erase(first, last);
            if (first >= 0 && first <= last && last < size) {
                model.erase(model.begin() + first, model.begin() + last + 1);
            }
            break;
        }
        case 4: {
            const int newSize = below(size + 5) - 1; // includes the refused -1
            v.resize(newSize, TestFixture::E::make(value));
            model.resize(static_cast<std::size_t>(newSize < 0 ? size : newSize), value);
            break;
        }
        case 5: {
            const TVector<TypeParam> copy(v);
            v = copy;
            break;
        }
        default:
            if (size > 40) {
                v.clear();
                model.clear();
            }
            break;
        }
        ASSERT_EQ(model, this->contents(v)) << "after step " << step;
        ASSERT_LE(v.size(), v.capacity());
        ASSERT_LE(capacity, v.capacity()) << "storage never shrinks";
        capacity = v.capacity();
    }
}

// Scalars move as bytes, class types as objects.
static_assert(std::is_same<PAL::TVectorHelpers<int>::Vector, PAL::CVectorHelperSimple>::value, "");
static_assert(std::is_same<PAL::TVectorHelpers<unsigned int>::Copy, PAL::CCopyHelperSimple>::value, "");
static_assert(std::is_same<PAL::TVectorHelpers<void*>::Vector, PAL::CVectorHelperSimple>::value, "");
static_assert(std::is_same<PAL::TVectorHelpers<const char*>::Copy, PAL::CCopyHelperSimple>::value, "");
static_assert(std::is_same<PAL::TVectorHelpers<CString>::Vector, PAL::CVectorHelperComplex>::value, "");
static_assert(std::is_same<PAL::TVectorHelpers<CString>::Copy, PAL::CCopyHelperComplex>::value, "");
static_assert(std::is_same<PAL::TVectorHelpers<PodRecord>::Vector, PAL::CVectorHelperComplex>::value, "");
static_assert(std::is_same<PAL::TVectorHelpers<CountingElement>::Vector, PAL::CVectorHelperComplex>::value, "");

TEST(VectorCapacityTest, CapacityFollowsTheGrowthRuleFromTheInitialCapacity)
{
    struct Row {
        int line, initial;
        std::vector<int> capacityAfterEachPush;
    };
    const Row rows[] = {
        {__LINE__, 0, {4, 4, 4, 4, 8}},
        {__LINE__, -2, {4, 4, 4, 4, 8}},
        {__LINE__, 3, {3, 3, 3, 4, 8}},
        {__LINE__, 5, {5, 5, 5, 5, 5, 10, 10, 10, 10, 10, 20}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("row at line " + std::to_string(row.line));
        VectorMalloc hook;
        TVector<int> v(row.initial);
        EXPECT_EQ(row.initial > 0 ? row.initial : 0, v.capacity());
        EXPECT_EQ(row.initial > 0 ? 1u : 0u, hook.requests().size());
        std::vector<int> capacities;
        for (std::size_t i = 0; i < row.capacityAfterEachPush.size(); ++i) {
            v.push_back(static_cast<int>(i));
            capacities.push_back(v.capacity());
        }
        EXPECT_EQ(row.capacityAfterEachPush, capacities);
    }
}

class VectorElementLifetimeTest : public ::testing::Test {
protected:
    void SetUp() override { CountingElement::reset(); }
    void TearDown() override { EXPECT_TRUE(CountingElement::balanced()); }
};

TEST_F(VectorElementLifetimeTest, EachOperationCopiesAssignsAndDestroysOnlyWhatItMust)
{
    using Op = std::function<void(TVector<CountingElement>&, const CountingElement&)>;
    struct Row {
        int line, size, capacity;
        Op op;
        int copies, assignments, destructions;
    };
    const Row rows[] = {
        // one new slot at the end is copy-constructed, the moved tail and the new element assigned
        {__LINE__, 4, 8, [](auto& v, auto& x) { v.insert(1, x); }, 1, 3, 0},
        {__LINE__, 4, 8, [](auto& v, auto& x) { v.push_back(x); }, 1, 0, 0},
        // growing copies every element once into the new storage and destroys the old
        {__LINE__, 4, 4, [](auto& v, auto& x) { v.push_back(x); }, 5, 0, 4},
        // the tail is assigned down and the vacated slots at the end are destroyed
        {__LINE__, 5, 8, [](auto& v, auto&) { v.erase(1, 2); }, 0, 2, 2},
        {__LINE__, 5, 8, [](auto& v, auto&) { v.erase(4); }, 0, 0, 1},
        {__LINE__, 5, 8, [](auto& v, auto&) { v.clear(); }, 0, 0, 5},
        {__LINE__, 2, 8, [](auto& v, auto& x) { v.resize(5, x); }, 3, 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("row at line " + std::to_string(row.line));
        TVector<CountingElement> v(row.capacity);
        for (int i = 0; i < row.size; ++i)
            v.push_back(CountingElement(i));
        const CountingElement x(9);
        const CountingElement::Counts before = CountingElement::counts();
        row.op(v, x);
        const CountingElement::Counts& after = CountingElement::counts();
        EXPECT_EQ(row.copies, after.copies - before.copies);
        EXPECT_EQ(row.assignments, after.assignments - before.assignments);
        EXPECT_EQ(row.destructions, after.destructions - before.destructions);
        EXPECT_EQ(0, after.misuses);
    }
}

TEST(VectorStringTest, StringsKeepExactReferenceCountsAsTheyMove)
{
    const CString a("a"), b("b"), c("c"), d("d"), x("x");
    const CString* all[] = {&a, &b, &c, &d, &x};
    auto counts = [&] {
        std::vector<unsigned int> out;
        for (const CString* s : all)
            out.push_back(osal_kit_test::blockOf(*s)->mRefCount);
        return out;
    };
    {
        TVector<CString> v(4);
        v.push_back(a);
        v.push_back(b);
        v.push_back(c);
        v.push_back(d);
        EXPECT_EQ((std::vector<unsigned int>{2, 2, 2, 2, 1}), counts());
        v.insert(1, x); // grows, then moves the tail
        EXPECT_EQ((std::vector<unsigned int>{2, 2, 2, 2, 2}), counts());
        v.erase(4); // d leaves from the end: its slot is destroyed at once
        EXPECT_EQ((std::vector<unsigned int>{2, 2, 2, 1, 2}), counts());
        v.erase(0); // a leaves from the front: the others move down
        EXPECT_EQ((std::vector<unsigned int>{1, 2, 2, 1, 2}), counts());
        EXPECT_TRUE(*v.get(0) == x && *v.get(1) == b && *v.get(2) == c);
        v.clear();
        EXPECT_EQ((std::vector<unsigned int>{1, 1, 1, 1, 1}), counts());
        v.push_back(a);
    }
    EXPECT_EQ((std::vector<unsigned int>{1, 1, 1, 1, 1}), counts());
}

template <typename T>
void expectCopyMovesOverlappingRanges()
{
    struct Row {
        int line, dst, src, count;
        std::vector<int> expected;
    };
    const Row rows[] = {
        {__LINE__, 0, 2, 4, {2, 3, 4, 5, 4, 5}}, // down: forwards
        {__LINE__, 2, 0, 4, {0, 1, 0, 1, 2, 3}}, // up: backwards
        {__LINE__, 1, 1, 3, {0, 1, 2, 3, 4, 5}}, // onto itself
        {__LINE__, 0, 1, 0, {0, 1, 2, 3, 4, 5}},
        {__LINE__, 0, 1, -1, {0, 1, 2, 3, 4, 5}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("row at line " + std::to_string(row.line));
        std::vector<T> items;
        for (int i = 0; i < 6; ++i)
            items.push_back(Element<T>::make(i));
        PAL::copy(items.data() + row.dst, items.data() + row.src, row.count);
        PAL::copy(items.data(), static_cast<const T*>(nullptr), 3);
        PAL::copy(static_cast<T*>(nullptr), items.data(), 3);
        std::vector<int> values;
        for (const T& item : items)
            values.push_back(Element<T>::read(item));
        EXPECT_EQ(row.expected, values);
    }
}

TEST(VectorCopyTest, CopyAssignsOverlappingRangesSafelyAndIgnoresBadArguments)
{
    expectCopyMovesOverlappingRanges<int>();
    CountingElement::reset();
    expectCopyMovesOverlappingRanges<CountingElement>();
    EXPECT_TRUE(CountingElement::balanced());
}

} // namespace
