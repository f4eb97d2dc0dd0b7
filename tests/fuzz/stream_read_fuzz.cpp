// Every `>>` of the library over a memory stream of outside bytes, in an order chosen
// by the input, each checked against a model of the stream (position, failure) and of
// what the operator leaves in its target; length fields may lie. The other half writes
// values taken from the input with `<<` and reads them back.

#include "FuzzSupport.h"

#include "core/Buffer.h"
#include "core/DateAndTime.h"
#include "core/MemoryStream.h"
#include "core/StringStream.h"

using PAL::CBuffer;
using PAL::CRCMemoryBuffer;
using PAL::CString;

namespace {

using osal_kit_fuzz::bytesOf;

CBuffer bufferOf(const std::string& bytes, unsigned int blockSize = CBuffer::DEFAULT_BLOCK_SIZE)
{
    CBuffer buffer(0u, blockSize);
    FUZZ_CHECK(buffer.copyTo(bytes.data(), static_cast<unsigned int>(bytes.size()), 0) == bytes.size());
    return buffer;
}

std::string bytesOf(const CBuffer& buffer)
{
    std::string out(buffer.getSize(), '\0');
    FUZZ_CHECK(buffer.copyFrom(&out[0], buffer.getSize(), 0) == buffer.getSize());
    return out;
}

std::string bytesOf(const CRCMemoryBuffer& block)
{
    FUZZ_CHECK((block.getBuffer() == nullptr) == (block.getCapacity() == 0));
    return bytesOf(CBuffer(block));
}

// A string read holds the text up to a 0 byte, cut at the first sequence not whole.
std::string accepted(const std::string& bytes)
{
    const std::string upToNul = bytes.substr(0, bytes.find('\0'));
    unsigned int chars = 0;
    return upToNul.substr(0, osal_kit_fuzz::acceptedPrefix(upToNul, chars));
}

// The memory stream as the operators should see it: a read of more than is left
// delivers nothing and fails the stream for good, leaving it at the end.
struct Model {
    std::string bytes;
    size_t pos = 0;
    bool good = true;

    bool take(size_t n, std::string& out)
    {
        if (n > bytes.size() - pos) {
            pos = bytes.size();
            return good = false;
        }
        out = bytes.substr(pos, n);
        pos += n;
        return true;
    }
    template <class T>
    T read(T value)
    {
        std::string raw;
        if (take(sizeof(T), raw))
            std::memcpy(&value, raw.data(), sizeof(T));
        return value;
    }
    void align(unsigned int alignment)
    {
        std::string skipped;
        if (alignment > 1)
            take((alignment - pos % alignment) % alignment, skipped);
    }
    // A length beyond 64 KiB that the stream does not hold gets no memory: the target
    // stays as it was.
    bool believable(unsigned int n) const { return n <= 0x10000u || n <= bytes.size() - pos; }
    // What a block read leaves in a target holding `old`: zeros where the stream ran short.
    std::string block(std::string old)
    {
        const unsigned int n = read(0u);
        if (believable(n) && !take(n, old))
            old.assign(n, '\0');
        return old;
    }
    // What a string read leaves in a target holding "before".
    std::string text(bool ipc)
    {
        if (ipc)
            align(4);
        const unsigned int n = read(0u);
        std::string raw = "before";
        if (n != 0xFFFFFFFFu && believable(n))
            raw = take(static_cast<size_t>(n) + ipc, raw) ? accepted(raw.substr(0, n)) : "";
        return raw;
    }
};

void readSequence(osal_kit_fuzz::Input& in)
{
    const std::string ops = in.bytes(in.byte() % 8);
    Model model;
    model.bytes = in.rest();
    const PAL::CMemoryIStream stream(bufferOf(model.bytes));
    for (const char op : ops) {
        const unsigned int code = static_cast<uint8_t>(op);
        unsigned int u = 0xA5A5A5A5u;
        unsigned long long ull = ~0ull / 3;
        PAL::CDateAndTime when(12345);
        char c = 'q';
        CString text("before");
        CRCMemoryBuffer block = bufferOf("old", 1).getMemoryBuffer();
        CBuffer buffer = bufferOf("older", 4u);
        const CString textCopy(text);
        const CRCMemoryBuffer blockCopy(block);
        const CBuffer bufferCopy(buffer);
        switch (code % 9) {
        case 0: stream >> u; FUZZ_CHECK(u == model.read(0xA5A5A5A5u)); break;
        case 1: stream >> ull; FUZZ_CHECK(ull == model.read(~0ull / 3)); break;
        case 2: stream >> when; FUZZ_CHECK(when.getMicroseconds() == model.read(12345ull)); break;
        case 3: stream >> text; FUZZ_CHECK(bytesOf(text) == model.text(false)); break;
        case 4: CString::fromIpcStream(stream, text); FUZZ_CHECK(bytesOf(text) == model.text(true)); break;
        case 5: stream >> block; FUZZ_CHECK(bytesOf(block) == model.block("old")); break;
        case 6: stream >> buffer; FUZZ_CHECK(bytesOf(buffer) == model.block("older")); break;
        case 7: stream.read(&c, 1); FUZZ_CHECK(c == model.read('q')); break;
        default: stream.align(code >> 4); model.align(code >> 4); break;
        }
        osal_kit_fuzz::checkString(text);
        FUZZ_CHECK(bytesOf(textCopy) == "before" && bytesOf(blockCopy) == "old" && bytesOf(bufferCopy) == "older");
        FUZZ_CHECK(buffer.getBlockSize() == 4u && stream.getPosition() == model.pos && stream.isGood() == model.good);
        FUZZ_CHECK(stream.getAvailable() == model.bytes.size() - model.pos);
    }
}

template <class T>
std::string raw(T value)
{
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

// Values from the input, written with `<<` and read back with `>>` in the same order.
void roundTrip(osal_kit_fuzz::Input& in)
{
    const unsigned int u = in.u32();
    const unsigned long long ull = static_cast<unsigned long long>(in.u32()) << 32 | in.u32();
    const char c = static_cast<char>(in.byte());
    const std::string plain = in.text(), ipc = in.text(), blockBytes = in.text();
    const unsigned int blockSize = in.byte() % 20;
    const CBuffer buffer = bufferOf(in.text(), blockSize);
    PAL::CMemoryOStream out(1u + in.byte() % 16);
    const unsigned int alignment = in.byte();
    const CRCMemoryBuffer block = bufferOf(blockBytes, 1).getMemoryBuffer();
    // Host byte order, no tags, no padding but what align adds: zeros.
    out << u << c << PAL::CDateAndTime(ull);
    FUZZ_CHECK(out.align(alignment) && out.getPosition() == (alignment > 1 ? (13 + alignment - 1) / alignment * alignment : 13));
    const unsigned int padded = out.getPosition();
    FUZZ_CHECK(bytesOf(out.getBuffer()) == (raw(u) + c + raw(ull)).append(padded - 13, '\0'));
    out << CString(plain.data(), static_cast<unsigned int>(plain.size()));
    CString::toIpcStream(out, CString(ipc.data(), static_cast<unsigned int>(ipc.size())));
    out << block << buffer;
    const PAL::CMemoryIStream back(out.getBuffer());
    unsigned int u2 = ~u;
    char c2 = static_cast<char>(~c);
    PAL::CDateAndTime when;
    CString plain2("x"), ipc2("y");
    CRCMemoryBuffer block2;
    CBuffer buffer2;
    back >> u2;
    back.read(&c2, 1);
    back >> when;
    FUZZ_CHECK(back.align(alignment) && back.getPosition() == padded);
    back >> plain2;
    CString::fromIpcStream(back, ipc2);
    back >> block2 >> buffer2;
    FUZZ_CHECK(out.isGood() && back.isGood() && back.getAvailable() == 0 && u2 == u && c2 == c);
    FUZZ_CHECK(when.getMicroseconds() == ull && block2 == block);
    // Strings come back up to a 0 byte, which the text form cannot carry; a buffer
    // travels as its whole block: the used bytes, then the block's zeros.
    FUZZ_CHECK(bytesOf(plain2) == accepted(plain) && bytesOf(ipc2) == accepted(ipc));
    FUZZ_CHECK(bytesOf(buffer2) == bytesOf(buffer) + std::string(buffer.getCapacity() - buffer.getSize(), '\0'));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    osal_kit_fuzz::Input in(data, size);
    (in.byte() & 1) ? roundTrip(in) : readSequence(in);
    return 0;
}
