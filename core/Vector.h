#ifndef OSAL_KIT_CORE_VECTOR_H
#define OSAL_KIT_CORE_VECTOR_H

#include "core/VectorBase.h"
#include "core/VectorHelpers.h"

#include <climits>
#include <functional>

namespace PAL {

/// A dynamic array of `T` with checked positions.
///
/// Elements live in one block taken with the standard `malloc` and returned with `free`;
/// the block only grows (doubling from a floor of 4, see `CVectorBase::calcNewCapacity`)
/// and `clear` keeps it for reuse. Scalar and pointer elements are moved as bytes;
/// class-type elements are copy-constructed into new slots, assigned over live ones and
/// destroyed when they leave the vector, so reference-counted elements such as `CString`
/// keep exact counts. `T` needs a copy constructor, copy assignment and a destructor.
///
/// Failures are silent refusals: a position or range outside the vector makes the
/// operation do nothing (`get` returns null), and when memory runs out the vector keeps
/// its elements and capacity and the insertion that needed the room does not happen.
/// Nothing throws or traces.
///
/// Threads: no locking; one thread at a time per vector.
///
///     PAL::TVector<PAL::CString> names(0);   // no storage yet
///     names.push_back("disk");               // grows to 4 slots
///     names.insert(0, "net");                // net, disk
///     names.erase(1);                        // net
///     if (const PAL::CString* first = names.get(0))
///         use(*first);
template <typename T>
class TVector : public CVectorBase {
public:
    /// An empty vector with room for `initialCapacity` elements (none when not positive
    /// or when memory runs out).
    explicit TVector(int initialCapacity = 0);
    /// Copies of `other`'s elements, with `other`'s capacity. When memory runs out the
    /// copy is empty.
    TVector(const TVector& other);
    /// Destroys the elements and frees the storage.
    ~TVector();

    /// Replaces the contents with copies of `other`'s (and its capacity). When memory
    /// runs out the vector keeps its own contents. `v = v` changes nothing.
    TVector& operator=(const TVector& other);
    /// Exchanges contents, sizes and capacities with `other`; no element is copied.
    void swap(TVector& other);

    /// Makes room for `capacity` elements, keeping the elements; nothing when the
    /// capacity already suffices or memory runs out.
    void reserve(int capacity);
    /// Inserts a copy of `element` before position `pos` (`pos == size()` appends).
    /// Refused when `pos` is outside `[0, size()]` or the vector cannot grow. `element`
    /// may be an element of this vector.
    void insert(int pos, const T& element);
    /// Appends a copy of `element`: `insert(size(), element)`.
    void push_back(const T& element) { insert(mSize, element); }
    /// Removes the elements `first` to `last`, both included, closing the gap. Refused
    /// unless `0 <= first <= last < size()`.
    void erase(int first, int last);
    /// Removes the element at `index`: `erase(index, index)`.
    void erase(int index) { erase(index, index); }
    /// Removes every element; the storage stays for reuse.
    void clear();
    /// Shrinks to `newSize` elements, or grows to it with copies of `value`. Refused
    /// when `newSize` is negative or the vector cannot grow.
    void resize(int newSize, const T& value);
    /// As `resize(newSize, T())`: new scalar elements are 0.
    void resize(int newSize) { resize(newSize, T()); }

    /// The element at `index`, or null unless `0 <= index < size()`. Valid until the
    /// vector next changes size or capacity.
    T* get(int index) { return checkGet(index, __LINE__) ? mpData + index : nullptr; }
    /// As the other `get`, for a const vector.
    const T* get(int index) const { return checkGet(index, __LINE__) ? mpData + index : nullptr; }

protected:
    /// Writes `src[0 .. count)` to positions `pos ..`: assigned over live elements,
    /// constructed into raw slots. Leaves the size to the caller, who has made room.
    void setElements(int pos, const T* src, int count);

    /// `mCapacity` slots; null while nothing is reserved.
    T* mpData;

private:
    typedef typename TVectorHelpers<T>::Vector Helper;

    bool isOwnElement(const T* p) const
    {
        return mpData != nullptr && !std::less<const T*>()(p, mpData) && std::less<const T*>()(p, mpData + mSize);
    }
};

/// Exchanges the contents of two vectors (preferred over the `CVectorBase` overload,
/// which would exchange only their sizes).
template <typename T>
void swap(TVector<T>& a, TVector<T>& b)
{
    a.swap(b);
}

template <typename T>
TVector<T>::TVector(int initialCapacity) : CVectorBase(), mpData(nullptr)
{
    reserve(initialCapacity);
}

template <typename T>
TVector<T>::TVector(const TVector& other) : CVectorBase(), mpData(nullptr)
{
    reserve(other.mCapacity);
    if (other.mSize > 0 && mCapacity >= other.mSize) {
        Helper::construct(mpData, other.mpData, other.mSize);
        mSize = other.mSize;
    }
}

template <typename T>
TVector<T>::~TVector()
{
    Helper::destruct(mpData, mSize);
    releaseStorage(mpData);
    mpData = nullptr;
}

template <typename T>
TVector<T>& TVector<T>::operator=(const TVector& other)
{
    if (&other != this) {
        TVector copy(other);
        // A copy that got no storage would empty this vector: keep the old contents.
        if (copy.mCapacity >= other.mCapacity) {
            swap(copy);
        }
    }
    return *this;
}

template <typename T>
void TVector<T>::swap(TVector& other)
{
    PAL::swap(static_cast<CVectorBase&>(*this), static_cast<CVectorBase&>(other));
    T* const data = mpData;
    mpData = other.mpData;
    other.mpData = data;
}

template <typename T>
void TVector<T>::reserve(int capacity)
{
    if (mCapacity >= capacity) {
        return;
    }
    T* const newData = static_cast<T*>(allocateStorage(capacity, sizeof(T)));
    if (newData == nullptr) {
        // The elements stay where they are; callers see the unchanged capacity.
        return;
    }
    if (mSize > 0 && mpData != nullptr) {
        Helper::construct(newData, mpData, mSize);
    }
    Helper::destruct(mpData, mSize);
    releaseStorage(mpData);
    mCapacity = capacity;
    mpData = newData;
}

template <typename T>
void TVector<T>::setElements(int pos, const T* src, int count)
{
    if (count <= 0 || src == nullptr) {
        return;
    }
    if (pos >= mSize) {
        Helper::construct(mpData + pos, src, count);
        return;
    }
    if (pos + count < mSize) {
        PAL::copy(mpData + pos, src, count);
        return;
    }
    const int constructed = pos + count - mSize;
    const int assigned = count - constructed;
    if (constructed > 0) {
        Helper::construct(mpData + pos + assigned, src + assigned, constructed);
    }
    if (assigned >= 1) {
        PAL::copy(mpData + pos, src, assigned);
    }
}

template <typename T>
void TVector<T>::insert(int pos, const T& element)
{
    if (!checkInsert(pos, &element, __LINE__) || mSize == INT_MAX) {
        return;
    }
    if (isOwnElement(&element)) {
        // Moving the tail (or the storage) would change what `element` refers to.
        const T value(element);
        insert(pos, value);
        return;
    }
    const int newSize = mSize + 1;
    if (mCapacity < newSize) {
        reserve(calcNewCapacity(newSize));
        if (mCapacity < newSize) {
            return;
        }
    }
    if (pos < mSize) {
        setElements(pos + 1, mpData + pos, mSize - pos);
    }
    setElements(pos, &element, 1);
    mSize = newSize;
}

template <typename T>
void TVector<T>::erase(int first, int last)
{
    if (!checkErase(first, last, __LINE__)) {
        return;
    }
    const int removed = last - first + 1;
    setElements(first, mpData + last + 1, mSize - 1 - last);
    // The tail has moved down by assignment; its old last slots still hold live objects.
    Helper::destruct(mpData + mSize - removed, removed);
    mSize -= removed;
}

template <typename T>
void TVector<T>::clear()
{
    if (checkResize(0, __LINE__)) {
        Helper::destruct(mpData, mSize);
        mSize = 0;
    }
}

template <typename T>
void TVector<T>::resize(int newSize, const T& value)
{
    if (!checkResize(newSize, __LINE__)) {
        return;
    }
    if (newSize <= mSize) {
        Helper::destruct(mpData + newSize, mSize - newSize);
        mSize = newSize;
        return;
    }
    if (mCapacity < newSize) {
        if (isOwnElement(&value)) {
            const T fill(value);
            resize(newSize, fill);
            return;
        }
        reserve(calcNewCapacity(newSize));
        if (mCapacity < newSize) {
            return;
        }
    }
    Helper::construct(mpData + mSize, value, newSize - mSize);
    mSize = newSize;
}

} // namespace PAL

#endif
