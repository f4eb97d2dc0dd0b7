#include "core/String.h"

#include "core/private/Utf8Encoding.h"
#include "os/pal_wrapper.h"

#include <cstdint>
#include <cstdio>
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

using Utf8::encode;
using Utf8::encodedLength;

SStringData* allocateBlock(unsigned int capacity)
{
    return static_cast<SStringData*>(::operator new(sBlockOverhead + capacity, std::nothrow));
}

// A private copy of `from` with room for `capacity` text bytes, holding as much of the
// text as fits; null when there is no memory. The count is not copied: other holders
// of `from` may change it meanwhile, and the copy's count is 1.
SStringData* copyBlock(const SStringData* from, unsigned int capacity)
{
    SStringData* block = allocateBlock(capacity);
    if (block == 0) {
        return 0;
    }
    const unsigned int kept = capacity < from->mCapacity ? capacity : from->mCapacity;
    const unsigned int countBytes = static_cast<unsigned int>(sizeof(from->mRefCount));
    std::memcpy(&block->mCapacity, &from->mCapacity, sBlockOverhead - countBytes + kept);
    block->mRefCount = 1u;
    block->mCapacity = capacity;
    return block;
}

// Bytes of the longest prefix of `text` made of whole sequences: a lead byte the table
// knows, followed by bytes with their top bit set (nothing more is tested).
unsigned int validPrefix(const char* text, unsigned int byteCount, unsigned int& characters)
{
    unsigned int accepted = 0;
    characters = 0;
    while (accepted < byteCount) {
        const unsigned int n = sequenceLength(text[accepted]);
        if (n == 255u || n > byteCount - accepted) {
            break;
        }
        unsigned int k = 1;
        while (k < n && (static_cast<unsigned char>(text[accepted + k]) & 0x80u) != 0) {
            ++k;
        }
        if (k < n) {
            break;
        }
        ++characters;
        accepted += n;
    }
    return accepted;
}

// Bytes of the longest prefix of `text` that its lead bytes split into whole sequences,
// for bytes the caller vouches for.
unsigned int wholeSequences(const char* text, unsigned int byteCount, unsigned int& characters)
{
    unsigned int bytes = 0;
    characters = 0;
    while (bytes < byteCount) {
        const unsigned int n = sequenceLength(text[bytes]);
        if (n == 255u || n > byteCount - bytes) {
            break;
        }
        ++characters;
        bytes += n;
    }
    return bytes;
}

// Pointer order across unrelated arrays is unspecified for the built-in operators;
// iterators of other strings have to be told apart safely.
inline bool within(const char* p, const char* low, const char* high)
{
    const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(p);
    return at >= reinterpret_cast<std::uintptr_t>(low) && at <= reinterpret_cast<std::uintptr_t>(high);
}

inline bool isWhiteSpace(char byte)
{
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

// The output buffer of `format`: 256 bytes of text and the terminator.
const unsigned int sFormatBufferSize = 257u;

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
    // Sharing needs no capacity test: the block is always as large as itself.
    Atomic::increment(mpData->mRefCount);
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
    SStringData* block = copyBlock(mpData, capacity);
    if (block == 0) {
        // Out of memory: the string keeps its old block and the caller's write is dropped.
        return false;
    }
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
    unsigned int characters = 0;
    const unsigned int accepted = validPrefix(text, byteCount, characters);
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
        const unsigned char follower = static_cast<unsigned char>(mPosition[i]);
        // Intake takes any byte with its top bit set as a follower, while stepping skips
        // only 0x80-0xBF: an iterator can stop on a follower such as 0xFD and take it for
        // the lead of a longer sequence than the text holds. The terminator gives its
        // zero bits, and so does every following byte that would lie beyond it: nothing
        // past the terminator is read.
        if (follower == 0) {
            cp <<= 6u * (n - i);
            break;
        }
        cp = (cp << 6) | (follower & 0x3Fu);
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

// ---- positions inside the text

bool CString::holds(const char* p) const
{
    return within(p, mpData->mText, mpData->mText + mpData->mCapacity);
}

// Editing splices bytes at an iterator, so it must sit where a character starts: a
// stale iterator inside a character would otherwise split it and break the counts.
bool CString::characterStart(const const_iterator& position, unsigned int& offset) const
{
    const char* text = mpData->mText;
    if (!within(position.mPosition, text, text + mpData->mByteLength)) {
        return false;
    }
    const unsigned int target = static_cast<unsigned int>(position.mPosition - text);
    unsigned int index = 0;
    offset = locate(target, false, index);
    return offset == target;
}

// Bytes of up to `maxChars` whole characters from byte `offset`, never past the end.
unsigned int CString::walk(unsigned int offset, unsigned int maxChars, bool stopAtNul, unsigned int& chars) const
{
    const char* text = mpData->mText;
    const unsigned int length = mpData->mByteLength;
    unsigned int bytes = 0;
    chars = 0;
    while (chars < maxChars && offset + bytes < length) {
        const char lead = text[offset + bytes];
        if (stopAtNul && lead == 0) {
            break;
        }
        const unsigned int n = sequenceLength(lead);
        if (n == 255u || n > length - offset - bytes) {
            break;
        }
        bytes += n;
        ++chars;
    }
    return bytes;
}

// Walks whole characters from the start towards byte `target`: returns the offset of
// the character holding `target` (or, with `wholeCharacter`, the offset just after
// it) and that offset's character index.
unsigned int CString::locate(unsigned int target, bool wholeCharacter, unsigned int& index) const
{
    const char* text = mpData->mText;
    const unsigned int length = mpData->mByteLength;
    unsigned int offset = 0;
    index = 0;
    while (offset < target && offset < length) {
        const unsigned int n = sequenceLength(text[offset]);
        if (n == 255u || n > length - offset) {
            break;
        }
        if (!wholeCharacter && n > target - offset) {
            break;
        }
        offset += n;
        ++index;
    }
    return offset;
}

// ---- editing

bool CString::appendBytes(const char* bytes, unsigned int byteCount, unsigned int charCount)
{
    const unsigned int length = mpData->mByteLength;
    if (byteCount == 0) {
        return true;
    }
    if (byteCount >= sLargestCapacity - length) {
        return false;
    }
    const unsigned int newLength = length + byteCount;
    // Text taken from this very block must outlive the move to a bigger or private one.
    CString keep;
    if (holds(bytes) && (isShared() || mpData->mCapacity < newLength)) {
        keep = *this;
    }
    if (!addReference(true, newLength)) {
        return false;
    }
    std::memmove(mpData->mText + length, bytes, byteCount);
    mpData->mText[newLength] = 0;
    mpData->mByteLength = newLength;
    mpData->mNumChars += charCount;
    return true;
}

CString& CString::append(const CString& text)
{
    if (text.mpData->mNumChars != 0) {
        appendBytes(text.mpData->mText, text.mpData->mByteLength, text.mpData->mNumChars);
    }
    return *this;
}

CString& CString::append(const char* text)
{
    if (text != 0 && *text != 0) {
        unsigned int chars = 0;
        const unsigned int bytes = validPrefix(text, static_cast<unsigned int>(std::strlen(text)), chars);
        appendBytes(text, bytes, chars);
    }
    return *this;
}

CString& CString::append(const char* text, unsigned int byteCount)
{
    if (text != 0 && *text != 0 && byteCount != 0) {
        unsigned int chars = 0;
        const unsigned int bytes = wholeSequences(text, byteCount, chars);
        appendBytes(text, bytes, chars);
    }
    return *this;
}

CString CString::operator+(const CString& text) const
{
    CString sum(*this);
    sum.append(text);
    return sum;
}

// False only when memory ran out; the string and `position` are then unchanged.
bool CString::insertText(const_iterator& position, const CString& text)
{
    unsigned int offset = 0;
    if (text.mpData->mNumChars == 0 || !characterStart(position, offset)) {
        return true;
    }
    const unsigned int length = mpData->mByteLength;
    const unsigned int textBytes = text.mpData->mByteLength;
    if (textBytes >= sLargestCapacity - length) {
        return false;
    }
    // Inserting a string into itself reads from the block that is being moved apart.
    CString keep;
    if (text.mpData == mpData) {
        keep = text;
    }
    const char* source = text.mpData->mText;
    const unsigned int textChars = text.mpData->mNumChars;
    if (!addReference(true, length + textBytes)) {
        return false;
    }
    char* out = mpData->mText;
    std::memmove(out + offset + textBytes, out + offset, length - offset + 1);
    std::memcpy(out + offset, source, textBytes);
    position.mPosition = out + offset;
    mpData->mByteLength = length + textBytes;
    mpData->mNumChars += textChars;
    return true;
}

CString& CString::insert(const_iterator& position, const CString& text)
{
    insertText(position, text);
    return *this;
}

CString& CString::remove(const_iterator& position, unsigned int count)
{
    unsigned int offset = 0;
    if (!characterStart(position, offset)) {
        return *this;
    }
    unsigned int removedChars = 0;
    const unsigned int removed = walk(offset, count, true, removedChars);
    if (removed == 0) {
        return *this;
    }
    const unsigned int length = mpData->mByteLength;
    // A shared block is copied only up to the new length; the tail is read from the
    // old block, which another holder could free at any moment without this reference.
    CString keep;
    if (isShared()) {
        keep = *this;
    }
    const char* before = mpData->mText;
    if (!addReference(true, length - removed)) {
        return *this;
    }
    char* out = mpData->mText;
    std::memmove(out + offset, before + offset + removed, length - offset - removed + 1);
    position.mPosition = out + offset;
    mpData->mByteLength = length - removed;
    mpData->mNumChars -= removedChars;
    return *this;
}

// False only when memory ran out; the string and `position` are then unchanged.
bool CString::replaceText(const_iterator& position, unsigned int count, const CString& text)
{
    unsigned int offset = 0;
    if (!characterStart(position, offset)) {
        return true;
    }
    if (count == 0) {
        return insertText(position, text);
    }
    const unsigned int length = mpData->mByteLength;
    if (offset == length) {
        return true;
    }
    unsigned int removedChars = 0;
    const unsigned int removed = walk(offset, count, true, removedChars);
    const unsigned int textBytes = text.mpData->mByteLength;
    const unsigned int textChars = text.mpData->mNumChars;
    if (textBytes >= sLargestCapacity - (length - removed)) {
        return false;
    }
    // Both the tail and a `text` that is this string are read from the snapshot, so
    // neither an in-place write nor the loss of a shared block can spoil them.
    SStringData* snapshot = copyBlock(mpData, mpData->mCapacity);
    if (snapshot == 0) {
        return false;
    }
    const char* source = text.mpData == mpData ? snapshot->mText : text.mpData->mText;
    const unsigned int newLength = textBytes + length - removed;
    if (!addReference(true, newLength)) {
        ::operator delete(snapshot);
        return false;
    }
    char* out = mpData->mText;
    std::memcpy(out + offset + textBytes, snapshot->mText + offset + removed, length - offset - removed + 1);
    std::memcpy(out + offset, source, textBytes);
    position.mPosition = out + offset;
    mpData->mByteLength = newLength;
    mpData->mNumChars = textChars + mpData->mNumChars - removedChars;
    ::operator delete(snapshot);
    return true;
}

CString& CString::replace(const_iterator& position, unsigned int count, const CString& text)
{
    replaceText(position, count, text);
    return *this;
}

CString& CString::replaceAll(const CString& what, const CString& with)
{
    // The work happens on a copy: if memory runs out part-way this string is left
    // whole, and `what` or `with` may be this string without changing under the loop.
    CString work(*this);
    const unsigned int whatChars = what.mpData->mNumChars;
    const int withChars = static_cast<int>(with.mpData->mNumChars);
    const_iterator position = work.find(what);
    if (position == work.end()) {
        return *this;
    }
    while (position != work.end()) {
        unsigned int offset = 0;
        if (!work.characterStart(position, offset)) {
            // A match inside a character (text whose followers look like lead bytes)
            // is not one; stepping on keeps the loop moving.
            ++position;
        } else if (!work.replaceText(position, whatChars, with)) {
            return *this;
        } else {
            position += withChars;
        }
        position = work.find(what, position);
    }
    *this = work;
    return *this;
}

CString& CString::replaceArg(const CString& arg)
{
    const_iterator chosen;
    unsigned int lowest = 10u;
    const_iterator position = begin();
    while (*position.mPosition != 0) {
        if (*position.mPosition != '%') {
            ++position;
            continue;
        }
        const_iterator next = position + 1;
        const unsigned int digit = *next - 0x30u;
        if (digit < lowest) {
            lowest = digit;
            chosen = position;
        }
        position = next;
    }
    if (lowest < 10u) {
        replaceText(chosen, 2u, arg);
    }
    return *this;
}

void CString::cutAt(unsigned int byteLength, unsigned int charCount)
{
    if (byteLength == mpData->mByteLength || !addReference(true, byteLength)) {
        return;
    }
    mpData->mText[byteLength] = 0;
    mpData->mByteLength = byteLength;
    mpData->mNumChars = charCount;
}

void CString::truncate(const const_iterator& position)
{
    const char* text = mpData->mText;
    if (!within(position.mPosition, text, text + mpData->mByteLength) || position.mPosition == end().mPosition) {
        return;
    }
    unsigned int chars = 0;
    const unsigned int bytes = locate(static_cast<unsigned int>(position.mPosition - text), true, chars);
    cutAt(bytes, chars);
}

void CString::truncate(unsigned int count)
{
    if (count >= mpData->mNumChars) {
        return;
    }
    unsigned int chars = 0;
    const unsigned int bytes = walk(0, count, false, chars);
    cutAt(bytes, chars);
}

// ---- pieces

SStringData* CString::newBlock(unsigned int capacity)
{
    return capacity < sLargestCapacity ? copyBlock(&nullData, capacity) : 0;
}

CString CString::fromBytes(const char* bytes, unsigned int byteCount, unsigned int charCount)
{
    CString piece;
    if (byteCount != 0 && piece.addReference(true, byteCount)) {
        std::memcpy(piece.mpData->mText, bytes, byteCount);
        piece.mpData->mText[byteCount] = 0;
        piece.mpData->mByteLength = byteCount;
        piece.mpData->mNumChars = charCount;
    }
    return piece;
}

CString CString::getLeft(unsigned int count) const
{
    unsigned int chars = 0;
    const unsigned int bytes = walk(0, count, false, chars);
    return fromBytes(mpData->mText, bytes, chars);
}

CString CString::getLeft(const const_iterator& position) const
{
    const char* text = mpData->mText;
    if (!within(position.mPosition, text, text + mpData->mByteLength)) {
        return CString();
    }
    unsigned int chars = 0;
    const unsigned int bytes = locate(static_cast<unsigned int>(position.mPosition - text), true, chars);
    return fromBytes(text, bytes, chars);
}

CString CString::getMid(const const_iterator& position, unsigned int count) const
{
    const char* text = mpData->mText;
    if (count == 0 || !within(position.mPosition, text, text + mpData->mByteLength)) {
        return CString();
    }
    unsigned int index = 0;
    const unsigned int offset = locate(static_cast<unsigned int>(position.mPosition - text), false, index);
    unsigned int chars = 0;
    const unsigned int bytes = walk(offset, count, false, chars);
    return fromBytes(text + offset, bytes, chars);
}

CString CString::getRight(unsigned int count) const
{
    const unsigned int total = mpData->mNumChars;
    const unsigned int kept = count < total ? count : total;
    unsigned int skipped = 0;
    const unsigned int offset = walk(0, total - kept, false, skipped);
    return fromBytes(mpData->mText + offset, mpData->mByteLength - offset, kept);
}

CString CString::getRight(const const_iterator& position) const
{
    const char* text = mpData->mText;
    if (!within(position.mPosition, text, text + mpData->mByteLength)) {
        return CString();
    }
    unsigned int index = 0;
    const unsigned int offset = locate(static_cast<unsigned int>(position.mPosition - text), false, index);
    return fromBytes(text + offset, mpData->mByteLength - offset, mpData->mNumChars - index);
}

// ---- search

CString::const_iterator CString::find(const CString& what) const
{
    return findString(begin(), what, true);
}

CString::const_iterator CString::find(const CString& what, const const_iterator& from) const
{
    return findString(from, what, true);
}

CString::const_iterator CString::findString(const_iterator from, const CString& what, bool forward) const
{
    const char* text = mpData->mText;
    const char* last = text + mpData->mByteLength;
    const char* pattern = what.mpData->mText;
    const unsigned int size = what.mpData->mByteLength;
    if (!within(from.mPosition, text, last) || *pattern == 0 || what.mpData->mNumChars == 0) {
        return end();
    }
    const int step = forward ? 1 : -1;
    if (!forward && from.mPosition == last) {
        from.incrementSteps(&from.mPosition, -1);
    }
    // Forward the walk ends on the terminator, backward on the sentinel.
    for (;;) {
        const char* p = from.mPosition;
        if (*p == 0) {
            return end();
        }
        if (*p == *pattern && size <= static_cast<unsigned int>(last - p) && std::memcmp(p, pattern, size) == 0) {
            return from;
        }
        from.incrementSteps(&from.mPosition, step);
    }
}

// ---- white space

CString& CString::trim()
{
    const char* text = mpData->mText;
    const unsigned int length = mpData->mByteLength;
    unsigned int lead = 0;
    while (isWhiteSpace(text[lead])) {
        ++lead;
    }
    unsigned int total = lead;
    unsigned int trail = 0;
    if (lead < mpData->mNumChars) {
        while (trail < length - lead && isWhiteSpace(text[length - 1 - trail])) {
            ++trail;
        }
        total += trail;
    }
    if (total == 0) {
        return *this;
    }
    SStringData* snapshot = copyBlock(mpData, mpData->mCapacity);
    if (snapshot == 0) {
        return *this;
    }
    if (addReference(true, mpData->mCapacity - total)) {
        std::memcpy(mpData->mText, snapshot->mText + lead, length + 1 - total);
        mpData->mNumChars -= total;
        mpData->mByteLength = length - total;
        if (trail != 0) {
            mpData->mText[length - total] = 0;
        }
    }
    ::operator delete(snapshot);
    return *this;
}

// ---- formatting

bool CString::doFormat(char* buffer, unsigned int bufferSize, const char* formatText, va_list arguments)
{
    if (buffer == 0 || bufferSize == 0 || formatText == 0) {
        return false;
    }
    const int written = std::vsnprintf(buffer, bufferSize, formatText, arguments);
    buffer[bufferSize - 1] = 0;
    bool whole = true;
    unsigned int produced = static_cast<unsigned int>(written);
    if (written < 0) {
        // The buffer's contents are unspecified after a formatting error.
        buffer[0] = 0;
        produced = 0;
        whole = false;
    } else if (produced > bufferSize - 1) {
        produced = bufferSize - 1;
        whole = false;
    }
    unsigned int chars = 0;
    const unsigned int bytes = validPrefix(buffer, produced, chars);
    if (!addReference(true, bytes)) {
        return false;
    }
    std::memmove(mpData->mText, buffer, bytes);
    mpData->mText[bytes] = 0;
    mpData->mByteLength = bytes;
    mpData->mNumChars = chars;
    return whole;
}

bool CString::format(const char* formatText, ...)
{
    char buffer[sFormatBufferSize];
    va_list arguments;
    va_start(arguments, formatText);
    const bool whole = doFormat(buffer, sFormatBufferSize, formatText, arguments);
    va_end(arguments);
    return whole;
}

bool CString::strprintf(char* buffer, unsigned int bufferSize, const char* formatText, ...)
{
    va_list arguments;
    va_start(arguments, formatText);
    const bool whole = doFormat(buffer, bufferSize, formatText, arguments);
    va_end(arguments);
    return whole;
}

} // namespace PAL
