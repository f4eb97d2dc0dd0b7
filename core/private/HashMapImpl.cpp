#include "core/HashMapImpl.h"

#include <new>

namespace PAL {

namespace {

// Arrays are counted in 32 bits: the largest power of two of buckets whose array
// (heads plus half as many overflow items) still fits in 2^32 bytes.
unsigned int largestBucketCount()
{
    const unsigned int fitting = 0xFFFFFFFFu / static_cast<unsigned int>(sizeof(CHashMapItem)) / 3u * 2u;
    unsigned int n = 2;
    while (n <= fitting / 2) {
        n <<= 1;
    }
    return n;
}

const unsigned int MAX_BUCKET_COUNT = largestBucketCount();

// The smallest power of two not below `n`, at least 2 and at most MAX_BUCKET_COUNT.
unsigned int bucketCountFor(unsigned int n)
{
    unsigned int p = 2;
    while (p < n && p < MAX_BUCKET_COUNT) {
        p <<= 1;
    }
    return p;
}

CHashMapItem* allocateTable(unsigned int n)
{
    if (n < 2 || n > MAX_BUCKET_COUNT) {
        return 0;
    }
    return new (std::nothrow) CHashMapItem[n + n / 2]();
}

} // namespace

void CHashMapImpl::zeroFields()
{
    mBucketZeroKey = 1;
    mEmptyKey = 0;
    mInitialBucketCount = 0;
    mEnd.key = 0;
    mEnd.value = 0;
    mEnd.next = 0;
    mpTable = 0;
    mpTableEnd = 0;
    mpFreeItem = 0;
    mBucketCount = 0;
    mMask = 0;
    mpOldTable = 0;
    mpOldTableEnd = 0;
    mpOldFreeItem = 0;
    mOldBucketCount = 0;
    mOldMask = 0;
    mLastAccessedKey = 0;
}

CHashMapImpl::CHashMapImpl(unsigned int initialSize)
{
    zeroFields();
    mInitialBucketCount = bucketCountFor(initialSize);
    initTable(mInitialBucketCount);
}

CHashMapImpl::CHashMapImpl(const CHashMapImpl& other)
{
    zeroFields();
    mInitialBucketCount = 128;
    initTable(other.mBucketCount);
    // This object's overrides are not active while its base is being built.
    copyFrom(other, const_cast<CHashMapImpl&>(other));
}

CHashMapImpl& CHashMapImpl::operator=(const CHashMapImpl& other)
{
    if (this == &other) {
        return *this;
    }
    clearEntries();
    freeTable();
    initTable(other.mBucketCount);
    copyFrom(other, *this);
    return *this;
}

CHashMapImpl::~CHashMapImpl()
{
    freeTable();
    delete[] mpOldTable;
}

// The new map takes over `other`'s values as they are; `copier`'s copyValue then gives
// `other`'s field a copy of its own.
void CHashMapImpl::copyFrom(const CHashMapImpl& other, CHashMapImpl& copier)
{
    if (mpTable == 0 || other.mpTable == 0) {
        return;
    }
    for (CHashMapItem* item = other.mpTable + 1; item < other.mpFreeItem; ++item) {
        if (other.isStored(item)) {
            insert(item->key, item->value);
            copier.copyValue(&item->value);
        }
    }
}

void CHashMapImpl::initTable(unsigned int n)
{
    const unsigned int count = bucketCountFor(n);
    CHashMapItem* table = allocateTable(count);
    freeTable();
    adoptTable(table, count);
}

void CHashMapImpl::adoptTable(CHashMapItem* table, unsigned int n)
{
    mpTable = table;
    if (table == 0) {
        mpTableEnd = 0;
        mpFreeItem = 0;
        mBucketCount = 0;
        mMask = 0;
        return;
    }
    mBucketCount = n;
    mMask = n - 1;
    mpTableEnd = table + n + n / 2;
    mpFreeItem = table + n;
    for (unsigned int i = 0; i < n; ++i) {
        table[i].key = mEmptyKey;
        table[i].value = 0;
        table[i].next = &mEnd;
    }
    // Head 0 holds a key that belongs to bucket 1, so it never matches: keys of bucket
    // 0 (key 0 among them) all go to the overflow area.
    table[0].key = mBucketZeroKey;
}

void CHashMapImpl::freeTable()
{
    delete[] mpTable;
    adoptTable(0, 0);
}

bool CHashMapImpl::isStored(const CHashMapItem* item) const
{
    return item >= mpTable + mBucketCount || item->key != mEmptyKey;
}

CHashMapItem* CHashMapImpl::hash(unsigned int key) const
{
    if (mpTable == 0) {
        return 0;
    }
    return mpTable + (key & mMask);
}

void CHashMapImpl::insert(unsigned int key, void* value)
{
    CHashMapItem* bucket = hash(key);
    if (bucket == 0) {
        return;
    }
    if (bucket->key == mEmptyKey) {
        bucket->key = key;
        bucket->value = value;
        return;
    }
    if (mpFreeItem == mpTableEnd) {
        return;
    }
    CHashMapItem* item = mpFreeItem++;
    item->key = key;
    item->value = value;
    item->next = bucket->next;
    bucket->next = item;
}

CHashMapItem* CHashMapImpl::lookup(unsigned int key) const
{
    CHashMapItem* bucket = hash(key);
    if (bucket == 0) {
        return 0;
    }
    for (CHashMapItem* item = bucket; item != &mEnd; item = item->next) {
        if (item->key == key) {
            return item;
        }
    }
    return 0;
}

void** CHashMapImpl::access(unsigned int key)
{
    if (mpTable == 0) {
        // A map without an array holds nothing, so starting afresh loses nothing.
        deleteOldTable();
        initTable(mInitialBucketCount);
        if (mpTable == 0) {
            return 0;
        }
    }
    CHashMapItem* bucket = hash(key);
    if (mpOldTable != 0) {
        deleteOldTable();
    }
    return access(bucket, key);
}

void** CHashMapImpl::access(CHashMapItem* bucket, unsigned int key)
{
    if (bucket == 0 || bucket != hash(key)) {
        return 0;
    }
    if (bucket->key == key) {
        mLastAccessedKey = key;
        return &bucket->value;
    }
    if (bucket->key == mEmptyKey) {
        bucket->key = key;
        initValue(&bucket->value);
        mLastAccessedKey = key;
        return &bucket->value;
    }
    // The sentinel holds the key, so the walk needs no end test of its own.
    mEnd.key = key;
    CHashMapItem* item = bucket->next;
    while (item->key != key) {
        item = item->next;
    }
    if (item != &mEnd) {
        mLastAccessedKey = key;
        return &item->value;
    }
    if (mpFreeItem == mpTableEnd) {
        rehash();
        if (mpFreeItem == mpTableEnd) {
            return 0;
        }
        bucket = hash(key);
        if (bucket->key == mEmptyKey) {
            bucket->key = key;
            initValue(&bucket->value);
            return &bucket->value;
        }
    }
    return take(bucket, key);
}

// Links the next overflow item, holding `key`, right after `bucket`.
void** CHashMapImpl::take(CHashMapItem* bucket, unsigned int key)
{
    CHashMapItem* item = mpFreeItem++;
    item->key = key;
    item->value = 0;
    initValue(&item->value);
    item->next = bucket->next;
    bucket->next = item;
    return &item->value;
}

void CHashMapImpl::rehash()
{
    if (mpTable == 0 || mBucketCount > MAX_BUCKET_COUNT / 2) {
        return;
    }
    if (mpOldTable != 0) {
        deleteOldTable();
    }
    const unsigned int newCount = mBucketCount * 2;
    CHashMapItem* table = allocateTable(newCount);
    if (table == 0) {
        return;
    }
    mpOldTable = mpTable;
    mpOldTableEnd = mpTableEnd;
    mpOldFreeItem = mpFreeItem;
    mOldBucketCount = mBucketCount;
    mOldMask = mMask;
    adoptTable(table, newCount);

    // Old heads land in distinct new heads; head 0 holds no key.
    for (unsigned int i = 1; i < mOldBucketCount; ++i) {
        const CHashMapItem& head = mpOldTable[i];
        if (head.key != mEmptyKey) {
            CHashMapItem* target = mpTable + (head.key & mMask);
            target->key = head.key;
            target->value = head.value;
        }
    }
    for (CHashMapItem* item = mpOldTable + mOldBucketCount; item < mpOldFreeItem; ++item) {
        insert(item->key, item->value);
    }
}

void CHashMapImpl::deleteOldTable()
{
    if (mpOldTable == 0) {
        return;
    }
    CHashMapItem* old = mpOldTable + (mLastAccessedKey & mOldMask);
    while (old != &mEnd && old->key != mLastAccessedKey) {
        old = old->next;
    }
    CHashMapItem* current = lookup(mLastAccessedKey);
    if (old != &mEnd && current != 0) {
        current->value = old->value;
    }
    delete[] mpOldTable;
    mpOldTable = 0;
    mpOldTableEnd = 0;
    mpOldFreeItem = 0;
    mOldBucketCount = 0;
    mOldMask = 0;
}

// The old array holds the same values as the current one; once they are destroyed,
// carrying one over would bring back a destroyed value. The array itself stays until
// the next access, so a late write through an old address still lands in memory.
void CHashMapImpl::forgetOldEntries()
{
    if (mpOldTable == 0) {
        return;
    }
    for (unsigned int i = 0; i < mOldBucketCount; ++i) {
        mpOldTable[i].key = mEmptyKey;
        mpOldTable[i].next = &mEnd;
    }
    mpOldTable[0].key = mBucketZeroKey;
    mpOldFreeItem = mpOldTable + mOldBucketCount;
}

void CHashMapImpl::clearEntries()
{
    if (mpTable != 0) {
        for (CHashMapItem* item = mpTable + 1; item < mpFreeItem; ++item) {
            if (isStored(item)) {
                destroyValue(&item->value);
            }
        }
    }
    forgetOldEntries();
}

void CHashMapImpl::clear()
{
    clearEntries();
    initTable(mInitialBucketCount);
}

CHashMapItem* CHashMapImpl::firstItem() const
{
    return mpTable != 0 ? nextItem(mpTable) : 0;
}

CHashMapItem* CHashMapImpl::nextItem(CHashMapItem* item) const
{
    if (item == 0 || mpTable == 0 || item < mpTable || item >= mpFreeItem) {
        return 0;
    }
    for (CHashMapItem* next = item + 1; next < mpFreeItem; ++next) {
        if (isStored(next)) {
            return next;
        }
    }
    return 0;
}

unsigned int CHashMapImpl::size() const
{
    unsigned int count = 0;
    for (CHashMapItem* item = firstItem(); item != 0; item = nextItem(item)) {
        ++count;
    }
    return count;
}

} // namespace PAL
