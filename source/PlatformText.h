// Unicode text as counted UTF-16, its case mappings, and its owner under the name that callers know it by.
// Any thread; a text that changes belongs to one thread. No call needs the library to be started.
#ifndef KZCORE_PLATFORMTEXT_H
#define KZCORE_PLATFORMTEXT_H

#include <cstddef>
#include <memory>

#include "KZTypes.h"

// Lengths and positions are UTF-16 units. A character above U+FFFF takes two.
class PlatformText {
public:
    enum Outcome {
        kDone,
        kNotUtf8,
        kNoMemory,
    };

    // Take the text from UTF-8, which may hold NULs; `bytes` may be null for length 0. On failure the text stays as it
    // was. The escaped form never gives kNotUtf8: each step of ConvertUTF8toUTF32 that gives 0, a NUL too, becomes one
    // U+FFFD.
    KZ_EXPORT Outcome SetUtf8(const unsigned char* bytes, std::size_t length) noexcept;
    KZ_EXPORT Outcome SetEscapedUtf8(const unsigned char* bytes, std::size_t length) noexcept;

    std::size_t Length() const { return mLength; }
    const char16_t* Units() const { return mUnits.get(); }

    // Map the case of all characters by Unicode's full mappings, some of which make several characters of one; no
    // locale and no neighbour counts. kDone or kNoMemory, which leaves the text as it was.
    KZ_EXPORT Outcome Upper() noexcept;
    KZ_EXPORT Outcome Lower() noexcept;

    // Writes `count` units from `first` on as UTF-8, `?` for half a character, as far as whole characters fit into
    // `limit` bytes, without a terminator. Returns the bytes written, or needed when `out` is null. What is beyond the
    // text's end is left out.
    KZ_EXPORT std::size_t GetUtf8(std::size_t first, std::size_t count, unsigned char* out,
                                  std::size_t limit) const noexcept;

    // The bytes that `units` units never exceed as UTF-8.
    static std::size_t MaximumUtf8Size(std::size_t units) { return 3 * units; }

private:
    // Builds the new units beside the old ones and takes them over at the end, so that a failure changes nothing.
    template <typename Produce>
    Outcome Rebuild(std::size_t room, const Produce& produce) noexcept;

    std::unique_ptr<char16_t[]> mUnits;
    std::size_t mLength = 0;
};

using CFString = PlatformText;

// A new text of the bytes as PlatformText::SetEscapedUtf8 takes them; the caller owns it. Null when out of memory.
KZ_EXPORT CFString* CFStringWithEscapedInvalidUTF8Characters(const unsigned char* bytes, std::size_t length);

// The encoding number of UTF-8, the only one that MallocCStr knows.
inline constexpr uInt32 kCFStringEncodingUTF8 = 0x08000100;

// Owns a text made by the library, or null.
class KZ_EXPORT AutoCFString {
public:
    AutoCFString() = default;
    explicit AutoCFString(CFString* text) : mText(text) {}
    ~AutoCFString();
    AutoCFString(AutoCFString&& other) noexcept : mText(other.Detach()) {}
    AutoCFString& operator=(AutoCFString&& other) noexcept;

    CFString* Get() const { return mText; }
    CFString* operator->() const { return mText; }
    explicit operator bool() const { return mText != nullptr; }

    // Deletes the text and owns another one.
    void Attach(CFString* text);
    // Gives the text to the caller.
    CFString* Detach();

    // The text as a C string: in `buffer`, of maxSize bytes, when there is one and maxSize is 1 or more; else in a new
    // block from malloc, which the caller frees, of the size that a text of this length can need with its terminator,
    // and of no more than maxSize bytes when that is above 0. Null for no text, one that does not fit, an unknown
    // encoding, and when out of memory.
    char* MallocCStr(int32 maxSize, char* buffer, uInt32 encoding) const;

private:
    CFString* mText = nullptr;
};

#endif
