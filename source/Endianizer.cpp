// Three kinds of byte order object, each of which exists once. On this host, which is little-endian, the native and the
// little-endian one differ in extended floats only: the native one keeps the host's ten bytes, the other two write the
// stored form of 16 bytes, in one order or the other.
//
// The objects stand in static storage and are placed by their first use, because reports and files are read and written
// before any service starts and after the last one stops. KZPlacementNewRunCleanup destroys them at the library's stop,
// and the next use places them anew at the same address.
#include "Endianizer.h"

#include <cstring>

#include "ByteOrder.h"
#include "SharedEndianizers.h"
#include "StaticObject.h"
#include "SwapArray.h"

namespace {

// What an extended float takes in files: the stored form ends with six bytes that hold nothing.
constexpr uInt32 kStoredExtSize = 16;
static_assert(sizeof(floatExt) == 10, "the native object's SizeOfExt is part of what it writes");

template <typename T>
void CopyPlain(const void* source, void* dest)
{
    kz::StoreNative(dest, kz::LoadNative<T>(source));
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

// The big-endian object. The host's order is known (ByteOrder.h), so this kind always swaps.
class _SwappingEndianizer final : public Endianizer {
public:
    int32 ReadAWord(const void* source) const override { return kz::LoadBig<int16>(source); }
    int32 ReadALong(const void* source) const override { return kz::LoadBig<int32>(source); }
    void Read2ByteVal(const void* source, void* dest) const override { kz::CopyReversed<uInt16>(source, dest); }
    void Read4ByteVal(const void* source, void* dest) const override { kz::CopyReversed<uInt32>(source, dest); }
    void Read8ByteVal(const void* source, void* dest) const override { kz::CopyReversed<uInt64>(source, dest); }
    void ReadExtVal(const void* source, floatExt* dest) const override { StdToX(source, dest); }
    void Read16ByteVal(const void* source, void* dest) const override { kz::CopyReversed16(source, dest); }
    void Write2ByteVal(const void* source, void* dest) const override { kz::CopyReversed<uInt16>(source, dest); }
    void Write4ByteVal(const void* source, void* dest) const override { kz::CopyReversed<uInt32>(source, dest); }
    void Write8ByteVal(const void* source, void* dest) const override { kz::CopyReversed<uInt64>(source, dest); }
    void WriteExtVal(const floatExt* source, void* dest) const override { XToStd(source, dest); }
    void Write16ByteVal(const void* source, void* dest) const override { kz::CopyReversed16(source, dest); }
    uInt32 SizeOfExt() const override { return kStoredExtSize; }
    bool IsSwapping() const override { return true; }
};

// The little-endian object. An extended float has the stored form with all 16 bytes reversed, so that a file in either
// order is the other one's, number by number, turned round. Copies go by memmove where source and destination may be
// the same memory, which memcpy does not allow.
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
        kz::CopyReversed16(source, stored);
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
        kz::CopyReversed16(stored, dest);
    }
    void Write16ByteVal(const void* source, void* dest) const override { std::memmove(dest, source, 16); }
    uInt32 SizeOfExt() const override { return kStoredExtSize; }
    bool IsSwapping() const override { return false; }
};

// The native object. It keeps an extended float as the host has it, because what it writes is meant for this host only.
class _NativeEndianizer final : public _NonSwappingEndianizer {
public:
    void ReadExtVal(const void* source, floatExt* dest) const override { std::memmove(dest, source, sizeof *dest); }
    void WriteExtVal(const floatExt* source, void* dest) const override { std::memmove(dest, source, sizeof *source); }
    uInt32 SizeOfExt() const override { return sizeof(floatExt); }
};

namespace {

// In the order of their placing, in which a cleanup takes them back from the last.
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
