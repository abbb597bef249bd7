// Wrappers that write a value to a DebugStream in a form of their own: `report << DbgFmtPtr(p)`. All hold what they are
// given, never a copy of a text, and are meant to live for one statement. They allocate nothing. Any thread.
#ifndef KZCORE_DEBUGFORMAT_H
#define KZCORE_DEBUGFORMAT_H

#include <concepts>
#include <cstdint>
#include <type_traits>

#include "DebugStream.h"
#include "KZTypes.h"

// The base of all wrappers.
class KZ_EXPORT DbgFmtToDebugStream {
public:
    virtual void ToDebugStream(DebugStream& stream) const = 0;

protected:
    DbgFmtToDebugStream() = default;
    DbgFmtToDebugStream(const DbgFmtToDebugStream&) = default;
    DbgFmtToDebugStream& operator=(const DbgFmtToDebugStream&) = default;
    ~DbgFmtToDebugStream() = default;
};

// Appends what the wrapper writes.
KZ_EXPORT void ToDebugStream(DebugStream& stream, const DbgFmtToDebugStream& value);

// A C string; null writes nothing.
class KZ_EXPORT DbgFmtCStr final : public DbgFmtToDebugStream {
public:
    explicit DbgFmtCStr(const unsigned char* text) : mText(text) {}
    explicit DbgFmtCStr(const char* text) : mText(reinterpret_cast<const unsigned char*>(text)) {}
    void ToDebugStream(DebugStream& stream) const override;

private:
    const unsigned char* mText;
};

// The characters of a Pascal string; null writes nothing.
class KZ_EXPORT DbgFmtPStr final : public DbgFmtToDebugStream {
public:
    explicit DbgFmtPStr(const unsigned char* text) : mText(text) {}
    void ToDebugStream(DebugStream& stream) const override;

private:
    const unsigned char* mText;
};

// An address, as "0x" and 16 hexadecimal digits.
class KZ_EXPORT DbgFmtPtr final : public DbgFmtToDebugStream {
public:
    explicit DbgFmtPtr(const volatile void* pointer) : mValue(reinterpret_cast<uintptr_t>(pointer)) {}
    explicit DbgFmtPtr(uintptr_t value) : mValue(value) {}
    void ToDebugStream(DebugStream& stream) const override;

private:
    uintptr_t mValue;
};

// A four-character code: its bytes in memory order, a blank for each control character.
class KZ_EXPORT DbgFmtQuadChar final : public DbgFmtToDebugStream {
public:
    explicit DbgFmtQuadChar(uInt32 code) : mCode(code) {}
    void ToDebugStream(DebugStream& stream) const override;

private:
    uInt32 mCode;
};

// A number by a format of the C library, with text around it where wanted: DbgFmtNum("%5.1f%%", load). Formatted at
// construction and cut to 31 characters. The format holds one conversion (VerifySingleFormatSpecifier) of the
// argument's class: one of d i o u x X c for an integer, of a A e E f F g G for a double; its width and precision are
// 255 at most. Its length modifier is replaced by the argument's own. Any other format leaves the text "__DbgFmtType:
// Bad Format__".
class KZ_EXPORT DbgFmtNum : public DbgFmtToDebugStream {
public:
    template <std::integral T>
    requires(!std::same_as<T, bool>) DbgFmtNum(const char* format, T value)
    {
        FormatInteger(format, static_cast<std::make_signed_t<T>>(value), static_cast<std::make_unsigned_t<T>>(value));
    }
    DbgFmtNum(const char* format, double value);
    void ToDebugStream(DebugStream& stream) const override;

private:
    // Both arguments are the same bits; the conversion chooses.
    void FormatInteger(const char* format, int64 asSigned, uInt64 asUnsigned);

    char mText[32];
};

// DbgFmtNum for hexadecimal formats.
class KZ_EXPORT DbgFmtHex final : public DbgFmtNum {
public:
    using DbgFmtNum::DbgFmtNum;
};

namespace kz {

// Finds the overload of ToDebugStream for T where a member of that name would hide it.
template <typename T>
void WriteToDebugStream(DebugStream& stream, const T& value)
{
    ToDebugStream(stream, value);
}

}  // namespace kz

// A copy of any value that ToDebugStream takes, behind the common base.
template <typename T>
class DbgFmtType final : public DbgFmtToDebugStream {
public:
    explicit DbgFmtType(const T& value) : mValue(value) {}
    void ToDebugStream(DebugStream& stream) const override { kz::WriteToDebugStream(stream, mValue); }

private:
    T mValue;
};

extern "C" {

// True when `format` holds exactly one conversion of the C library's printf that takes one value, "%%" not counting:
// '%', flags, width, '.' and precision, a length that the letter can have, the letter, in this order. So false for a
// '*', which takes a second value, for %m and %n, and for null.
KZ_EXPORT KzBool VerifySingleFormatSpecifier(const char* format);
}

#endif
