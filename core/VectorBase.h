#ifndef OSAL_KIT_CORE_VECTOR_BASE_H
#define OSAL_KIT_CORE_VECTOR_BASE_H

#include "core/Export.h"

#include <cstddef>

namespace PAL {

/// The untyped part of every `TVector`: the element count and the capacity, the checks
/// that decide whether a position or range is acceptable, and the growth rule.
///
/// A failed check is the whole of the refusal: the typed operation that asked does
/// nothing (or returns null) and nothing is traced or thrown. Growth doubles from a
/// floor of 4, so an empty vector grows to 4, 8, 16, ... and one made for 5 elements
/// to 10, 20, ...
///
/// Threads: no locking; one thread at a time per object.
class OSAL_KIT_API CVectorBase {
public:
    /// Records a capacity of `initialCapacity`, or 4 when it is not positive, and a
    /// size of 0. Allocates nothing; `TVector` starts from zero instead.
    explicit CVectorBase(int initialCapacity);

    /// Number of live elements.
    int size() const { return mSize; }
    /// Number of element slots the storage holds (live or not).
    int capacity() const { return mCapacity; }

    /// True iff `0 <= pos <= size()` and `element` is not null. `line` is the caller's
    /// source line; it is not used.
    bool checkInsert(int pos, const void* element, unsigned int line) const;
    /// True iff `0 <= first <= last < size()` (an inclusive range of live elements).
    bool checkErase(int first, int last, unsigned int line) const;
    /// True iff `newSize >= 0`.
    bool checkResize(int newSize, unsigned int line) const;
    /// True iff `0 <= index < size()`.
    bool checkGet(int index, unsigned int line) const;

    /// The capacity to grow to so that `needed` elements fit: the current capacity if it
    /// already suffices, else the current capacity (at least 4) doubled until it does.
    /// Where doubling would pass the largest `int`, `needed` itself.
    int calcNewCapacity(int needed) const;

    /// Test seam. Every vector takes its storage through this function, which is the
    /// standard `malloc` unless a test replaces it (to make allocation fail on demand).
    /// A replacement must return memory that the standard `free` releases, or null.
    typedef void* (*MallocFunction)(std::size_t size);
    /// Installs `allocate` (null restores `malloc`) and returns the function it replaces.
    /// Any thread may call it; vectors that are growing meanwhile use either function.
    static MallocFunction setMallocFunction(MallocFunction allocate);

protected:
    /// Size and capacity zero: the start of every `TVector`.
    CVectorBase() : mSize(0), mCapacity(0) {}

    /// Storage for `count` elements of `elementSize` bytes through the malloc function,
    /// or null when it fails, `count` is not positive or the byte count overflows.
    static void* allocateStorage(int count, std::size_t elementSize);
    /// Returns storage of `allocateStorage` with the standard `free`; null is fine.
    static void releaseStorage(void* storage);

    int mSize;     ///< live elements, at the front of the storage
    int mCapacity; ///< elements the storage has room for

    friend OSAL_KIT_API void swap(CVectorBase& a, CVectorBase& b);
};

/// Exchanges the size and capacity of `a` and `b` (only those: the typed storage is
/// the caller's to exchange).
OSAL_KIT_API void swap(CVectorBase& a, CVectorBase& b);

} // namespace PAL

#endif
