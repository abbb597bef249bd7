// How an object is filled from lines: from an input function of the host's, or from the engine's own reader of streams.
// C library only.
#ifndef KZCORE_INIREADER_H
#define KZCORE_INIREADER_H

#include "IniModel.h"
#include "IniTypes.h"

namespace qkini {

// What one step of a reading gave: part of a line, a line's end, or the end of all.
struct Piece {
    int result;      // 1, or a negative code
    int size;        // bytes in the buffer, without the NUL
    int taken;       // bytes of the input: what was skipped, the piece, and its line's end
    int skipped;     // of these, those in front of the piece: the second half of a pair that ended the line before
    int lineNumber;  // from 1
    bool isEnd;      // there was nothing more
    bool isComplete;
};

// Puts the next at most size - 1 bytes of a line into `buffer`, and a NUL. kIniErrRead for a size below 2, which has no
// room for a byte; else the stream's own code.
Piece ReadPiece(IniLineInput* input, char* buffer, int size);

// Replace the object's content, as IniRead. Both leave the object sound whatever they return.
int Read(IniFile* ini, IniInputFunction input, void* context);
int Read(IniFile* ini, IniLineInput* input);

}  // namespace qkini

#endif
