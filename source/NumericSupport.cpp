#include "NumericSupport.h"

#include <cstring>

#include "ByteOrder.h"

namespace {

constexpr uInt64 kLeadingBit = 1ULL << 63;
constexpr std::size_t kMantissaBytes = 8;

}  // namespace

void XToStd(const floatExt* x, void* stored)
{
    uInt64 mantissa = kz::LoadNative<uInt64>(x->bytes);
    const uInt16 signExponent = kz::LoadNative<uInt16>(x->bytes + kMantissaBytes);
    if (signExponent != 0) {
        mantissa <<= 1;
    }
    unsigned char* out = static_cast<unsigned char*>(stored);
    kz::StoreBig(out, signExponent);
    kz::StoreBig(out + 2, mantissa);
    std::memset(out + 10, 0, 6);
}

void StdToX(const void* stored, floatExt* x)
{
    const unsigned char* in = static_cast<const unsigned char*>(stored);
    const uInt16 signExponent = kz::LoadBig<uInt16>(in);
    uInt64 mantissa = kz::LoadBig<uInt64>(in + 2);
    if (signExponent != 0) {
        mantissa = (mantissa >> 1) | kLeadingBit;
    }
    kz::StoreNative(x->bytes, mantissa);
    kz::StoreNative(x->bytes + kMantissaBytes, signExponent);
}
