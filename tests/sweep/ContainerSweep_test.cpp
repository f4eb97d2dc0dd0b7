// Vectors and hash tables with each allocation (vector storage included) failing in
// turn: a step that cannot get its memory changes nothing, every element stays owned
// exactly once, and the container stays usable.

#include "core/HashArray.h"
#include "core/HashMap.h"
#include "core/String.h"
#include "core/Vector.h"

#include "support/AllocationSweep.h"
#include "support/CountedValue.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace {

using osal_kit_test::AllocationScenario;
using osal_kit_test::CountedValue;
using osal_kit_test::failAllocationAfter;
using PAL::CString;

typedef std::map<std::string, int> Contents;

class ContainerSweep : public osal_kit_test::CountedValueTest {};

std::vector<int> payloadsOf(const PAL::TVector<CountedValue>& v)
{
    std::vector<int> out;
    for (int i = 0; i < v.size(); ++i)
        out.push_back(v.get(i)->payload());
    return out;
}

// Growth, insertion in the middle, erasure and copies: each refused step leaves the
// vector as it was, so it ends as a fixed-size model that applied the same steps only
// when the vector's size says they happened.
TEST_F(ContainerSweep, VectorStepsAreAllOrNothing)
{
    osal_kit_test::sweepAllocations(std::vector<AllocationScenario>{{__LINE__, "TVector", [](unsigned int skip) {
        int model[16];
        int modelSize = 0;
        PAL::TVector<CountedValue> v(0);
        PAL::TVector<CountedValue> copy(0);
        failAllocationAfter(skip);
        for (int i = 0; i < 9; ++i) {
            const int before = v.size();
            v.push_back(CountedValue(i));
            if (v.size() != before)
                model[modelSize++] = i;
        }
        const int before = v.size();
        v.insert(1, CountedValue(100));
        if (v.size() != before && modelSize >= 1) {
            for (int j = modelSize; j > 1; --j)
                model[j] = model[j - 1];
            model[1] = 100;
            ++modelSize;
        }
        v.erase(0);
        if (modelSize > 0) {
            for (int j = 0; j + 1 < modelSize; ++j)
                model[j] = model[j + 1];
            --modelSize;
        }
        copy = v;
        Morvex_Fault_DisarmAll();
        const std::vector<int> expected(model, model + modelSize);
        EXPECT_EQ(expected, payloadsOf(v));
        EXPECT_TRUE(copy.size() == 0 || payloadsOf(copy) == expected) << "a copy is whole or nothing";
        EXPECT_EQ(static_cast<long>(v.size() + copy.size()), CountedValue::live());
        v.push_back(CountedValue(-1));
        EXPECT_EQ(-1, v.get(v.size() - 1)->payload()) << "usable again";
    }}});
}

Contents contentsOf(const PAL::THashArray<CString, CountedValue>& table)
{
    Contents contents;
    table.forEach([&contents](const CString& key, const CountedValue& value) {
        EXPECT_TRUE(contents.emplace(key.getBuffer(), value.payload()).second) << "visited twice: " << key.getBuffer();
    });
    return contents;
}

Contents contentsOf(const PAL::THashMap<CountedValue>& map)
{
    Contents contents;
    map.forEach([&contents](unsigned int key, const CountedValue& value) {
        EXPECT_TRUE(contents.emplace(std::to_string(key), value.payload()).second) << "visited twice: " << key;
    });
    return contents;
}

// A key-value insert that cannot get memory (for the key, the value, a bucket array or
// a chain item, a regrown array) changes nothing; the table holds exactly the landed
// pairs, and no value is left over or destroyed twice.
TEST_F(ContainerSweep, HashInsertsThatFindNoMemoryChangeNothing)
{
    const std::vector<AllocationScenario> scenarios{
        {__LINE__, "THashArray<CString, CountedValue>", [](unsigned int skip) {
             std::vector<CString> keys;
             for (unsigned int i = 0; i < 40; ++i)
                 keys.push_back(CString(("name-" + std::to_string(i % 3 == 0 ? i : i * 97)).c_str()));
             std::vector<char> landed(keys.size(), 0);
             PAL::THashArray<CString, CountedValue> table(2);
             failAllocationAfter(skip);
             for (unsigned int i = 0; i < keys.size(); ++i) {
                 landed[i] = table.insert(keys[i], CountedValue(static_cast<int>(i)));
                 ASSERT_EQ(static_cast<long>(table.size()), CountedValue::live());
             }
             Morvex_Fault_DisarmAll();
             Contents expected;
             for (unsigned int i = 0; i < keys.size(); ++i) {
                 if (landed[i])
                     expected[keys[i].getBuffer()] = static_cast<int>(i);
             }
             EXPECT_EQ(expected, contentsOf(table));
             EXPECT_TRUE(table.insert("afterwards", CountedValue(0)));
         }},
        {__LINE__, "THashMap<CountedValue>", [](unsigned int skip) {
             const unsigned int keys = 60;
             std::vector<char> landed(keys, 0);
             PAL::THashMap<CountedValue> map(2);
             failAllocationAfter(skip);
             for (unsigned int key = 0; key < keys; ++key) {
                 if (key % 2 == 0) {
                     landed[key] = map.set(key * 5, CountedValue(static_cast<int>(key)));
                 } else if (CountedValue* value = map.get(key * 5)) {
                     *value = CountedValue(static_cast<int>(key));
                     landed[key] = 1;
                 }
                 ASSERT_EQ(static_cast<long>(map.size()), CountedValue::live());
             }
             Morvex_Fault_DisarmAll();
             Contents expected;
             for (unsigned int key = 0; key < keys; ++key) {
                 if (landed[key])
                     expected[std::to_string(key * 5)] = static_cast<int>(key);
             }
             EXPECT_EQ(expected, contentsOf(map));
             EXPECT_TRUE(map.set(100000, CountedValue(0)));
         }},
    };
    osal_kit_test::sweepAllocations(scenarios);
}

} // namespace
