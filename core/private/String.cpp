#include "core/String.h"

#include "os/pal_wrapper.h"

#include <cstring>
#include <new>

namespace PAL {

const unsigned char UTF8LookUpTable[256] = {
    // 0x00-0x7F: one byte
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    // 0x80-0xBF: continuation bytes start nothing
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
    // 0xC0-0xDF: two bytes
    2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,
    // 0xE0-0xEF: three bytes
    3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3,
    // 0xF0-0xF7: four, 0xF8-0xFB: five, 0xFC-0xFD: six, 0xFE-0xFF: nothing
    4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 6, 6, 255, 255};

SStringData CString::nullData = {2u, 0u, 0u, 0u, 0, {0}};
const CString CString::null((CString::NullTag()));

namespace {

// Counters, sentinel, terminator and two spare bytes, rounded to a multiple of four.
const unsigned int sBlockOverhead = static_cast<unsigned int>(sizeof(SStringData));
const unsigned int sLargestCapacity = 0xFFFFFFECu;

inline unsigned int sequenceLength(char lead)
{
    return UTF8LookUpTable[static_cast<unsigned char>(lead)];
}

inline bool isContinuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0u) == 0x80u;
}

// Bytes of the UTF-8 form of `cp` in the six-byte scheme; 0 when it cannot be encoded.
inline unsigned int encodedLength(unsigned int cp)
{
    if (cp < 0x80u) return 1;
    if (cp < 0x800u) return 2;
    if (cp < 0x10000u) return 3;
    if (cp < 0x200000u) return 4;
    if (cp < 0x4000000u) return 5;
    if (cp < 0x80000000u) return 6;
    return 0;
}

inline void encode(unsigned int cp, unsigned int length, char* out)
{
    static const unsigned char leads[7] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
    if (length == 1) {
        out[0] = static_cast<char>(cp);
        return;
    }
    for (unsigned int i = length - 1; i > 0; --i) {
        out[i] = static_cast<char>(0x80u | (cp & 0x3Fu));
        cp >>= 6;
    }
    out[0] = static_cast<char>(leads[length] | cp);
}

SStringData* allocateBlock(unsigned int capacity)
{
    return static_cast<SStringData*>(::operator new(sBlockOverhead + capacity, std::nothrow));
}

} // namespace

// ---- construction and sharing

CString::CString() : mpData(&nullData) {}

CString::CString(const char* text) : mpData(&nullData)
{
    if (text != 0) {
        charConstruct(text, static_cast<unsigned int>(std::strlen(text)));
    }
}

CString::CString(const char* text, unsigned int byteCount) : mpData(&nullData)
{
    if (text != 0) {
        charConstruct(text, byteCount);
    }
}

CString::CString(unsigned int capacity) : mpData(&nullData)
{
    if (capacity < sLargestCapacity) {
        addReference(true, capacity);
    }
}

CString::CString(const CString& other) : mpData(other.mpData)
{
    addReference(false, other.mpData->mCapacity);
}

CString::CString(const unsigned int* text) : mpData(&nullData)
{
    if (text != 0) {
        const unsigned int* last = text;
        while (*last != 0) {
            ++last;
        }
        fromWCharSequence(text, last);
    }
}

CString::CString(const unsigned int* first, const unsigned int* last) : mpData(&nullData)
{
    fromWCharSequence(first, last);
}

CString::~CString()
{
    removeReference();
}

CString& CString::operator=(const CString& other)
{
    if (mpData != other.mpData) {
        removeReference();
        mpData = other.mpData;
        Atomic::increment(mpData->mRefCount);
    }
    return *this;
}

CString& CString::operator=(const char* text)
{
    return *this = CString(text);
}

bool CString::isShared() const
{
    // The static empty block is shared by definition, whatever its count has wrapped to.
    return mpData == &nullData || Atomic::peek(mpData->mRefCount) > 1u;
}

bool CString::addReference(bool forWrite, unsigned int capacity)
{
    if (!forWrite && mpData->mCapacity >= capacity) {
        Atomic::increment(mpData->mRefCount);
        return true;
    }
    if (!isShared() && mpData->mCapacity >= capacity) {
        return true;
    }
    if (capacity >= sLargestCapacity) {
        return false;
    }
    SStringData* block = allocateBlock(capacity);
    if (block == 0) {
        // Out of memory: the string keeps its old block and the caller's write is dropped.
        return false;
    }
    const unsigned int kept = capacity < mpData->mCapacity ? capacity : mpData->mCapacity;
    // Everything after the count: other holders may change the old block's count while
    // this copy is made, and the new block's count is set below anyway.
    const unsigned int countBytes = static_cast<unsigned int>(sizeof(mpData->mRefCount));
    std::memcpy(&block->mCapacity, &mpData->mCapacity, sBlockOverhead - countBytes + kept);
    block->mRefCount = 1u;
    block->mCapacity = capacity;
    removeReference();
    mpData = block;
    return true;
}

void CString::removeReference()
{
    if (mpData == &nullData) {
        return;
    }
    if (!Atomic::testDecrement(mpData->mRefCount)) {
        ::operator delete(mpData);
        mpData = &nullData;
    }
}

void CString::charConstruct(const char* text, unsigned int byteCount)
{
    if (!addReference(true, byteCount)) {
        return;
    }
    unsigned int accepted = 0;
    unsigned int characters = 0;
    while (accepted < byteCount) {
        const unsigned int n = sequenceLength(text[accepted]);
        if (n == 255u || n > byteCount - accepted) {
            break;
        }
        unsigned int k = 1;
        // Only the top bit of a following byte is looked at.
        while (k < n && (static_cast<unsigned char>(text[accepted + k]) & 0x80u) != 0) {
            ++k;
        }
        if (k < n) {
            break;
        }
        ++characters;
        accepted += n;
    }
    std::memcpy(mpData->mText, text, accepted);
    mpData->mText[accepted] = 0;
    mpData->mByteLength = accepted;
    mpData->mNumChars = characters;
}

void CString::swap(CString& other)
{
    // Neither side may keep sharing its block with a third string after the exchange.
    if (isShared() && !addReference(true, mpData->mCapacity)) {
        return;
    }
    if (other.isShared() && !other.addReference(true, other.mpData->mCapacity)) {
        return;
    }
    SStringData* mine = mpData;
    mpData = other.mpData;
    other.mpData = mine;
}

void CString::reserve(unsigned int capacity)
{
    if (mpData->mCapacity < capacity) {
        addReference(true, capacity);
    }
}

// ---- other encodings

void CString::fromUCS2Sequence(const unsigned short* units, unsigned int count)
{
    if (units == 0) {
        count = 0;
    }
    // Each unit on its own takes one to three bytes; the block grows once to the exact
    // total, as growing character by character would end up.
    unsigned int bytes = 0;
    for (unsigned int i = 0; i < count; ++i) {
        bytes += encodedLength(units[i]);
    }
    const unsigned int wanted = bytes > count ? bytes : count;
    if (!addReference(true, mpData->mCapacity > wanted ? mpData->mCapacity : wanted)) {
        return;
    }
    char* out = mpData->mText;
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned int n = encodedLength(units[i]);
        encode(units[i], n, out);
        out += n;
    }
    *out = 0;
    mpData->mByteLength = bytes;
    mpData->mNumChars = count;
}

bool CString::encodeCodePoints(const unsigned int* codePoints, unsigned int count, unsigned int minimumCapacity)
{
    unsigned int bytes = 0;
    unsigned int encoded = 0;
    while (encoded < count) {
        const unsigned int n = encodedLength(codePoints[encoded]);
        if (n == 0) {
            break;
        }
        bytes += n;
        ++encoded;
    }
    if (minimumCapacity < bytes) {
        minimumCapacity = bytes;
    }
    if (!addReference(true, minimumCapacity)) {
        return false;
    }
    char* out = mpData->mText;
    for (unsigned int i = 0; i < encoded; ++i) {
        const unsigned int n = encodedLength(codePoints[i]);
        encode(codePoints[i], n, out);
        out += n;
    }
    *out = 0;
    mpData->mByteLength = bytes;
    mpData->mNumChars = encoded;
    return true;
}

void CString::fromUCS4Sequence(const unsigned int* codePoints, unsigned int count)
{
    if (codePoints == 0) {
        count = 0;
    }
    const unsigned int current = mpData->mCapacity;
    encodeCodePoints(codePoints, count, current > count ? current : count);
}

void CString::fromWCharSequence(const unsigned int* first, const unsigned int* last)
{
    // Built into a fresh string so the old content goes only once the new one exists.
    CString built;
    if (first != 0 && last != 0 && first < last) {
        const unsigned int count = static_cast<unsigned int>(last - first);
        if (!built.encodeCodePoints(first, count, count)) {
            return;
        }
    }
    SStringData* mine = mpData;
    mpData = built.mpData;
    built.mpData = mine;
}

// ---- access

unsigned int CString::operator[](unsigned int index) const
{
    const_iterator it = begin();
    while (index > 0 && *it.mPosition != 0) {
        it.incrementSteps(&it.mPosition, 1);
        --index;
    }
    return *it;
}

bool CString::operator==(const CString& other) const
{
    if (mpData->mNumChars != other.mpData->mNumChars) {
        return false;
    }
    if (mpData == other.mpData) {
        return true;
    }
    return std::strcmp(mpData->mText, other.mpData->mText) == 0;
}

unsigned int getHashValueForString(const CString& s)
{
    unsigned int hash = 0;
    for (const char* p = s.getBuffer(); *p != 0; ++p) {
        hash = 5u * hash + static_cast<unsigned int>(static_cast<int>(static_cast<signed char>(*p)));
    }
    return hash;
}

// ---- iterator

CString::const_iterator::const_iterator() : mPosition(0) {}

CString::const_iterator::const_iterator(const char* position) : mPosition(position) {}

unsigned int CString::const_iterator::operator*() const
{
    const unsigned char lead = static_cast<unsigned char>(*mPosition);
    const unsigned int n = UTF8LookUpTable[lead];
    if (n == 1u) {
        return lead;
    }
    if (n == 255u) {
        // Only reachable on bytes the string never starts a character with.
        return lead;
    }
    unsigned int cp = lead & (0xFFu >> (n + 1));
    for (unsigned int i = 1; i < n; ++i) {
        cp = (cp << 6) | (static_cast<unsigned char>(mPosition[i]) & 0x3Fu);
    }
    return cp;
}

void CString::const_iterator::incrementSteps(const char** position, int steps) const
{
    if (steps == 0 || position == 0 || *position == 0) {
        return;
    }
    const char* p = *position;
    if (steps > 0) {
        for (; steps > 0; --steps) {
            if (*p == 0) {
                break;
            }
            ++p;
            while (isContinuation(*p)) {
                ++p;
            }
        }
    } else {
        unsigned int remaining = static_cast<unsigned int>(-(steps + 1)) + 1u;
        if (*p == 0) {
            // The terminator: back onto the last character (or the sentinel).
            --p;
            while (isContinuation(*p)) {
                --p;
            }
            --remaining;
        }
        for (; remaining > 0; --remaining) {
            if (*p == 0) {
                // The sentinel: the move ends on the first character.
                ++p;
                break;
            }
            --p;
            while (isContinuation(*p)) {
                --p;
            }
        }
    }
    *position = p;
}

CString::const_iterator& CString::const_iterator::operator++()
{
    incrementSteps(&mPosition, 1);
    return *this;
}

CString::const_iterator CString::const_iterator::operator++(int)
{
    const_iterator before(*this);
    incrementSteps(&mPosition, 1);
    return before;
}

CString::const_iterator& CString::const_iterator::operator--()
{
    incrementSteps(&mPosition, -1);
    return *this;
}

CString::const_iterator CString::const_iterator::operator--(int)
{
    const_iterator before(*this);
    incrementSteps(&mPosition, -1);
    return before;
}

CString::const_iterator& CString::const_iterator::operator+=(int steps)
{
    incrementSteps(&mPosition, steps);
    return *this;
}

CString::const_iterator CString::const_iterator::operator+(int steps) const
{
    const_iterator moved(*this);
    moved.incrementSteps(&moved.mPosition, steps);
    return moved;
}

int operator-(const CString::const_iterator& a, const CString::const_iterator& b)
{
    const bool forward = a.mPosition >= b.mPosition;
    const char* low = forward ? b.mPosition : a.mPosition;
    const char* high = forward ? a.mPosition : b.mPosition;
    if (low == 0) {
        return 0;
    }
    int count = 0;
    const char* p = low;
    while (p < high && *p != 0) {
        const unsigned int n = sequenceLength(*p);
        if (n > 6u || n > static_cast<unsigned int>(high - p)) {
            break;
        }
        ++count;
        p += n;
    }
    return forward ? count : -count;
}

} // namespace PAL
