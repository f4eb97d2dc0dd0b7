#include "core/Buffer.h"

#include "os/pal_wrapper.h"

namespace PAL {

const unsigned int CBuffer::DEFAULT_BLOCK_SIZE;

CBuffer::CBuffer() : mBlockSize(DEFAULT_BLOCK_SIZE), mSize(0), mBuffer()
{
}

CBuffer::CBuffer(unsigned int size, unsigned int blockSize)
    : mBlockSize(blockSize != 0 ? blockSize : DEFAULT_BLOCK_SIZE), mSize(0), mBuffer()
{
    (void)resizeBlock(size, false);
}

CBuffer::CBuffer(const CRCMemoryBuffer& block)
    : mBlockSize(DEFAULT_BLOCK_SIZE), mSize(block.getCapacity()), mBuffer(block)
{
}

CBuffer::CBuffer(const CBuffer& other)
    : mBlockSize(other.mBlockSize), mSize(other.mSize), mBuffer(other.mBuffer)
{
}

CBuffer& CBuffer::operator=(const CBuffer& other)
{
    if (this != &other) {
        mBlockSize = other.mBlockSize;
        mSize = other.mSize;
        mBuffer = other.mBuffer;
    }
    return *this;
}

CBuffer::~CBuffer()
{
}

unsigned int CBuffer::getAlignedSize(const unsigned int& n) const
{
    const unsigned int rest = n % mBlockSize;
    if (rest == 0) {
        return n;
    }
    const unsigned int padding = mBlockSize - rest;
    if (n > 0xFFFFFFFFu - padding) {
        return 0;
    }
    return n + padding;
}

bool CBuffer::isShared() const
{
    CRCMemoryBuffer::SHeader* block = mBuffer.mpRep;
    if (block == &CRCMemoryBuffer::sNullBuffer) {
        return false;
    }
    if (Atomic::peek(block->mRefCount) > 1u) {
        return true;
    }
    // Ours alone. The holder that dropped the count to 1 did so under the counter mutex
    // without telling us; passing through that mutex once orders everything it did with
    // these bytes (its last reads) before the writes we are about to make.
    Atomic::increment(block->mRefCount);
    (void)Atomic::testDecrement(block->mRefCount);
    return false;
}

bool CBuffer::resizeBlock(unsigned int newSize, bool force)
{
    const unsigned int capacity = getAlignedSize(newSize);
    if (capacity < newSize) {
        return false;
    }
    if (capacity != mBuffer.getCapacity() || force) {
        CRCMemoryBuffer block(capacity);
        if (capacity != 0 && block.getBuffer() == 0) {
            return false;
        }
        const unsigned int kept = mSize < newSize ? mSize : newSize;
        if (kept != 0) {
            Memory::memcpy(block.getBuffer(), mBuffer.getBuffer(), kept);
        }
        mBuffer = block;
    }
    mSize = newSize;
    return true;
}

bool CBuffer::reserveBlock(unsigned int n, bool force)
{
    if (n > mSize) {
        return resizeBlock(n, force);
    }
    if (force) {
        return resizeBlock(mSize, true);
    }
    return true;
}

void CBuffer::resize(unsigned int newSize, bool force)
{
    (void)resizeBlock(newSize, force);
}

void CBuffer::reserve(unsigned int n, bool force)
{
    (void)reserveBlock(n, force);
}

unsigned int CBuffer::copyTo(const void* src, unsigned int length, unsigned int offset)
{
    if (src == 0 || length > 0xFFFFFFFFu - offset) {
        return 0;
    }
    if (!reserveBlock(offset + length, isShared())) {
        return 0;
    }
    if (length != 0) {
        Memory::memcpy(static_cast<unsigned char*>(mBuffer.getBuffer()) + offset, src, length);
    }
    return length;
}

unsigned int CBuffer::copyFrom(void* dst, unsigned int length, unsigned int offset) const
{
    if (dst == 0 || offset >= mSize) {
        return 0;
    }
    const unsigned int available = mSize - offset;
    const unsigned int n = length < available ? length : available;
    if (n != 0) {
        Memory::memcpy(dst, static_cast<const unsigned char*>(mBuffer.getBuffer()) + offset, n);
    }
    return n;
}

bool CBuffer::operator==(const CBuffer& other) const
{
    if (this == &other) {
        return true;
    }
    if (mSize != other.mSize) {
        return false;
    }
    if (mSize == 0) {
        return true;
    }
    return Memory::memcmp(mBuffer.getBuffer(), other.mBuffer.getBuffer(), mSize) == 0;
}

bool CBuffer::readFrom(const IIStream& stream, CBuffer& buffer)
{
    if (!CRCMemoryBuffer::readFrom(stream, buffer.mBuffer)) {
        return false;
    }
    buffer.mSize = buffer.mBuffer.getCapacity();
    return true;
}

IOStream& operator<<(IOStream& stream, const CBuffer& buffer)
{
    return stream << buffer.getMemoryBuffer();
}

const IIStream& operator>>(const IIStream& stream, CBuffer& buffer)
{
    (void)CBuffer::readFrom(stream, buffer);
    return stream;
}

} // namespace PAL
