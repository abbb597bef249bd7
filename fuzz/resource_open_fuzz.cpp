// Resource files from memory: opens the input, asks for everything in it, closes it. Once as constant memory, once in a
// handle that could be written, once with the validators off. What one input takes it must give back.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "CookieManager.h"
#include "FuzzLibrary.h"
#include "LiveCount.h"
#include "MemoryChecks.h"
#include "MemoryManager.h"
#include "ResourceManager.h"
#include "ResourceReading.h"

namespace {

constexpr int kMostNamed = 64;  // a look-up by name walks the type's whole list

constexpr _ResourceType kStringList = kz::FourCharCode("STR#");

// Reads each byte, so that the address sanitizer sees what lies outside.
volatile unsigned gSum = 0;

void Touch(const unsigned char* bytes, std::size_t count)
{
    unsigned sum = 0;
    for (std::size_t i = 0; i < count; ++i) {
        sum += bytes[i];
    }
    gSum = gSum + sum;
}

using kzfuzz::Require;

void ReadStrings(RsrcFile refnum, _ResourceType type, int32 id)
{
    const unsigned char* str = nullptr;
    for (int32 index = 1; RGetIndStringPtr(refnum, &str, id, index, type) == kzErrNone; ++index) {
        Touch(str, std::size_t{str[0]} + 1);
    }
    unsigned char copy[256];
    Require(RGetIndString(refnum, copy, id, 0) != kzErrNone, "string 0 of a list");
    RGetPStr(refnum, id, copy);
}

void ReadResource(RsrcFile refnum, _ResourceType type, int32 index)
{
    int32 id = 0;
    int32 attrs = 0;
    unsigned char name[256];
    Require(RGetIndInfo(refnum, type, index, &id, &attrs, name) == kzErrNone, "no info below the count");
    UHandle handle = nullptr;
    if (RGetInd(refnum, type, index, &handle) == kzErrNone) {
        int32 size = -1;
        Require(RSize(handle, &size) == kzErrNone && size >= 0, "a loaded resource without a size");
        Touch(*handle, static_cast<std::size_t>(size));
    }
    if (name[0] > 0 && index <= kMostNamed) {
        RGetNamed(refnum, type, name, &handle);
    }
    RGet(refnum, type, id, &handle);
    if (type == kStringList || index == 1) {
        ReadStrings(refnum, type, id);
    }
    if (index % 2 == 0 && handle != nullptr) {
        RRelease(handle);
    }
}

void ReadAll(RsrcFile refnum)
{
    int32 types = 0;
    Require(RCountTypes(refnum, &types) == kzErrNone, "no count of types");
    for (int32 i = 1; i <= types; ++i) {
        _ResourceType type = 0;
        int32 count = 0;
        Require(RGetIndType(refnum, &type, i) == kzErrNone, "no type below the count");
        Require(RCount(refnum, type, &count) == kzErrNone, "no count of resources");
        for (int32 index = 1; index <= count; ++index) {
            ReadResource(refnum, type, index);
        }
    }
    Require(RCloseFile(refnum) == kzErrNone, "an unchanged file doesn't close");
}

void OpenConstant(const uint8_t* data, std::size_t size)
{
    RsrcFile refnum = 0;
    if (ROpenUPtr(data, size, &refnum, nullptr, nullptr) == kzErrNone) {
        ReadAll(refnum);
    }
}

void OpenHandle(const uint8_t* data, std::size_t size)
{
    const UHandle handle = DSNewHandle(size);
    Require(handle != nullptr, "no memory for the input");
    std::memcpy(*handle, data, size);
    RsrcFile refnum = 0;
    if (ROpenUHandle(handle, kRsrcReadWrite, &refnum, nullptr, nullptr) == kzErrNone) {
        ReadAll(refnum);
    } else {
        Require(DSDisposeHandle(handle) == kzErrNone, "a failed open took the handle");
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    kzfuzz::StartLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const auto handles = kz::LiveHandleCount();
    const auto pointers = kz::LiveCount(kz::Live::kPointers);
    const auto cookies = kz::LiveCount(kz::Live::kCookies);
    OpenConstant(data, size);
    OpenHandle(data, size);
    kz::SetWeakRsrcFileValidation(true);
    OpenConstant(data, size);
    kz::SetWeakRsrcFileValidation(false);
    Require(kz::LiveHandleCount() == handles, "handles leaked");
    Require(kz::LiveCount(kz::Live::kPointers) == pointers, "pointers leaked");
    Require(kz::LiveCount(kz::Live::kCookies) == cookies, "cookies leaked");
    return 0;
}
