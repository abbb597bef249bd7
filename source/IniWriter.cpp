#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "IniFile.h"
#include "IniModel.h"

using qkini::ItemAt;
using qkini::SectionAt;
using qkini::Text;

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

    // A whole line.
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
        if (size >= m_size - m_used) {
            const size_t wanted = m_used + size + 1;
            const size_t larger = m_size * 2 > wanted ? m_size * 2 : wanted > kFirstSize ? wanted : kFirstSize;
            auto* const buffer = static_cast<char*>(qkini::Reallocate(m_buffer, larger));
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

    void WriteAll()
    {
        bool isBehindRead = false;
        for (int i = 0; i < m_ini->sections.Count() && !m_lines.hasFailed(); ++i) {
            const IniSection* const section = SectionAt(m_ini, i);
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
        }
        WriteComments(m_ini->trailingComments);
    }

private:
    void WriteSection(const IniSection* section, bool isNull)
    {
        if (!isNull) {
            WriteComments(section->comments);
            m_lines.Add('[');
            m_lines.Add(Text(section->name));
            m_lines.Add(']');
            m_lines.EndLine();
        }
        for (int i = 0; i < section->items.Count() && !m_lines.hasFailed(); ++i) {
            const IniItem* const item = ItemAt(section, i);
            WriteComments(item->comments);
            WriteItem(*item);
        }
    }

    void WriteComments(qkini_List comments)
    {
        const int count = m_hasComments ? qkini_ListNumItems(comments) : 0;
        for (int i = 1; i <= count; ++i) {
            m_lines.Put(static_cast<IniComment*>(qkini_ListGetPtrToItem(comments, i))->text);
        }
    }

    void WriteItem(const IniItem& item)
    {
        const Text tag(item.name);
        const Text value(item.value);
        const size_t quotes = item.quoteChar != 0 ? 2 : 0;
        const size_t size = tag.size + m_separator.size + value.size + quotes;
        if (m_ini->maxLineLength == -1 ||
            (m_ini->maxLineLength >= 0 && size <= static_cast<size_t>(m_ini->maxLineLength))) {
            m_lines.Add(tag);
            WriteValue(item, value);
        } else {
            WriteCut(item, tag, value);
        }
    }

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

    // Cuts a value into continuation lines.
    void WriteCut(const IniItem& item, Text tag, Text value)
    {
        // " Line0001" and " = ", whatever the separator.
        constexpr long long kBesideTag = 12;
        const long long most =
            m_ini->maxLineLength - static_cast<long long>(tag.size) - kBesideTag - (item.quoteChar != 0 ? 2 : 0);
        if (most < 1) {
            m_lines.Fail(kIniErrLineTooShort);
            return;
        }
        for (int number = 1; !value.IsEmpty() && !m_lines.hasFailed(); ++number) {
            const size_t size = LengthOfChunk(item, value, static_cast<size_t>(most));
            char mark[32];
            snprintf(mark, sizeof mark, " Line%04d", number);
            m_lines.Add(tag);
            m_lines.Add(Text(mark));
            WriteValue(item, {value.begin, size});
            value = {value.begin + size, value.end()};
        }
    }

    size_t LengthOfChunk(const IniItem& item, Text value, size_t room) const
    {
        const size_t most = room < value.size ? room : value.size;
        const void* const breakAt = m_ini->breakChar == 0 ? nullptr : memrchr(value.begin, m_ini->breakChar, most);
        const size_t size =
            breakAt == nullptr ? most : static_cast<size_t>(static_cast<const char*>(breakAt) - value.begin) + 1;
        return item.quoteChar != 0 ? size : LengthWithoutLoss(value, size, most);
    }

    // An unquoted chunk is read without white space at its ends, and without the same quotes on both: the cut moves to
    // the nearest place on the left, or else the last one on the right, where nothing is lost, if there is one.
    static size_t LengthWithoutLoss(Text value, size_t size, size_t most)
    {
        const auto keepsAll = [&](size_t i) {
            const char last = value.begin[i - 1];
            const bool isCut = i < value.size;
            const bool isTrimmed = isCut && (qkini::IsSpace(last) || qkini::IsSpace(value.begin[i]));
            return !isTrimmed && (i < 2 || *value.begin != last || (last != '"' && last != '\''));
        };
        for (size_t i = size; i > 0; --i) {
            if (keepsAll(i)) {
                return i;
            }
        }
        for (size_t i = most; i > size; --i) {
            if (keepsAll(i)) {
                return i;
            }
        }
        return size;
    }

    const IniFile* const m_ini;
    LineWriter& m_lines;
    const bool m_hasComments;
    const Text m_separator;
};

}  // namespace

extern "C" {

int IniWrite(IniFile* ini, IniOutputFunction output, void* context)
{
    if (ini == nullptr || output == nullptr) {
        return kIniErrFile;
    }
    LineWriter lines(output, context);
    Writer(ini, &lines).WriteAll();
    return lines.result();
}

int IniFileOutputFunc(void* file, const char* line)
{
    auto* const stream = static_cast<FILE*>(file);
    return fputs(line, stream) < 0 || putc('\n', stream) == EOF ? kIniErrWrite : 1;
}

}  // extern "C"
