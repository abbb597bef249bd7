/* A settings store on an INI file, in C11: settings have a type and a default, and the user's file holds those that
   were set. The engine reads it (IniFile.h); a change goes through IniEdit.h, which leaves the user's other lines
   alone, and replaces the file as a whole or not at all.

       settings_store FILE                 lists all settings
       settings_store FILE NAME            prints one, as Window.Width
       settings_store FILE NAME VALUE      sets one and saves; a missing FILE is made

   Exit status: 0 done; 1 no such setting; 2 usage; 3 a value that is not of its setting's type; 4 the file can't be
   read or written. INI objects need no start of the library. */

#include <kzcore/IniEdit.h>
#include <kzcore/IniFile.h>

#include <stdio.h>
#include <string.h>

enum { kDone = 0, kNoSetting = 1, kUsage = 2, kBadValue = 3, kFileFailed = 4 };

typedef enum Type { kText, kInt, kReal, kFlag } Type;

typedef struct Setting {
    const char* section;
    const char* tag;
    Type type;
    const char* standard; /* its value where the file has none */
} Setting;

static const Setting kSettings[] = {{"Window", "Title", kText, "Untitled"},
                                    {"Window", "Width", kInt, "800"},
                                    {"Window", "Zoom", kReal, "1.0"},
                                    {"Window", "Maximized", kFlag, "False"},
                                    {"Files", "Folder", kText, ""}};
enum { kReadOptions = kIniReadStripDoubleQuotes | kIniReadKeepEmpty };
enum { kSettingCount = sizeof kSettings / sizeof *kSettings };

static const Setting* Find(const char* name)
{
    for (int i = 0; i < kSettingCount; ++i) {
        char full[64];
        snprintf(full, sizeof full, "%s.%s", kSettings[i].section, kSettings[i].tag);
        if (strcmp(full, name) == 0) {
            return &kSettings[i];
        }
    }
    return NULL;
}

static int Failed(const char* path, int result)
{
    fprintf(stderr, "settings_store: %s: %s (%s)\n", path, IniErrText(result), IniErrName(result));
    return kFileFailed;
}

/* Reads the settings: a file that is missing is one without any. Null, with a message, when it can't be read. */
static IniFile* Open(const char* path)
{
    IniFile* ini = IniNew(0);
    int result = ini != NULL ? 1 : kIniErrMemory;
    if (result == 1) {
        IniSetReadOptions(ini, kReadOptions);
        result = IniReadFromFile(ini, path);
    }
    if (result == 1 || (result == kIniErrFile && *path != '\0')) {
        return ini;
    }
    Failed(path, result);
    IniDispose(ini);
    return NULL;
}

/* Whether the setting's value in the file is of its type: 1, 0 when the file has none, or the code. */
static int Check(IniFile* ini, const Setting* setting)
{
    const char* text;
    int number;
    double real;
    switch (setting->type) {
        case kInt:
            return IniGetInt(ini, setting->section, setting->tag, &number);
        case kReal:
            return IniGetDouble(ini, setting->section, setting->tag, &real);
        case kFlag:
            return IniGetBoolean(ini, setting->section, setting->tag, &number);
        case kText:
            break;
    }
    return IniGetPointerToString(ini, setting->section, setting->tag, &text);
}

/* Prints the setting's value. One that is not of its type is told with its line, and the default stands in for it. */
static int Print(IniFile* ini, const Setting* setting)
{
    const char* text = setting->standard;
    int result = Check(ini, setting);
    if (result == 1) {
        result = IniGetPointerToString(ini, setting->section, setting->tag, &text);
    }
    printf("%s.%s = %s\n", setting->section, setting->tag, text);
    if (result < 0) {
        fprintf(stderr, "settings_store: line %d: %s\n", IniLineOfItem(ini, setting->section, setting->tag),
                IniErrText(result));
    }
    return result < 0 ? kBadValue : kDone;
}

static int List(IniFile* ini)
{
    int status = kDone;
    for (int i = 0; i < kSettingCount; ++i) {
        int printed = Print(ini, &kSettings[i]);
        status = status != kDone ? status : printed;
    }
    return status;
}

/* Whether the value is one of the setting's type, found by putting it into an object that is not saved. */
static int IsValue(const Setting* setting, const char* value)
{
    IniFile* trial = IniNew(0);
    int put = IniPutString(trial, setting->section, setting->tag, value);
    int fits = put == 1 && (setting->type == kText || Check(trial, setting) == 1);
    IniDispose(trial);
    return fits;
}

/* Sets the value in the file and saves, unless it is not of the setting's type. Only this line changes, and what other
   processes set by IniEdit meanwhile stays, because the file is locked from here to the close. */
static int Set(const char* path, const Setting* setting, const char* value)
{
    IniEdit* edit = NULL;
    if (!IsValue(setting, value)) {
        fprintf(stderr, "settings_store: %s is no value of %s.%s\n", value, setting->section, setting->tag);
        return kBadValue;
    }
    int result = IniEditOpen(&edit, path, kReadOptions, 0);
    if (result == 1) {
        result = IniEditSetItem(edit, setting->section, setting->tag, kIniEditOnly, value, 0);
    }
    if (result == 1) {
        result = IniEditSave(edit);
    }
    IniEditClose(edit);
    return result == 1 ? kDone : Failed(path, result);
}

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 4) {
        fputs("usage: settings_store FILE [NAME [VALUE]]\n", stderr);
        return kUsage;
    }
    const Setting* setting = argc > 2 ? Find(argv[2]) : NULL;
    if (argc > 2 && setting == NULL) {
        fprintf(stderr, "settings_store: no setting %s\n", argv[2]);
        return kNoSetting;
    }
    if (argc == 4) {
        return Set(argv[1], setting, argv[3]);
    }
    IniFile* ini = Open(argv[1]);
    if (ini == NULL) {
        return kFileFailed;
    }
    int status = setting != NULL ? Print(ini, setting) : List(ini);
    IniDispose(ini);
    return status;
}
