#include "core/StringStream.h"

#include "core/private/StreamLength.h"

#include <cstring>
#include <new>

namespace PAL {

namespace {

// Reads a length n and the text behind it (with its terminator byte in the Ipc form)
// into `text`. Nothing is assigned when no memory can be had, neither for the bytes nor
// for the string.
void readText(const IIStream& stream, CString& text, bool withTerminator)
{
    unsigned int n = 0;
    stream >> n;
    // n + 1 would wrap to 0; and a length far beyond what the stream holds would have a
    // few bytes of input claim gigabytes. Both are treated as no memory for the text.
    if (n == 0xFFFFFFFFu || StreamLength::beyondStream(stream, n)) {
        return;
    }
    char* bytes = new (std::nothrow) char[n + 1u];
    if (bytes == 0) {
        return;
    }
    // Whatever the stream does not deliver reads as 0, never as stale memory.
    std::memset(bytes, 0, n + 1u);
    if (withTerminator) {
        stream.read(bytes, n + 1u);
    } else if (n != 0) {
        stream.read(bytes, n);
    }
    bytes[n] = 0;
    const CString read(bytes);
    delete[] bytes;
    // A string built from a text always gets a block of its own, even for "": still
    // being on the shared empty block means there was no memory for it.
    if (read.getBuffer() == CString::nullData.mText) {
        return;
    }
    text = read;
}

} // namespace

IOStream& operator<<(IOStream& stream, const CString& text)
{
    const unsigned int n = text.getSize();
    stream << n;
    stream.write(text.getBuffer(), n);
    return stream;
}

const IIStream& operator>>(const IIStream& stream, CString& text)
{
    readText(stream, text, false);
    return stream;
}

IOStream& CString::toIpcStream(IOStream& stream, const CString& text)
{
    stream.align(4u);
    const unsigned int n = text.getSize();
    stream << n;
    stream.write(text.getBuffer(), n);
    const char terminator = 0;
    stream << terminator;
    return stream;
}

const IIStream& CString::fromIpcStream(const IIStream& stream, CString& text)
{
    stream.align(4u);
    readText(stream, text, true);
    return stream;
}

} // namespace PAL
