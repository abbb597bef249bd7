// The lines are split by the engine's own reader of streams, and told apart by its own rule of what a line is, so that
// no edit works on an item that the engine does not see. What the engine does behind its last line, the joining of the
// parts of values, is followed here with the same two questions to a tag.

#include "IniEditText.h"

#include <limits.h>

#include <algorithm>

#include "IniModel.h"
#include "IniReader.h"
#include "KzAssert.h"

namespace qkini {

namespace {

static_assert(kIniReadLimit < INT_MAX, "numbers of 32 bits reach every byte");

// A line takes about 40 bytes here and an edit hundreds for a while, so that a file of nothing but lines' ends would
// take a machine's memory without this bound. Files that people edit are far below it.
constexpr unsigned kMostLines = 4 << 20;

unsigned Distance(const char* from, const char* to)
{
    KZ_ASSERT(from <= to);
    return static_cast<unsigned>(to - from);
}

IniEditKind KindOf(LineKind kind)
{
    switch (kind) {
        case LineKind::kBlank:
            return kIniEditBlank;
        case LineKind::kComment:
            return kIniEditComment;
        case LineKind::kSection:
            return kIniEditSection;
        case LineKind::kItem:
            return kIniEditItem;
        case LineKind::kUnrecognized:
            break;
    }
    return kIniEditUnrecognized;
}

}  // namespace

int ReadMemory(void* context, int size, int* actual, void* buffer)
{
    auto* const rest = static_cast<Text*>(context);
    const size_t part = std::min(rest->size, static_cast<size_t>(size));
    memcpy(buffer, rest->begin, part);
    *rest = Text(rest->begin + part, rest->end());
    *actual = static_cast<int>(part);
    return 1;
}

Line EditRules::LineOf(Text line) const
{
    const Text text = TrimmedLeft(line);
    if (hashComments && !text.IsEmpty() && *text.begin == '#') {
        const Text none(text.begin, size_t{0});
        return {LineKind::kComment, 0, none, none};
    }
    return qkini::LineOf(line, readOptions);
}

bool EditRules::AreSame(Text a, Text b) const
{
    return caseSensitive ? a.size == b.size && memcmp(a.begin, b.begin, a.size) == 0 : CompareBlind(a, b) == 0;
}

int EditText::Take(std::string text)
{
    KZ_ASSERT(m_lines.empty());
    m_bytes = std::move(text);
    const int mark = SizeOfMark({m_bytes.data(), m_bytes.size()});
    if (mark < 0) {
        return mark;
    }
    m_markSize = static_cast<unsigned>(mark);
    Text rest(m_bytes.data() + mark, m_bytes.size() - m_markSize);
    if (rest.size > kIniReadLimit) {
        return kIniErrMemory;
    }
    m_sections.assign(1, 0);
    IniLineInput input{};
    input.read = &ReadMemory;
    input.context = &rest;
    char buffer[kIniInputChunk];
    unsigned at = m_markSize;
    unsigned size = 0;  // of the line so far
    for (Piece piece{}; !piece.isEnd;) {
        piece = ReadPiece(&input, buffer, sizeof buffer);
        KZ_ASSERT(piece.result == 1);
        at += static_cast<unsigned>(piece.taken);
        size += static_cast<unsigned>(piece.size);
        // A text that ends where a piece did gave a line all the same.
        if (piece.isComplete || (piece.isEnd && size > 0)) {
            if (LineCount() == kMostLines) {
                return kIniErrMemory;
            }
            const bool hasEnd = piece.taken - piece.skipped > piece.size;
            AddLine(at - size - (hasEnd ? 1 : 0), size);
            size = 0;
        }
    }
    KZ_ASSERT(at == m_bytes.size());
    return 1;
}

// Notes where the next line and its name and value stand, and which section it belongs to.
void EditText::AddLine(unsigned begin, unsigned size)
{
    const Text text(m_bytes.data() + begin, size);
    const Line read = m_rules.LineOf(text);
    EditLine line{begin,     size, 0, 0, 0, 0, 0, m_elementCount, static_cast<unsigned char>(KindOf(read.kind)),
                  read.quote};
    line.name = Distance(text.begin, read.name.begin);
    line.nameSize = static_cast<unsigned>(read.name.size);
    line.value = Distance(text.begin, read.value.begin);
    line.valueSize = static_cast<unsigned>(read.value.size);
    if (read.kind == LineKind::kSection) {
        m_sections.push_back(LineCount());
        m_isInRun = false;
        ++m_elementCount;
    } else if (read.kind == LineKind::kItem) {
        AddItem(&line, read);
    }
    line.section = static_cast<unsigned>(m_sections.size()) - 1;
    m_lines.push_back(line);
}

// Decides whether an item's line is an item or one more part of the value that was cut in front of it.
void EditText::AddItem(EditLine* line, const Line& read)
{
    if (m_isInRun && IsFurtherPart(read.name)) {
        line->kind = kIniEditPart;
        m_joined.back().second.append(read.value.begin, read.value.size);
        return;
    }
    ++m_elementCount;
    m_isInRun = IsFirstPart(read.name);
    if (m_isInRun) {
        line->nameSize = static_cast<unsigned>(ContinuationOf(read.name).baseSize);
        m_joined.emplace_back(LineCount(), std::string(read.value.begin, read.value.size));
    }
}

unsigned EditText::EndOf(unsigned line) const
{
    return line + 1 < LineCount() ? m_lines[line + 1].begin : static_cast<unsigned>(m_bytes.size());
}

Text EditText::ContentOf(unsigned line) const
{
    return {m_bytes.data() + m_lines[line].begin, m_lines[line].size};
}

Text EditText::LineEndOf(unsigned line) const
{
    return {ContentOf(line).end(), m_bytes.data() + EndOf(line)};
}

Text EditText::NameOf(unsigned line) const
{
    const EditLine& at = m_lines[line];
    return {m_bytes.data() + at.begin + at.name, at.nameSize};
}

Text EditText::ValueOf(unsigned line) const
{
    const EditLine& at = m_lines[line];
    const auto joined = std::lower_bound(m_joined.begin(), m_joined.end(), line,
                                         [](const auto& entry, unsigned number) { return entry.first < number; });
    if (joined != m_joined.end() && joined->first == line) {
        return {joined->second.data(), joined->second.size()};
    }
    return {m_bytes.data() + at.begin + at.value, at.valueSize};
}

Text EditText::SectionOf(unsigned line) const
{
    const unsigned number = m_lines[line].section;
    return number == 0 ? Text("") : NameOf(m_sections[number]);
}

// Comments and lines that can't be read may stand between the parts; an item or a section ends them.
std::vector<unsigned> EditText::PartsOf(unsigned line) const
{
    KZ_ASSERT(m_lines[line].kind == kIniEditItem);
    std::vector<unsigned> parts;
    for (unsigned i = line + 1; i < LineCount() && m_lines[i].kind != kIniEditItem; ++i) {
        if (m_lines[i].kind == kIniEditPart) {
            parts.push_back(i);
        } else if (m_lines[i].kind == kIniEditSection) {
            break;
        }
    }
    return parts;
}

std::vector<bool> EditText::AreOf(Text section) const
{
    std::vector<bool> result(m_sections.size());
    result[0] = section.IsEmpty();
    for (size_t i = 1; i < m_sections.size(); ++i) {
        result[i] = m_rules.AreSame(NameOf(m_sections[i]), section);
    }
    return result;
}

std::vector<unsigned> EditText::SectionsOf(Text section) const
{
    std::vector<unsigned> lines;
    const std::vector<bool> isMeant = AreOf(section);
    for (size_t i = 1; i < m_sections.size(); ++i) {
        if (isMeant[i]) {
            lines.push_back(m_sections[i]);
        }
    }
    return lines;
}

std::vector<unsigned> EditText::ItemsOf(Text section, Text tag) const
{
    std::vector<unsigned> lines;
    const std::vector<bool> isMeant = AreOf(section);
    for (unsigned i = 0; i < LineCount(); ++i) {
        if (m_lines[i].kind == kIniEditItem && isMeant[m_lines[i].section] && m_rules.AreSame(NameOf(i), tag)) {
            lines.push_back(i);
        }
    }
    return lines;
}

}  // namespace qkini
