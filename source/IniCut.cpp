#include "IniCut.h"

#include <stdint.h>
#include <stdlib.h>

#include "IniMemory.h"

namespace qkini {

namespace {

// Whether a reader that trims both sides of this cut loses nothing.
bool KeepsSpace(Text value, size_t at)
{
    return at == value.size || (!IsSpace(value.begin[at - 1]) && !IsSpace(value.begin[at]));
}

}  // namespace

bool CutPlaces::IsPlace(size_t at) const
{
    return m_allowed == nullptr ? KeepsSpace(m_value, at) : m_allowed[at] != 0;
}

void CutPlaces::MoveTo(size_t bound)
{
    while (m_bound < bound) {
        ++m_bound;
        if (!IsPlace(m_bound)) {
            continue;
        }
        const char before = m_value.begin[m_bound - 1];
        m_last = m_bound;
        m_lastNotBehindDouble = before != '"' ? m_bound : m_lastNotBehindDouble;
        m_lastNotBehindSingle = before != '\'' ? m_bound : m_lastNotBehindSingle;
    }
}

size_t CutPlaces::LastBehind(size_t from) const
{
    const char first = m_value.begin[from];
    const bool isQuote = first == '"' || first == '\'';
    const size_t last = first == '"' ? m_lastNotBehindDouble : isQuote ? m_lastNotBehindSingle : m_last;
    if (last > from) {
        return last;
    }
    return isQuote && IsPlace(from + 1) ? from + 1 : from;  // one quote is no pair
}

Cutter::Cutter(Text value, size_t room, int breakChar, bool isQuoted)
    : m_value(value),
      m_room(room),
      m_breakChar(static_cast<char>(breakChar)),
      m_isQuoted(isQuoted),
      m_course(value),
      m_found(value)
{
    if (!isQuoted && !IsRuleLossless()) {
        Search();
    }
}

Cutter::~Cutter()
{
    free(m_allowed);
}

Text Cutter::Next()
{
    const size_t from = m_from;
    if (m_allowed != nullptr) {
        m_found.MoveTo(LimitFrom(from));
        m_from = m_found.LastBehind(from);
    } else {
        bool isLossless = true;
        m_from = EndByRule(from, &m_course, &isLossless);
    }
    return {m_value.begin + from, m_from - from};
}

size_t Cutter::LimitFrom(size_t from) const
{
    const size_t rest = m_value.size - from;
    return from + (m_room < rest ? m_room : rest);
}

size_t Cutter::EndByRule(size_t from, Course* course, bool* isLossless) const
{
    const size_t limit = LimitFrom(from);
    for (; m_breakChar != 0 && course->searched < limit; ++course->searched) {
        if (m_value.begin[course->searched] == m_breakChar) {
            course->behindBreak = course->searched + 1;
        }
    }
    // Never moves back: a break character behind a limit without one is behind all limits so far.
    const size_t wanted = course->behindBreak > from ? course->behindBreak : limit;
    if (m_isQuoted) {
        return wanted;
    }
    course->near.MoveTo(wanted);
    size_t end = course->near.LastBehind(from);
    if (end == from) {
        course->far.MoveTo(limit);
        end = course->far.LastBehind(from);
    }
    *isLossless = end != from;
    return *isLossless ? end : wanted;
}

bool Cutter::IsRuleLossless() const
{
    Course course(m_value);
    bool isLossless = true;
    for (size_t from = 0; from < m_value.size && isLossless;) {
        from = EndByRule(from, &course, &isLossless);
    }
    return isLossless;
}

// Tells of each place, from the last to the first, whether what follows it can be cut without a loss. The nearest end
// of a piece that allows this is enough to know.
void Cutter::Search()
{
    constexpr size_t kNone = SIZE_MAX;
    const size_t size = m_value.size;
    m_allowed = static_cast<char*>(Allocate(size + 1));
    if (m_allowed == nullptr) {
        m_isValid = false;
        return;
    }
    size_t next = kNone;
    size_t nextNotBehindDouble = kNone;
    size_t nextNotBehindSingle = kNone;
    m_allowed[size] = 1;
    for (size_t at = size; at-- > 0;) {
        const char first = m_value.begin[at];
        if (m_allowed[at + 1] != 0) {
            next = at + 1;
            nextNotBehindDouble = first != '"' ? next : nextNotBehindDouble;
            nextNotBehindSingle = first != '\'' ? next : nextNotBehindSingle;
        }
        const size_t end = m_allowed[at + 1] != 0 ? at + 1
                           : first == '"'         ? nextNotBehindDouble
                           : first == '\''        ? nextNotBehindSingle
                                                  : next;
        const bool isPlace = at == 0 || KeepsSpace(m_value, at);
        m_allowed[at] = isPlace && end <= LimitFrom(at) ? 1 : 0;
    }
    if (m_allowed[0] == 0) {
        free(m_allowed);
        m_allowed = nullptr;
    }
    m_found = CutPlaces(m_value, m_allowed);
}

}  // namespace qkini
