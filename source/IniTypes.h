// The codes, options and types of INI objects, of both kinds. Usable from C11 and C++20; needs nothing but the C
// library.
//
// The host's functions are called on the thread that reads or writes, with the context that it gave, and throw nothing:
// the engine's memory would not be freed on the way. Their negative results come back as they are from the call that
// they end, so a host may have codes of its own.
#ifndef KZCORE_INITYPES_H
#define KZCORE_INITYPES_H

#include <stddef.h>

#ifndef INI_EXPORT
#if defined(__GNUC__)
#define INI_EXPORT __attribute__((visibility("default")))
#else
#define INI_EXPORT
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

// An object, known to hosts by its address only.
typedef struct IniFile IniFile;

// Why a call failed: X(constant, value, meaning), a row for each code. Expand it to get a list of constants, names or
// texts. 1 is success and 0 is not found, and neither is an error.
#define INI_ERR_LIST(X)                                                                      \
    X(kIniErrLineTooShort, -2, "the greatest line length leaves no room for a value")        \
    X(kIniErrUnicodeMark, -3, "the file starts with a mark of UTF-16 or UTF-32")             \
    X(kIniErrNoFileName, -4, "nothing was read or written yet")                              \
    X(kIniErrStream, -5, "the stream can't be cut or positioned, or not be written safely")  \
    X(kIniErrName, -6, "an empty section or tag, or text that can't be read back")           \
    X(kIniErrMemory, -12, "out of memory, or more to read than is allowed")                  \
    X(kIniErrPermission, -13, "the file may not be written, or the rename failed")           \
    X(kIniErrFile, -22, "no such file, or a bad object or file name")                        \
    X(kIniErrWrite, -28, "a write failed")                                                   \
    X(kIniErrOpen, -5001, "the file exists but can't be opened")                             \
    X(kIniErrRead, -5002, "a read failed")                                                   \
    X(kIniErrTemporary, -5003, "no temporary file could be made")                            \
    X(kIniErrOpenForWrite, -5004, "the file can't be opened for writing")                    \
    X(kIniErrInt, -5021, "not an integer of 32 bits; or a break character outside 0 to 127") \
    X(kIniErrUInt, -5022, "not an unsigned integer of 32 bits")                              \
    X(kIniErrDouble, -5023, "not a number")                                                  \
    X(kIniErrBoolean, -5024, "neither \"True\" nor \"False\"")                               \
    X(kIniErrRepeated, -6001, "an edit of the only item of a tag that has several")          \
    X(kIniErrExists, -6002, "a section or item of the new name is there already")            \
    X(kIniErrNotProved, -6003, "an edit would change more than was asked for")               \
    X(kIniErrReadOnly, -6004, "a save of an object that was opened for reading")             \
    X(kIniErrLock, -6005, "the lock of the file can't be taken or kept")                     \
    X(kIniErrLinks, -6006, "the file has several names, which a save by a rename would part")

enum IniError {
#define INI_ERR_CONSTANT(constant, value, meaning) constant = (value),
    INI_ERR_LIST(INI_ERR_CONSTANT)
#undef INI_ERR_CONSTANT
};

// The name of a code's constant, such as "kIniErrName", and its meaning, for a message. 1 has "success" and 0 "not
// found" as both; a number that is no code has "unknown" and "unknown error". Never null; the texts stay for good. Any
// thread.
INI_EXPORT const char* IniErrName(int result);
INI_EXPORT const char* IniErrText(int result);

// How text is read, a sum for IniSetReadOptions.
enum IniReadOption {
    kIniReadKeepEmpty = 1,          // an item with an empty value is an item, not an unrecognized line
    kIniReadStripDoubleQuotes = 2,  // a value in double quotes loses them, and is written with them
    kIniReadStripSingleQuotes = 4,  // the same for single quotes
    kIniReadColonAndNull = 8,       // ":" and ":=" separate too; items before any section go to a section "(null)"
    kIniReadKeepComments = 16       // comments, blank and unrecognized lines are kept, unless the object is sorted
};

// How an object is written, a sum for IniSetWriteOptions.
enum IniWriteOption {
    kIniWriteUtf8Bom = 1,       // the file starts with EF BB BF
    kIniWriteSafely = 2,        // into a temporary file, which then takes the file's place
    kIniWriteMkstemp = 4,       // the temporary file has a name of its own; else the file's with the extension TMP,
                                // and a file that has this name already is lost
    kIniWriteSpacedEquals = 8,  // " = " between tag and value, else "="
    kIniWriteComments = 16,     // comments are written back
    kIniWriteSync = 32          // the data is on the disk before IniWriteToFile returns
};

// What a save could not keep, a sum from IniLostRights.
enum IniLostRight {
    kIniLostOwner = 1,  // the new file has another owner
    kIniLostGroup = 2,  // or another group
    kIniLostMode = 4    // or not all bits of the mode, or another access control list
};

// Gives text line by line to IniRead. A call continues the line that the last one left incomplete, puts at most
// size - 1 bytes and a NUL into `buffer` (size is 2 or more), and sets all three outputs: *lineComplete when the line's
// end was reached, *eof when there was nothing more, *lineNumber from 1. A negative result ends the reading.
typedef int (*IniInputFunction)(void* context, char* buffer, int size, int* eof, int* lineComplete, int* lineNumber);

// Takes one line, without its end. A negative result ends the writing.
typedef int (*IniOutputFunction)(void* context, const char* line);

// Reads a stream in pieces: `*actual` of at most `size` bytes into `buffer`, 0 at its end; negative for a failure.
typedef int (*IniStreamFunction)(void* context, int size, int* actual, void* buffer);

// The most bytes that are asked of a stream at a time.
enum { kIniInputChunk = 2084 };

// What IniLineFileInputFunction reads from. Zero it, then set the first two fields.
typedef struct IniLineInput {
    IniStreamFunction read;
    void* context;
    int used;
    int available;
    int lineNumber;
    int insideLine;  // the last line is not complete yet
    int lastEnd;     // the character that ended the last line, plus 1; 0 before the first
    unsigned char chunk[kIniInputChunk];
} IniLineInput;

// An object of IniEdit.h, known to hosts by its address only.
typedef struct IniEdit IniEdit;

// How its text is opened and read, a sum.
enum IniEditOption {
    kIniEditReadOnly = 1,       // nothing is locked, and a save gives kIniErrReadOnly
    kIniEditMustExist = 2,      // a missing file gives kIniErrFile; without it an edit starts with an empty one
    kIniEditHashComments = 4,   // a line that starts with "#" is a comment and no item
    kIniEditInPlace = 8,        // saved into the file itself, which keeps its hard links; a crash may lose it
    kIniEditCaseSensitive = 16  // names compare byte for byte
};

// What a line is.
enum IniEditKind {
    kIniEditBlank,
    kIniEditComment,
    kIniEditSection,
    kIniEditItem,
    kIniEditPart,         // a further line of an item that is cut ("tag Line0002"); its first line is the item
    kIniEditUnrecognized  // neither
};

// Which of several items of one tag is meant. A number from 1 is a place among them, in the order of the file.
enum IniEditWhich {
    kIniEditOnly = 0,  // the only one; kIniErrRepeated when there are several
    kIniEditAll = -1
};

// How a value is written, a sum.
enum IniEditValueOption {
    kIniEditRaw = 1  // as it stands; without it escapes are written where the engine decodes them
};

// One line, or one item with all its parts.
typedef struct IniEditLine {
    int kind;          // IniEditKind
    int number;        // from 1
    int quote;         // the quotes around the value, or 0
    const char* text;  // the line without its end
    size_t textSize;
    const char* section;  // that it stands in, or that it begins; "" before the first
    size_t sectionSize;
    const char* tag;  // of an item, "" for others
    size_t tagSize;
    const char* value;  // raw, without the quotes that the engine strips, with the values of all parts
    size_t valueSize;
} IniEditLine;

#ifdef __cplusplus
}
#endif

#endif
