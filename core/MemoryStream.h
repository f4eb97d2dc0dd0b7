#ifndef OSAL_KIT_CORE_MEMORYSTREAM_H
#define OSAL_KIT_CORE_MEMORYSTREAM_H

#include "core/Buffer.h"
#include "core/Export.h"
#include "core/Stream.h"

namespace PAL {

/// An output stream that appends to a `CBuffer` it owns.
///
/// Every write appends at the end; `align(a)` appends 0 bytes until the position is a
/// multiple of `a` (0 and 1 align to nothing). A write or alignment that cannot get
/// memory (or would pass 4 GiB) fails the stream: `isGood()` turns false for good and
/// every later write or alignment is refused (returns 0 / false), so what was written
/// stays a clean prefix. `flush` has nothing to hand on and reports `isGood()`.
/// One thread at a time.
///
///     PAL::CMemoryOStream out;                 // with core/StringStream.h for strings
///     out << 7u << PAL::CString("name");
///     PAL::CMemoryIStream in(out.getBuffer());
///     unsigned int seven = 0;
///     PAL::CString name;
///     in >> seven >> name;
class OSAL_KIT_API CMemoryOStream : public IOStream {
public:
    /// An empty stream whose buffer grows in blocks of `blockSize` bytes (16 for 0).
    explicit CMemoryOStream(unsigned int blockSize = CBuffer::DEFAULT_BLOCK_SIZE);
    ~CMemoryOStream() override;

    /// Bytes written, padding included: the size of `getBuffer()`.
    unsigned int getPosition() const override;
    bool isGood() const override;
    /// Nothing to hand on: returns `isGood()`.
    bool flush() override;
    /// Appends 0 bytes up to the next multiple of `alignment`; false (and the stream
    /// failed) when that cannot be done, true at once for 0 or 1.
    bool align(unsigned int alignment) override;
    /// Appends `n` bytes; returns `n`, or 0 when the stream has failed, `src` is null or
    /// memory cannot be had (the stream then fails). A write of 0 bytes returns 0 and
    /// changes nothing.
    unsigned int writeBytes(const void* src, unsigned int n) override;

    /// Everything written so far. Copies share the bytes; later writes do not show in
    /// a copy taken now.
    const CBuffer& getBuffer() const { return mBuffer; }

private:
    CMemoryOStream(const CMemoryOStream&) = delete;
    CMemoryOStream& operator=(const CMemoryOStream&) = delete;

    CBuffer mBuffer;
    bool mGood;
};

/// An input stream that reads the used bytes of a `CBuffer` from the start.
///
/// The stream shares the buffer's bytes (no copy; later writes to the caller's buffer
/// do not show). A read delivers all the bytes asked for or none: one that asks for
/// more than is left delivers nothing, leaves its destination untouched, and fails the
/// stream, which then stands at the end (so every later read delivers nothing as well).
/// `align(a)` skips bytes up to the next multiple of `a` (0 and 1 skip nothing); when
/// fewer bytes are left than it would skip, it fails the stream the same way.
/// One thread at a time; reading is `const` as `IIStream` wants it.
class OSAL_KIT_API CMemoryIStream : public IIStream {
public:
    /// Reads the used bytes of `source`.
    explicit CMemoryIStream(const CBuffer& source);
    ~CMemoryIStream() override;

    /// Bytes consumed (the end once the stream has failed).
    unsigned int getPosition() const override;
    /// Bytes left.
    unsigned int getAvailable() const override;
    bool isGood() const override;
    /// Skips up to the next multiple of `alignment`; false when fewer bytes are left.
    bool align(unsigned int alignment) const override;
    /// Delivers the next `n` bytes to `dst` and returns `n`, or delivers nothing and
    /// returns 0 (failing the stream) when fewer are left or `dst` is null. A read of 0
    /// bytes returns 0 and changes nothing.
    unsigned int readBytes(void* dst, unsigned int n) const override;

private:
    CMemoryIStream(const CMemoryIStream&) = delete;
    CMemoryIStream& operator=(const CMemoryIStream&) = delete;

    void fail() const;

    CBuffer mBuffer;
    mutable unsigned int mPosition;
    mutable bool mGood;
};

} // namespace PAL

#endif
