#include "BinDataReader.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>
#include <new>
#include <typeinfo>

#include "BufferAccess.h"
#include "ByteOrder.h"
#include "MemoryManager.h"
#include "Padding.h"

namespace {

// Up to this count a string is made without a look at what is left.
constexpr int32 kTrustedCount = 0x200000;

// What the buffer says of itself; 0 once it has an error.
unsigned long BytesLeft(const InputBuf& buffer)
{
    const unsigned long size = buffer.GetSize();
    return size - std::min(size, buffer.GetBytesRead());
}

}  // namespace

// With a buffer in memory and one of the shared byte order objects, scalars are taken from within, without two calls
// for each.
BinDataReader::BinDataReader(InputBuf* buffer, const Endianizer* endianizer)
    : mEndianizer(endianizer),
      mIsAtHand(buffer != nullptr && typeid(*buffer) == typeid(MemInputBuf) && kz::IsSharedEndianizer(endianizer)),
      mIsReversed(endianizer == BigEndianizer()),
      mBuffer(buffer)
{}

BinDataReader::~BinDataReader() = default;

void BinDataReader::SetError(KzErr err)
{
    if (mError == kzErrNone && err != kzErrNone) {
        mError = err;
        mIsAtHand = false;
    }
}

// The next bytes, all or none.
inline const void* BinDataReader::Take(unsigned long size)
{
    if (mIsAtHand && size != 0) {
        auto& buffer = static_cast<MemInputBuf&>(*mBuffer);
        if (kz::MemInputAccess::Has(buffer, size)) {
            return kz::MemInputAccess::Take(buffer, size);
        }
    }
    if (mError != kzErrNone) {
        return nullptr;
    }
    const void* const start = mBuffer->GetDataPointer(size, mError);
    mIsAtHand = mIsAtHand && mError == kzErrNone;
    return start;
}

// A scalar of the size of T, which is an unsigned integer.
template <typename T, BinDataReader::Numbers numbers>
inline T BinDataReader::ReadScalar()
{
    if (mIsAtHand) {
        auto& buffer = static_cast<MemInputBuf&>(*mBuffer);
        if (kz::MemInputAccess::Has(buffer, sizeof(T))) {
            const T value = kz::LoadNative<T>(kz::MemInputAccess::Take(buffer, sizeof(T)));
            if constexpr (sizeof(T) == 1) {
                return value;
            } else {
                return mIsReversed ? kz::ReverseBytes(value) : value;
            }
        }
    }
    return ReadScalarByCalls<T, numbers>();
}

template <typename T, BinDataReader::Numbers numbers>
__attribute__((noinline)) T BinDataReader::ReadScalarByCalls()
{
    T value = 0;
    const void* const source = Take(sizeof(T));
    if (source == nullptr) {
        return value;
    }
    if constexpr (sizeof(T) == 1) {
        value = *static_cast<const T*>(source);
    } else if constexpr (sizeof(T) == sizeof(uInt16)) {
        value = static_cast<T>(mEndianizer->ReadAWord(source));
    } else if constexpr (sizeof(T) == sizeof(uInt64)) {
        mEndianizer->Read8ByteVal(source, &value);
    } else if constexpr (numbers == kFloats) {
        mEndianizer->Read4ByteVal(source, &value);
    } else {
        value = static_cast<T>(mEndianizer->ReadALong(source));
    }
    return value;
}

InputBuf* BinDataReader::GetBuffer() const
{
    return mBuffer;
}

KzErr BinDataReader::GetError()
{
    Take(0);
    return mError;
}

void BinDataReader::Skip(unsigned long n)
{
    Take(n);
}

void BinDataReader::Align(uInt32 boundary)
{
    if (const unsigned long padding = kz::PaddingOf(mBuffer->GetBytesRead(), boundary); padding != 0) {
        Skip(padding);
    }
}

int8 BinDataReader::ReadI8()
{
    return static_cast<int8>(ReadScalar<uInt8, kIntegers>());
}

uInt8 BinDataReader::ReadU8()
{
    return ReadScalar<uInt8, kIntegers>();
}

uInt8 BinDataReader::ReadBool()
{
    return ReadScalar<uInt8, kIntegers>();
}

int16 BinDataReader::ReadI16()
{
    return static_cast<int16>(ReadScalar<uInt16, kIntegers>());
}

uInt16 BinDataReader::ReadU16()
{
    return ReadScalar<uInt16, kIntegers>();
}

int32 BinDataReader::ReadI32()
{
    return static_cast<int32>(ReadScalar<uInt32, kIntegers>());
}

uInt32 BinDataReader::ReadU32()
{
    return ReadScalar<uInt32, kIntegers>();
}

int64 BinDataReader::ReadI64()
{
    return static_cast<int64>(ReadScalar<uInt64, kIntegers>());
}

uInt64 BinDataReader::ReadU64()
{
    return ReadScalar<uInt64, kIntegers>();
}

uInt32 BinDataReader::Read4Char()
{
    const void* const source = Take(sizeof(uInt32));
    return source == nullptr ? 0 : kz::LoadNative<uInt32>(source);
}

float BinDataReader::ReadF32()
{
    return std::bit_cast<float>(ReadScalar<uInt32, kFloats>());
}

double BinDataReader::ReadF64()
{
    return std::bit_cast<double>(ReadScalar<uInt64, kFloats>());
}

floatExt BinDataReader::ReadFX()
{
    floatExt value = EZero;
    if (const void* const source = Take(mEndianizer->SizeOfExt())) {
        mEndianizer->ReadExtVal(source, &value);
    }
    return value;
}

// Reads n bytes to `dest`, and past `padding` bytes behind them, in one piece.
inline void BinDataReader::TakeBytes(void* dest, unsigned long n, unsigned long padding)
{
    const void* const source = Take(n + padding);
    if (dest == nullptr || n == 0) {
        return;
    }
    if (source == nullptr) {
        std::memset(dest, 0, n);
    } else {
        MoveBlock(source, dest, n);
    }
}

void BinDataReader::ReadBytes(void* dest, unsigned long n)
{
    TakeBytes(dest, n, 0);
}

void BinDataReader::ReadArray(void* dest, unsigned long count, uInt32 width)
{
    unsigned long size = 0;
    if (__builtin_mul_overflow(count, static_cast<unsigned long>(width), &size)) {
        SetError(kzErrCorrupt);
        return;
    }
    if (const void* const source = Take(size)) {
        mEndianizer->ReadArray(source, dest, count, width);
    } else if (size != 0) {
        std::memset(dest, 0, size);
    }
}

void BinDataReader::ReadPStr(unsigned char* buffer, uInt32 boundary)
{
    const uInt8 count = ReadU8();
    buffer[0] = count;
    const unsigned long padding = kz::PaddingOf(1ul + count, boundary);
    if (mError != kzErrNone || count + padding == 0) {
        return;
    }
    if (padding == 0 || BytesLeft(*mBuffer) >= count + padding) {
        TakeBytes(buffer + 1, count, padding);
    } else {
        // One by one, so that a text whose padding alone is missing comes through.
        ReadBytes(buffer + 1, count);
        Skip(padding);
    }
}

void BinDataReader::ReadPStrAsNarrow(std::string* text, uInt32 boundary)
{
    unsigned char buffer[256];
    ReadPStr(buffer, boundary);
    text->clear();
    if (mError != kzErrNone) {
        return;
    }
    try {
        text->assign(reinterpret_cast<const char*>(buffer + 1), buffer[0]);
    } catch (const std::bad_alloc&) {
        SetError(kzErrMemoryFull);
    }
}

// A string's count; 0 with an error latched.
int32 BinDataReader::ReadCount()
{
    const int32 count = ReadI32();
    if (count >= 0 && count <= kTrustedCount) {
        return count;
    }
    if (count < 0 || static_cast<unsigned long>(count) > BytesLeft(*mBuffer)) {
        SetError(kzErrBadCount);
        return 0;
    }
    return count;
}

void BinDataReader::ReadLStrAsNarrow(std::string* text)
{
    text->clear();
    const int32 count = ReadCount();
    const void* const source = Take(static_cast<unsigned long>(count));
    if (source == nullptr) {
        return;
    }
    try {
        text->assign(static_cast<const char*>(source), static_cast<std::size_t>(count));
    } catch (const std::bad_alloc&) {
        SetError(kzErrMemoryFull);
    }
}

LStr** BinDataReader::ReadLStr()
{
    const int32 count = ReadCount();
    if (mError != kzErrNone || count == 0) {
        return nullptr;
    }
    const auto size = static_cast<unsigned long>(count);
    const auto handle = reinterpret_cast<LStr**>(DSNewHandle(size + sizeof(int32)));
    if (handle == nullptr) {
        SetError(kzErrMemoryFull);
        return nullptr;
    }
    (*handle)->cnt = count;
    ReadBytes((*handle)->str, size);
    return handle;
}
