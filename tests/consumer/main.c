// A host in C: answers for itself where it cares to, and makes a handle in a library that it starts and stops.

#include <kzcore/DebugOutputCore.h>
#include <kzcore/IniFile.h>
#include <kzcore/KZApp.h>
#include <kzcore/KZModule.h>
#include <kzcore/KzErr.h>
#include <kzcore/MemoryManager.h>
#include <kzcore/StringLStr.h>

#include <stdio.h>

static const char* Name(void* context)
{
    return context;
}

static char gName[] = "consumer";
static const KZAppFunctions kApp = {.size = sizeof kApp, .context = gName, .getAppSectionName = Name};

int main(void)
{
    DebugOutputToStderr(kDbgWarning);
    KzErr err = KZAppInterfaceSetFunctions(&kApp);
    if (err == kzErrNone) {
        err = InitKZCoreBase();
    }
    if (err != kzErrNone) {
        fprintf(stderr, "consumer: %s (%s)\n", KzErrText(err), KzErrName(err));
        UninitKZCoreBase();
        return 1;
    }
    InitKZCoreAppSupport();
    LStr** text = NULL;
    err = CToLHStr("counted", &text);
    if (err == kzErrNone) {
        printf("%d %.*s, %s, %s\n", (int)(*text)->cnt, (int)(*text)->cnt, (const char*)(*text)->str, KzErrText(err),
               IniErrName(kIniErrName));
        err = DSDisposeHandle(text);
    }
    UninitKZCoreAppSupport();
    UninitKZCoreBase();
    KZAppInterfaceSetFunctions(NULL);
    return err == kzErrNone ? 0 : 1;
}
