// Counted strings made, grown, compared and searched, beside the strings that a user would pick instead.
#include <glib.h>
#include <strings.h>

#include <cstring>
#include <mutex>
#include <string>

#include "Harness.h"

namespace {

using kzbench::AtMost;
using kzbench::Measure;
using kzbench::Medians;

constexpr int32 kAppends = 64;
const char kPart[] = "sixteen bytes...";

// What a loop must not know: texts and lengths that are the same each time.
template <typename T>
T Unknown(T value)
{
    benchmark::DoNotOptimize(value);
    return value;
}

void MeasureMaking()
{
    for (const int32 size : {10, 100}) {
        static const std::string sText(100, 'x');
        const std::string suffix = " " + std::to_string(size);
        Measure(("kz make" + suffix).c_str(), [size] {
            LStr** handle = nullptr;
            LStrFromPtr(&handle, Unknown(size), sText.data());
            benchmark::DoNotOptimize(handle);
            DSDisposeHandle(handle);
        });
        Measure(("std make" + suffix).c_str(), [size] {
            const std::string text(sText.data(), static_cast<std::size_t>(Unknown(size)));
            benchmark::DoNotOptimize(text.data());
        });
        Measure(("GString make" + suffix).c_str(),
                [size] { g_string_free(Unknown(g_string_new_len(sText.data(), Unknown(size))), TRUE); });
        Measure(("malloc" + suffix).c_str(),
                [size] { std::free(Unknown(std::malloc(static_cast<std::size_t>(Unknown(size)) + 4))); });
    }
    static std::mutex sMutex;
    Measure("mutex", [] { const std::lock_guard<std::mutex> lock(sMutex); });
}

// 64 appends of 16 bytes to an empty string, whose text is then used.
void MeasureAppending()
{
    static LStr** sPart = nullptr;
    CToLHStr(kPart, &sPart);
    Measure("kz append, buffer", [] {
        LStrOutputBuf buffer(0ul);
        KzErr err = kzErrNone;
        for (int32 i = 0; i < kAppends; ++i) {
            MoveBlock((*sPart)->str, buffer.GetDataPointer(16, err), 16);
        }
        DSDisposeHandle(Unknown(buffer.GetHandle(true)));
    });
    Measure("kz append, room", [] {
        LStr** handle = reinterpret_cast<LStr**>(DSNewHandle(sizeof(int32) + 16 * kAppends));
        (*handle)->cnt = 0;
        for (int32 i = 0; i < kAppends; ++i) {
            LStrCatEfficient(handle, *sPart);
        }
        DSDisposeHandle(Unknown(handle));
    });
    Measure("kz append, exact", [] {
        LStr** handle = nullptr;
        for (int32 i = 0; i < kAppends; ++i) {
            LStrAppendCStr(&handle, kPart);
        }
        DSDisposeHandle(Unknown(handle));
    });
    Measure("std append", [] {
        std::string text;
        for (int32 i = 0; i < kAppends; ++i) {
            text.append(kPart, 16);
        }
        benchmark::DoNotOptimize(text.data());
    });
    Measure("GString append", [] {
        GString* const text = g_string_new(nullptr);
        for (int32 i = 0; i < kAppends; ++i) {
            g_string_append_len(text, kPart, 16);
        }
        g_string_free(Unknown(text), TRUE);
    });
}

// Equal texts, so that all bytes count; for the caseless ones letters of both cases, half of which differ.
struct Texts {
    std::string a, b, folded;
    LStr** first = nullptr;
    LStr** second = nullptr;
    LStr** other = nullptr;  // folded
};

void MeasureComparing()
{
    static Texts sTexts[2];
    for (Texts& texts : sTexts) {
        const int size = &texts == sTexts ? 16 : 1000;
        for (int i = 0; i < size; ++i) {
            texts.a += static_cast<char>('a' + i % 26);
            texts.folded += static_cast<char>((i % 2 == 0 ? 'A' : 'a') + i % 26);
        }
        texts.b = texts.a;
        CToLHStr(texts.a.c_str(), &texts.first);
        CToLHStr(texts.b.c_str(), &texts.second);
        CToLHStr(texts.folded.c_str(), &texts.other);
        const std::string suffix = " " + std::to_string(size);
        Texts* const t = &texts;
        Measure(("kz compare" + suffix).c_str(),
                [t] { benchmark::DoNotOptimize(LStrCmp(*Unknown(t->first), *t->second)); });
        Measure(("kz equal" + suffix).c_str(),
                [t] { benchmark::DoNotOptimize(LStrEqual(*Unknown(t->first), *t->second)); });
        Measure(("std compare" + suffix).c_str(), [t] { benchmark::DoNotOptimize(Unknown(&t->a)->compare(t->b)); });
        Measure(("kz C compare" + suffix).c_str(),
                [t] { benchmark::DoNotOptimize(StrCmp(Unknown(t->a.c_str()), t->b.c_str())); });
        Measure(("strcmp" + suffix).c_str(),
                [t] { benchmark::DoNotOptimize(std::strcmp(Unknown(t->a.c_str()), t->b.c_str())); });
        Measure(("kz counted caseless" + suffix).c_str(),
                [t] { benchmark::DoNotOptimize(LStrCaseCmp(*Unknown(t->first), *t->other)); });
        Measure(("kz caseless" + suffix).c_str(),
                [t] { benchmark::DoNotOptimize(StrCaseCmp(Unknown(t->a.c_str()), t->folded.c_str())); });
        Measure(("strcasecmp" + suffix).c_str(),
                [t] { benchmark::DoNotOptimize(strcasecmp(Unknown(t->a.c_str()), t->folded.c_str())); });
    }
}

// The last of 1,000 bytes.
void MeasureFinding()
{
    static const std::string sText = std::string(999, 'x') + "y";
    Measure("kz find", [] { benchmark::DoNotOptimize(StrChr(Unknown(sText.c_str()), 'y')); });
    Measure("kz find last", [] { benchmark::DoNotOptimize(StrRChr(Unknown(sText.c_str()), 'y')); });
    Measure("std find", [] { benchmark::DoNotOptimize(Unknown(&sText)->find('y')); });
    Measure("strchr", [] { benchmark::DoNotOptimize(std::strchr(Unknown(sText.c_str()), 'y')); });
}

// At most 1.1 times the time of the allocator and of two locked pairs.
kzbench::Row MakeRow(const std::string& size)
{
    return {"counted string make+free " + size + " B",
            "kz make " + size,
            "<= 1.1 x (malloc " + size + " + 2 M)",
            [size](const Medians& t) { return 1.1 * (t("malloc " + size) + 2 * t("mutex")); },
            {"std make " + size, "GString make " + size}};
}

}  // namespace

int main(int argc, char** argv)
{
    const kzbench::RunningProgram program;
    MeasureMaking();
    MeasureAppending();
    MeasureComparing();
    MeasureFinding();
    return kzbench::RunWithGoals(
        argc, argv,
        {MakeRow("10"), MakeRow("100"),
         AtMost("counted string, 64 appends of 16 B, buffer", "kz append, buffer", 1, "GString append"),
         AtMost("counted string, 64 appends of 16 B, room", "kz append, room", 1, "GString append"),
         AtMost("counted string compare 16 B", "kz compare 16", 1.2, "std compare 16"),
         AtMost("counted string compare 1,000 B", "kz compare 1000", 1.2, "std compare 1000"),
         AtMost("counted string equal 16 B", "kz equal 16", 1.2, "std compare 16"),
         AtMost("counted string equal 1,000 B", "kz equal 1000", 1.2, "std compare 1000"),
         AtMost("C string compare 16 B", "kz C compare 16", 1.2, "strcmp 16"),
         AtMost("C string compare 1,000 B", "kz C compare 1000", 1.2, "strcmp 1000"),
         AtMost("C string caseless 16 B", "kz caseless 16", 1.2, "strcasecmp 16"),
         AtMost("C string caseless 1,000 B", "kz caseless 1000", 1.2, "strcasecmp 1000"),
         AtMost("counted string caseless 16 B", "kz counted caseless 16", 1.2, "strcasecmp 16"),
         AtMost("counted string caseless 1,000 B", "kz counted caseless 1000", 1.2, "strcasecmp 1000"),
         AtMost("C string find in 1,000 B", "kz find", 1, "std find")});
}
