// Byte order objects: scalars to and from raw memory in a stated byte order.
#ifndef KZCORE_ENDIANIZER_H
#define KZCORE_ENDIANIZER_H

#include "KZTypes.h"
#include "NumericSupport.h"

// Sources and destinations need no alignment and don't overlap unless they are the same. Objects hold no state: any
// thread. The slots stand in this order, the destructor pair first.
class KZ_EXPORT Endianizer {
public:
    virtual ~Endianizer() = default;

    // The 16-bit value at source, sign-extended, and the 32-bit value at source.
    virtual int32 ReadAWord(const void* source) const = 0;
    virtual int32 ReadALong(const void* source) const = 0;

    // Each stores the value of that many bytes at source, which is in the object's order, at dest in host order.
    virtual void Read2ByteVal(const void* source, void* dest) const = 0;
    virtual void Read4ByteVal(const void* source, void* dest) const = 0;
    virtual void Read8ByteVal(const void* source, void* dest) const = 0;
    // Reads SizeOfExt() bytes.
    virtual void ReadExtVal(const void* source, floatExt* dest) const = 0;
    virtual void Read16ByteVal(const void* source, void* dest) const = 0;

    // Each stores the host's value of that many bytes at source at dest in the object's order.
    virtual void Write2ByteVal(const void* source, void* dest) const = 0;
    virtual void Write4ByteVal(const void* source, void* dest) const = 0;
    virtual void Write8ByteVal(const void* source, void* dest) const = 0;
    // Writes SizeOfExt() bytes.
    virtual void WriteExtVal(const floatExt* source, void* dest) const = 0;
    virtual void Write16ByteVal(const void* source, void* dest) const = 0;

    // The bytes that an extended float takes: 16 in files, 10 as the host keeps it.
    virtual uInt32 SizeOfExt() const = 0;

    // Whether the object reverses bytes on this host.
    virtual bool IsSwapping() const = 0;

    // An array of `count` values of `width` bytes, 1, 2, 4, 8 or 16, from and to the object's order in one call,
    // several times as fast as one by one.
    void ReadArray(const void* source, void* dest, unsigned long count, uInt32 width) const;
    void WriteArray(const void* source, void* dest, unsigned long count, uInt32 width) const;
};

KZ_EXTERN_C_BEGIN

// The shared objects; never null, before the library's start and after its stop too. Any thread. A pointer stays valid
// until the library stops.
KZ_EXPORT const Endianizer* NativeEndianizer(void);
KZ_EXPORT const Endianizer* BigEndianizer(void);
KZ_EXPORT const Endianizer* LittleEndianizer(void);

KZ_EXTERN_C_END

namespace kz {

// Places the three objects, those that are not there. One thread.
void PlaceEndianizers();

// Whether the object is one of the three.
bool IsSharedEndianizer(const Endianizer* endianizer);

}  // namespace kz

#endif
