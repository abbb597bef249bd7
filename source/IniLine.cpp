// Every byte of a line is a stranger's, and each line means something: what can't be read as a section or an item is
// unrecognized, which is no failure.

#include "IniLine.h"

#include "IniTypes.h"

namespace qkini {

namespace {

// The quotes to strip from a value, or 0. A quote alone is a value, not a pair around nothing.
char QuoteOf(Text value, int readOptions)
{
    if (value.size < 2 || *value.begin != value.end()[-1]) {
        return 0;
    }
    const char quote = *value.begin;
    const bool strips = (quote == '"' && (readOptions & kIniReadStripDoubleQuotes) != 0) ||
                        (quote == '\'' && (readOptions & kIniReadStripSingleQuotes) != 0);
    return strips ? quote : '\0';
}

Line Nameless(LineKind kind, Text line)
{
    const Text none(line.begin, size_t{0});
    return {kind, 0, none, none};
}

// `text` is what follows the bracket. What follows the closing one counts for nothing.
Line SectionOf(Text line, Text text)
{
    const auto* const bracket = static_cast<const char*>(memchr(text.begin, ']', text.size));
    const Text name = TrimmedRight({text.begin, bracket == nullptr ? text.begin : bracket});
    if (name.IsEmpty()) {
        return Nameless(LineKind::kUnrecognized, line);
    }
    return {LineKind::kSection, 0, name, {name.end(), size_t{0}}};
}

// The first separator ends the tag, so that a value may hold more of them.
Line ItemOf(Text line, Text text, int readOptions)
{
    const bool hasColons = (readOptions & kIniReadColonAndNull) != 0;
    const char* separator = text.begin;
    while (separator != text.end() && *separator != '=' && !(hasColons && *separator == ':')) {
        ++separator;
    }
    // Without a tag or without a separator there is nothing by which a value could be found.
    if (separator == text.begin || separator == text.end()) {
        return Nameless(LineKind::kUnrecognized, line);
    }
    const bool isColonEquals = *separator == ':' && separator + 1 != text.end() && separator[1] == '=';
    const Text value = Trimmed({separator + (isColonEquals ? 2 : 1), text.end()});
    if (value.IsEmpty() && (readOptions & kIniReadKeepEmpty) == 0) {
        return Nameless(LineKind::kUnrecognized, line);
    }
    const char quote = QuoteOf(value, readOptions);
    return {LineKind::kItem, quote, TrimmedRight({text.begin, separator}),
            quote == 0 ? value : Text(value.begin + 1, value.size - 2)};
}

bool StartsWith(Text text, Text start)
{
    return text.size >= start.size && memcmp(text.begin, start.begin, start.size) == 0;
}

}  // namespace

Line LineOf(Text line, int readOptions)
{
    const Text text = TrimmedLeft(line);
    if (text.IsEmpty()) {
        return Nameless(LineKind::kBlank, line);
    }
    switch (*text.begin) {
        case ';':
            return Nameless(LineKind::kComment, line);
        case '[':
            return SectionOf(line, TrimmedLeft({text.begin + 1, text.end()}));
        default:
            return ItemOf(line, text, readOptions);
    }
}

bool IsFirstPart(Text tag)
{
    return ContinuationOf(tag).number == 1;
}

bool IsFurtherPart(Text tag)
{
    const long number = ContinuationOf(tag).number;
    return number >= 0 && number != 1;
}

int SizeOfMark(Text text)
{
    // FF FE begins both little-endian marks.
    if (StartsWith(text, Text("\xFF\xFE")) || StartsWith(text, Text("\xFE\xFF")) ||
        StartsWith(text, Text("\0\0\xFE\xFF", size_t{4}))) {
        return kIniErrUnicodeMark;
    }
    return StartsWith(text, Text(kUtf8Mark)) ? 3 : 0;
}

}  // namespace qkini
