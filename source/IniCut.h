// Where a value that is too long for its line is cut into pieces, so that a reader who trims and joins them has the
// same value again. C library only.
#ifndef KZCORE_INICUT_H
#define KZCORE_INICUT_H

#include "IniText.h"

namespace qkini {

// The places in a value, each the number of bytes in front of it, at which a piece without quotes may end. They are
// looked at up to a bound that only moves on, so that all pieces of a value cost one pass over it.
class CutPlaces {
public:
    // Any cut that has no white space beside it is a place, unless `allowed` tells for each from 0 to the value's size.
    explicit CutPlaces(Text value, const char* allowed = nullptr) : m_value(value), m_allowed(allowed) {}

    // Requires a bound up to the value's size. One below the last does nothing.
    void MoveTo(size_t bound);

    // The last place up to the bound that ends a piece from `from` on, and does not leave the same quotes at both of
    // its ends; `from` where there is none. Requires a byte behind `from`.
    size_t LastBehind(size_t from) const;

private:
    bool IsPlace(size_t at) const;

    Text m_value;
    const char* m_allowed;  // not owned
    size_t m_bound = 0;
    size_t m_last = 0;                 // place up to the bound; 0 for none
    size_t m_lastNotBehindDouble = 0;  // the last one that has no double quote in front of it
    size_t m_lastNotBehindSingle = 0;
};

// The pieces of a value, one after the other. Each has at most `room` bytes (1 or more). A piece in quotes ends behind
// the last `breakChar` among these bytes where there is one; 0 for none.
//
// A piece without quotes is read without white space at its ends, and without quotes that are the same on both. So the
// end that it would have in quotes moves to the nearest place on the left, or else to the last one on the right, where
// nothing is lost. If that leads to a piece that loses something all the same, all ways to cut are searched for one
// that does not, whatever the `breakChar`: of those the longest first piece is taken, then the longest second one, and
// so on. Where each way loses something, the first rule holds.
class Cutter {
public:
    // The value outlives the cutter. Requires room for 1 byte.
    Cutter(Text value, size_t room, int breakChar, bool isQuoted);
    ~Cutter();
    Cutter(const Cutter&) = delete;
    Cutter& operator=(const Cutter&) = delete;

    // False when out of memory for the search.
    bool isValid() const { return m_isValid; }

    bool HasNext() const { return m_from < m_value.size; }
    Text Next();  // part of the value, 1 byte or more

private:
    // How far the first rule has looked. One for the pieces and one for the trial in front of them.
    struct Course {
        explicit Course(Text value) : near(value), far(value) {}

        CutPlaces near;  // up to where the piece should end
        CutPlaces far;   // up to where it has to end
        size_t searched = 0;
        size_t behindBreak = 0;  // the place behind the last break character among the bytes that were searched
    };

    size_t LimitFrom(size_t from) const;
    size_t EndByRule(size_t from, Course* course, bool* isLossless) const;
    bool IsRuleLossless() const;
    void Search();

    const Text m_value;
    const size_t m_room;
    const char m_breakChar;
    const bool m_isQuoted;
    bool m_isValid = true;
    size_t m_from = 0;
    Course m_course;
    char* m_allowed = nullptr;  // places from which what follows can be cut without a loss; owned
    CutPlaces m_found;          // among those; used if m_allowed is not null
};

}  // namespace qkini

#endif
