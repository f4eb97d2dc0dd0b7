#include "core/RCMemoryBuffer.h"

#include "core/private/StreamLength.h"

#include "os/pal_wrapper.h"

#include <cstring>

namespace PAL {

CRCMemoryBuffer::SHeader CRCMemoryBuffer::sNullBuffer = {1u, 0u, 0};

namespace {

const unsigned int sHeaderSize = static_cast<unsigned int>(sizeof(CRCMemoryBuffer::SHeader));
// The largest capacity whose block (header plus capacity rounded up to 8) still has a
// size that fits in 32 bits.
const unsigned int sLargestCapacity = (0xFFFFFFFFu - sHeaderSize) & ~7u;

// Allocation and release must agree on the size, so both come from here.
inline unsigned int blockSize(unsigned int capacity)
{
    return sHeaderSize + ((capacity + 7u) & ~7u);
}

} // namespace

CRCMemoryBuffer::SHeader* CRCMemoryBuffer::allocateBlock(unsigned int capacity)
{
    if (capacity == 0 || capacity > sLargestCapacity) {
        return 0;
    }
    SHeader* block = static_cast<SHeader*>(Memory::alloc(blockSize(capacity)));
    if (block == 0) {
        return 0;
    }
    block->mRefCount = 1u;
    block->mCapacity = capacity;
    block->mpData = block + 1;
    // Zeroed so that no byte of a block (past a buffer's used size, or one a short
    // stream did not deliver) is ever handed on uninitialised.
    std::memset(block->mpData, 0, capacity);
    return block;
}

CRCMemoryBuffer::CRCMemoryBuffer() : mpRep(&sNullBuffer)
{
}

CRCMemoryBuffer::CRCMemoryBuffer(unsigned int size) : mpRep(&sNullBuffer)
{
    SHeader* block = allocateBlock(size);
    if (block != 0) {
        mpRep = block;
    }
}

CRCMemoryBuffer::CRCMemoryBuffer(const CRCMemoryBuffer& other)
    : mpRep(other.mpRep != 0 ? other.mpRep : &sNullBuffer)
{
    addRef();
}

CRCMemoryBuffer& CRCMemoryBuffer::operator=(const CRCMemoryBuffer& other)
{
    if (mpRep != other.mpRep) {
        removeRef();
        mpRep = other.mpRep != 0 ? other.mpRep : &sNullBuffer;
        addRef();
    }
    return *this;
}

CRCMemoryBuffer::~CRCMemoryBuffer()
{
    removeRef();
    mpRep = 0;
}

void CRCMemoryBuffer::addRef()
{
    if (mpRep != 0 && mpRep != &sNullBuffer) {
        Atomic::increment(mpRep->mRefCount);
    }
}

void CRCMemoryBuffer::removeRef()
{
    if (mpRep != 0 && mpRep != &sNullBuffer) {
        const unsigned int size = blockSize(mpRep->mCapacity);
        if (!Atomic::testDecrement(mpRep->mRefCount)) {
            Memory::release(mpRep, size);
        }
    }
    mpRep = &sNullBuffer;
}

bool CRCMemoryBuffer::operator==(const CRCMemoryBuffer& other) const
{
    if (this == &other || mpRep == other.mpRep) {
        return true;
    }
    if (mpRep == 0 || other.mpRep == 0 || mpRep->mpData == 0 || other.mpRep->mpData == 0) {
        return false;
    }
    if (mpRep->mCapacity != other.mpRep->mCapacity) {
        return false;
    }
    return Memory::memcmp(mpRep->mpData, other.mpRep->mpData, mpRep->mCapacity) == 0;
}

bool CRCMemoryBuffer::readFrom(const IIStream& stream, CRCMemoryBuffer& buffer)
{
    unsigned int n = 0;
    stream >> n;
    if (n == 0) {
        buffer.removeRef();
        return true;
    }
    // A length far beyond what the stream holds is most likely a lie; allocating for it
    // would let a few bytes of input claim gigabytes, so it fares as a failed allocation.
    SHeader* block = StreamLength::beyondStream(stream, n) ? 0 : allocateBlock(n);
    if (block == 0) {
        return false;
    }
    buffer.removeRef();
    buffer.mpRep = block;
    stream.read(block->mpData, n);
    return true;
}

IOStream& operator<<(IOStream& stream, const CRCMemoryBuffer& buffer)
{
    const unsigned int n = buffer.getCapacity();
    stream << n;
    if (n != 0) {
        stream.write(buffer.getBuffer(), n);
    }
    return stream;
}

const IIStream& operator>>(const IIStream& stream, CRCMemoryBuffer& buffer)
{
    (void)CRCMemoryBuffer::readFrom(stream, buffer);
    return stream;
}

} // namespace PAL
