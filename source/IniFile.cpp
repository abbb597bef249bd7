// The exported calls, in the order of the header. Each checks what a host gave it and answers with a code; what it does
// stands in the modules below, which take these checks for granted.
//
// A call that changes an object's content ends with Changed, whatever came of it.

#include "IniFile.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "IniMemory.h"
#include "IniModel.h"
#include "IniReader.h"
#include "IniStorage.h"
#include "IniWriter.h"
#include "KzAssert.h"

using qkini::FindSection;
using qkini::ItemAt;
using qkini::SectionAt;
using qkini::Text;
using qkini::Texts;
using qkini::Trimmed;
using qkini::Where;

namespace {

// The end of each call that changes an object: in slow builds, a walk over it.
int Changed(const IniFile* ini, int result)
{
    KZ_ASSERT_SLOW(qkini::IsSoundIfSmall(ini));
    return result;
}

int Exchange(int* setting, int value)
{
    const int before = *setting;
    *setting = value;
    return before;
}

IniItem* FindItem(IniFile* ini, Text section, Text tag)
{
    IniSection* const found = ini == nullptr ? nullptr : FindSection(ini, section);
    return found == nullptr ? nullptr : qkini::FindItem(ini, found, tag);
}

// What a getter is asked for.
struct ItemName {
    const char* section;
    const char* tag;
};

// What a getter found: an item where the result is 1, else none.
struct Found {
    int result;
    const IniItem* item;

    bool IsItem() const { return result == 1; }
};

// Looks an item up for a getter that puts what it finds into `out`.
Found Look(IniFile* ini, ItemName name, const void* out)
{
    if (ini == nullptr || out == nullptr) {
        return {kIniErrFile, nullptr};
    }
    const IniItem* const item = FindItem(ini, Text(name.section), Text(name.tag));
    return {item == nullptr ? 0 : 1, item};
}

// As Look, for the getters of numbers, to which an empty value is a missing one.
Found LookForNumber(IniFile* ini, ItemName name, const void* out)
{
    const Found found = Look(ini, name, out);
    const bool isEmpty = found.IsItem() && Trimmed(Text(found.item->value)).IsEmpty();
    return isEmpty ? Found{0, nullptr} : found;
}

// The n-th item of a section.
Found Nth(IniFile* ini, const char* section, int n, const void* out)
{
    if (ini == nullptr || out == nullptr) {
        return {kIniErrFile, nullptr};
    }
    const IniSection* const owner = FindSection(ini, Text(section));
    if (owner == nullptr || n < 1 || n > owner->items.Count()) {
        return {0, nullptr};
    }
    return {1, ItemAt(owner, n - 1)};
}

// Makes room for an unescaped string and its NUL, without growing for good because one value was long: room that is
// much too large is given back by the next shorter value.
bool SizeScratch(IniFile* ini, size_t length)
{
    constexpr size_t kLeast = 256;
    constexpr size_t kSpare = 1025;
    if (ini->scratchSize >= length + 1 && ini->scratchSize <= length + kSpare) {
        return true;
    }
    const size_t size = length + 1 > kLeast ? length + 1 : kLeast;
    auto* const scratch = static_cast<char*>(qkini::Reallocate(ini->scratch, size));
    if (scratch == nullptr) {
        return false;
    }
    ini->scratch = scratch;
    ini->scratchSize = size;
    return true;
}

bool HasLineEnd(Text text)
{
    return text.Contains('\n') || text.Contains('\r');
}

// Whether a section's line would give the same name again. That of the items before any section is not written.
bool IsSectionName(Text name)
{
    const Text unwritten("(null)");
    const bool isUnwritten = name.size == unwritten.size && memcmp(name.begin, unwritten.begin, name.size) == 0;
    return !name.IsEmpty() && !HasLineEnd(name) && !name.Contains(']') && !isUnwritten;
}

// Whether an item's line would give the same tag again: past this check a liar's tag could begin a comment, a section
// or another item.
bool IsTag(const IniFile* ini, Text tag)
{
    const bool hasSeparator =
        tag.Contains('=') || ((ini->readOptions & kIniReadColonAndNull) != 0 && tag.Contains(':'));
    const bool isFirstPart = qkini::ContinuationOf(tag).number == 1;
    return !tag.IsEmpty() && !HasLineEnd(tag) && !hasSeparator && !isFirstPart && *tag.begin != ';' &&
           *tag.begin != '[';
}

// Whether an item can be made that is read back as itself. A section that is there was read, whatever its name.
bool CanBeReadBack(IniFile* ini, Text section, Text tag)
{
    return IsTag(ini, tag) && (FindSection(ini, section) != nullptr || IsSectionName(section));
}

// A value as it is stored; null when out of memory.
char* StoredValue(Text value, bool isEscaped)
{
    if (!isEscaped) {
        return qkini::Duplicate(Trimmed(value));
    }
    // Trimmed once it is escaped: white space other than blanks has an escape.
    char* const stored = qkini::Escaped(value);
    if (stored != nullptr) {
        const Text trimmed = Trimmed(Text(stored));
        memmove(stored, trimmed.begin, trimmed.size);
        stored[trimmed.size] = 0;
    }
    return stored;
}

// Makes an item without a value, and its section where that is missing; null when out of memory, with neither made. An
// item without a value is no sound one, so the caller has the value ready.
IniItem* MakeItem(IniFile* ini, Text section, Text tag)
{
    IniSection* const found = FindSection(ini, section);
    IniSection* const owner = found != nullptr ? found : qkini::AddSection(ini, section, -1, Where::kAsSorted);
    if (owner == nullptr) {
        return nullptr;
    }
    IniItem* const item = qkini::AddItem(ini, owner, {tag, ini->names.naming.seed}, Where::kAsSorted, Texts::kOwned);
    if (item == nullptr && found == nullptr) {
        qkini::DropSection(ini, owner);
    }
    return item;
}

int PutPlain(IniFile* ini, const char* section, const char* tag, const char* value)
{
    return IniPutStringWithOptions(ini, section, tag, value, 0, 0);
}

enum class Form { kRaw, kUnescaped };

// Copies a value to a buffer of the caller.
int CopyInto(IniFile* ini, ItemName name, char* dst, size_t size, Form form)
{
    if (dst != nullptr && size > 0) {
        dst[0] = 0;
    }
    const Found found = Look(ini, name, dst);
    if (!found.IsItem() || size == 0) {
        return found.result;
    }
    // As much as fits, and a NUL behind it; a longer value is cut without a word.
    const Text value(found.item->value);
    size_t length = value.size;
    if (form == Form::kRaw) {
        memcpy(dst, value.begin, length < size - 1 ? length : size - 1);
    } else {
        length = qkini::Unescape(value, dst, size - 1);
    }
    dst[length < size - 1 ? length : size - 1] = 0;
    return 1;
}

}  // namespace

extern "C" {

IniFile* IniNew(int sorted)
{
    return qkini::MakeFile(sorted != 0);
}

void IniDispose(IniFile* ini)
{
    if (ini != nullptr) {
        KZ_ASSERT_SLOW(qkini::Fault(ini) == nullptr);
        qkini::DisposeFile(ini);
    }
}

int IniSetDuplicateChecking(IniFile* ini, int check)
{
    return ini == nullptr ? kIniErrFile : Exchange(&ini->duplicateChecking, check);
}

int IniSetCaseAndWhitespaceSensitiveChecking(IniFile* ini, int sensitive)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    const int before = Exchange(&ini->caseSensitive, sensitive);
    qkini::SetCaseSensitive(ini, sensitive != 0);
    return Changed(ini, before);
}

int IniSetWriteOptions(IniFile* ini, int maxLineLength, int breakChar, int options)
{
    constexpr int kFirstBadBreakChar = 128;
    if (ini == nullptr) {
        return kIniErrFile;
    }
    // Beyond ASCII a byte may be part of a character, between whose bytes no value should be cut.
    if (breakChar >= kFirstBadBreakChar || breakChar < 0) {
        return kIniErrInt;
    }
    ini->maxLineLength = maxLineLength;
    ini->breakChar = breakChar;
    ini->writeOptions = options;
    return 1;
}

int IniSetReadOptions(IniFile* ini, int options)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    ini->readOptions = options;
    return 1;
}

int IniSetReadLimit(IniFile* ini, long long bytes)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    if (bytes < -1) {
        return kIniErrInt;
    }
    ini->readLimit = bytes;
    return 1;
}

int IniRead(IniFile* ini, IniInputFunction input, void* context)
{
    if (ini == nullptr || input == nullptr) {
        return kIniErrFile;
    }
    // The engine's own function is known by its address and its stream read without it. A host that sees another
    // address, as one without position-independent code may, has its lines read through the function: they are the
    // same.
    const int result = input == &IniLineFileInputFunction ? qkini::Read(ini, static_cast<IniLineInput*>(context))
                                                          : qkini::Read(ini, input, context);
    return Changed(ini, result);
}

int IniWrite(IniFile* ini, IniOutputFunction output, void* context)
{
    return ini == nullptr || output == nullptr ? kIniErrFile : qkini::Write(ini, output, context);
}

int IniLineFileInputFunction(void* input, char* buffer, int size, int* eof, int* lineComplete, int* lineNumber)
{
    const qkini::Piece piece = qkini::ReadPiece(static_cast<IniLineInput*>(input), buffer, size);
    *eof = piece.isEnd ? 1 : 0;
    *lineComplete = piece.isComplete ? 1 : 0;
    *lineNumber = piece.lineNumber;
    return piece.result;
}

int IniFileOutputFunc(void* file, const char* line)
{
    return qkini::PutLineToStream(file, line);
}

int IniReadFromFile(IniFile* ini, const char* path)
{
    return ini == nullptr ? kIniErrFile : Changed(ini, qkini::ReadFromFile(ini, path));
}

int IniReadFromFilePtr(IniFile* ini, FILE* file)
{
    return ini == nullptr || file == nullptr ? kIniErrFile : Changed(ini, qkini::ReadFromStream(ini, file));
}

int IniWriteToFile(IniFile* ini, const char* path)
{
    return ini == nullptr ? kIniErrFile : qkini::WriteToFile(ini, path);
}

int IniLostRights(IniFile* ini)
{
    return ini == nullptr ? kIniErrFile : ini->lostRights;
}

int IniWriteToFilePtr(IniFile* ini, FILE* file, int append)
{
    return ini == nullptr || file == nullptr ? kIniErrFile : qkini::WriteToStream(ini, file, append != 0);
}

int IniIsFileNewer(IniFile* ini)
{
    return ini == nullptr ? kIniErrFile : qkini::IsFileNewer(ini);
}

int IniSectionExists(IniFile* ini, const char* section)
{
    return ini == nullptr ? kIniErrFile : FindSection(ini, Text(section)) != nullptr ? 1 : 0;
}

int IniItemExists(IniFile* ini, const char* section, const char* tag)
{
    return ini == nullptr ? kIniErrFile : FindItem(ini, Text(section), Text(tag)) != nullptr ? 1 : 0;
}

int IniNumberOfSections(IniFile* ini)
{
    return ini == nullptr ? kIniErrFile : ini->sections.Count();
}

int IniNumberOfItems(IniFile* ini, const char* section)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    const IniSection* const found = FindSection(ini, Text(section));
    return found == nullptr ? 0 : found->items.Count();
}

int IniNthSectionName(IniFile* ini, int n, const char** out)
{
    if (ini == nullptr || out == nullptr) {
        return kIniErrFile;
    }
    if (n < 1 || n > ini->sections.Count()) {
        return 0;
    }
    *out = SectionAt(ini, n - 1)->name;
    return 1;
}

int IniNthItemName(IniFile* ini, const char* section, int n, const char** out)
{
    const Found found = Nth(ini, section, n, out);
    if (found.IsItem()) {
        *out = found.item->name;
    }
    return found.result;
}

int IniNthItemPointerToString(IniFile* ini, const char* section, int n, const char** out)
{
    const Found found = Nth(ini, section, n, out);
    if (found.IsItem()) {
        *out = found.item->value;
    }
    return found.result;
}

int IniLineOfSection(IniFile* ini, const char* section)
{
    const IniSection* const found = ini == nullptr ? nullptr : FindSection(ini, Text(section));
    return found == nullptr ? -1 : found->line;
}

int IniLineOfItem(IniFile* ini, const char* section, const char* tag)
{
    const IniItem* const item = FindItem(ini, Text(section), Text(tag));
    return item == nullptr ? -1 : item->line;
}

int IniLineOfLastAccess(IniFile* ini)
{
    return ini == nullptr ? -1 : ini->lastAccessLine;
}

int IniLineOfFirstUnrecognizedLine(IniFile* ini)
{
    return ini == nullptr ? -1 : ini->firstUnrecognizedLine;
}

int IniGetBoolean(IniFile* ini, const char* section, const char* tag, int* out)
{
    const Found found = LookForNumber(ini, {section, tag}, out);
    if (!found.IsItem()) {
        return found.result;
    }
    // In any case, but no other words: a typing error is told and not taken for false.
    const Text value(found.item->value);
    const bool isTrue = qkini::CompareBlind(value, Text("True")) == 0;
    if (!isTrue && qkini::CompareBlind(value, Text("False")) != 0) {
        return kIniErrBoolean;
    }
    *out = isTrue ? 1 : 0;
    return 1;
}

int IniGetInt(IniFile* ini, const char* section, const char* tag, int* out)
{
    const Found found = LookForNumber(ini, {section, tag}, out);
    return !found.IsItem() ? found.result : qkini::ParseInt(found.item->value, out) ? 1 : kIniErrInt;
}

int IniGetUInt(IniFile* ini, const char* section, const char* tag, unsigned int* out)
{
    const Found found = LookForNumber(ini, {section, tag}, out);
    return !found.IsItem() ? found.result : qkini::ParseUInt(found.item->value, out) ? 1 : kIniErrUInt;
}

int IniGetDouble(IniFile* ini, const char* section, const char* tag, double* out)
{
    const Found found = LookForNumber(ini, {section, tag}, out);
    return !found.IsItem() ? found.result : qkini::ParseDouble(found.item->value, out) ? 1 : kIniErrDouble;
}

int IniGetPointerToRawString(IniFile* ini, const char* section, const char* tag, const char** out)
{
    const Found found = Look(ini, {section, tag}, out);
    if (found.IsItem()) {
        *out = found.item->value;
    }
    return found.result;
}

int IniGetPointerToString(IniFile* ini, const char* section, const char* tag, const char** out)
{
    const Found found = Look(ini, {section, tag}, out);
    if (!found.IsItem()) {
        return found.result;
    }
    // The object's own buffer, because the value that it holds is the escaped one.
    const Text value(found.item->value);
    if (!SizeScratch(ini, value.size)) {
        return kIniErrMemory;
    }
    ini->scratch[qkini::Unescape(value, ini->scratch, value.size)] = 0;
    *out = ini->scratch;
    return 1;
}

int IniGetRawStringCopy(IniFile* ini, const char* section, const char* tag, char** out)
{
    const Found found = Look(ini, {section, tag}, out);
    if (!found.IsItem()) {
        return found.result;
    }
    // The output stays as it was without memory, as for every failure.
    char* const copy = qkini::Duplicate(Text(found.item->value));
    if (copy == nullptr) {
        return kIniErrMemory;
    }
    *out = copy;
    return 1;
}

int IniGetStringCopy(IniFile* ini, const char* section, const char* tag, char** out)
{
    const int result = IniGetRawStringCopy(ini, section, tag, out);
    if (result == 1) {
        // Never longer than what is escaped.
        const Text raw(*out);
        (*out)[qkini::Unescape(raw, *out, raw.size)] = 0;
    }
    return result;
}

int IniGetRawStringIntoBuffer(IniFile* ini, const char* section, const char* tag, char* dst, size_t size)
{
    return CopyInto(ini, {section, tag}, dst, size, Form::kRaw);
}

int IniGetStringIntoBuffer(IniFile* ini, const char* section, const char* tag, char* dst, size_t size)
{
    return CopyInto(ini, {section, tag}, dst, size, Form::kUnescaped);
}

int IniPutStringWithOptions(IniFile* ini, const char* section, const char* tag, const char* value, int quoted,
                            int escaped)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    const Text sectionName = Trimmed(Text(section));
    const Text tagName = Trimmed(Text(tag));
    const Text given(value);
    // What stands behind a line's end would be read as lines of its own.
    if (escaped == 0 && HasLineEnd(given)) {
        return kIniErrName;
    }
    IniItem* item = ini->duplicateChecking != 0 ? FindItem(ini, sectionName, tagName) : nullptr;
    if (item == nullptr && !CanBeReadBack(ini, sectionName, tagName)) {
        return kIniErrName;
    }
    // The value before the item, so that what fails for want of memory has changed nothing.
    char* const stored = StoredValue(given, escaped != 0);
    if (stored != nullptr && item == nullptr) {
        item = MakeItem(ini, sectionName, tagName);
    }
    if (stored == nullptr || item == nullptr) {
        free(stored);
        ini->currentSection = nullptr;
        return Changed(ini, kIniErrMemory);
    }
    qkini::SetValue(ini, item, stored, Texts::kOwned, quoted != 0 ? '"' : '\0');
    return Changed(ini, 1);
}

int IniPutString(IniFile* ini, const char* section, const char* tag, const char* value)
{
    return IniPutStringWithOptions(ini, section, tag, value, 1, 1);
}

int IniPutRawString(IniFile* ini, const char* section, const char* tag, const char* value)
{
    return IniPutStringWithOptions(ini, section, tag, value, 1, 0);
}

int IniPutBoolean(IniFile* ini, const char* section, const char* tag, int value)
{
    return PutPlain(ini, section, tag, value != 0 ? "True" : "False");
}

int IniPutInt(IniFile* ini, const char* section, const char* tag, int value)
{
    char text[32];
    snprintf(text, sizeof text, "%d", value);
    return PutPlain(ini, section, tag, text);
}

int IniPutUInt(IniFile* ini, const char* section, const char* tag, unsigned int value)
{
    char text[32];
    snprintf(text, sizeof text, "%u", value);
    return PutPlain(ini, section, tag, text);
}

int IniPutDouble(IniFile* ini, const char* section, const char* tag, double value)
{
    char text[64];
    qkini::FormatDouble(value, text, sizeof text);
    return PutPlain(ini, section, tag, text);
}

int IniRemoveItem(IniFile* ini, const char* section, const char* tag)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    // Not FindItem, because the section is needed too: its list holds the item.
    IniSection* const found = FindSection(ini, Text(section));
    IniItem* const item = found == nullptr ? nullptr : qkini::FindItem(ini, found, Text(tag));
    if (item == nullptr) {
        return 0;
    }
    qkini::RemoveItem(ini, found, item);
    return Changed(ini, 1);
}

int IniRemoveSection(IniFile* ini, const char* section)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    IniSection* const found = FindSection(ini, Text(section));
    if (found == nullptr) {
        return 0;
    }
    qkini::RemoveSection(ini, found);
    return Changed(ini, 1);
}

int IniRenameSection(IniFile* ini, const char* oldName, const char* newName)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    IniSection* const section = FindSection(ini, Text(oldName));
    if (section == nullptr) {
        return 0;
    }
    // The name is looked at second, because a section that is missing is missing whatever it should be called.
    const Text name = Trimmed(Text(newName));
    if (!IsSectionName(name)) {
        return kIniErrName;
    }
    return Changed(ini, qkini::RenameSection(ini, section, name) ? 1 : kIniErrMemory);
}

int IniSortSection(IniFile* ini, const char* section)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    IniSection* const found = FindSection(ini, Text(section));
    if (found == nullptr) {
        return 0;
    }
    qkini::SortItems(found);
    return Changed(ini, 1);
}

int IniSortSectionList(IniFile* ini)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    qkini::SortSections(ini);
    return Changed(ini, 1);
}

int IniSort(IniFile* ini)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    qkini::Sort(ini);
    return Changed(ini, 1);
}

int qkini_StrICmpWithoutSurrWhiteSpace(const char* a, const char* b)
{
    return qkini::CompareBlind(Text(a), Text(b));
}

int qkini_StrToInt(const char* text, int* out)
{
    return qkini::ParseInt(text, out) ? 1 : 0;
}

int qkini_StrToUInt(const char* text, unsigned int* out)
{
    return qkini::ParseUInt(text, out) ? 1 : 0;
}

}  // extern "C"
