#include "BinDataWriter.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "ByteOrder.h"
#include "Padding.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/BinDataWriter";

constexpr unsigned long kLongestShortText = 255;

}  // namespace

BinDataWriter::BinDataWriter(OutputBuf* buffer, const Endianizer* endianizer) : mEndianizer(endianizer), mBuffer(buffer)
{}

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
        return 0;
    }
    if (dest != nullptr) {
        store(static_cast<unsigned char*>(dest));
    }
    return size;
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
    return before;
}

unsigned long BinDataWriter::Align(uInt32 boundary)
{
    const unsigned long padding = kz::PaddingOf(mBuffer->GetBytesWritten(), boundary);
    return Put(padding, [&](unsigned char* dest) { std::memset(dest, 0, padding); });
}

unsigned long BinDataWriter::WriteI8(int8 value)
{
    return BinDataWriter::WriteU8(static_cast<uInt8>(value));
}

unsigned long BinDataWriter::WriteU8(uInt8 value)
{
    return Put(sizeof value, [&](unsigned char* dest) { *dest = value; });
}

unsigned long BinDataWriter::WriteBool(uInt8 value)
{
    return BinDataWriter::WriteU8(value);
}

unsigned long BinDataWriter::WriteI16(int16 value)
{
    return Put(sizeof value, [&](unsigned char* dest) { mEndianizer->Write2ByteVal(&value, dest); });
}

unsigned long BinDataWriter::WriteU16(uInt16 value)
{
    return Put(sizeof value, [&](unsigned char* dest) { mEndianizer->Write2ByteVal(&value, dest); });
}

unsigned long BinDataWriter::WriteI32(int32 value)
{
    return Put(sizeof value, [&](unsigned char* dest) { mEndianizer->Write4ByteVal(&value, dest); });
}

unsigned long BinDataWriter::WriteU32(uInt32 value)
{
    return Put(sizeof value, [&](unsigned char* dest) { mEndianizer->Write4ByteVal(&value, dest); });
}

unsigned long BinDataWriter::WriteI64(int64 value)
{
    return Put(sizeof value, [&](unsigned char* dest) { mEndianizer->Write8ByteVal(&value, dest); });
}

unsigned long BinDataWriter::WriteU64(uInt64 value)
{
    return Put(sizeof value, [&](unsigned char* dest) { mEndianizer->Write8ByteVal(&value, dest); });
}

unsigned long BinDataWriter::Write4Char(uInt32 value)
{
    return Put(sizeof value, [&](unsigned char* dest) { kz::StoreNative(dest, value); });
}

unsigned long BinDataWriter::WriteF32(float value)
{
    return Put(sizeof value, [&](unsigned char* dest) { mEndianizer->Write4ByteVal(&value, dest); });
}

unsigned long BinDataWriter::WriteF64(double value)
{
    return Put(sizeof value, [&](unsigned char* dest) { mEndianizer->Write8ByteVal(&value, dest); });
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
    if (size > INT_MAX && mError == kzErrNone) {
        mError = kzErrArgument;
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
