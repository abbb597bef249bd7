// Edits of INI text: what each leaves, byte for byte; random ones against a model that knows only lines; saves under
// the lock, and what becomes of file and object when a call or an allocation fails.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "IniEdit.h"
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

}  // namespace
