#include "Endianizer.h"

#include <cstring>

#include "ByteOrder.h"
#include "KZPlacement.h"
#include "SwapArray.h"

namespace {

constexpr uInt32 kStoredExtSize = 16;

template <typename T>
void CopySwapped(const void* source, void* dest)
{
    kz::StoreNative(dest, kz::ReverseBytes(kz::LoadNative<T>(source)));
}

template <typename T>
void CopyPlain(const void* source, void* dest)
{
    kz::StoreNative(dest, kz::LoadNative<T>(source));
}

// Both halves are read before either is written: the two may be the same memory.
void CopySwapped16(const void* source, void* dest)
{
    const unsigned char* in = static_cast<const unsigned char*>(source);
    unsigned char* out = static_cast<unsigned char*>(dest);
    const uInt64 first = kz::LoadNative<uInt64>(in);
    const uInt64 second = kz::LoadNative<uInt64>(in + 8);
    kz::StoreNative(out, kz::ReverseBytes(second));
    kz::StoreNative(out + 8, kz::ReverseBytes(first));
}

}  // namespace

void Endianizer::ReadArray(const void* source, void* dest, unsigned long count, uInt32 width) const
{
    if (IsSwapping()) {
        kz::ReverseEach(source, dest, count, width);
    } else if (count != 0 && source != dest) {
        std::memcpy(dest, source, count * width);
    }
}

void Endianizer::WriteArray(const void* source, void* dest, unsigned long count, uInt32 width) const
{
    Endianizer::ReadArray(source, dest, count, width);
}

class _SwappingEndianizer final : public Endianizer {
public:
    int32 ReadAWord(const void* source) const override { return kz::LoadBig<int16>(source); }
    int32 ReadALong(const void* source) const override { return kz::LoadBig<int32>(source); }
    void Read2ByteVal(const void* source, void* dest) const override { CopySwapped<uInt16>(source, dest); }
    void Read4ByteVal(const void* source, void* dest) const override { CopySwapped<uInt32>(source, dest); }
    void Read8ByteVal(const void* source, void* dest) const override { CopySwapped<uInt64>(source, dest); }
    void ReadExtVal(const void* source, floatExt* dest) const override { StdToX(source, dest); }
    void Read16ByteVal(const void* source, void* dest) const override { CopySwapped16(source, dest); }
    void Write2ByteVal(const void* source, void* dest) const override { CopySwapped<uInt16>(source, dest); }
    void Write4ByteVal(const void* source, void* dest) const override { CopySwapped<uInt32>(source, dest); }
    void Write8ByteVal(const void* source, void* dest) const override { CopySwapped<uInt64>(source, dest); }
    void WriteExtVal(const floatExt* source, void* dest) const override { XToStd(source, dest); }
    void Write16ByteVal(const void* source, void* dest) const override { CopySwapped16(source, dest); }
    uInt32 SizeOfExt() const override { return kStoredExtSize; }
    bool IsSwapping() const override { return true; }
};

// An extended float stands in the stored form with all 16 bytes reversed.
class _NonSwappingEndianizer : public Endianizer {
public:
    int32 ReadAWord(const void* source) const override { return kz::LoadNative<int16>(source); }
    int32 ReadALong(const void* source) const override { return kz::LoadNative<int32>(source); }
    void Read2ByteVal(const void* source, void* dest) const override { CopyPlain<uInt16>(source, dest); }
    void Read4ByteVal(const void* source, void* dest) const override { CopyPlain<uInt32>(source, dest); }
    void Read8ByteVal(const void* source, void* dest) const override { CopyPlain<uInt64>(source, dest); }
    void ReadExtVal(const void* source, floatExt* dest) const override
    {
        unsigned char stored[kStoredExtSize];
        CopySwapped16(source, stored);
        StdToX(stored, dest);
    }
    void Read16ByteVal(const void* source, void* dest) const override { std::memmove(dest, source, 16); }
    void Write2ByteVal(const void* source, void* dest) const override { CopyPlain<uInt16>(source, dest); }
    void Write4ByteVal(const void* source, void* dest) const override { CopyPlain<uInt32>(source, dest); }
    void Write8ByteVal(const void* source, void* dest) const override { CopyPlain<uInt64>(source, dest); }
    void WriteExtVal(const floatExt* source, void* dest) const override
    {
        unsigned char stored[kStoredExtSize];
        XToStd(source, stored);
        CopySwapped16(stored, dest);
    }
    void Write16ByteVal(const void* source, void* dest) const override { std::memmove(dest, source, 16); }
    uInt32 SizeOfExt() const override { return kStoredExtSize; }
    bool IsSwapping() const override { return false; }
};

// Keeps an extended float as the host has it.
class _NativeEndianizer final : public _NonSwappingEndianizer {
public:
    void ReadExtVal(const void* source, floatExt* dest) const override { std::memmove(dest, source, sizeof *dest); }
    void WriteExtVal(const floatExt* source, void* dest) const override { std::memmove(dest, source, sizeof *source); }
    uInt32 SizeOfExt() const override { return sizeof(floatExt); }
};

namespace {

constinit kz::StaticObject<_NativeEndianizer> gNative;
constinit kz::StaticObject<_SwappingEndianizer> gBig;
constinit kz::StaticObject<_NonSwappingEndianizer> gLittle;

}  // namespace

void kz::PlaceEndianizers()
{
    gNative.Get();
    gBig.Get();
    gLittle.Get();
}

bool kz::IsSharedEndianizer(const Endianizer* endianizer)
{
    return endianizer == BigEndianizer() || endianizer == LittleEndianizer() || endianizer == NativeEndianizer();
}

const Endianizer* NativeEndianizer()
{
    return gNative.Get();
}

const Endianizer* BigEndianizer()
{
    return gBig.Get();
}

const Endianizer* LittleEndianizer()
{
    return gLittle.Get();
}
