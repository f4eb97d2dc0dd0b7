#include "core/VectorBase.h"

#include <atomic>
#include <climits>
#include <cstdlib>

namespace PAL {

namespace {

const int sCapacityFloor = 4;

// Relaxed is enough: the function pointer is the only datum behind it, and whichever
// function a concurrent grower sees returns memory that free() takes.
std::atomic<CVectorBase::MallocFunction> sMallocFunction(&std::malloc);

} // namespace

CVectorBase::CVectorBase(int initialCapacity)
    : mSize(0), mCapacity(initialCapacity > 0 ? initialCapacity : sCapacityFloor)
{
}

bool CVectorBase::checkInsert(int pos, const void* element, unsigned int /*line*/) const
{
    return pos >= 0 && pos <= mSize && element != nullptr;
}

bool CVectorBase::checkErase(int first, int last, unsigned int /*line*/) const
{
    return first >= 0 && first <= last && last < mSize;
}

bool CVectorBase::checkResize(int newSize, unsigned int /*line*/) const
{
    return newSize >= 0;
}

bool CVectorBase::checkGet(int index, unsigned int /*line*/) const
{
    return index >= 0 && index < mSize;
}

int CVectorBase::calcNewCapacity(int needed) const
{
    if (mCapacity >= needed) {
        return mCapacity;
    }
    int capacity = mCapacity < sCapacityFloor ? sCapacityFloor : mCapacity;
    while (capacity < needed) {
        if (capacity > INT_MAX / 2) {
            return needed;
        }
        capacity *= 2;
    }
    return capacity;
}

CVectorBase::MallocFunction CVectorBase::setMallocFunction(MallocFunction allocate)
{
    return sMallocFunction.exchange(allocate != nullptr ? allocate : &std::malloc, std::memory_order_relaxed);
}

void* CVectorBase::allocateStorage(int count, std::size_t elementSize)
{
    if (count <= 0 || elementSize == 0 || static_cast<std::size_t>(count) > static_cast<std::size_t>(-1) / elementSize) {
        return nullptr;
    }
    return sMallocFunction.load(std::memory_order_relaxed)(static_cast<std::size_t>(count) * elementSize);
}

void CVectorBase::releaseStorage(void* storage)
{
    std::free(storage);
}

void swap(CVectorBase& a, CVectorBase& b)
{
    const int size = a.mSize;
    const int capacity = a.mCapacity;
    a.mSize = b.mSize;
    a.mCapacity = b.mCapacity;
    b.mSize = size;
    b.mCapacity = capacity;
}

} // namespace PAL
