// What each call answers while the library is not started: before the first start, and after a stop. docs/host.md has
// the same table by families.

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <span>
#include <string>

#include "CPStrList.h"
#include "CfgAccess.h"
#include "CookieManager.h"
#include "FileManager.h"
#include "HObjList.h"
#include "HandleAllocationInterface.h"
#include "KZModule.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "OutputBuf.h"
#include "PathClassic.h"
#include "PathRef.h"
#include "RFReadWrite.h"
#include "ReportCatcher.h"
#include "ResFileFactory.h"
#include "ResourceManager.h"
#include "StringCLStr.h"
#include "StringCPStr.h"
#include "StringLStr.h"
#include "StringLStrArray.h"
#include "StringUtils.h"
#include "TestHost.h"
#include "zvexcept.h"
#include "zvhandle.h"

namespace {

// What the calls of the rows work on. A row gives back nothing, because nothing is made.
unsigned char gBytes[64] = {0, 0, 0, 3, 'a', 'b', 'c'};
unsigned char* gMaster = gBytes;
UHandle const gForeign = &gMaster;  // no handle of the library's
UHandle gNone = nullptr;
UHandle gVariable = gForeign;
LStr** gString = nullptr;
CPStr** gList = nullptr;
_LStrArray** gArray = nullptr;
MagicCookieList gCookies = nullptr;
RsrcFile gRefnum = 0;
File_t gFile = nullptr;
ResFile* gResFile = nullptr;
std::string gText;
const unsigned char kThree[] = {3, 'a', 'b', 'c'};
unsigned char gPStr[256];
int32 gNumber = 0;
_ResourceType gType = 0;
const unsigned char* gPointer = nullptr;
MemStatRec gStats;
uInt64 gCounters[2];
PathRef gPath;
PathRef* gNoPath = nullptr;

struct Row {
    const char* call;
    long long (*run)();
    long long answer;    // of a void call 0, of one that gives an address whether it does
    const char* levels;  // of its reports; "n" is that of level 2 which says that the library isn't started
};

template <typename Result>
long long Number(Result result)
{
    if constexpr (std::is_pointer_v<Result>) {
        return result != nullptr;
    } else {
        return static_cast<long long>(result);
    }
}

constexpr long long kBadAlloc = -1;

template <typename Call>
long long Run(const Call& call)
{
    try {
        if constexpr (std::is_void_v<decltype(call())>) {
            call();
            return 0;
        } else {
            return Number(call());
        }
    } catch (const ZVExcept& failure) {
        return failure.err();
    } catch (const std::bad_alloc&) {
        return kBadAlloc;
    }
}

#define ROW(answer, levels, ...)                                                     \
    {                                                                                \
#__VA_ARGS__, [] { return Run([] { return __VA_ARGS__; }); }, answer, levels \
    }

const Row kMakes[] = {
    ROW(0, "n", DSNewHandle(5)),
    ROW(0, "n", AZNewHandle(5)),
    ROW(0, "n", DSNewHClr(5)),
    ROW(0, "n", AZNewHClr(5)),
    ROW(0, "n", DSNewHandleCache(5)),
    ROW(0, "n", DSNewHClrCache(5)),
    ROW(0, "n", DSNewAlignedHandle(5, 8, 0)),
    ROW(0, "n", DSNewAlignedHClr(5, 8, 0)),
    ROW(42, "n", DSSetHandleSizeOrNewHandle(&gNone, 5)),
    ROW(42, "n", DSSetHSzOrNewHClr(&gNone, 5)),
    ROW(42, "n", DSSetHandleSizeOrNewHandleCache(&gNone, 5)),
    ROW(42, "n", DSSetHSzOrNewHClrCache(&gNone, 5)),
    ROW(42, "n", DataSetHandleSizeOrNewHandle(&gNone, 5)),
    ROW(42, "n", DataSetHSzOrNewHClr(&gNone, 5)),
    ROW(0, "", DataSetHSzOrNewHClr(&gNone, 0)),
    ROW(42, "n", DSSetHandleFromPtr(&gNone, gBytes, 3)),
    ROW(42, "n", AZSetHandleFromPtr(&gNone, gBytes, 3)),
    ROW(42, "n", DSSetHandleFromPtrNULLMeansEmpty(&gNone, gBytes, 3)),
    ROW(42, "n", DSPtrToHand(gBytes, &gNone, 3)),
    ROW(42, "n", AZPtrToHand(gBytes, &gNone, 3)),
    ROW(1, "", DSSetHandleFromPtr(static_cast<UHandle*>(nullptr), gBytes, 3)),
    ROW(0, "n", MCNewJar()),
    ROW(0, "n", MCNewBigJar(20)),
    ROW(0, "n", MCNewRCJar()),
    ROW(42, "n", BaseCookieJar().Init(8, 1)),
    ROW(42, "n", CookieList().SetCount(2)),
    ROW(42, "n2", CToLHStr("abc", &gString)),
    ROW(42, "n2", PToLHStr(kThree, &gString)),
    ROW(42, "n2", PStrToDSLStr(kThree, &gString)),
    ROW(42, "n", LStrFromPtr(&gString, 3, gBytes)),
    ROW(42, "n", LStrAppendCStr(&gString, "abc")),
    ROW(42, "n", LStrAppendPStr(&gString, kThree)),
    ROW(42, "n", CPStrSetToNEmptyStrings(&gList, 2)),
    ROW(42, "n", ReallocLStrArrayHandle(&gArray, 2)),
    ROW(42, "n", CPStrList().ForceAllocate()),
    ROW(42, "n", CPStrList().Insert(kThree, 0)),
    // The exception of a failed make is the one of standard strings, and so is its code.
    ROW(kBadAlloc, "n", StringUtils::ToLStrHandle(std::string("abc"))),
    ROW(2, "n", StringUtils::ToLStrHandleNoThrow(std::string("abc"), &gString)),
    ROW(42, "n", StringUtils::ToLStrArrayHandleNoThrow({"abc"}, &gArray)),
    ROW(42, "n", ZVHandle().Resize(5)),
    ROW(42, "n2", HandleOutputBuf(5).GetDataPointer(1, gNumber) == nullptr ? gNumber : 0),
    ROW(42, "n2", LStrOutputBuf(5).GetDataPointer(1, gNumber) == nullptr ? gNumber : 0),
    ROW(42, "n", NormalHandleAllocationInterface().ResizeHandleOrAllocateHandle(&gNone, 5)),
};

const Row kHandles[] = {
    ROW(3, "42", DSSetHandleSize(gForeign, 5)),
    ROW(3, "42", AZSetHandleSize(nullptr, 5)),
    ROW(3, "442", DSSetHSzClr(gForeign, 5)),
    ROW(3, "442", AZSetHSzClr(gForeign, 5)),
    ROW(3, "42", DSSetHandleSizeCache(gForeign, 5)),
    ROW(3, "442", DSSetHSzClrCache(gForeign, 5)),
    ROW(3, "42", DSSetAlignedHandleSize(gForeign, 5, 8, 0)),
    ROW(3, "442", DSSetAlignedHSzClr(gForeign, 5, 8, 0)),
    ROW(3, "42", DSDisposeHandle(gForeign)),
    ROW(0, "", DSDisposeHandle(nullptr)),
    ROW(0, "", AZDisposeHandle(nullptr)),
    ROW(0, "", DSDisposeHandleCache(nullptr)),
    ROW(0, "", DSDisposeHandleAndNull(&gNone)),
    ROW(0, "4", DSGetHandleSize(gForeign)),
    ROW(0, "4", AZGetHandleSize(gForeign)),
    ROW(3, "", DSCheckHandle(gForeign)),
    ROW(3, "", AZCheckHandle(gForeign)),
    ROW(0, "", IsDSHandle(gForeign)),
    ROW(0, "4", DSRecoverHandle(gBytes)),
    ROW(0, "4", AZRecoverHandle(gBytes)),
    ROW(3, "4", DSSwapHandles(gForeign, gForeign)),
    ROW(3, "4", DSCopyHandle(&gNone, gForeign)),
    ROW(0, "", AZCopyHandle(&gNone, nullptr)),
    ROW(3, "4", DSHandToHand(&gVariable)),
    ROW(3, "4", AZHandToHand(&gVariable)),
    ROW(3, "42", DSPtrToXHand(gBytes, gForeign, 3)),
    ROW(3, "42", AZPtrToXHand(gBytes, gForeign, 3)),
    ROW(3, "42", DSPtrAndHand(gBytes, gForeign, 3)),
    ROW(3, "42", AZPtrAndHand(gBytes, gForeign, 3)),
    ROW(3, "4", DSHandAndHand(gForeign, gForeign)),
    ROW(3, "4", AZHandAndHand(gForeign, gForeign)),
    ROW(3, "42", AZHLock(gForeign)),
    ROW(3, "42", AZHUnlock(gForeign)),
    ROW(0, "42", AZHPurge(gForeign)),
    ROW(0, "42", AZHNoPurge(gForeign)),
    ROW(0, "42", AZHSetState(gForeign, 0)),
    ROW(0, "42", AZHGetState(gForeign)),
    ROW(0, "", DSHeapCheck(0)),
    ROW(0, "", AZHeapCheck(0)),
    ROW(0, "", DSMemStats(&gStats)),
    ROW(0, "", AZMemStats(&gStats)),
    ROW(0, "",
        DSMemStats2(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                    nullptr)),
    ROW(0, "", DSCompact()),
    ROW(0, "", MemCheckHeaps()),
    ROW(0, "", DSReadCounters(gCounters)),
    ROW(0, "", DSSetCounters(gCounters)),
    ROW(0, "", ReadConfigTokensForBufferCache()),
    ROW(42, "", CfgGetDefault(1, kThree, &gNumber)),
    ROW(0, "", GetMemoryManagerInitialized()),
    ROW(0, "", MCNewCookie(nullptr, gBytes)),
    ROW(1, "", MCGetCookieInfo(nullptr, 0x100000, gBytes)),
    ROW(1, "", MCGetCookieList(nullptr, &gCookies)),
    ROW(1, "", MCGetCookieInfoPtr(nullptr, 0x100000, nullptr)),
    ROW(1, "", MCSetCookieInfo(nullptr, 0x100000, gBytes)),
    ROW(1, "", MCDisposeCookie(nullptr, 0x100000, nullptr)),
    ROW(0, "", MCGetCookieForInfo(nullptr, gBytes)),
    ROW(0, "", MCIsACookie(nullptr, 0x100000)),
    ROW(1, "", MCJarSize(nullptr, &gNumber)),
    ROW(0, "", MCDisposeJar(nullptr)),
    ROW(1, "", LStrAppendChar(nullptr, 'a')),
    ROW(1, "", LStrCat(nullptr, nullptr)),
    ROW(1, "", LStrCatEfficient(nullptr, nullptr)),
    ROW(1, "", LStrHNullTerminate(nullptr)),
    ROW(0, "", LStrPrependCStr(&gString, "abc")),
    ROW(0, "", LStrToUpper(nullptr)),
    ROW(0, "", LStrToLower(nullptr)),
    ROW(0, "4", CPStrIndex(nullptr, 0)),
    ROW(42, "2", CPStrInsert(nullptr, kThree, 0)),
    ROW(42, "2", CPStrInsertEfficient(nullptr, kThree, 0, 0)),
    ROW(1, "4", CPStrRemove(nullptr, 0)),
    ROW(1, "4", CPStrReplace(nullptr, kThree, 0)),
    ROW(1, "", CPStrClear(nullptr)),
    ROW(-1, "4", CPStrSearch(nullptr, kThree, nullptr)),
    ROW(1, "", LSort(nullptr, nullptr)),
    ROW(1, "", StrPoundToCPStr(nullptr, nullptr)),
    ROW(1, "4", CLStrInsert(nullptr, nullptr, 0, 0)),
    ROW(1, "", CLStrRemove(nullptr, 0)),
    ROW(1, "4", CLStrInsertSort(nullptr, nullptr, 0, nullptr, nullptr, 0)),
    ROW(1, "", StdToCLStr(nullptr)),
    ROW(0, "", LStrArrayToCPStrHandle(nullptr, 0, &gList)),
    ROW(0, "", CPStrPtrToLStrArray(nullptr, 0, &gArray)),
    ROW(0, "4", HObjListSearch(nullptr, gBytes) >= 0),
    ROW(0, "4", HObjListSearchDelete(nullptr, gBytes)),
    ROW(0, "4", HObjListBringToFront(nullptr, gBytes)),
    ROW(1, "4", HObjListInsert(nullptr, gBytes, 0)),
    ROW(0, "4", HObjListDelete(nullptr, 0)),
    ROW(1, "4", HObjListSwap(nullptr, 0, 1)),
    ROW(1, "4", HCompactObjList(nullptr)),
};

const Row kPaths[] = {
    ROW(42, "n", PathRef(std::string("/a"), PathRef::StringUnix()).ItemCount()),
    ROW(53, "", PathRef(std::string("/a"), "no format").ItemCount()),
    ROW(1, "", PathRef(PathRef::TempDir()).ItemCount()),
    ROW(1, "", PathRef(static_cast<const char*>(nullptr)).ItemCount()),
    ROW(0, "", PathRef(PathRef::kAbsolute).ItemCount()),
    ROW(1, "", PathRef(PathRef::kAbsolute).Append("a")),
    ROW(0, "", PathRef(PathRef::kAbsolute).Append(".")),
    ROW(1, "", PathRef(PathRef::kAbsolute).Append(PathRef(PathRef::kRelative))),
    ROW(1, "", PathRef(PathRef::kAbsolute).Replace(0, "a")),
    ROW(42, "n", PathRef().AssignToName("os_x")),
    ROW(1, "", PathRef().AssignToName(nullptr)),
    ROW(1, "", PathRef().Cache("key", nullptr)),
    ROW(1, "", PathRef().CopyItemAt(0, &gText)),
    ROW(1, "", PathRef().ConvertToString(&gText, PathRef::StringCommandLine())),
    ROW(0, "", PathRef().ConvertToString(&gText, PathRef::StringUnix())),
    ROW(1, "", PathRef().ConvertToString(nullptr, PathRef::StringUnix())),
    ROW(0, "2", PathRef::NotAPath()),
    ROW(0, "", PathRef().IsValid()),
    ROW(0, "", PathRef().Exists()),
    ROW(42, "n", FMOpen(&gFile, &gPath, kFMReadOnly, kFMDenyNone)),
    ROW(1, "", FMOpen(&gFile, nullptr, kFMReadOnly, kFMDenyNone)),
    ROW(0, "", FExists(&gPath)),
    ROW(7, "", CheckPathValidity(&gPath)),
    ROW(0, "", FIsAbsPath(&gPath)),
    ROW(0, "", FDestroyPath(&gNoPath)),
    ROW(1, "", FMClose(nullptr)),
    ROW(13, "", ROpenFile(&gPath, 1, &gRefnum, nullptr, nullptr)),
    ROW(13, "", ROpenUPtr(gBytes, 64, &gRefnum, nullptr, nullptr)),
    ROW(13, "", ROpenUHandle(gForeign, 1, &gRefnum, nullptr, nullptr)),
    ROW(13, "", RCloseFile(7)),
    ROW(13, "", RGet(7, 1, 1, &gNone)),
    ROW(13, "", RGetIndString(7, gPStr, 1000, 1)),
    ROW(13, "", RCount(7, 1, &gNumber)),
    ROW(13, "", RGetIndType(7, &gType, 1)),
    ROW(13, "", RGetIndStringPtr(7, &gPointer, 1, 1, 1)),
    ROW(13, "", ROpenFileRefnum(nullptr, 1, &gRefnum, nullptr, nullptr)),
    ROW(13, "", RCountTypes(7, &gNumber)),
    ROW(13, "", RExists(7, 1, 1, &gNumber)),
    ROW(0, "", RIsLoaded(7, 1, 1)),
    ROW(13, "", RGetFileAttrs(7, &gNumber)),
    ROW(13, "", RGetInd(7, 1, 1, &gNone)),
    ROW(13, "", RGetIndInfo(7, 1, 1, nullptr, nullptr, nullptr)),
    ROW(13, "", RGetNamed(7, 1, kThree, &gNone)),
    ROW(13, "", RGetString(7, 1, &gNone)),
    ROW(13, "", RGetPStr(7, 1, gPStr)),
    ROW(15, "", RGetInfo(gForeign, nullptr, nullptr, nullptr)),
    ROW(15, "", RGetAttrs(gForeign, &gNumber)),
    ROW(15, "", RDetach(gForeign)),
    ROW(15, "", RSize(gForeign, &gNumber)),
    ROW(15, "2", RRelease(gForeign)),
    ROW(42, "n", ResFileFactory::ROpenPath(gPath, 1, &gResFile, nullptr, nullptr)),
    ROW(42, "n", RFReader().OpenPath(gPath, 1, nullptr, nullptr)),
    ROW(0, "2", InitKZCoreAppSupport()),
    ROW(0, "", UninitKZCoreAppSupport()),
    ROW(0, "", UninitKZCoreBase()),
};

constexpr std::span<const Row> kAll[] = {kMakes, kHandles, kPaths};

// The calls that work without a start, or have nothing to do with one, by their names.
constexpr const char* kWorking[] = {
    "Ini\\w*|qkini_\\w*",
    "KZ\\w*|Kz\\w*|\\w+ToKZErr|InitKZCoreBase|GetMainCfgAccess|CreateServiceRegistry",
    "Debug\\w*|StopHere|DumpSomeMemory|VerifySingleFormatSpecifier",
    "\\w+Endianizer|Create(Mem|Handle|LStr|Static|Preflight)(Input|Output)Buf",
    // Plain memory, and settings.
    "(AZ|DS)(New|Check|Dispose)Ptr|(AZ|DS)NewPClr|(AZ|DS)MaxMem|DSMemStatsSlow|Tracked\\w+",
    "BlockCmp|MoveBlock|ClearMem|SwapBlock|\\w*Guard\\w*|CallSetMemFullProc|DSSetHandleChecking",
    "(Set|Get)(StressHandles|MemFullProc|Mem\\w*|LogMem\\w*|CheckHigh\\w*|MergeAdj\\w*)|ToggleMemoryDebugging",
    "Mem(Dump|Reset)Tracker|(Start|Stop)Scoped\\w+|FreeSmartHeapPool",
    // Text of plain memory, numbers, time, sorting.
    "[CLP]To[CLP]Str\\w*|P?Str[A-Z]\\w*|(P[PL]|L|LH|CP|PtrLen)Str(Case)?(Cmp|Equal)|C[LP]Str(Size|Index)",
    "To(Lower|Upper)|Is(Alpha|Digit|Lower|Punct|Upper)|HexChar|FileName\\w+|Path(Next|Prev)Char|ConvertUTF\\w+",
    "StringToNum\\w+|Num\\w+|StdTo[TX]|[TX]ToStd|EZero|Compare\\w+|QSort\\w*|BinSearch\\w*",
    "HR\\w+|SecondsToHRTime|Mill\\w+|\\w*Random\\w*|\\w*ZVGuid\\w*",
    // Threads, users, and files that are open.
    "Th\\w+|(Create|Destroy)Platform\\w+|kzcore_pthread_\\w+|(UID|GID)ToName|NameTo(UID|GID)",
    "FM(Read|Seek|Tell)\\w*|FGetEOF\\w*",
    "gDecimalPoint|gUseUTF8",
};

std::string LevelsOf(kztest::ReportCatcher& reports)
{
    std::string levels;
    for (const auto& [level, text] : reports.TakeRows()) {
        const bool isNotStarted = level == kDbgWarning && text.ends_with(": kzcore is not started");
        levels += isNotStarted ? "n" : level >= kDbgWarning ? std::to_string(level) : "";
    }
    return levels;
}

TEST(NotStarted, EachCallSaysSo)
{
    kztest::ReportCatcher reports;
    for (const char* when : {"before a start", "after a stop"}) {
        for (const auto& rows : kAll) {
            for (const Row& row : rows) {
                EXPECT_EQ(row.run(), row.answer) << row.call << ", " << when;
                EXPECT_EQ(LevelsOf(reports), row.levels) << row.call << ", " << when;
            }
        }
        const kztest::RunningLibrary library;
        EXPECT_EQ(library.baseResult, kzErrNone);
    }
}

// A call that is added is decided on: it has a row, or works without a start.
TEST(NotStarted, EachCallIsKnown)
{
    std::set<std::string> inRows;
    for (const auto& rows : kAll) {
        for (const Row& row : rows) {
            const std::string call = row.call;
            inRows.insert(call.substr(0, call.find('(')));
        }
    }
    std::string working;
    for (const char* names : kWorking) {
        working += std::string(working.empty() ? "" : "|") + names;
    }
    const std::regex works(working);
    const std::regex isName("\\w+");
    std::ifstream exports(KZ_TEST_DATA_DIR "/../exports.txt");
    int count = 0;
    for (std::string name; std::getline(exports, name);) {
        if (std::regex_match(name, isName)) {
            ++count;
            EXPECT_TRUE(inRows.count(name) != 0 || std::regex_match(name, works)) << name;
        }
    }
    EXPECT_GT(count, 400);
}

}  // namespace
