// Resource files from memory: opens the input, asks for everything in it, closes it. Once as constant memory, once in a
// handle that could be written, once with the validators off. What one input takes it must give back.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "CookieManager.h"
#include "DebugOutputCore.h"
#include "MemoryManager.h"
#include "ResourceFormat.h"
#include "ResourceManager.h"
#include "TestHost.h"

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

void Need(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "resource_open_fuzz: %s\n", what);
        std::abort();
    }
}

void ReadStrings(RsrcFile refnum, _ResourceType type, int32 id)
{
    const unsigned char* str = nullptr;
    for (int32 index = 1; RGetIndStringPtr(refnum, &str, id, index, type) == kzErrNone; ++index) {
        Touch(str, std::size_t{str[0]} + 1);
    }
    unsigned char copy[256];
    Need(RGetIndString(refnum, copy, id, 0) != kzErrNone, "string 0 of a list");
    RGetPStr(refnum, id, copy);
}

void ReadResource(RsrcFile refnum, _ResourceType type, int32 index)
{
    int32 id = 0;
    int32 attrs = 0;
    unsigned char name[256];
    Need(RGetIndInfo(refnum, type, index, &id, &attrs, name) == kzErrNone, "no info below the count");
    UHandle handle = nullptr;
    if (RGetInd(refnum, type, index, &handle) == kzErrNone) {
        int32 size = -1;
        Need(RSize(handle, &size) == kzErrNone && size >= 0, "a loaded resource without a size");
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
    Need(RCountTypes(refnum, &types) == kzErrNone, "no count of types");
    for (int32 i = 1; i <= types; ++i) {
        _ResourceType type = 0;
        int32 count = 0;
        Need(RGetIndType(refnum, &type, i) == kzErrNone, "no type below the count");
        Need(RCount(refnum, type, &count) == kzErrNone, "no count of resources");
        for (int32 index = 1; index <= count; ++index) {
            ReadResource(refnum, type, index);
        }
    }
    Need(RCloseFile(refnum) == kzErrNone, "an unchanged file doesn't close");
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
    Need(handle != nullptr, "no memory for the input");
    std::memcpy(*handle, data, size);
    RsrcFile refnum = 0;
    if (ROpenUHandle(handle, kRsrcReadWrite, &refnum, nullptr, nullptr) == kzErrNone) {
        ReadAll(refnum);
    } else {
        Need(DSDisposeHandle(handle) == kzErrNone, "a failed open took the handle");
    }
}

void Swallow(const char* /*file*/, int32 /*line*/, const char* /*versionId*/, int32 /*level*/, uInt32 /*hash*/,
             const char* /*text*/, uInt64 /*extra*/)
{}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    DebugOutputSetHandler(&Swallow);
    static const auto* const library = new kztest::RunningLibrary;  // runs until the process ends
    Need(library->baseResult == kzErrNone, "the library doesn't start");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const auto handles = kz::LiveHandleCount();
    const auto pointers = kz::LivePointerCount();
    const auto cookies = kz::LiveCookieCount();
    OpenConstant(data, size);
    OpenHandle(data, size);
    kz::SetWeakRsrcFileValidation(true);
    OpenConstant(data, size);
    kz::SetWeakRsrcFileValidation(false);
    Need(kz::LiveHandleCount() == handles, "handles leaked");
    Need(kz::LivePointerCount() == pointers, "pointers leaked");
    Need(kz::LiveCookieCount() == cookies, "cookies leaked");
    return 0;
}
