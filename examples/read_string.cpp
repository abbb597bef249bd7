// A host that prints one string of a string list in a resource file, or lists what the file holds.
//
//     read_string                    string 3 of list 1000 of the bundled sample
//     read_string FILE [ID INDEX]    string INDEX of list ID, 3 of 1000 unless given
//     read_string --list FILE        a line for each resource: type, id, size and name, separated by tabs; bytes
//                                    outside printable ASCII, and the backslash, as \xHH; size -1: unreadable data
//
// Exit status: 0 success; 1 no such resource or index; 2 usage; 3 not a sound resource file, or a resource that can't
// be read; 4 the file can't be read. A failure says one line on stderr; reports of the library stand before it.

#include <kzcore/KZCore.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

enum ExitStatus { kDone = 0, kNoSuchResource = 1, kUsage = 2, kNotSound = 3, kNotReadable = 4 };

constexpr char kUsageText[] = "usage: read_string [FILE [ID INDEX]] | read_string --list FILE";
constexpr int32 kSampleList = 1000;
constexpr int32 kSampleIndex = 3;

ExitStatus StatusOf(KzErr code)
{
    switch (code) {
        case kzErrNone:
            return kDone;
        case kzErrResNotFound:
            return kNoSuchResource;
        case kzErrEndOfFile:
        case kzErrResFileNotOpen:
        case kzErrGeneric:
        case kzErrResFileVersion:
            return kNotSound;
        default:
            return kNotReadable;
    }
}

void SayFailure(const std::string& what, KzErr code, const char* text)
{
    std::fprintf(stderr, "read_string: %s%s%s (%s, %d)\n", what.c_str(), what.empty() ? "" : ": ", text,
                 KzErrName(code), code);
}

std::string Escaped(const unsigned char* bytes, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        if (bytes[i] >= 0x20 && bytes[i] < 0x7F && bytes[i] != '\\') {
            text += static_cast<char>(bytes[i]);
            continue;
        }
        char hex[5];
        std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned>(bytes[i]));
        text += hex;
    }
    return text;
}

// Prints a line for each resource of a type. The result is the first failure to load one.
KzErr ListType(RsrcFile refnum, _ResourceType type)
{
    int32 count = 0;
    KzErr result = RCount(refnum, type, &count);
    const std::string typeText = Escaped(reinterpret_cast<const unsigned char*>(&type), sizeof type);
    for (int32 index = 1; index <= count; ++index) {
        int32 id = 0;
        int32 attrs = 0;
        unsigned char name[256] = {0};
        RGetIndInfo(refnum, type, index, &id, &attrs, name);
        int32 size = -1;
        UHandle handle = nullptr;
        KzErr err = RGetInd(refnum, type, index, &handle);
        if (err == kzErrNone) {
            err = RSize(handle, &size);
            if ((attrs & kRsrcChanged) == 0) {
                RRelease(handle);
            }
        }
        std::printf("%s\t%d\t%d\t%s\n", typeText.c_str(), id, size, Escaped(name + 1, name[0]).c_str());
        result = result != kzErrNone ? result : err;
    }
    return result;
}

KzErr List(RsrcFile refnum)
{
    int32 types = 0;
    KzErr result = RCountTypes(refnum, &types);
    for (int32 i = 1; i <= types; ++i) {
        _ResourceType type = 0;
        KzErr err = RGetIndType(refnum, &type, i);
        if (err == kzErrNone) {
            err = ListType(refnum, type);
        }
        result = result != kzErrNone ? result : err;
    }
    return result;
}

KzErr PrintString(RsrcFile refnum, int32 id, int32 index)
{
    unsigned char text[256];
    const KzErr err = RGetIndString(refnum, text, id, index);
    if (err == kzErrNone) {
        std::fwrite(text + 1, 1, text[0], stdout);
        std::putchar('\n');
    }
    return err;
}

struct Request {
    std::string file = KZ_EXAMPLE_DATA_DIR "/sample.rsrc";
    bool list = false;
    int32 id = kSampleList;
    int32 index = kSampleIndex;
};

bool ParseNumber(const char* text, int32* number)
{
    const char* end = text + std::strlen(text);
    const auto [stop, err] = std::from_chars(text, end, *number);
    return err == std::errc() && stop == end && stop != text;
}

bool ParseArguments(int count, char** arguments, Request* request)
{
    if (count > 1 && std::strcmp(arguments[1], "--list") == 0) {
        request->list = true;
        request->file = count == 3 ? arguments[2] : "";
        return count == 3;
    }
    if (count > 1) {
        request->file = arguments[1];
    }
    return count <= 2 ||
           (count == 4 && ParseNumber(arguments[2], &request->id) && ParseNumber(arguments[3], &request->index));
}

// Does the request in a started library. The paths it uses end before the library stops.
KzErr Run(const Request& request, bool* listingFailed)
{
    std::error_code noDirectory;
    const std::string absolute = std::filesystem::absolute(request.file, noDirectory).string();
    RsrcFile refnum = 0;
    try {
        const PathRef path(absolute, PathRef::StringUnix());
        if (const KzErr err = ROpenFile(&path, kRsrcReadOnly, &refnum, nullptr, nullptr)) {
            return err;
        }
    } catch (const ZVExcept& failure) {
        return failure.err();
    }
    KzErr err = request.list ? List(refnum) : PrintString(refnum, request.id, request.index);
    *listingFailed = request.list && err != kzErrNone;
    const KzErr closeErr = RCloseFile(refnum);
    return err != kzErrNone ? err : closeErr;
}

}  // namespace

int main(int argc, char** argv)
{
    Request request;
    if (!ParseArguments(argc, argv, &request)) {
        SayFailure("", kzErrArgument, kUsageText);
        return kUsage;
    }
    KZDefaultApp app("ReadString");
    KZAppInterfaceSet(&app);
    DebugOutputToStderr(kDbgWarning);
    bool listingFailed = false;
    KzErr err = InitKZCoreBase();
    if (err == kzErrNone) {
        InitKZCoreAppSupport();
        err = Run(request, &listingFailed);
        UninitKZCoreAppSupport();
    }
    UninitKZCoreBase();
    KZAppInterfaceSet(nullptr);
    if (err == kzErrNone && std::fflush(stdout) != 0) {
        err = kzErrIO;
    }
    if (err == kzErrNone) {
        return kDone;
    }
    std::fflush(stdout);
    SayFailure(request.file, err, KzErrText(err));
    return listingFailed ? kNotSound : StatusOf(err);
}
