// Edits of INI text that leave every byte alone which they were not asked to change: spacing, quotes, order, repeated
// tags, comments, all kinds of line ends, a mark of UTF-8, a last line without an end. Usable from C11 and C++20.
//
// An object holds the bytes of a text and finds its lines by the rules of the engine (IniFile.h), so it sees the
// sections and items that the engine reads; "" names the items before the first section. Each edit is proved before it
// is taken over: the engine reads the new text, and unless just the wanted item differs from its reading of the old one
// the call gives kIniErrNotProved and nothing changed.
//
// Results are 1 for success, 0 for a section or item that is not there, and a negative code for a failure, which leaves
// the object as it was. A null object gives kIniErrFile. An object has no lock: its users keep their calls apart. Texts
// that calls give out stay good until the object changes or is closed. Names compare as in the engine.
#ifndef KZCORE_INIEDIT_H
#define KZCORE_INIEDIT_H

#include "IniTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

// Opens a file, follows symbolic links, takes a lock (`flock`) that keeps all other objects for this file waiting until
// this one is closed, and reads it. What a file that was missing is made, empty, to be locked; it is removed again when
// nothing is saved. `readOptions` as for IniSetReadOptions (kIniReadKeepComments has no meaning here).
INI_EXPORT int IniEditOpen(IniEdit** out, const char* path, int readOptions, int options);
// The same for bytes, which are copied. There is nothing to save to: IniEditSave gives kIniErrNoFileName.
INI_EXPORT int IniEditOpenText(IniEdit** out, const void* bytes, size_t size, int readOptions, int options);
// Ends the lock and frees the object; null does nothing. What was not saved is lost.
INI_EXPORT void IniEditClose(IniEdit* edit);

// The whole text as it is by now, and whether it differs from what was read or saved last (1 or 0).
INI_EXPORT int IniEditGetText(const IniEdit* edit, const char** bytes, size_t* size);
INI_EXPORT int IniEditIsChanged(const IniEdit* edit);

// The lines, `n` from 1; the items of a tag; whether a section is there.
INI_EXPORT int IniEditCountLines(const IniEdit* edit);
INI_EXPORT int IniEditGetLine(const IniEdit* edit, int n, IniEditLine* out);
INI_EXPORT int IniEditCountSections(const IniEdit* edit, const char* section);  // places where it begins
INI_EXPORT int IniEditCountItems(const IniEdit* edit, const char* section, const char* tag);
INI_EXPORT int IniEditGetItem(const IniEdit* edit, const char* section, const char* tag, int n, IniEditLine* out);

// Edits.
INI_EXPORT int IniEditSetItem(IniEdit* edit, const char* section, const char* tag, int which, const char* value,
                              int valueOptions);  // makes section and item where they are missing (which: Only)
INI_EXPORT int IniEditAddItem(IniEdit* edit, const char* section, const char* tag, const char* value,
                              int valueOptions);  // one more
INI_EXPORT int IniEditRemoveItem(IniEdit* edit, const char* section, const char* tag, int which);
INI_EXPORT int IniEditRenameItem(IniEdit* edit, const char* section, const char* tag, int which, const char* newTag);
INI_EXPORT int IniEditAddSection(IniEdit* edit, const char* section);
INI_EXPORT int IniEditRemoveSection(IniEdit* edit,
                                    const char* section);  // its lines of sections and items; comments stay
INI_EXPORT int IniEditRenameSection(IniEdit* edit, const char* section, const char* newName);  // every place
INI_EXPORT int IniEditAddComment(IniEdit* edit, const char* section, const char* tag, int which, const char* text);
// in front of the item, of the section when tag is null, at the end when both are
INI_EXPORT int IniEditSetComment(IniEdit* edit, int line, const char* text);
INI_EXPORT int IniEditRemoveComment(IniEdit* edit, int line);

INI_EXPORT int IniEditEscape(const char* value, size_t size, char** out, size_t* outSize);
INI_EXPORT int IniEditUnescape(const char* raw, size_t size, char** out, size_t* outSize);

// Writes the file as IniWriteToFile does with kIniWriteSafely and kIniWriteSync, under the lock, which goes on.
INI_EXPORT int IniEditSave(IniEdit* edit);
// As IniLostRights, of the last save.
INI_EXPORT int IniEditLostRights(const IniEdit* edit);

#ifdef __cplusplus
}
#endif

#endif
