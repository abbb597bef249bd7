// A report while it is being written: a short text in a pooled buffer, with its place, level and hash.
//
// A stream lives on one thread's stack. Any number of threads may report at once, at any time: before the first
// service, while services stop, and after. A report allocates nothing and takes no lock while one of the 16 pooled
// buffers is free; a handler may report in its turn.
#ifndef KZCORE_DEBUGSTREAM_H
#define KZCORE_DEBUGSTREAM_H

#include <concepts>
#include <cstddef>
#include <type_traits>

#include "BoundedText.h"
#include "DebugOutputCore.h"
#include "KZTypes.h"

struct DebugStreamBufferPoolRecord;

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

    // Sends the text and gives back the buffer, so that the stream has no room afterwards and a second call sends an
    // empty text. A stream that is dropped without this call keeps its buffer for the life of the process.
    void Process() const;

private:
    const char* mFile;
    int32 mLine;
    const char* mVersionId;
    int32 mLevel;
    uInt32 mHash = 0;
    mutable char* mText;                               // null without memory
    mutable kz::BoundedText mRest;                     // where the text goes on
    mutable DebugStreamBufferPoolRecord* mPoolRecord;  // null when the buffer came from malloc
    uInt64 mExtra = 0;                                 // handed on to the handler; no module gives it a meaning
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

#endif
