// Edits and look-ups of INI objects: random ones against a model, with memory and without it, and what they cost.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
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
using kztest::FailAllocation;
using kztest::NewIni;

// An object as plain vectors.
struct Model {
    struct Item {
        std::string name;
        std::string value;
    };
    struct Section {
        std::string name;
        bool isSorted;
        std::vector<Item> items;
    };
    bool isSorted = false;
    bool mergesDuplicates = true;
    bool caseSensitive = false;
    std::vector<Section> sections{};
    Section* current = nullptr;

    std::string Key(std::string name) const
    {
        std::transform(name.begin(), name.end(), name.begin(),
                       [&](char c) { return caseSensitive ? c : qkini::ToUpper(c); });
        return name;
    }

    template <typename List>
    auto Find(List* list, const std::string& name) const
    {
        const auto found = std::find_if(list->begin(), list->end(),
                                        [&](const auto& element) { return Key(element.name) == Key(name); });
        return found == list->end() ? nullptr : &*found;
    }

    template <typename List>
    auto Add(List* list, typename List::value_type element, bool inOrder) const
    {
        const auto isBehind = [&](const auto& added, const auto& other) { return Key(added.name) < Key(other.name); };
        const auto place = inOrder ? std::upper_bound(list->begin(), list->end(), element, isBehind) : list->end();
        return &*list->insert(place, std::move(element));
    }

    Section* Find(const std::string& name)
    {
        const bool isCurrent = current != nullptr && Key(current->name) == Key(name);
        Section* const found = isCurrent ? current : Find(&sections, name);
        current = found != nullptr ? found : current;
        return found;
    }

    Item* Find(const std::string& section, const std::string& tag)
    {
        Section* const owner = Find(section);
        return owner == nullptr ? nullptr : Find(&owner->items, tag);
    }

    void Put(const std::string& section, const std::string& tag, const std::string& value)
    {
        if (Find(section) == nullptr) {
            current = Add(&sections, {section, isSorted, {}}, isSorted);
        }
        Item* const found = mergesDuplicates ? Find(&current->items, tag) : nullptr;
        if (found != nullptr) {
            found->value = value;
        } else {
            Add(&current->items, {tag, value}, current->isSorted);
        }
    }

    int RemoveItem(const std::string& section, const std::string& tag)
    {
        const Item* const found = Find(section, tag);
        if (found != nullptr) {
            current->items.erase(current->items.begin() + (found - current->items.data()));
        }
        return found != nullptr ? 1 : 0;
    }

    int RemoveSection(const std::string& section)
    {
        const Section* const found = Find(section);
        if (found != nullptr) {
            sections.erase(sections.begin() + (found - sections.data()));
            current = nullptr;
        }
        return found != nullptr ? 1 : 0;
    }

    template <typename List>
    void Sort(List* list) const
    {
        std::stable_sort(list->begin(), list->end(),
                         [&](const auto& a, const auto& b) { return Key(a.name) < Key(b.name); });
    }

    kztest::Sections Content() const
    {
        kztest::Sections content;
        for (const Section& section : sections) {
            content.emplace_back(section.name, kztest::Items());
            for (const Item& item : section.items) {
                content.back().second.emplace_back(item.name, item.value);
            }
        }
        return content;
    }
};

// The element of that number, counted from 1, or null.
template <typename List>
auto Nth(const List& list, int number)
{
    return number < 1 || static_cast<std::size_t>(number) > list.size() ? nullptr
                                                                        : &list[static_cast<unsigned>(number) - 1];
}

// The same random edits and look-ups of an object and a model.
class Editing {
public:
    explicit Editing(unsigned seed) : m_random(seed + 1)
    {
        m_model.isSorted = Below(2) == 0;
        m_ini = NewIni(m_model.isSorted ? 1 : 0);
        m_sections = Below(2) == 0 ? 3 : 30;
    }

    // Whether there was memory to begin with.
    bool isGood() const { return m_ini != nullptr; }

    void Step(int number)
    {
        IniFile* const ini = m_ini.get();
        const std::string section = Name('s', m_sections);
        const std::string tag = Name('t', 40);
        switch (Below(18)) {
            case 0:
                return Expect(m_model.RemoveSection(section), IniRemoveSection(ini, section.c_str()));
            case 1:
            case 2:
            case 3:
                return Expect(m_model.RemoveItem(section, tag), IniRemoveItem(ini, section.c_str(), tag.c_str()));
            case 4:
                return Rename(section, Name('s', m_sections));
            case 5:
                return Below(4) == 0 ? Sort(section) : Set();
            case 6:
                return LookByName(section, tag);
            case 7:
                return LookByNumber(section);
            case 8:
                return Refuse(section, tag);
            default:
                return Put(section, tag, std::to_string(number));
        }
    }

    void Check() const { EXPECT_EQ(m_model.Content(), kztest::ContentOf(m_ini.get())); }

private:
    unsigned Below(unsigned n) { return static_cast<unsigned>(m_random() >> 8) % n; }

    std::string Name(char letter, unsigned n)
    {
        const char c = Below(4) == 0 ? qkini::ToUpper(letter) : letter;
        return c + std::to_string(Below(n));
    }

    // Without memory nothing has changed, but for which section is the current one.
    static bool IsDone(int result) { return result != kIniErrMemory || !FailAllocation::Happened(); }

    void Expect(int expected, int result) { EXPECT_EQ(expected, result); }

    void Put(const std::string& section, const std::string& tag, const std::string& value)
    {
        const int result =
            IniPutStringWithOptions(m_ini.get(), (" " + section).c_str(), (tag + "\t").c_str(), value.c_str(), 0, 0);
        if (IsDone(result)) {
            EXPECT_EQ(1, result);
            m_model.Put(section, tag, value);
        } else {
            m_model.current = nullptr;
        }
    }

    void Rename(const std::string& from, const std::string& to)
    {
        const int result = IniRenameSection(m_ini.get(), from.c_str(), to.c_str());
        Model::Section* const found = m_model.Find(from);
        if (IsDone(result)) {
            EXPECT_EQ(found != nullptr, result == 1);
            if (found != nullptr) {
                found->name = to;
            }
        }
    }

    void LookByName(const std::string& section, const std::string& tag)
    {
        const Model::Item* const found = m_model.Find(section, tag);
        const char* value = nullptr;
        Expect(found != nullptr ? 1 : 0, IniGetPointerToRawString(m_ini.get(), section.c_str(), tag.c_str(), &value));
        EXPECT_TRUE(found == nullptr || value == found->value);
    }

    // From 1, and at either end of what there is and of what an int holds.
    int Number(std::size_t count)
    {
        const int numbers[] = {INT_MIN, -1, 0, 1, static_cast<int>(count), static_cast<int>(count) + 1, INT_MAX};
        return Below(2) == 0 ? numbers[Below(std::size(numbers))] : static_cast<int>(Below(30));
    }

    void LookByNumber(const std::string& section)
    {
        const char* out = nullptr;
        int number = Number(m_model.sections.size());
        const Model::Section* const nth = Nth(m_model.sections, number);
        Expect(nth != nullptr ? 1 : 0, IniNthSectionName(m_ini.get(), number, &out));
        EXPECT_TRUE(nth == nullptr || out == nth->name);
        const Model::Section* const owner = m_model.Find(section);
        const std::vector<Model::Item> items = owner == nullptr ? std::vector<Model::Item>() : owner->items;
        Expect(static_cast<int>(items.size()), IniNumberOfItems(m_ini.get(), section.c_str()));
        number = Number(items.size());
        const Model::Item* const item = Nth(items, number);
        Expect(item != nullptr ? 1 : 0, IniNthItemName(m_ini.get(), section.c_str(), number, &out));
        EXPECT_TRUE(item == nullptr || out == item->name);
        Expect(item != nullptr ? 1 : 0, IniNthItemPointerToString(m_ini.get(), section.c_str(), number, &out));
        EXPECT_TRUE(item == nullptr || out == item->value);
    }

    // Names that could not be read back.
    void Refuse(const std::string& section, const std::string& tag)
    {
        const char* const names[] = {nullptr, "", " \t", "a\nb", "(null)", "a]b", "[a", ";a", "a=b", "a Line1"};
        const unsigned n = Below(std::size(names));
        if (n < 6) {
            Expect(kIniErrName, IniPutInt(m_ini.get(), names[n], tag.c_str(), 1));
        }
        if (n < 4 || n > 5) {
            Expect(kIniErrName, IniPutInt(m_ini.get(), section.c_str(), names[n], 1));
        }
        const bool isThere = m_model.Find(section) != nullptr;
        Expect(isThere ? 1 : 0, IniSectionExists(m_ini.get(), section.c_str()));
        Expect(isThere && n < 6 ? kIniErrName : 0,
               IniRenameSection(m_ini.get(), isThere && n < 6 ? section.c_str() : "none", names[n]));
    }

    void Sort(const std::string& section)
    {
        Model::Section* const found = m_model.Find(section);
        EXPECT_EQ(found != nullptr, IniSortSection(m_ini.get(), section.c_str()) == 1);
        if (found != nullptr) {
            m_model.Sort(&found->items);
            found->isSorted = true;
        } else {
            EXPECT_EQ(1, IniSortSectionList(m_ini.get()));
            m_model.Sort(&m_model.sections);
            m_model.isSorted = true;
            m_model.current = nullptr;
        }
    }

    void Set()
    {
        if (Below(2) == 0) {
            m_model.mergesDuplicates = !m_model.mergesDuplicates;
            IniSetDuplicateChecking(m_ini.get(), m_model.mergesDuplicates ? 1 : 0);
        } else {
            m_model.caseSensitive = !m_model.caseSensitive;
            IniSetCaseAndWhitespaceSensitiveChecking(m_ini.get(), m_model.caseSensitive ? 1 : 0);
        }
    }

    std::minstd_rand m_random;
    Model m_model;
    CheckedIni m_ini;
    unsigned m_sections = 0;
};

TEST(IniEdits, RandomSequencesAgainstAModel)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences(); ++seed) {
        SCOPED_TRACE(testing::Message() << "sequence " << seed);
        Editing editing(seed);
        for (int step = 0; step < 200; ++step) {
            editing.Step(step);
            if (step % 50 == 49) {
                editing.Check();
            }
        }
        if (testing::Test::HasFailure()) {
            return;
        }
    }
}

TEST(IniEdits, OutOfMemory)
{
    for (unsigned seed = 0; seed < 8; ++seed) {
        kztest::FaultLoop(
            [&](auto failed) {
                Editing editing(seed);
                for (int step = 0; editing.isGood() && step < 120; ++step) {
                    editing.Step(step);
                }
                EXPECT_TRUE(editing.isGood() || failed());
                if (editing.isGood()) {
                    editing.Check();
                }
            },
            FailAllocation::kBlocks);
    }
}

using Edit = int (*)(IniFile*, const char*);
const Edit kRemoveItem = [](IniFile* ini, const char* name) { return IniRemoveItem(ini, "s", name); };
const Edit kRemoveTwin = [](IniFile* ini, const char*) { return IniRemoveItem(ini, "s", "twin"); };
const Edit kRemoveOne = [](IniFile* ini, const char*) { return IniRemoveSection(ini, "one"); };
const Edit kToOne = [](IniFile* ini, const char* name) { return IniRenameSection(ini, name, "one"); };
const Edit kToNew = [](IniFile* ini, const char* name) {
    return IniRenameSection(ini, name, (std::string("m") + name).c_str());
};
const Edit kPut = [](IniFile* ini, const char* name) { return IniPutInt(ini, "s", name, 1); };
const Edit kPutTwin = [](IniFile* ini, const char*) { return IniPutInt(ini, "s", "twin", 1); };
const Edit kPutSection = [](IniFile* ini, const char* name) { return IniPutInt(ini, name, "t", 1); };

// Each edit of a list of 32,000 takes a bounded number of steps.
TEST(IniEdits, CostIsLinear)
{
    constexpr int kCount = 32000;
    constexpr std::size_t kStepsForOne = 2000;
    std::vector<std::string> names;
    std::string items = "[s]\n";
    std::string sections;
    for (int i = 0; i < kCount; ++i) {
        names.push_back("n" + std::to_string(i));
        items += ";about\n" + names.back() + "=v\n";
        sections += ";about\n[" + names.back() + "]\n";
    }
    std::vector<std::string> shuffled = names;
    std::shuffle(shuffled.begin(), shuffled.end(), std::minstd_rand(1));
    const std::vector<std::string> backward(names.rbegin(), names.rend());
    const struct {
        int line;
        const std::string& text;
        int sorted;
        const std::vector<std::string>& order;
        std::vector<Edit> edits;
    } rows[] = {
        {__LINE__, items, 0, names, {kRemoveItem}},
        {__LINE__, items, 0, backward, {kRemoveItem, kPut}},
        {__LINE__, items, 0, shuffled, {kRemoveItem, kPut}},
        {__LINE__, sections, 0, names, {IniRemoveSection}},
        {__LINE__, sections, 1, names, {kToNew}},
        {__LINE__, sections, 0, backward, {kToOne, kRemoveOne}},
        {__LINE__, sections, 0, shuffled, {kToOne, kRemoveOne}},
        {__LINE__, "", 1, shuffled, {kPut, kRemoveItem}},
        {__LINE__, "", 1, backward, {kPutSection, IniRemoveSection}},
        {__LINE__, "", 1, names, {kPutTwin, kRemoveTwin}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const CheckedIni ini = NewIni(row.sorted);
        IniSetReadOptions(ini.get(), kIniReadKeepComments);
        IniSetDuplicateChecking(ini.get(), 0);
        ASSERT_EQ(1, kztest::ReadText(ini.get(), row.text));
        for (const Edit& edit : row.edits) {
            const std::size_t before = qkini::g_steps;
            for (const std::string& name : row.order) {
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
    ASSERT_EQ(1,
              kztest::ReadText(ini.get(), "[z]\na=1\n[s]\n" + kztest::TextOf(kztest::Lines(20, "c=2")) + "b=3\n[e]\n"));
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

}  // namespace
