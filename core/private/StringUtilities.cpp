#include "core/StringUtilities.h"

namespace PAL {
namespace StringUtilities {

namespace {

// The comparisons give only the sign of `codePoint - entry`: positive when the entry
// lies wholly below the code point, 0 on a hit. Signs rather than differences, because
// 32-bit code points do not fit a signed difference.
template <class T>
int compareCharacter(T character, unsigned int codePoint)
{
    const unsigned int c = character;
    return codePoint < c ? -1 : (codePoint == c ? 0 : 1);
}

template <class T>
int compareRange(const TRangeCaseMappingTableEntry<T>& entry, unsigned int codePoint)
{
    const unsigned int first = entry.mFirstCharacter;
    if (codePoint < first) {
        return -1;
    }
    return codePoint - first < static_cast<unsigned int>(entry.mCount) ? 0 : 1;
}

int cmpSimple16(const TSimpleCaseMappingTableEntry<unsigned short>& entry, unsigned int codePoint)
{
    return compareCharacter(entry.mCharacter, codePoint);
}

int cmpRange16(const TRangeCaseMappingTableEntry<unsigned short>& entry, unsigned int codePoint)
{
    return compareRange(entry, codePoint);
}

int cmpSpecial16(const TSpecialCaseMappingTableEntry<unsigned short>& entry, unsigned int codePoint)
{
    return compareCharacter(entry.mCharacter, codePoint);
}

int cmpSimple32(const TSimpleCaseMappingTableEntry<unsigned int>& entry, unsigned int codePoint)
{
    return compareCharacter(entry.mCharacter, codePoint);
}

int cmpRange32(const TRangeCaseMappingTableEntry<unsigned int>& entry, unsigned int codePoint)
{
    return compareRange(entry, codePoint);
}

int cmpSpecial32(const TSpecialCaseMappingTableEntry<unsigned int>& entry, unsigned int codePoint)
{
    return compareCharacter(entry.mCharacter, codePoint);
}

// Lower-bound bisection: the entry that holds `codePoint`, or null.
template <class Entry>
const Entry* search(const Entry* table, unsigned int count, unsigned int codePoint,
                    int (*compare)(const Entry&, unsigned int))
{
    if (table == nullptr) {
        return nullptr;
    }
    unsigned int first = 0;
    unsigned int remaining = count;
    while (remaining > 0) {
        const unsigned int half = remaining / 2;
        if (compare(table[first + half], codePoint) > 0) {
            first += half + 1;
            remaining -= half + 1;
        } else {
            remaining = half;
        }
    }
    if (first < count && compare(table[first], codePoint) == 0) {
        return &table[first];
    }
    return nullptr;
}

// Encodes code points of one table width into a string.
inline void fill(CString& out, const unsigned short* units, unsigned int count)
{
    out.fromUCS2Sequence(units, count);
}

inline void fill(CString& out, const unsigned int* codePoints, unsigned int count)
{
    out.fromUCS4Sequence(codePoints, count);
}

// Fills `scratch` with the mapping of `codePoint` from the tables of one width; false
// when they do not map it, or when the scratch string could not take the mapping (out
// of memory: it might still hold an earlier one).
template <class T>
bool lookUp(unsigned int codePoint, CString& scratch,
            const TSimpleCaseMappingTableEntry<T>* simple, unsigned int numSimple,
            int (*cmpSimple)(const TSimpleCaseMappingTableEntry<T>&, unsigned int),
            const TRangeCaseMappingTableEntry<T>* ranges, unsigned int numRanges,
            int (*cmpRange)(const TRangeCaseMappingTableEntry<T>&, unsigned int),
            const TSpecialCaseMappingTableEntry<T>* special, unsigned int numSpecial,
            int (*cmpSpecial)(const TSpecialCaseMappingTableEntry<T>&, unsigned int))
{
    T mapped[1];
    const T* replacement = mapped;
    unsigned int count = 1;

    if (const TSimpleCaseMappingTableEntry<T>* entry = search(simple, numSimple, codePoint, cmpSimple)) {
        mapped[0] = entry->mMappedCharacter;
    } else if (const TRangeCaseMappingTableEntry<T>* range = search(ranges, numRanges, codePoint, cmpRange)) {
        mapped[0] = static_cast<T>(range->mFirstMappedCharacter - range->mFirstCharacter + codePoint);
    } else if (const TSpecialCaseMappingTableEntry<T>* rule = search(special, numSpecial, codePoint, cmpSpecial)) {
        if (rule->mpReplacements == nullptr || rule->mNumReplacements == 0) {
            return false;
        }
        replacement = rule->mpReplacements;
        count = rule->mNumReplacements;
        // Room for the longest encoding of each replacement of this width.
        scratch.reserve(count * (sizeof(T) == 2 ? 3u : 6u));
    } else {
        return false;
    }

    fill(scratch, replacement, count);
    return scratch.getLength() == count;
}

} // namespace

void doCaseMapping(CString& text, const SCaseMappingTable& table)
{
    // Longest one-character mapping: six bytes.
    CString scratch(6u);

    // From the end, so that a replacement of a different length leaves the indices of
    // the characters still to visit where they were.
    for (unsigned int i = text.getLength(); i > 0; --i) {
        const unsigned int index = i - 1;
        const unsigned int codePoint = text[index];
        bool mapped;
        if (codePoint > 0xFFFFu) {
            mapped = lookUp(codePoint, scratch,
                            table.mpSimple32, table.mNumSimple32, cmpSimple32,
                            table.mpRange32, table.mNumRange32, cmpRange32,
                            table.mpSpecial32, table.mNumSpecial32, cmpSpecial32);
        } else {
            mapped = lookUp(codePoint, scratch,
                            table.mpSimple16, table.mNumSimple16, cmpSimple16,
                            table.mpRange16, table.mNumRange16, cmpRange16,
                            table.mpSpecial16, table.mNumSpecial16, cmpSpecial16);
        }
        if (mapped) {
            CString::const_iterator position = text.begin() + static_cast<int>(index);
            text.replace(position, 1, scratch);
        }
    }
}

bool toInt32(const CString& text, int& value)
{
    const char* p = text.getBuffer();
    while (Detail::isWhiteSpace(*p)) {
        ++p;
    }
    bool negative = false;
    if (*p == '-' || *p == '+') {
        negative = (*p == '-');
        ++p;
    }
    const unsigned long long overflow = 0x100000000ull;
    unsigned long long v = 0;
    bool haveDigit = false;
    while (*p >= '0' && *p <= '9') {
        v = v * 10 + static_cast<unsigned long long>(*p - '0');
        if (v >= overflow) {
            return false;
        }
        haveDigit = true;
        ++p;
    }
    if (!haveDigit) {
        return false;
    }
    while (*p != '\0') {
        if (!Detail::isWhiteSpace(*p)) {
            return false;
        }
        ++p;
    }
    if (v > (negative ? 2147483648ull : 2147483647ull)) {
        return false;
    }
    // -2147483648 has no positive int counterpart: negate in unsigned arithmetic.
    value = negative ? static_cast<int>(0u - static_cast<unsigned int>(v)) : static_cast<int>(v);
    return true;
}

bool toUInt8(const CString& text, unsigned char& value, const bool& isHex, const bool& isPrefixMandatory)
{
    return toUInt<unsigned char, 255>(text, value, isHex, isPrefixMandatory);
}

bool toUInt16(const CString& text, unsigned short& value, const bool& isHex, const bool& isPrefixMandatory)
{
    return toUInt<unsigned short, 65535>(text, value, isHex, isPrefixMandatory);
}

bool toUInt32(const CString& text, unsigned int& value, const bool& isHex, const bool& isPrefixMandatory)
{
    return toUInt<unsigned int, 4294967295u>(text, value, isHex, isPrefixMandatory);
}

bool toUInt64(const CString& text, unsigned long long& value, const bool& isHex, const bool& isPrefixMandatory)
{
    return toUInt<unsigned long long, 18446744073709551615ull>(text, value, isHex, isPrefixMandatory);
}

bool fromUInt32(CString& text, const unsigned int& value, const bool& isHex)
{
    return text.format(isHex ? "0x%X" : "%u", value);
}

bool fromInt32(CString& text, const int& value)
{
    return text.format("%d", value);
}

bool truncateInByteUnits(CString& text, const unsigned int& maxBytes, const CString& suffix)
{
    if (maxBytes == 0 || text.isEmpty() || maxBytes >= text.getSize()) {
        return false;
    }
    const bool withSuffix = maxBytes >= suffix.getSize();
    const unsigned int target = withSuffix ? maxBytes - suffix.getSize() : maxBytes;

    // Cut a copy, so that running out of memory half-way leaves `text` as it was.
    CString cut(text);
    // Every character has at least one byte: this never goes below the target.
    cut.truncate(target);
    while (cut.getSize() > target) {
        const unsigned int excess = cut.getSize() - target;
        // A sixth of the excess in characters never removes more than the excess, even
        // with six-byte sequences; at under six bytes of excess one character goes.
        unsigned int step = excess / 6;
        if (step == 0) {
            step = 1;
        }
        if (step > cut.getLength()) {
            step = cut.getLength();
        }
        const unsigned int before = cut.getSize();
        cut.truncate(cut.getLength() - step);
        if (cut.getSize() == before) {
            return false;
        }
    }
    if (withSuffix && !suffix.isEmpty()) {
        const unsigned int cutSize = cut.getSize();
        cut.append(suffix);
        if (cut.getSize() != cutSize + suffix.getSize()) {
            return false;
        }
    }
    text = cut;
    return true;
}

TVector<CString> toStringVector(const TVector<const char*>& texts)
{
    TVector<CString> result(texts.size());
    for (int i = 0; i < texts.size(); ++i) {
        result.push_back(CString(*texts.get(i)));
    }
    return result;
}

TVector<const char*> fromStringVector(const TVector<CString>& texts)
{
    TVector<const char*> result(texts.size());
    for (int i = 0; i < texts.size(); ++i) {
        result.push_back(texts.get(i)->getBuffer());
    }
    return result;
}

} // namespace StringUtilities
} // namespace PAL
