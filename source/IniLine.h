// What INI text means, line by line: the one place that knows what begins a section, what separates a tag from its
// value, and which quotes count. C library only. Pure functions, for any thread.
#ifndef KZCORE_INILINE_H
#define KZCORE_INILINE_H

#include "IniText.h"

namespace qkini {

enum class LineKind : unsigned char { kBlank, kComment, kSection, kItem, kUnrecognized };

// A line, whose texts are parts of it.
struct Line {
    LineKind kind;
    char quote;  // those around an item's value that are stripped, or 0
    Text name;   // of a section or an item, without white space at its ends; empty for others
    Text value;  // of an item, without white space and the quotes at its ends; empty for others
};

// `readOptions` is a sum of IniReadOption. The text is one line without its end.
Line LineOf(Text line, int readOptions);

// Whether a tag is that of the first part of a cut value, and of one of those behind it. Base tags and numbers are not
// compared: a first part begins a run of parts, and the next first part, or any other item, ends it.
bool IsFirstPart(Text tag);
bool IsFurtherPart(Text tag);

// The size of the mark of UTF-8 at a text's start, 0 without one; kIniErrUnicodeMark for a mark of UTF-16 or UTF-32,
// whose text would be read as lines full of NULs. The first 4 bytes tell, or all of a shorter text.
constexpr size_t kMarkSize = 4;
constexpr char kUtf8Mark[] = "\xEF\xBB\xBF";
int SizeOfMark(Text text);

}  // namespace qkini

#endif
