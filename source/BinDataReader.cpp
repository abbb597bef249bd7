// A reader has one question for each value: are its bytes at hand? They are where the buffer is a plain MemInputBuf,
// the byte order object one of the shared three, and no error latched. Both classes are then known, so that the value
// is taken from within instead of by two virtual calls. A class derived from MemInputBuf is not plain, because it may
// do anything at an access. Everything else, each error too, goes by the calls.
//
// `mIsAtHand` is set by the constructor only. It ends with the first error, latched here or in the buffer, and never
// comes back. An error that the buffer got from somebody else needs no look, since the buffer then has no bytes left
// (BufferAccess.h).
//
// What comes out of a stream is never relied on. Each read either has all of its bytes or latches an error and gives
// zeros, and counts that a stream tells are compared with what is left before they are added or allocated.
#include "BinDataReader.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "BufferAccess.h"
#include "ByteOrder.h"
#include "HandleCalls.h"
#include "KzAssert.h"
#include "MemoryManager.h"
#include "Padding.h"
#include "SharedEndianizers.h"

namespace {

// Up to this count a string is made without a look at what is left. A liar can thus make a reader take 2 MB for a
// string that isn't there, and no more.
constexpr int32 kTrustedCount = 0x200000;

// What the buffer says of itself; 0 once it has an error.
unsigned long BytesLeft(const InputBuf& buffer)
{
    const unsigned long size = buffer.GetSize();
    return size - std::min(size, buffer.GetBytesRead());
}

}  // namespace

namespace kz {

// The steps of all reads. They are templates and inlined, which is why they stand here and not in the exported class.
struct ReaderAccess {
    enum Numbers { kIntegers, kFloats };

    // The next bytes, all or none; none with an error latched. A size of 0 fetches the buffer's error.
    static inline const void* Take(BinDataReader& reader, unsigned long size)
    {
        if (reader.mIsAtHand && size != 0) {
            KZ_ASSERT(reader.mError == kzErrNone);
            auto& buffer = static_cast<MemInputBuf&>(*reader.mBuffer);
            if (MemInputAccess::Has(buffer, size)) {
                return MemInputAccess::Take(buffer, size);
            }
        }
        if (reader.mError != kzErrNone) {
            return nullptr;
        }
        const void* const start = reader.mBuffer->GetDataPointer(size, reader.mError);
        reader.mIsAtHand = reader.mIsAtHand && reader.mError == kzErrNone;
        return start;
    }

    // A scalar of the size of T, which is an unsigned integer. Integers and floats differ by calls only.
    template <typename T, Numbers numbers>
    static inline T ReadScalar(BinDataReader& reader)
    {
        if (reader.mIsAtHand) {
            KZ_ASSERT(reader.mError == kzErrNone);
            auto& buffer = static_cast<MemInputBuf&>(*reader.mBuffer);
            if (MemInputAccess::Has(buffer, sizeof(T))) {
                return LoadShared<T>(MemInputAccess::Take(buffer, sizeof(T)), reader.mIsBig);
            }
        }
        return ReadScalarByCalls<T, numbers>(reader);
    }

    // Which slot of the byte order object reads which type is part of what a host's own object sees: integers of up to
    // four bytes come by value, floats and longer numbers by address. Kept out of line because its frame would burden
    // the reads that need no call.
    template <typename T, Numbers numbers>
    [[gnu::noinline]] static T ReadScalarByCalls(BinDataReader& reader)
    {
        T value = 0;
        const void* const source = Take(reader, sizeof(T));
        if (source == nullptr) {
            return value;
        }
        const Endianizer& order = *reader.mEndianizer;
        if constexpr (sizeof(T) == 1) {
            value = *static_cast<const T*>(source);
        } else if constexpr (sizeof(T) == sizeof(uInt16)) {
            value = static_cast<T>(order.ReadAWord(source));
        } else if constexpr (sizeof(T) == sizeof(uInt64)) {
            order.Read8ByteVal(source, &value);
        } else if constexpr (numbers == kFloats) {
            order.Read4ByteVal(source, &value);
        } else {
            value = static_cast<T>(order.ReadALong(source));
        }
        return value;
    }

    // Reads n bytes to `dest`, or over them if it is null, and past `padding` bytes behind them, all in one piece.
    static inline void TakeBytes(BinDataReader& reader, void* dest, unsigned long n, unsigned long padding)
    {
        KZ_ASSERT(n + padding >= n);
        const void* const source = Take(reader, n + padding);
        if (dest == nullptr || n == 0) {
            return;
        }
        if (source == nullptr) {
            std::memset(dest, 0, n);
        } else {
            MoveBlock(source, dest, n);
        }
    }
};

}  // namespace kz

using kz::ReaderAccess;

BinDataReader::BinDataReader(InputBuf* buffer, const Endianizer* endianizer)
    : mEndianizer(endianizer),
      mIsAtHand(buffer != nullptr && kz::IsExactly<MemInputBuf>(*buffer) && kz::IsSharedEndianizer(endianizer)),
      mIsBig(endianizer == BigEndianizer()),
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

InputBuf* BinDataReader::GetBuffer() const
{
    return mBuffer;
}

KzErr BinDataReader::GetError()
{
    ReaderAccess::Take(*this, 0);
    return mError;
}

void BinDataReader::Skip(unsigned long n)
{
    ReaderAccess::Take(*this, n);
}

void BinDataReader::Align(uInt32 boundary)
{
    if (const unsigned long padding = kz::PaddingOf(mBuffer->GetBytesRead(), boundary); padding != 0) {
        Skip(padding);
    }
}

int8 BinDataReader::ReadI8()
{
    return static_cast<int8>(ReaderAccess::ReadScalar<uInt8, ReaderAccess::kIntegers>(*this));
}

uInt8 BinDataReader::ReadU8()
{
    return ReaderAccess::ReadScalar<uInt8, ReaderAccess::kIntegers>(*this);
}

uInt8 BinDataReader::ReadBool()
{
    return ReaderAccess::ReadScalar<uInt8, ReaderAccess::kIntegers>(*this);
}

int16 BinDataReader::ReadI16()
{
    return static_cast<int16>(ReaderAccess::ReadScalar<uInt16, ReaderAccess::kIntegers>(*this));
}

uInt16 BinDataReader::ReadU16()
{
    return ReaderAccess::ReadScalar<uInt16, ReaderAccess::kIntegers>(*this);
}

int32 BinDataReader::ReadI32()
{
    return static_cast<int32>(ReaderAccess::ReadScalar<uInt32, ReaderAccess::kIntegers>(*this));
}

uInt32 BinDataReader::ReadU32()
{
    return ReaderAccess::ReadScalar<uInt32, ReaderAccess::kIntegers>(*this);
}

int64 BinDataReader::ReadI64()
{
    return static_cast<int64>(ReaderAccess::ReadScalar<uInt64, ReaderAccess::kIntegers>(*this));
}

uInt64 BinDataReader::ReadU64()
{
    return ReaderAccess::ReadScalar<uInt64, ReaderAccess::kIntegers>(*this);
}

uInt32 BinDataReader::Read4Char()
{
    const void* const source = ReaderAccess::Take(*this, sizeof(uInt32));
    return source == nullptr ? 0 : kz::LoadNative<uInt32>(source);
}

float BinDataReader::ReadF32()
{
    return std::bit_cast<float>(ReaderAccess::ReadScalar<uInt32, ReaderAccess::kFloats>(*this));
}

double BinDataReader::ReadF64()
{
    return std::bit_cast<double>(ReaderAccess::ReadScalar<uInt64, ReaderAccess::kFloats>(*this));
}

floatExt BinDataReader::ReadFX()
{
    floatExt value = EZero;
    if (const void* const source = ReaderAccess::Take(*this, mEndianizer->SizeOfExt())) {
        mEndianizer->ReadExtVal(source, &value);
    }
    return value;
}

void BinDataReader::ReadBytes(void* dest, unsigned long n)
{
    ReaderAccess::TakeBytes(*this, dest, n, 0);
}

void BinDataReader::ReadArray(void* dest, unsigned long count, uInt32 width)
{
    // A product that wrapped would read few bytes to a place for many.
    unsigned long size = 0;
    if (__builtin_mul_overflow(count, static_cast<unsigned long>(width), &size)) {
        SetError(kzErrCorrupt);
        return;
    }
    if (const void* const source = ReaderAccess::Take(*this, size)) {
        mEndianizer->ReadArray(source, dest, count, width);
    } else if (size != 0) {
        std::memset(dest, 0, size);
    }
}

void BinDataReader::ReadPStr(unsigned char* buffer, uInt32 boundary)
{
    const uInt8 count = ReadU8();
    buffer[0] = count;
    // The padding is counted from the string's own count byte, wherever in the stream that stands.
    const unsigned long padding = kz::PaddingOf(1ul + count, boundary);
    if (mError != kzErrNone || count + padding == 0) {
        return;
    }
    if (padding == 0 || BytesLeft(*mBuffer) >= count + padding) {
        ReaderAccess::TakeBytes(*this, buffer + 1, count, padding);
    } else {
        // One by one, so that a text whose padding alone is missing, as at the end of a stream, comes through.
        ReadBytes(buffer + 1, count);
        Skip(padding);
    }
}

void BinDataReader::ReadPStrAsNarrow(std::string* text, uInt32 boundary)
{
    unsigned char buffer[256];
    ReadPStr(buffer, boundary);
    text->clear();  // behind the read, so that a text that fails is empty rather than what it was
    if (mError != kzErrNone) {
        return;
    }
    try {
        text->assign(reinterpret_cast<const char*>(buffer + 1), buffer[0]);
    } catch (const std::bad_alloc&) {
        SetError(kzErrMemoryFull);
    }
}

// The count of a string; 0 with an error latched. A negative count would become a huge unsigned size, and a huge one
// that nothing backs would be allocated before the first byte is missed.
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
    const void* const source = ReaderAccess::Take(*this, static_cast<unsigned long>(count));
    if (source == nullptr) {
        return;
    }
    // No exception leaves the operations, because their failures are told by the latched error alone.
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
        SetError(kz::FailedMake());
        return nullptr;
    }
    // Where the bytes are missing the handle stays: its count is true of the zeros that it then holds, and the error
    // tells.
    (*handle)->cnt = count;
    ReadBytes((*handle)->str, size);
    return handle;
}
