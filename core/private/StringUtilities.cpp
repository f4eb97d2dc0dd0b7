#include "core/StringUtilities.h"

#include "core/private/Utf8Encoding.h"

#include <cstring>

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

// What one table maps a code point to: `count` code points (0: not mapped), either
// the single `one` or the replacements of a special entry, of either width.
struct SMapping {
    unsigned int count;
    unsigned int one;
    const unsigned short* units;
    const unsigned int* wide;

    unsigned int at(unsigned int i) const
    {
        if (units != nullptr) {
            return units[i];
        }
        return wide != nullptr ? wide[i] : one;
    }
};

inline void setSpecial(SMapping& mapping, const TSpecialCaseMappingTableEntry<unsigned short>& rule)
{
    mapping.units = rule.mpReplacements;
}

inline void setSpecial(SMapping& mapping, const TSpecialCaseMappingTableEntry<unsigned int>& rule)
{
    mapping.wide = rule.mpReplacements;
}

// The mapping of `codePoint` by the tables of one width, in the order simple, range,
// special, as `lookUp` finds it.
template <class T>
SMapping find(unsigned int codePoint,
              const TSimpleCaseMappingTableEntry<T>* simple, unsigned int numSimple,
              int (*cmpSimple)(const TSimpleCaseMappingTableEntry<T>&, unsigned int),
              const TRangeCaseMappingTableEntry<T>* ranges, unsigned int numRanges,
              int (*cmpRange)(const TRangeCaseMappingTableEntry<T>&, unsigned int),
              const TSpecialCaseMappingTableEntry<T>* special, unsigned int numSpecial,
              int (*cmpSpecial)(const TSpecialCaseMappingTableEntry<T>&, unsigned int))
{
    SMapping mapping = {0u, 0u, nullptr, nullptr};
    if (const TSimpleCaseMappingTableEntry<T>* entry = search(simple, numSimple, codePoint, cmpSimple)) {
        mapping.count = 1;
        mapping.one = entry->mMappedCharacter;
    } else if (const TRangeCaseMappingTableEntry<T>* range = search(ranges, numRanges, codePoint, cmpRange)) {
        mapping.count = 1;
        mapping.one = static_cast<T>(range->mFirstMappedCharacter - range->mFirstCharacter + codePoint);
    } else if (const TSpecialCaseMappingTableEntry<T>* rule = search(special, numSpecial, codePoint, cmpSpecial)) {
        if (rule->mpReplacements != nullptr) {
            mapping.count = rule->mNumReplacements;
            setSpecial(mapping, *rule);
        }
    }
    return mapping;
}

SMapping findInTables(const SCaseMappingTable& table, unsigned int codePoint)
{
    if (codePoint > 0xFFFFu) {
        return find(codePoint, table.mpSimple32, table.mNumSimple32, cmpSimple32,
                    table.mpRange32, table.mNumRange32, cmpRange32,
                    table.mpSpecial32, table.mNumSpecial32, cmpSpecial32);
    }
    return find(codePoint, table.mpSimple16, table.mNumSimple16, cmpSimple16,
                table.mpRange16, table.mNumRange16, cmpRange16,
                table.mpSpecial16, table.mNumSpecial16, cmpSpecial16);
}

using Utf8::encode;
using Utf8::encodedLength;

// Bytes of the whole mapping, or 0 when one of its code points cannot be encoded: the
// character then stays, as when the scratch string of the character-by-character
// mapping cannot take it.
inline unsigned int mappedBytes(const SMapping& mapping)
{
    unsigned int bytes = 0;
    for (unsigned int i = 0; i < mapping.count; ++i) {
        const unsigned int n = encodedLength(mapping.at(i));
        if (n == 0) {
            return 0;
        }
        bytes += n;
    }
    return bytes;
}

// A direct index of the Basic Multilingual Plane for one of the shipped tables: pages
// of 256 code points, made once from the table's entries so that a lookup costs two
// loads instead of three bisections. An entry holds the single mapped code point, 0
// for none, or FIRST_SPECIAL plus the position of a multi-character mapping in the
// special table (surrogates are never a case mapping). A table the index cannot
// describe (too many pages or specials, a mapping to 0 or to a surrogate) leaves it
// unusable and the tables are searched.
class CCaseIndex {
public:
    static const unsigned short FIRST_SPECIAL = 0xD800u;
    static const unsigned short END_SPECIAL = 0xE000u;
    static const unsigned int MAX_PAGES = 16;

    explicit CCaseIndex(const SCaseMappingTable& table) : mUsable(false)
    {
        for (unsigned int i = 0; i < 256; ++i) {
            mPageOf[i] = 0;
        }
        for (unsigned int page = 0; page <= MAX_PAGES; ++page) {
            for (unsigned int i = 0; i < 256; ++i) {
                mEntries[page][i] = 0;
            }
        }
        mPages = 1; // page 0 stays empty: the page of every unmapped block
        bool fits = true;
        // Lowest precedence first, so that the search order wins where tables overlap.
        fits = table.mNumSpecial16 <= static_cast<unsigned int>(END_SPECIAL - FIRST_SPECIAL);
        for (unsigned int i = 0; fits && i < table.mNumSpecial16; ++i) {
            const TSpecialCaseMappingTableEntry<unsigned short>& rule = table.mpSpecial16[i];
            if (rule.mpReplacements != nullptr && rule.mNumReplacements != 0) {
                fits = set(rule.mCharacter, static_cast<unsigned short>(FIRST_SPECIAL + i));
            }
        }
        for (unsigned int i = 0; fits && i < table.mNumRange16; ++i) {
            const TRangeCaseMappingTableEntry<unsigned short>& range = table.mpRange16[i];
            for (unsigned int k = 0; fits && k < range.mCount && range.mFirstCharacter + k <= 0xFFFFu; ++k) {
                fits = setSingle(range.mFirstCharacter + k,
                                 static_cast<unsigned short>(range.mFirstMappedCharacter - range.mFirstCharacter
                                                             + range.mFirstCharacter + k));
            }
        }
        for (unsigned int i = 0; fits && i < table.mNumSimple16; ++i) {
            fits = setSingle(table.mpSimple16[i].mCharacter, table.mpSimple16[i].mMappedCharacter);
        }
        // Null tables with counts, or a mapping of U+0000, are left to the search.
        fits = fits && (table.mNumSimple16 == 0 || table.mpSimple16 != nullptr)
            && (table.mNumRange16 == 0 || table.mpRange16 != nullptr)
            && (table.mNumSpecial16 == 0 || table.mpSpecial16 != nullptr) && entry(0) == 0;
        mUsable = fits;
    }

    bool usable() const { return mUsable; }

    // The entry of a code point up to U+FFFF.
    unsigned short entry(unsigned int codePoint) const
    {
        return mEntries[mPageOf[codePoint >> 8]][codePoint & 0xFFu];
    }

private:
    bool setSingle(unsigned int codePoint, unsigned short mapped)
    {
        return mapped != 0 && (mapped < FIRST_SPECIAL || mapped >= END_SPECIAL) && set(codePoint, mapped);
    }

    bool set(unsigned int codePoint, unsigned short value)
    {
        unsigned char& page = mPageOf[codePoint >> 8];
        if (page == 0) {
            if (mPages > MAX_PAGES) {
                return false;
            }
            page = static_cast<unsigned char>(mPages++);
        }
        mEntries[page][codePoint & 0xFFu] = value;
        return true;
    }

    unsigned char mPageOf[256];
    unsigned short mEntries[MAX_PAGES + 1][256];
    unsigned int mPages;
    bool mUsable;
};

const CCaseIndex* indexFor(const SCaseMappingTable& table)
{
    if (&table == &sToUpperCaseMappingTable) {
        static const CCaseIndex upper(sToUpperCaseMappingTable);
        return upper.usable() ? &upper : nullptr;
    }
    if (&table == &sToLowerCaseMappingTable) {
        static const CCaseIndex lower(sToLowerCaseMappingTable);
        return lower.usable() ? &lower : nullptr;
    }
    return nullptr;
}

// The mapping of one code point by the tables, searched.
// What `simple` tells of a code point besides a mapped code point of the same byte
// length as its own.
const unsigned int UNMAPPED = 0x100000u;
const unsigned int NOT_SIMPLE = 0x200000u;

class CSearchLookup {
public:
    explicit CSearchLookup(const SCaseMappingTable& table) : mTable(table) {}

    // Searched tables have no quick answer.
    unsigned int simple(unsigned int) const { return NOT_SIMPLE; }

    bool map(unsigned int codePoint, SMapping& mapping) const
    {
        mapping = findInTables(mTable, codePoint);
        return mapping.count != 0;
    }

private:
    const SCaseMappingTable& mTable;
};

// The same through the index of a shipped table; code points above the plane are
// searched.
class CIndexLookup {
public:
    CIndexLookup(const SCaseMappingTable& table, const CCaseIndex& index) : mTable(table), mIndex(index) {}

    // For a code point up to U+07FF: UNMAPPED, the single code point it maps to, or
    // NOT_SIMPLE (a multi-character mapping).
    unsigned int simple(unsigned int codePoint) const
    {
        const unsigned short entry = mIndex.entry(codePoint);
        if (entry == 0) {
            return UNMAPPED;
        }
        return entry < CCaseIndex::FIRST_SPECIAL || entry >= CCaseIndex::END_SPECIAL ? entry : NOT_SIMPLE;
    }

    bool map(unsigned int codePoint, SMapping& mapping) const
    {
        if (codePoint <= 0xFFFFu) {
            const unsigned short entry = mIndex.entry(codePoint);
            if (entry == 0) {
                return false;
            }
            mapping.wide = nullptr;
            if (entry < CCaseIndex::FIRST_SPECIAL || entry >= CCaseIndex::END_SPECIAL) {
                mapping.count = 1;
                mapping.one = entry;
                mapping.units = nullptr;
            } else {
                const TSpecialCaseMappingTableEntry<unsigned short>& rule =
                    mTable.mpSpecial16[entry - CCaseIndex::FIRST_SPECIAL];
                mapping.count = rule.mNumReplacements;
                mapping.one = 0;
                mapping.units = rule.mpReplacements;
            }
            return true;
        }
        mapping = findInTables(mTable, codePoint);
        return mapping.count != 0;
    }

private:
    const SCaseMappingTable& mTable;
    const CCaseIndex& mIndex;
};

// Bytes of a mapping that `map` reported, 0 when it cannot be encoded.
inline unsigned int resultBytes(const SMapping& mapping)
{
    return mapping.count == 1 ? encodedLength(mapping.one) : mappedBytes(mapping);
}

// What a pass learns about a text, from the character it starts at.
struct SMeasure {
    bool mappedAny;
    unsigned int mappedEnd;       // bytes up to the end of the last mapped character
    long long delta;              // result bytes minus text bytes
    long long lowestBeforeMapped; // smallest delta before a mapped character
    long long highest;            // largest delta after a character
    long long addedChars;
};

inline void start(SMeasure& m)
{
    m.mappedAny = false;
    m.mappedEnd = 0;
    m.delta = 0;
    m.lowestBeforeMapped = 0;
    m.highest = 0;
    m.addedChars = 0;
}

// Counts a mapped character of `n` bytes at `offset` whose result has `bytes` bytes.
inline void count(SMeasure& m, unsigned int offset, unsigned int n, unsigned int bytes, unsigned int chars)
{
    if (!m.mappedAny || m.delta < m.lowestBeforeMapped) {
        m.lowestBeforeMapped = m.delta;
    }
    m.mappedAny = true;
    m.mappedEnd = offset + n;
    if (bytes != n || chars != 1) {
        m.delta += static_cast<long long>(bytes) - n;
        m.addedChars += static_cast<long long>(chars) - 1;
        if (m.delta > m.highest) {
            m.highest = m.delta;
        }
    }
}

// The character at `offset`: false for a truncated sequence or a follower that is no
// continuation byte (the iterator would step such a text differently).
inline bool decode(const unsigned char* in, unsigned int offset, unsigned int length, unsigned int& n,
                   unsigned int& codePoint)
{
    const unsigned int lead = in[offset];
    if (lead < 0x80u) {
        n = 1;
        codePoint = lead;
        return true;
    }
    n = UTF8LookUpTable[lead];
    if (n > length - offset) {
        return false;
    }
    unsigned int cp = lead & (0xFFu >> (n + 1));
    for (unsigned int k = 1; k < n; ++k) {
        const unsigned int follower = in[offset + k];
        if ((follower & 0xC0u) != 0x80u) {
            return false;
        }
        cp = (cp << 6) | (follower & 0x3Fu);
    }
    codePoint = cp;
    return true;
}

// Writes the result of a mapping of `bytes` bytes.
inline char* put(const SMapping& mapping, unsigned int bytes, char* out)
{
    if (mapping.count == 1) {
        return encode(mapping.one, bytes, out);
    }
    for (unsigned int i = 0; i < mapping.count; ++i) {
        const unsigned int cp = mapping.at(i);
        out = encode(cp, encodedLength(cp), out);
    }
    return out;
}

enum eOutcome { eDone, eMalformed, eNoRoom };

// Measures the mapping of `in` from `from` up to its first NUL.
template <class Lookup>
eOutcome measure(const unsigned char* in, unsigned int from, unsigned int length, const Lookup& lookup,
                 SMeasure& m)
{
    start(m);
    SMapping mapping;
    for (unsigned int offset = from; offset < length && in[offset] != 0;) {
        unsigned int n = 0;
        unsigned int codePoint = 0;
        if (!decode(in, offset, length, n, codePoint)) {
            return eMalformed;
        }
        if (lookup.map(codePoint, mapping)) {
            const unsigned int bytes = resultBytes(mapping);
            if (bytes != 0) {
                count(m, offset, n, bytes, mapping.count);
            }
        }
        offset += n;
    }
    return eDone;
}

// Writes the mapping of `in[from .. end)` (whole characters, measured before) to `out`,
// which may be `in + from` itself when the result never runs ahead of the text.
// Returns the end of what was written.
template <class Lookup>
char* write(const unsigned char* in, unsigned int from, unsigned int end, const Lookup& lookup, char* out)
{
    SMapping mapping;
    for (unsigned int offset = from; offset < end;) {
        unsigned int n = 0;
        unsigned int codePoint = 0;
        (void)decode(in, offset, end, n, codePoint);
        unsigned int bytes = 0;
        if (lookup.map(codePoint, mapping)) {
            bytes = resultBytes(mapping);
        }
        if (bytes != 0) {
            out = put(mapping, bytes, out);
        } else {
            for (unsigned int k = 0; k < n; ++k) {
                out[k] = static_cast<char>(in[offset + k]);
            }
            out += n;
        }
        offset += n;
    }
    return out;
}

// Maps `in` from `from` up to its first NUL into `out` while the result fits before
// `outEnd`, adding to the figures of `m`. On eNoRoom `stop` is the character that did
// not fit, `need` the bytes of its result, and `out` where that result would start.
template <class Lookup>
eOutcome writeWhileRoom(const unsigned char* in, unsigned int from, unsigned int length, const Lookup& lookup,
                        char*& out, const char* outEnd, SMeasure& m, unsigned int& stop, unsigned int& need)
{
    SMapping mapping;
    unsigned int offset = from;
    while (offset < length && in[offset] != 0) {
        // Quick ways for one- and two-byte characters whose result has as many bytes.
        const unsigned int lead = in[offset];
        if (lead < 0x80u) {
            const unsigned int mapped = lookup.simple(lead);
            if (mapped < 0x80u || mapped == UNMAPPED) {
                if (out == outEnd) {
                    stop = offset;
                    need = 1;
                    return eNoRoom;
                }
                ++offset;
                if (mapped == UNMAPPED) {
                    *out++ = static_cast<char>(lead);
                } else {
                    *out++ = static_cast<char>(mapped);
                    count(m, offset - 1, 1, 1, 1);
                }
                continue;
            }
        } else if ((lead & 0xE0u) == 0xC0u && length - offset >= 2 && (in[offset + 1] & 0xC0u) == 0x80u) {
            const unsigned int follower = in[offset + 1];
            const unsigned int mapped = lookup.simple(((lead & 0x1Fu) << 6) | (follower & 0x3Fu));
            if ((mapped >= 0x80u && mapped < 0x800u) || mapped == UNMAPPED) {
                if (outEnd - out < 2) {
                    stop = offset;
                    need = 2;
                    return eNoRoom;
                }
                if (mapped == UNMAPPED) {
                    out[0] = static_cast<char>(lead);
                    out[1] = static_cast<char>(follower);
                } else {
                    out[0] = static_cast<char>(0xC0u | (mapped >> 6));
                    out[1] = static_cast<char>(0x80u | (mapped & 0x3Fu));
                    count(m, offset, 2, 2, 1);
                }
                out += 2;
                offset += 2;
                continue;
            }
        }
        unsigned int n = 0;
        unsigned int codePoint = 0;
        if (!decode(in, offset, length, n, codePoint)) {
            return eMalformed;
        }
        unsigned int bytes = 0;
        if (lookup.map(codePoint, mapping)) {
            bytes = resultBytes(mapping);
        }
        if (bytes != 0) {
            if (bytes > static_cast<unsigned int>(outEnd - out)) {
                stop = offset;
                need = bytes;
                return eNoRoom;
            }
            out = put(mapping, bytes, out);
            count(m, offset, n, bytes, mapping.count);
        } else {
            if (n > static_cast<unsigned int>(outEnd - out)) {
                stop = offset;
                need = n;
                return eNoRoom;
            }
            for (unsigned int k = 0; k < n; ++k) {
                out[k] = static_cast<char>(in[offset + k]);
            }
            out += n;
        }
        offset += n;
    }
    stop = offset;
    return eDone;
}

// The offset of the first character the table maps, or of the first NUL (or the end).
template <class Lookup>
eOutcome findFirstMapped(const unsigned char* in, unsigned int length, const Lookup& lookup, unsigned int& first)
{
    SMapping mapping;
    unsigned int offset = 0;
    while (offset < length && in[offset] != 0) {
        unsigned int n = 0;
        unsigned int codePoint = 0;
        if (!decode(in, offset, length, n, codePoint)) {
            return eMalformed;
        }
        if (lookup.map(codePoint, mapping) && resultBytes(mapping) != 0) {
            break;
        }
        offset += n;
    }
    first = offset;
    return eDone;
}

// The engine as the tables describe it: from the last character to the first, each
// mapped character replaced in place. Quadratic, and kept for the texts the one-pass
// engine does not take as they stand.
void mapCharacterByCharacter(CString& text, const SCaseMappingTable& table)
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

} // namespace

// The one-pass engine. The result, its counts and the capacity of its block are those
// of replacing the mapped characters one by one from the last (the way the tables'
// own description goes); texts whose characters the iterator would step differently
// (a follower of 0xC0 or more) and tables that map U+0000 go that way instead. Running
// out of memory leaves the text as it was.
class CCaseMappingEngine {
public:
    template <class Lookup>
    static void run(CString& text, const Lookup& lookup, const SCaseMappingTable& table)
    {
        SStringData* const block = text.mpData;
        const unsigned char* const in = reinterpret_cast<const unsigned char*>(block->mText);
        const unsigned int length = block->mByteLength;
        unsigned int first = 0;
        if (findFirstMapped(in, length, lookup, first) == eMalformed) {
            mapCharacterByCharacter(text, table);
            return;
        }
        if (first == length || in[first] == 0) {
            return;
        }
        if (text.isShared()) {
            if (!runShared(text, lookup, first)) {
                mapCharacterByCharacter(text, table);
            }
            return;
        }

        // A private block: measure first, then write in place when the result fits and
        // never runs ahead of the text.
        SMeasure m;
        if (measure(in, first, length, lookup, m) == eMalformed) {
            mapCharacterByCharacter(text, table);
            return;
        }
        const long long newLength = static_cast<long long>(length) + m.delta;
        long long capacity = newLength - m.lowestBeforeMapped;
        if (capacity < block->mCapacity) {
            capacity = block->mCapacity;
        }
        SStringData* target = block;
        if (capacity != block->mCapacity || m.highest > 0) {
            target = newBlock(capacity);
            if (target == nullptr) {
                return;
            }
            std::memcpy(target->mText, in, first);
        }
        const unsigned int end = m.mappedEnd;
        char* out = write(in, first, end, lookup, target->mText + first);
        finish(text, target, out, in + end, length - end, newLength, m.addedChars);
    }

private:
    static SStringData* newBlock(long long capacity)
    {
        return capacity < 0xFFFFFFECll ? CString::newBlock(static_cast<unsigned int>(capacity)) : nullptr;
    }

    // The tail after the last mapped character (a NUL and what follows it included),
    // the counts, and the new block in place of the old one.
    static void finish(CString& text, SStringData* target, char* out, const unsigned char* tail,
                       unsigned int tailBytes, long long newLength, long long addedChars)
    {
        if (out != reinterpret_cast<const char*>(tail)) {
            std::memmove(out, tail, tailBytes);
        }
        out[tailBytes] = 0;
        SStringData* const block = text.mpData;
        target->mByteLength = static_cast<unsigned int>(newLength);
        target->mNumChars = static_cast<unsigned int>(static_cast<long long>(block->mNumChars) + addedChars);
        if (target != block) {
            text.removeReference();
            text.mpData = target;
        }
    }

    // A shared block: the result goes straight into a new block the size of the text
    // with a little room to spare, so that a mapping that adds a few bytes (U+00DF and
    // the ligatures grow) still fits. A block that runs out of room is replaced by one
    // twice as large. The block ends with the capacity the step-by-step replacement
    // ends with (the room beyond it is not used); one too small for that is replaced.
    // False for a text to be mapped character by character.
    template <class Lookup>
    static bool runShared(CString& text, const Lookup& lookup, unsigned int first)
    {
        SStringData* const block = text.mpData;
        const unsigned char* const in = reinterpret_cast<const unsigned char*>(block->mText);
        const unsigned int length = block->mByteLength;
        unsigned int room = length + length / 16u + 16u;
        if (room < length) {
            room = length;
        }
        SStringData* target = newBlock(room);
        if (target == nullptr) {
            return true;
        }
        std::memcpy(target->mText, in, first);
        char* out = target->mText + first;
        SMeasure m;
        start(m);
        unsigned int stop = first;
        for (;;) {
            unsigned int need = 0;
            const eOutcome outcome =
                writeWhileRoom(in, stop, length, lookup, out, target->mText + room, m, stop, need);
            if (outcome == eDone) {
                break;
            }
            const unsigned int written = static_cast<unsigned int>(out - target->mText);
            if (outcome == eMalformed || need > 0x7FFFFFFFu - written || room > 0x3FFFFFFFu) {
                ::operator delete(target);
                return outcome != eMalformed;
            }
            room = room * 2 > written + need ? room * 2 : written + need;
            if (!moveTo(target, written, room)) {
                return true;
            }
            out = target->mText + written;
        }
        const long long newLength = static_cast<long long>(length) + m.delta;
        const long long capacity = newLength - m.lowestBeforeMapped;
        if (capacity > room) {
            const unsigned int written = static_cast<unsigned int>(out - target->mText);
            if (capacity >= 0xFFFFFFECll) {
                ::operator delete(target);
                return true;
            }
            if (!moveTo(target, written, static_cast<unsigned int>(capacity))) {
                return true;
            }
            out = target->mText + written;
        }
        target->mCapacity = static_cast<unsigned int>(capacity);
        finish(text, target, out, in + stop, length - stop, newLength, m.addedChars);
        return true;
    }

    // Moves the first `written` bytes of `target` to a new block of `capacity`; when
    // there is no memory, `target` is freed as well and the result is false.
    static bool moveTo(SStringData*& target, unsigned int written, unsigned int capacity)
    {
        SStringData* moved = newBlock(capacity);
        if (moved != nullptr) {
            std::memcpy(moved->mText, target->mText, written);
        }
        ::operator delete(target);
        target = moved;
        return moved != nullptr;
    }
};

void doCaseMapping(CString& text, const SCaseMappingTable& table)
{
    const CSearchLookup search(table);
    if (const CCaseIndex* index = indexFor(table)) {
        CCaseMappingEngine::run(text, CIndexLookup(table, *index), table);
        return;
    }
    SMapping zero;
    if (search.map(0, zero)) {
        mapCharacterByCharacter(text, table);
        return;
    }
    CCaseMappingEngine::run(text, search, table);
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
