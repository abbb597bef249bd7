// Owns the memory of all path elements, the table of bases and the named locations. Internal to the path layer.
#ifndef KZCORE_PATHITEMSTORAGE_H
#define KZCORE_PATHITEMSTORAGE_H

#include <atomic>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "KZTypes.h"
#include "KzErr.h"
#include "PathItemElement.h"
#include "ThMutex.h"
#include "ThreadAnnotations.h"

// One block of elements; the static members are the class-wide state. Lock order: PathItemElement::mMutex, then
// mMutex, then mBaseMutex.
class PathItemStorage {
public:
    static constexpr int32 kElements = 512;
    static constexpr int32 kBaseCount = 5;

    // Makes the mutexes and empty tables. A failed mutex gives its error, memory kzErrMemoryFull. No other thread may
    // use paths during either, so neither takes the mutexes for what it only makes or drops.
    static KzErr Init() KZ_NO_THREAD_CHECK;
    // Lets go of names and bases, reports what is still held, and frees all. Allocates nothing. Always 0.
    static KzErr UnInit() KZ_NO_THREAD_CHECK;

    // A new element with one reference, or null without memory. Without a parent it is a base.
    static PathItemElement* Create(std::string_view name, int32 hash, PathItemElement* parent, size_t index)
        KZ_REQUIRES(PathItemElement::mMutex);

    // The base at this place, null where there is none. The first call ends the time to fill the table.
    static PathItemElement* Standard(int32 base)
    {
        if (mOkToSetStandardLocations.load(std::memory_order_relaxed)) {
            mOkToSetStandardLocations.store(false, std::memory_order_relaxed);
        }
        return mStandard[base].load(std::memory_order_acquire);
    }
    // The place in the table of the base that the element hangs from; -1 if it is none of them.
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

    // True if the pointer lies in a block.
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

    static PathItemElement* AllocateElement() KZ_REQUIRES(mMutex);
    static PathItemStorage* AddBlock(PathItemStorage* after) KZ_REQUIRES(mMutex);
    static bool PutNamed(const std::string& name, PathItemElement* element, bool onlyIfFree);
    PathItemElement* Claim() KZ_REQUIRES(mMutex);
    static std::vector<PathItemStorage*>::iterator BlockAt(const void* pointer) KZ_REQUIRES(mBaseMutex);
    static void ReportHeld();
    static PathItemElement* NextHeld(PathItemElement* after, int32* references);
    static const char* ElementFault(const PathItemElement& element) KZ_REQUIRES(PathItemElement::mMutex);
    static const char* RingFault() KZ_REQUIRES(PathItemElement::mMutex, mMutex);
    void FlushFree() KZ_REQUIRES(PathItemElement::mMutex);
    bool IsEmpty() const;
    int32 ReportLive();
    PathItemStorage* Before() KZ_REQUIRES(mMutex);
    void Unlink() KZ_REQUIRES(mMutex);
    static void DestroyAllBlocks();

    PathItemElement mElements[kElements];
    PathItemStorage* mNext = nullptr;  // a ring
    int32 mSearchIndex = kElements - 1;

    static constinit ThMutex mMutex;      // guards the ring of blocks and mNames
    static constinit ThMutex mBaseMutex;  // guards mBases
    static constinit PathItemStorage* mSearchPoint KZ_GUARDED_BY(mMutex);
    static constinit std::vector<PathItemStorage*>* mBases KZ_GUARDED_BY(mBaseMutex);  // sorted by address
    static constinit std::atomic<PathItemElement*> mStandard[kBaseCount];
    static constinit std::map<std::string, PathItemElement*>* mNames KZ_GUARDED_BY(mMutex);
    static constinit std::atomic<bool> mOkToSetStandardLocations;
};

namespace kz {

// For checks of soundness and leaks: elements in use, whether every base's tree is sound, and what is wrong with the
// ring of blocks (null for nothing). The last two walk over everything.
int64 LivePathElementCount();
bool PathTreeIsSane();
const char* PathBlocksFault();

}  // namespace kz

#endif
