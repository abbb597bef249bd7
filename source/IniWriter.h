// How an object's lines are made: sections and items in its order, with comments, and long values cut. C library only.
#ifndef KZCORE_INIWRITER_H
#define KZCORE_INIWRITER_H

#include "IniModel.h"
#include "IniTypes.h"

namespace qkini {

// Hands the object's lines to `output`, as IniWrite. The object stays as it is, but for the marks of lookalikes in its
// items, so two threads may not write one object at a time. 1, kIniErrLineTooShort, kIniErrMemory, or the function's
// own code; the lines in front of a failure were handed over.
int Write(const IniFile* ini, IniOutputFunction output, void* context);

}  // namespace qkini

#endif
