// The pieces of a value come by one of two ways, which is chosen before the first piece. The rule (EndByRule) looks at
// each piece alone and loses nothing of nearly every value. Where it would, Search finds out from the value's end which
// places lead to its end without a loss, and each piece then ends at the last such place in its reach.
//
// Bounds only move on, in CutPlaces as in Course, because a value of megabytes may be cut at every twenty bytes: a look
// back from each piece would make that quadratic.

#include "IniCut.h"

#include <stdint.h>
#include <stdlib.h>

#include "IniMemory.h"
#include "KzAssert.h"

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
    KZ_ASSERT(bound <= m_value.size);
    while (m_bound < bound) {
        ++m_bound;
        if (!IsPlace(m_bound)) {
            continue;
        }
        // A piece that begins with a quote must not end behind the same one, so the last place of each kind is known.
        const char before = m_value.begin[m_bound - 1];
        m_last = m_bound;
        m_lastNotBehindDouble = before != '"' ? m_bound : m_lastNotBehindDouble;
        m_lastNotBehindSingle = before != '\'' ? m_bound : m_lastNotBehindSingle;
    }
}

size_t CutPlaces::LastBehind(size_t from) const
{
    KZ_ASSERT(from < m_value.size);
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
    KZ_ASSERT(room > 0);
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
    KZ_ASSERT(HasNext());
    const size_t from = m_from;
    if (m_allowed != nullptr) {
        m_found.MoveTo(LimitFrom(from));
        m_from = m_found.LastBehind(from);
    } else {
        bool isLossless = true;
        m_from = EndByRule(from, &m_course, &isLossless);
    }
    // A piece that is empty would have no end of them.
    KZ_ASSERT(m_from > from && m_from <= LimitFrom(from));
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

// The rule, run over the whole value once without taking the pieces.
bool Cutter::IsRuleLossless() const
{
    Course course(m_value);
    bool isLossless = true;
    for (size_t from = 0; from < m_value.size && isLossless;) {
        from = EndByRule(from, &course, &isLossless);
    }
    return isLossless;
}

// Notes of each place, from the last to the first, whether what follows it can be cut without a loss. That is so if one
// piece from it reaches another such place, and the nearest one is reached if any is. So the nearest is all that has to
// be known of what follows: one of any kind, and one that a piece with a quote in front may end at.
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
        // A quote alone is no pair, so a piece of one byte may be one.
        const size_t end = m_allowed[at + 1] != 0 ? at + 1
                           : first == '"'         ? nextNotBehindDouble
                           : first == '\''        ? nextNotBehindSingle
                                                  : next;
        const bool isPlace = at == 0 || KeepsSpace(m_value, at);
        m_allowed[at] = isPlace && end <= LimitFrom(at) ? 1 : 0;
    }
    // Each way loses something, so the rule is as good as any.
    if (m_allowed[0] == 0) {
        free(m_allowed);
        m_allowed = nullptr;
    }
    m_found = CutPlaces(m_value, m_allowed);
}

}  // namespace qkini
