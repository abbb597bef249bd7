// Writes numbers, strings and bytes of a binary stream: into a buffer, in a byte order. C++ only.
#ifndef KZCORE_BINDATAWRITER_H
#define KZCORE_BINDATAWRITER_H

#include <string>

#include "Endianizer.h"
#include "OutputBuf.h"

namespace kz {
struct WriterAccess;
}

// Each write returns the number of bytes that it took, also where the buffer only counts; 0 on a failure. The first
// error latches: from then on nothing is written. A writer that ends with an error reports it. One thread at a time.
//
// A boundary of 0 is 1. The slots stand in this order, the destructor pair last.
class KZ_EXPORT BinDataWriter {
public:
    // Neither is owned; both must outlive the writer.
    BinDataWriter(OutputBuf* buffer, const Endianizer* endianizer);
    BinDataWriter(const BinDataWriter&) = delete;
    BinDataWriter& operator=(const BinDataWriter&) = delete;

    // The latched error; without one, that of the buffer, which latches.
    virtual KzErr GetError();

    // The buffer that is written to. Its position is the writer's.
    virtual OutputBuf* GetBuffer() const;

    // Writes to another buffer from now on, and returns the one before. The latched error stays.
    virtual OutputBuf* SetBuffer(OutputBuf* buffer);

    // Writes zeros until the position is a multiple of `boundary`.
    virtual unsigned long Align(uInt32 boundary);

    // Each writes an integer of so many bits.
    virtual unsigned long WriteI8(int8 value);
    virtual unsigned long WriteU8(uInt8 value);
    virtual unsigned long WriteI16(int16 value);
    virtual unsigned long WriteU16(uInt16 value);
    virtual unsigned long WriteI32(int32 value);
    virtual unsigned long WriteU32(uInt32 value);
    virtual unsigned long WriteI64(int64 value);
    virtual unsigned long WriteU64(uInt64 value);

    // The four bytes as they lie in memory, whatever the byte order.
    virtual unsigned long Write4Char(uInt32 value);

    // Each writes a float; the extended one takes the SizeOfExt() bytes of the byte order object.
    virtual unsigned long WriteF32(float value);
    virtual unsigned long WriteF64(double value);
    virtual unsigned long WriteFX(const floatExt& value);

    // The byte as it stands.
    virtual unsigned long WriteBool(uInt8 value);

    // A count byte and the bytes, filled with zeros up to a multiple of `boundary`. A null string writes nothing; text
    // over 255 bytes is cut.
    virtual unsigned long WritePStr(const unsigned char* string, uInt32 boundary);
    virtual unsigned long WritePStrFromNarrow(const std::string& text, uInt32 boundary);

    // A 32-bit count and the bytes. A null string is an empty one. kzErrArgument, which latches, for text of 2^31 bytes
    // or more.
    virtual unsigned long WriteLStrFromNarrow(const std::string& text);
    virtual unsigned long WriteLStr(const LStr* string);

    // Writes n bytes as they are.
    virtual unsigned long WriteBytes(const void* data, unsigned long n);

    virtual ~BinDataWriter();

    // Writes `count` numbers of `width` bytes, 1, 2, 4, 8 or 16, in one piece.
    unsigned long WriteArray(const void* data, unsigned long count, uInt32 width);

private:
    friend struct kz::WriterAccess;
    enum Kind : uInt8 { kOtherKind, kHandle, kStatic, kPreflight, kLStr };

    static Kind KindOf(const OutputBuf* buffer);
    void Latch(KzErr err);
    unsigned long PutCounted(const void* text, unsigned long size);
    unsigned long PutShort(const void* text, unsigned long size, uInt32 boundary);

    const Endianizer* mEndianizer;  // not owned
    KzErr mError = kzErrNone;
    bool mIsShared;      // the byte order object is one of the shared ones
    bool mIsBig;         // and the big-endian one
    Kind mKind;          // of the buffer, where it is just one of these, mIsShared, and no error is latched
    OutputBuf* mBuffer;  // not owned
};

#endif
