// INI objects against models: random edits with and without memory, what they cost, and the text format's cuts, limits
// and texts that are made to be slow.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "FaultLoop.h"
#include "IniChecks.h"
#include "IniFile.h"
#include "IniModel.h"

namespace {

using kztest::CheckedIni;
using kztest::ContentOf;
using kztest::FailAllocation;
using kztest::Items;
using kztest::Lines;
using kztest::LinesOf;
using kztest::NewIni;
using kztest::Reading;
using kztest::ReadText;
using kztest::Sections;
using kztest::TextOf;

struct Section {
    std::string first;  // the name
    Items second;
    bool isSorted;
};

// The same random edits and look-ups of an object and of plain lists.
class Editing {
public:
    explicit Editing(unsigned seed) : m_random(seed + 1)
    {
        m_isSorted = Below(2) == 0;
        m_names = Below(2) == 0 ? 3 : 30;
        m_ini = NewIni(m_isSorted ? 1 : 0);
    }

    // Whether there was memory to begin with.
    bool isGood() const { return m_ini != nullptr; }

    void Step()
    {
        using E = Editing;
        void (Editing::*const edits[])(const char*, const char*) = {
            &E::Put,    &E::Put, &E::Put,        &E::Put,         &E::Put,        &E::Put,
            &E::Put,    &E::Put, &E::RemoveItem, &E::RemoveItem,  &E::RemoveItem, &E::RemoveSection,
            &E::Rename, &E::Set, &E::LookByName, &E::LookByNumber};
        const std::string section = Name('s', m_names);
        (this->*edits[Below(std::size(edits))])(section.c_str(), Name('t', 40).c_str());
    }

    void Check() const
    {
        Sections content;
        for (const Section& section : m_sections) {
            content.emplace_back(section.first, section.second);
        }
        EXPECT_EQ(content, ContentOf(m_ini.get()));
    }

private:
    unsigned Below(std::size_t n) { return static_cast<unsigned>((m_random() >> 8) % n); }

    std::string Name(char letter, unsigned n)
    {
        const char c = Below(4) == 0 ? qkini::ToUpper(letter) : letter;
        return c + std::to_string(Below(n));
    }

    std::string Key(std::string name) const
    {
        std::transform(name.begin(), name.end(), name.begin(),
                       [&](char c) { return m_caseSensitive ? c : qkini::ToUpper(c); });
        return name;
    }

    template <typename List>
    auto In(List* list, const std::string& name) const
    {
        const auto found = std::find_if(list->begin(), list->end(),
                                        [&](const auto& element) { return Key(element.first) == Key(name); });
        return found == list->end() ? nullptr : &*found;
    }

    auto IsBefore() const
    {
        return [this](const auto& a, const auto& b) { return Key(a.first) < Key(b.first); };
    }

    template <typename List>
    auto Add(List* list, typename List::value_type element, bool inOrder) const
    {
        const auto place = inOrder ? std::upper_bound(list->begin(), list->end(), element, IsBefore()) : list->end();
        return &*list->insert(place, std::move(element));
    }

    // Of several sections with a name the current one is meant.
    Section* Find(const std::string& name)
    {
        const bool isCurrent = m_current != nullptr && Key(m_current->first) == Key(name);
        Section* const found = isCurrent ? m_current : In(&m_sections, name);
        m_current = found != nullptr ? found : m_current;
        return found;
    }

    Items::value_type* Find(const char* section, const char* tag)
    {
        Section* const owner = Find(section);
        return owner == nullptr ? nullptr : In(&owner->second, tag);
    }

    bool Expect(const void* found, int result) const
    {
        EXPECT_EQ(found != nullptr ? 1 : 0, result);
        return found != nullptr;
    }

    // Without memory nothing has changed, but for which section is the current one.
    static bool IsDone(int result) { return result != kIniErrMemory || !FailAllocation::Happened(); }

    void Put(const char* section, const char* tag)
    {
        const std::string value = std::to_string(++m_values);
        const std::string spaced[] = {" " + std::string(section), std::string(tag) + "\t"};
        const int result =
            IniPutStringWithOptions(m_ini.get(), spaced[0].c_str(), spaced[1].c_str(), value.c_str(), 0, 0);
        if (!IsDone(result)) {
            m_current = nullptr;
            return;
        }
        EXPECT_EQ(1, result);
        if (Find(section) == nullptr) {
            m_current = Add(&m_sections, {section, {}, m_isSorted}, m_isSorted);
        }
        Items::value_type* const found = m_mergesDuplicates ? Find(section, tag) : nullptr;
        if (found != nullptr) {
            found->second = value;
        } else {
            Add(&m_current->second, {tag, value}, m_current->isSorted);
        }
    }

    void RemoveItem(const char* section, const char* tag)
    {
        const auto* const found = Find(section, tag);
        if (Expect(found, IniRemoveItem(m_ini.get(), section, tag))) {
            m_current->second.erase(m_current->second.begin() + (found - m_current->second.data()));
        }
    }

    void RemoveSection(const char* section, const char*)
    {
        const Section* const found = Find(section);
        if (Expect(found, IniRemoveSection(m_ini.get(), section))) {
            m_sections.erase(m_sections.begin() + (found - m_sections.data()));
            m_current = nullptr;
        }
    }

    void Rename(const char* from, const char*)
    {
        const std::string to = Name('s', m_names);
        const int result = IniRenameSection(m_ini.get(), from, to.c_str());
        Section* const found = Find(from);
        if (IsDone(result) && Expect(found, result)) {
            found->first = to;
        }
    }

    void LookByName(const char* section, const char* tag)
    {
        const auto* const found = Find(section, tag);
        const char* value = nullptr;
        EXPECT_TRUE(!Expect(found, IniGetPointerToRawString(m_ini.get(), section, tag, &value)) ||
                    value == found->second);
        Expect(In(&m_sections, section), IniSectionExists(m_ini.get(), section));
    }

    // At either end of what there is, and of what an int holds.
    void LookByNumber(const char* section, const char*)
    {
        const Section* const owner = Find(section);
        const int count = IniNumberOfItems(m_ini.get(), section);
        EXPECT_EQ(owner == nullptr ? 0u : owner->second.size(), static_cast<unsigned>(count));
        const int numbers[] = {INT_MIN, -1, 0, 1, count / 2, count, count + 1, INT_MAX};
        const int number = numbers[Below(std::size(numbers))];
        const char* out = nullptr;
        if (number < 1 || number > count) {
            EXPECT_EQ(0, IniNthItemName(m_ini.get(), section, number, &out));
            return;
        }
        EXPECT_EQ(1, IniNthItemName(m_ini.get(), section, number, &out));
        EXPECT_EQ(owner->second[static_cast<unsigned>(number) - 1].first, out);
        EXPECT_EQ(1, IniNthItemPointerToString(m_ini.get(), section, number, &out));
        EXPECT_EQ(owner->second[static_cast<unsigned>(number) - 1].second, out);
    }

    void Set(const char* section, const char*)
    {
        const unsigned kind = Below(8);
        if (kind < 3) {
            m_mergesDuplicates = !m_mergesDuplicates;
            IniSetDuplicateChecking(m_ini.get(), m_mergesDuplicates ? 1 : 0);
        } else if (kind < 6) {
            m_caseSensitive = !m_caseSensitive;
            IniSetCaseAndWhitespaceSensitiveChecking(m_ini.get(), m_caseSensitive ? 1 : 0);
        } else if (kind < 7) {
            EXPECT_EQ(1, IniSortSectionList(m_ini.get()));
            std::stable_sort(m_sections.begin(), m_sections.end(), IsBefore());
            m_isSorted = true;
            m_current = nullptr;
        } else {
            Section* const found = Find(section);
            if (Expect(found, IniSortSection(m_ini.get(), section))) {
                std::stable_sort(found->second.begin(), found->second.end(), IsBefore());
                found->isSorted = true;
            }
        }
    }

    std::minstd_rand m_random;
    CheckedIni m_ini;
    bool m_isSorted;
    bool m_mergesDuplicates = true;
    bool m_caseSensitive = false;
    unsigned m_names;  // of sections
    std::vector<Section> m_sections{};
    Section* m_current = nullptr;
    int m_values = 0;
};

// Whether there was memory to begin with.
bool Edits(unsigned seed, int steps)
{
    Editing editing(seed);
    for (int step = 0; editing.isGood() && step < steps; ++step) {
        editing.Step();
        if (step % 50 == 49) {
            editing.Check();
        }
    }
    return editing.isGood();
}

TEST(IniEdits, RandomSequencesAgainstAModel)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences() && !HasFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "sequence " << seed);
        EXPECT_TRUE(Edits(seed, 200));
    }
}

TEST(IniEdits, OutOfMemory)
{
    for (unsigned seed = 0; seed < 8; ++seed) {
        kztest::FaultLoop([&](auto failed) { EXPECT_TRUE(Edits(seed, 150) || failed()); }, FailAllocation::kBlocks);
    }
}

// A pattern so many times, with the number of each for its "#".
std::string Repeated(int count, const std::string& pattern)
{
    std::string text = "[s]\n";
    for (int i = 0; i < count; ++i) {
        for (const char c : pattern) {
            text += c == '#' ? std::to_string(i) : std::string(1, c);
        }
    }
    return text;
}

using Edit = int (*)(IniFile*, const char*);
const Edit kPut = [](IniFile* ini, const char* name) { return IniPutInt(ini, "s", name, 1); };
const Edit kPutSection = [](IniFile* ini, const char* name) { return IniPutInt(ini, name, "t", 1); };
const Edit kRemove = [](IniFile* ini, const char* name) { return IniRemoveItem(ini, "s", name); };
const Edit kToOne = [](IniFile* ini, const char* name) { return IniRenameSection(ini, name, "one"); };
const Edit kShorten = [](IniFile* ini, const char* name) { return IniRenameSection(ini, name, name + 1); };

// Each edit of a list of 32,000 takes a bounded number of steps.
TEST(IniEdits, CostIsLinear)
{
    constexpr int kCount = 32000;
    constexpr std::size_t kStepsForOne = 2000;
    using Names = std::vector<std::string>;
    const std::string items = Repeated(kCount, ";about\nn#=v\n");
    const std::string sections = Repeated(kCount, ";about\n[n#]\n");
    Names up;
    for (int i = 0; i < kCount; ++i) {
        up.push_back("n" + std::to_string(i));
    }
    const Names down(up.rbegin(), up.rend());
    const Names one(kCount, "one");
    Names mixed = up;
    std::shuffle(mixed.begin(), mixed.end(), std::minstd_rand(1));
    const struct {
        int line;
        const std::string& text;
        int sorted;
        std::vector<std::pair<Edit, const Names&>> edits;
    } rows[] = {
        {__LINE__, items, 0, {{kRemove, up}}},
        {__LINE__, items, 0, {{kRemove, down}, {kPut, down}}},
        {__LINE__, items, 0, {{kRemove, mixed}, {kPut, mixed}}},
        {__LINE__, sections, 0, {{IniRemoveSection, up}}},
        {__LINE__, sections, 1, {{kShorten, up}}},
        {__LINE__, sections, 0, {{kToOne, down}, {IniRemoveSection, one}}},
        {__LINE__, sections, 0, {{kToOne, mixed}, {IniRemoveSection, one}}},
        {__LINE__, "", 1, {{kPut, mixed}, {kRemove, mixed}}},
        {__LINE__, "", 1, {{kPutSection, down}, {IniRemoveSection, down}}},
        {__LINE__, "", 1, {{kPut, one}, {kRemove, one}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const CheckedIni ini = NewIni(row.sorted);
        IniSetReadOptions(ini.get(), kIniReadKeepComments);
        IniSetDuplicateChecking(ini.get(), 0);
        ASSERT_EQ(1, ReadText(ini.get(), row.text));
        for (const auto& [edit, names] : row.edits) {
            const std::size_t before = qkini::g_steps;
            for (const std::string& name : names) {
                ASSERT_EQ(1, edit(ini.get(), name.c_str()));
            }
            EXPECT_LE((qkini::g_steps - before) / kCount, kStepsForOne);
        }
    }
}

// Each damage is its own repair.
TEST(IniEdits, WalkerSeesDamage)
{
    const CheckedIni ini = NewIni();
    IniSetDuplicateChecking(ini.get(), 0);
    ASSERT_EQ(1, ReadText(ini.get(), "[z]\na=1\n[s]\n" + TextOf(Lines(20, "c=2")) + "b=3\n[e]\n"));
    IniSection* const section = qkini::SectionAt(ini.get(), 1);
    ASSERT_EQ(1, IniItemExists(ini.get(), "s", "b")) << "makes the index";
    IniItem* const item = qkini::ItemAt(section, 20);
    IniSection other{};
    IniSection* current = &other;
    char* value = nullptr;
    const std::vector<std::function<void()>> damages = {
        [&] { ini->trailingComments ^= 99; },
        [&] { ini->comments.Reserve(1), item->comments ^= 1; },
        [&] { std::swap(ini->currentSection, current); },
        [&] { std::swap(ini->arena.at, ini->arena.end); },
        [&] { std::swap(item->value, value); },
        [&] { item->ownsName = !item->ownsName; },
        [&] { *item->name ^= 1; },
        [&] { item->leaf ^= 1; },
        [&] { section->items.order.count ^= 1; },
        [&] { section->items.order.last ^= 1; },
        [&] { section->items.used ^= 1; },
        [&] { qkini::SectionAt(ini.get(), 2)->items.order.last ^= 1; },
        [&] { section->items.isInOrder = !section->items.isInOrder; },
    };
    for (std::size_t i = 0; i < damages.size(); ++i) {
        EXPECT_STREQ(nullptr, qkini::Fault(ini.get()));
        damages[i]();
        EXPECT_STRNE(nullptr, qkini::Fault(ini.get())) << i;
        damages[i]();
    }
}

// Whether a value can be cut into pieces of at most `room` bytes so that a reader of pieces without quotes gets it
// back.
bool HasLosslessCut(const std::string& value, std::size_t room)
{
    std::vector<bool> canCut(value.size() + 1);  // what is in front of each place
    canCut[0] = true;
    for (std::size_t from = 0; from < value.size(); ++from) {
        for (std::size_t size = 1; canCut[from] && size <= std::min(room, value.size() - from); ++size) {
            const char first = value[from];
            const char last = value[from + size - 1];
            const bool isStripped = size > 1 && first == last && (first == '"' || first == '\'');
            canCut[from + size] = canCut[from + size] || (first != ' ' && last != ' ' && !isStripped);
        }
    }
    return canCut[value.size()];
}

// Writes a value with room for so many of its bytes in a line. Returns whether it was read back equal, which it is in
// quotes, and without them wherever that can be.
bool IsReadBack(const std::string& value, int room, int breakChar, bool quoted)
{
    const CheckedIni ini = NewIni();
    const int width = room + (quoted ? 15 : 13);
    IniSetWriteOptions(ini.get(), width, breakChar, 0);
    EXPECT_EQ(1, IniPutStringWithOptions(ini.get(), "s", "t", value.c_str(), quoted, 0));
    const Lines lines = LinesOf(ini.get());
    const auto isLonger = [&](const std::string& line) { return line.size() > static_cast<std::size_t>(width); };
    EXPECT_TRUE(std::none_of(lines.begin(), lines.end(), isLonger));
    const int readOptions = kIniReadStripDoubleQuotes | kIniReadStripSingleQuotes;
    const bool isEqual = ContentOf(ini.get()) == ContentOf(Reading(TextOf(lines), readOptions).get());
    const bool isWhole = value.size() + (quoted ? 4 : 2) <= static_cast<std::size_t>(width);
    EXPECT_EQ(isWhole ? 3 : 4, std::min<std::size_t>(lines.size(), 4)) << "lines of a value that is whole or cut";
    EXPECT_EQ(isEqual, quoted || isWhole || HasLosslessCut(value, static_cast<std::size_t>(room)));
    return isEqual;
}

// Values whose cuts could lose something, and all that start or end with up to five hostile bytes.
TEST(IniFormat, AValueIsCutWithoutLossIfItCanBe)
{
    std::vector<std::string> values = {
        "plain text without anything special in it that goes on for a while",
        "a b  c   d    e     f      g       h        i         j          k",
        "one, two, three, four, five, six, seven, eight, nine, ten, eleven,",
        "\"quoted\" and 'quoted' and \\\" escaped \\\\ \\n = [x] ; y Line0001=z",
        "pppppppppppppppppppp\"qqqqqqqqqqqqqqqqqq\"tail \"rrrrrrrrrrrrrrrr\"",
        "pppppppppppppppppppp'qqqqqqqqqqqqqqqqqq',\"\"\"\"\"\"\"\"\"end",
    };
    for (int number = 0; number < 1 << 11; ++number) {
        std::string part;
        for (int bits = number; bits > 1; bits >>= 2) {
            part += "a \"'"[bits & 3];
        }
        if (part.front() != ' ') {
            values.push_back(part + std::string(18, 'x'));
        }
        if (part.back() != ' ') {
            values.push_back("a" + std::string(18, 'x') + part);
        }
    }
    int losses = 0;
    for (const std::string& value : values) {
        for (int room = 1; room < (value.size() > 30 ? 75 : 6); ++room) {
            const int breakChar = "\0a, "[(value.size() + static_cast<unsigned>(room)) % 4];
            SCOPED_TRACE(testing::Message() << value << ", " << room << ", " << breakChar);
            losses += IsReadBack(value, room, breakChar, false) ? 0 : 1;
            IsReadBack(value, room, breakChar, true);
        }
    }
    EXPECT_GT(losses, 100);
}

// A host's input function that gives a text again and again, a whole line each time for "[s]", else never a line's end.
// After `left` calls it fails.
struct Source {
    const char* text;
    int left;

    static int Next(void* context, char* buffer, int, int* eof, int* complete, int* number)
    {
        auto* const self = static_cast<Source*>(context);
        *eof = 0;
        *complete = self->text[0] == '[' ? 1 : 0;
        *number = 1;
        std::strcpy(buffer, self->text);
        return self->left-- > 0 ? 1 : -77;
    }
};

// The function's own code ends the work, and what was read so far stays.
TEST(IniFormat, CodesOfTheCallersFunctions)
{
    const CheckedIni ini = NewIni();
    Source source{"[s]", 3};
    EXPECT_EQ(-77, IniRead(ini.get(), &Source::Next, &source));
    EXPECT_EQ(1, IniNumberOfSections(ini.get()));
    int calls = 0;
    const auto refuse = [](void* context, const char*) { return ++*static_cast<int*>(context) == 2 ? -78 : 1; };
    EXPECT_EQ(-78, IniWrite(ini.get(), refuse, &calls));
    EXPECT_EQ(2, calls);
    EXPECT_EQ(kIniErrFile, IniRead(ini.get(), nullptr, nullptr));
    EXPECT_EQ(kIniErrFile, IniWrite(ini.get(), nullptr, nullptr));
    char buffer[4];
    int outputs[3];
    IniLineInput input{};
    EXPECT_EQ(kIniErrRead, IniLineFileInputFunction(&input, buffer, 1, &outputs[0], &outputs[1], &outputs[2]));
}

// What it leaves then is in order in a sorted object.
TEST(IniFormat, AReadTakesNoMoreThanItsLimit)
{
    const std::string text = "[c]\r\nx=1\n\nb=2\na=2\r\n[b]\n" + std::string(600, 'z') + "\n[a]";
    for (std::size_t limit = 0; limit < text.size() + 3; ++limit) {
        for (const auto& [inOrder, piece] : {std::pair{0, 1u}, {0, 4096u}, {1, 4096u}}) {
            const CheckedIni ini = NewIni(inOrder);
            ASSERT_EQ(1, IniSetReadLimit(ini.get(), static_cast<long long>(limit)));
            ASSERT_EQ(limit < text.size() ? kIniErrMemory : 1, ReadText(ini.get(), text, piece)) << limit;
            ASSERT_EQ(limit < 4 ? 0 : limit < 23 ? 1 : limit < text.size() ? 2 : 3, IniNumberOfSections(ini.get()));
            const Sections left = ContentOf(ini.get());
            ASSERT_EQ(1, IniSort(ini.get()));
            ASSERT_TRUE(inOrder == 0 || left == ContentOf(ini.get())) << limit;
        }
    }
    for (const char* endless : {"[s]", "x", ""}) {  // of lines, of one line, or of nothing
        const CheckedIni ini = NewIni();
        Source source{endless, 1 << 30};
        EXPECT_EQ(1, IniSetReadLimit(ini.get(), 1000000));
        EXPECT_EQ(kIniErrMemory, IniRead(ini.get(), &Source::Next, &source)) << endless;
    }
}

TEST(IniFormat, StreamsThatLieAboutTheirSize)
{
    for (int told : {-1, INT_MIN, kIniInputChunk + 1, INT_MAX}) {
        const CheckedIni ini = NewIni();
        IniLineInput input{};
        input.context = &told;
        input.read = [](void* context, int, int* actual, void*) {
            *actual = *static_cast<int*>(context);
            return 1;
        };
        EXPECT_EQ(kIniErrRead, IniRead(ini.get(), &IniLineFileInputFunction, &input)) << told;
    }
}

// Sizes at which quadratic work would not end within the test's time.
TEST(IniFormat, HostileText)
{
    const std::string tags = Repeated(300000, "tag#=v\n");
    EXPECT_EQ(300000, IniNumberOfItems(Reading(tags).get(), "s"));
    EXPECT_EQ(300000, IniNumberOfItems(Reading(tags, 0, 1).get(), "s"));
    EXPECT_EQ(300001, IniNumberOfSections(Reading(Repeated(300000, "[#]\n")).get()));
    const CheckedIni parts = Reading(Repeated(100000, "#=" + std::string(60, 'v') + "\nend#=v\n# Line2=v\n"));
    IniSetWriteOptions(parts.get(), 40, 0, 0);
    EXPECT_EQ(300002u, LinesOf(parts.get()).size());
    EXPECT_EQ((Sections{{"s", {{"tag", "999999"}}}}), ContentOf(Reading(Repeated(1000000, "tag=#\n")).get()));
    EXPECT_EQ(1, IniNumberOfItems(Reading(Repeated(1000000, "x Line0001=\"#\"\n")).get(), "s")) << "before it is cut";
    const std::string huge(16 << 20, 'x');
    EXPECT_TRUE(ContentOf(Reading("[s]\nt=" + huge + "\n" + huge + "\n[" + huge + "]\n").get()) ==
                (Sections{{"s", {{"t", huge}}}, {huge, {}}}));
}

}  // namespace
