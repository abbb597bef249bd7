// The stored extended float and the x87 unit's differ in the mantissa's leading bit, which the unit keeps and the
// stored form implies. Numbers with an exponent of 0 imply no such bit in either form and are copied as they are.
#include "NumericSupport.h"

#include <cstring>
#include <iterator>

#include "ByteOrder.h"

namespace {

constexpr uInt64 kLeadingBit = 1ULL << 63;
constexpr uInt16 kExponentBits = 0x7FFF;
constexpr std::size_t kMantissaBytes = 8;

struct NumTypeInfo {
    uInt8 size;
    uInt8 numClass;
};

constexpr uInt8 kNoClass = 64;

// By code; the entry at 0 stands for all that is no code.
constexpr NumTypeInfo kNumTypes[] = {
    {0, kNoClass},          {1, kNumClassSigned},   {2, kNumClassSigned},   {4, kNumClassSigned},
    {8, kNumClassSigned},   {1, kNumClassUnsigned}, {2, kNumClassUnsigned}, {4, kNumClassUnsigned},
    {8, kNumClassUnsigned}, {4, kNumClassFloat},    {8, kNumClassFloat},    {10, kNumClassFloat},
    {8, kNumClassComplex},  {16, kNumClassComplex}, {20, kNumClassComplex},
};

static_assert(std::size(kNumTypes) == kNumCX + 1);

constexpr NumTypeInfo InfoOf(int32 type)
{
    return kNumTypes[type > 0 && type <= kNumCX ? type : 0];
}

}  // namespace

constinit const floatExt EZero = {};

void XToStd(const floatExt* x, void* stored)
{
    // All of x is read before the first byte is written, because the two may be the same memory.
    uInt64 mantissa = kz::LoadNative<uInt64>(x->bytes);
    const uInt16 signExponent = kz::LoadNative<uInt16>(x->bytes + kMantissaBytes);
    if ((signExponent & kExponentBits) != 0) {
        mantissa <<= 1;  // the leading bit goes
    }
    unsigned char* out = static_cast<unsigned char*>(stored);
    kz::StoreBig(out, signExponent);
    kz::StoreBig(out + 2, mantissa);
    std::memset(out + 10, 0, 6);  // the mantissa's bits that the unit doesn't have
}

void StdToX(const void* stored, floatExt* x)
{
    const unsigned char* in = static_cast<const unsigned char*>(stored);
    const uInt16 signExponent = kz::LoadBig<uInt16>(in);
    uInt64 mantissa = kz::LoadBig<uInt64>(in + 2);
    if ((signExponent & kExponentBits) != 0) {
        mantissa = (mantissa >> 1) | kLeadingBit;
    }
    kz::StoreNative(x->bytes, mantissa);
    kz::StoreNative(x->bytes + kMantissaBytes, signExponent);
}

int32 NumSize(int32 type)
{
    return InfoOf(type).size;
}

int32 NumClass(int32 type)
{
    return InfoOf(type).numClass;
}
