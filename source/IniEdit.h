// Edits of INI text that leave every byte alone which they were not asked to change: spacing, quotes, order, repeated
// tags, comments, all kinds of line ends, a mark of UTF-8, a last line without an end. Usable from C11 and C++20.
//
// An object holds the bytes of a text and finds its lines by the rules of the engine (IniFile.h), so it sees the
// sections and items that the engine reads; "" names the items before the first section, whatever the engine makes of
// those. Each edit is proved before it is taken over: the engine reads the new text, and unless just the wanted item
// differs from its reading of the old one the call gives kIniErrNotProved and nothing changed. That happens where a
// line means something only among others: an item behind the parts of a cut value would be one more part of it.
//
// Results are 1 for success, 0 for a section, item or line that is not there, and a negative code for a failure, which
// leaves the object as it was. Every call can give kIniErrFile, for a null object or output, and kIniErrMemory, when
// out of memory or for a text beyond 256 MiB, which one reading of the engine takes, or beyond 4,194,304 lines.
//
// Names and values are C strings of any encoding that keeps ASCII. Names compare as in the engine, without regard to
// case and to white space at their ends, or byte for byte with kIniEditCaseSensitive. A null name is an empty one.
//
// An object has no lock against threads: its users keep their calls apart, and different objects need none. Texts that
// calls give out belong to the object, have no NUL behind them, and stay good until it changes or is closed. An edit
// and a look-up by name take time in proportion to the text, a look at a line by its number does not.
#ifndef KZCORE_INIEDIT_H
#define KZCORE_INIEDIT_H

#include "IniTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

// Opens a file and reads it. `readOptions` is a sum of IniReadOption, of which kIniReadKeepComments has no meaning
// here, and `options` one of IniEditOption. The caller closes the object; *out is null unless the result is 1.
//
// The file is the one that symbolic links lead to, also where it is missing. It is locked (`flock`) until the object is
// closed: all other objects for it, in this process too, wait in IniEditOpen until then, so a thread that opens a file
// twice waits for itself. A file that is missing is made, empty, to be locked, and removed again when nothing was
// saved, but stays where it can't be locked. Other programs take no part in the lock.
//
// With kIniEditReadOnly the file is neither made nor locked, and may be a pipe or a device.
//
// kIniErrFile: null or empty path, a folder that is not there, or a file with kIniEditMustExist. kIniErrPermission: the
// file may not be written, or made, or is no regular file. kIniErrOpen: it can't be opened for another reason, such as
// links that lead in a circle. kIniErrRead. kIniErrLock: its file system has no locks. kIniErrUnicodeMark: its text is
// UTF-16 or UTF-32.
INI_EXPORT int IniEditOpen(IniEdit** out, const char* path, int readOptions, int options);

// The same for bytes, which are copied. There is nothing to save to: IniEditSave gives kIniErrNoFileName.
// kIniErrUnicodeMark.
INI_EXPORT int IniEditOpenText(IniEdit** out, const void* bytes, size_t size, int readOptions, int options);

// Ends the lock and frees the object; null does nothing. What was not saved is lost.
INI_EXPORT void IniEditClose(IniEdit* edit);

// The whole text as it is by now, with its mark, and whether it differs from what was read or saved last (1 or 0).
INI_EXPORT int IniEditGetText(const IniEdit* edit, const char** bytes, size_t* size);
INI_EXPORT int IniEditIsChanged(const IniEdit* edit);

// Makes these bytes the whole text. They are what the caller wants, so nothing is proved. kIniErrUnicodeMark.
INI_EXPORT int IniEditSetText(IniEdit* edit, const void* bytes, size_t size);

// How many lines there are, and the n-th, from 1. A mark is part of none.
INI_EXPORT int IniEditCountLines(const IniEdit* edit);
INI_EXPORT int IniEditGetLine(const IniEdit* edit, int n, IniEditLine* out);

// The number of places where a section begins, none for "", and of the items of a tag in all of them.
INI_EXPORT int IniEditCountSections(const IniEdit* edit, const char* section);
INI_EXPORT int IniEditCountItems(const IniEdit* edit, const char* section, const char* tag);

// The n-th item of a tag in a section, from 1.
INI_EXPORT int IniEditGetItem(const IniEdit* edit, const char* section, const char* tag, int n, IniEditLine* out);

// Sets an item's value; a null one is empty. `which` is one of IniEditWhich or a number from 1, `valueOptions` a sum of
// IniEditValueOption. With kIniEditOnly a missing item is added, and a missing section with it.
//
// Quotes that the engine strips stay. A value without any stays so, unless the engine would not read it back equal:
// then it comes into double quotes. An item that is cut into parts is one line afterwards; comments between the parts
// stay.
//
// kIniErrRepeated: there are several items and `which` is kIniEditOnly. kIniErrName: an empty tag; a new name, or a raw
// value, that the engine would not read back as itself, such as one with a line's end; a new tag that ends in " Line"
// and the number 1; a new section "(null)". kIniErrNotProved.
INI_EXPORT int IniEditSetItem(IniEdit* edit, const char* section, const char* tag, int which, const char* value,
                              int valueOptions);

// Adds one more item, also where the tag is there already. It goes behind the section's last item, in front of the
// blank lines and comments that follow it, and is written like the section's other items, or else like most of the
// file's. A section that is missing goes to the end of the text, behind a blank line. kIniErrName and kIniErrNotProved,
// as above.
INI_EXPORT int IniEditAddItem(IniEdit* edit, const char* section, const char* tag, const char* value, int valueOptions);

// Removes items with all their parts. Comments stay. kIniErrRepeated, kIniErrName for an empty tag, kIniErrNotProved.
INI_EXPORT int IniEditRemoveItem(IniEdit* edit, const char* section, const char* tag, int which);

// Renames items where they stand, with all their parts. kIniErrExists: the section has the new tag already, and it is
// not the old one in another case. kIniErrRepeated, kIniErrName and kIniErrNotProved, as above.
INI_EXPORT int IniEditRenameItem(IniEdit* edit, const char* section, const char* tag, int which, const char* newTag);

// Adds a section without items, at the end of the text. kIniErrExists: it is there. kIniErrName.
INI_EXPORT int IniEditAddSection(IniEdit* edit, const char* section);

// Removes the lines of a section and its items, at every place where it begins; for "" the items before the first
// section. Its comments, blank lines and what can't be read stay, behind what stood in front. kIniErrNotProved.
INI_EXPORT int IniEditRemoveSection(IniEdit* edit, const char* section);

// Renames a section at every place where it begins. kIniErrExists: there is one of the new name, and it is not the old
// one in another case. kIniErrName: "", or a new name that could not be read back. kIniErrNotProved.
INI_EXPORT int IniEditRenameSection(IniEdit* edit, const char* section, const char* newName);

// Adds a whole line, which must be a comment (";", or "#" with kIniEditHashComments) or blank: in front of the items,
// of places of the section when `tag` is null (of the whole text for ""), or at the text's end when both are null.
// kIniErrName: the line is no comment. kIniErrRepeated.
INI_EXPORT int IniEditAddComment(IniEdit* edit, const char* section, const char* tag, int which, const char* text);

// Replace and remove the line of that number, from 1: a comment, a blank line, or one that can't be read; 0 for a line
// that is a section or an item. The new one must be a comment or blank, as above: kIniErrName. kIniErrNotProved.
INI_EXPORT int IniEditSetComment(IniEdit* edit, int line, const char* text);
INI_EXPORT int IniEditRemoveComment(IniEdit* edit, int line);

// Writes the text to the file, under the lock, which goes on. A text that was not changed is not written. The file is
// the old or the new one whatever fails, is on the disk then, and keeps mode, owner and access control list as with
// IniWriteToFile (IniFile.h). The temporary file stands beside it, ".NAME.ini-edit"; a killed save may leave it, and
// the next one takes its place.
//
// With kIniEditInPlace the file itself is written over, so all its names show the new text. When that fails the old
// text is put back, if it can be; a crash in the middle leaves some of both.
//
// kIniErrNoFileName: the object was made of bytes. kIniErrReadOnly. kIniErrLock: the path names another file by now, or
// none, because a program that takes no part in the lock put it there; or the new file can't be locked. kIniErrLinks:
// the file has several hard links, and kIniEditInPlace is not on. kIniErrTemporary: the temporary file can't be made,
// as beside a name of more than 245 bytes. kIniErrWrite: also when the file holds the new text but its folder could not
// be synced. kIniErrPermission: the file can't be renamed.
INI_EXPORT int IniEditSave(IniEdit* edit);

// What the last save could not keep of the file that it replaced, as IniLostRights.
INI_EXPORT int IniEditLostRights(const IniEdit* edit);

// A value with escapes for what a file can't hold as it stands: those of the engine, and "\x20" for a blank at either
// end. And the value that escapes stand for. Both give a copy from malloc with a NUL behind it, which the caller frees;
// `outSize`, in bytes without that NUL, may be null.
INI_EXPORT int IniEditEscape(const char* value, size_t size, char** out, size_t* outSize);
INI_EXPORT int IniEditUnescape(const char* raw, size_t size, char** out, size_t* outSize);

#ifdef __cplusplus
}
#endif

#endif
