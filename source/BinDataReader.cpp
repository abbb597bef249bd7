#include "BinDataReader.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

#include "ByteOrder.h"
#include "MemoryManager.h"
#include "Padding.h"

namespace {

// Up to this count a string is made without a look at what is left.
constexpr int32 kTrustedCount = 0x200000;

}  // namespace

BinDataReader::BinDataReader(InputBuf* buffer, const Endianizer* endianizer) : mEndianizer(endianizer), mBuffer(buffer)
{}

BinDataReader::~BinDataReader() = default;

void BinDataReader::SetError(KzErr err)
{
    if (mError == kzErrNone) {
        mError = err;
    }
}

// The next bytes, all or none.
inline const void* BinDataReader::Take(unsigned long size)
{
    return mError != kzErrNone ? nullptr : mBuffer->GetDataPointer(size, mError);
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

void BinDataReader::SkipPadding(unsigned long size, uInt32 boundary)
{
    Skip(kz::PaddingOf(size, boundary));
}

void BinDataReader::Align(uInt32 boundary)
{
    SkipPadding(mBuffer->GetBytesRead(), boundary);
}

int8 BinDataReader::ReadI8()
{
    return static_cast<int8>(BinDataReader::ReadU8());
}

uInt8 BinDataReader::ReadU8()
{
    const void* const source = Take(sizeof(uInt8));
    return source == nullptr ? uInt8{0} : *static_cast<const uInt8*>(source);
}

uInt8 BinDataReader::ReadBool()
{
    return BinDataReader::ReadU8();
}

int16 BinDataReader::ReadI16()
{
    const void* const source = Take(sizeof(int16));
    return source == nullptr ? int16{0} : static_cast<int16>(mEndianizer->ReadAWord(source));
}

uInt16 BinDataReader::ReadU16()
{
    return static_cast<uInt16>(BinDataReader::ReadI16());
}

int32 BinDataReader::ReadI32()
{
    const void* const source = Take(sizeof(int32));
    return source == nullptr ? 0 : mEndianizer->ReadALong(source);
}

uInt32 BinDataReader::ReadU32()
{
    return static_cast<uInt32>(BinDataReader::ReadI32());
}

uInt64 BinDataReader::ReadU64()
{
    uInt64 value = 0;
    if (const void* const source = Take(sizeof value)) {
        mEndianizer->Read8ByteVal(source, &value);
    }
    return value;
}

int64 BinDataReader::ReadI64()
{
    return static_cast<int64>(BinDataReader::ReadU64());
}

uInt32 BinDataReader::Read4Char()
{
    const void* const source = Take(sizeof(uInt32));
    return source == nullptr ? 0 : kz::LoadNative<uInt32>(source);
}

float BinDataReader::ReadF32()
{
    float value = 0;
    if (const void* const source = Take(sizeof value)) {
        mEndianizer->Read4ByteVal(source, &value);
    }
    return value;
}

double BinDataReader::ReadF64()
{
    double value = 0;
    if (const void* const source = Take(sizeof value)) {
        mEndianizer->Read8ByteVal(source, &value);
    }
    return value;
}

floatExt BinDataReader::ReadFX()
{
    floatExt value = EZero;
    if (const void* const source = Take(mEndianizer->SizeOfExt())) {
        mEndianizer->ReadExtVal(source, &value);
    }
    return value;
}

void BinDataReader::ReadBytes(void* dest, unsigned long n)
{
    const void* const source = Take(n);
    if (dest == nullptr || n == 0) {
        return;
    }
    if (source == nullptr) {
        std::memset(dest, 0, n);
    } else {
        MoveBlock(source, dest, n);
    }
}

void BinDataReader::ReadPStr(unsigned char* buffer, uInt32 boundary)
{
    const uInt8 count = ReadU8();
    buffer[0] = count;
    ReadBytes(buffer + 1, count);
    SkipPadding(1ul + count, boundary);
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
    const unsigned long size = mBuffer->GetSize();
    const unsigned long left = size - std::min(size, mBuffer->GetBytesRead());
    if (count < 0 || static_cast<unsigned long>(count) > left) {
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
