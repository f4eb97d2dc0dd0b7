#ifndef OSAL_KIT_CORE_HASHARRAY_H
#define OSAL_KIT_CORE_HASHARRAY_H

#include "core/HashArrayImpl.h"
#include "core/String.h"

#include <new>

namespace PAL {

/// How `THashArray` hashes and compares keys of type `K`. Integers and enumerations
/// hash to their value; `CString` keys hash with `getHashValueForString`. Specialise
/// it, or pass traits of your own, for other key types: equal keys must hash alike.
template <typename K>
struct THashKeyTraits {
    static unsigned int hash(const K& key) { return static_cast<unsigned int>(key); }
    static bool equal(const K& a, const K& b) { return a == b; }
};

template <>
struct THashKeyTraits<CString> {
    static unsigned int hash(const CString& key) { return getHashValueForString(key); }
    static bool equal(const CString& a, const CString& b) { return a == b; }
};

/// A hash table from `K` to `V` over `CHashArrayImpl`: it owns a copy of every key and
/// value (each on the heap, so the address `find` gives stays valid until that key is
/// removed or the table is cleared, assigned or destroyed) and destroys each exactly
/// once.
///
/// No operation throws. When memory runs out, `insert` returns false and the table is
/// as it was; a copy or an assignment made then holds only the items it could get
/// (compare `size()`). `K` and `V` need copy construction; `insert` of a present key
/// uses `V`'s assignment.
///
/// Threads: not synchronised, and even `find` writes internal state, so every use of
/// one table needs the caller's exclusive lock. `forEach` is the one iteration of the
/// table at a time; the visitor must not insert or remove.
///
///     PAL::THashArray<PAL::CString, unsigned int> ports;
///     if (!ports.insert("http", 80)) { /* out of memory, nothing changed */ }
///     if (unsigned int* port = ports.find("http")) *port = 8080;
///     ports.forEach([](const PAL::CString& name, unsigned int& port) { ... });
template <typename K, typename V, typename Traits = THashKeyTraits<K> >
class THashArray : protected CHashArrayImpl {
public:
    /// An empty table with room for about twice `initialSize` items before it grows.
    explicit THashArray(unsigned int initialSize = 16) : CHashArrayImpl(initialSize), mAdopting(false) {}
    /// Copies every key and value of `other`.
    THashArray(const THashArray& other) : CHashArrayImpl(other.mBucketCount), mAdopting(false)
    {
        addCopiesOf(other);
    }
    /// Destroys this table's items, then copies every key and value of `other`.
    THashArray& operator=(const THashArray& other)
    {
        if (this != &other) {
            destroy();
            init(other.mBucketCount);
            addCopiesOf(other);
        }
        return *this;
    }
    ~THashArray() { destroy(); }

    /// Adds `key` with a copy of `value`, or assigns `value` to the value of a present
    /// key. False when memory ran out; the table is then unchanged.
    bool insert(const K& key, const V& value)
    {
        if (V* present = find(key)) {
            *present = value;
            return true;
        }
        return add(key, value);
    }
    /// The value of `key`, or null when it is absent.
    V* find(const K& key) { return valueOf(lookup(keySlot(key))); }
    const V* find(const K& key) const { return valueOf(lookup(keySlot(key))); }
    bool contains(const K& key) const { return lookup(keySlot(key)) != 0; }
    /// Removes `key`, destroying its key and value; false when it is absent.
    bool remove(const K& key) { return CHashArrayImpl::remove(keySlot(key)); }

    /// Calls `visit(const K&, V&)` once for every item, in table order.
    template <typename Visitor>
    void forEach(Visitor visit)
    {
        for (CHashArrayItem* item = firstItem(); item != 0; item = nextItem(item)) {
            visit(*static_cast<const K*>(item->key), *static_cast<V*>(item->value));
        }
    }
    /// Calls `visit(const K&, const V&)` once for every item, in table order.
    template <typename Visitor>
    void forEach(Visitor visit) const
    {
        for (CHashArrayItem* item = firstItem(); item != 0; item = nextItem(item)) {
            visit(*static_cast<const K*>(item->key), *static_cast<const V*>(item->value));
        }
    }

    /// Destroys every item and starts again with 2 buckets.
    using CHashArrayImpl::clear;
    /// Number of items.
    using CHashArrayImpl::size;
    /// The count at which the table grows.
    using CHashArrayImpl::capacity;

protected:
    // Keys and values are owned heap copies. `insert` makes them before the engine
    // sees them and lets the engine adopt them as they are; otherwise a copy is made
    // here, and one that finds no memory leaves a null that hashes and compares safely.
    unsigned int hashKey(void* key) const override { return key != 0 ? Traits::hash(*static_cast<const K*>(key)) : 0; }
    int keyKind() const override { return 0; }
    bool keysEqual(void* storedKey, void* key) const override
    {
        return storedKey != 0 && key != 0 && Traits::equal(*static_cast<const K*>(storedKey), *static_cast<const K*>(key));
    }
    void destroyKey(void* slot) override
    {
        K** key = static_cast<K**>(slot);
        delete *key;
        *key = 0;
    }
    void destroyValue(void* slot) override
    {
        V** value = static_cast<V**>(slot);
        delete *value;
        *value = 0;
    }
    void copyKey(void* slot) override
    {
        K** key = static_cast<K**>(slot);
        if (!mAdopting && *key != 0) {
            *key = new (std::nothrow) K(**key);
        }
    }
    void copyValue(void* slot) override
    {
        V** value = static_cast<V**>(slot);
        if (!mAdopting && *value != 0) {
            *value = new (std::nothrow) V(**value);
        }
    }

private:
    static void* keySlot(const K& key) { return const_cast<K*>(&key); }
    static V* valueOf(CHashArrayItem* item) { return item != 0 ? static_cast<V*>(item->value) : 0; }

    bool add(const K& key, const V& value)
    {
        K* ownedKey = new (std::nothrow) K(key);
        V* ownedValue = ownedKey != 0 ? new (std::nothrow) V(value) : 0;
        if (ownedValue == 0) {
            delete ownedKey;
            return false;
        }
        mAdopting = true;
        // On failure the engine has released both through destroyKey / destroyValue.
        const bool added = fastInsert(ownedKey, ownedValue) != 0;
        mAdopting = false;
        return added;
    }

    void addCopiesOf(const THashArray& other)
    {
        for (CHashArrayItem* item = other.firstItem(); item != 0; item = other.nextItem(item)) {
            (void)add(*static_cast<const K*>(item->key), *static_cast<const V*>(item->value));
        }
    }

    bool mAdopting;
};

} // namespace PAL

#endif
