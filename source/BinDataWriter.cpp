// A writer has one question for each value: is there room at hand? There is where the buffer is plainly one of the
// kinds that hold their bytes, the byte order object one of the shared three, and no error latched. The classes are
// then known, so that the value is stored from within instead of by two virtual calls. A buffer of a derived class is
// not plain, because it may do anything at an access. Everything else goes by the calls.
//
// `mKind` names the buffer's class as long as all of that holds. The constructor and SetBuffer set it; the first error,
// latched here or in the buffer, ends it for good.
//
// A buffer that only counts gives no memory and no error. Each write tells such a run the size that it would tell a
// real one, so that one run measures what the next one writes.
#include "BinDataWriter.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>

#include "BufferAccess.h"
#include "ByteOrder.h"
#include "HandleText.h"
#include "KzAssert.h"
#include "Literals.h"
#include "Padding.h"
#include "Report.h"
#include "SharedEndianizers.h"

namespace {

constexpr char kModule[] = "source/BinDataWriter";

}  // namespace

namespace kz {

// The steps of all writes. They are templates and inlined, which is why they stand here and not in the exported class.
struct WriterAccess {
    // Gives `store` room for `size` bytes, unless the buffer has none because it only counts. A size of 0 fetches the
    // buffer's error.
    template <typename Store>
    static inline unsigned long Put(BinDataWriter& writer, unsigned long size, Store store)
    {
        if (writer.mError != kzErrNone) {
            return 0;
        }
        void* const dest = writer.mBuffer->GetDataPointer(size, writer.mError);
        // The error decides, not the address: a buffer that only counts gives null for a success.
        if (writer.mError != kzErrNone) {
            writer.mKind = BinDataWriter::kOtherKind;
            return 0;
        }
        if (dest != nullptr) {
            store(static_cast<unsigned char*>(dest));
        }
        return size;
    }

    // Stores a scalar where the buffer, whose class is known, has room for it.
    template <typename T, typename Buffer>
    static inline bool PutInto(BinDataWriter& writer, Buffer& buffer, T value)
    {
        KZ_ASSERT(writer.mIsShared && writer.mError == kzErrNone);
        if (!OutputAccess::Has(buffer, sizeof value)) {
            return false;
        }
        StoreShared(OutputAccess::Take(buffer, sizeof value), value, writer.mIsBig);
        return true;
    }

    // A scalar of the size of T, which is an unsigned integer. A buffer that is full goes on to the calls, which grow
    // it or latch its error.
    template <typename T>
    static inline unsigned long PutScalar(BinDataWriter& writer, T value)
    {
        if (writer.mKind == BinDataWriter::kHandle &&
            PutInto(writer, static_cast<HandleOutputBuf&>(*writer.mBuffer), value)) {
            return sizeof value;
        }
        if (writer.mKind == BinDataWriter::kStatic &&
            PutInto(writer, static_cast<StaticOutputBuf&>(*writer.mBuffer), value)) {
            return sizeof value;
        }
        if (writer.mKind == BinDataWriter::kLStr &&
            PutInto(writer, static_cast<LStrOutputBuf&>(*writer.mBuffer), value)) {
            return sizeof value;
        }
        if (writer.mKind == BinDataWriter::kPreflight) {
            OutputAccess::Count(static_cast<PreflightOutputBuf&>(*writer.mBuffer), sizeof value);
            return sizeof value;
        }
        return PutScalarByCalls(writer, value);
    }

    // Kept out of line because its frame would burden the writes that need no call.
    template <typename T>
    [[gnu::noinline]] static unsigned long PutScalarByCalls(BinDataWriter& writer, T value)
    {
        return Put(writer, sizeof value, [&](unsigned char* dest) {
            if constexpr (sizeof value == 1) {
                *dest = value;
            } else if constexpr (sizeof value == sizeof(uInt16)) {
                writer.mEndianizer->Write2ByteVal(&value, dest);
            } else if constexpr (sizeof value == sizeof(uInt32)) {
                writer.mEndianizer->Write4ByteVal(&value, dest);
            } else {
                writer.mEndianizer->Write8ByteVal(&value, dest);
            }
        });
    }
};

}  // namespace kz

using kz::WriterAccess;

BinDataWriter::BinDataWriter(OutputBuf* buffer, const Endianizer* endianizer)
    : mEndianizer(endianizer),
      mIsShared(kz::IsSharedEndianizer(endianizer)),
      mIsBig(endianizer == BigEndianizer()),
      mKind(mIsShared ? KindOf(buffer) : kOtherKind),
      mBuffer(buffer)
{}

BinDataWriter::Kind BinDataWriter::KindOf(const OutputBuf* buffer)
{
    if (buffer == nullptr) {
        return kOtherKind;
    }
    return kz::IsExactly<HandleOutputBuf>(*buffer)      ? kHandle
           : kz::IsExactly<StaticOutputBuf>(*buffer)    ? kStatic
           : kz::IsExactly<PreflightOutputBuf>(*buffer) ? kPreflight
           : kz::IsExactly<LStrOutputBuf>(*buffer)      ? kLStr
                                                        : kOtherKind;
}

BinDataWriter::~BinDataWriter()
{
    if (mError != kzErrNone) {
        KZ_REPORT(kDbgWarning, 0x0C93D4E8) << "BinDataWriter finished with " << mError << " error";
    }
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
    WriterAccess::Put(*this, 0, [](unsigned char*) {});
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
    return padding == 0
               ? 0
               : WriterAccess::Put(*this, padding, [&](unsigned char* dest) { std::memset(dest, 0, padding); });
}

unsigned long BinDataWriter::WriteI8(int8 value)
{
    return WriterAccess::PutScalar(*this, static_cast<uInt8>(value));
}

unsigned long BinDataWriter::WriteU8(uInt8 value)
{
    return WriterAccess::PutScalar(*this, value);
}

unsigned long BinDataWriter::WriteBool(uInt8 value)
{
    return WriterAccess::PutScalar(*this, value);
}

unsigned long BinDataWriter::WriteI16(int16 value)
{
    return WriterAccess::PutScalar(*this, static_cast<uInt16>(value));
}

unsigned long BinDataWriter::WriteU16(uInt16 value)
{
    return WriterAccess::PutScalar(*this, value);
}

unsigned long BinDataWriter::WriteI32(int32 value)
{
    return WriterAccess::PutScalar(*this, static_cast<uInt32>(value));
}

unsigned long BinDataWriter::WriteU32(uInt32 value)
{
    return WriterAccess::PutScalar(*this, value);
}

unsigned long BinDataWriter::WriteI64(int64 value)
{
    return WriterAccess::PutScalar(*this, static_cast<uInt64>(value));
}

unsigned long BinDataWriter::WriteU64(uInt64 value)
{
    return WriterAccess::PutScalar(*this, value);
}

unsigned long BinDataWriter::Write4Char(uInt32 value)
{
    return WriterAccess::Put(*this, sizeof value, [&](unsigned char* dest) { kz::StoreNative(dest, value); });
}

unsigned long BinDataWriter::WriteF32(float value)
{
    return WriterAccess::PutScalar(*this, std::bit_cast<uInt32>(value));
}

unsigned long BinDataWriter::WriteF64(double value)
{
    return WriterAccess::PutScalar(*this, std::bit_cast<uInt64>(value));
}

unsigned long BinDataWriter::WriteFX(const floatExt& value)
{
    return WriterAccess::Put(*this, mEndianizer->SizeOfExt(),
                             [&](unsigned char* dest) { mEndianizer->WriteExtVal(&value, dest); });
}

// A string with a count byte, and its padding, asked for in one piece, so that a full buffer has all of it or nothing.
unsigned long BinDataWriter::PutShort(const void* text, unsigned long size, uInt32 boundary)
{
    KZ_ASSERT(size <= kz::kMostInPStr);
    const unsigned long padding = kz::PaddingOf(size + 1, boundary);
    return WriterAccess::Put(*this, size + 1 + padding, [&](unsigned char* dest) {
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
    return PutShort(text.data(), std::min(text.size(), kz::kMostInPStr), boundary);
}

// A string with a count word, likewise.
unsigned long BinDataWriter::PutCounted(const void* text, unsigned long size)
{
    // The count could not tell the text; with the error latched Put does nothing and gives 0.
    if (size > INT_MAX) {
        Latch(kzErrArgument);
    }
    const auto count = static_cast<int32>(size);
    return WriterAccess::Put(*this, sizeof count + size, [&](unsigned char* dest) {
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
    const int32 count = kz::CountOf(string);
    return PutCounted(count == 0 ? nullptr : string->str, static_cast<unsigned long>(count));
}

unsigned long BinDataWriter::WriteBytes(const void* data, unsigned long n)
{
    return WriterAccess::Put(*this, n, [&](unsigned char* dest) { std::memcpy(dest, data, n); });
}

unsigned long BinDataWriter::WriteArray(const void* data, unsigned long count, uInt32 width)
{
    unsigned long size = 0;
    if (__builtin_mul_overflow(count, static_cast<unsigned long>(width), &size)) {
        Latch(kzErrArgument);
        return 0;
    }
    return WriterAccess::Put(*this, size,
                             [&](unsigned char* dest) { mEndianizer->WriteArray(data, dest, count, width); });
}
