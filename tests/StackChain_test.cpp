#include "StackChain.h"

#include <alloca.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

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

struct Name {
    std::string text;
    long offset;
};

Name NameOf(const void* address)
{
    MacStackDecoder decoder(nullptr, 0);
    char name[256];
    long offset = -1;
    EXPECT_TRUE(decoder.GetNameForAddress(address, name, sizeof name, &offset));
    return {name, offset};
}

bool IsIn(const StackFrame& frame, const char* function)
{
    return std::strstr(frame.name, function) != nullptr;
}

TEST(StackChain, EntriesAreTheCallersInnermostFirst)
{
    Chain chain;
    RecordBelow(3, chain, 0);
    const std::unique_ptr<StackCrawl> crawl = chain.FrameDecoder()->GetStackCrawl();
    ASSERT_GT(crawl->GetCount(), 5);
    EXPECT_EQ(crawl->GetCount(), chain.GetCount());
    for (long i = 0; i < 4; ++i) {
        EXPECT_TRUE(IsIn(crawl->GetFrame(i), "RecordBelow")) << crawl->GetFrame(i).name;
        EXPECT_EQ(crawl->GetFrame(i).address, chain.GetBuffer()[i]);
    }
    EXPECT_TRUE(IsIn(crawl->GetFrame(4), "TestBody")) << crawl->GetFrame(4).name;

    // Two places in one function: one name, two offsets.
    EXPECT_STREQ(crawl->GetFrame(0).name, crawl->GetFrame(1).name);
    EXPECT_NE(crawl->GetFrame(0).offset, crawl->GetFrame(1).offset);
    EXPECT_GT(crawl->GetFrame(0).offset, 0);
    EXPECT_EQ(crawl->GetFrame(1).offset, crawl->GetFrame(2).offset);

    RecordBelow(40, chain, 0);
    ASSERT_EQ(chain.GetCount(), 16);
    EXPECT_EQ(chain.GetBuffer()[15], chain.GetBuffer()[1]);
}

TEST(StackChain, SkipLeavesOutTheInnermost)
{
    const auto recorded = [](long skip) {
        Chain chain;
        RecordBelow(4, chain, skip);
        return Addresses(chain);
    };
    std::vector<void*> all;
    for (long skip = 0; skip < 4; ++skip) {
        const std::vector<void*> rest = recorded(skip);
        all = skip == 0 ? rest : all;
        ASSERT_GE(rest.size(), static_cast<size_t>(5 - skip));
        EXPECT_TRUE(std::equal(rest.begin(), rest.begin() + 5 - skip, all.begin() + skip)) << skip;
    }
    EXPECT_TRUE(recorded(1000).empty());
    EXPECT_TRUE(recorded(LONG_MAX).empty());
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
    const struct {
        uintptr_t link;
        long count;
    } kRows[] = {
        {second, 2},     {0, 1},          {first, 1},           {first - 64, 1},
        {second + 1, 1}, {second + 2, 1}, {UINTPTR_MAX - 3, 1}, {UINTPTR_MAX - 15, 1},
        {0x5555AAAA, 1},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE("row " + std::to_string(&row - kRows));
        words[0] = row.link;
        words[1] = 0x1111;
        words[2] = 0;
        words[3] = 0x2222;
        Chain chain;
        chain.RecordFrom(words, nullptr, -1);
        ASSERT_EQ(chain.GetCount(), row.count);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(chain.GetBuffer()[0]), 0x1111u);
    }
    // A frame pointer that is none gives the program counter alone.
    for (const uintptr_t frame : {uintptr_t{1}, first + 1, UINTPTR_MAX - 7}) {
        Chain chain;
        chain.RecordFrom(reinterpret_cast<void*>(frame), words, -1);
        EXPECT_EQ(Addresses(chain), std::vector<void*>{words});
    }
}

// A second thread's stack ends at its control block, wherever the frame lies: what is above is not its own.
TEST(StackChain, ASecondThreadFollowsNothingAboveItsStack)
{
    const auto map = [] {
        void* const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return static_cast<uintptr_t*>(page);
    };
    const auto record = [](uintptr_t* words) {
        words[0] = reinterpret_cast<uintptr_t>(words + 2);
        words[1] = 0x1111;
        words[2] = 0;
        words[3] = 0x2222;
        Chain chain;
        chain.RecordFrom(words, nullptr, -1);
        return chain.GetCount();
    };
    uintptr_t* const above = map();  // mappings go downwards
    std::thread([&] {
        uintptr_t* const below = map();
        const auto self = static_cast<uintptr_t>(pthread_self());
        if (reinterpret_cast<uintptr_t>(above) > self) {
            EXPECT_EQ(record(above), 0);
        }
        if (reinterpret_cast<uintptr_t>(below) < self) {
            EXPECT_EQ(record(below), 2) << "as a handler asks for the frames that its signal interrupted";
        }
        munmap(below, 4096);
    }).join();
    munmap(above, 4096);
}

TEST(StackChain, WorksOnASecondThreadAndIsCopiedByValue)
{
    Chain chain;
    std::thread thread([&chain] {
        Chain own;
        RecordBelow(2, own, 0);
        chain = own;
    });
    thread.join();
    ASSERT_GE(chain.GetCount(), 4);
    const std::unique_ptr<StackCrawl> crawl = chain.FrameDecoder()->GetStackCrawl();
    EXPECT_TRUE(IsIn(crawl->GetFrame(2), "RecordBelow"));
    EXPECT_FALSE(IsIn(crawl->GetFrame(3), "RecordBelow"));
}

TEST(StackDecoder, NamesAreTheLinkersWithTheOffsetFromTheStart)
{
    const auto* function = reinterpret_cast<const char*>(&RecordFromHere);
    const Name start = NameOf(function);
    const Name inside = NameOf(function + 3);
    EXPECT_EQ(start.text.substr(0, 3), "_ZN");
    EXPECT_NE(start.text.find("RecordFromHere"), std::string::npos);
    EXPECT_EQ(start.offset, 0);
    EXPECT_EQ(inside.text, start.text);
    EXPECT_EQ(inside.offset, 3);

    // A library that has no more than its dynamic symbols.
    const Name library = NameOf(dlsym(RTLD_DEFAULT, "_ZSt9terminatev"));
    EXPECT_EQ(library.text, "_ZSt9terminatev");
    EXPECT_EQ(library.offset, 0);
}

TEST(StackDecoder, WhatHasNoNameIsUnknown)
{
    const auto onHeap = std::make_unique<char[]>(64);
    for (const void* address : {static_cast<const void*>(nullptr), static_cast<const void*>(onHeap.get()),
                                reinterpret_cast<const void*>(UINTPTR_MAX)}) {
        const Name name = NameOf(address);
        EXPECT_EQ(name.text, "<unknown>");
        EXPECT_EQ(name.offset, 0);
    }

    Chain chain;
    RecordBelow(1, chain, 0);
    const std::unique_ptr<StackDecoder> decoder = chain.FrameDecoder();
    decoder->SetDecodeLevel(StackDecoder::kAddressOnly);
    const std::unique_ptr<StackCrawl> crawl = decoder->GetStackCrawl();
    ASSERT_EQ(crawl->GetCount(), chain.GetCount());
    for (long i = 0; i < crawl->GetCount(); ++i) {
        EXPECT_EQ(crawl->GetFrame(i).address, chain.GetBuffer()[i]);
        EXPECT_STREQ(crawl->GetFrame(i).name, "<unknown>");
        EXPECT_EQ(crawl->GetFrame(i).offset, 0);
    }
}

TEST(StackDecoder, NamesAreCutToTheRoom)
{
    MacStackDecoder decoder(nullptr, 0);
    const Name whole = NameOf(reinterpret_cast<const void*>(&RecordFromHere));
    for (unsigned long size = 1; size < 12; ++size) {
        char name[16];
        std::memset(name, 'x', sizeof name);
        long offset = -1;
        EXPECT_TRUE(decoder.GetNameForAddress(reinterpret_cast<const void*>(&RecordFromHere), name, size, &offset));
        EXPECT_EQ(name, size == 1 ? std::string() : whole.text.substr(0, size - 1));
        EXPECT_EQ(name[size], 'x');

        EXPECT_TRUE(decoder.GetNameForAddress(nullptr, name, size, &offset));
        EXPECT_EQ(name, std::string("<unknown>").substr(0, size - 1));
    }
}

}  // namespace
