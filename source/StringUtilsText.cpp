// The operations of StringUtils on whole texts. Each is a template that is written once, and two public calls for
// narrow and wide text; what differs between the two is MapCharacter alone.
//
// A call may be given parts of its own target: a separator that is one of the items, a marker that is the text itself.
// So results are made beside their sources and swapped in at the end, which also leaves the target as it was when
// memory is full.
#include <algorithm>
#include <cctype>
#include <cwchar>

#include "KzAssert.h"
#include "StringUtils.h"

namespace {

// What the C library's byte mappings make of a character. They know 0 to 255, and anything else would read outside
// their tables; other values of wide text are their own.
template <typename Mapping>
char MapCharacter(char c, Mapping mapping)
{
    return static_cast<char>(mapping(static_cast<unsigned char>(c)));
}

template <typename Mapping>
wchar_t MapCharacter(wchar_t c, Mapping mapping)
{
    return c >= 0 && c <= 0xFF ? static_cast<wchar_t>(mapping(static_cast<int>(c))) : c;
}

// The C library's functions under names that a template can take: their own are overloaded in C++.
int ToUpperC(int c)
{
    return std::toupper(c);
}

int ToLowerC(int c)
{
    return std::tolower(c);
}

template <typename Text, typename Mapping>
void MapText(Text& text, Mapping mapping)
{
    for (auto& c : text) {
        c = MapCharacter(c, mapping);
    }
}

// As kz::FirstFoldedDifference, which knows bytes.
std::size_t FirstFoldedDifference(const wchar_t* a, const wchar_t* b, std::size_t n)
{
    std::size_t i = 0;
    while (i < n && (a[i] == b[i] || MapCharacter(a[i], ToLowerC) == MapCharacter(b[i], ToLowerC))) {
        ++i;
    }
    return i;
}

template <typename Text>
void SplitText(const Text& text, const Text& delimiters, std::vector<Text>& out, int32 mode)
{
    // The end of the text closes the last item like a delimiter. A delimiter that is the last character therefore opens
    // one more item, which is empty.
    std::vector<Text> items;
    std::size_t start = 0;
    for (;;) {
        const std::size_t hit = std::min(text.find_first_of(delimiters, start), text.size());
        if (hit > start || mode != StringUtils::kSplitDropEmpty) {
            items.push_back(text.substr(start, hit - start));
        }
        if (hit == text.size()) {
            break;
        }
        start = hit + 1;
    }
    out.swap(items);
}

template <typename Text>
void JoinTexts(const std::vector<Text>& items, const Text& separator, Text& out)
{
    Text joined;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) {
            joined += separator;
        }
        joined += items[i];
    }
    out.swap(joined);
}

// Copies a text but for the stretches that `next` finds. It gives the place and the end of the first one from a
// position on, or a place of npos.
template <typename Text, typename Next>
void Rewrite(Text& text, const Text& replacement, Next next)
{
    Text result;
    std::size_t start = 0;
    for (;;) {
        const auto [place, end] = next(start);
        if (place == Text::npos) {
            break;
        }
        KZ_ASSERT(place >= start && end > place && end <= text.size());  // each turn gets on
        result.append(text, start, place - start).append(replacement);
        start = end;
    }
    // Where nothing was found, the text is left alone instead of copied.
    if (start > 0) {
        result.append(text, start);
        text.swap(result);
    }
}

struct Stretch {
    std::size_t place;  // npos: there is none
    std::size_t end;    // behind its last character, which is above `place`
};

template <typename Text>
void Replace(Text* text, const Text& find, const Text& replace)
{
    if (text != nullptr && !find.empty()) {
        Rewrite(*text, replace, [&](std::size_t start) {
            const std::size_t place = text->find(find, start);
            return Stretch{place, place + find.size()};  // the end of npos means nothing
        });
    }
}

template <typename Text>
void RemoveLineCommentsOf(Text& text, const Text& marker)
{
    // The line break is not part of the comment, so that the lines that follow keep their numbers.
    static constexpr typename Text::value_type kBreaks[] = {'\r', '\n', 0};
    if (!marker.empty()) {
        Rewrite(text, Text(), [&](std::size_t start) {
            const std::size_t place = text.find(marker, start);
            return Stretch{place, place == Text::npos
                                      ? place
                                      : std::min(text.find_first_of(kBreaks, place + marker.size()), text.size())};
        });
    }
}

template <typename Text>
void RemoveBlockCommentsOf(Text& text, const Text& open, const Text& close)
{
    if (!open.empty()) {
        Rewrite(text, Text(), [&](std::size_t start) {
            const std::size_t place = text.find(open, start);
            // The end is sought behind the whole open marker, so that "/*/" opens a comment and doesn't close it. One
            // that isn't closed is none, and nothing behind it is looked at.
            const std::size_t end = place == Text::npos ? place : text.find(close, place + open.size());
            return end == Text::npos ? Stretch{end, end} : Stretch{place, end + close.size()};
        });
    }
}

template <typename Text>
void TrimText(Text& text, int32 mode)
{
    static constexpr typename Text::value_type kBlanks[] = {' ', '\t', 0};
    if ((mode & StringUtils::kTrimRight) != 0) {
        text.erase(text.find_last_not_of(kBlanks) + 1);  // npos + 1 is 0: all of it is blank
    }
    if ((mode & StringUtils::kTrimLeft) != 0) {
        text.erase(0, std::min(text.find_first_not_of(kBlanks), text.size()));
    }
}

// A length of 0 stands for the whole text, here and below.
template <typename Text>
Text LeftOf(const Text& text, std::size_t n)
{
    return n == 0 ? text : text.substr(0, n);
}

template <typename Text>
Text RightOf(const Text& text, std::size_t n)
{
    return n == 0 || n >= text.size() ? text : text.substr(text.size() - n);
}

// A text of one quote begins and ends with it.
template <typename Text>
bool IsQuoted(const Text& text)
{
    return !text.empty() && text.front() == text.back() && (text.front() == '"' || text.front() == '\'');
}

template <typename View>
bool HasPrefix(View text, View prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

template <typename View>
bool HasSuffix(View text, View suffix)
{
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

}  // namespace

int32 StringUtils::CaseInsensitiveCompare(const wchar_t* a, std::size_t aLen, const wchar_t* b, std::size_t bLen)
{
    const std::size_t n = std::min(aLen, bLen);
    const std::size_t i = FirstFoldedDifference(a, b, n);
    if (i < n) {
        return MapCharacter(a[i], ToLowerC) < MapCharacter(b[i], ToLowerC) ? -1 : 1;
    }
    return aLen == bLen ? 0 : (aLen < bLen ? -1 : 1);
}

int32 StringUtils::CaseInsensitiveCompare(const std::wstring& a, const std::wstring& b)
{
    return CaseInsensitiveCompare(a.data(), a.size(), b.data(), b.size());
}

bool StringUtils::CaseInsensitiveEqual(const wchar_t* a, std::size_t aLen, const wchar_t* b, std::size_t bLen)
{
    return aLen == bLen && FirstFoldedDifference(a, b, aLen) == aLen;
}

bool StringUtils::CaseInsensitiveEqual(const std::wstring& a, const std::wstring& b)
{
    return CaseInsensitiveEqual(a.data(), a.size(), b.data(), b.size());
}

bool StringUtils::StartsWith(std::string_view text, std::string_view prefix)
{
    return HasPrefix(text, prefix);
}

bool StringUtils::StartsWith(std::wstring_view text, std::wstring_view prefix)
{
    return HasPrefix(text, prefix);
}

bool StringUtils::StartsWith(std::string_view text, char first)
{
    return !text.empty() && text.front() == first;
}

bool StringUtils::StartsWith(std::wstring_view text, wchar_t first)
{
    return !text.empty() && text.front() == first;
}

bool StringUtils::EndsWith(std::string_view text, std::string_view suffix)
{
    return HasSuffix(text, suffix);
}

bool StringUtils::EndsWith(std::wstring_view text, std::wstring_view suffix)
{
    return HasSuffix(text, suffix);
}

bool StringUtils::EndsWith(std::string_view text, char last)
{
    return !text.empty() && text.back() == last;
}

bool StringUtils::EndsWith(std::wstring_view text, wchar_t last)
{
    return !text.empty() && text.back() == last;
}

std::string StringUtils::Left(const std::string& text, std::size_t n)
{
    return LeftOf(text, n);
}

std::wstring StringUtils::Left(const std::wstring& text, std::size_t n)
{
    return LeftOf(text, n);
}

std::string StringUtils::Right(const std::string& text, std::size_t n)
{
    return RightOf(text, n);
}

std::wstring StringUtils::Right(const std::wstring& text, std::size_t n)
{
    return RightOf(text, n);
}

void StringUtils::ToUpperCase(std::string& text)
{
    MapText(text, ToUpperC);
}

void StringUtils::ToUpperCase(std::wstring& text)
{
    MapText(text, ToUpperC);
}

void StringUtils::ToLowerCase(std::string& text)
{
    MapText(text, ToLowerC);
}

void StringUtils::ToLowerCase(std::wstring& text)
{
    MapText(text, ToLowerC);
}

void StringUtils::Trim(std::string& text, int32 mode)
{
    TrimText(text, mode);
}

void StringUtils::Trim(std::wstring& text, int32 mode)
{
    TrimText(text, mode);
}

void StringUtils::Split(const std::string& text, const std::string& delimiters, std::vector<std::string>& out,
                        int32 mode)
{
    SplitText(text, delimiters, out, mode);
}

void StringUtils::Split(const std::wstring& text, const std::wstring& delimiters, std::vector<std::wstring>& out,
                        int32 mode)
{
    SplitText(text, delimiters, out, mode);
}

void StringUtils::Join(const std::vector<std::string>& items, const std::string& separator, std::string& out)
{
    JoinTexts(items, separator, out);
}

void StringUtils::Join(const std::vector<std::wstring>& items, const std::wstring& separator, std::wstring& out)
{
    JoinTexts(items, separator, out);
}

void StringUtils::SearchAndReplace(std::string* text, const std::string& find, const std::string& replace)
{
    Replace(text, find, replace);
}

void StringUtils::SearchAndReplace(std::wstring* text, const std::wstring& find, const std::wstring& replace)
{
    Replace(text, find, replace);
}

void StringUtils::RemoveLineComments(std::string& text, const std::string& marker)
{
    RemoveLineCommentsOf(text, marker);
}

void StringUtils::RemoveLineComments(std::wstring& text, const std::wstring& marker)
{
    RemoveLineCommentsOf(text, marker);
}

void StringUtils::RemoveBlockComments(std::string& text, const std::string& open, const std::string& close)
{
    RemoveBlockCommentsOf(text, open, close);
}

void StringUtils::RemoveBlockComments(std::wstring& text, const std::wstring& open, const std::wstring& close)
{
    RemoveBlockCommentsOf(text, open, close);
}

bool StringUtils::IsSurroundedByQuotes(const std::string& text)
{
    return IsQuoted(text);
}

bool StringUtils::IsSurroundedByQuotes(const std::wstring& text)
{
    return IsQuoted(text);
}
