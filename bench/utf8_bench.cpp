// Texts of 1,000 bytes from UTF-8 to UTF-32 and back, and to upper case, beside iconv with its converter kept, iconv as
// callers mostly write it, and GLib.
#include <glib.h>
#include <iconv.h>

#include <string>
#include <vector>

#include "Harness.h"

namespace {

using kzbench::AtMost;
using kzbench::Faster;
using kzbench::Measure;

constexpr std::size_t kBytes = 1000;

// `piece` again and again, in all kBytes bytes.
std::string Repeated(const std::string& piece)
{
    std::string text;
    while (text.size() + piece.size() <= kBytes) {
        text += piece;
    }
    return text.append(kBytes - text.size(), '.');
}

// Converts through an open converter into a buffer that is large enough; returns what is left of it.
std::size_t Convert(iconv_t converter, const char* bytes, std::size_t size, char* out, std::size_t room)
{
    char* in = const_cast<char*>(bytes);
    if (iconv(converter, &in, &size, &out, &room) == static_cast<std::size_t>(-1)) {
        std::exit(1);
    }
    return room;
}

// The text as wide text, by the call for whole texts and step by step.
void MeasureDecoding(const std::string& name, const std::string& text)
{
    Measure(("kz UTF-8 to 32 " + name).c_str(), [text, wide = std::wstring()]() mutable {
        StringUtils::ToWideString(text, wide);
        benchmark::DoNotOptimize(wide.data());
    });
    Measure(("kz steps UTF-8 to 32 " + name).c_str(), [text, out = std::vector<uInt32>(kBytes)]() mutable {
        const unsigned char* at = reinterpret_cast<const unsigned char*>(text.data());
        const unsigned char* const end = at + text.size();
        uInt32* target = out.data();
        while (at < end) {
            *target++ = ConvertUTF8toUTF32(&at, end);
        }
        benchmark::DoNotOptimize(target);
    });
    Measure(("iconv UTF-8 to 32 " + name).c_str(),
            [text, out = std::vector<char>(4 * kBytes), converter = iconv_open("UTF-32LE", "UTF-8")]() mutable {
                benchmark::DoNotOptimize(Convert(converter, text.data(), text.size(), out.data(), out.size()));
            });
    Measure(("iconv opened UTF-8 to 32 " + name).c_str(), [text, out = std::vector<char>(4 * kBytes)]() mutable {
        const iconv_t converter = iconv_open("UTF-32LE", "UTF-8");
        benchmark::DoNotOptimize(Convert(converter, text.data(), text.size(), out.data(), out.size()));
        iconv_close(converter);
    });
    Measure(("glib UTF-8 to 32 " + name).c_str(), [text] {
        g_free(g_utf8_to_ucs4(text.data(), static_cast<glong>(text.size()), nullptr, nullptr, nullptr));
    });
}

void MeasureEncoding(const std::string& name, const std::string& text)
{
    const std::wstring wide = StringUtils::ToWideString(text);
    Measure(("kz UTF-32 to 8 " + name).c_str(), [wide, out = std::string()]() mutable {
        StringUtils::ToUTF8String(wide, out);
        benchmark::DoNotOptimize(out.data());
    });
    const std::vector<uInt32> values(wide.begin(), wide.end());
    Measure(("kz block UTF-32 to 8 " + name).c_str(), [values, out = std::vector<unsigned char>(4 * kBytes)]() mutable {
        const uInt32* source = values.data();
        unsigned char* target = out.data();
        ConvertUTF32toUTF8(&source, source + values.size(), &target, target + out.size());
        benchmark::DoNotOptimize(target);
    });
    Measure(("iconv UTF-32 to 8 " + name).c_str(),
            [wide, out = std::vector<char>(4 * kBytes), converter = iconv_open("UTF-8", "UTF-32LE")]() mutable {
                benchmark::DoNotOptimize(Convert(converter, reinterpret_cast<const char*>(wide.data()),
                                                 wide.size() * sizeof(wchar_t), out.data(), out.size()));
            });
    Measure(("glib UTF-32 to 8 " + name).c_str(), [values] {
        g_free(g_ucs4_to_utf8(values.data(), static_cast<glong>(values.size()), nullptr, nullptr, nullptr));
    });
}

void MeasureCase(const std::string& name, const std::string& text)
{
    Measure(("kz upper " + name).c_str(), [text, out = std::string(3 * kBytes, '\0')]() mutable {
        PlatformText upper;
        upper.SetUtf8(reinterpret_cast<const unsigned char*>(text.data()), text.size());
        upper.Upper();
        benchmark::DoNotOptimize(
            upper.GetUtf8(0, upper.Length(), reinterpret_cast<unsigned char*>(out.data()), out.size()));
    });
    Measure(("glib upper " + name).c_str(),
            [text] { g_free(g_utf8_strup(text.data(), static_cast<gssize>(text.size()))); });
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string ascii = Repeated("The quick brown fox jumps over the lazy dog. ");
    const std::string mixed = Repeated(
        "Gr\xC3\xB6\xC3\x9F"
        "e \xE6\xBC\xA2\xE5\xAD\x97 "
        "\xCE\xBB\xCF\x8C\xCE\xB3\xCE\xBF\xCF\x82 \xF0\x9D\x84\x9E 12 \xE2\x82\xAC, ");
    std::vector<kzbench::Row> rows;
    const auto add = [&](const std::string& work, double times, const std::string& peer) {
        rows.push_back(Faster(work, "kz " + work, times, peer + " " + work));
    };
    for (const auto& [name, text] : {std::pair{"mixed", &mixed}, std::pair{"ASCII", &ascii}}) {
        MeasureDecoding(name, *text);
        MeasureEncoding(name, *text);
        MeasureCase(name, *text);
    }
    add("UTF-8 to 32 mixed", 2, "iconv");
    add("UTF-8 to 32 ASCII", 10, "iconv");  // no step for each character
    for (const std::string name : {"mixed", "ASCII"}) {
        add("UTF-8 to 32 " + name, 2, "iconv opened");
        add("UTF-8 to 32 " + name, 1, "glib");
        rows.push_back(
            Faster("steps UTF-8 to 32 " + name, "kz steps UTF-8 to 32 " + name, 0.5, "iconv UTF-8 to 32 " + name));
        rows.push_back(AtMost("UTF-32 to 8 " + name, "kz UTF-32 to 8 " + name, 1.2, "iconv UTF-32 to 8 " + name));
        rows.push_back(
            Faster("block UTF-32 to 8 " + name, "kz block UTF-32 to 8 " + name, 1, "iconv UTF-32 to 8 " + name));
        add("upper " + name, 1, "glib");
    }
    return kzbench::RunWithGoals(argc, argv, rows);
}
