// Objects and files: reading with a mark, saving in place or by a temporary file that takes the file's place. C library
// only.
#ifndef KZCORE_INISTORAGE_H
#define KZCORE_INISTORAGE_H

#include <stdio.h>

#include "IniModel.h"

namespace qkini {

// As IniReadFromFile, IniWriteToFile, IniIsFileNewer and their kin, which document the codes. `path` may be null; the
// object and the stream may not.
int ReadFromFile(IniFile* ini, const char* path);
int ReadFromStream(IniFile* ini, FILE* file);
int WriteToFile(IniFile* ini, const char* path);
int WriteToStream(IniFile* ini, FILE* file, bool append);
int IsFileNewer(const IniFile* ini);

// An output function: writes a line and its end to a FILE*. 1 or kIniErrWrite.
int PutLineToStream(void* file, const char* line);

}  // namespace qkini

#endif
