// A reading goes through three steps. Pieces of lines come from the input (ReadPiece, or the host's function),
// LineReader puts them together to whole lines, and Reader takes each line for what LineOf says it is. Behind the last
// line the parts of values that were cut for their length are joined.
//
// Every byte of the text is a stranger's. The input may have no end, so the read limit bounds every loop over it; and
// memory may run out at any line, so the object is sound behind each of them.

#include "IniReader.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "IniLine.h"
#include "IniMemory.h"
#include "KzAssert.h"

namespace qkini {

namespace {

bool IsLineEnd(unsigned char c)
{
    return c == '\n' || c == '\r' || c == 0;
}

// Makes sure that there is a byte in the chunk, unless the stream is at its end.
int FillChunk(IniLineInput* input)
{
    if (input->used < input->available) {
        return 1;
    }
    input->used = 0;
    input->available = 0;
    const int result = input->read(input->context, kIniInputChunk, &input->available, input->chunk);
    // A host's function may tell any number, and one that the chunk can't hold would be read past its end, or for ever.
    if (input->available < 0 || input->available > kIniInputChunk) {
        input->available = 0;
        return kIniErrRead;
    }
    return result;
}

// The number of bytes in front of the first line's end, at most `size`.
int LengthOfLine(const unsigned char* from, int size)
{
    constexpr uint64_t kOnes = 0x0101010101010101;
    int length = 0;
    // Eight at a time where none is below 14, so that none is an end. A tab among them, which is below 14 too, only
    // sends the rest of the line to the loop behind.
    for (uint64_t word; length + int{sizeof word} <= size; length += int{sizeof word}) {
        memcpy(&word, from + length, sizeof word);
        if (((word - kOnes * ('\r' + 1)) & ~word & (kOnes * 0x80)) != 0) {
            break;
        }
    }
    while (length < size && !IsLineEnd(from[length])) {
        ++length;
    }
    return length;
}

// Skips the second half of a pair such as CR LF, and counts it. Two different ends in a row are a pair;
// two equal ones end two lines.
int SkipPairedEnd(IniLineInput* input, int* skipped)
{
    const int result = FillChunk(input);
    if (result >= 0 && input->used < input->available) {
        const unsigned char first = input->chunk[input->used];
        if (IsLineEnd(first) && input->lastEnd != 0 && input->lastEnd != first + 1) {
            ++input->used;
            *skipped = 1;
        }
    }
    return result;
}

// Takes what the chunk has of the line. Requires a byte in the chunk and room for one in the buffer.
void TakeFromChunk(IniLineInput* input, char* buffer, int room, Piece* piece)
{
    KZ_ASSERT(input->used < input->available && room > 0);
    if (input->insideLine == 0) {
        input->insideLine = 1;
        input->lineNumber += input->lineNumber < INT_MAX ? 1 : 0;
    }
    const int rest = input->available - input->used;
    const int length = LengthOfLine(input->chunk + input->used, rest < room ? rest : room);
    memcpy(buffer + piece->size, input->chunk + input->used, static_cast<size_t>(length));
    piece->size += length;
    piece->taken += length;
    input->used += length;
    // A line that just fills the buffer leaves its end for the next piece, because only a byte that fits was looked at.
    if (length < room && input->used < input->available) {
        input->lastEnd = input->chunk[input->used] + 1;
        ++input->used;
        ++piece->taken;
        piece->isComplete = true;
    }
}

// The lines of an input, put together from its pieces. No more bytes than a limit are taken (-1 for none), because an
// input may be a device without an end.
class LineReader {
public:
    LineReader(IniInputFunction function, void* context, long long limit)
        : m_function(function), m_context(context), m_stream(nullptr), m_left(limit == -1 ? LLONG_MAX : limit)
    {}
    LineReader(IniLineInput* stream, long long limit)
        : m_function(nullptr), m_context(nullptr), m_stream(stream), m_left(limit == -1 ? LLONG_MAX : limit)
    {}
    ~LineReader() { free(m_buffer); }
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // 1 for a line, 0 when there is none left, or a negative code.
    int Next()
    {
        m_used = 0;
        for (;;) {
            if (m_size - m_used < 2 && !Grow()) {
                return kIniErrMemory;
            }
            const Piece piece = NextPiece();
            if (piece.result < 0) {
                return piece.result;
            }
            m_left -= piece.taken;
            if (m_left < 0) {
                return kIniErrMemory;
            }
            // An input that ends within a line gave a line all the same.
            if (piece.isEnd) {
                return m_used > 0 ? 1 : 0;
            }
            m_used += piece.size;
            KZ_ASSERT(m_used < m_size);
            if (piece.isComplete) {
                return 1;
            }
        }
    }

    // Good until the next line is read.
    Text line() const { return {m_buffer, static_cast<size_t>(m_used)}; }
    int number() const { return m_number; }

private:
    Piece NextPiece()
    {
        char* const buffer = m_buffer + m_used;
        // At most one byte more than may be taken: it tells that there is more.
        const long long useful = m_left > INT_MAX - 2 ? INT_MAX : m_left + 2;
        const int room = useful < m_size - m_used ? static_cast<int>(useful) : m_size - m_used;
        if (m_stream != nullptr) {
            const Piece piece = ReadPiece(m_stream, buffer, room);
            m_number = piece.lineNumber;
            return piece;
        }
        int eof = 0;
        int isComplete = 0;
        Piece piece{};
        piece.result = m_function(m_context, buffer, room, &eof, &isComplete, &m_number);
        piece.isEnd = eof != 0;
        piece.isComplete = isComplete != 0;
        piece.size = piece.result < 0 || piece.isEnd ? 0 : static_cast<int>(strlen(buffer));
        // A line counts with its end, and a call that gave nothing for a byte, because such calls might have no end.
        const bool countsMore = !piece.isEnd && (piece.isComplete || piece.size == 0);
        piece.taken = piece.size + (countsMore ? 1 : 0);
        return piece;
    }

    // Doubles the buffer, so that a line of any length is copied a bounded number of times per byte.
    bool Grow()
    {
        constexpr int kFirstSize = 256;
        if (m_size > INT_MAX / 2) {
            return false;
        }
        const int size = m_size == 0 ? kFirstSize : m_size * 2;
        auto* const buffer = static_cast<char*>(Reallocate(m_buffer, static_cast<size_t>(size)));
        if (buffer == nullptr) {
            return false;
        }
        m_buffer = buffer;
        m_size = size;
        return true;
    }

    const IniInputFunction m_function;  // a host's, or null for a stream
    void* const m_context;              // of the function
    IniLineInput* const m_stream;       // whose lines need no function, or null
    char* m_buffer = nullptr;
    int m_size = 0;  // of the buffer
    int m_used = 0;  // bytes of the line
    int m_number = 0;
    long long m_left;  // bytes that may still be taken
};

// Takes an object's lines, one after the other. Each step is false when out of memory. Comments wait in m_pending until
// the section or item comes in front of which they stand.
class Reader {
public:
    explicit Reader(IniFile* ini) : m_ini(ini) {}
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    bool Take(Text text, int number)
    {
        m_line = number;
        const Line line = LineOf(text, m_ini->readOptions);
        switch (line.kind) {
            case LineKind::kComment:
                return Keep(text);
            case LineKind::kSection:
                return TakeSection(line.name);
            case LineKind::kItem:
                return TakeItem(line);
            case LineKind::kBlank:
            case LineKind::kUnrecognized:
                break;
        }
        return TakeUnrecognized(text);
    }

    // The comments behind the last item.
    void TakeEnd() { GivePending(&m_ini->trailingComments); }

    // Whether there was the first part of a value that is to be joined.
    bool hasContinuations() const { return m_hasContinuations; }

private:
    bool Keep(Text line)
    {
        const bool keeps = (m_ini->readOptions & kIniReadKeepComments) != 0 && m_ini->sorted == 0;
        return !keeps || AppendComment(m_ini, &m_pending, line);
    }

    bool TakeUnrecognized(Text line)
    {
        if (m_ini->firstUnrecognizedLine == -1) {
            m_ini->firstUnrecognizedLine = m_line;
        }
        return Keep(line);
    }

    // The comments so far become those of a section or an item.
    void GivePending(unsigned* comments)
    {
        *comments = m_pending;
        m_pending = 0;
    }

    // A section that comes again goes on, and from then on bears the line and the comments of where it came last.
    bool TakeSection(Text name)
    {
        IniSection* section = m_ini->duplicateChecking != 0 ? FindSection(m_ini, name) : nullptr;
        if (section == nullptr) {
            section = AddSection(m_ini, name, m_line, Where::kLast);
        }
        if (section == nullptr) {
            return false;
        }
        section->line = m_line;
        GivePending(&section->comments);
        m_section = section;
        return true;
    }

    bool TakeItem(const Line& line)
    {
        if (m_section == nullptr) {
            if ((m_ini->readOptions & kIniReadColonAndNull) == 0) {
                return true;  // an item of no section is dropped
            }
            m_section = AddSection(m_ini, Text("(null)"), -1, Where::kLast);
        }
        return m_section != nullptr && StoreItem(m_section, line);
    }

    bool StoreItem(IniSection* section, const Line& line)
    {
        // The value is copied before an item is made for it, because an item without a value would be no sound one.
        char* const stored = m_ini->arena.Copy(line.value);
        if (stored == nullptr) {
            return false;
        }
        const NameKey key(line.name, m_ini->names.naming.seed);
        auto* item = m_ini->duplicateChecking != 0 ? static_cast<IniItem*>(section->items.Find(key)) : nullptr;
        if (item == nullptr) {
            item = AddItem(m_ini, section, key, Where::kLast, Texts::kInArena);
        }
        if (item == nullptr) {
            return false;
        }
        SetValue(m_ini, item, stored, Texts::kInArena, line.quote);
        m_hasContinuations = m_hasContinuations || IsFirstPart(line.name);
        item->line = m_line;
        GivePending(&item->comments);
        return true;
    }

    IniFile* const m_ini;
    bool m_hasContinuations = false;
    IniSection* m_section = nullptr;  // null before the first
    int m_line = 0;
    unsigned m_pending = 0;  // comments
};

// A run of items "tag Line0001", "tag Line0002" ..., by ranks from `first` up to `end`, which become one.
struct Run {
    int first;
    int end;
};

// Requires the first part of a value at `first`.
Run RunAt(const IniSection* section, int first)
{
    KZ_ASSERT(IsFirstPart(Text(ItemAt(section, first)->name)));
    Run run{first, first + 1};
    while (run.end < section->items.Count() && IsFurtherPart(Text(ItemAt(section, run.end)->name))) {
        ++run.end;
    }
    return run;
}

// Gives the run's first item the base tag and all values, and drops the others. False when out of memory: nothing
// changed.
bool JoinRun(IniFile* ini, IniSection* section, Run run)
{
    KZ_ASSERT(run.first < run.end && run.end <= section->items.Count());
    size_t size = 0;
    for (int i = run.first; i < run.end; ++i) {
        size += strlen(ItemAt(section, i)->value);
    }
    auto* const value = static_cast<char*>(Allocate(size + 1));
    if (value == nullptr) {
        return false;
    }
    char* at = value;
    for (int i = run.first; i < run.end; ++i) {
        const Text part(ItemAt(section, i)->value);
        memcpy(at, part.begin, part.size);
        at += part.size;
    }
    *at = 0;
    IniItem* const first = ItemAt(section, run.first);
    SetValue(ini, first, value, Texts::kOwned, first->quoteChar);
    section->items.Forget();  // the name changes where it stands
    first->name[ContinuationOf(Text(first->name)).baseSize] = 0;
    for (int rest = run.end - run.first - 1; rest > 0; --rest) {
        DropItem(section, ItemAt(section, run.first + 1));
    }
    return true;
}

// False when out of memory: the runs so far are joined.
bool JoinContinuations(IniFile* ini)
{
    for (int i = 0; i < ini->sections.Count(); ++i) {
        IniSection* const section = SectionAt(ini, i);
        for (int first = 0; first < section->items.Count(); ++first) {
            if (IsFirstPart(Text(ItemAt(section, first)->name)) && !JoinRun(ini, section, RunAt(section, first))) {
                return false;
            }
        }
    }
    return true;
}

// Replaces the object's content by the lines.
int ReadLines(IniFile* ini, LineReader* lines)
{
    Clear(ini);
    ini->firstUnrecognizedLine = -1;
    Reader reader(ini);
    int result;
    while ((result = lines->Next()) == 1) {
        if (!reader.Take(lines->line(), lines->number())) {
            result = kIniErrMemory;
            break;
        }
    }
    reader.TakeEnd();
    // Not behind a failure, because the first parts of a value would look like all of it.
    if (result == 0) {
        result = !reader.hasContinuations() || JoinContinuations(ini) ? 1 : kIniErrMemory;
    }
    // Whatever the result, because the order that a sorted object promises holds for what a failed read leaves too.
    if (ini->sorted != 0) {
        Sort(ini);
    }
    return result;
}

}  // namespace

Piece ReadPiece(IniLineInput* input, char* buffer, int size)
{
    Piece piece{};
    if (size < 2) {
        piece.result = kIniErrRead;
        return piece;
    }
    // The second half of a pair is skipped here, where the next line begins, and not where its first half was read,
    // because the stream may not have given it yet then.
    piece.result = input->insideLine != 0 ? 1 : SkipPairedEnd(input, &piece.skipped);
    piece.taken = piece.skipped;
    while (piece.result >= 0 && piece.size < size - 1 && !piece.isComplete) {
        piece.result = FillChunk(input);
        if (piece.result < 0) {
            break;
        }
        if (input->available == 0) {
            piece.isEnd = piece.size == 0;
            piece.isComplete = !piece.isEnd;  // a last line needs no end
            break;
        }
        TakeFromChunk(input, buffer, size - 1 - piece.size, &piece);
    }
    buffer[piece.size] = 0;
    if (piece.isEnd || piece.isComplete) {
        input->insideLine = 0;
    }
    piece.lineNumber = input->lineNumber;
    piece.result = piece.result < 0 ? piece.result : 1;
    return piece;
}

int Read(IniFile* ini, IniInputFunction input, void* context)
{
    KZ_ASSERT(ini != nullptr && input != nullptr);
    LineReader lines(input, context, ini->readLimit);
    return ReadLines(ini, &lines);
}

int Read(IniFile* ini, IniLineInput* input)
{
    KZ_ASSERT(ini != nullptr);
    LineReader lines(input, ini->readLimit);
    return ReadLines(ini, &lines);
}

}  // namespace qkini
