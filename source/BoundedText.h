// A text that grows in room of a fixed size, for reports, which must not need memory.
#ifndef KZCORE_BOUNDEDTEXT_H
#define KZCORE_BOUNDEDTEXT_H

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstring>

#include "KZTypes.h"

namespace kz {

// A text that grows in room of a fixed size: what doesn't fit is dropped without a mark, and the text stays
// NUL-terminated. Takes no lock and no memory and calls nothing of stdio, so that a signal handler may use it.
class BoundedText {
public:
    // No room at all.
    BoundedText() = default;

    // An empty text in `size` bytes at `text`. Requires: size > 0.
    BoundedText(char* text, std::size_t size) : mCursor(text), mEnd(text + size - 1) { *text = '\0'; }

    // Null appends nothing.
    void Append(const char* text)
    {
        if (text != nullptr) {
            Append(text, text + std::strlen(text));  // no call for a literal
        }
    }
    void Append(const char* begin, const char* end)
    {
        if (begin == nullptr || end == nullptr || begin >= end || mCursor == mEnd) {
            return;
        }
        const auto length = static_cast<std::size_t>(end - begin);
        if (length <= Room()) {
            std::memcpy(mCursor, begin, length);  // of a literal: moves, no call
            mCursor += length;
        } else {
            std::memcpy(mCursor, begin, Room());
            mCursor = mEnd;
        }
        *mCursor = '\0';
    }

    // An integer's digits, letters among them in lower case. Requires: base >= 10.
    template <std::integral T>
    void AppendInteger(T value, int base = 10)
    {
        constexpr std::ptrdiff_t kMostDigits = 21;
        if (mEnd - mCursor >= kMostDigits) {
            mCursor = std::to_chars(mCursor, mEnd, value, base).ptr;
            *mCursor = '\0';
        } else {
            char text[kMostDigits];
            Append(text, std::to_chars(text, text + sizeof text, value, base).ptr);
        }
    }

    // For a writer of another kind: where the next character goes, how many have room there before the closing NUL,
    // and what it tells when it wrote some. Requires: length <= Room().
    char* Cursor() { return mCursor; }
    std::size_t Room() const { return static_cast<std::size_t>(mEnd - mCursor); }
    void Advance(std::size_t length) { mCursor += length; }

private:
    char* mCursor = nullptr;
    char* mEnd = nullptr;  // the last byte that can hold the closing NUL
};

}  // namespace kz

#endif
