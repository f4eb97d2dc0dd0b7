#ifndef OSAL_KIT_CORE_PTR_VECTOR_H
#define OSAL_KIT_CORE_PTR_VECTOR_H

#include "core/Vector.h"

namespace PAL {

/// A vector of `T*` stored as `void*`: one `TVector<void*>` (same layout, same growth,
/// same refusals) with typed access, so every pointer vector shares one instantiation.
///
/// It owns nothing that the pointers point to: erasing, clearing or destroying the
/// vector leaves the objects alone, and the owner deletes them. Null pointers may be
/// stored.
///
/// Threads: no locking; one thread at a time per vector.
///
///     PAL::TPtrVector<CWorker> workers;
///     workers.push_back(new (std::nothrow) CWorker);   // the caller still owns it
///     for (int i = 0; i < workers.size(); ++i)
///         delete workers.get(i);
///     workers.clear();
template <typename T>
class TPtrVector : public TVector<void*> {
public:
    /// An empty vector with room for `initialCapacity` pointers.
    explicit TPtrVector(int initialCapacity = 0) : TVector<void*>(initialCapacity) {}

    /// Appends `p`; refused (nothing stored) when the vector cannot grow.
    void push_back(T* p) { TVector<void*>::push_back(toSlot(p)); }
    /// Inserts `p` before position `pos`; refused unless `0 <= pos <= size()` and the
    /// vector can grow.
    void insert(int pos, T* p) { TVector<void*>::insert(pos, toSlot(p)); }
    /// Shrinks to `newSize` pointers, or grows to it with copies of `p`.
    void resize(int newSize, T* p = nullptr) { TVector<void*>::resize(newSize, toSlot(p)); }
    /// The pointer stored at `index`; null when the index is outside `[0, size())`,
    /// which a caller that stores null pointers tells apart with `size()`.
    T* get(int index) const
    {
        void* const* slot = TVector<void*>::get(index);
        return slot != nullptr ? static_cast<T*>(*slot) : nullptr;
    }
    /// Exchanges contents with `other`; no pointer is copied.
    void swap(TPtrVector& other) { TVector<void*>::swap(other); }

private:
    // Pointers to const objects are stored too; `get` gives the constness back.
    static void* toSlot(T* p) { return const_cast<void*>(static_cast<const void*>(p)); }
};

/// Exchanges the contents of two pointer vectors of one type.
template <typename T>
void swap(TPtrVector<T>& a, TPtrVector<T>& b)
{
    a.swap(b);
}

} // namespace PAL

#endif
