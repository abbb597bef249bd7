// Byte order objects: scalars to and from raw memory in a stated byte order.
#ifndef KZCORE_ENDIANIZER_H
#define KZCORE_ENDIANIZER_H

#include "KZTypes.h"
#include "NumericSupport.h"

// Hosts may derive objects of their own, whose operations the typed reader and writer then call for each value.
//
// Sources and destinations need no alignment, are not null, and don't overlap unless they are the same address. Objects
// hold no state, so any thread may use one at any time. Nothing here fails. The slots stand in this order, the
// destructor pair first.
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

    // Each moves an array of `count` values of `width` bytes, 1, 2, 4, 8 or 16, from or to the object's order in one
    // call, which is several times as fast as one call for each value. Values of another width are copied as they are.
    // With a count of 0 both addresses may be null. The product of the two must not exceed an unsigned long.
    void ReadArray(const void* source, void* dest, unsigned long count, uInt32 width) const;
    void WriteArray(const void* source, void* dest, unsigned long count, uInt32 width) const;
};

KZ_EXTERN_C_BEGIN

// Each returns a shared object, which the library owns: never null, before the library's start and after its stop too.
// Any thread may ask. A pointer stays valid until the library stops.
KZ_EXPORT const Endianizer* NativeEndianizer(void);
KZ_EXPORT const Endianizer* BigEndianizer(void);
KZ_EXPORT const Endianizer* LittleEndianizer(void);

KZ_EXTERN_C_END

#endif
