#include "core/MemoryStream.h"

namespace PAL {

namespace {

const unsigned char sZeros[64] = {0};

} // namespace

CMemoryOStream::CMemoryOStream(unsigned int blockSize) : mBuffer(0u, blockSize), mGood(true)
{
}

CMemoryOStream::~CMemoryOStream()
{
}

unsigned int CMemoryOStream::getPosition() const
{
    return mBuffer.getSize();
}

bool CMemoryOStream::isGood() const
{
    return mGood;
}

bool CMemoryOStream::flush()
{
    return mGood;
}

bool CMemoryOStream::align(unsigned int alignment)
{
    if (!mGood) {
        return false;
    }
    if (alignment <= 1u) {
        return true;
    }
    const unsigned int rest = mBuffer.getSize() % alignment;
    unsigned int padding = rest == 0 ? 0u : alignment - rest;
    while (padding != 0) {
        const unsigned int chunk = padding < sizeof(sZeros) ? padding : static_cast<unsigned int>(sizeof(sZeros));
        if (writeBytes(sZeros, chunk) != chunk) {
            return false;
        }
        padding -= chunk;
    }
    return true;
}

unsigned int CMemoryOStream::writeBytes(const void* src, unsigned int n)
{
    if (!mGood || n == 0) {
        return 0;
    }
    if (mBuffer.copyTo(src, n, mBuffer.getSize()) != n) {
        mGood = false;
        return 0;
    }
    return n;
}

CMemoryIStream::CMemoryIStream(const CBuffer& source) : mBuffer(source), mPosition(0), mGood(true)
{
}

CMemoryIStream::~CMemoryIStream()
{
}

unsigned int CMemoryIStream::getPosition() const
{
    return mPosition;
}

unsigned int CMemoryIStream::getAvailable() const
{
    return mBuffer.getSize() - mPosition;
}

bool CMemoryIStream::isGood() const
{
    return mGood;
}

void CMemoryIStream::fail() const
{
    mGood = false;
    mPosition = mBuffer.getSize();
}

bool CMemoryIStream::align(unsigned int alignment) const
{
    if (!mGood) {
        return false;
    }
    if (alignment <= 1u) {
        return true;
    }
    const unsigned int rest = mPosition % alignment;
    const unsigned int skip = rest == 0 ? 0u : alignment - rest;
    if (skip > getAvailable()) {
        fail();
        return false;
    }
    mPosition += skip;
    return true;
}

unsigned int CMemoryIStream::readBytes(void* dst, unsigned int n) const
{
    if (n == 0) {
        return 0;
    }
    if (dst == 0 || n > getAvailable()) {
        fail();
        return 0;
    }
    mPosition += mBuffer.copyFrom(dst, n, mPosition);
    return n;
}

} // namespace PAL
