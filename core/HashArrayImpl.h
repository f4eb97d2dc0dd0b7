#ifndef OSAL_KIT_CORE_HASHARRAYIMPL_H
#define OSAL_KIT_CORE_HASHARRAYIMPL_H

#include "core/Export.h"

namespace PAL {

/// One entry of a `CHashArrayImpl`. In the bucket array, `next` is null for an empty
/// bucket; every non-empty chain ends with a pointer to its container's sentinel.
struct CHashArrayItem {
    void* key;            ///< as the typed subclass keeps keys (see `keyKind`)
    void* value;          ///< as the typed subclass keeps values
    CHashArrayItem* next; ///< the chain's next item, or the sentinel after the last
};

/// The untyped engine of a chained hash table with pointer-sized keys and values.
///
/// Everything type-specific (hashing, key equality, copying and destroying keys and
/// values) comes from the seven pure virtual operations of a typed subclass; use a
/// typed template such as `THashArray` rather than this class. Each bucket holds the
/// first item of its chain inline, so only collisions allocate; chain items that a
/// growth no longer needs are kept for later collisions (and a shrink) until
/// `destroy()`. The bucket count is a power of two; the table doubles when the count
/// reaches twice the bucket count and, above 1,024 buckets, halves when the count
/// falls to half the bucket count.
///
/// Ownership: the engine owns its items; a subclass must call `destroy()` (or `clear()`)
/// in its own destructor, because the base destructor can no longer reach the
/// subclass's `destroyKey` / `destroyValue`.
///
/// Failures are never reported by exception. A bucket array that cannot be allocated
/// leaves the table without buckets (`capacity()` 0): lookups and iteration find
/// nothing, and the next `fastInsert` first tries to make a 2-bucket table again. A
/// growth or shrink that cannot get memory keeps the current table with every item in
/// it; the growth is tried again by the next `fastInsert`, the shrink when the count
/// next falls to the limit. A chain item that cannot be allocated makes
/// `insertAtPosition` / `fastInsert` return null with the table unchanged.
///
/// Threads: none of this is synchronised, and even the const operations write the
/// sentinel or the iteration position, so every use of one table needs the caller's
/// exclusive lock.
///
///     PAL::THashArray<PAL::CString, int> ages;   // core/HashArray.h, over this engine
///     ages.insert("ada", 36);                    // false only when memory ran out
///     if (const int* age = ages.find("ada")) ...
class OSAL_KIT_API CHashArrayImpl {
protected:
    // Declared first: the destructor follows these seven in the virtual table.
    /// Hash of a key; only the bits under the bucket mask are used.
    virtual unsigned int hashKey(void* key) const = 0;
    /// 3: keys are equal exactly when the pointers are; anything else: ask `keysEqual`.
    virtual int keyKind() const = 0;
    /// Whether a stored key equals `key`; asked only when `keyKind()` is not 3.
    virtual bool keysEqual(void* storedKey, void* key) const = 0;
    /// Releases what a stored key owns; gets the address of the key field.
    virtual void destroyKey(void* keySlot) = 0;
    /// Releases what a stored value owns; gets the address of the value field.
    virtual void destroyValue(void* valueSlot) = 0;
    /// May replace the key at `keySlot` by an owned copy that hashes and compares like it.
    virtual void copyKey(void* keySlot) = 0;
    /// May replace the value at `valueSlot` by an owned copy.
    virtual void copyValue(void* valueSlot) = 0;

public:
    /// A table of the smallest power of two of buckets not below `initialSize` (at
    /// least 1).
    explicit CHashArrayImpl(unsigned int initialSize);
    /// A table of `other`'s bucket count holding copies made by `other`'s `copyKey` /
    /// `copyValue` (this object's overrides are not active yet). An item whose chain
    /// item cannot be allocated is released again with `other`'s `destroyKey` /
    /// `destroyValue` and left out.
    CHashArrayImpl(const CHashArrayImpl& other);
    /// Empties this table and refills it with `fastInsert` of every item of `other`,
    /// through this object's operations. Items that find no memory are left out.
    CHashArrayImpl& operator=(const CHashArrayImpl& other);
    /// Frees the storage only: keys and values left in the table are not destroyed.
    virtual ~CHashArrayImpl();

    /// A fresh table of `n` empty buckets (`n` is rounded up to a power of two, at
    /// least 1); items of a current table are released first, as by `destroy()`.
    void init(unsigned int n);
    /// Releases every item through `destroyKey` / `destroyValue` and frees the buckets,
    /// leaving a table without buckets (count and capacity 0).
    void destroy();
    /// `destroy()`, then a table of 2 buckets.
    void clear();

    /// The bucket for `key`; null when there is no table.
    CHashArrayItem* tableEntryFor(void* key) const;
    /// The item holding `key`, or null.
    CHashArrayItem* lookup(void* key) const;
    /// Adds `key` / `value` (copied through `copyKey` / `copyValue`) without checking
    /// for a duplicate, growing first when the count reaches `capacity()`. Returns the
    /// new item, or null when no chain item could be had; then the copies have been
    /// released through `destroyKey` / `destroyValue` and the table is unchanged.
    CHashArrayItem* fastInsert(void* key, void* value);
    /// Places `key` / `value` as they are into `bucket`: in the bucket itself when it is
    /// empty, otherwise in a new item right after its head. Null for a null bucket or
    /// when the item cannot be allocated (nothing changes). Does not count the item.
    CHashArrayItem* insertAtPosition(CHashArrayItem* bucket, void* key, void* value);
    /// Removes `key`; false when it is not there.
    bool remove(void* key);
    /// Releases `item` and unlinks it; a null item, or one not in this table, is ignored.
    void removeItem(CHashArrayItem* item);
    /// Redistributes every item over `n` buckets (rounded up to a power of two)
    /// without copying keys or values. Keeps the current table when memory runs out.
    void rehash(unsigned int n);

    /// The first item in bucket order, or null. There is one iteration position per
    /// table; any insertion or removal ends the iteration.
    CHashArrayItem* firstItem() const;
    /// The item after `item`, or null after the last one.
    CHashArrayItem* nextItem(CHashArrayItem* item) const;
    /// The address of the item's key field (null for a null item).
    void** getKey(CHashArrayItem* item) const { return item != 0 ? &item->key : 0; }
    /// The address of the item's value field (null for a null item).
    void** getValue(CHashArrayItem* item) const { return item != 0 ? &item->value : 0; }

    /// Number of items.
    unsigned int size() const { return mCount; }
    /// The count at which the table grows: twice the bucket count (0 without a table).
    unsigned int capacity() const { return mGrowLimit; }

protected:
    ///@{
    /// The engine's state, protected so that a typed subclass can read it (`THashArray`
    /// copies `mBucketCount`); only the functions above change it.
    mutable CHashArrayItem mEnd;
    CHashArrayItem* mpTable;
    mutable CHashArrayItem* mpIterBucket;
    unsigned int mBucketCount;
    unsigned int mMask;
    unsigned int mShrinkLimit;
    unsigned int mGrowLimit;
    unsigned int mCount;
    ///@}

private:
    void adoptBuckets(CHashArrayItem* buckets, unsigned int n);
    void releaseItems();
    void freeSpareItems();
    bool ownsBucket(const CHashArrayItem* item) const;
    CHashArrayItem* nextUsedBucket() const;
    unsigned int sparesForRehash(CHashArrayItem* newTable, unsigned int newMask) const;
};

} // namespace PAL

#endif
