// Owns the memory of all path elements, the table of bases and the named locations. Internal to the path layer.
#ifndef KZCORE_PATHITEMSTORAGE_H
#define KZCORE_PATHITEMSTORAGE_H

#include <atomic>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "KZTypes.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "PathItemElement.h"
#include "ThMutex.h"
#include "ThreadAnnotations.h"

// One block of elements; the static members are the class-wide state. Lock order: PathItemElement::mMutex, then
// mMutex, then mBaseMutex. Public members take what they need, unless they say that they require a lock.
class PathItemStorage {
public:
    static constexpr int32 kElements = 512;  // of one block
    static constexpr int32 kBaseCount = 5;   // places in the table of bases, one of them empty

    // Makes the mutexes and empty tables. A failed mutex gives its error, memory kzErrMemoryFull. No other thread may
    // use paths during either, so neither takes the mutexes for what it only makes or drops.
    static KzErr Init() KZ_NO_THREAD_CHECK;
    // Lets go of names and bases, reports what is still held, and frees all. Allocates nothing. Always 0.
    static KzErr UnInit() KZ_NO_THREAD_CHECK;

    // A new element with one reference, or null without memory. Without a parent it is a base.
    static PathItemElement* Create(std::string_view name, int32 hash, PathItemElement* parent, size_t index)
        KZ_REQUIRES(PathItemElement::mMutex);

    // The base at this place, null where there is none. The first call ends the time to fill the table. `base` must be
    // a place in it. The base has no reference added: the table's own keeps it.
    static PathItemElement* Standard(int32 base)
    {
        KZ_ASSERT(base >= 0 && base < kBaseCount);
        // Stored only where it changes, so that its cache line stays shared by all threads that ask for bases.
        if (mOkToSetStandardLocations.load(std::memory_order_relaxed)) {
            mOkToSetStandardLocations.store(false, std::memory_order_relaxed);
        }
        return mStandard[base].load(std::memory_order_acquire);
    }
    // The place in the table of the base that the element hangs from; -1 if it is none of them. A base that was
    // replaced there still counts, by its name.
    static int32 BaseOf(const PathItemElement& element);
    // Puts a base into the table, with a reference; warns when paths are in use already.
    static void SetStandard(int32 base, PathItemElement* element);

    // Maps a name to an element, with a reference; the old one is released. Null clears the entry.
    static void SetNamed(const std::string& name, PathItemElement* element);
    // The same unless the name stands for an element already: false then.
    static bool SetNamedIfFree(const std::string& name, PathItemElement* element);
    // The element of this name with one reference for the caller, or null.
    static PathItemElement* FindNamed(const std::string& name);

    // Method 0 frees nothing, 1 empty blocks, 2 also reports the elements held from outside. The bytes reclaimed.
    // Allocates nothing.
    static uInt64 GarbageCollect(int32 method);

    // True if the pointer lies in a block. Any pointer may be asked about; it is not followed.
    static bool Contains(const void* pointer);
    // Elements in use.
    static int64 LiveCount();
    // What is wrong with the blocks or their elements, in a few words; null for nothing. A walk over every element.
    static const char* Fault();

private:
    friend class PathItemElement;

    PathItemStorage();
    ~PathItemStorage() KZ_REQUIRES(PathItemElement::mMutex, mMutex);
    PathItemStorage(const PathItemStorage&) = delete;
    PathItemStorage& operator=(const PathItemStorage&) = delete;

    // A claimed element; null, with a report, without memory.
    static PathItemElement* AllocateElement() KZ_REQUIRES(mMutex);
    // A new block behind `after` in the ring, or the ring's first for null. Null without memory.
    static PathItemStorage* AddBlock(PathItemStorage* after) KZ_REQUIRES(mMutex);
    static bool PutNamed(const std::string& name, PathItemElement* element, bool onlyIfFree);
    // A free element of this block, which is then in use; null in a full one.
    PathItemElement* Claim() KZ_REQUIRES(mMutex);
    // The place in mBases of the first block that ends behind `pointer`.
    static std::vector<PathItemStorage*>::iterator BlockAt(const void* pointer) KZ_REQUIRES(mBaseMutex);
    static void ReportHeld();
    static PathItemElement* NextHeld(PathItemElement* after, int32* references);
    static const char* ElementFault(const PathItemElement& element) KZ_REQUIRES(PathItemElement::mMutex);
    static const char* RingFault() KZ_REQUIRES(PathItemElement::mMutex, mMutex);
    void FlushFree() KZ_REQUIRES(PathItemElement::mMutex);
    bool IsEmpty() const;
    // Reports each element in use; how many there are.
    int32 ReportLive();
    // The block before this one in the ring; itself in a ring of one.
    PathItemStorage* Before() KZ_REQUIRES(mMutex);
    void Unlink() KZ_REQUIRES(mMutex);
    static void DestroyAllBlocks();

    PathItemElement mElements[kElements];
    PathItemStorage* mNext KZ_GUARDED_BY(mMutex) = nullptr;    // a ring; null outside it
    int32 mSearchIndex KZ_GUARDED_BY(mMutex) = kElements - 1;  // where the next claim looks first

    static constinit ThMutex mMutex;      // guards the ring of blocks and mNames
    static constinit ThMutex mBaseMutex;  // guards mBases
    // The block at which the next allocation looks first; null in an empty ring.
    static constinit PathItemStorage* mSearchPoint KZ_GUARDED_BY(mMutex);
    // All blocks by address; null while paths are not up.
    static constinit std::vector<PathItemStorage*>* mBases KZ_GUARDED_BY(mBaseMutex);
    // The bases, one reference on each. Read without a lock: acquire pairs with the exchange that stores one.
    static constinit std::atomic<PathItemElement*> mStandard[kBaseCount];
    // The named locations, one reference on each that is not null; null while paths are not up.
    static constinit std::map<std::string, PathItemElement*>* mNames KZ_GUARDED_BY(mMutex);
    // Nobody has asked for a base yet.
    static constinit std::atomic<bool> mOkToSetStandardLocations;
};

namespace kz {

// For checks of leaks: the elements in use, bases included. Any thread.
int64 LivePathElementCount();
// Whether every base's tree is sound; reports most of what is not. Walks over all trees from their bases down.
bool PathTreeIsSane();
// What is wrong with the ring of blocks, the list of blocks or one of their elements, in a few words; null for nothing.
// Walks over all elements in their blocks, so it also finds those that no base leads to.
const char* PathBlocksFault();

}  // namespace kz

#endif
