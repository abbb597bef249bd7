// PathRef's own data and editing. A path's texts, relations and names are made from its element by modules below; the
// members here forward to them. Members that ask the file system are in the module above that answers them.
//
// A path holds one reference on its element, or no element: not a path. AssignElement alone changes that, apart from
// the inline copy and destruction, whose plain case is one atomic addition and which come here for all others.
//
// kz::gPathState says in one word whether a copy is plain: paths are up, and no debug texts are wanted. While paths are
// down no element is touched, because the tree is gone and with it what a path that outlived it points to.
#include "PathRef.h"

#include <new>
#include <type_traits>

#include "KzAssert.h"
#include "Literals.h"
#include "NoDebugTexts.h"
#include "NotStarted.h"
#include "PathItemElement.h"
#include "PathItemStorage.h"
#include "PathNames.h"
#include "PathRelations.h"
#include "PathText.h"
#include "PathTreeWalk.h"
#include "Report.h"
#include "ScopedLock.h"
#include "StringCStr.h"
#include "zvexcept.h"

static_assert(sizeof(PathRef) == 2 * sizeof(void*) && !std::is_polymorphic_v<PathRef>);

namespace kz {

// Relaxed everywhere: it changes at start and stop, when no other thread uses paths, and by a debugging switch alone,
// so that its cache line stays shared by all threads that copy paths.
constinit std::atomic<uInt32> gPathState{0};

}  // namespace kz

namespace {

constexpr char kModule[] = "source/PathRef";

constexpr size_t kLongestDebugText = 252;

// What NotAPath returns, from Init to UnInit.
constinit PathRef* gNotAPath = nullptr;

// Init has run, with this result, and UnInit has not.
constinit bool gInitRan = false;
constinit KzErr gInitResult = kzErrNone;

bool HangsFromNullPath(const PathItemElement& element)
{
    return PathItemStorage::BaseOf(element) == PathRef::kNullPath;
}

// The element of component `index` of a path, or null; a negative index counts from the end.
const PathItemElement* FindItem(const PathItemElement* last, int32 index)
{
    const int32 count = last != nullptr ? last->Count() : 0;
    const int64 place = index < 0 ? int64{index} + count : index;
    if (place < 0 || place >= count) {
        return nullptr;
    }
    return kz::AncestorOfCount(last, static_cast<int32>(place + 1));
}

KzErr MakeBases()
{
    // Not a path has no base.
    static constexpr const char* kBaseNames[PathItemStorage::kBaseCount] = {"[absolute]", "[relative]", "[unc]",
                                                                            nullptr, "[NULL]"};
    for (int32 base = 0; base < PathItemStorage::kBaseCount; ++base) {
        if (kBaseNames[base] == nullptr) {
            PathItemStorage::SetStandard(base, nullptr);
            continue;
        }
        PathItemElement* element = nullptr;
        {
            const kz::ScopedLock lock(PathItemElement::mMutex);
            element = PathItemStorage::Create(kBaseNames[base], 0, nullptr, 0);
        }
        if (element == nullptr) {
            return kzErrMemoryFull;
        }
        PathItemStorage::SetStandard(base, element);
        element->ReleaseCore(false);
    }
    return kzErrNone;
}

// What fails leaves the rest to StopPaths, which takes any state that is reached on the way.
KzErr StartPaths()
{
    KzErr err = ThMutexCreate(&PathItemElement::mMutex, "PathItemElement::mMutex");
    if (err == kzErrNone) {
        err = PathItemStorage::Init();
    }
    if (err == kzErrNone) {
        err = MakeBases();
    }
    if (err == kzErrNone) {
        gNotAPath = new (std::nothrow) PathRef;
        err = gNotAPath != nullptr ? kzErrNone : kzErrMemoryFull;
    }
    return err;
}

KzErr StopPaths()
{
    // Paths run until the end, because the objects that the stop drops are paths, and a dropped path lets its element
    // go only while they do.
    PathRef::DisposePath(gNotAPath);
    const KzErr err = PathItemStorage::UnInit();
    ThMutexDestroy(std::exchange(PathItemElement::mMutex, nullptr));
    kz::gPathState.store(0, std::memory_order_relaxed);
    return err;
}

}  // namespace

// ---- Class-wide ----

KzErr PathRef::Init()
{
    if (gInitRan) {
        return gInitResult;
    }
    // A failed start counts as one that ran, so that later calls give its code until UnInit.
    gInitRan = true;
    kz::PlacePathTexts();
    kz::gPathState.fetch_or(kz::kPathsRun, std::memory_order_relaxed);
    gInitResult = kz::ErrOf(kModule, __LINE__, [] { return StartPaths(); });
    if (gInitResult != kzErrNone) {
        StopPaths();
    }
    return gInitResult;
}

KzErr PathRef::UnInit()
{
    const bool runs = gInitRan && gInitResult == kzErrNone;
    gInitRan = false;
    return runs ? StopPaths() : kzErrNone;
}

void PathRef::Setting(const char* text)
{
    if (text == nullptr) {
        return;
    }
    // The debug mode shares a word with the state that paths run, so that one comparison tells an inline copy that it
    // is a plain one.
    if (kz::SameText(text, "debug")) {
        kz::gPathState.fetch_or(kz::kPathsDebug, std::memory_order_relaxed);
    } else if (kz::SameText(text, "nodebug")) {
        kz::gPathState.fetch_and(~uInt32{kz::kPathsDebug}, std::memory_order_relaxed);
    } else if (kz::SameText(text, "utf8")) {
        gUseUTF8 = 1;
    } else if (kz::SameText(text, "sysenc")) {
        gUseUTF8 = 0;
    }
}

void PathRef::SetNotAPathString(const std::string& text)
{
    kz::NotAPathText() = text;
}

void PathRef::SetPathTooLongString(const std::string& text)
{
    kz::PathTooLongText() = text;
}

uInt64 PathRef::GarbageCollect(int32 method)
{
    return PathItemStorage::GarbageCollect(method);
}

ThMutex PathRef::GetCacheMutex()
{
    return PathItemElement::mMutex;
}

// ---- The element ----

void PathRef::AssignElement(PathItemElement* element, PathItemRefAssignOp op, bool alreadyLocked)
{
    const uInt32 state = kz::gPathState.load(std::memory_order_relaxed);
    if ((state & kz::kPathsRun) == 0) {
        mPathElement = nullptr;  // what it pointed to went with the tree
        return;
    }
    if (element != nullptr && op == kAddReference) {
        element->AddReference();
    }
    // The new reference was added first, because the old element may be what keeps the new one alive.
    PathItemElement* const old = std::exchange(mPathElement, element);
    if (old != nullptr) {
        ReleaseElement(old, alreadyLocked);
    }
    if ((state & kz::kPathsDebug) != 0 && !alreadyLocked && !kz::NoDebugTexts::Lives()) {
        // For a debugger's eyes only, so a failure does not matter.
        static_cast<void>(
            kz::ErrOf(kModule, __LINE__, [&] { return ConvertToString(&EnsureCache(), StringDisplay()); }));
    }
}

void PathRef::ReleaseElement(PathItemElement* element, bool alreadyLocked)
{
    element->ReleaseCore(alreadyLocked);
}

void PathRef::CopySlowly(const PathRef& other) noexcept
{
    AssignElement(other.mPathElement, kAddReference, false);
}

void PathRef::DropText() noexcept
{
    delete std::exchange(mText, nullptr);
}

std::string& PathRef::EnsureCache() const
{
    if (mText == nullptr) {
        mText = new std::string;
    }
    return *mText;
}

void PathRef::ClearAndThrow(KzErr err, const char* text, int line)
{
    AssignElement(nullptr, kTakeReference, false);
    throw ZVExcept(err, text, kModule, line);
}

// ---- Making, copying, disposing ----

PathRef::PathRef(PathBase base)
{
    if (base >= 0 && base < PathItemStorage::kBaseCount) {
        AssignElement(PathItemStorage::Standard(base), kAddReference, false);
    }
}

PathRef::PathRef(const PathRef* other)
{
    if (other != nullptr) {
        AssignElement(other->mPathElement, kAddReference, false);
    }
}

PathRef::PathRef(const char* name) : PathRef()
{
    PathItemElement* const element = name != nullptr ? PathItemStorage::FindNamed(name) : nullptr;
    if (element == nullptr) {
        throw ZVExcept(kzErrArgument, "Unknown standardLocationName", kModule, __LINE__);
    }
    AssignElement(element, kTakeReference, false);
}

PathRef& PathRef::operator=(const PathRef& other)
{
    if (this != &other) {
        AssignElement(other.mPathElement, kAddReference, false);
    }
    return *this;
}

PathRef& PathRef::operator=(const PathRef* other)
{
    if (other == nullptr) {
        AssignElement(nullptr, kTakeReference, false);
        return *this;
    }
    return *this = *other;
}

KzErr PathRef::ConvertToPath(PathRef** out) const
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    if (*out != nullptr) {
        **out = *this;
        return kzErrNone;
    }
    *out = new (std::nothrow) PathRef(*this);
    return *out != nullptr ? kzErrNone : kzErrMemoryFull;
}

void PathRef::DisposePath(PathRef*& path)
{
    delete std::exchange(path, nullptr);
}

PathRef* PathRef::NotAPath()
{
    if (gNotAPath == nullptr) {
        KZ_REPORT(kDbgWarning, 0x4AC5E812) << "Call to GetNotAPath before PathRef::Init() or after PathRef::Uninit()?";
    }
    return gNotAPath;
}

KzErr PathRef::AssignToName(const char* name) const
{
    if (name == nullptr) {
        return kzErrArgument;
    }
    if (!kz::PathsRun()) {
        return kz::NotStarted("A path can't be named");
    }
    return kz::ErrOf(kModule, __LINE__, [&]() -> KzErr {
        return PathItemStorage::SetNamedIfFree(name, mPathElement) ? kzErrNone : kzErrArgument;
    });
}

// ---- Text ----

PathRef::PathRef(const std::string& text, const char* format) : PathRef()
{
    AssignElement(kz::ReadPathText(text, format), kTakeReference, false);
}

KzErr PathRef::ConvertToString(std::string* text, const char* format) const
{
    return kz::WritePathText(mPathElement, text, format);
}

const std::string& PathRef::ToString(const char* format) const
{
    std::string& text = EnsureCache();
    const KzErr err = ConvertToString(&text, format);
    if (err != kzErrNone) {
        throw ZVExcept(err, "PathRef ToString", kModule, __LINE__);
    }
    return text;
}

// ---- Relations ----

bool PathRef::NameEquals(const std::string& a, const std::string& b, ComparePolicy policy)
{
    return kz::NameComparison(policy).AreEqual(a, b);
}

int32 PathRef::NameCompare(const std::string& a, const std::string& b, ComparePolicy policy)
{
    return kz::NameComparison(policy).Order(a, b);
}

bool PathRef::Equals(const PathRef& other, ComparePolicy policy) const
{
    return kz::PathsAreEqual(mPathElement, other.mPathElement, policy);
}

int32 PathRef::Compare(const PathRef& other, ComparePolicy policy) const
{
    return kz::ComparePaths(mPathElement, other.mPathElement, policy);
}

bool PathRef::StartsWith(PathBase base) const
{
    return mPathElement == nullptr ? base == kNotAPath : PathItemStorage::BaseOf(*mPathElement) == base;
}

// ---- The cache ----

KzErr PathRef::Cache(const char* key, CachedItem* item) const
{
    if (mPathElement == nullptr || key == nullptr) {
        return kzErrArgument;
    }
    return mPathElement->Cache(key, item);
}

bool PathRef::VisitCached(const char* key, const char* className, SearchDirection direction, PathRef* holder,
                          CacheVisitor visit, void* context) const
{
    KZ_ASSERT(visit != nullptr);
    // `holder` may be this very path, whose element must outlive the search.
    PathItemElement* const start = mPathElement;
    PathItemElement* element = nullptr;
    bool found = false;
    if (start != nullptr && key != nullptr) {
        const kz::ScopedLock lock(PathItemElement::mMutex);
        const kz::NoDebugTexts plain;
        if (CachedItem* const item = start->GetCached(key, className, direction, &element)) {
            visit(item, context);
            found = true;
            element->AddReference();
        }
    }
    if (holder != nullptr) {
        holder->AssignElement(element, kTakeReference, false);
    } else if (element != nullptr) {
        ReleaseElement(element, false);
    }
    return found;
}

uInt64 PathRef::FlushCache() const
{
    if (mPathElement == nullptr) {
        return 0;
    }
    const kz::ScopedLock lock(PathItemElement::mMutex);
    return mPathElement->FlushCore(kFlushMetaDataAndOld);
}

// ---- Components ----

const std::string& PathRef::Name() const
{
    return ItemCount() > 0 ? mPathElement->Name() : kz::EmptyPathName();
}

const std::string& PathRef::ItemAt(int32 index) const
{
    const PathItemElement* const item = FindItem(mPathElement, index);
    if (item == nullptr) {
        throw ZVExcept(kzErrCorrupt, "PathRef ItemAt, invalid index", kModule, __LINE__);
    }
    return item->Name();
}

KzErr PathRef::CopyItemAt(int32 index, std::string* name) const
{
    const PathItemElement* const item = FindItem(mPathElement, index);
    if (name == nullptr || item == nullptr) {
        return kzErrArgument;
    }
    return kz::ErrOf(kModule, __LINE__, [&]() -> KzErr {
        *name = item->Name();
        return kzErrNone;
    });
}

int32 PathRef::CountUpDir() const
{
    int32 upDirs = 0;
    if (mPathElement == nullptr) {
        return upDirs;
    }
    // The chain is walked from its end, so up dirs at the front come last. Those with a name before them are no path
    // that Append could have made; they are counted anew from there.
    for (const PathItemElement* at = mPathElement; at->Parent() != nullptr; at = at->Parent()) {
        if (at->Name().empty()) {
            ++upDirs;
        } else if (upDirs > 0) {
            KZ_REPORT(kDbgWarning, 0xD5208BE3) << "There are not supposed to be 'up dirs' in the middle of paths";
            upDirs = 0;
        }
    }
    return upDirs;
}

// ---- Editing ----

void PathRef::Append(const std::string& name)
{
    // Asked first, because "." changes nothing even where a name would be refused.
    if (name == ".") {
        return;
    }
    KzErr err = kzErrArgument;
    PathItemElement* element = nullptr;
    {
        kz::PathTreeWalk walk(mPathElement);
        if (!walk.IsBelow(PathItemStorage::Standard(kNullPath))) {
            err = walk.Append(name);
        }
        if (err == kzErrNone) {
            element = walk.Take();
        }
    }
    if (err != kzErrNone) {
        ClearAndThrow(err, "Append(PathRef::StringType)", __LINE__);
    }
    AssignElement(element, kTakeReference, false);
}

void PathRef::Append(const char* name)
{
    if (name == nullptr) {
        ClearAndThrow(kzErrArgument, "Append(PathRef::StringType)", __LINE__);
    }
    Append(std::string(name));
}

void PathRef::Append(const PathRef& relative)
{
    PathItemElement* const tail = relative.mPathElement;
    if (mPathElement == nullptr || tail == nullptr || HangsFromNullPath(*mPathElement) || HangsFromNullPath(*tail)) {
        ClearAndThrow(kzErrArgument, "Append(relativePath): NULL or NotAPath cannot be used", __LINE__);
    }
    if (!relative.StartsWith(kRelative)) {
        ClearAndThrow(kzErrArgument, "Append(relativePath): Must be appending a relative path", __LINE__);
    }
    // The names are read before the walk begins, which holds the lock. They stay, since `relative` holds its element,
    // also when it is this very path: the walk changes nothing but the tree.
    const kz::PathNames names(*tail);
    if (names.Above() == nullptr) {
        ClearAndThrow(kzErrCorrupt, "Append(relativePath): Corrupt relative Path", __LINE__);
    }
    KzErr err = kzErrNone;
    PathItemElement* element = nullptr;
    {
        kz::PathTreeWalk walk(mPathElement);
        for (int32 i = 0; i < names.Count() && err == kzErrNone; ++i) {
            err = walk.Append(names[i]);
        }
        if (err == kzErrNone) {
            element = walk.Take();
        }
    }
    if (err != kzErrNone) {
        ClearAndThrow(err, "Append(PathRef::StringType)", __LINE__);
    }
    AssignElement(element, kTakeReference, false);
}

void PathRef::Replace(int32 index, const std::string& name)
{
    if (mPathElement == nullptr) {
        ClearAndThrow(kzErrArgument, "PathRef replace, NULL parameter", __LINE__);
    }
    const PathItemElement* const item = FindItem(mPathElement, index);
    if (item == nullptr) {
        ClearAndThrow(kzErrArgument, "PathRef replace, invalid element index (element)", __LINE__);
    }
    if (item->Parent() == nullptr) {
        ClearAndThrow(kzErrArgument, "PathRef replace, invalid element index (parent)", __LINE__);
    }
    // Nothing of an element can be changed, so a path with another name at one place is another path: it leaves the old
    // one above that place and is walked anew from there. Names are taken as they are, not by Append's rules.
    const kz::PathNames behind(mPathElement, mPathElement->Count() - item->Count());
    if (behind.Above() != item) {
        ClearAndThrow(kzErrCorrupt, "PathRef replace, Corrupt Path", __LINE__);
    }
    KzErr err = kzErrNone;
    PathItemElement* element = nullptr;
    {
        kz::PathTreeWalk walk(item->Parent());
        err = walk.Child(name);
        for (int32 i = 0; i < behind.Count() && err == kzErrNone; ++i) {
            err = walk.Child(behind[i]);
        }
        if (err == kzErrNone) {
            element = walk.Take();
        }
    }
    if (err != kzErrNone) {
        ClearAndThrow(err, "PathRef replace, unable to allocate child", __LINE__);
    }
    AssignElement(element, kTakeReference, false);
}

void PathRef::Replace(int32 index, const char* name)
{
    if (name == nullptr) {
        ClearAndThrow(kzErrArgument, "PathRef replace, NULL parameter", __LINE__);
    }
    Replace(index, std::string(name));
}

PathRef PathRef::GetParentDirectory() const
{
    PathRef parent;
    if (mPathElement != nullptr) {
        parent.AssignElement(mPathElement->Parent(), kAddReference, false);
    }
    return parent;
}

// ---- Checks ----

bool PathRef::IsValid() const
{
    return mPathElement != nullptr && kz::PathsRun() && mPathElement->IsValid();
}

bool PathRef::IsSane(bool quick) const
{
    if (mPathElement == nullptr) {
        return true;
    }
    // The element is not touched before its place is known to be one, since a path may hold anything after a fault.
    if (!PathItemElement::ValidElement(mPathElement)) {
        KZ_REPORT(kDbgWarning, 0x56F07BC1) << "mPathElement not in storage";
        return false;
    }
    if (quick) {
        return true;
    }
    if (!mPathElement->IsSane()) {
        KZ_REPORT(kDbgWarning, 0xF9A8624E) << "mPathElement is Insane";
        return false;
    }
    if (StartsWith(kUNC) || IsValid()) {
        return true;
    }
    KZ_REPORT(kDbgWarning, 0x2CD19E37) << "PathRef is not valid";
    return false;
}

double PathRef::MemorySize() const
{
    return sizeof(PathRef) + (mPathElement != nullptr ? mPathElement->MemorySize() : 0);
}

void ToDebugStream(DebugStream& stream, const PathRef& path)
{
    // A report must not fail for what it tells of, so a failure becomes part of its text.
    try {
        const std::string& text = path.ToString(PathRef::StringDisplay());
        stream.Append(text.size() > kLongestDebugText ? "<path too long>" : text.c_str());
    } catch (...) {
        const ZVExcept failure = GetExceptionInCatch_FileAndLine(kModule, __LINE__);
        stream.Append("<display path error=");
        ToDebugStream(stream, static_cast<int>(failure.err()));
        stream.Append(" \"");
        stream.Append(failure.what());
        stream.Append("\">");
    }
}
