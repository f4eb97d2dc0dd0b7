// Every `>>` of the library over a memory stream of outside bytes, in an order chosen
// by the input, each checked against a model of the stream (position, failure) and of
// what the operator leaves in its target; length fields may lie. The other half writes
// values taken from the input with `<<` and reads them back.

#include "FuzzSupport.h"

#include "core/Buffer.h"
#include "core/DateAndTime.h"
#include "core/MemoryStream.h"
#include "core/RCMemoryBuffer.h"
#include "core/StringStream.h"

#include <vector>

using osal_kit_fuzz::Input;
using PAL::CBuffer;
using PAL::CDateAndTime;
using PAL::CRCMemoryBuffer;
using PAL::CString;

namespace {

// Records longer than this are allocated for only when the stream says it holds them.
const unsigned int sTrustedLength = 0x10000u;

CBuffer bufferOf(const std::string& bytes, unsigned int blockSize = CBuffer::DEFAULT_BLOCK_SIZE)
{
    CBuffer buffer(0u, blockSize);
    if (!bytes.empty()) {
        FUZZ_CHECK(buffer.copyTo(bytes.data(), static_cast<unsigned int>(bytes.size()), 0) == bytes.size());
    }
    return buffer;
}

std::string bytesOf(const CRCMemoryBuffer& block)
{
    if (block.getBuffer() == nullptr) {
        FUZZ_CHECK(block.getCapacity() == 0);
        return std::string();
    }
    return std::string(static_cast<const char*>(block.getBuffer()), block.getCapacity());
}

std::string bytesOf(const CBuffer& buffer)
{
    std::string out(buffer.getSize(), '\0');
    if (!out.empty()) {
        FUZZ_CHECK(buffer.copyFrom(&out[0], buffer.getSize(), 0) == buffer.getSize());
    }
    return out;
}

std::string acceptedUpToNul(const std::string& bytes)
{
    const std::string upToNul = bytes.substr(0, bytes.find('\0'));
    unsigned int chars = 0;
    return upToNul.substr(0, osal_kit_fuzz::acceptedPrefix(upToNul, chars));
}

// The memory stream as the operators should see it: a read of more than is left
// delivers nothing and fails the stream for good.
struct Model {
    std::string bytes;
    size_t pos = 0;
    bool good = true;

    size_t available() const { return bytes.size() - pos; }

    bool take(size_t n, std::string& out)
    {
        out.clear();
        if (n == 0) {
            return true;
        }
        if (n > available()) {
            pos = bytes.size();
            good = false;
            return false;
        }
        out = bytes.substr(pos, n);
        pos += n;
        return true;
    }

    unsigned int length()
    {
        std::string raw;
        if (!take(4, raw)) {
            return 0;
        }
        unsigned int n = 0;
        std::memcpy(&n, raw.data(), 4);
        return n;
    }

    void align(unsigned int alignment)
    {
        if (!good || alignment <= 1) {
            return;
        }
        const size_t rest = pos % alignment;
        const size_t skip = rest == 0 ? 0 : alignment - rest;
        if (skip > available()) {
            pos = bytes.size();
            good = false;
        } else {
            pos += skip;
        }
    }

    bool refusedLength(unsigned int n) const { return n > sTrustedLength && n > available(); }

    // What a string read leaves: `changed` false when the target stays as it was.
    std::string text(bool ipc, bool& changed)
    {
        changed = true;
        if (ipc) {
            align(4);
        }
        const unsigned int n = length();
        if (n == 0xFFFFFFFFu || refusedLength(n)) {
            changed = false;
            return std::string();
        }
        std::string raw;
        if (!take(ipc ? static_cast<size_t>(n) + 1 : n, raw)) {
            return std::string();
        }
        return acceptedUpToNul(raw.substr(0, n));
    }

    // What a block read leaves.
    std::string block(bool& changed)
    {
        changed = true;
        const unsigned int n = length();
        if (n != 0 && refusedLength(n)) {
            changed = false;
            return std::string();
        }
        std::string raw;
        if (!take(n, raw)) {
            return std::string(n, '\0');
        }
        return raw;
    }
};

void checkStream(const PAL::CMemoryIStream& stream, const Model& model)
{
    FUZZ_CHECK(stream.getPosition() == model.pos);
    FUZZ_CHECK(stream.isGood() == model.good);
    FUZZ_CHECK(stream.getAvailable() == model.available());
}

template <class T>
void readNumber(const PAL::CMemoryIStream& stream, Model& model, T initial)
{
    T value = initial;
    stream >> value;
    std::string raw;
    T expected = initial;
    if (model.take(sizeof(T), raw)) {
        std::memcpy(&expected, raw.data(), sizeof(T));
    }
    FUZZ_CHECK(value == expected);
}

void readSequence(Input& in)
{
    const unsigned int count = in.byte() % 8;
    std::vector<uint8_t> ops;
    for (unsigned int i = 0; i < count; ++i) {
        ops.push_back(in.byte());
    }
    Model model;
    model.bytes = in.rest();
    const PAL::CMemoryIStream stream(bufferOf(model.bytes));
    for (uint8_t op : ops) {
        switch (op % 9) {
        case 0:
            readNumber<unsigned int>(stream, model, 0xA5A5A5A5u);
            break;
        case 1:
            readNumber<unsigned long long>(stream, model, 0xA5A5A5A5A5A5A5A5ull);
            break;
        case 2: {
            CDateAndTime when(0x0123456789ABCDEFull);
            stream >> when;
            std::string raw;
            unsigned long long expected = 0x0123456789ABCDEFull;
            if (model.take(8, raw)) {
                std::memcpy(&expected, raw.data(), 8);
            }
            FUZZ_CHECK(when.getMicroseconds() == expected);
            break;
        }
        case 3:
        case 4: {
            const bool ipc = op % 9 == 4;
            CString text("before");
            const CString copy(text);
            if (ipc) {
                CString::fromIpcStream(stream, text);
            } else {
                stream >> text;
            }
            bool changed = true;
            const std::string expected = model.text(ipc, changed);
            osal_kit_fuzz::checkString(text);
            FUZZ_CHECK(osal_kit_fuzz::bytesOf(text) == (changed ? expected : std::string("before")));
            FUZZ_CHECK(osal_kit_fuzz::bytesOf(copy) == "before");
            break;
        }
        case 5: {
            CRCMemoryBuffer block(3u);
            std::memcpy(block.getBuffer(), "old", 3);
            const CRCMemoryBuffer copy(block);
            stream >> block;
            bool changed = true;
            const std::string expected = model.block(changed);
            FUZZ_CHECK(bytesOf(block) == (changed ? expected : std::string("old")));
            FUZZ_CHECK(bytesOf(copy) == "old");
            break;
        }
        case 6: {
            CBuffer buffer = bufferOf("older", 4u);
            const CBuffer copy(buffer);
            stream >> buffer;
            bool changed = true;
            const std::string expected = model.block(changed);
            FUZZ_CHECK(bytesOf(buffer) == (changed ? expected : std::string("older")));
            FUZZ_CHECK(buffer.getBlockSize() == 4u);
            FUZZ_CHECK(bytesOf(copy) == "older");
            break;
        }
        case 7: {
            char c = 'q';
            stream.read(&c, 1);
            std::string raw;
            FUZZ_CHECK(c == (model.take(1, raw) ? raw[0] : 'q'));
            break;
        }
        default: {
            const unsigned int alignment = op >> 4;
            stream.align(alignment);
            model.align(alignment);
            break;
        }
        }
        checkStream(stream, model);
    }
}

// Values from the input, written with `<<` and read back with `>>` in the same order.
void roundTrip(Input& in)
{
    const unsigned int u = in.u32();
    const unsigned long long ull = static_cast<unsigned long long>(in.u32()) << 32 | in.u32();
    const char c = static_cast<char>(in.byte());
    const CDateAndTime when(ull ^ 0x5555u);
    const std::string textBytes = in.text();
    const CString plain(textBytes.data(), static_cast<unsigned int>(textBytes.size()));
    const std::string ipcBytes = in.text();
    const CString ipc(ipcBytes.data(), static_cast<unsigned int>(ipcBytes.size()));
    const std::string blockBytes = in.text();
    CRCMemoryBuffer block(static_cast<unsigned int>(blockBytes.size()));
    if (!blockBytes.empty()) {
        std::memcpy(block.getBuffer(), blockBytes.data(), blockBytes.size());
    }
    const unsigned int blockSize = in.byte() % 20;
    const CBuffer buffer = bufferOf(in.text(), blockSize);

    PAL::CMemoryOStream out(1u + in.byte() % 16);
    out << u << ull << c << when << plain;
    CString::toIpcStream(out, ipc);
    out << block << buffer << c;
    FUZZ_CHECK(out.isGood());

    const PAL::CMemoryIStream back(out.getBuffer());
    unsigned int u2 = ~u;
    unsigned long long ull2 = ~ull;
    char c2 = static_cast<char>(~c);
    CDateAndTime when2;
    CString plain2("x");
    CString ipc2("y");
    CRCMemoryBuffer block2;
    CBuffer buffer2;
    back >> u2 >> ull2;
    back.read(&c2, 1);
    back >> when2 >> plain2;
    CString::fromIpcStream(back, ipc2);
    back >> block2 >> buffer2;
    FUZZ_CHECK(u2 == u && ull2 == ull && c2 == c);
    FUZZ_CHECK(when2.getMicroseconds() == when.getMicroseconds());
    // Strings come back up to a 0 byte, which the text form cannot carry.
    FUZZ_CHECK(osal_kit_fuzz::bytesOf(plain2) == acceptedUpToNul(osal_kit_fuzz::bytesOf(plain)));
    FUZZ_CHECK(osal_kit_fuzz::bytesOf(ipc2) == acceptedUpToNul(osal_kit_fuzz::bytesOf(ipc)));
    FUZZ_CHECK(block2 == block);
    // A buffer travels as its whole block: the used bytes, then the block's zeros.
    FUZZ_CHECK(buffer2.getSize() == buffer.getCapacity());
    const std::string sent = bytesOf(buffer);
    FUZZ_CHECK(bytesOf(buffer2) == sent + std::string(buffer.getCapacity() - buffer.getSize(), '\0'));
    char last = 0;
    back.read(&last, 1);
    FUZZ_CHECK(last == c);
    FUZZ_CHECK(back.isGood() && back.getAvailable() == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in(data, size);
    if (in.byte() & 1) {
        roundTrip(in);
    } else {
        readSequence(in);
    }
    return 0;
}
