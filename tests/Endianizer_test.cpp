#include "Endianizer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "KZPlacement.h"

namespace {

std::string Reversed(const std::string& bytes)
{
    return {bytes.rbegin(), bytes.rend()};
}

// Runs a conversion on memory one byte off any alignment, to a second place and in place.
template <typename Convert>
std::string Converted(const std::string& bytes, Convert convert)
{
    alignas(16) char source[40] = {};
    alignas(16) char dest[40] = {};
    bytes.copy(source + 1, bytes.size());
    convert(source + 1, dest + 3);
    convert(source + 1, source + 1);
    std::string result(dest + 3, bytes.size());
    EXPECT_EQ(std::string(source + 1, bytes.size()), result) << "in place";
    EXPECT_EQ(dest[2], 0);
    EXPECT_EQ(dest[3 + bytes.size()], 0);
    return result;
}

TEST(Endianizer, Scalars)
{
    using Move = void (Endianizer::*)(const void*, void*) const;
    struct Case {
        Move read, write;
        std::size_t size;
    };
    const Case cases[] = {{&Endianizer::Read2ByteVal, &Endianizer::Write2ByteVal, 2},
                          {&Endianizer::Read4ByteVal, &Endianizer::Write4ByteVal, 4},
                          {&Endianizer::Read8ByteVal, &Endianizer::Write8ByteVal, 8},
                          {&Endianizer::Read16ByteVal, &Endianizer::Write16ByteVal, 16}};
    for (const Endianizer* order : {NativeEndianizer(), BigEndianizer(), LittleEndianizer()}) {
        EXPECT_EQ(order->IsSwapping(), order == BigEndianizer());
        for (const Case& c : cases) {
            const std::string bytes =
                std::string("\xF0\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\x0D\x0E\x0F", 16).substr(0, c.size);
            const std::string expected = order->IsSwapping() ? Reversed(bytes) : bytes;
            for (const Move move : {c.read, c.write}) {
                EXPECT_EQ(Converted(bytes, [&](const void* s, void* d) { (order->*move)(s, d); }), expected) << c.size;
            }
        }
    }
    EXPECT_EQ(BigEndianizer()->ReadAWord("\xFF\xFE"), -2);
    EXPECT_EQ(LittleEndianizer()->ReadAWord("\xFE\xFF"), -2);
    EXPECT_EQ(NativeEndianizer()->ReadAWord("\x34\x12"), 0x1234);
    EXPECT_EQ(BigEndianizer()->ReadALong("\x80\x00\x00\x01"), -0x7FFFFFFF);
    EXPECT_EQ(LittleEndianizer()->ReadALong("\x04\x03\x02\x01"), 0x01020304);
}

floatExt ExtOf(long double value)
{
    floatExt x;
    std::memcpy(x.bytes, &value, sizeof x.bytes);
    return x;
}

// The stored form is that of the compiler's own 128-bit float, whose fraction holds all 63 bits.
__extension__ typedef __float128 Float128;

std::string StoredForm(long double value)
{
    const Float128 wide = value;
    std::string bytes(16, 0);
    std::memcpy(bytes.data(), &wide, 16);
    return Reversed(bytes);
}

TEST(Endianizer, ExtendedFloats)
{
    using Limits = std::numeric_limits<long double>;
    const long double values[] = {0.0L,
                                  1.0L,
                                  -2.5L,
                                  1.0L / 3,
                                  Limits::max(),
                                  -Limits::min(),
                                  Limits::infinity(),
                                  1e-4000L,
                                  9223372036854775809.0L};
    EXPECT_EQ(NativeEndianizer()->SizeOfExt(), 10u);
    EXPECT_EQ(BigEndianizer()->SizeOfExt(), 16u);
    EXPECT_EQ(LittleEndianizer()->SizeOfExt(), 16u);
    for (const long double value : values) {
        const floatExt x = ExtOf(value);
        std::string big(17, '\x5A'), little(17, '\x5A'), native(11, '\x5A');
        BigEndianizer()->WriteExtVal(&x, big.data());
        LittleEndianizer()->WriteExtVal(&x, little.data());
        NativeEndianizer()->WriteExtVal(&x, native.data());
        EXPECT_EQ(big, StoredForm(value) + '\x5A') << value;
        EXPECT_EQ(little, Reversed(StoredForm(value)) + '\x5A') << value;
        EXPECT_EQ(native.substr(0, 10), std::string(reinterpret_cast<const char*>(x.bytes), 10));
        EXPECT_EQ(native[10], '\x5A');

        big.replace(10, 6, "ignore");
        little.replace(0, 6, "ignore");
        floatExt fromBig, fromLittle, fromNative;
        BigEndianizer()->ReadExtVal(big.data(), &fromBig);
        LittleEndianizer()->ReadExtVal(little.data(), &fromLittle);
        NativeEndianizer()->ReadExtVal(native.data(), &fromNative);
        for (const floatExt* back : {&fromBig, &fromLittle, &fromNative}) {
            EXPECT_EQ(std::memcmp(back->bytes, x.bytes, 10), 0) << value;
        }
    }
    // A negative zero has a sign, so it gains the leading bit of a number.
    const floatExt negativeZero = ExtOf(-0.0L);
    floatExt back;
    unsigned char stored[16];
    XToStd(&negativeZero, stored);
    EXPECT_EQ(stored[0], 0x80);
    StdToX(stored, &back);
    EXPECT_EQ(back.bytes[7], 0x80);
    // A mantissa with no exponent is stored as it stands.
    floatExt denormal = {{0xEF, 0xCD, 0xAB, 0x89, 0x67, 0x45, 0x23, 0x01, 0, 0}};
    XToStd(&denormal, stored);
    EXPECT_EQ(std::memcmp(stored, "\0\0\x01\x23\x45\x67\x89\xAB\xCD\xEF\0\0\0\0\0\0", 16), 0);
    StdToX(stored, &back);
    EXPECT_EQ(std::memcmp(back.bytes, denormal.bytes, 10), 0);
}

TEST(Endianizer, ObjectsComeBackAfterACleanup)
{
    const Endianizer* before = BigEndianizer();
    EXPECT_EQ(BigEndianizer(), before);
    for (int round = 0; round < 2; ++round) {
        KZPlacementNewRunCleanup();
        EXPECT_EQ(BigEndianizer()->ReadAWord("\x12\x34"), 0x1234);
        EXPECT_EQ(LittleEndianizer()->ReadAWord("\x12\x34"), 0x3412);
        EXPECT_EQ(NativeEndianizer()->SizeOfExt(), 10u);
    }
    kz::PlaceEndianizers();
}

}  // namespace
