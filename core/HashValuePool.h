#ifndef OSAL_KIT_CORE_HASHVALUEPOOL_H
#define OSAL_KIT_CORE_HASHVALUEPOOL_H

#include <new>
#include <type_traits>

namespace PAL {

/// The storage behind the values of `THashArray` and `THashMap`: values of type `V` made
/// in blocks of slots (8, then doubling up to 1,024 per block) instead of one heap
/// allocation each. A value keeps its address until it is destroyed; the slot of a
/// destroyed value is used again by the next `create`. Blocks are freed only by
/// `release`, once no value is left, and by the destructor.
///
/// `create` returns null when a new block cannot be had; nothing throws. Not
/// synchronised: the owning table's lock covers it.
///
///     PAL::THashValuePool<int> pool;
///     int* a = pool.create(7);     // null when memory runs out
///     pool.destroy(a);             // the slot is free for the next create
template <typename V>
class THashValuePool {
public:
    THashValuePool() : mpBlocks(0), mpFree(0), mpNext(0), mpBlockEnd(0), mNextBlockSlots(FIRST_BLOCK_SLOTS) {}
    /// Frees the blocks; values still alive there are not destroyed.
    ~THashValuePool() { release(); }

    /// A copy of `value` in a free slot, or null.
    V* create(const V& value)
    {
        void* slot = take();
        return slot != 0 ? new (slot) V(value) : 0;
    }
    /// A default-constructed value in a free slot, or null.
    V* create()
    {
        void* slot = take();
        return slot != 0 ? new (slot) V() : 0;
    }
    /// Destroys a value of this pool (null is ignored) and frees its slot.
    void destroy(V* value)
    {
        if (value == 0) {
            return;
        }
        value->~V();
        SSlot* slot = static_cast<SSlot*>(static_cast<void*>(value));
        slot->mpNextFree = mpFree;
        mpFree = slot;
    }
    /// Destroys a value of this pool (null is ignored) without freeing its slot: for when
    /// every value goes and `release` follows.
    void discard(V* value)
    {
        if (value != 0) {
            value->~V();
        }
    }
    /// Frees every block; only when every value made here has been destroyed.
    void release()
    {
        while (mpBlocks != 0) {
            SSlot* next = mpBlocks->mpNextFree;
            ::operator delete(mpBlocks);
            mpBlocks = next;
        }
        mpFree = 0;
        mpNext = 0;
        mpBlockEnd = 0;
        mNextBlockSlots = FIRST_BLOCK_SLOTS;
    }

private:
    static const unsigned int FIRST_BLOCK_SLOTS = 8;
    static const unsigned int LARGEST_BLOCK_SLOTS = 1024;

    // A free slot links to the next free one; the first slot of a block links the
    // blocks.
    union SSlot {
        SSlot* mpNextFree;
        typename std::aligned_storage<sizeof(V), std::alignment_of<V>::value>::type mValue;
    };

    THashValuePool(const THashValuePool&);
    THashValuePool& operator=(const THashValuePool&);

    void* take()
    {
        if (mpFree != 0) {
            SSlot* slot = mpFree;
            mpFree = slot->mpNextFree;
            return slot;
        }
        if (mpNext == mpBlockEnd && !addBlock()) {
            return 0;
        }
        return mpNext++;
    }

    bool addBlock()
    {
        const unsigned int slots = mNextBlockSlots;
        SSlot* block = static_cast<SSlot*>(::operator new((slots + 1) * sizeof(SSlot), std::nothrow));
        if (block == 0) {
            return false;
        }
        block->mpNextFree = mpBlocks;
        mpBlocks = block;
        mpNext = block + 1;
        mpBlockEnd = block + 1 + slots;
        if (mNextBlockSlots < LARGEST_BLOCK_SLOTS) {
            mNextBlockSlots *= 2;
        }
        return true;
    }

    SSlot* mpBlocks;
    SSlot* mpFree;
    SSlot* mpNext;
    SSlot* mpBlockEnd;
    unsigned int mNextBlockSlots;
};

} // namespace PAL

#endif
