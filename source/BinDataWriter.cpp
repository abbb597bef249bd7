#include "BinDataWriter.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>
#include <typeinfo>

#include "BufferAccess.h"
#include "ByteOrder.h"
#include "Padding.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/BinDataWriter";

constexpr unsigned long kLongestShortText = 255;

}  // namespace

// With a buffer that holds its bytes and one of the shared byte order objects, scalars are stored from within, without
// two calls for each.
BinDataWriter::BinDataWriter(OutputBuf* buffer, const Endianizer* endianizer)
    : mEndianizer(endianizer),
      mIsShared(kz::IsSharedEndianizer(endianizer)),
      mIsReversed(endianizer == BigEndianizer()),
      mKind(mIsShared ? KindOf(buffer) : kOtherKind),
      mBuffer(buffer)
{}

BinDataWriter::Kind BinDataWriter::KindOf(const OutputBuf* buffer)
{
    if (buffer == nullptr) {
        return kOtherKind;
    }
    const std::type_info& type = typeid(*buffer);
    return type == typeid(HandleOutputBuf)      ? kHandle
           : type == typeid(StaticOutputBuf)    ? kStatic
           : type == typeid(PreflightOutputBuf) ? kPreflight
           : type == typeid(LStrOutputBuf)      ? kLStr
                                                : kOtherKind;
}

BinDataWriter::~BinDataWriter()
{
    if (mError != kzErrNone) {
        KZ_REPORT(kDbgWarning, 0x0C93D4E8) << "BinDataWriter finished with " << mError << " error";
    }
}

// Gives `store` room for `size` bytes, unless the buffer has none because it only counts.
template <typename Store>
inline unsigned long BinDataWriter::Put(unsigned long size, Store store)
{
    if (mError != kzErrNone) {
        return 0;
    }
    void* const dest = mBuffer->GetDataPointer(size, mError);
    if (mError != kzErrNone) {
        mKind = kOtherKind;
        return 0;
    }
    if (dest != nullptr) {
        store(static_cast<unsigned char*>(dest));
    }
    return size;
}

// Stores a scalar where the buffer has room for it.
template <typename T, typename Buffer>
inline bool BinDataWriter::PutInto(Buffer& buffer, T value)
{
    if (!kz::OutputAccess::Has(buffer, sizeof value)) {
        return false;
    }
    unsigned char* const dest = kz::OutputAccess::Take(buffer, sizeof value);
    if constexpr (sizeof value == 1) {
        *dest = value;
    } else {
        kz::StoreNative(dest, mIsReversed ? kz::ReverseBytes(value) : value);
    }
    return true;
}

// A scalar of the size of T, which is an unsigned integer.
template <typename T>
inline unsigned long BinDataWriter::PutScalar(T value)
{
    if (mKind == kHandle && PutInto(static_cast<HandleOutputBuf&>(*mBuffer), value)) {
        return sizeof value;
    }
    if (mKind == kStatic && PutInto(static_cast<StaticOutputBuf&>(*mBuffer), value)) {
        return sizeof value;
    }
    if (mKind == kLStr && PutInto(static_cast<LStrOutputBuf&>(*mBuffer), value)) {
        return sizeof value;
    }
    if (mKind == kPreflight) {
        kz::OutputAccess::Count(static_cast<PreflightOutputBuf&>(*mBuffer), sizeof value);
        return sizeof value;
    }
    return PutScalarByCalls(value);
}

template <typename T>
__attribute__((noinline)) unsigned long BinDataWriter::PutScalarByCalls(T value)
{
    return Put(sizeof value, [&](unsigned char* dest) {
        if constexpr (sizeof value == 1) {
            *dest = value;
        } else if constexpr (sizeof value == sizeof(uInt16)) {
            mEndianizer->Write2ByteVal(&value, dest);
        } else if constexpr (sizeof value == sizeof(uInt32)) {
            mEndianizer->Write4ByteVal(&value, dest);
        } else {
            mEndianizer->Write8ByteVal(&value, dest);
        }
    });
}

void BinDataWriter::Latch(KzErr err)
{
    if (mError == kzErrNone) {
        mError = err;
        mKind = kOtherKind;
    }
}

KzErr BinDataWriter::GetError()
{
    Put(0, [](unsigned char*) {});
    return mError;
}

OutputBuf* BinDataWriter::GetBuffer() const
{
    return mBuffer;
}

OutputBuf* BinDataWriter::SetBuffer(OutputBuf* buffer)
{
    OutputBuf* const before = mBuffer;
    mBuffer = buffer;
    mKind = mIsShared && mError == kzErrNone ? KindOf(buffer) : kOtherKind;
    return before;
}

unsigned long BinDataWriter::Align(uInt32 boundary)
{
    const unsigned long padding = kz::PaddingOf(mBuffer->GetBytesWritten(), boundary);
    return padding == 0 ? 0 : Put(padding, [&](unsigned char* dest) { std::memset(dest, 0, padding); });
}

unsigned long BinDataWriter::WriteI8(int8 value)
{
    return PutScalar(static_cast<uInt8>(value));
}

unsigned long BinDataWriter::WriteU8(uInt8 value)
{
    return PutScalar(value);
}

unsigned long BinDataWriter::WriteBool(uInt8 value)
{
    return PutScalar(value);
}

unsigned long BinDataWriter::WriteI16(int16 value)
{
    return PutScalar(static_cast<uInt16>(value));
}

unsigned long BinDataWriter::WriteU16(uInt16 value)
{
    return PutScalar(value);
}

unsigned long BinDataWriter::WriteI32(int32 value)
{
    return PutScalar(static_cast<uInt32>(value));
}

unsigned long BinDataWriter::WriteU32(uInt32 value)
{
    return PutScalar(value);
}

unsigned long BinDataWriter::WriteI64(int64 value)
{
    return PutScalar(static_cast<uInt64>(value));
}

unsigned long BinDataWriter::WriteU64(uInt64 value)
{
    return PutScalar(value);
}

unsigned long BinDataWriter::Write4Char(uInt32 value)
{
    return Put(sizeof value, [&](unsigned char* dest) { kz::StoreNative(dest, value); });
}

unsigned long BinDataWriter::WriteF32(float value)
{
    return PutScalar(std::bit_cast<uInt32>(value));
}

unsigned long BinDataWriter::WriteF64(double value)
{
    return PutScalar(std::bit_cast<uInt64>(value));
}

unsigned long BinDataWriter::WriteFX(const floatExt& value)
{
    return Put(mEndianizer->SizeOfExt(), [&](unsigned char* dest) { mEndianizer->WriteExtVal(&value, dest); });
}

// A string with a count byte, and its padding, in one piece.
unsigned long BinDataWriter::PutShort(const void* text, unsigned long size, uInt32 boundary)
{
    const unsigned long padding = kz::PaddingOf(size + 1, boundary);
    return Put(size + 1 + padding, [&](unsigned char* dest) {
        dest[0] = static_cast<unsigned char>(size);
        std::memcpy(dest + 1, text, size);
        std::memset(dest + 1 + size, 0, padding);
    });
}

unsigned long BinDataWriter::WritePStr(const unsigned char* string, uInt32 boundary)
{
    return string == nullptr ? 0 : PutShort(string + 1, string[0], boundary);
}

unsigned long BinDataWriter::WritePStrFromNarrow(const std::string& text, uInt32 boundary)
{
    return PutShort(text.data(), std::min(text.size(), kLongestShortText), boundary);
}

// A string with a count word, in one piece.
unsigned long BinDataWriter::PutCounted(const void* text, unsigned long size)
{
    if (size > INT_MAX) {
        Latch(kzErrArgument);
    }
    const auto count = static_cast<int32>(size);
    return Put(sizeof count + size, [&](unsigned char* dest) {
        mEndianizer->Write4ByteVal(&count, dest);
        if (size != 0) {
            std::memcpy(dest + sizeof count, text, size);
        }
    });
}

unsigned long BinDataWriter::WriteLStrFromNarrow(const std::string& text)
{
    return PutCounted(text.data(), text.size());
}

unsigned long BinDataWriter::WriteLStr(const LStr* string)
{
    const int32 count = string == nullptr ? 0 : std::max(string->cnt, 0);
    return PutCounted(count == 0 ? nullptr : string->str, static_cast<unsigned long>(count));
}

unsigned long BinDataWriter::WriteBytes(const void* data, unsigned long n)
{
    return Put(n, [&](unsigned char* dest) { std::memcpy(dest, data, n); });
}

unsigned long BinDataWriter::WriteArray(const void* data, unsigned long count, uInt32 width)
{
    unsigned long size = 0;
    if (__builtin_mul_overflow(count, static_cast<unsigned long>(width), &size)) {
        Latch(kzErrArgument);
        return 0;
    }
    return Put(size, [&](unsigned char* dest) { mEndianizer->WriteArray(data, dest, count, width); });
}
