// Edits of INI objects: random ones against a model, what they cost, and what they leave without memory.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "FaultLoop.h"
#include "IniFile.h"
#include "IniModel.h"
#include "IniTesting.h"

namespace {

using kztest::FailAllocation;
using kztest::IniOwner;
using kztest::Items;
using kztest::NewIni;

// An object as plain vectors.
struct Model {
    struct Section {
        std::string name;
        bool isSorted;
        Items items;
    };
    bool isSorted = false;
    bool mergesDuplicates = true;
    bool caseSensitive = false;
    std::vector<Section> sections{};
    int current = -1;

    std::string Key(const std::string& name) const
    {
        std::string key = name;
        for (char& c : key) {
            c = caseSensitive ? c : qkini::ToUpper(c);
        }
        return key;
    }

    template <typename List, typename NameOf>
    int IndexOf(const List& list, const std::string& name, NameOf nameOf) const
    {
        const auto isIt = [&](const auto& element) { return Key(nameOf(element)) == Key(name); };
        const auto found = std::find_if(list.begin(), list.end(), isIt);
        return found == list.end() ? -1 : static_cast<int>(found - list.begin());
    }

    template <typename List, typename NameOf>
    int PlaceFor(const List& list, const std::string& name, bool inOrder, NameOf nameOf) const
    {
        const auto isBehind = [&](const std::string& key, const auto& element) { return key < Key(nameOf(element)); };
        const auto place = inOrder ? std::upper_bound(list.begin(), list.end(), Key(name), isBehind) : list.end();
        return static_cast<int>(place - list.begin());
    }

    static const std::string& NameOfSection(const Section& section) { return section.name; }
    static const std::string& NameOfItem(const Items::value_type& item) { return item.first; }

    Section* Find(const std::string& name)
    {
        const bool isCurrent = current >= 0 && Key(sections[static_cast<unsigned>(current)].name) == Key(name);
        const int found = isCurrent ? current : IndexOf(sections, name, NameOfSection);
        current = found >= 0 ? found : current;
        return found < 0 ? nullptr : &sections[static_cast<unsigned>(found)];
    }

    void Put(const std::string& section, const std::string& tag, const std::string& value)
    {
        if (Find(section) == nullptr) {
            current = PlaceFor(sections, section, isSorted, NameOfSection);
            sections.insert(sections.begin() + current, {section, isSorted, {}});
        }
        Section& owner = *Find(section);
        const int found = mergesDuplicates ? IndexOf(owner.items, tag, NameOfItem) : -1;
        if (found >= 0) {
            owner.items[static_cast<unsigned>(found)].second = value;
        } else {
            owner.items.insert(owner.items.begin() + PlaceFor(owner.items, tag, owner.isSorted, NameOfItem),
                               {tag, value});
        }
    }

    int RemoveItem(const std::string& section, const std::string& tag)
    {
        Section* const owner = Find(section);
        const int found = owner == nullptr ? -1 : IndexOf(owner->items, tag, NameOfItem);
        if (found >= 0) {
            owner->items.erase(owner->items.begin() + found);
        }
        return found >= 0 ? 1 : 0;
    }

    int RemoveSection(const std::string& section)
    {
        if (Find(section) == nullptr) {
            return 0;
        }
        sections.erase(sections.begin() + current);
        current = -1;
        return 1;
    }

    template <typename List, typename NameOf>
    void Sort(List* list, NameOf nameOf) const
    {
        std::stable_sort(list->begin(), list->end(),
                         [&](const auto& a, const auto& b) { return Key(nameOf(a)) < Key(nameOf(b)); });
    }

    kztest::Sections Content() const
    {
        kztest::Sections content;
        for (const Section& section : sections) {
            content.emplace_back(section.name, section.items);
        }
        return content;
    }
};

// What an object holds, also where several sections have a name.
kztest::Sections ContentOf(const IniFile* ini)
{
    kztest::Sections content;
    for (int i = 0; i < ini->sections.Count(); ++i) {
        const IniSection* const section = qkini::SectionAt(ini, i);
        Items items;
        for (int j = 0; j < section->items.Count(); ++j) {
            items.emplace_back(qkini::ItemAt(section, j)->name, qkini::ItemAt(section, j)->value);
        }
        content.emplace_back(section->name, std::move(items));
    }
    return content;
}

// The same random edits of an object and a model.
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
        switch (Below(16)) {
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
            default:
                return Put(section, tag, std::to_string(number));
        }
    }

    void Check() const
    {
        EXPECT_STREQ(nullptr, qkini::Fault(m_ini.get()));
        EXPECT_EQ(m_model.Content(), ContentOf(m_ini.get()));
    }

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
            m_model.current = -1;
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

    void Sort(const std::string& section)
    {
        Model::Section* const found = m_model.Find(section);
        EXPECT_EQ(found != nullptr, IniSortSection(m_ini.get(), section.c_str()) == 1);
        if (found != nullptr) {
            m_model.Sort(&found->items, Model::NameOfItem);
            found->isSorted = true;
        } else {
            EXPECT_EQ(1, IniSortSectionList(m_ini.get()));
            m_model.Sort(&m_model.sections, Model::NameOfSection);
            m_model.isSorted = true;
            m_model.current = -1;
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
    IniOwner m_ini;
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

// Of two sections of one name the first is found, unless the second is the current one.
TEST(IniEdits, AFailedPutForgetsTheCurrentSection)
{
    for (int n = 1; n < 5; ++n) {
        const IniOwner ini = NewIni();
        EXPECT_EQ(1, IniPutInt(ini.get(), "a", "t", 1));
        EXPECT_EQ(1, IniPutInt(ini.get(), "b", "t", 2));
        EXPECT_EQ(1, IniRenameSection(ini.get(), "b", "a"));
        int result = 0;
        {
            const FailAllocation fail(n);
            result = IniPutRawString(ini.get(), "a", "new", "v");
        }
        int value = 0;
        EXPECT_EQ(1, IniGetInt(ini.get(), "a", "t", &value));
        EXPECT_EQ(result == 1 ? 2 : 1, value) << "allocation " << n;
        EXPECT_TRUE(n > 1 || result == kIniErrMemory);
    }
}

std::vector<std::string> NumberedNames(int count)
{
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
        names.push_back("n" + std::to_string(i));
    }
    return names;
}

// Each edit of a list of 32,000 takes a bounded number of steps.
TEST(IniEdits, CostIsLinear)
{
    constexpr int kCount = 32000;
    constexpr std::size_t kStepsForOne = 2000;
    const std::vector<std::string> names = NumberedNames(kCount);
    std::string items = "[s]\n";
    std::string sections;
    for (const std::string& name : names) {
        items += ";about\n" + name + "=v\n";
        sections += ";about\n[" + name + "]\n";
    }
    std::vector<std::string> shuffled = names;
    std::shuffle(shuffled.begin(), shuffled.end(), std::minstd_rand(1));
    const std::vector<std::string> backward(names.rbegin(), names.rend());

    using Edit = std::function<int(IniFile*, const char*)>;
    const Edit removeItem = [](IniFile* ini, const char* name) { return IniRemoveItem(ini, "s", name); };
    const Edit removeSection = [](IniFile* ini, const char* name) { return IniRemoveSection(ini, name); };
    const Edit toNew = [](IniFile* ini, const char* name) {
        return IniRenameSection(ini, name, (std::string("m") + name).c_str());
    };
    const Edit toOne = [](IniFile* ini, const char* name) { return IniRenameSection(ini, name, "one"); };
    const Edit put = [](IniFile* ini, const char* name) { return IniPutInt(ini, "s", name, 1); };
    const Edit putSection = [](IniFile* ini, const char* name) { return IniPutInt(ini, name, "t", 1); };
    const Edit putTwin = [](IniFile* ini, const char*) { return IniPutInt(ini, "s", "twin", 1); };
    const Edit removeTwin = [](IniFile* ini, const char*) { return IniRemoveItem(ini, "s", "twin"); };
    const Edit removeOne = [](IniFile* ini, const char*) { return IniRemoveSection(ini, "one"); };
    const struct {
        int line;
        const std::string& text;
        int sorted;
        const std::vector<std::string>& order;
        std::vector<Edit> edits;
    } rows[] = {
        {__LINE__, items, 0, names, {removeItem}},
        {__LINE__, items, 0, backward, {removeItem, put}},
        {__LINE__, items, 0, shuffled, {removeItem, put}},
        {__LINE__, sections, 0, names, {removeSection}},
        {__LINE__, sections, 1, names, {toNew}},
        {__LINE__, sections, 0, backward, {toOne, removeOne}},
        {__LINE__, sections, 0, shuffled, {toOne, removeOne}},
        {__LINE__, "", 1, shuffled, {put, removeItem}},
        {__LINE__, "", 1, backward, {putSection, removeSection}},
        {__LINE__, "", 1, names, {putTwin, removeTwin}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const IniOwner ini = NewIni(row.sorted);
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
        EXPECT_STREQ(nullptr, qkini::Fault(ini.get()));
    }
}

// Each damage is its own repair.
TEST(IniEdits, WalkerSeesDamage)
{
    const IniOwner ini = NewIni();
    IniSetDuplicateChecking(ini.get(), 0);
    ASSERT_EQ(1, kztest::ReadText(ini.get(), "[z]\na=1\n[s]\n" + kztest::TextOf(kztest::Lines(20, "c=2")) + "b=3\n"));
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
