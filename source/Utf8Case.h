// The case of UTF-8 text, mapped from one place to another without memory of its own, so that it can't fail.
#ifndef KZCORE_UTF8CASE_H
#define KZCORE_UTF8CASE_H

#include <cstddef>

#include "UnicodeCase.h"

namespace kz {

// Maps `length` bytes at `from` to `to`, which is other memory of that size: at most as many bytes, in whole
// characters, and as many UTF-16 units as the text had, `?` standing for half a character. The bytes behind stay as
// they are. In text that is not UTF-8 each step of ConvertUTF8toUTF32 that gives 0 becomes U+FFFD first. Any thread.
void MapUtf8Case(const CaseMapping& mapping, const unsigned char* from, std::size_t length, unsigned char* to);

}  // namespace kz

#endif
