// Edits of INI text: what each leaves, byte for byte; random ones against a model that knows only lines; and what the
// proof refuses. Files are in IniEditFile_test.cpp.

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "FaultLoop.h"
#include "IniEdit.h"
#include "IniEditPlan.h"
#include "IniEditProof.h"
#include "IniEditText.h"
#include "JsonLines.h"

namespace {

using kztest::Json;

struct Close {
    void operator()(IniEdit* edit) const { IniEditClose(edit); }
};
using Owner = std::unique_ptr<IniEdit, Close>;

constexpr int kReads = kIniReadKeepEmpty | kIniReadStripDoubleQuotes;

Owner OpenText(std::string_view text, int readOptions = kReads, int options = 0)
{
    IniEdit* edit = nullptr;
    EXPECT_EQ(1, IniEditOpenText(&edit, text.data(), text.size(), readOptions, options));
    return Owner(edit);
}

std::string TextOf(const Owner& edit)
{
    const char* bytes = nullptr;
    std::size_t size = 0;
    EXPECT_EQ(1, IniEditGetText(edit.get(), &bytes, &size));
    return {bytes, size};
}

// An argument of a call in a row, null too.
const char* TextAt(const Json& args, int index)
{
    return args[index].IsNull() ? nullptr : args[index].Str().c_str();
}

int IntAt(const Json& args, int index)
{
    return static_cast<int>(args[index].Int());
}

int IntOf(const Json& row, const char* name, int otherwise)
{
    return row.Has(name) ? static_cast<int>(row[name].Int()) : otherwise;
}

using Call = int (*)(IniEdit* edit, const Json& args);

// Every byte of the text after an edit, or none is another when it failed.
void CheckEdit(const Json& row, Call call)
{
    const std::string text = row["text"].Str();
    const Owner edit = OpenText(text, IntOf(row, "read", kReads), IntOf(row, "options", 0));
    const int result = call(edit.get(), row["args"]);
    EXPECT_EQ(row["result"].Int(), result);
    EXPECT_EQ(row.Has("after") ? row["after"].Str() : text, TextOf(edit));
    EXPECT_EQ(result == 1 ? 1 : 0, IniEditIsChanged(edit.get()));
}

void CheckLines(const Json& row)
{
    const Owner edit = OpenText(row["text"].Str(), kReads, IntOf(row, "options", 0));
    const Json& lines = row["lines"];
    ASSERT_EQ(static_cast<int>(lines.size()), IniEditCountLines(edit.get()));
    for (int i = 0; i < static_cast<int>(lines.size()); ++i) {
        SCOPED_TRACE(i);
        IniEditLine line{};
        ASSERT_EQ(1, IniEditGetLine(edit.get(), i + 1, &line));
        const Json& expected = lines[i];
        EXPECT_EQ(expected[0].Int(), line.kind);
        EXPECT_EQ(i + 1, line.number);
        EXPECT_EQ(expected[1].Str(), std::string(line.text, line.textSize));
        EXPECT_EQ(expected[2].Str(), std::string(line.section, line.sectionSize));
        EXPECT_EQ(expected[3].Str(), std::string(line.tag, line.tagSize));
        EXPECT_EQ(expected[4].Str(), std::string(line.value, line.valueSize));
        EXPECT_EQ(expected[5].Int(), line.quote);
    }
    IniEditLine none{};
    EXPECT_EQ(0, IniEditGetLine(edit.get(), 0, &none));
    EXPECT_EQ(0, IniEditGetLine(edit.get(), static_cast<int>(lines.size()) + 1, &none));
}

TEST(IniEdit, Rows)
{
    const std::pair<const char*, Call> calls[] = {
        {"set",
         [](IniEdit* edit, const Json& args) {
             return IniEditSetItem(edit, TextAt(args, 0), TextAt(args, 1), IntAt(args, 2), TextAt(args, 3),
                                   IntAt(args, 4));
         }},
        {"add",
         [](IniEdit* edit, const Json& args) {
             return IniEditAddItem(edit, TextAt(args, 0), TextAt(args, 1), TextAt(args, 2), IntAt(args, 3));
         }},
        {"remove",
         [](IniEdit* edit, const Json& args) {
             return IniEditRemoveItem(edit, TextAt(args, 0), TextAt(args, 1), IntAt(args, 2));
         }},
        {"rename",
         [](IniEdit* edit, const Json& args) {
             return IniEditRenameItem(edit, TextAt(args, 0), TextAt(args, 1), IntAt(args, 2), TextAt(args, 3));
         }},
        {"addSection", [](IniEdit* edit, const Json& args) { return IniEditAddSection(edit, TextAt(args, 0)); }},
        {"removeSection", [](IniEdit* edit, const Json& args) { return IniEditRemoveSection(edit, TextAt(args, 0)); }},
        {"renameSection",
         [](IniEdit* edit, const Json& args) { return IniEditRenameSection(edit, TextAt(args, 0), TextAt(args, 1)); }},
        {"addComment",
         [](IniEdit* edit, const Json& args) {
             return IniEditAddComment(edit, TextAt(args, 0), TextAt(args, 1), IntAt(args, 2), TextAt(args, 3));
         }},
        {"setComment",
         [](IniEdit* edit, const Json& args) { return IniEditSetComment(edit, IntAt(args, 0), TextAt(args, 1)); }},
        {"removeComment", [](IniEdit* edit, const Json& args) { return IniEditRemoveComment(edit, IntAt(args, 0)); }},
    };
    kztest::RowChecks checks{{"lines", &CheckLines}};
    for (const auto& [name, call] : calls) {
        checks[name] = [call = call](const Json& row) { CheckEdit(row, call); };
    }
    kztest::CheckRows("vectors/ini_edit.jsonl", checks);
}

// One line of the model, made of its parts.
struct Row {
    IniEditKind kind;
    std::string front;  // of a section or an item what stands in front of its name; of others all
    std::string name;
    std::string separator;
    std::string quote;
    std::string value;
    std::string back;

    std::string Text() const { return front + name + separator + quote + value + quote + back; }
    bool isItem() const { return kind == kIniEditItem; }
    bool isSection() const { return kind == kIniEditSection; }
};

std::string Folded(std::string name)
{
    for (char& c : name) {
        c = static_cast<char>(std::tolower(c));
    }
    return name;
}

// A text as lines that all end alike, and each edit as somebody would do it by hand.
struct Model {
    std::vector<Row> rows;
    std::string mark;
    std::string end;
    bool isOpen = false;  // the last line has no end

    std::string Text() const
    {
        std::string text = mark;
        for (std::size_t i = 0; i < rows.size(); ++i) {
            text += rows[i].Text() + (isOpen && i + 1 == rows.size() ? "" : end);
        }
        return text;
    }

    // The number of the section line above each line, or its own, and -1 in front of the first.
    std::vector<int> Owners() const
    {
        std::vector<int> owners;
        int owner = -1;
        for (std::size_t i = 0; i < rows.size(); ++i) {
            owner = rows[i].isSection() ? static_cast<int>(i) : owner;
            owners.push_back(owner);
        }
        return owners;
    }
    bool IsIn(int owner, const std::string& section) const
    {
        return owner < 0 ? section.empty()
                         : Folded(rows[static_cast<std::size_t>(owner)].name) == Folded(section) && !section.empty();
    }
    std::vector<std::size_t> Find(IniEditKind kind, const std::string& section, const std::string& tag) const
    {
        std::vector<std::size_t> found;
        const std::vector<int> owners = Owners();
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (rows[i].kind == kind && IsIn(owners[i], section) &&
                (kind == kIniEditSection || Folded(rows[i].name) == Folded(tag))) {
                found.push_back(i);
            }
        }
        return found;
    }
    static int Pick(std::vector<std::size_t>* found, int which)
    {
        if (found->empty() || which > static_cast<int>(found->size())) {
            return 0;
        }
        if (which > 0) {
            *found = {(*found)[static_cast<std::size_t>(which) - 1]};
        }
        return which == kIniEditOnly && found->size() > 1 ? int{kIniErrRepeated} : 1;
    }

    static void SetValue(Row* row, const std::string& value)
    {
        const bool isQuoted = value.size() > 1 && value.front() == '"' && value.back() == '"';
        const bool isTrimmed = value.empty() || (value.front() != ' ' && value.back() != ' ');
        row->quote = !row->quote.empty() || isQuoted || !isTrimmed ? "\"" : "";
        row->value = value;
        if (value.empty() && row->quote.empty()) {
            row->separator += std::exchange(row->back, "");  // blanks at the end stand in front of the next value
        }
    }
    static std::string SeparatorOf(const Row& row)
    {
        const std::string front = row.separator.substr(0, row.separator.find('='));
        return row.value.empty() && row.quote.empty() ? front + "=" + front : row.separator;
    }

    // False where two styles are as common.
    bool MostCommonStyle(Row* like) const
    {
        std::map<std::pair<std::string, std::string>, int> counts;
        for (const Row& row : rows) {
            counts[{row.front, SeparatorOf(row)}] += row.isItem() ? 1 : 0;
        }
        int most = 0;
        int ties = 0;
        for (const auto& [style, count] : counts) {
            if (count > 0 && count >= most) {
                ties = count > most ? 0 : ties + 1;
                most = count;
                like->front = style.first;
                like->separator = style.second;
            }
        }
        if (most == 0) {
            like->separator = " = ";
        }
        return ties == 0;
    }

    void Insert(std::size_t at, const Row& row)
    {
        NeedEnd();
        rows.insert(rows.begin() + static_cast<std::ptrdiff_t>(at), row);
    }
    // Where no line has an end, those to come end in LF.
    void NeedEnd() { end = rows.size() <= (isOpen ? 1 : 0) ? "\n" : end; }
    void AppendSection(const std::string& name)
    {
        NeedEnd();
        if (!rows.empty() && rows.back().kind != kIniEditBlank) {
            rows.push_back({kIniEditBlank, "", "", "", "", "", ""});
        }
        rows.push_back({kIniEditSection, "[", name, "", "", "", "]"});
    }

    // Does nothing and gives -1 where the style is open.
    int Add(const std::string& section, const std::string& tag, const std::string& value)
    {
        Row row{kIniEditItem, "", tag, "", "", "", ""};
        const std::vector<int> owners = Owners();
        const std::vector<std::size_t> sections = Find(kIniEditSection, section, "");
        std::size_t at = sections.empty() ? 0 : sections.back() + 1;
        const Row* like = nullptr;
        std::string indent;
        int owner = -2;
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (!IsIn(owners[i], section)) {
                continue;
            }
            if (rows[i].isItem() && owner != owners[i]) {
                owner = owners[i];
                indent = rows[i].front;
            }
            like = rows[i].isItem() && rows[i].front.size() <= indent.size() ? &rows[i] : like;
            const bool goesOn =
                rows[i].kind == kIniEditUnrecognized && owner == owners[i] && indent.empty() && rows[i].front[0] == ' ';
            at = rows[i].isItem() || goesOn ? i + 1 : at;
        }
        if (like != nullptr) {
            row.front = like->front;
            row.separator = SeparatorOf(*like);
        } else if (!MostCommonStyle(&row)) {
            return -1;
        }
        SetValue(&row, value);
        if (sections.empty() && !section.empty()) {
            AppendSection(section);
            at = rows.size();
        }
        Insert(at, row);
        return 1;
    }
    int Set(const std::string& section, const std::string& tag, int which, const std::string& value)
    {
        std::vector<std::size_t> found = Find(kIniEditItem, section, tag);
        if (found.empty() && which == kIniEditOnly) {
            return Add(section, tag, value);
        }
        const int result = Pick(&found, which);
        for (std::size_t i = 0; result == 1 && i < found.size(); ++i) {
            SetValue(&rows[found[i]], value);
        }
        return result;
    }
    void Remove(const std::vector<std::size_t>& lines)
    {
        for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
            isOpen = isOpen && *line + 1 != rows.size();
            rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(*line));
        }
    }
    int Remove(const std::string& section, const std::string& tag, int which)
    {
        std::vector<std::size_t> found = Find(kIniEditItem, section, tag);
        const int result = Pick(&found, which);
        if (result == 1) {
            Remove(found);
        }
        return result;
    }
    int Rename(const std::string& section, const std::string& tag, int which, const std::string& name)
    {
        std::vector<std::size_t> found = Find(kIniEditItem, section, tag);
        const int result = Pick(&found, which);
        if (result == 1 && Folded(tag) != Folded(name) && !Find(kIniEditItem, section, name).empty()) {
            return kIniErrExists;
        }
        for (std::size_t i = 0; result == 1 && i < found.size(); ++i) {
            rows[found[i]].name = name;
        }
        return result;
    }
    int AddSection(const std::string& section)
    {
        if (section.empty() || !Find(kIniEditSection, section, "").empty()) {
            return section.empty() ? kIniErrName : kIniErrExists;
        }
        AppendSection(section);
        return 1;
    }
    int RemoveSection(const std::string& section)
    {
        std::vector<std::size_t> found;
        const std::vector<int> owners = Owners();
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (IsIn(owners[i], section) && (rows[i].isItem() || rows[i].isSection())) {
                found.push_back(i);
            }
        }
        Remove(found);
        return found.empty() ? 0 : 1;
    }
    int RenameSection(const std::string& section, const std::string& name)
    {
        const std::vector<std::size_t> found = Find(kIniEditSection, section, "");
        if (section.empty() || found.empty()) {
            return section.empty() ? int{kIniErrName} : 0;
        }
        if (name.empty() || (Folded(section) != Folded(name) && !Find(kIniEditSection, name, "").empty())) {
            return name.empty() ? kIniErrName : kIniErrExists;
        }
        for (const std::size_t line : found) {
            rows[line].name = name;
        }
        return 1;
    }
    int AddComment(const std::string& section, const std::string& tag, int which, const std::string& text)
    {
        std::vector<std::size_t> found = Find(kIniEditItem, section, tag);
        const int result = Pick(&found, which);
        for (std::size_t i = found.size(); result == 1 && i > 0; --i) {
            Insert(found[i - 1], {kIniEditComment, text, "", "", "", "", ""});
        }
        return result;
    }
};

// Draws texts, names and edits.
class Dice {
public:
    explicit Dice(unsigned seed) : mDraw(seed) {}

    std::size_t Below(std::size_t bound) { return mDraw() % bound; }
    template <std::size_t count>
    std::string OneOf(const std::string_view (&choices)[count])
    {
        return std::string(choices[Below(count)]);
    }
    std::string Section() { return OneOf({"", "a", "A", "b", "c"}); }
    std::string Tag() { return OneOf({"x", "X", "y", "z w"}); }
    std::string Value() { return OneOf({"1", "", " v", "v ", "\"q\"", "a = b", ";", "[c]", "\\n"}); }

    Row Line()
    {
        switch (Below(8)) {
            case 0:
                return {kIniEditBlank, OneOf({"", " "}), "", "", "", "", ""};
            case 1:
                return {kIniEditComment, OneOf({"; c", " ;x=1"}), "", "", "", "", ""};
            case 2:
                return {kIniEditUnrecognized, OneOf({"what", "  more", "[", "=v"}), "", "", "", "", ""};
            case 3:
                return {kIniEditSection, OneOf({"[", " [ "}), OneOf({"a", "A", "b"}), "", "", "", OneOf({"]", " ] n"})};
            default:
                Row row{kIniEditItem, OneOf({"", "", "  "}), Tag(), OneOf({"=", " = ", "\t=\t"}), "", "", ""};
                row.quote = OneOf({"", "", "\""});
                Model::SetValue(&row, Value());
                row.back = row.value.empty() && row.quote.empty() ? "" : OneOf({"", " "});
                return row;
        }
    }
    Model Text()
    {
        Model model;
        model.end = OneOf({"\n", "\r\n", "\r", std::string_view("\0", 1), "\n\r"});
        model.mark = OneOf({"", "\xEF\xBB\xBF"});
        for (std::size_t lines = Below(16); lines > 0; --lines) {
            model.rows.push_back(Line());
        }
        model.isOpen = !model.rows.empty() && !model.rows.back().Text().empty() && Below(3) == 0;
        return model;
    }

private:
    std::mt19937 mDraw;
};

// One edit of both. -1 where the model leaves open what is right.
std::pair<int, int> EditBoth(Dice* dice, Model* model, IniEdit* edit)
{
    const std::string section = dice->Section();
    const std::string tag = dice->Tag();
    const std::string value = dice->Value();
    const std::string name = dice->Tag();
    const int which = static_cast<int>(dice->Below(4)) - 1;
    const char* const s = section.c_str();
    const char* const t = tag.c_str();
    switch (dice->Below(8)) {
        case 0: {
            const int result = model->Add(section, tag, value);
            return {result, result == -1 ? -1 : IniEditAddItem(edit, s, t, value.c_str(), kIniEditRaw)};
        }
        case 1:
            return {model->Remove(section, tag, which), IniEditRemoveItem(edit, s, t, which)};
        case 2:
            return {model->Rename(section, tag, which, name), IniEditRenameItem(edit, s, t, which, name.c_str())};
        case 3:
            return {model->AddSection(section), IniEditAddSection(edit, s)};
        case 4:
            return {model->RemoveSection(section), IniEditRemoveSection(edit, s)};
        case 5: {
            const std::string newSection = dice->Section();
            return {model->RenameSection(section, newSection), IniEditRenameSection(edit, s, newSection.c_str())};
        }
        case 6:
            return {model->AddComment(section, tag, which, "; n"), IniEditAddComment(edit, s, t, which, "; n")};
        default: {
            const int result = model->Set(section, tag, which, value);
            return {result, result == -1 ? -1 : IniEditSetItem(edit, s, t, which, value.c_str(), kIniEditRaw)};
        }
    }
}

TEST(IniEdit, RandomEditsAgainstAModel)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences() && !HasFailure(); ++seed) {
        Dice dice(seed);
        Model model = dice.Text();
        const Owner edit = OpenText(model.Text());
        for (int step = 0; step < 8 && !HasFailure(); ++step) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << step << "\n" << model.Text());
            const auto [expected, result] = EditBoth(&dice, &model, edit.get());
            EXPECT_EQ(expected, result);
            EXPECT_EQ(model.Text(), TextOf(edit));
        }
    }
}

// Plans are right, so only here the proof sees texts that a wrong one would lead to.
// A small file of a great many lines must not take the machine's memory; an edit doesn't get beyond the bound either.
TEST(IniEdit, RefusesTooManyLines)
{
    constexpr std::size_t kMost = 4 << 20;
    const std::string text(kMost, '\n');
    const Owner edit = OpenText(text);
    EXPECT_EQ(static_cast<int>(kMost), IniEditCountLines(edit.get()));
    EXPECT_EQ(kIniErrMemory, IniEditAddComment(edit.get(), nullptr, nullptr, kIniEditOnly, "; one more"));
    EXPECT_EQ(static_cast<int>(kMost), IniEditCountLines(edit.get()));

    IniEdit* refused = edit.get();
    EXPECT_EQ(kIniErrMemory, IniEditOpenText(&refused, (text + ";").data(), kMost + 1, kReads, 0));
    EXPECT_EQ(nullptr, refused);
}

TEST(IniEdit, AnyOtherChangeIsNotProved)
{
    const auto textOf = [](const char* bytes) {
        qkini::EditText text({kReads, false, false});
        EXPECT_EQ(1, text.Take(bytes));
        return text;
    };
    const auto readingOf = [](const qkini::EditText& text) {
        qkini::Readings readings;
        EXPECT_EQ(1, readings.Read(text));
        return readings;
    };
    const qkini::EditText old = textOf("[a]\nx=1\ny=2\n[b]\nz=3\n");
    const qkini::Text value("9");
    const qkini::EditPlan plan = PlanSetItem(old, qkini::Text("a"), qkini::Text("x"), kIniEditOnly, value);
    const struct {
        const char* text;
        bool isProved;
    } rows[] = {
        {"[a]\nx=9\ny=2\n[b]\nz=3\n", true},       {"[a] \n x = 9\n; c\ny=2\n[b]\nz=3", true},
        {"[a]\nx=1\ny=2\n[b]\nz=3\n", false},      {"[a]\nx=9\ny=3\n[b]\nz=3\n", false},
        {"[a]\nx=9\ny=\"2\"\n[b]\nz=3\n", false},  {"[a]\nx=9\nY=2\n[b]\nz=3\n", false},
        {"[a]\nx=9\n[b]\nz=3\n", false},           {"[a]\nx=9\ny=2\n[b]\n", false},
        {"[a]\nx=9\ny=2\n[b]\nz=3\nu=4\n", false}, {"[a]\nx=9\ny=2\n[b]\nz=3\n[c]\n", false},
        {"[a]\ny=2\nx=9\n[b]\nz=3\n", false},      {"[a]\nx=9\n[b]\ny=2\nz=3\n", false},
        {"[a]\nX=9\ny=2\n[b]\nz=3\n", false},      {"[a]\nx=\"9\"\ny=2\n[b]\nz=3\n", false},
        {"[A]\nx=9\ny=2\n[b]\nz=3\n", false},      {"u=1\n[a]\nx=9\ny=2\n[b]\nz=3\n", false},
        {"[a]\nx=9\nx=9\ny=2\n[b]\nz=3\n", false}, {"", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.isProved, qkini::Readings::Proves(old, readingOf(old), readingOf(textOf(row.text)), plan))
            << row.text;
    }
}

}  // namespace
