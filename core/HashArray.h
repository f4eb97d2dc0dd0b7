#ifndef OSAL_KIT_CORE_HASHARRAY_H
#define OSAL_KIT_CORE_HASHARRAY_H

#include "core/HashArrayImpl.h"
#include "core/HashValuePool.h"
#include "core/String.h"

#include <cstdint>
#include <new>
#include <type_traits>

namespace PAL {

/// How `THashArray` hashes and compares keys of type `K`. Integers and enumerations
/// hash to their value; `CString` keys hash with `getHashValueForString`. Specialise
/// it, or pass traits of your own, for other key types: equal keys must hash alike.
template <typename K>
struct THashKeyTraits {
    /// The key converted to `unsigned int`.
    static unsigned int hash(const K& key) { return static_cast<unsigned int>(key); }
    /// `a == b`.
    static bool equal(const K& a, const K& b) { return a == b; }
};

/// `CString` keys: hashed over their bytes, equal as `CString::operator==` says.
template <>
struct THashKeyTraits<CString> {
    /// `getHashValueForString(key)`.
    static unsigned int hash(const CString& key) { return getHashValueForString(key); }
    /// `a == b`.
    static bool equal(const CString& a, const CString& b) { return a == b; }
};

namespace Detail {

// How `THashArray` keeps its keys in the engine's pointer-sized key fields: integers
// with the default traits as their own bits (equal exactly when the bits are, so the
// engine compares the fields directly and nothing is allocated), every other key as an
// owned copy on the heap.
template <typename K, bool InField>
struct THashKeyStore {
    static const int KIND = 0;
    static void* forLookup(const K& key) { return const_cast<K*>(&key); }
    static bool make(const K& key, void*& field)
    {
        field = new (std::nothrow) K(key);
        return field != 0;
    }
    static void copy(void*& field)
    {
        if (field != 0) {
            field = new (std::nothrow) K(*static_cast<const K*>(field));
        }
    }
    static void release(void*& field)
    {
        delete static_cast<K*>(field);
        field = 0;
    }
    struct Scratch {};
    // A copy that finds no memory leaves a null field, which hashes and compares safely.
    static bool usable(void* field) { return field != 0; }
    static const K& key(void* field, Scratch&) { return *static_cast<const K*>(field); }
};

template <typename K>
struct THashKeyStore<K, true> {
    // Keys equal exactly when the fields do: the engine's pointer comparison.
    static const int KIND = 3;
    static void* forLookup(const K& key) { return reinterpret_cast<void*>(static_cast<std::uintptr_t>(key)); }
    static bool make(const K& key, void*& field)
    {
        field = forLookup(key);
        return true;
    }
    static void copy(void*&) {}
    static void release(void*&) {}
    // The key read back from a field.
    struct Scratch {
        K key;
    };
    static bool usable(void*) { return true; }
    static const K& key(void* field, Scratch& scratch)
    {
        scratch.key = static_cast<K>(reinterpret_cast<std::uintptr_t>(field));
        return scratch.key;
    }
};

} // namespace Detail

/// A hash table from `K` to `V` over `CHashArrayImpl`: it owns a copy of every key and
/// value (values in blocks of its own, so the address `find` gives stays valid until
/// that key is removed or the table is cleared, assigned or destroyed) and destroys
/// each exactly once. Integer keys with the default traits are kept in the table
/// itself; other keys are copied to the heap.
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
    explicit THashArray(unsigned int initialSize = 16)
        : CHashArrayImpl(initialSize), mAdopting(false), mDiscarding(false)
    {
    }
    /// Copies every key and value of `other`.
    THashArray(const THashArray& other) : CHashArrayImpl(other.mBucketCount), mAdopting(false), mDiscarding(false)
    {
        addCopiesOf(other);
    }
    /// Destroys this table's items, then copies every key and value of `other`.
    THashArray& operator=(const THashArray& other)
    {
        if (this != &other) {
            discardAll();
            init(other.mBucketCount);
            addCopiesOf(other);
        }
        return *this;
    }
    ~THashArray() { discardAll(); }

    /// Adds `key` with a copy of `value`, or assigns `value` to the value of a present
    /// key. False when memory ran out; the table is then unchanged.
    bool insert(const K& key, const V& value)
    {
        CHashArrayItem* bucket = 0;
        if (CHashArrayItem* present = findItem(key, bucket)) {
            *static_cast<V*>(present->value) = value;
            return true;
        }
        return add(key, value, bucket);
    }
    ///@{
    /// The value of `key`, or null when it is absent.
    V* find(const K& key)
    {
        CHashArrayItem* bucket = 0;
        return valueOf(findItem(key, bucket));
    }
    const V* find(const K& key) const
    {
        CHashArrayItem* bucket = 0;
        return valueOf(findItem(key, bucket));
    }
    ///@}
    /// Whether `key` is present.
    bool contains(const K& key) const
    {
        CHashArrayItem* bucket = 0;
        return findItem(key, bucket) != 0;
    }
    /// Removes `key`, destroying its key and value; false when it is absent.
    bool remove(const K& key) { return CHashArrayImpl::remove(KeyStore::forLookup(key)); }

    /// Calls `visit(const K&, V&)` once for every item, in table order.
    template <typename Visitor>
    void forEach(Visitor visit)
    {
        typename KeyStore::Scratch scratch;
        for (CHashArrayItem* item = firstItem(); item != 0; item = nextItem(item)) {
            visit(KeyStore::key(item->key, scratch), *static_cast<V*>(item->value));
        }
    }
    /// Calls `visit(const K&, const V&)` once for every item, in table order.
    template <typename Visitor>
    void forEach(Visitor visit) const
    {
        typename KeyStore::Scratch scratch;
        for (CHashArrayItem* item = firstItem(); item != 0; item = nextItem(item)) {
            visit(KeyStore::key(item->key, scratch), *static_cast<const V*>(item->value));
        }
    }

    /// Destroys every item and starts again with 2 buckets.
    void clear()
    {
        discardAll();
        init(2);
    }
    /// Number of items.
    using CHashArrayImpl::size;
    /// The count at which the table grows.
    using CHashArrayImpl::capacity;

protected:
    // Keys and values are owned copies. `insert` makes them before the engine sees them
    // and lets the engine adopt them as they are; otherwise a copy is made here, and
    // one that finds no memory leaves a null that hashes and compares safely. Hashing
    // and comparing are final: `find` does both itself, through `Traits`.
    unsigned int hashKey(void* key) const final
    {
        typename KeyStore::Scratch scratch;
        return KeyStore::usable(key) ? Traits::hash(KeyStore::key(key, scratch)) : 0;
    }
    int keyKind() const final { return KeyStore::KIND; }
    bool keysEqual(void* storedKey, void* key) const final
    {
        if (KeyStore::KIND == 3) {
            return storedKey == key;
        }
        typename KeyStore::Scratch a;
        typename KeyStore::Scratch b;
        return KeyStore::usable(storedKey) && KeyStore::usable(key)
            && Traits::equal(KeyStore::key(storedKey, a), KeyStore::key(key, b));
    }
    void destroyKey(void* slot) override { KeyStore::release(*static_cast<void**>(slot)); }
    void destroyValue(void* slot) override
    {
        V** value = static_cast<V**>(slot);
        if (mDiscarding) {
            mValues.discard(*value);
        } else {
            mValues.destroy(*value);
        }
        *value = 0;
    }
    void copyKey(void* slot) override
    {
        if (!mAdopting) {
            KeyStore::copy(*static_cast<void**>(slot));
        }
    }
    void copyValue(void* slot) override
    {
        V** value = static_cast<V**>(slot);
        if (!mAdopting && *value != 0) {
            *value = mValues.create(**value);
        }
    }

private:
    typedef Detail::THashKeyStore<K, (std::is_integral<K>::value && sizeof(K) <= sizeof(void*)
                                      && std::is_same<Traits, THashKeyTraits<K> >::value)> KeyStore;

    static V* valueOf(CHashArrayItem* item) { return item != 0 ? static_cast<V*>(item->value) : 0; }

    // The engine's lookup, less its calls through the virtual table: this class knows how
    // its keys hash and compare. Also gives the key's bucket (null without a table).
    CHashArrayItem* findItem(const K& key, CHashArrayItem*& bucket) const
    {
        bucket = mpTable != 0 ? mpTable + (Traits::hash(key) & mMask) : 0;
        if (bucket == 0 || bucket->next == 0) {
            return 0;
        }
        if (KeyStore::KIND == 3) {
            void* const field = KeyStore::forLookup(key);
            mEnd.key = field; // stops the walk
            CHashArrayItem* item = bucket;
            while (item->key != field) {
                item = item->next;
            }
            return item != &mEnd ? item : 0;
        }
        typename KeyStore::Scratch scratch;
        for (CHashArrayItem* item = bucket; item != &mEnd; item = item->next) {
            if (KeyStore::usable(item->key) && Traits::equal(KeyStore::key(item->key, scratch), key)) {
                return item;
            }
        }
        return 0;
    }

    // `bucket`: the key's bucket in the current table, or null to have the engine find it.
    bool add(const K& key, const V& value, CHashArrayItem* bucket = 0)
    {
        void* ownedKey = 0;
        if (!KeyStore::make(key, ownedKey)) {
            return false;
        }
        V* ownedValue = mValues.create(value);
        if (ownedValue == 0) {
            KeyStore::release(ownedKey);
            return false;
        }
        if (bucket != 0 && mCount + 1 < mGrowLimit) {
            // What fastInsert would do short of growing, with the bucket already known
            // and the copies already made.
            if (insertAtPosition(bucket, ownedKey, ownedValue) == 0) {
                KeyStore::release(ownedKey);
                mValues.destroy(ownedValue);
                return false;
            }
            ++mCount;
            return true;
        }
        mAdopting = true;
        // On failure the engine has released both through destroyKey / destroyValue.
        const bool added = fastInsert(ownedKey, ownedValue) != 0;
        mAdopting = false;
        return added;
    }

    void addCopiesOf(const THashArray& other)
    {
        typename KeyStore::Scratch scratch;
        for (CHashArrayItem* item = other.firstItem(); item != 0; item = other.nextItem(item)) {
            (void)add(KeyStore::key(item->key, scratch), *static_cast<const V*>(item->value));
        }
    }

    // Every item goes: values are destroyed where they stand, their slots not chained for
    // reuse, since the blocks are freed right after.
    void discardAll()
    {
        mDiscarding = true;
        destroy();
        mDiscarding = false;
        mValues.release();
    }

    THashValuePool<V> mValues;
    bool mAdopting;
    bool mDiscarding;
};

} // namespace PAL

#endif
