#ifndef OSAL_KIT_CORE_HASHMAP_H
#define OSAL_KIT_CORE_HASHMAP_H

#include "core/HashMapImpl.h"
#include "core/HashValuePool.h"

#include <new>

namespace PAL {

/// A map from `unsigned int` keys to values of type `V` over `CHashMapImpl`: it owns a
/// copy of every value, kept in blocks of its own outside the engine's arrays, so the
/// address `find`, `get` or `set` gives stays valid through regrowth until the map is
/// cleared, assigned or destroyed; every value is destroyed exactly once. Keys are never removed one by one.
///
/// No operation throws. When memory runs out, `set` returns false and `get` null, and
/// the map is as it was; a copy or an assignment made then holds only the values it
/// could get (compare `size()`). `V` needs copy construction (and default construction
/// for `get`); `set` of a present key uses `V`'s assignment.
///
/// Threads: not synchronised, so every use of one map needs the caller's exclusive
/// lock. The visitor of `forEach` must not add keys.
///
///     PAL::THashMap<PAL::CString> names;
///     names.set(42, "answer");                // false only when memory ran out
///     if (PAL::CString* name = names.get(7))  // adds an empty name for 7
///         *name = "seven";
template <typename V>
class THashMap : protected CHashMapImpl {
public:
    /// An empty map of at least `initialSize` buckets, which `clear` returns to.
    explicit THashMap(unsigned int initialSize = 16) : CHashMapImpl(initialSize), mpAdopted(0) {}
    /// Copies every key and value of `other`; `clear` returns to `other`'s initial size.
    THashMap(const THashMap& other) : CHashMapImpl(other.mBucketCount), mpAdopted(0)
    {
        mInitialBucketCount = other.mInitialBucketCount;
        addCopiesOf(other);
    }
    /// Destroys this map's values, then copies every key and value of `other`.
    THashMap& operator=(const THashMap& other)
    {
        if (this != &other) {
            clearEntries();
            mValues.release();
            initTable(other.mBucketCount);
            addCopiesOf(other);
        }
        return *this;
    }
    ~THashMap() { clearEntries(); }

    /// Adds `key` with a copy of `value`, or assigns `value` to the value of a present
    /// key. False when memory ran out; the map is then unchanged.
    bool set(unsigned int key, const V& value)
    {
        if (V* present = find(key)) {
            *present = value;
            return true;
        }
        return add(key, mValues.create(value)) != 0;
    }
    /// The value of `key`, adding a default-constructed one when it is absent; null
    /// when memory ran out (the map is then unchanged).
    V* get(unsigned int key)
    {
        if (V* present = find(key)) {
            return present;
        }
        return add(key, mValues.create());
    }
    ///@{
    /// The value of `key`, or null when it is absent.
    V* find(unsigned int key) { return valueOf(lookup(key)); }
    const V* find(unsigned int key) const { return valueOf(lookup(key)); }
    ///@}
    /// Whether `key` is present.
    bool contains(unsigned int key) const { return lookup(key) != 0; }

    /// Calls `visit(unsigned int, V&)` once for every key, in the map's order.
    template <typename Visitor>
    void forEach(Visitor visit)
    {
        for (CHashMapItem* item = firstItem(); item != 0; item = nextItem(item)) {
            visit(item->key, *static_cast<V*>(item->value));
        }
    }
    /// Calls `visit(unsigned int, const V&)` once for every key, in the map's order.
    template <typename Visitor>
    void forEach(Visitor visit) const
    {
        for (CHashMapItem* item = firstItem(); item != 0; item = nextItem(item)) {
            visit(item->key, *static_cast<const V*>(item->value));
        }
    }

    /// Destroys every value and starts again with the initial bucket count.
    void clear()
    {
        CHashMapImpl::clear();
        mValues.release();
    }
    /// Number of keys (a scan, in time proportional to `capacity()`).
    using CHashMapImpl::size;
    /// Bucket heads plus overflow items.
    using CHashMapImpl::capacity;

protected:
    // Values are owned objects of the pool. `get` and `set` make them before the engine adds
    // the key and let `initValue` adopt them; otherwise one is made here, and one that
    // finds no memory leaves a null that is never dereferenced by this class's hooks.
    void copyValue(void* slot) override
    {
        V** value = static_cast<V**>(slot);
        if (*value != 0) {
            *value = mValues.create(**value);
        }
    }
    void destroyValue(void* slot) override
    {
        V** value = static_cast<V**>(slot);
        mValues.destroy(*value);
        *value = 0;
    }
    void initValue(void* slot) override
    {
        V** value = static_cast<V**>(slot);
        if (mpAdopted != 0) {
            *value = mpAdopted;
            mpAdopted = 0;
        } else {
            *value = mValues.create();
        }
    }

private:
    static V* valueOf(CHashMapItem* item) { return item != 0 ? static_cast<V*>(item->value) : 0; }

    // Adds the absent `key` with the value `owned`, or destroys `owned` when the key
    // finds no room.
    V* add(unsigned int key, V* owned)
    {
        if (owned == 0) {
            return 0;
        }
        mpAdopted = owned;
        void** slot = access(key);
        if (mpAdopted != 0) {
            mValues.destroy(mpAdopted);
            mpAdopted = 0;
            return 0;
        }
        return static_cast<V*>(*slot);
    }

    void addCopiesOf(const THashMap& other)
    {
        for (CHashMapItem* item = other.firstItem(); item != 0; item = other.nextItem(item)) {
            if (item->value != 0) {
                (void)add(item->key, mValues.create(*static_cast<const V*>(item->value)));
            }
        }
    }

    V* mpAdopted;
    THashValuePool<V> mValues;
};

} // namespace PAL

#endif
