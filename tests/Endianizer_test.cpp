#include "Endianizer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

#include "KZPlacement.h"
#include "SharedEndianizers.h"

namespace {

std::string Reversed(const std::string& bytes)
{
    return {bytes.rbegin(), bytes.rend()};
}

TEST(Endianizer, Scalars)
{
    using Move = void (Endianizer::*)(const void*, void*) const;
    struct Case {
        std::size_t size;
        Move read, write;
    };
    const Case cases[] = {{2, &Endianizer::Read2ByteVal, &Endianizer::Write2ByteVal},
                          {4, &Endianizer::Read4ByteVal, &Endianizer::Write4ByteVal},
                          {8, &Endianizer::Read8ByteVal, &Endianizer::Write8ByteVal},
                          {16, &Endianizer::Read16ByteVal, &Endianizer::Write16ByteVal}};
    const std::string text = "0123456789ABCDEF";
    for (const Endianizer* order : {NativeEndianizer(), BigEndianizer(), LittleEndianizer()}) {
        EXPECT_EQ(order->IsSwapping(), order == BigEndianizer());
        for (const Case& c : cases) {
            const std::string bytes = text.substr(0, c.size);
            const std::string expected = "." + (order->IsSwapping() ? Reversed(bytes) : bytes) + ".";
            for (const Move move : {c.read, c.write}) {
                std::string dest(c.size + 2, '.'), inPlace = "." + bytes + ".";  // off any alignment
                (order->*move)(text.data(), &dest[1]);
                (order->*move)(&inPlace[1], &inPlace[1]);
                EXPECT_EQ(dest, expected);
                EXPECT_EQ(inPlace, expected);
            }
        }
    }
    EXPECT_EQ(BigEndianizer()->ReadAWord("\xFF\xFE"), -2);
    EXPECT_EQ(LittleEndianizer()->ReadAWord("\xFE\xFF"), -2);
    EXPECT_EQ(BigEndianizer()->ReadALong("\x80\x00\x00\x01"), -0x7FFFFFFF);
    EXPECT_EQ(NativeEndianizer()->ReadALong("\x04\x03\x02\x01"), 0x01020304);
}

// In whole vectors and beside them, off any alignment.
TEST(Endianizer, Arrays)
{
    std::string text;
    for (int i = 0; i < 400; ++i) {
        text += static_cast<char>(i * 7 + i / 256);
    }
    for (const Endianizer* order : {NativeEndianizer(), BigEndianizer(), LittleEndianizer()}) {
        for (const uInt32 width : {1u, 2u, 4u, 8u, 16u}) {
            for (const std::size_t count : {0u, 1u, 3u, 4u, 5u, 15u, 17u, 23u}) {
                const std::string bytes = text.substr(1, width * count);
                std::string expected = ".";
                for (std::size_t i = 0; i < count; ++i) {
                    const std::string one = bytes.substr(i * width, width);
                    expected += order->IsSwapping() ? Reversed(one) : one;
                }
                expected += ".";
                for (const auto move : {&Endianizer::ReadArray, &Endianizer::WriteArray}) {
                    std::string dest(bytes.size() + 2, '.'), inPlace = "." + bytes + ".";
                    (order->*move)(&text[1], &dest[1], count, width);
                    (order->*move)(&inPlace[1], &inPlace[1], count, width);
                    EXPECT_EQ(dest, expected) << width << " x " << count;
                    EXPECT_EQ(inPlace, expected) << width << " x " << count;
                }
            }
        }
    }
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

std::string Written(const Endianizer* order, const floatExt& x)
{
    std::string bytes(order->SizeOfExt() + 1, '\x5A');
    order->WriteExtVal(&x, bytes.data());
    EXPECT_EQ(bytes.back(), '\x5A');
    bytes.pop_back();
    return bytes;
}

TEST(Endianizer, ExtendedFloats)
{
    using Limits = std::numeric_limits<long double>;
    for (const long double value : {0.0L, 1.0L, -2.5L, 1.0L / 3, Limits::max(), -Limits::min(), Limits::infinity(),
                                    1e-4000L, 9223372036854775809.0L}) {
        floatExt x;
        std::memcpy(x.bytes, &value, sizeof x.bytes);
        std::string big = Written(BigEndianizer(), x);
        std::string little = Written(LittleEndianizer(), x);
        const std::string native = Written(NativeEndianizer(), x);
        EXPECT_EQ(big, StoredForm(value)) << value;
        EXPECT_EQ(little, Reversed(StoredForm(value))) << value;
        EXPECT_EQ(native, std::string(reinterpret_cast<const char*>(x.bytes), 10));

        big.replace(10, 6, "ignore");
        little.replace(0, 6, "ignore");
        floatExt back[3];
        BigEndianizer()->ReadExtVal(big.data(), &back[0]);
        LittleEndianizer()->ReadExtVal(little.data(), &back[1]);
        NativeEndianizer()->ReadExtVal(native.data(), &back[2]);
        for (const floatExt& read : back) {
            EXPECT_EQ(std::memcmp(read.bytes, x.bytes, 10), 0) << value;
        }
    }
    // Where the compiler's float would differ: a mantissa with no exponent is stored as it stands, whatever the sign.
    const unsigned char denormal[16] = {0, 0, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    const unsigned char negativeZero[16] = {0x80};
    floatExt x;
    BigEndianizer()->ReadExtVal(negativeZero, &x);
    EXPECT_EQ(std::memcmp(x.bytes, "\0\0\0\0\0\0\0\0\0\x80", 10), 0);
    EXPECT_EQ(std::memcmp(Written(BigEndianizer(), x).data(), negativeZero, 16), 0);
    BigEndianizer()->ReadExtVal(denormal, &x);
    EXPECT_EQ(std::memcmp(x.bytes, "\xEF\xCD\xAB\x89\x67\x45\x23\x01\0\0", 10), 0);
    EXPECT_EQ(std::memcmp(Written(BigEndianizer(), x).data(), denormal, 16), 0);
}

TEST(Endianizer, ObjectsComeBackAfterACleanup)
{
    for (int round = 0; round < 2; ++round) {
        KZPlacementNewRunCleanup();
        EXPECT_EQ(BigEndianizer()->ReadAWord("\x12\x34"), 0x1234);
        EXPECT_EQ(LittleEndianizer()->ReadAWord("\x12\x34"), 0x3412);
        EXPECT_EQ(NativeEndianizer()->SizeOfExt(), 10u);
    }
    kz::PlaceEndianizers();
}

}  // namespace
