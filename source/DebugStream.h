// A report while it is being written: a short text in a pooled buffer, with its place, level and hash.
//
// A stream lives on one thread's stack. Any number of threads may report at once, at any time: before the first
// service, while services stop, and after. A report allocates nothing and takes no lock while one of the 16 pooled
// buffers is free; a handler may report in its turn.
#ifndef KZCORE_DEBUGSTREAM_H
#define KZCORE_DEBUGSTREAM_H

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstring>
#include <type_traits>

#include "DebugOutputCore.h"
#include "KZTypes.h"
#include "ServiceObject.h"

struct DebugStreamBufferPoolRecord;
class DbgFmtToDebugStream;

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

class KZ_EXPORT DebugStream {
public:
    // Checks out a buffer. `file` and `versionId` are kept as pointers. When there is no memory for a buffer the text
    // stays empty.
    DebugStream(const char* file, int line, const char* versionId, _DebugOutputLevel level);
    DebugStream(const DebugStream&) = delete;
    DebugStream& operator=(const DebugStream&) = delete;

    // Each appends, and drops what passes 255 bytes; the text stays NUL-terminated. Null appends nothing.
    void Append(char c) { mRest.Append(&c, &c + 1); }
    void Append(const char* text) { mRest.Append(text); }
    void Append(const char* begin, const char* end) { mRest.Append(begin, end); }

    // The same of an integer in decimal digits.
    template <std::integral T>
    void AppendInteger(T value)
    {
        mRest.AppendInteger(value);
    }

    // Identifies the reporting place to the handler; 0 until set.
    void SetHash(uInt32 hash) { mHash = hash; }

    // Sends the text and gives back the buffer: exactly once. A stream that is dropped without it keeps its buffer for
    // the life of the process.
    void Process() const;

private:
    const char* mFile;
    int32 mLine;
    const char* mVersionId;
    int32 mLevel;
    uInt32 mHash = 0;
    char* mText;                               // null without memory
    kz::BoundedText mRest;                     // where the text goes on
    DebugStreamBufferPoolRecord* mPoolRecord;  // null when the buffer came from malloc
    uInt64 mExtra = 0;
};

// Each appends a value's text, as printf would write it; a Boolean as "true" or "false", strings as they stand, null
// strings not at all.
KZ_EXPORT void ToDebugStream(DebugStream& stream, bool value);
KZ_EXPORT void ToDebugStream(DebugStream& stream, const char* text);
KZ_EXPORT void ToDebugStream(DebugStream& stream, const LStr* text);
KZ_EXPORT void ToDebugStream(DebugStream& stream, const LStr* const* text);
KZ_EXPORT void ToDebugStream(DebugStream& stream, void (*const& procedure)());
KZ_EXPORT void ToDebugStream(DebugStream& stream, int value);
KZ_EXPORT void ToDebugStream(DebugStream& stream, short value);
// Both print the low 32 bits, as signed; a 64-bit value is cast to (unsigned) long long.
KZ_EXPORT void ToDebugStream(DebugStream& stream, long value);
KZ_EXPORT void ToDebugStream(DebugStream& stream, unsigned long value);
KZ_EXPORT void ToDebugStream(DebugStream& stream, unsigned int value);
KZ_EXPORT void ToDebugStream(DebugStream& stream, unsigned short value);
KZ_EXPORT void ToDebugStream(DebugStream& stream, unsigned char value);
KZ_EXPORT void ToDebugStream(DebugStream& stream, long long value);
KZ_EXPORT void ToDebugStream(DebugStream& stream, unsigned long long value);
KZ_EXPORT void ToDebugStream(DebugStream& stream, const double& value);
KZ_EXPORT void ToDebugStream(DebugStream& stream, float value);
KZ_EXPORT void ToDebugStream(DebugStream& stream, const DbgFmtToDebugStream& value);
// A character would print as its number: DbgFmtNum("%c", c), or Append.
void ToDebugStream(DebugStream& stream, char value) = delete;
void ToDebugStream(DebugStream& stream, wchar_t value) = delete;
void ToDebugStream(DebugStream& stream, char8_t value) = delete;
void ToDebugStream(DebugStream& stream, char16_t value) = delete;
void ToDebugStream(DebugStream& stream, char32_t value) = delete;

namespace kz {

// Pointers that one of the overloads above takes as a text.
template <typename T>
inline constexpr bool kIsDebugText = std::is_convertible_v<T*, const char*> || std::is_convertible_v<T*, const LStr*> ||
                                     std::is_convertible_v<T*, const LStr* const*>;

}  // namespace kz

// Functions of any type, as void (*)().
template <typename T>
requires std::is_function_v<T>
void ToDebugStream(DebugStream& stream, T* function)
{
    void (*const procedure)() = reinterpret_cast<void (*)()>(function);
    ToDebugStream(stream, procedure);
}

// Other pointers go through DbgFmtPtr; the bool overload would take them in silence.
template <typename T>
requires(!std::is_function_v<T> && !kz::kIsDebugText<T>) void ToDebugStream(DebugStream& stream, T* pointer) = delete;

// One pooled buffer, which a stream claims by swapping `inUse` from 0 to 1.
struct DebugStreamBufferPoolRecord {
    uInt32 inUse;
    char text[256];
};

// Opens the pool of buffers for as long as it runs; without it a stream's buffer comes from malloc.
class DebugStream_Service : public PlainService_T<DebugStream_Service> {
public:
    // Claims a buffer; null while the service doesn't run, or when all are taken. The latter counts as a failed
    // checkout and, unless the host is a release, appends the caller's stack to "DebugStreamClash.txt" in the current
    // directory, a file that the first such failure after a start empties. What is reported on this thread meanwhile,
    // by the host's GetAppEditorVersion for one, is not logged so.
    static DebugStreamBufferPoolRecord* CheckOutDebugStreamBuffer();

    // Gives a buffer back, also after the service stopped.
    static void CheckInDebugStreamBuffer(DebugStreamBufferPoolRecord* record);

private:
    friend KZ_GammaPolicy<DebugStream_Service>;

    DebugStream_Service();
    KzErr _Init() override;
    KzErr _Uninit() override;
};

KZ_EXPORT DebugStream_Service* DebugStreamService();

#endif
