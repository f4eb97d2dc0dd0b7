#ifndef OSAL_KIT_CORE_BUFFER_H
#define OSAL_KIT_CORE_BUFFER_H

#include "core/Export.h"
#include "core/RCMemoryBuffer.h"
#include "core/Stream.h"

namespace PAL {

/// A growable byte buffer: a used size, and a capacity kept in whole blocks of
/// `getBlockSize()` bytes.
///
/// The bytes live in a `CRCMemoryBuffer`, so copies share them (no allocation) until
/// one of them writes through `copyTo`, or calls `resize` / `reserve` with `force`,
/// and so gets a block of its own (copy on write). The block is reallocated whenever
/// the size rounded up to the block size changes (it shrinks as well as grows); within
/// the same rounded size only the used size changes. Bytes past the used size are
/// those the block already held (0 in a fresh block).
///
/// Failures are not reported: when memory cannot be had the buffer stays as it was,
/// and `copyTo` returns 0.
///
/// Threads: one `CBuffer` object is used by one thread at a time; copies sharing a
/// block may be used, written and destroyed on different threads at once.
///
///     PAL::CBuffer message;                  // block size 16, empty
///     message.copyTo("abc", 3, 0);           // size 3, capacity 16
///     PAL::CBuffer copy = message;           // shares the block
///     copy.copyTo("X", 1, 0);                // copy gets its own block: "Xbc"
///     char out[3];
///     message.copyFrom(out, 3, 0);           // still "abc"; returns 3
class OSAL_KIT_API CBuffer {
public:
    /// The block size of the default constructor and of the constructor from a
    /// `CRCMemoryBuffer`, and the one used when 0 is asked for.
    static const unsigned int DEFAULT_BLOCK_SIZE = 16u;

    /// Empty, block size 16.
    CBuffer();
    /// `size` bytes (all 0) in a block of `getAlignedSize(size)`; block size 16 when
    /// `blockSize` is 0. Empty (size 0) when that block cannot be had.
    explicit CBuffer(unsigned int size, unsigned int blockSize = DEFAULT_BLOCK_SIZE);
    /// Shares `block`; the size is its capacity, the block size 16.
    explicit CBuffer(const CRCMemoryBuffer& block);
    /// Shares `other`'s bytes and takes its sizes.
    CBuffer(const CBuffer& other);
    /// Shares `other`'s bytes and takes its sizes (assigning a buffer to itself does nothing).
    CBuffer& operator=(const CBuffer& other);
    ~CBuffer();

    /// The block underneath; its capacity is the used size rounded up to the block size
    /// (or less for a buffer built from a `CRCMemoryBuffer`).
    const CRCMemoryBuffer& getMemoryBuffer() const { return mBuffer; }
    /// Bytes in use.
    unsigned int getSize() const { return mSize; }
    /// Bytes the current block holds.
    unsigned int getCapacity() const { return mBuffer.getCapacity(); }
    /// The step of the capacity: blocks are whole multiples of this many bytes.
    unsigned int getBlockSize() const { return mBlockSize; }

    /// The smallest multiple of the block size not below `n` (0 for 0); 0 when no such
    /// multiple fits in 32 bits.
    unsigned int getAlignedSize(const unsigned int& n) const;

    /// Makes the used size `newSize`. A new block is made when the rounded size changes,
    /// or always with `force`; it keeps the first min(old size, newSize) bytes. Without
    /// memory (or for a size that cannot be rounded up in 32 bits) nothing changes.
    void resize(unsigned int newSize, bool force);
    /// As `resize(newSize, false)`: a new block only when the rounded size changes.
    void resize(unsigned int newSize) { resize(newSize, false); }
    /// Grows the used size to `n` when it is smaller (as `resize(n, force)`); otherwise,
    /// with `force`, makes a private copy at the same size. Never lowers the size.
    void reserve(unsigned int n, bool force);
    /// As `reserve(n, false)`: grows the used size only, never un-shares.
    void reserve(unsigned int n) { reserve(n, false); }

    /// Writes `length` bytes from `src` at `offset`, growing the buffer to cover them
    /// and un-sharing it first if needed; returns `length`. A gap between the old size
    /// and `offset` keeps what the block held. Returns 0 and changes nothing for a null
    /// `src`, an end beyond 32 bits, or when memory cannot be had.
    unsigned int copyTo(const void* src, unsigned int length, unsigned int offset);
    /// Copies up to `length` bytes from `offset` (not past the used size) to `dst` and
    /// returns how many; 0 for a null `dst` or an `offset` at or past the used size.
    unsigned int copyFrom(void* dst, unsigned int length, unsigned int offset) const;

    ///@{
    /// Equal used sizes and equal used bytes; block sizes and capacities do not matter.
    bool operator==(const CBuffer& other) const;
    bool operator!=(const CBuffer& other) const { return !(*this == other); }
    ///@}

private:
    friend OSAL_KIT_API const IIStream& operator>>(const IIStream& stream, CBuffer& buffer);

    static bool readFrom(const IIStream& stream, CBuffer& buffer);
    bool isShared() const;
    bool resizeBlock(unsigned int newSize, bool force);
    bool reserveBlock(unsigned int n, bool force);

    unsigned int mBlockSize;
    unsigned int mSize;
    CRCMemoryBuffer mBuffer;
};

/// The block in the `CRCMemoryBuffer` form: its capacity n (the used size rounded up to
/// the block size) as 4 bytes, then all n bytes, those past the used size included.
OSAL_KIT_API IOStream& operator<<(IOStream& stream, const CBuffer& buffer);
/// Reads a block as the `CRCMemoryBuffer` operator does; the used size becomes the
/// length read (0 for a length of 0). When no block can be had the buffer is unchanged.
/// The block size is kept.
OSAL_KIT_API const IIStream& operator>>(const IIStream& stream, CBuffer& buffer);

} // namespace PAL

#endif
