// Configuration text files: an object that is read from INI text, edited, and written back with its comments, order
// and quoting intact. Usable from C11 and C++20; needs nothing but the C library.
//
// Text is NUL-terminated bytes of any encoding that keeps ASCII. Names of sections and tags compare without regard to
// case and to white space at their ends, unless IniSetCaseAndWhitespaceSensitiveChecking says otherwise. Values are
// stored raw, as they stand in the file between their quotes; the getters and setters without "Raw" in their names
// decode and encode the escapes \n, \t, \", \\ and \xHH.
//
// Results are 1 for success or found, 0 for not found, and a negative code of IniError (IniTypes.h) for a failure. A
// null object gives kIniErrFile, or -1 where a line number is asked for. Getters leave their output alone unless they
// give 1, but for those into a buffer.
//
// An object has no lock: its users keep their calls apart, the reading ones too, since a look-up remembers its section.
#ifndef KZCORE_INIFILE_H
#define KZCORE_INIFILE_H

#include <stdio.h>

#include "IniList.h"  // for hosts, which use the lists beside objects
#include "IniTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

// A new empty object, or null when out of memory. If `sorted` is not 0, sections and items are kept in the order of
// their names. Default options: kIniReadStripDoubleQuotes; safe writes with mkstemp and sync, " = ", lines of at most
// 80 bytes; duplicates merge.
INI_EXPORT IniFile* IniNew(int sorted);

// Frees the object and all it holds. Null does nothing.
INI_EXPORT void IniDispose(IniFile* ini);

// Settings. The first two return the value before; without duplicate checking a second section or item of a name
// stands beside the first. `maxLineLength` is in bytes, -1 without a limit; longer values are cut into continuation
// lines, just behind a `breakChar` (0 to 127) where there is one; 0 for none. kIniErrInt: a breakChar outside that
// range, nothing is set.
//
// A value in quotes is read back equal wherever it is cut. One without quotes is cut so that it is, if there is a way
// to cut it at this length; else white space beside a cut, or a pair of quotes around a part, is lost on a reread. A
// value is not cut, however long its line, where a reader with the same settings would not join just its parts: behind
// a tag that holds " Line"; in front of an item whose tag ends in " Line" and digits, which would be one more part; and
// in a section that has an item of its own tag with " Line" and digits behind it, which would be taken for a part.
INI_EXPORT int IniSetDuplicateChecking(IniFile* ini, int check);
INI_EXPORT int IniSetCaseAndWhitespaceSensitiveChecking(IniFile* ini, int sensitive);
INI_EXPORT int IniSetWriteOptions(IniFile* ini, int maxLineLength, int breakChar, int options);
INI_EXPORT int IniSetReadOptions(IniFile* ini, int options);

// Sets how many bytes one read may take, behind a mark: 256 MiB unless set, -1 for no limit. A longer text, such as a
// device without an end, gives kIniErrMemory, as a read that runs out of memory. A line from an input function of the
// host's counts one byte for its end. kIniErrInt: less than -1, nothing is set.
INI_EXPORT int IniSetReadLimit(IniFile* ini, long long bytes);

// Replaces the content by what the input function gives; values cut into "tag Line0001", "tag Line0002" ... are joined.
// kIniErrMemory, or the function's own code; what was read so far stays, in order in a sorted object, with the parts of
// values as items of their own.
INI_EXPORT int IniRead(IniFile* ini, IniInputFunction input, void* context);

// Writes the content line by line. kIniErrLineTooShort, kIniErrMemory, or the function's own code.
INI_EXPORT int IniWrite(IniFile* ini, IniOutputFunction output, void* context);

// An input function for streams; `input` is an IniLineInput. LF, CR and NUL each end a line, two different ones in a
// row only one. An unfinished last line counts as complete. kIniErrRead: a size below 2; else the stream's own code.
INI_EXPORT int IniLineFileInputFunction(void* input, char* buffer, int size, int* eof, int* lineComplete,
                                        int* lineNumber);

// An output function that writes the line and "\n" to a FILE*. kIniErrWrite.
INI_EXPORT int IniFileOutputFunc(void* file, const char* line);

// Replaces the content by that of a file, whose name and date are remembered, or of a stream: from its start, or from
// where a pipe stands. A mark of UTF-8 is skipped. kIniErrFile, kIniErrOpen, kIniErrRead, kIniErrUnicodeMark,
// kIniErrMemory.
INI_EXPORT int IniReadFromFile(IniFile* ini, const char* path);
INI_EXPORT int IniReadFromFilePtr(IniFile* ini, FILE* file);

// Writes the content to a file and remembers its name and date. With kIniWriteSafely the file is the old or the new one
// whatever fails, and keeps its mode, owner and access control list as far as IniLostRights does not say otherwise; a
// symbolic link is replaced by a file, and what is no file (a device, a pipe, a folder) gives kIniErrPermission.
// kIniErrFile, kIniErrPermission, kIniErrTemporary, kIniErrOpenForWrite, kIniErrWrite, kIniErrLineTooShort,
// kIniErrMemory.
INI_EXPORT int IniWriteToFile(IniFile* ini, const char* path);

// What the last IniWriteToFile, though it gave 1, could not keep of the file that it replaced: a sum of IniLostRight, 0
// for nothing. Of a group that was lost no rights are left: the new one, and all others, have those that the old group
// and all others had alike. Without the old access control list, or with one that the old file had not, only the owner
// has rights. kIniErrFile: null object.
INI_EXPORT int IniLostRights(IniFile* ini);

// Writes the content to a stream: from its start, cut to nothing first, or at its position with `append`.
// kIniErrStream with kIniWriteSafely; kIniErrFile, kIniErrPermission, kIniErrWrite, kIniErrLineTooShort, kIniErrMemory.
INI_EXPORT int IniWriteToFilePtr(IniFile* ini, FILE* file, int append);

// 1 when the date of the file last read or written differs from what it was then, else 0. kIniErrNoFileName,
// kIniErrFile.
INI_EXPORT int IniIsFileNewer(IniFile* ini);

// Queries. `n` counts from 1; names and raw values stay good until the object changes. Line numbers count from 1; -1
// for what did not come from a file or is not there.
INI_EXPORT int IniSectionExists(IniFile* ini, const char* section);
INI_EXPORT int IniItemExists(IniFile* ini, const char* section, const char* tag);
INI_EXPORT int IniNumberOfSections(IniFile* ini);
INI_EXPORT int IniNumberOfItems(IniFile* ini, const char* section);
INI_EXPORT int IniNthSectionName(IniFile* ini, int n, const char** out);
INI_EXPORT int IniNthItemName(IniFile* ini, const char* section, int n, const char** out);
INI_EXPORT int IniNthItemPointerToString(IniFile* ini, const char* section, int n, const char** out);
INI_EXPORT int IniLineOfSection(IniFile* ini, const char* section);
INI_EXPORT int IniLineOfItem(IniFile* ini, const char* section, const char* tag);
INI_EXPORT int IniLineOfLastAccess(IniFile* ini);
INI_EXPORT int IniLineOfFirstUnrecognizedLine(IniFile* ini);

// Getters. A missing item, and for the typed ones an empty value, gives 0; a value that is not of the type gives the
// type's code. Integers may have white space around them and one sign; doubles are read as in the C locale, the whole
// value.
INI_EXPORT int IniGetBoolean(IniFile* ini, const char* section, const char* tag, int* out);
INI_EXPORT int IniGetInt(IniFile* ini, const char* section, const char* tag, int* out);
INI_EXPORT int IniGetUInt(IniFile* ini, const char* section, const char* tag, unsigned int* out);
INI_EXPORT int IniGetDouble(IniFile* ini, const char* section, const char* tag, double* out);

// The raw value as stored, good until the object changes; the decoded value, good until the next such call; copies
// from malloc, which the caller frees. kIniErrMemory.
INI_EXPORT int IniGetPointerToRawString(IniFile* ini, const char* section, const char* tag, const char** out);
INI_EXPORT int IniGetPointerToString(IniFile* ini, const char* section, const char* tag, const char** out);
INI_EXPORT int IniGetRawStringCopy(IniFile* ini, const char* section, const char* tag, char** out);
INI_EXPORT int IniGetStringCopy(IniFile* ini, const char* section, const char* tag, char** out);

// Copy at most size - 1 bytes into `dst` and end them; it is emptied first, whatever the result.
INI_EXPORT int IniGetRawStringIntoBuffer(IniFile* ini, const char* section, const char* tag, char* dst, size_t size);
INI_EXPORT int IniGetStringIntoBuffer(IniFile* ini, const char* section, const char* tag, char* dst, size_t size);

// Setters: make the section and the item where they are missing. A null value is an empty one; white space at its ends
// is not kept, but for line feeds and tabs that `escaped` encodes. `quoted` writes it in double quotes, `escaped`
// encodes it. Without `escaped`, a value that holds a line's end gives kIniErrName, and so does a section or tag that
// could not be read back as itself: with a line's end, "]" in a section, "=" in a tag (or ":", where it separates), ";"
// or "[" in front of a tag, " Line" and the number 1 at its end; and a section "(null)" that isn't there.
// kIniErrMemory: nothing changed.
//
// Any value can be put, but a reread loses some. Without `quoted`: an empty one, item and all, unless kIniReadKeepEmpty
// is on; and the double or single quotes around one of 2 bytes or more, where the reader strips these. So too with
// `escaped`, but for double quotes, which it encodes. With `quoted`, and so by IniPutRawString: none, by a reader that
// strips double quotes; without that option one keeps the quotes that it was written in.
INI_EXPORT int IniPutStringWithOptions(IniFile* ini, const char* section, const char* tag, const char* value,
                                       int quoted, int escaped);
INI_EXPORT int IniPutString(IniFile* ini, const char* section, const char* tag, const char* value);
INI_EXPORT int IniPutRawString(IniFile* ini, const char* section, const char* tag, const char* value);
INI_EXPORT int IniPutBoolean(IniFile* ini, const char* section, const char* tag, int value);
INI_EXPORT int IniPutInt(IniFile* ini, const char* section, const char* tag, int value);
INI_EXPORT int IniPutUInt(IniFile* ini, const char* section, const char* tag, unsigned int value);
INI_EXPORT int IniPutDouble(IniFile* ini, const char* section, const char* tag, double value);

// Remove an item or a section; its comments go in front of what follows. They need no memory.
INI_EXPORT int IniRemoveItem(IniFile* ini, const char* section, const char* tag);
INI_EXPORT int IniRemoveSection(IniFile* ini, const char* section);

// Renames a section, without moving it in a sorted object. A section that is there already keeps the name too, so that
// there are two. kIniErrName, and kIniErrMemory: nothing changed; a section that is missing is 0 whatever its new name.
INI_EXPORT int IniRenameSection(IniFile* ini, const char* oldName, const char* newName);

// Sort the items of a section, the sections, or both, by name; they are kept in order from then on.
INI_EXPORT int IniSortSection(IniFile* ini, const char* section);
INI_EXPORT int IniSortSectionList(IniFile* ini);
INI_EXPORT int IniSort(IniFile* ini);

// Compares two texts without regard to case and to white space at their ends: -1, 0 or 1.
INI_EXPORT int qkini_StrICmpWithoutSurrWhiteSpace(const char* a, const char* b);

// Read a whole text as an integer, with white space around it and one sign: 1, or 0 when it is none of 32 bits.
INI_EXPORT int qkini_StrToInt(const char* text, int* out);
INI_EXPORT int qkini_StrToUInt(const char* text, unsigned int* out);

#ifdef __cplusplus
}
#endif

#endif
