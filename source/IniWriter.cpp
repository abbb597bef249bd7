// The object is written in its order, line by line, through a buffer that holds one line. What makes it long is the
// care for values that are cut: a reader joins parts by their tags alone, so a value is cut only where its parts can't
// be taken for another's, nor another's for its.
//
// The first failure stays and stops everything behind it, in one place (LineWriter), so that nothing else has to look
// at results on its way.

#include "IniWriter.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "IniCut.h"
#include "IniMemory.h"
#include "KzAssert.h"

namespace qkini {

namespace {

// Builds lines and hands them to an output function; the first failure stays.
class LineWriter {
public:
    LineWriter(IniOutputFunction output, void* context) : m_output(output), m_context(context) {}
    ~LineWriter() { free(m_buffer); }
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    void Add(Text text)
    {
        if (MakeRoom(text.size)) {
            memcpy(m_buffer + m_used, text.begin, text.size);
            m_used += text.size;
        }
    }
    void Add(char c) { Add(Text(&c, size_t{1})); }

    void EndLine()
    {
        if (MakeRoom(0)) {
            m_buffer[m_used] = 0;
            Put(m_buffer);
        }
        m_used = 0;
    }

    // A whole line. The output function's negative result is the failure, its other results count as success.
    void Put(const char* line)
    {
        if (m_result == 1) {
            const int result = m_output(m_context, line);
            m_result = result < 0 ? result : 1;
        }
    }

    void Fail(int code) { m_result = m_result == 1 ? code : m_result; }
    bool hasFailed() const { return m_result != 1; }
    int result() const { return m_result; }

private:
    // Room for `size` more bytes and a NUL.
    bool MakeRoom(size_t size)
    {
        constexpr size_t kFirstSize = 256;
        if (hasFailed()) {
            return false;
        }
        // At least twice the size, so that a line of any length is copied a bounded number of times per byte.
        if (size >= m_size - m_used) {
            const size_t wanted = m_used + size + 1;
            const size_t larger = m_size * 2 > wanted ? m_size * 2 : wanted > kFirstSize ? wanted : kFirstSize;
            auto* const buffer = static_cast<char*>(Reallocate(m_buffer, larger));
            if (buffer == nullptr) {
                Fail(kIniErrMemory);
                return false;
            }
            m_buffer = buffer;
            m_size = larger;
        }
        return true;
    }

    const IniOutputFunction m_output;
    void* const m_context;
    int m_result = 1;
    char* m_buffer = nullptr;
    size_t m_size = 0;
    size_t m_used = 0;
};

// Writes an object in its order.
class Writer {
public:
    Writer(const IniFile* ini, LineWriter* lines)
        : m_ini(ini),
          m_lines(*lines),
          m_hasComments((ini->writeOptions & kIniWriteComments) != 0),
          m_separator((ini->writeOptions & kIniWriteSpacedEquals) != 0 ? " = " : "=")
    {}

    // Blank lines that were read are among the comments. So where comments are written, only sections that were not
    // read get blank lines, behind them and in front; where they are not, each section gets one behind it.
    void WriteAll()
    {
        bool isBehindRead = false;
        for (Element* const element : m_ini->sections) {
            auto* const section = static_cast<IniSection*>(element);
            const bool isNull = strcmp(section->name, "(null)") == 0;
            const bool isRead = section->line != -1;
            if (m_hasComments && isBehindRead && !isRead) {
                m_lines.Put("");
            }
            WriteSection(section, isNull);
            if (!m_hasComments || (!isRead && !isNull)) {
                m_lines.Put("");
            }
            isBehindRead = isRead;
            if (m_lines.hasFailed()) {
                break;
            }
        }
        WriteComments(m_ini->trailingComments);
    }

private:
    // Items before any section were read into one of the name "(null)", whose own line is not written.
    void WriteSection(IniSection* section, bool isNull)
    {
        m_section = section;
        m_isMarked = false;
        if (!isNull) {
            WriteComments(section->comments);
            m_lines.Add('[');
            m_lines.Add(Text(section->name));
            m_lines.Add(']');
            m_lines.EndLine();
        }
        for (const Element* const item : section->items) {
            WriteComments(item->comments);
            WriteItem(*static_cast<const IniItem*>(item));
            if (m_lines.hasFailed()) {
                break;
            }
        }
    }

    // The ring of comments whose last one has this number, or none for 0.
    void WriteComments(unsigned last)
    {
        for (unsigned number = m_hasComments ? last : 0; number != 0 && !m_lines.hasFailed();) {
            number = CommentAt(m_ini, number)->next;
            const IniComment* const comment = CommentAt(m_ini, number);
            for (int line = 0; line < comment->count && !m_lines.hasFailed(); ++line) {
                m_lines.Put(comment->text);
            }
            number = number == last ? 0 : number;
        }
    }

    // A line that is too long is cut, or else written as it is where no reader would join its parts; a tag that leaves
    // no room for a part fails even then.
    void WriteItem(const IniItem& item)
    {
        const Text tag(item.name);
        const Text value(item.value);
        const size_t quotes = item.quoteChar != 0 ? 2 : 0;
        const size_t size = tag.size + m_separator.size + value.size + quotes;
        const long long most = m_ini->maxLineLength;
        const bool isWithin = most == -1 || (most >= 0 && size <= static_cast<size_t>(most));
        const long long room = most - static_cast<long long>(tag.size + kBesideTag + quotes);
        if (!isWithin && room < 1) {
            m_lines.Fail(kIniErrLineTooShort);
        } else if (isWithin || !IsJoinedAgain(item)) {
            m_lines.Add(tag);
            WriteValue(item, value);
        } else {
            Cutter cutter(value, static_cast<size_t>(room), m_ini->breakChar, quotes != 0);
            WriteCut(item, tag, &cutter);
        }
    }

    // Whether a reader would join the parts of a cut value, no more and no less. A plain item that looks like a part is
    // joined to those in front of it, and is one of them if it has its name.
    bool IsJoinedAgain(const IniItem& item)
    {
        if (!m_isMarked) {
            MarkLookalikes();
            m_isMarked = true;
        }
        return !item.hasLookalike && !HasContinuationMark(Text(item.name)) && !IsInFrontOfPart(&item);
    }

    // Marks the items whose parts would have another item's name. Goes from those names to the items, once for a
    // section and only when a value of it is cut, because asking each item for all numbers would have no end.
    void MarkLookalikes()
    {
        for (Element* const item : m_section->items) {
            static_cast<IniItem*>(item)->hasLookalike = false;
        }
        for (Element* const item : m_section->items) {
            const size_t baseSize = BaseOfLookalike(Text(item->name));
            auto* const base = baseSize == 0 ? nullptr : m_section->items.Find(KeyOf({item->name, baseSize}));
            if (base != nullptr) {
                static_cast<IniItem*>(base)->hasLookalike = true;
            }
        }
    }

    NameKey KeyOf(Text name) const { return {name, m_ini->names.naming.seed}; }

    // Whether a reader would take what follows for one more part of this value.
    bool IsInFrontOfPart(const Element* element) const
    {
        const Element* next = m_section->items.Behind(element);
        // An item that a reader may drop keeps none from the parts in front of it.
        while (next != nullptr && !IsPart(next) && IsEmpty(static_cast<const IniItem*>(next))) {
            next = m_section->items.Behind(next);
        }
        return next != nullptr && IsPart(next);
    }

    static bool IsPart(const Element* item) { return ContinuationOf(Text(item->name)).number >= 0; }
    static bool IsEmpty(const IniItem* item) { return *item->value == 0 && item->quoteChar == 0; }

    // The rest of a line, behind its tag.
    void WriteValue(const IniItem& item, Text value)
    {
        const auto quote = static_cast<char>(item.quoteChar);
        m_lines.Add(m_separator);
        if (quote != 0) {
            m_lines.Add(quote);
        }
        m_lines.Add(value);
        if (quote != 0) {
            m_lines.Add(quote);
        }
        m_lines.EndLine();
    }

    // Writes a value as continuation lines.
    void WriteCut(const IniItem& item, Text tag, Cutter* cutter)
    {
        if (!cutter->isValid()) {
            m_lines.Fail(kIniErrMemory);
        }
        // Four digits or as many as are needed; a reader takes any.
        for (int number = 1; cutter->HasNext() && !m_lines.hasFailed(); ++number) {
            char mark[32];
            snprintf(mark, sizeof mark, " Line%04d", number);
            m_lines.Add(tag);
            m_lines.Add(Text(mark));
            WriteValue(item, cutter->Next());
        }
    }

    static constexpr size_t kBesideTag = 12;  // " Line0001" and " = ", whatever the separator

    const IniFile* const m_ini;
    LineWriter& m_lines;
    const bool m_hasComments;
    const Text m_separator;
    IniSection* m_section = nullptr;  // that is being written
    bool m_isMarked = false;          // its items that have lookalikes
};

}  // namespace

int Write(const IniFile* ini, IniOutputFunction output, void* context)
{
    KZ_ASSERT(ini != nullptr && output != nullptr);
    LineWriter lines(output, context);
    Writer(ini, &lines).WriteAll();
    return lines.result();
}

}  // namespace qkini
