// PathRef, the library's path value: a reference to an element of a shared tree of names, never a text.
//
// A path has a kind, its base, and components, each any bytes; an empty name is an up dir. Text exists at the edges
// only (the text constructor, ToString, ConvertToString), under one of the format names below. Members that return a
// value throw ZVExcept; members named Copy... and Convert... return a KzErr; every editing member clears the path to
// "not a path" before it throws. One object belongs to one thread; copying takes no lock, and copies on different
// threads share their element safely.
//
// Before PathRef::Init and after PathRef::UnInit no path can be had: making one gives not a path. From a text it throws
// kzErrGeneric, after a report of level 2, and AssignToName then gives the same; from a name it throws kzErrArgument.
// A path that outlives UnInit refers to an element that is gone. Until the next Init it may be destroyed,
// copied by constructor or assignment (which gives not a path), assigned by copy (which makes it not a path), and asked
// IsValid (false), and nothing else; a move passes it on as it is. After the next Init even destroying it is wrong.
#ifndef KZCORE_PATHREF_H
#define KZCORE_PATHREF_H

#include <atomic>
#include <cstddef>
#include <string>
#include <utility>

#include "DebugStream.h"
#include "KZTypes.h"
#include "KzErr.h"
#include "PathItemHead.h"
#include "PathTypes.h"
#include "ThMutex.h"

class PathCachedItem;

namespace kz {

// The path layer's state, as bits: exactly kPathsRun is the plain state in which copies need no further thought.
enum : uInt32 { kPathsRun = 1, kPathsDebug = 2 };
KZ_EXPORT extern std::atomic<uInt32> gPathState;

inline bool PathsRun()
{
    return (gPathState.load(std::memory_order_relaxed) & kPathsRun) != 0;
}

}  // namespace kz

class KZ_EXPORT PathRef : public kz::PathTypes {
public:
    enum PathItemRefAssignOp : int32 { kAddReference = 0, kTakeReference = 1 };

    using CachedItem = PathCachedItem;  // PathCachedItem.h
    using SearchDirection = PathSearchDirection;

    // ---- Making, copying, disposing ----

    PathRef() noexcept = default;  // not a path
    explicit PathRef(std::nullptr_t) noexcept {}
    // The base itself; not a path for kNotAPath and for a value outside the list.
    explicit PathRef(PathBase base);
    explicit PathRef(int base) : PathRef(static_cast<PathBase>(base)) {}
    // A copy; not a path for null.
    explicit PathRef(const PathRef* other);
    // The path stored under `name` by AssignToName; throws kzErrArgument for an unknown name.
    explicit PathRef(const char* name);
    // The path that `text` means in the named format. The not-a-path text (without case) gives not a path in every
    // format. Throws kzErrNotSupported for an unknown format, kzErrArgument for a text that gives no valid path.
    PathRef(const std::string& text, const char* format);

    PathRef(const PathRef& other) noexcept;
    PathRef(PathRef&& other) noexcept : mPathElement(other.mPathElement), mText(other.mText)
    {
        other.mPathElement = nullptr;
        other.mText = nullptr;
    }
    PathRef& operator=(const PathRef& other);
    // Exchanges the two: `other` then holds what this path held.
    PathRef& operator=(PathRef&& other) noexcept
    {
        std::swap(mPathElement, other.mPathElement);
        std::swap(mText, other.mText);
        return *this;
    }
    PathRef& operator=(const PathRef* other);
    ~PathRef();

    // Copies to `**out`, in a new object (DisposePath) when `*out` is null. kzErrArgument: null `out`;
    // kzErrMemoryFull.
    KzErr ConvertToPath(PathRef** out) const;
    // Destroys the object, if any, and nulls the pointer.
    static void DisposePath(PathRef*& path);
    // The shared not-a-path object, owned by the library; null, with a report, while paths are not up.
    static PathRef* NotAPath();

    // ---- Components. Index 0 is the first, -1 the last. ----

    int32 ItemCount() const { return mPathElement != nullptr ? kz::HeadOf(mPathElement).Count() : 0; }
    // The last component's name; empty for a path without components. Valid as long as this path keeps its value.
    const std::string& Name() const;
    // The name at `index`, valid likewise; throws kzErrCorrupt for a bad index.
    const std::string& ItemAt(int32 index) const;
    // kzErrArgument: null `name` or bad index.
    KzErr CopyItemAt(int32 index, std::string* name) const;
    // The up dirs at the path's front.
    int32 CountUpDir() const;

    // ---- Editing ----

    // Adds a name. "." changes nothing; ".." and the empty name take away a name before them, or else stay as an up
    // dir. Throws kzErrArgument (no path, null path, null name) or kzErrMemoryFull.
    void Append(const std::string& name);
    void Append(const char* name);
    // Adds every component of a relative path. Throws kzErrArgument for others, and when either is no path.
    void Append(const PathRef& relative);
    void AppendUpDir() { Append(std::string()); }
    // Gives component `index` exactly this name and keeps those behind it. Throws kzErrArgument (no path, bad index,
    // null name), kzErrMemoryFull.
    void Replace(int32 index, const std::string& name);
    void Replace(int32 index, const char* name);
    // Not a path for a path without components.
    PathRef GetParentDirectory() const;

    // ---- Text, by format name ----

    // The text, kept in this object until the next call or its end; throws what ConvertToString returns.
    const std::string& ToString(const char* format) const;
    // kzErrArgument: null argument, a null path, or in the command line form a path without components or not
    // valid; kzErrNotSupported: unknown format. A network path and not a path give the not-a-path text.
    KzErr ConvertToString(std::string* text, const char* format) const;

    static const char* StringDisplay() { return kz::kDisplayForm; }
    static const char* StringCommandLine() { return kz::kCommandLineForm; }
    static const char* StringPlatformIndependent() { return kz::kPlatformIndependentForm; }
    static const char* StringPlatformAgnostic() { return kz::kPlatformAgnosticForm; }
    static const char* StringDOS() { return kz::kDOSForm; }
    static const char* StringUnix() { return kz::kUnixForm; }

    // The texts that stand for not a path and for a path too long to print; set at start-up, empty until then.
    static void SetNotAPathString(const std::string& text);
    static void SetPathTooLongString(const std::string& text);

    // ---- Named locations ----

    static const char* ApplicationPath() { return "os_app"; }
    static const char* TempDir() { return "os_temp"; }
    static const char* PreferenceDir() { return "os_pref"; }
    static const char* DocumentsDir() { return "os_doc"; }
    // Stores this path under `name`; kzErrArgument if the name is taken (or null), kzErrMemoryFull.
    KzErr AssignToName(const char* name) const;

    // ---- Relations. A policy outside the list is reported, once by a call, and means without case. ----

    static bool NameEquals(const std::string& a, const std::string& b, ComparePolicy policy);
    // -1, 0 or 1.
    static int32 NameCompare(const std::string& a, const std::string& b, ComparePolicy policy);
    // True if the bases and all names are equal; two paths that are no path are equal.
    bool Equals(const PathRef& other, ComparePolicy policy) const;
    // 0 for equal paths. Otherwise the sign is the order, and the size is 1 + the number of leading components in
    // common; a path without components gives the difference of the counts. Not a path comes behind all others.
    int32 Compare(const PathRef& other, ComparePolicy policy) const;
    // True if this path hangs from `base`.
    bool StartsWith(PathBase base) const;
    bool StartsWith(int base) const { return StartsWith(static_cast<PathBase>(base)); }

    // ---- The file system, asked anew each time; a path that FExists (FileManager.h) can't ask about is absent ----

    bool Exists() const;
    bool IsAFile() const;
    bool IsADirectory() const;
    // True for what is neither file, folder nor link. False for a relative path and one without components. The answer
    // is kept for 4 ms.
    bool IsSpecial() const;

    // ---- Checks ----

    // True for an absolute or relative path, while paths are up.
    bool IsValid() const;
    // Not a path is sane. With `quick` only the element's place is checked. Reports what it finds wrong.
    bool IsSane(bool quick) const;

    // ---- The element's cache (PathCachedItem.h, PathCache.h), shared by all copies of the path ----

    // Takes ownership of `item` on success; null removes the entry. kzErrArgument for no path or null key,
    // kzErrMemoryFull.
    KzErr Cache(const char* key, CachedItem* item) const;
    // The value of a live item of ItemClass under `key`, else T(). `*found` (may be null) says which; `*holder` (may
    // be null) becomes the path that held it, or not a path.
    template <typename T, typename ItemClass>
    T GetCached(const char* key, bool* found, SearchDirection direction, PathRef* holder) const;
    // Removes what depends on the file's metadata and what has expired; the bytes given back.
    uInt64 FlushCache() const;
    // Guards every cached item once it was taken.
    static ThMutex GetCacheMutex();

    // ---- Class-wide ----

    // "debug" and "nodebug" (keep each path's display text at hand for a debugger), "utf8" and "sysenc" (how paths
    // are flattened); others are ignored.
    static void Setting(const char* text);
    // Frees unused blocks of the tree (method 1), and also reports elements held by paths (2); 0 frees nothing. The
    // bytes reclaimed, which it also reports at level 1.
    static uInt64 GarbageCollect(int32 method);
    // The bytes that this path accounts for: its own and its share of the tree.
    double MemorySize() const;

    // Start and stop, by the path service. Init runs once until UnInit; later calls give its result again.
    static KzErr Init();
    static KzErr UnInit();

    // Internal: changes the element. The old one is released; `element` gains a reference or brings one along.
    void AssignElement(PathItemElement* element, PathItemRefAssignOp op, bool alreadyLocked);
    PathItemElement* Element() const { return mPathElement; }

private:
    using CacheVisitor = void (*)(CachedItem* item, void* context);

    static void ReleaseElement(PathItemElement* element, bool alreadyLocked);
    void CopySlowly(const PathRef& other) noexcept;
    void DropText() noexcept;
    std::string& EnsureCache() const;
    [[noreturn]] void ClearAndThrow(KzErr err, const char* text, int line);
    bool VisitCached(const char* key, const char* className, SearchDirection direction, PathRef* holder,
                     CacheVisitor visit, void* context) const;

    PathItemElement* mPathElement = nullptr;  // one reference is this object's
    mutable std::string* mText = nullptr;     // owned; what ToString returned last
};

inline PathRef::PathRef(const PathRef& other) noexcept
{
    if (kz::gPathState.load(std::memory_order_relaxed) != kz::kPathsRun) {
        CopySlowly(other);
    } else if (other.mPathElement != nullptr) {
        mPathElement = other.mPathElement;
        kz::HeadOf(mPathElement).AddReference();
    }
}

inline PathRef::~PathRef()
{
    if (mPathElement != nullptr && kz::PathsRun() && !kz::HeadOf(mPathElement).DropIfShared()) {
        ReleaseElement(mPathElement, false);
    }
    if (mText != nullptr) {
        DropText();
    }
}

template <typename T, typename ItemClass>
T PathRef::GetCached(const char* key, bool* found, SearchDirection direction, PathRef* holder) const
{
    // The item may be gone as soon as the cache's lock is given back, so its value is copied by a visitor under the
    // lock; the visitor is a plain function with a context, so that one exported function serves all types.
    T value{};
    const bool hit = VisitCached(
        key, ItemClass::ClassName(), direction, holder,
        [](CachedItem* item, void* context) {
            *static_cast<T*>(context) = static_cast<T>(static_cast<ItemClass*>(item)->Get());
        },
        &value);
    if (found != nullptr) {
        *found = hit;
    }
    return value;
}

// Equal under kComparePlatform.
inline bool operator==(const PathRef& a, const PathRef& b)
{
    return a.Element() == b.Element() || a.Equals(b, PathRef::kComparePlatform);
}

// Appends the display text; "<path too long>" above 252 bytes, and the error where it can't be made.
KZ_EXPORT void ToDebugStream(DebugStream& stream, const PathRef& path);

#endif
