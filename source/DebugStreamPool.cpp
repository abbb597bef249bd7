// A record is claimed by a swap of its flag from 0 to 1, and is free again only when its owner gives it back, whatever
// opens and closes in between: an opening takes none back, because a stream that lives may be writing to it. Nothing of
// the pool stands in the service's object, because other threads may report while the service stops and its object
// goes.
//
// A claim that fails is the one place here that is slow: it may take memory, a lock and the disk, because the host is
// then in trouble already and wants to know who holds the buffers.
#include "DebugStreamPool.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>

#include "KZApp.h"
#include "KzAssert.h"
#include "PthreadScopes.h"
#include "StackChain.h"
#include "StackDecoder.h"
#include "zvexcept.h"

namespace {

constexpr char kModule[] = "source/DebugStreamPool";
constexpr int kPoolSize = 16;

static_assert(std::atomic_ref<uInt32>::is_always_lock_free && std::atomic<int32>::is_always_lock_free);
constinit DebugStreamBufferPoolRecord gPool[kPoolSize] = {};

// Set while the service runs. Relaxed: a record's claim is sound by itself, and either answer is right in a start.
constinit std::atomic<bool> gReady{false};

// Since the last start. Relaxed: a number that nothing else hangs on.
constinit std::atomic<int32> gFailedCheckouts{0};

// Keeps each entry of the clash file whole, and the emptying of the file before all entries. The file is opened and
// written under it, no more: the look-up of a name takes the loader's lock, which a thread that reports from a
// library's constructor holds already.
constinit kz::PthreadMutex gClashLock;

// Set by a start, until a clash has emptied the file.
constinit bool gClashFileIsOld KZ_GUARDED_BY(gClashLock) = true;

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

// The clash file, for one entry; empty for the first after a start. Null when it can't be opened.
std::FILE* OpenClashFile() KZ_REQUIRES(gClashLock)
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
    const kz::PthreadLocked lock(&gClashLock);
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
    LogsClash()
    {
        KZ_ASSERT(!tLogsClash);
        tLogsClash = true;
    }
    ~LogsClash() { tLogsClash = false; }
    LogsClash(const LogsClash&) = delete;
    LogsClash& operator=(const LogsClash&) = delete;
};

}  // namespace

// Never inlined, because the clash log leaves out two calls: this one and the stream's constructor.
__attribute__((noinline)) DebugStreamBufferPoolRecord* kz::CheckOutDebugStreamBuffer()
{
    if (!gReady.load(std::memory_order_relaxed)) {
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
        return nullptr;  // a report about the log, which must not log itself
    }
    const LogsClash logging;
    if (!IsReleaseHost()) {
        StackChainFS<16> stack;
        stack.Record(2);
        LogClash(stack, failedCheckouts);
    }
    return nullptr;
}

void kz::CheckInDebugStreamBuffer(DebugStreamBufferPoolRecord* record)
{
    KZ_ASSERT(record >= gPool && record < gPool + kPoolSize);
    const std::atomic_ref inUse(record->inUse);
    KZ_ASSERT(inUse.load(std::memory_order_relaxed) == 1);
    // Release: the next owner's swap comes after the last write to the text.
    inUse.store(0, std::memory_order_release);
}

void kz::OpenDebugStreamPool()
{
    {
        const kz::PthreadLocked lock(&gClashLock);
        gClashFileIsOld = true;
    }
    gFailedCheckouts.store(0, std::memory_order_relaxed);
    gReady.store(true, std::memory_order_relaxed);
}

void kz::CloseDebugStreamPool()
{
    gReady.store(false, std::memory_order_relaxed);
}

bool kz::IsDebugStreamPoolOpen()
{
    return gReady.load(std::memory_order_relaxed);
}

int32 kz::FailedDebugStreamCheckouts()
{
    return gFailedCheckouts.load(std::memory_order_relaxed);
}
