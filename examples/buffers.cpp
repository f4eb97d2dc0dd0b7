// Buffers and streams: a growable byte buffer whose copies share their bytes until
// one writes, and the byte-stream forms of numbers, dates, strings and buffers, written
// to and read back from memory.

#include "core/Buffer.h"
#include "core/DateAndTime.h"
#include "core/MemoryStream.h"
#include "core/String.h"
#include "core/StringStream.h"

#include <cstdio>

namespace {

void dump(const char* what, const PAL::CBuffer& bytes)
{
    std::printf("%s (%u bytes):", what, bytes.getSize());
    const unsigned char* data = static_cast<const unsigned char*>(bytes.getMemoryBuffer().getBuffer());
    for (unsigned int i = 0; i < bytes.getSize(); ++i) {
        std::printf(" %02X", data[i]);
    }
    std::printf("\n");
}

PAL::CString text(const PAL::CBuffer& buffer)
{
    char bytes[64] = {0};
    const unsigned int copied = buffer.copyFrom(bytes, sizeof bytes - 1, 0);
    return PAL::CString(bytes, copied);
}

void buffers()
{
    std::printf("-- a buffer and its copies --\n");
    PAL::CBuffer message;
    message.copyTo("abc", 3, 0);
    std::printf("size %u, capacity %u (whole blocks of %u)\n", message.getSize(), message.getCapacity(),
                message.getBlockSize());
    message.copyTo("defghijklmnopqrstu", 18, 3);
    std::printf("after 18 more bytes: size %u, capacity %u\n", message.getSize(), message.getCapacity());

    PAL::CBuffer copy = message;
    const bool shared = copy.getMemoryBuffer().getBuffer() == message.getMemoryBuffer().getBuffer();
    copy.copyTo("XYZ", 3, 0);
    std::printf("copy shared the bytes: %s; after writing, copy \"%s\", original \"%s\"\n", shared ? "yes" : "no",
                text(copy).getBuffer(), text(message).getBuffer());

    message.resize(2);
    std::printf("resized to 2: \"%s\", capacity %u\n", text(message).getBuffer(), message.getCapacity());

    // Refusals come back as 0 and leave the buffer as it was.
    const unsigned int written = message.copyTo(0, 4, 0);
    char byte = 0;
    const unsigned int read = message.copyFrom(&byte, 1, message.getSize());
    std::printf("write from a null pointer: %u bytes; read at the end: %u bytes; size still %u\n", written, read,
                message.getSize());
}

void streams()
{
    std::printf("-- byte streams --\n");
    PAL::CMemoryOStream out;
    const unsigned int count = 7u;
    const PAL::CDateAndTime when(PAL::CDateAndTime::SDate(1969, 1, 2), PAL::CDateAndTime::STime(), 0);
    out << count << PAL::CString("hé") << when;
    dump("count, string, date", out.getBuffer());

    PAL::CMemoryIStream in(out.getBuffer());
    unsigned int readCount = 0;
    PAL::CString readText;
    PAL::CDateAndTime readWhen;
    in >> readCount >> readText >> readWhen;
    std::printf("read back: %u, \"%s\", %llu microseconds; %u bytes left, stream good: %s\n", readCount,
                readText.getBuffer(), readWhen.getMicroseconds(), in.getAvailable(), in.isGood() ? "yes" : "no");

    // Reading past the end delivers nothing, leaves the target alone and fails the stream.
    unsigned int missing = 42;
    in >> missing;
    std::printf("one more number: still %u, stream good: %s\n", missing, in.isGood() ? "yes" : "no");
}

void ipcForm()
{
    std::printf("-- the Ipc form of a string --\n");
    // Aligned to 4 and terminated, for records read by other components in place.
    PAL::CMemoryOStream out;
    out << 'x';
    PAL::CString::toIpcStream(out, "ok");
    dump("a byte, then \"ok\"", out.getBuffer());

    PAL::CMemoryIStream in(out.getBuffer());
    char tag = 0;
    in.read(&tag, 1);
    PAL::CString name;
    PAL::CString::fromIpcStream(in, name);
    std::printf("read back: '%c', \"%s\"\n", tag, name.getBuffer());
}

void bufferStream()
{
    std::printf("-- a buffer in a stream --\n");
    PAL::CBuffer payload(3, 4);
    payload.copyTo("abc", 3, 0);
    PAL::CMemoryOStream out;
    out << payload;
    // The whole block goes out, including the byte past the used size.
    dump("3 bytes in a 4-byte block", out.getBuffer());

    PAL::CMemoryIStream in(out.getBuffer());
    PAL::CBuffer copy;
    in >> copy;
    std::printf("read back: %u bytes (the whole block), equal to the payload's block: %s\n", copy.getSize(),
                copy.getMemoryBuffer() == payload.getMemoryBuffer() ? "yes" : "no");
}

} // namespace

int main()
{
    std::printf("== Buffers and streams ==\n");
    buffers();
    streams();
    ipcForm();
    bufferStream();
    return 0;
}
