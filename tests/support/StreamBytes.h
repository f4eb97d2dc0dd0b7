// Byte streams for tests: the bytes a value writes, streams built from byte arrays, and
// hand-made streams that log their calls or deliver only part of what is asked.
#ifndef OSAL_KIT_TEST_STREAM_BYTES_H
#define OSAL_KIT_TEST_STREAM_BYTES_H

#include "core/Buffer.h"
#include "core/MemoryStream.h"
#include "core/Stream.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace osal_kit_test {

using Bytes = std::vector<unsigned char>;

inline Bytes bytesOf(const PAL::CBuffer& buffer)
{
    Bytes out(buffer.getSize());
    if (!out.empty()) {
        buffer.copyFrom(out.data(), static_cast<unsigned int>(out.size()), 0);
    }
    return out;
}

inline PAL::CBuffer bufferOf(const Bytes& bytes)
{
    PAL::CBuffer buffer;
    if (!bytes.empty()) {
        buffer.copyTo(bytes.data(), static_cast<unsigned int>(bytes.size()), 0);
    }
    return buffer;
}

/// What `value` writes with its `<<` operator into a memory stream.
template <class T>
Bytes written(const T& value)
{
    PAL::CMemoryOStream out;
    out << value;
    return bytesOf(out.getBuffer());
}

/// Serves `bytes` but delivers only the part of a read that is left (a short read
/// fills a prefix of the destination), and logs alignment requests.
class ShortReadIStream : public PAL::IIStream {
public:
    explicit ShortReadIStream(Bytes content) : bytes(std::move(content)) {}
    unsigned int getPosition() const override { return position; }
    unsigned int getAvailable() const override { return static_cast<unsigned int>(bytes.size()) - position; }
    bool isGood() const override { return true; }
    bool align(unsigned int alignment) const override
    {
        aligns.push_back(alignment);
        return true;
    }
    unsigned int readBytes(void* dst, unsigned int n) const override
    {
        const unsigned int given = n < getAvailable() ? n : getAvailable();
        if (given != 0) {
            std::memcpy(dst, bytes.data() + position, given);
        }
        position += given;
        return given;
    }

    Bytes bytes;
    mutable unsigned int position = 0;
    mutable std::vector<unsigned int> aligns;
};

} // namespace osal_kit_test

#endif
