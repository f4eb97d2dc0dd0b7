#ifndef OSAL_KIT_CORE_RCMEMORYBUFFER_H
#define OSAL_KIT_CORE_RCMEMORYBUFFER_H

#include "core/Export.h"
#include "core/Stream.h"

namespace PAL {

class CBuffer;

/// A handle to a shared, reference-counted block of raw bytes.
///
/// Copying or assigning a handle shares the block (one counter step, no allocation);
/// the last handle to let go frees it. Empty handles (size 0, failed allocations,
/// released handles) all point at `sNullBuffer` and cost nothing. A new block's bytes
/// are all 0. Nothing is reported: a block that cannot be allocated leaves an empty
/// handle.
///
/// Threads: handles to one block may be copied, assigned and destroyed on different
/// threads at once. The bytes are not protected: write them only while holding the
/// only reference (as `CBuffer` does), or under a lock of your own. One handle object
/// is used by one thread at a time.
///
///     PAL::CRCMemoryBuffer block(5);           // 5 zero bytes, or empty without memory
///     if (block.getBuffer() != 0) {
///         PAL::CRCMemoryBuffer shared = block;  // the same bytes, counted twice
///     }
class OSAL_KIT_API CRCMemoryBuffer {
public:
    /// The header in front of every block's bytes (one allocation holds both).
    struct SHeader {
        unsigned int mRefCount; ///< handles sharing the block; changed only through PAL::Atomic
        unsigned int mCapacity; ///< usable data bytes
        void* mpData;           ///< the first data byte, just behind the header; null for sNullBuffer
    };

    /// The block of every empty handle: count 1, capacity 0, no data. It is never
    /// counted up or down and never freed.
    static SHeader sNullBuffer;

    /// An empty handle.
    CRCMemoryBuffer();
    /// A block of `size` zero bytes; empty for 0, when the memory cannot be had, or
    /// when `size` plus the block's overhead does not fit in 32 bits.
    explicit CRCMemoryBuffer(unsigned int size);
    /// Shares `other`'s block.
    CRCMemoryBuffer(const CRCMemoryBuffer& other);
    /// Shares `other`'s block (nothing happens when both already share one).
    CRCMemoryBuffer& operator=(const CRCMemoryBuffer& other);
    ~CRCMemoryBuffer();

    /// Counts one more reference to the block (nothing for an empty handle). Pair it
    /// with `removeRef` on a handle of the same block.
    void addRef();
    /// Gives up this handle's reference, freeing the block when it was the last, and
    /// leaves the handle empty.
    void removeRef();

    ///@{
    /// The first data byte; null for an empty handle.
    void* getBuffer() { return mpRep->mpData; }
    const void* getBuffer() const { return mpRep->mpData; }
    ///@}
    /// Data bytes in the block; 0 for an empty handle.
    unsigned int getCapacity() const { return mpRep->mCapacity; }

    /// The same block, or two non-empty blocks of equal capacity and equal bytes; an
    /// empty handle equals only another empty handle.
    ///@{
    bool operator==(const CRCMemoryBuffer& other) const;
    bool operator!=(const CRCMemoryBuffer& other) const { return !(*this == other); }
    ///@}

private:
    friend class CBuffer;
    friend OSAL_KIT_API const IIStream& operator>>(const IIStream& stream, CRCMemoryBuffer& buffer);

    static SHeader* allocateBlock(unsigned int capacity);
    // The `>>` form; false (and the handle unchanged) when no block could be had for a
    // non-zero length.
    static bool readFrom(const IIStream& stream, CRCMemoryBuffer& buffer);

    SHeader* mpRep;
};

/// The capacity n as 4 bytes, then the n data bytes (nothing more when n is 0).
OSAL_KIT_API IOStream& operator<<(IOStream& stream, const CRCMemoryBuffer& buffer);
/// Reads a length n (0 when the stream delivers none). For 0 the handle becomes empty.
/// Otherwise a new zeroed block of n bytes replaces the handle's block and receives
/// the next n bytes (bytes the stream does not deliver stay 0). When no block can be
/// had the handle is unchanged and the n bytes stay unread in the stream.
OSAL_KIT_API const IIStream& operator>>(const IIStream& stream, CRCMemoryBuffer& buffer);

} // namespace PAL

#endif
