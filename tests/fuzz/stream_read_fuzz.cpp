// The byte forms of numbers, dates, blocks and buffers. Every `>>` over a memory stream
// of outside bytes, in an order chosen by the input, is checked against a model of the
// stream (position, failure) and of what the operator leaves in its target; length
// fields may lie. The other half checks the bytes `<<` writes for values from the input.

#include "FuzzSupport.h"

#include "core/DateAndTime.h"
#include "core/MemoryStream.h"

using PAL::CBuffer;
using PAL::CRCMemoryBuffer;

namespace {

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

template <class T>
std::string raw(T value) { return std::string(reinterpret_cast<const char*>(&value), sizeof value); }

// The memory stream as the operators should see it: a read of more than is left
// delivers nothing (the target keeps `otherwise`) and fails the stream for good,
// leaving it at the end.
struct Model {
    std::string bytes;
    size_t pos = 0;
    bool good = true;

    std::string take(size_t n, std::string otherwise)
    {
        if (n > bytes.size() - pos) {
            pos = bytes.size();
            good = false;
            return otherwise;
        }
        pos += n;
        return bytes.substr(pos - n, n);
    }
    // What a block read leaves in a target holding `old`: zeros where the stream ran
    // short. A length beyond 64 KiB that the stream does not hold gets no memory: the
    // target stays as it was.
    std::string block(const std::string& old)
    {
        unsigned int n = 0;
        std::memcpy(&n, take(4, raw(0u)).data(), 4);
        return n > 0x10000u && n > bytes.size() - pos ? old : take(n, std::string(n, '\0'));
    }
};

void readSequence(osal_kit_fuzz::Input& in)
{
    const std::string ops = in.bytes(in.byte() % 8);
    Model model{in.rest()};
    const PAL::CMemoryIStream stream(bufferOf(model.bytes));
    for (const char op : ops) {
        const unsigned int code = static_cast<uint8_t>(op), alignment = code >> 4;
        unsigned int u = 0xA5A5A5A5u;
        unsigned long long ull = ~0ull / 3;
        PAL::CDateAndTime when(12345);
        char c = 'q';
        CRCMemoryBuffer block = bufferOf("old", 1).getMemoryBuffer();
        CBuffer buffer = bufferOf("older", 4u);
        const CRCMemoryBuffer blockCopy(block);
        const CBuffer bufferCopy(buffer);
        switch (code % 7) {
        case 0: stream >> u; FUZZ_CHECK(raw(u) == model.take(4, raw(0xA5A5A5A5u))); break;
        case 1: stream >> ull; FUZZ_CHECK(raw(ull) == model.take(8, raw(~0ull / 3))); break;
        case 2: stream >> when; FUZZ_CHECK(raw(when.getMicroseconds()) == model.take(8, raw(12345ull))); break;
        case 3: stream >> block; FUZZ_CHECK(bytesOf(CBuffer(block)) == model.block("old")); break;
        case 4: stream >> buffer; FUZZ_CHECK(bytesOf(buffer) == model.block("older")); break;
        case 5: stream.read(&c, 1); FUZZ_CHECK(std::string(1, c) == model.take(1, "q")); break;
        default: stream.align(alignment); model.take(alignment > 1 ? (alignment - model.pos % alignment) % alignment : 0, "");
        }
        FUZZ_CHECK(bytesOf(CBuffer(blockCopy)) == "old" && bytesOf(bufferCopy) == "older" && buffer.getBlockSize() == 4u);
        FUZZ_CHECK(stream.getPosition() == model.pos && stream.isGood() == model.good
                   && stream.getAvailable() == model.bytes.size() - model.pos);
    }
}

// Values from the input written with `<<`: host byte order, no tags, no padding but the
// zeros align adds; a block is its capacity and bytes, a buffer its whole block.
void writeSequence(osal_kit_fuzz::Input& in)
{
    const unsigned int u = in.u32();
    const unsigned long long ull = static_cast<unsigned long long>(in.u32()) << 32 | in.u32();
    const char c = static_cast<char>(in.byte());
    const CRCMemoryBuffer block = bufferOf(in.text(), 1).getMemoryBuffer();
    const unsigned int blockSize = in.byte() % 20;
    const CBuffer buffer = bufferOf(in.text(), blockSize);
    PAL::CMemoryOStream out(1u + in.byte() % 16);
    const unsigned int alignment = in.byte(), padded = alignment > 1 ? (12 + alignment) / alignment * alignment : 13;
    out << u << c << PAL::CDateAndTime(ull);
    FUZZ_CHECK(out.align(alignment) && out.getPosition() == padded);
    out << block << buffer;
    const std::string expected = (raw(u) + c + raw(ull)).append(padded - 13, '\0') + raw(block.getCapacity())
        + bytesOf(CBuffer(block)) + raw(buffer.getCapacity()) + bytesOf(CBuffer(buffer.getMemoryBuffer()));
    FUZZ_CHECK(out.isGood() && bytesOf(out.getBuffer()) == expected);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    osal_kit_fuzz::Input in(data, size);
    (in.byte() & 1) ? writeSequence(in) : readSequence(in);
    return 0;
}
