#include "core/HashArrayImpl.h"

#include <new>

namespace PAL {

namespace {

// Bucket arrays are counted in 32 bits: the largest power of two whose array still
// fits in 2^32 bytes. Anything beyond is treated as memory that cannot be had.
unsigned int largestBucketCount()
{
    const unsigned int fitting = 0xFFFFFFFFu / static_cast<unsigned int>(sizeof(CHashArrayItem));
    unsigned int n = 1;
    while (n <= fitting / 2) {
        n <<= 1;
    }
    return n;
}

const unsigned int MAX_BUCKET_COUNT = largestBucketCount();

// Tables of up to this many buckets never shrink.
const unsigned int SHRINK_THRESHOLD = 1024;

unsigned int roundUpToPowerOfTwo(unsigned int n)
{
    unsigned int p = 1;
    while (p < n && p < 0x80000000u) {
        p <<= 1;
    }
    return p;
}

CHashArrayItem* allocateBuckets(unsigned int n)
{
    if (n == 0 || n > MAX_BUCKET_COUNT) {
        return 0;
    }
    return new (std::nothrow) CHashArrayItem[n]();
}

} // namespace

CHashArrayImpl::CHashArrayImpl(unsigned int initialSize)
    : mpTable(0), mpIterBucket(0), mBucketCount(0), mMask(0), mShrinkLimit(0), mGrowLimit(0), mCount(0)
{
    mEnd.key = 0;
    mEnd.value = 0;
    mEnd.next = 0;
    init(initialSize);
}

CHashArrayImpl::CHashArrayImpl(const CHashArrayImpl& other)
    : mpTable(0), mpIterBucket(0), mBucketCount(0), mMask(0), mShrinkLimit(0), mGrowLimit(0), mCount(0)
{
    mEnd.key = 0;
    mEnd.value = 0;
    mEnd.next = 0;
    init(other.mBucketCount);
    if (mpTable == 0 || other.mpTable == 0) {
        return;
    }
    // This object's overrides are not active while its base is being built, so the
    // source's operations make the copies (and release them when they find no room).
    CHashArrayImpl& source = const_cast<CHashArrayImpl&>(other);
    for (unsigned int i = 0; i < other.mBucketCount; ++i) {
        if (other.mpTable[i].next == 0) {
            continue;
        }
        for (CHashArrayItem* item = &other.mpTable[i]; item != &other.mEnd; item = item->next) {
            void* key = item->key;
            void* value = item->value;
            source.copyKey(&key);
            source.copyValue(&value);
            CHashArrayItem* bucket = mpTable + (source.hashKey(key) & mMask);
            if (insertAtPosition(bucket, key, value) != 0) {
                ++mCount;
            } else {
                source.destroyKey(&key);
                source.destroyValue(&value);
            }
        }
    }
}

CHashArrayImpl& CHashArrayImpl::operator=(const CHashArrayImpl& other)
{
    if (this == &other) {
        return *this;
    }
    destroy();
    init(other.mBucketCount);
    if (mpTable == 0 || other.mpTable == 0) {
        return *this;
    }
    for (unsigned int i = 0; i < other.mBucketCount; ++i) {
        if (other.mpTable[i].next == 0) {
            continue;
        }
        for (CHashArrayItem* item = &other.mpTable[i]; item != &other.mEnd; item = item->next) {
            (void)fastInsert(item->key, item->value);
        }
    }
    return *this;
}

CHashArrayImpl::~CHashArrayImpl()
{
    // The subclass has destroyed the items already; only the storage is left. Its
    // destroyKey / destroyValue cannot be reached from here.
    if (mpTable != 0) {
        releaseItems();
    }
}

void CHashArrayImpl::init(unsigned int n)
{
    if (mpTable != 0) {
        destroy();
    }
    const unsigned int count = roundUpToPowerOfTwo(n);
    adoptBuckets(allocateBuckets(count), count);
    mCount = 0;
}

void CHashArrayImpl::adoptBuckets(CHashArrayItem* buckets, unsigned int n)
{
    mpTable = buckets;
    mpIterBucket = 0;
    if (buckets == 0) {
        mBucketCount = 0;
        mMask = 0;
        mShrinkLimit = 0;
        mGrowLimit = 0;
        return;
    }
    mBucketCount = n;
    mMask = n - 1;
    mShrinkLimit = n > SHRINK_THRESHOLD ? n / 2 : 0;
    mGrowLimit = 2 * n;
}

void CHashArrayImpl::destroy()
{
    if (mpTable == 0) {
        return;
    }
    // One walk: each item is released and its chain item freed as it is passed.
    for (unsigned int i = 0; i < mBucketCount; ++i) {
        CHashArrayItem* bucket = &mpTable[i];
        if (bucket->next == 0) {
            continue;
        }
        CHashArrayItem* item = bucket;
        do {
            CHashArrayItem* following = item->next;
            destroyKey(&item->key);
            destroyValue(&item->value);
            if (item != bucket) {
                delete item;
            }
            item = following;
        } while (item != &mEnd);
    }
    delete[] mpTable;
    freeSpareItems();
    adoptBuckets(0, 0);
    mCount = 0;
}

// Frees the chain items and the bucket array without looking at keys or values.
void CHashArrayImpl::releaseItems()
{
    for (unsigned int i = 0; i < mBucketCount; ++i) {
        CHashArrayItem* item = mpTable[i].next;
        if (item == 0) {
            continue;
        }
        while (item != &mEnd) {
            CHashArrayItem* following = item->next;
            delete item;
            item = following;
        }
    }
    delete[] mpTable;
    freeSpareItems();
    mpTable = 0;
    mpIterBucket = 0;
}

// Chain items left over from a rehash wait in the sentinel's `next`, which no walk
// follows (every walk stops at the sentinel).
void CHashArrayImpl::freeSpareItems()
{
    while (mEnd.next != 0) {
        CHashArrayItem* following = mEnd.next->next;
        delete mEnd.next;
        mEnd.next = following;
    }
}

void CHashArrayImpl::clear()
{
    destroy();
    init(2);
}

CHashArrayItem* CHashArrayImpl::tableEntryFor(void* key) const
{
    if (mpTable == 0) {
        return 0;
    }
    return mpTable + (hashKey(key) & mMask);
}

CHashArrayItem* CHashArrayImpl::lookup(void* key) const
{
    CHashArrayItem* bucket = tableEntryFor(key);
    if (bucket == 0 || bucket->next == 0) {
        return 0;
    }
    mEnd.key = key;
    if (keyKind() == 3) {
        // The sentinel holds the key, so the walk needs no end test of its own.
        CHashArrayItem* item = bucket;
        while (item->key != key) {
            item = item->next;
        }
        return item == &mEnd ? 0 : item;
    }
    for (CHashArrayItem* item = bucket; item != &mEnd; item = item->next) {
        if (keysEqual(item->key, key)) {
            return item;
        }
    }
    return 0;
}

CHashArrayItem* CHashArrayImpl::fastInsert(void* key, void* value)
{
    if (mpTable == 0) {
        // A table without buckets holds nothing, so starting afresh loses nothing.
        init(2);
        if (mpTable == 0) {
            return 0;
        }
    }
    CHashArrayItem* bucket = tableEntryFor(key);
    ++mCount;
    // At or past the limit: a growth that found no memory earlier is tried again.
    if (mCount >= mGrowLimit && mBucketCount < MAX_BUCKET_COUNT) {
        rehash(mBucketCount * 2);
        bucket = tableEntryFor(key);
    }
    copyKey(&key);
    copyValue(&value);
    CHashArrayItem* item = insertAtPosition(bucket, key, value);
    if (item == 0) {
        destroyKey(&key);
        destroyValue(&value);
        --mCount;
    }
    return item;
}

bool CHashArrayImpl::ownsBucket(const CHashArrayItem* item) const
{
    return mpTable != 0 && item >= mpTable && item < mpTable + mBucketCount;
}

CHashArrayItem* CHashArrayImpl::insertAtPosition(CHashArrayItem* bucket, void* key, void* value)
{
    if (bucket == 0 || !ownsBucket(bucket)) {
        return 0;
    }
    if (bucket->next == 0) {
        bucket->key = key;
        bucket->value = value;
        bucket->next = &mEnd;
        return bucket;
    }
    CHashArrayItem* item = mEnd.next;
    if (item != 0) {
        mEnd.next = item->next;
    } else {
        item = new (std::nothrow) CHashArrayItem;
        if (item == 0) {
            return 0;
        }
    }
    item->key = key;
    item->value = value;
    item->next = bucket->next;
    bucket->next = item;
    return item;
}

bool CHashArrayImpl::remove(void* key)
{
    CHashArrayItem* item = lookup(key);
    if (item == 0) {
        return false;
    }
    removeItem(item);
    return true;
}

void CHashArrayImpl::removeItem(CHashArrayItem* item)
{
    if (item == 0 || item == &mEnd || mpTable == 0) {
        return;
    }
    CHashArrayItem* bucket = tableEntryFor(item->key);
    if (bucket->next == 0) {
        return;
    }
    // Find the item (and its predecessor) before touching anything: a pointer that is
    // not in this table is ignored.
    CHashArrayItem* previous = 0;
    CHashArrayItem* current = bucket;
    while (current != item) {
        previous = current;
        current = current->next;
        if (current == &mEnd) {
            return;
        }
    }
    destroyKey(&item->key);
    destroyValue(&item->value);
    if (previous == 0) {
        CHashArrayItem* second = bucket->next;
        if (second == &mEnd) {
            bucket->key = 0;
            bucket->value = 0;
            bucket->next = 0;
        } else {
            bucket->key = second->key;
            bucket->value = second->value;
            bucket->next = second->next;
            delete second;
        }
    } else {
        previous->next = item->next;
        delete item;
    }
    --mCount;
    if (mCount == mShrinkLimit && mCount != 0) {
        rehash(mBucketCount / 2);
    }
}

// Replays the placement order of `rehash` on the empty `newTable` (marking used buckets
// in it) to find how many chain items the move must have beyond those it frees: an
// old head that lands behind another item needs one, and an old chain item that lands
// in an empty bucket gives its own back. Growth never needs any; shrinking may.
unsigned int CHashArrayImpl::sparesForRehash(CHashArrayItem* newTable, unsigned int newMask) const
{
    unsigned int freed = 0;
    unsigned int extra = 0;
    for (unsigned int i = 0; i < mBucketCount; ++i) {
        if (mpTable[i].next == 0) {
            continue;
        }
        for (CHashArrayItem* item = &mpTable[i]; item != &mEnd; item = item->next) {
            CHashArrayItem* target = newTable + (hashKey(item->key) & newMask);
            const bool isHead = item == &mpTable[i];
            if (target->next == 0) {
                target->next = &mEnd;
                if (!isHead) {
                    ++freed;
                }
            } else if (isHead) {
                if (freed > 0) {
                    --freed;
                } else {
                    ++extra;
                }
            }
        }
    }
    return extra;
}

void CHashArrayImpl::rehash(unsigned int n)
{
    if (mpTable == 0) {
        return;
    }
    const unsigned int newCount = roundUpToPowerOfTwo(n);
    CHashArrayItem* newTable = allocateBuckets(newCount);
    if (newTable == 0) {
        return;
    }
    const unsigned int newMask = newCount - 1;

    // Every chain item the move needs is had before anything moves, so running out of
    // memory leaves the current table exactly as it was. Only shrinking needs any: else
    // an old bucket's items go to buckets that no other old bucket fills, its head first.
    unsigned int extra = 0;
    if (newCount < mBucketCount) {
        extra = sparesForRehash(newTable, newMask);
        for (unsigned int i = 0; i < newCount; ++i) {
            newTable[i].next = 0;
        }
    }
    CHashArrayItem* spares = mEnd.next;
    mEnd.next = 0;
    unsigned int kept = 0;
    for (CHashArrayItem* spare = spares; spare != 0 && kept < extra; spare = spare->next) {
        ++kept;
    }
    for (unsigned int i = kept; i < extra; ++i) {
        CHashArrayItem* spare = new (std::nothrow) CHashArrayItem;
        if (spare == 0) {
            mEnd.next = spares;
            delete[] newTable;
            return;
        }
        spare->next = spares;
        spares = spare;
    }

    // Items keep their keys and values; the chain items of the old table are reused.
    for (unsigned int i = 0; i < mBucketCount; ++i) {
        CHashArrayItem* head = &mpTable[i];
        if (head->next == 0) {
            continue;
        }
        CHashArrayItem* item = head;
        while (item != &mEnd) {
            CHashArrayItem* following = item->next;
            CHashArrayItem* target = newTable + (hashKey(item->key) & newMask);
            if (target->next == 0) {
                target->key = item->key;
                target->value = item->value;
                target->next = &mEnd;
                if (item != head) {
                    item->next = spares;
                    spares = item;
                }
            } else {
                CHashArrayItem* node = item;
                if (item == head) {
                    node = spares;
                    spares = spares->next;
                    node->key = item->key;
                    node->value = item->value;
                }
                node->next = target->next;
                target->next = node;
            }
            item = following;
        }
    }
    // Chain items that became heads are kept for the chains of later inserts: a growing
    // table would otherwise free them now only to allocate as many again.
    mEnd.next = spares;
    delete[] mpTable;
    adoptBuckets(newTable, newCount);
}

CHashArrayItem* CHashArrayImpl::nextUsedBucket() const
{
    if (mpIterBucket == 0) {
        return 0;
    }
    CHashArrayItem* const end = mpTable + mBucketCount;
    while (mpIterBucket < end) {
        ++mpIterBucket;
        if (mpIterBucket < end && mpIterBucket->next != 0) {
            return mpIterBucket;
        }
    }
    return 0;
}

CHashArrayItem* CHashArrayImpl::firstItem() const
{
    if (mpTable == 0) {
        return 0;
    }
    mpIterBucket = mpTable;
    if (mpTable->next != 0) {
        return mpTable;
    }
    return nextUsedBucket();
}

CHashArrayItem* CHashArrayImpl::nextItem(CHashArrayItem* item) const
{
    if (item == 0 || mpTable == 0 || item == &mEnd) {
        return 0;
    }
    if (item->next != 0 && item->next != &mEnd) {
        return item->next;
    }
    // The end of a chain: carry on from the item's bucket. A head is its own bucket;
    // for a chain item the iteration position says which bucket it came from.
    if (ownsBucket(item)) {
        mpIterBucket = item;
    } else if (mpIterBucket == 0 || !ownsBucket(mpIterBucket)) {
        mpIterBucket = tableEntryFor(item->key);
    }
    return nextUsedBucket();
}

} // namespace PAL
