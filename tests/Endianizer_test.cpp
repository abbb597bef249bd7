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

// Each move, off any alignment, to another place or to the same: arrays in whole vectors and beside them, and single
// numbers, whose moves have no count.
TEST(Endianizer, Moves)
{
    using Move = void (Endianizer::*)(const void*, void*) const;
    const struct {
        uInt32 width;
        Move read, write;  // of a single one
    } rows[] = {
        {1, nullptr, nullptr},
        {2, &Endianizer::Read2ByteVal, &Endianizer::Write2ByteVal},
        {4, &Endianizer::Read4ByteVal, &Endianizer::Write4ByteVal},
        {8, &Endianizer::Read8ByteVal, &Endianizer::Write8ByteVal},
        {16, &Endianizer::Read16ByteVal, &Endianizer::Write16ByteVal},
    };
    std::string text;
    for (int i = 0; i < 400; ++i) {
        text += static_cast<char>(i * 7 + i / 256);
    }
    for (const Endianizer* order : {NativeEndianizer(), BigEndianizer(), LittleEndianizer()}) {
        EXPECT_EQ(order->IsSwapping(), order == BigEndianizer());
        for (const auto& row : rows) {
            for (const std::size_t count : {0u, 1u, 3u, 4u, 5u, 15u, 17u, 23u}) {
                SCOPED_TRACE(testing::Message() << row.width << " x " << count);
                const std::string bytes = text.substr(1, row.width * count);
                std::string expected;
                for (std::size_t i = 0; i < count; ++i) {
                    const std::string one = bytes.substr(i * row.width, row.width);
                    expected += order->IsSwapping() ? Reversed(one) : one;
                }
                const auto check = [&](const auto& move) {
                    std::string dest(bytes.size() + 2, '.'), inPlace = "." + bytes + ".";
                    move(&text[1], &dest[1]);
                    move(&inPlace[1], &inPlace[1]);
                    EXPECT_EQ(dest, "." + expected + ".");
                    EXPECT_EQ(inPlace, "." + expected + ".");
                };
                check([&](const char* from, char* to) { order->ReadArray(from, to, count, row.width); });
                check([&](const char* from, char* to) { order->WriteArray(from, to, count, row.width); });
                if (count == 1 && row.read != nullptr) {
                    check([&](const char* from, char* to) { (order->*row.read)(from, to); });
                    check([&](const char* from, char* to) { (order->*row.write)(from, to); });
                }
            }
        }
    }
    EXPECT_EQ(BigEndianizer()->ReadAWord("\xFF\xFE"), -2);
    EXPECT_EQ(LittleEndianizer()->ReadAWord("\xFE\xFF"), -2);
    EXPECT_EQ(BigEndianizer()->ReadALong("\x80\x00\x00\x01"), -0x7FFFFFFF);
    EXPECT_EQ(NativeEndianizer()->ReadALong("\x04\x03\x02\x01"), 0x01020304);
    for (const Endianizer* shared : {NativeEndianizer(), BigEndianizer(), LittleEndianizer()}) {
        EXPECT_TRUE(kz::IsSharedEndianizer(shared));
    }
    EXPECT_FALSE(kz::IsSharedEndianizer(nullptr));
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

// `bytes` read, with what the stored form ignores changed, and written again.
void ExpectBothWays(const Endianizer* order, const std::string& bytes, const std::string& read, const std::string& host)
{
    floatExt x;
    order->ReadExtVal(read.data(), &x);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(x.bytes), 10), host);
    std::string written(order->SizeOfExt() + 1, '\x5A');
    order->WriteExtVal(&x, written.data());
    EXPECT_EQ(written, bytes + '\x5A');
}

TEST(Endianizer, ExtendedFloats)
{
    using Limits = std::numeric_limits<long double>;
    const auto check = [](const std::string& stored, const std::string& host) {
        const std::string read = stored.substr(0, 10) + "ignore";
        ExpectBothWays(BigEndianizer(), stored, read, host);
        ExpectBothWays(LittleEndianizer(), Reversed(stored), Reversed(read), host);
        ExpectBothWays(NativeEndianizer(), host, host, host);
    };
    for (const long double value : {0.0L, 1.0L, -2.5L, 1.0L / 3, Limits::max(), -Limits::min(), Limits::infinity(),
                                    1e-4000L, 9223372036854775809.0L}) {
        SCOPED_TRACE(value);
        check(StoredForm(value), {reinterpret_cast<const char*>(&value), 10});
    }
    // Where the compiler's float would differ: a mantissa with no exponent is stored as it stands, whatever the sign.
    const std::string zeros(14, '\0');
    check("\x80" + zeros + '\0', zeros.substr(0, 9) + "\x80");
    check(zeros.substr(0, 2) + "\x01\x23\x45\x67\x89\xAB\xCD\xEF" + zeros.substr(0, 6),
          "\xEF\xCD\xAB\x89\x67\x45\x23\x01" + zeros.substr(0, 2));
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
