// Any bytes as a number's text, in each base, type and width, beside a plain reading in 128 bits; and the value written
// into buffers of every size, beside the standard library.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzCheck.h"
#include "NumberText.h"

namespace {

__extension__ typedef __int128 Wide;

using kzfuzz::Require;

struct Reading {
    uInt64 value;
    std::size_t consumed;
    bool operator==(const Reading&) const = default;
};

int DigitOf(char c)
{
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'z' ? c - 'a' + 10
           : c >= 'A' && c <= 'Z' ? c - 'A' + 10
                                  : 99;
}

// What a text is worth: exact, but for numbers far beyond all types, and told at once at each limit.
Reading PlainReading(std::string_view text, int type, int base, bool noSign, int workBits)
{
    constexpr Wide kFarOut = Wide{1} << 100;
    std::size_t at = 0;
    while (at < text.size() && text[at] == ' ') {
        ++at;
    }
    bool isMinus = false;
    if (!noSign && at < text.size() && (text[at] == '-' || text[at] == '+')) {
        isMinus = text[at++] == '-';
    }
    const std::size_t digits = at;
    Wide number = 0;
    for (; at < text.size() && DigitOf(text[at]) < base; ++at) {
        number = std::min(kFarOut, number * base + DigitOf(text[at]));
    }
    if (at == digits) {
        return {0, 0};
    }
    const bool isSigned = type >= kNumI8 && type <= kNumI64;
    const int bits = std::min(8 << (type - (isSigned ? kNumI8 : kNumU8)), workBits);
    const Wide all = (Wide{1} << bits) - 1;
    const Wide most = isSigned ? all >> 1 : all;
    const Wide work = (Wide{1} << workBits) - 1;
    Wide value = 0;
    if (base != 10) {
        number = std::min(number, work);
        value = number <= all ? number : bits == workBits ? all : most;
        value = isMinus ? -value : value;
    } else if (isSigned) {
        value = isMinus ? std::max(-number, -most - 1) : std::min(number, most);
    } else if (!isMinus || number > work) {
        value = std::min(number, most);
    } else {
        value = bits == workBits ? -number : 0;
    }
    return {static_cast<uInt64>(value) & static_cast<uInt64>(work), at};
}

class TextReader : public NumberTextReader {
public:
    explicit TextReader(std::string_view text) : mText(text) {}
    unsigned char Peek() override
    {
        Require(place < mText.size(), "a look past the end");
        return static_cast<unsigned char>(mText[place]);
    }
    void Advance() override { ++place; }
    void Seek(int32 by) override { place += static_cast<std::size_t>(by); }

    std::size_t place = 0;

private:
    const std::string_view mText;
};

void ReadInAllWays(std::string_view text, int type, int base, bool noSign)
{
    const std::vector<unsigned char> bytes(text.begin(), text.end());  // no byte behind the last
    const auto length = static_cast<int32>(text.size());
    for (const bool wide : {false, true}) {
        const unsigned char* cursor = bytes.data();
        TextReader reader(text);
        Reading memory{};
        Reading byBytes{};
        if (wide) {
            memory.value = StringToNum64(&cursor, length, type, base, noSign);
            byBytes.value = StringToNumQ(&reader, length, type, base, noSign);
        } else {
            memory.value = StringToNum32(&cursor, length, type, base, noSign);
            byBytes.value = StringToNumL(&reader, length, type, base, noSign);
        }
        memory.consumed = static_cast<std::size_t>(cursor - bytes.data());
        byBytes.consumed = reader.place;
        const int workBits = wide && (type == kNumI64 || type == kNumU64) ? 64 : 32;
        Require(memory == PlainReading(text, type, base, noSign, workBits), "a number read");
        Require(memory == byBytes, "the two ways to read");
    }
}

template <typename T>
void Write(T value, int base, int32 size)
{
    char whole[80];
    const bool isDecimal = base == 10;
    char* end = isDecimal ? std::to_chars(whole, whole + sizeof whole, value).ptr
                          : std::to_chars(whole, whole + sizeof whole, std::make_unsigned_t<T>(value), base).ptr;
    std::transform(whole, end, whole, [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
    const std::string expected(whole, end);
    std::vector<char> buffer(static_cast<std::size_t>(size));
    bool ok = false;
    const auto length = static_cast<std::size_t>(NumToStr(value, buffer.data(), size, base, &ok));
    Require(length < buffer.size() && buffer[length] == 0, "the text's end");
    Require(ok == (expected.size() < buffer.size()), "whether all was written");
    const std::string digits = isDecimal && value < T{0} ? expected.substr(1) : expected;
    const std::string kept = ok ? expected : digits.substr(digits.size() - std::min(digits.size(), buffer.size() - 1));
    Require(kept == buffer.data(), "a number written");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 4) {
        return 0;
    }
    const int type = kNumI8 + data[0] % 8;
    const int base = 2 + data[1] % 35;
    const bool noSign = (data[2] & 1) != 0;
    const std::string_view text(reinterpret_cast<const char*>(data) + 4, std::min<std::size_t>(size - 4, 1000));
    ReadInAllWays(text, type, base, noSign);
    ReadInAllWays(text, type, 10, noSign);

    const unsigned char* cursor = data + 4;
    const uInt64 value = StringToNum64(&cursor, static_cast<int32>(text.size()), kNumU64, base, 0);
    const int32 room = 2 + data[3] % 70;
    for (const int writtenBase : {2, 8, 10, 16}) {
        Write(static_cast<int>(value), writtenBase, room);
        Write(static_cast<unsigned int>(value), writtenBase, room);
        Write(static_cast<long long>(value), writtenBase, room);
        Write(static_cast<unsigned long long>(value), writtenBase, room);
    }
    return 0;
}
