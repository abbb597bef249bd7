#include "Text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace kzini {

namespace {

bool IsControl(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

std::string Formatted(const char* format, unsigned value)
{
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// Whether there is a byte at this place, and in this range.
bool IsWithin(std::string_view text, std::size_t at, unsigned char least, unsigned char most)
{
    return at < text.size() && static_cast<unsigned char>(text[at]) >= least &&
           static_cast<unsigned char>(text[at]) <= most;
}

// The bytes of the well-formed UTF-8 sequence at the text's start (Unicode's table 3-7), or 0.
std::size_t LengthOfUtf8(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return 0;
    }
    // The second byte's range depends on the first, so that overlong forms, surrogates and what is above U+10FFFF are
    // none.
    const unsigned char least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    bool isWhole = IsWithin(text, 1, least, most);
    for (std::size_t i = 2; i < length; ++i) {
        isWhole = isWhole && IsWithin(text, i, 0x80, 0xBF);
    }
    return isWhole ? length : 0;
}

using Lines = std::vector<std::string_view>;

// A line feed is no part of its line, a carriage return is.
Lines LinesOf(std::string_view text)
{
    Lines lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
        const std::size_t kept = end + (text.substr(end, 1) == "\r" ? 1 : 0);
        lines.push_back(text.substr(0, kept));
        text.remove_prefix(kept + (text.substr(kept, 1) == "\n" ? 1 : 0));
    }
    return lines;
}

// The lengths of the longest common subsequences of all ends of two runs of lines: At(i, j) is that of the lines from i
// and j on. Takes time and memory for each pair of lines.
class CommonLengths {
public:
    CommonLengths(const Lines& a, const Lines& b) : m_width(b.size() + 1), m_lengths((a.size() + 1) * m_width)
    {
        for (std::size_t i = a.size(); i-- > 0;) {
            for (std::size_t j = b.size(); j-- > 0;) {
                m_lengths[i * m_width + j] = a[i] == b[j] ? At(i + 1, j + 1) + 1 : std::max(At(i + 1, j), At(i, j + 1));
            }
        }
    }

    std::uint32_t At(std::size_t i, std::size_t j) const { return m_lengths[i * m_width + j]; }

private:
    std::size_t m_width;
    std::vector<std::uint32_t> m_lengths;
};

// Above so many pairs of lines all between the first and the last change are printed as changed, which is still true,
// because the table for them would take more memory than the files.
constexpr std::size_t kMostPairs = 4'000'000;

}  // namespace

std::string Printable(std::string_view text)
{
    std::string result;
    // Bytes beyond ASCII stay, because the terminal knows their encoding and this does not.
    for (const char c : text) {
        if (!IsControl(c)) {
            result += c;
        } else if (c == '\t' || c == '\n' || c == '\r') {
            result += c == '\t' ? "\\t" : c == '\n' ? "\\n" : "\\r";
        } else {
            result += Formatted("\\x%02x", static_cast<unsigned char>(c));
        }
    }
    return result;
}

std::string ShellQuoted(std::string_view text)
{
    std::string result = "'";
    for (const char c : text) {
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return result + "'";
}

std::string ShellName(std::string_view text)
{
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    std::string name = text.empty() || isDigit(text[0]) ? "_" : "";
    for (const char c : text) {
        name += isLetter(c) || isDigit(c) ? c : '_';
    }
    return name;
}

std::string JsonString(std::string_view text)
{
    std::string result = "\"";
    while (!text.empty()) {
        const std::size_t length = LengthOfUtf8(text);
        const char c = text[0];
        // A byte alone, because what follows it may be well formed.
        if (length == 0) {
            result += Formatted("\\udc%02x", static_cast<unsigned char>(c));
        } else if (IsControl(c)) {
            result += Formatted("\\u%04x", static_cast<unsigned char>(c));
        } else {
            result += c == '"' || c == '\\' ? "\\" : "";
            result += text.substr(0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result + '"';
}

std::string Member(const char* name, std::string_view value)
{
    return JsonString(name) + ": " + JsonString(value);
}

std::string Member(const char* name, long long value)
{
    return JsonString(name) + ": " + std::to_string(value);
}

std::string Flag(const char* name, bool value)
{
    return JsonString(name) + (value ? ": true" : ": false");
}

std::vector<Change> ChangedLines(std::string_view before, std::string_view after)
{
    // Equal lines at both ends are set aside, because an edit changes few lines and the rest then has few pairs.
    Lines a = LinesOf(before);
    Lines b = LinesOf(after);
    const auto front =
        static_cast<std::size_t>(std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin());
    while (a.size() > front && b.size() > front && a.back() == b.back()) {
        a.pop_back();
        b.pop_back();
    }
    a.erase(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(front));
    b.erase(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(front));

    const bool isComparable = b.empty() || a.size() <= kMostPairs / b.size();
    const CommonLengths common(isComparable ? a : Lines(), isComparable ? b : Lines());
    std::vector<Change> changes;
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() || j < b.size()) {
        // The way that keeps the most lines; of two such, lines that go stand in front of lines that come.
        const bool isInBoth = isComparable && i < a.size() && j < b.size();
        if (isInBoth && a[i] == b[j]) {
            ++i;
            ++j;
        } else if (j == b.size() || (i < a.size() && (!isInBoth || common.At(i + 1, j) >= common.At(i, j + 1)))) {
            changes.push_back({false, front + i + 1, a[i]});
            ++i;
        } else {
            changes.push_back({true, front + j + 1, b[j]});
            ++j;
        }
    }
    return changes;
}

}  // namespace kzini
