// Reads numbers, strings and bytes of a binary stream: a buffer with a byte order. C++ only.
#ifndef KZCORE_BINDATAREADER_H
#define KZCORE_BINDATAREADER_H

#include <string>

#include "Endianizer.h"
#include "InputBuf.h"

namespace kz {
struct ReaderAccess;
}

// The first error latches: from then on reads move nothing and give 0, null or an empty string. So a run of reads needs
// one question at its end, before which no value may serve as a length or an index. One thread at a time.
//
// A read past the end latches kzErrCorrupt. A boundary of 0 is 1. The slots stand in this order, the destructor pair
// last.
class KZ_EXPORT BinDataReader {
public:
    // Neither is owned; both must outlive the reader.
    BinDataReader(InputBuf* buffer, const Endianizer* endianizer);
    BinDataReader(const BinDataReader&) = delete;
    BinDataReader& operator=(const BinDataReader&) = delete;

    // Reads on until the position, counted from the buffer's start, is a multiple of `boundary`.
    virtual void Align(uInt32 boundary);

    // The buffer that the reader was made with. Its position is the reader's.
    virtual InputBuf* GetBuffer() const;

    // The latched error; without one, that of the buffer, which latches.
    virtual KzErr GetError();

    // Each reads an integer of so many bits, and moves past it.
    virtual int8 ReadI8();
    virtual uInt8 ReadU8();
    virtual int16 ReadI16();
    virtual uInt16 ReadU16();
    virtual int32 ReadI32();
    virtual uInt32 ReadU32();
    virtual int64 ReadI64();
    virtual uInt64 ReadU64();

    // The four bytes as they lie in the stream, whatever its byte order.
    virtual uInt32 Read4Char();

    // Each reads a float; the extended one takes the SizeOfExt() bytes of the byte order object.
    virtual float ReadF32();
    virtual double ReadF64();
    virtual floatExt ReadFX();

    // The byte as it stands, not forced to 0 or 1.
    virtual uInt8 ReadBool();

    // A count byte and so many bytes, and what fills them up to a multiple of `boundary`: into a block of 256 bytes, or
    // as text. kzErrMemoryFull for the latter.
    virtual void ReadPStr(unsigned char* buffer, uInt32 boundary);
    virtual void ReadPStrAsNarrow(std::string* text, uInt32 boundary);

    // A 32-bit count and so many bytes: as text, which is empty on every failure, or in a new handle, which the caller
    // disposes. The latter gives null for an empty string too; GetError tells the two apart. kzErrBadCount for a
    // negative count, and for one above 2,097,152 that exceeds what is left; kzErrMemoryFull. A string of a lower count
    // whose bytes are missing is made of zeros, and latches kzErrCorrupt.
    virtual void ReadLStrAsNarrow(std::string* text);
    virtual LStr** ReadLStr();

    // Reads n bytes to `dest`, or over them if it is null. On a failure `dest` is cleared.
    virtual void ReadBytes(void* dest, unsigned long n);

    // Reads over n bytes.
    virtual void Skip(unsigned long n);

    virtual ~BinDataReader();

    // Latches an error, unless there is one already.
    void SetError(KzErr err);

    // Reads `count` numbers of `width` bytes, 1, 2, 4, 8 or 16, in one piece. On a failure `dest` is cleared.
    void ReadArray(void* dest, unsigned long count, uInt32 width);

private:
    friend struct kz::ReaderAccess;

    int32 ReadCount();

    const Endianizer* mEndianizer;  // not owned
    KzErr mError = kzErrNone;
    bool mIsAtHand;     // the buffer is just a MemInputBuf, the byte order object a shared one, and no error is latched
    bool mIsBig;        // the object is the shared big-endian one
    InputBuf* mBuffer;  // not owned
};

#endif
