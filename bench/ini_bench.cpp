// INI text in memory: read, looked up, changed and written, beside the readers that a user would pick instead.
#define SI_NO_CONVERSION  // bytes, as they are
#include <SimpleIni.h>
#include <glib.h>
#include <ini.h>
#include <malloc.h>

#include <algorithm>
#include <boost/property_tree/ini_parser.hpp>
#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Harness.h"
#include "IniFile.h"

namespace {

using kzbench::AtMost;
using kzbench::Faster;
using kzbench::Measure;

constexpr int kItems = 32000;
constexpr int kProbes = 4096;

struct FreeKeyFile {
    void operator()(GKeyFile* file) const { g_key_file_free(file); }
};
using KeyFile = std::unique_ptr<GKeyFile, FreeKeyFile>;

struct DisposeIni {
    void operator()(IniFile* ini) const { IniDispose(ini); }
};
using IniOwner = std::unique_ptr<IniFile, DisposeIni>;

// A text of 32,000 items, and names to look up in it.
struct Shape {
    std::string name;
    std::string text;
    std::vector<std::pair<std::string, std::string>> probes;
};

Shape MakeShape(std::string name, int sections)
{
    Shape shape{std::move(name), {}, {}};
    std::vector<std::pair<std::string, std::string>> names;
    for (int i = 0; i < kItems; ++i) {
        const int perSection = kItems / sections;
        const std::string section = "section" + std::to_string(i / perSection);
        if (i % perSection == 0) {
            shape.text += "[" + section + "]\n";
        }
        const std::string key = "someKeyName" + std::to_string(i % perSection);
        shape.text += key + "=value " + std::to_string(i) + "\n";
        names.emplace_back(section, key);
    }
    std::shuffle(names.begin(), names.end(), std::minstd_rand(1));
    shape.probes.assign(names.begin(), names.begin() + kProbes);
    return shape;
}

IniOwner ReadOurs(const Shape& shape)
{
    struct Source {
        const char* at;
        std::size_t left;
        static int Read(void* context, int size, int* actual, void* buffer)
        {
            auto* const self = static_cast<Source*>(context);
            const std::size_t part = std::min(self->left, static_cast<std::size_t>(size));
            std::memcpy(buffer, self->at, part);
            self->at += part;
            self->left -= part;
            *actual = static_cast<int>(part);
            return 1;
        }
    };
    Source source{shape.text.data(), shape.text.size()};
    IniLineInput input{};
    input.read = &Source::Read;
    input.context = &source;
    IniOwner ini(IniNew(0));
    if (IniRead(ini.get(), &IniLineFileInputFunction, &input) != 1) {
        std::exit(1);
    }
    IniSetWriteOptions(ini.get(), -1, 0, 0);
    return ini;
}

KeyFile ReadKeyFile(const Shape& shape)
{
    KeyFile file(g_key_file_new());
    if (!g_key_file_load_from_data(file.get(), shape.text.data(), shape.text.size(), G_KEY_FILE_NONE, nullptr)) {
        std::exit(1);
    }
    return file;
}

std::unique_ptr<CSimpleIniA> ReadSimpleIni(const Shape& shape)
{
    auto ini = std::make_unique<CSimpleIniA>(true, false, false);
    if (ini->LoadData(shape.text) != SI_OK) {
        std::exit(1);
    }
    return ini;
}

void MeasureParse(const Shape& shape)
{
    const std::string& name = shape.name;
    Measure(("kz parse " + name).c_str(), [&] { benchmark::DoNotOptimize(ReadOurs(shape).get()); });
    Measure(("GKeyFile parse " + name).c_str(), [&] { benchmark::DoNotOptimize(ReadKeyFile(shape).get()); });
    Measure(("SimpleIni parse " + name).c_str(), [&] { benchmark::DoNotOptimize(ReadSimpleIni(shape).get()); });
    Measure(("inih parse " + name).c_str(), [&] {
        const auto count = [](void* sum, const char*, const char*, const char*) { return ++*static_cast<int*>(sum); };
        int items = 0;
        ini_parse_string(shape.text.c_str(), count, &items);
        if (items != kItems) {
            std::exit(1);
        }
    });
    Measure(("boost parse " + name).c_str(), [&] {
        std::istringstream in(shape.text);
        boost::property_tree::ptree tree;
        boost::property_tree::read_ini(in, tree);
        benchmark::DoNotOptimize(tree);
    });
}

// One operation on the next of the names.
template <typename Operation>
void MeasureEach(const std::string& name, const Shape& shape, Operation operation)
{
    Measure(name.c_str(), [&shape, operation, i = std::size_t{0}]() mutable {
        const auto& [section, key] = shape.probes[i];
        operation(section.c_str(), key.c_str());
        i = i + 1 == shape.probes.size() ? 0 : i + 1;
    });
}

void MeasureUse(const Shape& shape)
{
    static std::vector<IniOwner> sOurs;
    static std::vector<KeyFile> sKeyFiles;
    static std::vector<std::unique_ptr<CSimpleIniA>> sSimpleInis;
    sOurs.push_back(ReadOurs(shape));
    sKeyFiles.push_back(ReadKeyFile(shape));
    sSimpleInis.push_back(ReadSimpleIni(shape));
    IniFile* const ours = sOurs.back().get();
    GKeyFile* const keyFile = sKeyFiles.back().get();
    CSimpleIniA* const simple = sSimpleInis.back().get();

    MeasureEach("kz look-up " + shape.name, shape, [ours](const char* section, const char* key) {
        const char* value = nullptr;
        if (IniGetPointerToRawString(ours, section, key, &value) != 1) {
            std::exit(1);
        }
        benchmark::DoNotOptimize(value);
    });
    MeasureEach("GKeyFile look-up " + shape.name, shape, [keyFile](const char* section, const char* key) {
        g_free(g_key_file_get_value(keyFile, section, key, nullptr));
    });
    MeasureEach("SimpleIni look-up " + shape.name, shape, [simple](const char* section, const char* key) {
        benchmark::DoNotOptimize(simple->GetValue(section, key));
    });
    MeasureEach("kz put " + shape.name, shape,
                [ours](const char* section, const char* key) { IniPutString(ours, section, key, "another value"); });
    MeasureEach("GKeyFile put " + shape.name, shape, [keyFile](const char* section, const char* key) {
        g_key_file_set_string(keyFile, section, key, "another value");
    });
    MeasureEach("SimpleIni put " + shape.name, shape,
                [simple](const char* section, const char* key) { simple->SetValue(section, key, "another value"); });
    Measure(("kz write " + shape.name).c_str(), [ours] {
        std::string text;
        const auto append = [](void* out, const char* line) {
            static_cast<std::string*>(out)->append(line).push_back('\n');
            return 1;
        };
        IniWrite(ours, append, &text);
        benchmark::DoNotOptimize(text);
    });
    Measure(("GKeyFile write " + shape.name).c_str(),
            [keyFile] { g_free(g_key_file_to_data(keyFile, nullptr, nullptr)); });
    Measure(("SimpleIni write " + shape.name).c_str(), [simple] {
        std::string text;
        simple->Save(text);
        benchmark::DoNotOptimize(text);
    });
}

// The look-ups of one section only.
void MeasureRun(const Shape& shape)
{
    static Shape sRun = shape;
    sRun.name = "in one section";
    for (auto& probe : sRun.probes) {
        probe.first = "section7";
    }
    static const IniOwner sOurs = ReadOurs(shape);
    static const KeyFile sKeyFile = ReadKeyFile(shape);
    MeasureEach("kz look-up " + sRun.name, sRun, [](const char* section, const char* key) {
        const char* value = nullptr;
        IniGetPointerToRawString(sOurs.get(), section, key, &value);
        benchmark::DoNotOptimize(value);
    });
    MeasureEach("GKeyFile look-up " + sRun.name, sRun, [](const char* section, const char* key) {
        g_free(g_key_file_get_value(sKeyFile.get(), section, key, nullptr));
    });
}

// 32,000 edits of one list, with what undoes them.
void MeasureEdits(const Shape& longShape)
{
    static std::vector<std::string> sNames;
    static const Shape sSections = MakeShape("32000 x 1", kItems);
    static const IniOwner sItems = ReadOurs(longShape);
    static const IniOwner sMany = ReadOurs(sSections);
    static const IniOwner sSorted(IniNew(1));
    for (int i = 0; i < kItems; ++i) {
        sNames.push_back("someKeyName" + std::to_string(i));
    }
    const auto expect = [](int result) {
        if (result != 1) {
            std::exit(1);
        }
    };
    Measure("kz remove from the front and put", [expect] {
        for (const std::string& name : sNames) {
            expect(IniRemoveItem(sItems.get(), "section0", name.c_str()));
        }
        for (const std::string& name : sNames) {
            expect(IniPutInt(sItems.get(), "section0", name.c_str(), 1));
        }
    });
    Measure("kz rename sections", [expect, isFirst = true]() mutable {
        for (int i = 0; i < kItems; ++i) {
            const std::string name = std::to_string(i);
            const std::string from = (isFirst ? "section" : "other") + name;
            expect(IniRenameSection(sMany.get(), from.c_str(), ((isFirst ? "other" : "section") + name).c_str()));
        }
        isFirst = !isFirst;
    });
    Measure("kz put in order and remove", [expect] {
        for (int i = 0; i < kItems; ++i) {
            expect(IniPutInt(sSorted.get(), "s", sNames[static_cast<std::size_t>(i) * 7919 % kItems].c_str(), 1));
        }
        for (const std::string& name : sNames) {
            expect(IniRemoveItem(sSorted.get(), "s", name.c_str()));
        }
    });
}

// The heap's growth by what a function makes.
template <typename Make>
double BytesOf(Make make)
{
    const std::size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
    const auto made = make();
    return static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd - before) / kItems;
}

}  // namespace

int main(int argc, char** argv)
{
    static const Shape sWide = MakeShape("500 x 64", 500);
    static const Shape sLong = MakeShape("1 x 32000", 1);
    const double ourBytes = BytesOf([] { return ReadOurs(sLong); });
    const double peerBytes = BytesOf([] { return ReadKeyFile(sLong); });
    std::vector<kzbench::Row> rows;
    for (const Shape* shape : {&sWide, &sLong}) {
        MeasureParse(*shape);
        MeasureUse(*shape);
        const std::string& name = shape->name;
        const auto add = [&](std::string work, double times, const std::string& peer) {
            work += " " + name;
            rows.push_back(Faster("INI " + work, "kz " + work, times, peer + " " + work));
        };
        add("parse", 3, "GKeyFile");
        add("parse", 3, "SimpleIni");
        add("parse", 1, "inih");
        add("parse", 1, "boost");
        add("look-up", 1, "GKeyFile");
        add("look-up", 3, "SimpleIni");
        add("put", 1 / 0.7, "GKeyFile");
        add("put", 1, "SimpleIni");
        add("write", 2, "GKeyFile");
        add("write", 1, "SimpleIni");
    }
    MeasureRun(sWide);
    rows.push_back(
        Faster("INI look-up in one section", "kz look-up in one section", 1.5, "GKeyFile look-up in one section"));
    MeasureEdits(sLong);
    for (const char* const edits : {"remove from the front and put", "rename sections", "put in order and remove"}) {
        constexpr double kMost = 200e6;
        rows.push_back({std::string("INI 32,000 times ") + edits, std::string("kz ") + edits, "< 200 ms",
                        [](const kzbench::Medians&) { return kMost; }});
    }
    rows.push_back(AtMost("INI parse, growth", "kz parse 1 x 32000", 1.5, "kz parse 500 x 64"));
    rows.push_back(AtMost("INI look-up, growth", "kz look-up 1 x 32000", 2, "kz look-up 500 x 64"));
    rows.push_back(AtMost("INI memory of an item", "kz bytes", 1, "GKeyFile bytes"));
    rows.back().unit = "B";
    return kzbench::RunWithGoals(argc, argv, rows, [&](kzbench::Medians& medians) {
        medians.Add("kz bytes", ourBytes);
        medians.Add("GKeyFile bytes", peerBytes);
    });
}
