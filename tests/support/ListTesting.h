// String lists for tests: made from, and read as, vectors of std::string.
#ifndef KZCORE_TESTS_LISTTESTING_H
#define KZCORE_TESTS_LISTTESTING_H

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ByteOrder.h"
#include "MemoryManager.h"
#include "StringCPStr.h"
#include "TestStrings.h"

namespace kztest {

using Texts = std::vector<std::string>;

// The bytes of a CPStr.
inline std::string PackedBytes(const Texts& texts)
{
    std::string bytes(4, '\0');
    kz::StoreNative(bytes.data(), static_cast<int32>(texts.size()));
    for (const std::string& text : texts) {
        bytes += static_cast<char>(text.size());
        bytes += text;
    }
    return bytes;
}

// A handle with these bytes, whose owner disposes it; null if there is no memory.
inline UHandle HandleOf(const std::string& bytes)
{
    const UHandle handle = DSNewHandle(bytes.size());
    if (handle != nullptr) {
        std::memcpy(*handle, bytes.data(), bytes.size());
    }
    return handle;
}

inline std::string BytesOf(const void* handle)
{
    const auto master = static_cast<const char* const*>(handle);
    return {*master, DSGetHandleSize(handle)};
}

// A CPStr handle, disposed at the end; the variable is public for calls that take its address.
class CPStrHandle {
public:
    CPStrHandle() = default;
    explicit CPStrHandle(const Texts& texts) : CPStrHandle(PackedBytes(texts)) {}
    explicit CPStrHandle(const std::string& bytes) : handle(reinterpret_cast<CPStr**>(HandleOf(bytes))) {}
    ~CPStrHandle() { DSDisposeHandle(handle); }
    CPStrHandle(const CPStrHandle&) = delete;
    CPStrHandle& operator=(const CPStrHandle&) = delete;

    unsigned long BlockSize() const { return DSGetHandleSize(handle); }
    std::string Bytes() const { return BytesOf(handle); }
    Texts Strings() const
    {
        Texts texts;
        const unsigned char* string = (*handle)->str;
        for (int32 i = 0; i < (*handle)->cnt; ++i, string += 1 + string[0]) {
            texts.emplace_back(reinterpret_cast<const char*>(string) + 1, string[0]);
        }
        return texts;
    }

    CPStr** handle = nullptr;
};

// A text of at most `longest` bytes; short and long ones are equally likely.
inline std::string DrawText(std::mt19937_64& draw, unsigned longest)
{
    const unsigned limit = draw() % 2 == 0 ? longest : 3;
    return std::string(draw() % (limit + 1), static_cast<char>('a' + draw() % 6));
}

}  // namespace kztest

#endif
