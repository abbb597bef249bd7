#include "StackChain.h"

#include <alloca.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <thread>

#include "StackDecoder.h"

namespace {

using Chain = StackChainFS<16>;

// Records at the bottom of `depth` calls of itself.
__attribute__((noinline)) void RecordBelow(int depth, Chain& chain, long skip)
{
    if (depth == 0) {
        chain.Record(skip);
    } else {
        RecordBelow(depth - 1, chain, skip);
    }
    asm volatile("" ::: "memory");
}

std::vector<void*> Addresses(Chain chain)
{
    return std::vector<void*>(chain.GetBuffer(), chain.GetBuffer() + chain.GetCount());
}

// From a frame that is given, and where no call is skipped.
std::vector<void*> AddressesFrom(const void* frame, void* pc = nullptr)
{
    Chain chain;
    chain.RecordFrom(const_cast<void*>(frame), pc, -1);
    return Addresses(chain);
}

// How many entries, from the first on, are calls of RecordBelow.
long CallsBelow(Chain& chain)
{
    const std::unique_ptr<StackCrawl> crawl = chain.FrameDecoder()->GetStackCrawl();
    EXPECT_EQ(crawl->GetCount(), chain.GetCount());
    long calls = 0;
    for (; calls < crawl->GetCount() && std::strstr(crawl->GetFrame(calls).name, "RecordBelow") != nullptr; ++calls) {
        const StackFrame& frame = crawl->GetFrame(calls);
        EXPECT_EQ(frame.address, chain.GetBuffer()[calls]);
        EXPECT_STREQ(frame.name, crawl->GetFrame(0).name);
        EXPECT_GT(frame.offset, 0);
        // Two places in one function: the record, and the call of itself.
        EXPECT_EQ(frame.offset == crawl->GetFrame(0).offset, calls == 0);
        EXPECT_EQ(frame.offset == crawl->GetFrame(1).offset, calls != 0);
    }
    return calls;
}

TEST(StackChain, EntriesAreTheCallersInnermostFirst)
{
    const auto check = [] {
        Chain chain;
        RecordBelow(3, chain, 0);
        const Chain copy = chain;
        EXPECT_GT(chain.GetCount(), 5);
        EXPECT_EQ(CallsBelow(chain), 4);
        RecordBelow(40, chain, 0);
        EXPECT_EQ(chain.GetCount(), 16);
        EXPECT_EQ(CallsBelow(chain), 16);

        const std::vector<void*> all = Addresses(copy);
        for (long skip = 0; skip < 4; ++skip) {
            RecordBelow(3, chain, skip);
            const std::vector<void*> rest = Addresses(chain);
            ASSERT_GE(rest.size(), static_cast<size_t>(4 - skip));
            EXPECT_TRUE(std::equal(rest.begin(), rest.begin() + 4 - skip, all.begin() + skip)) << skip;
        }
        for (const long skip : {1000L, LONG_MAX}) {
            RecordBelow(3, chain, skip);
            EXPECT_EQ(chain.GetCount(), 0);
        }
    };
    check();
    std::thread(check).join();
}

// Records from its own frame below `depth` calls of itself, as a signal handler does from that of a context; returns
// where the innermost call returns to.
__attribute__((noinline)) void* RecordFromHere(int depth, Chain& chain, void* pc, long skip)
{
    if (depth > 0) {
        void* const returnAddress = RecordFromHere(depth - 1, chain, pc, skip);
        asm volatile("" ::: "memory");
        return returnAddress;
    }
    chain.RecordFrom(__builtin_frame_address(0), pc, skip);
    return __builtin_return_address(0);
}

TEST(StackChain, AGivenProgramCounterCountsAsOneCall)
{
    int here = 0;
    const struct {
        void* pc;
        long skip;
        long returns;  // how many entries are calls of RecordFromHere by itself, and where they begin
        long first;
    } kRows[] = {
        {&here, -1, 3, 1},   {&here, 0, 3, 0},   {&here, 1, 2, 0},
        {nullptr, -1, 3, 0}, {nullptr, 0, 2, 0}, {nullptr, 2, 0, 0},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE("row " + std::to_string(&row - kRows));
        Chain chain;
        void* const returnAddress = RecordFromHere(3, chain, row.pc, row.skip);
        const std::vector<void*> all = Addresses(chain);
        ASSERT_GT(all.size(), static_cast<size_t>(row.first + row.returns));
        EXPECT_EQ(all[0] == &here, row.first == 1);
        EXPECT_EQ(std::count(all.begin(), all.end(), returnAddress), row.returns);
        EXPECT_TRUE(row.returns == 0 || all[static_cast<size_t>(row.first)] == returnAddress);
    }
}

TEST(StackChain, ALinkThatIsNoneEndsTheWalk)
{
    // Two frames made by hand: link and return address each. A size that the compiler doesn't know keeps them on the
    // real stack where a sanitizer moves locals elsewhere.
    const volatile size_t size = 4 * sizeof(uintptr_t);
    auto* words = static_cast<uintptr_t*>(alloca(size));
    const auto first = reinterpret_cast<uintptr_t>(words);
    const uintptr_t second = first + 2 * sizeof(uintptr_t);
    for (const uintptr_t link : {second, uintptr_t{0}, first, first - 64, second + 1, second + 2, UINTPTR_MAX - 3,
                                 UINTPTR_MAX - 15, uintptr_t{0x5555AAAA}}) {
        const uintptr_t frames[] = {link, 0x1111, 0, 0x2222};
        std::copy_n(frames, 4, words);
        const std::vector<void*> found = AddressesFrom(words);
        ASSERT_EQ(found.size(), link == second ? 2u : 1u) << std::hex << link;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(found[0]), 0x1111u);
    }
    StackChainFS<1> one;  // no room behind the program counter
    one.RecordFrom(words, words, -1);
    EXPECT_EQ(one.GetCount(), 1);
    EXPECT_EQ(one.GetBuffer()[0], words);
    // A frame pointer that is none gives the program counter alone.
    for (const uintptr_t frame : {uintptr_t{1}, first + 1, UINTPTR_MAX - 7}) {
        EXPECT_EQ(AddressesFrom(reinterpret_cast<void*>(frame), words), std::vector<void*>{words});
    }
}

// Pages that can be read, with one behind them that can't.
class GuardedPages {
public:
    GuardedPages()
        : mPages(static_cast<char*>(mmap(nullptr, kSize + kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
    {
        EXPECT_EQ(mprotect(mPages, kSize, PROT_READ | PROT_WRITE), 0);
    }
    ~GuardedPages() { munmap(mPages, kSize + kPage); }
    GuardedPages(const GuardedPages&) = delete;
    GuardedPages& operator=(const GuardedPages&) = delete;

    char* Begin() const { return mPages; }
    char* End() const { return mPages + kSize; }
    static constexpr size_t kPage = 4096;
    static constexpr size_t kSize = 32 * kPage;

private:
    char* mPages;
};

template <typename Check>
void OnBothKindsOfThread(Check check)
{
    GuardedPages first;  // mappings go downwards: above the second thread's stack
    check(first);
    std::thread([&] {
        GuardedPages second;
        check(second);
        check(first);
    }).join();
}

TEST(StackChain, FramesOfAnotherStackAreFollowedWhileTheyCanBeRead)
{
    OnBothKindsOfThread([](const GuardedPages& pages) {
        auto* const words = reinterpret_cast<uintptr_t*>(pages.End()) - 4;
        const auto end = reinterpret_cast<uintptr_t>(pages.End());
        for (const uintptr_t link : {uintptr_t{0}, end, end + 8, end - 8, UINTPTR_MAX - 15, UINTPTR_MAX - 7}) {
            words[0] = reinterpret_cast<uintptr_t>(words + 2);
            words[2] = link;
            errno = EDOM;
            for (const unsigned at : {0u, 2u, 3u, 4u}) {  // at 3 half a frame can be read
                EXPECT_EQ(AddressesFrom(words + at).size(), at < 3 ? 2 - at / 2 : 0u) << at << std::hex << ' ' << link;
            }
            EXPECT_EQ(errno, EDOM);
        }
        for (uintptr_t* at = reinterpret_cast<uintptr_t*>(pages.Begin()); at != words; at += 2) {
            at[0] = reinterpret_cast<uintptr_t>(at + 2);
        }
        Chain skipping;
        skipping.RecordFrom(pages.Begin(), nullptr, 8190);
        EXPECT_EQ(skipping.GetCount(), 1);
    });
}

uintptr_t gLink;  // what the handler's frame holds in place of its link; 0: its own
Chain* gChain;

// Calls that keep frames, below one that uses its frame pointer for something else.
void RecordInHandler(int)
{
    volatile auto* const link = static_cast<volatile uintptr_t*>(__builtin_frame_address(0));
    const uintptr_t kept = *link;
    *link = gLink != 0 ? gLink : kept;
    RecordBelow(3, *gChain, 0);
    *link = kept;
}

TEST(StackChain, ASignalsStackIsWalkedToItsEndAndNoFurther)
{
    OnBothKindsOfThread([](const GuardedPages& pages) {
        stack_t old = {};
        const stack_t own = {pages.Begin(), 0, GuardedPages::kSize};
        ASSERT_EQ(sigaltstack(&own, &old), 0);
        struct sigaction oldAction = {};
        struct sigaction action = {};
        action.sa_handler = &RecordInHandler;
        action.sa_flags = SA_ONSTACK;
        sigaction(SIGUSR1, &action, &oldAction);
        Chain chain;
        gChain = &chain;
        for (const uintptr_t behind : {size_t{0}, size_t{8}, GuardedPages::kPage - 8}) {
            gLink = reinterpret_cast<uintptr_t>(pages.End()) + behind;
            std::raise(SIGUSR1);
            EXPECT_EQ(chain.GetCount(), 6);
        }
        gLink = 0;
        std::raise(SIGUSR1);
        EXPECT_GE(chain.GetCount(), 6);
        EXPECT_EQ(chain.GetBuffer()[1], chain.GetBuffer()[2]);
        sigaction(SIGUSR1, &oldAction, nullptr);
        sigaltstack(&old, nullptr);
    });
}

thread_local bool tIsRefused = false;  // copies between processes, as by a sandbox

TEST(StackChain, AThreadsOwnStackIsWalkedWithoutCopiesBetweenProcesses)
{
    Chain chain;
    std::thread([&] {
        tIsRefused = true;
        RecordBelow(12, chain, 0);
    }).join();
    EXPECT_GT(chain.GetCount(), 12);
}

TEST(StackDecoder, AFullCrawlDropsFrames)
{
    StackCrawl crawl(1);
    for (int i = 0; i < 3; ++i) {
        crawl.Add({});
    }
    EXPECT_EQ(crawl.GetCount(), 1);
}

TEST(StackDecoder, NamesAreTheLinkersWithTheOffsetFromTheStart)
{
    using Decoder = MacStackDecoder;
    const auto* const function = reinterpret_cast<const char*>(&RecordFromHere);
    const auto onHeap = std::make_unique<char[]>(64);
    StackFrame frame;
    EXPECT_TRUE(Decoder(nullptr, 0).GetNameForAddress(function, frame.name, sizeof frame.name, &frame.offset));
    const std::string name = frame.name;
    EXPECT_EQ(name.substr(0, 3), "_ZN");
    EXPECT_NE(name.find("RecordFromHere"), std::string::npos);
    const struct {
        const void* address;
        std::string text;
        long offset;
        StackDecoder::StackInfo level = StackDecoder::kNameAndOffset;
    } kRows[] = {
        {function, name, 0},
        {function + 3, name, 3},
        {dlsym(RTLD_DEFAULT, "_ZSt9terminatev"), "_ZSt9terminatev", 0},  // its library has but dynamic symbols
        {nullptr, "<unknown>", 0},
        {onHeap.get(), "<unknown>", 0},
        {reinterpret_cast<const void*>(UINTPTR_MAX), "<unknown>", 0},
        {function + 3, "<unknown>", 0, StackDecoder::kAddressOnly},
    };
    for (const auto& row : kRows) {
        Decoder decoder(nullptr, 0);
        decoder.SetDecodeLevel(row.level);
        EXPECT_FALSE(decoder.GetNameForAddress(row.address, nullptr, 0, nullptr));
        for (const unsigned long size : {1ul, 2ul, 5ul, 11ul, 256ul}) {  // cut to the room
            char text[257];
            std::memset(text, 'x', sizeof text);
            long offset = -1;
            EXPECT_TRUE(decoder.GetNameForAddress(row.address, text, size, &offset));
            EXPECT_EQ(text, row.text.substr(0, size - 1));
            EXPECT_EQ(text[size], 'x');
            EXPECT_EQ(offset, row.offset);
        }
    }
}

}  // namespace

// The linker puts this in the place of the library's calls.
extern "C" {
ssize_t __real_process_vm_readv(pid_t, const iovec*, unsigned long, const iovec*, unsigned long, unsigned long);
ssize_t __wrap_process_vm_readv(pid_t process, const iovec* into, unsigned long intoCount, const iovec* from,
                                unsigned long fromCount, unsigned long flags)
{
    errno = EPERM;
    return tIsRefused ? -1 : __real_process_vm_readv(process, into, intoCount, from, fromCount, flags);
}
}
