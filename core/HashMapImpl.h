#ifndef OSAL_KIT_CORE_HASHMAPIMPL_H
#define OSAL_KIT_CORE_HASHMAPIMPL_H

#include "core/Export.h"

namespace PAL {

/// One entry of a `CHashMapImpl`; every chain ends with a pointer to the map's sentinel.
struct CHashMapItem {
    unsigned int key;   ///< the key, which is also its hash
    void* value;        ///< as the typed subclass keeps values
    CHashMapItem* next; ///< the chain's next item, or the sentinel after the last
};

/// The untyped engine of a map from `unsigned int` keys to pointer-sized values.
///
/// The type-specific handling of values (initialising, copying, destroying) comes from
/// three pure virtual operations of a typed subclass; use a typed template such as
/// `THashMap` rather than this class. One array holds the bucket heads followed by an
/// overflow area of half as many items; overflow items are taken in order and never
/// given back one by one (there is no removal of single keys), and the map doubles its
/// buckets when a key must go to the overflow area while it is full. A key is its own
/// hash. Key 0 and every other multiple of the bucket count live in the overflow area.
///
/// `access` hands out the address of a value slot. An array replaced by a regrowth
/// stays allocated until the next `access`, which first carries the value last handed
/// out (on a hit or a head insertion) over from the old array, so a write through that
/// address just before the regrowth is not lost.
///
/// Ownership: a subclass must call `clear()` or `clearEntries()` in its own destructor;
/// the base destructor frees the arrays only, since it can no longer reach the
/// subclass's `destroyValue`.
///
/// Failures are never reported by exception. When an array cannot be allocated the
/// map has none (`capacity()` 0): `lookup` and iteration find nothing, `insert` does
/// nothing, and the next `access` first tries to make an array of the initial size
/// again. A regrowth that finds no memory keeps the current array; `access` then
/// returns null for a key that has no room.
///
/// Threads: not synchronised; `access` changes the map even on a hit, so every use of
/// one map needs the caller's exclusive lock.
///
///     PAL::THashMap<int> counts;     // core/HashMap.h, over this engine
///     counts.set(7, 1);              // false only when memory ran out
///     if (int* n = counts.find(7)) ++*n;
class OSAL_KIT_API CHashMapImpl {
public:
    /// A map of the smallest power of two of buckets not below `initialSize` (at
    /// least 2), which `clear` returns to.
    explicit CHashMapImpl(unsigned int initialSize);
    /// A map of `other`'s bucket count (returning to 128 buckets on `clear`) holding
    /// `other`'s keys and values; `other`'s `copyValue` is called on the address of each
    /// of `other`'s value fields after the value was taken over.
    CHashMapImpl(const CHashMapImpl& other);
    /// Destroys this map's values and refills it as the copy constructor does, calling
    /// this object's `copyValue` on each of `other`'s value fields.
    CHashMapImpl& operator=(const CHashMapImpl& other);
    /// Frees the arrays; the values must already have been destroyed by the subclass.
    virtual ~CHashMapImpl();

protected:
    /// Called during copying with the address of the source item's value field.
    virtual void copyValue(void* valueSlot) = 0;
    /// Releases what a stored value owns.
    virtual void destroyValue(void* valueSlot) = 0;
    /// Initialises the value of a newly added key.
    virtual void initValue(void* valueSlot) = 0;

public:
    /// A fresh array of `n` buckets (rounded up to a power of two, at least 2) plus the
    /// overflow area. A current array is freed first without destroying its values.
    void initTable(unsigned int n);
    /// The head of the bucket for `key`; null without an array.
    CHashMapItem* hash(unsigned int key) const;
    /// Places `key` / `value` as they are, without a duplicate check and without growing:
    /// only where there is known to be room. Does nothing without an array or when the
    /// overflow area is full.
    void insert(unsigned int key, void* value);
    /// The item holding `key`, or null.
    CHashMapItem* lookup(unsigned int key) const;
    /// The address of the value slot of `key`, adding the key (through `initValue`) when
    /// it is absent. Null only when the key cannot be placed for lack of memory. Write
    /// key 0 as `0u`: a plain `0` would also match the other overload.
    void** access(unsigned int key);
    /// As `access(key)` for a `bucket` that is `hash(key)`, without first releasing a
    /// pending old array. Null for any other bucket.
    void** access(CHashMapItem* bucket, unsigned int key);
    /// Doubles the bucket count, keeping the current array until the next `access` (a
    /// pending old array is released first). Does nothing when memory runs out.
    void rehash();
    /// Frees the array replaced by the last `rehash`, first carrying over the value of
    /// the key last handed out by `access` when both arrays hold that key.
    void deleteOldTable();
    /// Destroys every stored value; keys and array stay. A pending old array stays
    /// allocated but no longer carries a value over: its values were the same.
    void clearEntries();
    /// Destroys every value and starts again with the initial bucket count.
    void clear();

    /// The first stored item in array order (used heads, then overflow items in the
    /// order they were taken), or null.
    CHashMapItem* firstItem() const;
    /// The stored item after `item`, or null after the last one.
    CHashMapItem* nextItem(CHashMapItem* item) const;
    /// The address of the item's key field (null for a null item).
    unsigned int* getKey(CHashMapItem* item) const { return item != 0 ? &item->key : 0; }
    /// The address of the item's value field (null for a null item).
    void** getValue(CHashMapItem* item) const { return item != 0 ? &item->value : 0; }

    /// Number of stored keys; a scan of the array, in time proportional to `capacity()`.
    unsigned int size() const;
    /// Bucket heads plus overflow items: 1.5 times the bucket count (0 without an array).
    unsigned int capacity() const { return mBucketCount + mBucketCount / 2; }

protected:
    ///@{
    /// The engine's state, protected so that a typed subclass can read it (`THashMap`
    /// copies `mBucketCount` and `mInitialBucketCount`, and sets the latter in its copy
    /// constructor); only the functions above change the rest.
    unsigned int mBucketZeroKey;
    unsigned int mEmptyKey;
    unsigned int mInitialBucketCount;
    CHashMapItem mEnd;
    CHashMapItem* mpTable;
    CHashMapItem* mpTableEnd;
    CHashMapItem* mpFreeItem;
    unsigned int mBucketCount;
    unsigned int mMask;
    CHashMapItem* mpOldTable;
    CHashMapItem* mpOldTableEnd;
    CHashMapItem* mpOldFreeItem;
    unsigned int mOldBucketCount;
    unsigned int mOldMask;
    unsigned int mLastAccessedKey;
    ///@}

private:
    void zeroFields();
    void adoptTable(CHashMapItem* table, unsigned int n);
    void freeTable();
    void forgetOldEntries();
    void copyFrom(const CHashMapImpl& other, CHashMapImpl& copier);
    bool isStored(const CHashMapItem* item) const;
    void** take(CHashMapItem* bucket, unsigned int key);
};

} // namespace PAL

#endif
