// Counted strings for tests, made from std::string.
#ifndef KZCORE_TESTS_TESTSTRINGS_H
#define KZCORE_TESTS_TESTSTRINGS_H

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "DebugStream.h"
#include "KZTypes.h"
#include "MemoryManager.h"
#include "RunningMemory.h"
#include "StringLStr.h"

namespace kztest {

// A PStr in a buffer of exactly its size, so that a sanitizer sees a read past its end.
class PStrValue {
public:
    explicit PStrValue(const std::string& text) : mBytes(new unsigned char[text.size() + 1])
    {
        mBytes[0] = static_cast<unsigned char>(text.size());
        std::memcpy(mBytes.get() + 1, text.data(), text.size());
    }
    operator const unsigned char*() const { return mBytes.get(); }

private:
    std::unique_ptr<unsigned char[]> mBytes;
};

// A PStr buffer to write to, with a guard byte behind it.
struct PStrBuffer {
    PStrBuffer() { std::memset(bytes, 0xA5, sizeof bytes); }
    explicit PStrBuffer(const std::string& text) : PStrBuffer()
    {
        bytes[0] = static_cast<unsigned char>(text.size());
        std::memcpy(bytes + 1, text.data(), text.size());
    }
    operator unsigned char*() { return bytes; }
    std::string Text() const
    {
        EXPECT_EQ(bytes[256], 0xA5) << "written past the buffer";
        return {reinterpret_cast<const char*>(bytes) + 1, bytes[0]};
    }
    unsigned char bytes[257];
};

// An LStr outside the memory manager; a null LStr where it is made from nothing.
class LStrValue {
public:
    LStrValue() = default;
    explicit LStrValue(const std::string& text) : mBlock((text.size() + 7) / 4)
    {
        mBlock[0] = static_cast<int32>(text.size());
        std::memcpy(mBlock.data() + 1, text.data(), text.size());
    }
    LStr* Get() { return mBlock.empty() ? nullptr : reinterpret_cast<LStr*>(mBlock.data()); }

private:
    std::vector<int32> mBlock;
};

inline std::string TextOf(const LStr* s)
{
    return s == nullptr ? std::string()
                        : std::string(reinterpret_cast<const char*>(s->str), static_cast<size_t>(s->cnt));
}

// A handle of the memory manager, disposed at the end; the variable is public for calls that take its address.
class LStrHandle {
public:
    LStrHandle() = default;
    explicit LStrHandle(const std::string& text)
    {
        EXPECT_EQ(DSSetHandleSizeOrNewHandle(&handle, text.size() + 4), 0);
        (*handle)->cnt = static_cast<int32>(text.size());
        std::memcpy((*handle)->str, text.data(), text.size());
    }
    ~LStrHandle() { DSDisposeHandle(handle); }
    LStrHandle(const LStrHandle&) = delete;
    LStrHandle& operator=(const LStrHandle&) = delete;

    std::string Text() const { return handle == nullptr ? std::string() : TextOf(*handle); }
    unsigned long BlockSize() const { return DSGetHandleSize(handle); }

    LStr** handle = nullptr;
};

class StringTest : public MemoryTest {
protected:
    // What a report shows of a handle's text.
    std::string Reported(LStr** handle)
    {
        DebugStream stream("test", __LINE__, "", kDbgLog);
        ToDebugStream(stream, handle);
        stream.Process();
        const ReportRows rows = reports.TakeRows();
        return rows.size() == 1 ? rows[0].second : "not one report";
    }
};

}  // namespace kztest

#endif
