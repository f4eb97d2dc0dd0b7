#ifndef OSAL_KIT_CORE_STRING_H
#define OSAL_KIT_CORE_STRING_H

#include "core/Export.h"

#include <cstdarg>

namespace PAL {

class IIStream;
class IOStream;
class CString;

namespace StringUtilities {
class CCaseMappingEngine;
} // namespace StringUtilities

/// Length of the UTF-8 sequence that a byte starts (1 to 6, in the six-byte form that
/// reaches 31-bit values), or 255 where the byte cannot start one.
OSAL_KIT_API extern const unsigned char UTF8LookUpTable[256];

/// The shared block behind a `CString`: one heap allocation of the four counters, a
/// sentinel byte (always 0, just before the text), the text and its terminator.
struct SStringData {
    unsigned int mRefCount;  ///< CString objects pointing here; changed only through PAL::Atomic
    unsigned int mCapacity;  ///< text bytes the block can hold, not counting the terminator
    unsigned int mByteLength;///< text bytes in use
    unsigned int mNumChars;  ///< characters (UTF-8 sequences) in the text
    char mSentinel;          ///< always 0; backward iteration stops on it
    char mText[1];           ///< mCapacity + 1 bytes in a real block, NUL at mText[mByteLength]
};

/// A reference-counted, copy-on-write UTF-8 string.
///
/// Copies share one block and cost O(1) without allocating; the first write to a
/// shared block gives the writer a private copy. Positions and lengths at the
/// interface count characters (code points), never bytes. Empty strings built by
/// default, from a null pointer, or copied from such strings share one static block and
/// allocate nothing.
///
/// 8-bit input is validated as UTF-8: the string keeps the longest valid prefix and
/// silently drops the rest (no error is reported). UCS-4 and wide input ends at the
/// first value of 0x80000000 or more. No operation throws; when the PAL core cannot
/// supply memory, a write leaves the string (and the iterator it would move) as it was.
///
/// Threads: copies of one string may be made, assigned and destroyed on different
/// threads at once (the reference count is the only shared state). A single `CString`
/// object is not synchronised: writing it while another thread uses the same object
/// needs the caller's lock.
///
///     PAL::CString name("Grüße");           // 5 characters, 7 bytes
///     PAL::CString copy = name;             // shares the block
///     for (PAL::CString::const_iterator it = name.begin(); it != name.end(); ++it)
///         handle(*it);                      // code points 0x47, 0x72, 0xFC, 0xDF, 0x65
class OSAL_KIT_API CString {
public:
    /// A position in a string, moved by whole UTF-8 characters. It does not keep the
    /// string alive, and any change of the string invalidates it unless the changing
    /// operation says it moves the iterator. Stepping forward stops at the end; one
    /// step back from the first character reaches the sentinel (which reads as 0), and
    /// further steps back come back to the first character.
    class OSAL_KIT_API const_iterator {
    public:
        /// An iterator that points nowhere; only assignment and comparison are valid.
        const_iterator();

        /// The code point at the position; 0 at the end or on the sentinel. The lead
        /// byte and the bytes after it are decoded as they stand; nothing past the first
        /// NUL after the position is read, that NUL and anything beyond it giving zero
        /// bits (so "\xC3" before the terminator decodes as 0xC0).
        unsigned int operator*() const;
        ///@{
        /// One character forward, stopping at the end.
        const_iterator& operator++();
        const_iterator operator++(int);
        ///@}
        ///@{
        /// One character back; from the first character to the sentinel, and from the
        /// sentinel to the first character again.
        const_iterator& operator--();
        const_iterator operator--(int);
        ///@}
        /// Moves `steps` characters, backward when negative.
        const_iterator& operator+=(int steps);
        /// A copy moved `steps` characters.
        const_iterator operator+(int steps) const;

        ///@{
        /// The same byte position.
        bool operator==(const const_iterator& other) const { return mPosition == other.mPosition; }
        bool operator!=(const const_iterator& other) const { return mPosition != other.mPosition; }
        ///@}

        /// The byte the iterator points at (inside the string's text, its terminator or its sentinel).
        const char* getPosition() const { return mPosition; }

    private:
        friend class CString;
        friend OSAL_KIT_API int operator-(const const_iterator& a, const const_iterator& b);
        explicit const_iterator(const char* position);
        void incrementSteps(const char** position, int steps) const;

        const char* mPosition;
    };

    /// The empty string; shares the static empty block.
    CString();
    /// `text` validated as UTF-8 up to its NUL; null gives the empty string.
    CString(const char* text);
    /// The longest valid UTF-8 prefix of `byteCount` bytes; null gives the empty string.
    /// A NUL inside the range is an ordinary character.
    CString(const char* text, unsigned int byteCount);
    /// An empty string with a private block of `capacity` bytes; a capacity of
    /// 0xFFFFFFEC or more is ignored and the string stays on the static empty block.
    explicit CString(unsigned int capacity);
    /// Shares `other`'s block.
    CString(const CString& other);
    /// Code points up to the first 0 element; null gives the empty string.
    explicit CString(const unsigned int* text);
    /// Code points of [first, last); a null pointer gives the empty string.
    CString(const unsigned int* first, const unsigned int* last);
    ~CString();

    /// Shares `other`'s block (nothing happens when both already share one).
    CString& operator=(const CString& other);
    /// As `operator=(CString(text))`.
    CString& operator=(const char* text);

    /// Exchanges the contents; afterwards neither string shares its block with a third.
    void swap(CString& other);
    /// Makes room for `capacity` bytes of text (exactly that much when it grows).
    void reserve(unsigned int capacity);

    /// Replaces the content with `count` UTF-16 units, each encoded on its own
    /// (surrogates become three-byte sequences, unpaired).
    void fromUCS2Sequence(const unsigned short* units, unsigned int count);
    /// Replaces the content with up to `count` code points, ending at the first of
    /// 0x80000000 or more.
    void fromUCS4Sequence(const unsigned int* codePoints, unsigned int count);
    /// Replaces the content with the code points of [first, last), ending at the first
    /// of 0x80000000 or more; a null pointer gives the empty string.
    void fromWCharSequence(const unsigned int* first, const unsigned int* last);

    /// The code point at character `index` (an O(n) walk); 0 at or past the end.
    unsigned int operator[](unsigned int index) const;

    /// Characters in the string.
    unsigned int getLength() const { return mpData->mNumChars; }
    /// Bytes of text, without the terminator.
    unsigned int getSize() const { return mpData->mByteLength; }
    /// No characters.
    bool isEmpty() const { return mpData->mNumChars == 0; }
    /// The NUL-terminated UTF-8 text; valid until the string is next changed or destroyed.
    const char* getBuffer() const { return mpData->mText; }
    /// The first character's position (the end's, for an empty string).
    const_iterator begin() const { return const_iterator(mpData->mText); }
    /// The position of the terminator, one past the last character.
    const_iterator end() const { return const_iterator(mpData->mText + mpData->mByteLength); }

    ///@{
    /// Equal character counts and equal text up to the first NUL.
    bool operator==(const CString& other) const;
    bool operator!=(const CString& other) const { return !(*this == other); }
    ///@}

    /// Adds `text` at the end; the string may be `text` itself (the text is then doubled).
    /// An empty `text` changes nothing, not even the sharing.
    CString& append(const CString& text);
    /// Adds the longest valid UTF-8 prefix of the NUL-terminated `text`; null or ""
    /// changes nothing.
    CString& append(const char* text);
    /// Adds `byteCount` bytes that the caller guarantees to be whole UTF-8 sequences. Only
    /// lead bytes are looked at: a byte that cannot start a sequence, or a sequence that
    /// would run past `byteCount`, ends the append there. Null `text`, a first byte of 0
    /// or a `byteCount` of 0 changes nothing.
    CString& append(const char* text, unsigned int byteCount);
    /// As `append(text)`.
    CString& operator+=(const CString& text) { return append(text); }
    /// As `append(text)`: the validated prefix of a NUL-terminated text.
    CString& operator+=(const char* text) { return append(text); }
    /// A copy of this string with `text` appended; this string is unchanged.
    CString operator+(const CString& text) const;

    /// Inserts `text` before the character at `position` (`end()` appends) and moves
    /// `position` to the first inserted character. Nothing happens, and `position` is
    /// kept, when `text` is empty or `position` is not the start of a character of this
    /// string (another string's iterator, a stale one, one out of range).
    CString& insert(const_iterator& position, const CString& text);
    /// Removes up to `count` characters from `position`, stopping at the end or at a NUL
    /// character, and leaves `position` at the same character index (the character now
    /// there, or `end()`). An iterator that is not the start of a character of this
    /// string changes nothing.
    CString& remove(const_iterator& position, unsigned int count);
    /// Replaces up to `count` characters from `position` (clipped as `remove` clips)
    /// with `text` and moves `position` to the first character of `text`. A `count` of 0
    /// inserts; at `end()` with a non-zero `count` nothing happens, as for an iterator
    /// that is not the start of a character of this string. `text` may be this string.
    CString& replace(const_iterator& position, unsigned int count, const CString& text);
    /// Replaces every occurrence of `what` by `with`, left to right without overlaps;
    /// replacement text is not searched again. An empty `what` replaces nothing. Either
    /// argument may be this string. Out of memory part-way, the string stays as it was.
    ///
    ///     PAL::CString path("a/b/c");
    ///     path.replaceAll("/", "::");            // "a::b::c"
    CString& replaceAll(const CString& what, const CString& with);
    /// Replaces the placeholder with the lowest digit ("%0" to "%9"; the first of equal
    /// ones) by `arg`. Digits are not combined ("%12" is "%1" then "2"), a "%" at the end
    /// or before a non-digit is plain text; without a placeholder nothing changes.
    ///
    ///     PAL::CString line("%2 of %1");
    ///     line.replaceArg("10").replaceArg("3"); // "3 of 10"
    CString& replaceArg(const CString& arg);

    /// Cuts the string before the character at `position` (a position inside a character
    /// keeps that character). `position` outside [begin(), end()) changes nothing.
    void truncate(const const_iterator& position);
    /// Keeps the first `count` characters; nothing happens when `count >= getLength()`.
    void truncate(unsigned int count);

    /// The first `count` characters (all of them when there are fewer).
    CString getLeft(unsigned int count) const;
    /// The characters before `position` (with the character that `position` is inside,
    /// if any); empty for a position outside [begin(), end()].
    CString getLeft(const const_iterator& position) const;
    /// Up to `count` characters from the character at (or containing) `position`; empty
    /// for a `count` of 0 or a position outside [begin(), end()).
    CString getMid(const const_iterator& position, unsigned int count) const;
    /// The last `count` characters (all of them when there are fewer).
    CString getRight(unsigned int count) const;
    /// The characters from `position` to the end, starting at the first byte of the
    /// character that `position` is in; empty for a position outside [begin(), end()].
    CString getRight(const const_iterator& position) const;

    /// The first occurrence of `what`, or `end()`.
    const_iterator find(const CString& what) const;
    /// The first occurrence of `what` at or after `from`, or `end()`.
    const_iterator find(const CString& what, const const_iterator& from) const;
    /// The nearest occurrence of `what` from `from` on, forward or backward (backward
    /// from `end()` finds the last one). Matches start on character boundaries, compare
    /// bytes exactly and never run past the end; a NUL character ends the search.
    /// `end()` when nothing is found, `what` is empty or `from` is out of range.
    const_iterator findString(const_iterator from, const CString& what, bool forward) const;

    /// Removes leading and trailing space, tab, line feed, vertical tab, form feed and
    /// carriage return (no other spaces, so U+00A0 stays).
    CString& trim();

    /// Replaces the content with printf-style output made in a 257-byte buffer. Output
    /// beyond 256 bytes is cut there and then back to the last whole UTF-8 sequence, and
    /// the result is false; a formatting error gives false and the empty string. A null
    /// `formatText`, or no memory for the text, gives false and changes nothing.
    ///
    ///     PAL::CString name;
    ///     name.format("worker-%u", index);
    bool format(const char* formatText, ...);
    /// As `format`, through the caller's `buffer` of `bufferSize` bytes, which holds the
    /// (NUL-terminated) output afterwards as well. A null `buffer` or a `bufferSize` of 0
    /// gives false and changes nothing.
    bool strprintf(char* buffer, unsigned int bufferSize, const char* formatText, ...);
    /// The worker of `format` and `strprintf`, for callers with their own argument list.
    bool doFormat(char* buffer, unsigned int bufferSize, const char* formatText, va_list arguments);

    /// Writes the Ipc form of `text`: `align(4)` on the stream, the byte length as 4
    /// bytes, the UTF-8 bytes and a 0 byte. Returns `stream`. The plain `<<` / `>>`
    /// forms are in core/StringStream.h; the two forms do not read each other.
    static IOStream& toIpcStream(IOStream& stream, const CString& text);
    /// Reads the Ipc form into `text`: `align(4)`, a length n, then n + 1 bytes in one
    /// read; the text ends at the first 0 byte (byte n is taken as 0 whatever it holds)
    /// and is cut at the first invalid UTF-8 sequence. Bytes the stream does not deliver
    /// count as 0. `text` is unchanged when memory cannot be had or n is 0xFFFFFFFF.
    /// Returns `stream`.
    static const IIStream& fromIpcStream(const IIStream& stream, CString& text);

    /// The shared empty block: count 2 at the start so it never counts as unshared;
    /// never written, never freed.
    static SStringData nullData;
    /// An empty string on `nullData`.
    static const CString null;

private:
    // The case mapping rewrites a whole text in one pass instead of character by
    // character through `replace`.
    friend class StringUtilities::CCaseMappingEngine;

    struct NullTag {};
    // Constant-initialised, so `null` is usable from any constructor of the process.
    constexpr explicit CString(NullTag) : mpData(&nullData) {}

    bool addReference(bool forWrite, unsigned int capacity);
    void removeReference();
    void charConstruct(const char* text, unsigned int byteCount);
    bool isShared() const;
    bool encodeCodePoints(const unsigned int* codePoints, unsigned int count, unsigned int minimumCapacity);

    bool holds(const char* p) const;
    bool characterStart(const const_iterator& position, unsigned int& offset) const;
    unsigned int walk(unsigned int offset, unsigned int maxChars, bool stopAtNul, unsigned int& chars) const;
    unsigned int locate(unsigned int target, bool wholeCharacter, unsigned int& index) const;
    bool appendBytes(const char* bytes, unsigned int byteCount, unsigned int charCount);
    bool insertText(const_iterator& position, const CString& text);
    bool replaceText(const_iterator& position, unsigned int count, const CString& text);
    void cutAt(unsigned int byteLength, unsigned int charCount);
    static CString fromBytes(const char* bytes, unsigned int byteCount, unsigned int charCount);
    static SStringData* newBlock(unsigned int capacity);

    SStringData* mpData;
};

/// Characters from `b` to `a`, negative when `a` lies before `b`. Both must point into
/// the same, unchanged string (anything else gives no meaningful count).
OSAL_KIT_API int operator-(const CString::const_iterator& a, const CString::const_iterator& b);

/// A hash of the text up to its first NUL: h = 5 * h + (signed char)byte, from 0, in
/// 32-bit arithmetic. "abc" hashes to 3014. Reads only, so any thread may call it on a
/// string no other thread is writing.
OSAL_KIT_API unsigned int getHashValueForString(const CString& s);

} // namespace PAL

#endif
