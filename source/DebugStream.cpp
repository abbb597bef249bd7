// The pool is static and so exists before any allocator. What a report touches of the service stands here too and not
// in the service's object, since other threads may report while the service stops and its object goes. A record stays
// claimed until its stream gives it back, whatever starts and stops in between: a start takes none back, because a
// stream that lives may be writing to it.
#include "DebugStream.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "KZApp.h"
#include "PlatformLocale.h"
#include "Report.h"
#include "StackChain.h"
#include "StackDecoder.h"

namespace {

constexpr char kModule[] = "source/DebugStream";
constexpr int kPoolSize = 16;
constexpr size_t kTextSize = sizeof DebugStreamBufferPoolRecord::text;

static_assert(std::atomic_ref<uInt32>::is_always_lock_free && std::atomic<int32>::is_always_lock_free);
constinit DebugStreamBufferPoolRecord gPool[kPoolSize] = {};

// Set while the service runs. Relaxed: a record's claim is sound by itself, and either answer is right in a start.
constinit std::atomic<bool> gReady{false};

// Since the last start. Relaxed: a number that nothing else hangs on.
constinit std::atomic<int32> gFailedCheckouts{0};

// Keeps each entry of the clash file whole, and the emptying of the file before all entries. The file is opened and
// written under it, no more: the look-up of a name takes the loader's lock, which a thread that reports from a
// library's constructor holds already.
constinit std::mutex gClashLock;

// Set by a start, until a clash has emptied the file. Guarded by gClashLock.
constinit bool gClashFileIsOld = true;

// Set while this thread logs a clash: what it reports meanwhile, the host's answer included, would clash without end.
// In static storage of the thread, because memory is short where it counts.
constinit thread_local bool tLogsClash __attribute__((tls_model("initial-exec"))) = false;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

bool IsReleaseHost()
{
    constexpr uInt32 kStageShift = 12;
    constexpr uInt32 kStageMask = 0xF;
    constexpr uInt32 kReleaseStage = 8;
    return ((KZGetAppEditorVersion(nullptr) >> kStageShift) & kStageMask) == kReleaseStage;
}

// A stream makes the service's object when there is none, started or not; without memory it does without.
void MakeSureOfService()
{
    try {
        DebugStreamService();
    } catch (const std::bad_alloc&) {
    }
}

// The clash file, for one entry; empty for the first after a start. Null when it can't be opened. Requires: gClashLock
// is held.
std::FILE* OpenClashFile()
{
    constexpr mode_t kReadWriteForAll = 0666;
    const int emptied = gClashFileIsOld ? O_TRUNC : 0;
    const int descriptor =
        open("DebugStreamClash.txt", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | emptied, kReadWriteForAll);
    if (descriptor < 0) {
        return nullptr;
    }
    gClashFileIsOld = false;
    std::FILE* const file = fdopen(descriptor, "a");
    if (file == nullptr) {
        close(descriptor);
    }
    return file;
}

// The entry of a stream that found no buffer. Throws when there is no memory for it.
std::string ClashEntry(const StackChain& stack, int32 failedCheckouts)
{
    const std::unique_ptr<StackDecoder> decoder = stack.FrameDecoder();
    decoder->SetDecodeLevel(StackDecoder::kNameAndOffset);
    const std::unique_ptr<StackCrawl> crawl = decoder->GetStackCrawl();
    char line[sizeof(StackFrame) + 64];
    std::snprintf(line, sizeof line, "=== DebugStream CLASH failedCheckoutCount=%d thread=0x%08lx\n", failedCheckouts,
                  static_cast<unsigned long>(pthread_self()));
    std::string entry = line;
    for (long i = 0; i < crawl->GetCount(); ++i) {
        const StackFrame& frame = crawl->GetFrame(i);
        std::snprintf(line, sizeof line, "0x%08lx - %s + 0x%lx\n", reinterpret_cast<unsigned long>(frame.address),
                      frame.name, static_cast<unsigned long>(frame.offset));
        entry += line;
    }
    entry += '\n';
    return entry;
}

// Appends one entry to the clash file, when it can be opened.
void WriteClash(const char* entry)
{
    const std::lock_guard lock(gClashLock);
    const std::unique_ptr<std::FILE, FileCloser> file(OpenClashFile());
    if (file != nullptr) {
        std::fputs(entry, file.get());
    }
}

// Logs that a stream found no buffer, with its stack.
void LogClash(const StackChain& stack, int32 failedCheckouts)
{
    std::string entry;
    const char* text = "DebugStream_Service::CheckOutDebugStreamBuffer -- exception thrown\n";
    kz::ErrOf(kModule, __LINE__, [&]() -> KzErr {
        entry = ClashEntry(stack, failedCheckouts);
        text = entry.c_str();
        return kzErrNone;
    });
    WriteClash(text);
}

// Sets the flag of this thread for as long as it lives.
class LogsClash {
public:
    LogsClash() { tLogsClash = true; }
    ~LogsClash() { tLogsClash = false; }
    LogsClash(const LogsClash&) = delete;
    LogsClash& operator=(const LogsClash&) = delete;
};

}  // namespace

DebugStream::DebugStream(const char* file, int line, const char* versionId, _DebugOutputLevel level)
    : mFile(file),
      mLine(line),
      mVersionId(versionId),
      mLevel(level),
      mPoolRecord(DebugStream_Service::CheckOutDebugStreamBuffer())
{
    mText = mPoolRecord != nullptr ? mPoolRecord->text : static_cast<char*>(std::malloc(kTextSize));
    if (mText != nullptr) {
        mRest = kz::BoundedText(mText, kTextSize);
    }
}

void DebugStream::Process() const
{
    DebugOutputCallHandler(mFile, mLine, mVersionId, mLevel, mHash, mText != nullptr ? mText : "", mExtra);
    if (mPoolRecord != nullptr) {
        DebugStream_Service::CheckInDebugStreamBuffer(mPoolRecord);
    } else {
        std::free(mText);
    }
}

DebugStream_Service::DebugStream_Service() : PlainService_T("DebugStream_Service") {}

// Not inlined, since the clash log leaves out two calls: this one and the stream's constructor.
__attribute__((noinline)) DebugStreamBufferPoolRecord* DebugStream_Service::CheckOutDebugStreamBuffer()
{
    if (!gReady.load(std::memory_order_relaxed)) {
        MakeSureOfService();
        return nullptr;
    }
    for (DebugStreamBufferPoolRecord& record : gPool) {
        const std::atomic_ref inUse(record.inUse);
        uInt32 expected = 0;
        // Acquire: the owner before has written its last byte. The look ahead spares the taken records a locked access.
        if (inUse.load(std::memory_order_relaxed) == 0 &&
            inUse.compare_exchange_strong(expected, 1, std::memory_order_acquire)) {
            return &record;
        }
    }
    const int32 failedCheckouts = gFailedCheckouts.fetch_add(1, std::memory_order_relaxed) + 1;
    if (tLogsClash) {
        return nullptr;
    }
    const LogsClash logging;
    if (!IsReleaseHost()) {
        StackChainFS<16> stack;
        stack.Record(2);
        LogClash(stack, failedCheckouts);
    }
    return nullptr;
}

void DebugStream_Service::CheckInDebugStreamBuffer(DebugStreamBufferPoolRecord* record)
{
    // Release: the next owner's swap comes after the last write to the text.
    std::atomic_ref(record->inUse).store(0, std::memory_order_release);
}

KzErr DebugStream_Service::_Init()
{
    {
        const std::lock_guard lock(gClashLock);
        gClashFileIsOld = true;
    }
    gFailedCheckouts.store(0, std::memory_order_relaxed);
    gReady.store(true, std::memory_order_relaxed);
    return kzErrNone;
}

KzErr DebugStream_Service::_Uninit()
{
    if (const int32 failed = gFailedCheckouts.load(std::memory_order_relaxed); failed != 0) {
        KZ_REPORT(kDbgWarning, 0x2C7A914E)
            << failed
            << " failed checkouts in CheckOutDebugStreamBuffer, which forced us to malloc the debugstream buffer. "
               "Talk to Dorin Vask.";
    }
    gReady.store(false, std::memory_order_relaxed);
    return kzErrNone;
}

void ToDebugStream(DebugStream& stream, bool value)
{
    stream.Append(value ? "true" : "false");
}

void ToDebugStream(DebugStream& stream, const char* text)
{
    stream.Append(text);
}

void ToDebugStream(DebugStream& stream, const LStr* text)
{
    if (text != nullptr && text->cnt > 0) {
        const char* bytes = reinterpret_cast<const char*>(text) + offsetof(LStr, str);
        stream.Append(bytes, bytes + text->cnt);
    }
}

void ToDebugStream(DebugStream& stream, void (*const& procedure)())
{
    char text[24];
    std::snprintf(text, sizeof text, "%p", reinterpret_cast<void*>(procedure));
    stream.Append(text);
}

void ToDebugStream(DebugStream& stream, int value)
{
    stream.AppendInteger(value);
}

void ToDebugStream(DebugStream& stream, short value)
{
    stream.AppendInteger(value);
}

void ToDebugStream(DebugStream& stream, long value)
{
    stream.AppendInteger(static_cast<int>(value));
}

void ToDebugStream(DebugStream& stream, unsigned long value)
{
    stream.AppendInteger(static_cast<int>(value));
}

void ToDebugStream(DebugStream& stream, unsigned int value)
{
    stream.AppendInteger(value);
}

void ToDebugStream(DebugStream& stream, unsigned short value)
{
    stream.AppendInteger(value);
}

void ToDebugStream(DebugStream& stream, unsigned char value)
{
    stream.AppendInteger(static_cast<unsigned int>(value));
}

void ToDebugStream(DebugStream& stream, long long value)
{
    stream.AppendInteger(value);
}

void ToDebugStream(DebugStream& stream, unsigned long long value)
{
    stream.AppendInteger(value);
}

void ToDebugStream(DebugStream& stream, const double& value)
{
    char text[256];
    const kz::ScopedLocale scope(kz::CLocale());
    std::snprintf(text, sizeof text, "%f", value);
    stream.Append(text);
}

void ToDebugStream(DebugStream& stream, float value)
{
    ToDebugStream(stream, static_cast<double>(value));
}

void ToDebugStream(DebugStream& stream, const DbgFmtToDebugStream& value)
{
    value.ToDebugStream(stream);
}

DebugStream_Service* DebugStreamService()
{
    return KZSingleton_T<DebugStream_Service>::Instance();
}
