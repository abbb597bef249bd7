// The count is a byte, so no string passes 255 bytes and no text needs memory of its own: where a destination may be
// the source itself, a call works on a copy of 256 bytes on the stack. Only PStrDup can fail. What doesn't fit is cut,
// but for PStrFindReplace, whose result is given up as a whole, because half a replacement is no result.
#include "StringPStr.h"

#include <algorithm>
#include <cstring>

#include "ByteCompare.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "Literals.h"
#include "MemoryManager.h"
#include "Report.h"
#include "StringHash.h"

namespace {

constexpr char kModule[] = "source/StringPStr";

using kz::kMostInPStr;

// The copy of a source whose destinations may be the same memory.
struct PStrCopy {
    explicit PStrCopy(const unsigned char* p) { PStrCpy(text, p); }
    unsigned char text[kMostInPStr + 1];
};

// Bytes count as unsigned here, and as signed in StringUtils::Hash: the two disagree from 0x80 up.
uInt32 HashText(const unsigned char* p)
{
    return kz::HashOf(p + 1, p[0], [](unsigned char c) -> uInt32 { return c; });
}

const unsigned char* PointedTo(const void* element)
{
    return *static_cast<const unsigned char* const*>(element);
}

// Grows a PStr, which begins empty. The string is whole after each step, so that a call may stop anywhere.
class PStrBuilder {
public:
    explicit PStrBuilder(unsigned char* p) : mText(p) { p[0] = 0; }

    // False, with nothing appended, when the bytes don't fit.
    bool Append(const void* bytes, std::size_t n)
    {
        KZ_ASSERT(bytes != nullptr || n == 0);
        if (n > kMostInPStr - mText[0]) {
            return false;
        }
        std::memcpy(mText + 1 + mText[0], bytes, n);
        mText[0] = static_cast<unsigned char>(mText[0] + n);
        return true;
    }
    void DropLast()
    {
        KZ_ASSERT(mText[0] != 0);
        --mText[0];
    }

private:
    unsigned char* mText;
};

}  // namespace

unsigned char* PStrCpy(unsigned char* dst, const unsigned char* src)
{
    MoveBlock(src, dst, src[0] + std::size_t{1});
    return dst;
}

unsigned char* PStrNCpy(unsigned char* dst, const unsigned char* src, uInt32 n)
{
    if (n != 0) {  // without a byte there is no place for the count either
        const std::size_t size = std::min<std::size_t>(n, src[0] + std::size_t{1});
        MoveBlock(src, dst, size);
        dst[0] = static_cast<unsigned char>(size - 1);
    }
    return dst;
}

int32 PStrCat(unsigned char* dst, const unsigned char* src)
{
    const std::size_t n = std::min<std::size_t>(src[0], kMostInPStr - dst[0]);
    MoveBlock(src + 1, dst + 1 + dst[0], n);
    dst[0] = static_cast<unsigned char>(dst[0] + n);
    return dst[0];
}

unsigned char* PStrDup(const unsigned char* p)
{
    if (p == nullptr) {
        return nullptr;
    }
    const int32 size = p[0] + 1;
    // A pointer block, and not malloc's, because the host disposes it with DSDisposePtr.
    unsigned char* copy = static_cast<unsigned char*>(DSNewPtr(static_cast<unsigned long>(size)));
    if (copy == nullptr) {
        KZ_REPORT(kDbgWarning, 0x91C4E07B) << "PStrDup FAILED:" << DbgFmtPStr(p) << ", size " << size << ", NULL";
        return nullptr;
    }
    return PStrCpy(copy, p);
}

int32 PStrCmp(const unsigned char* a, const unsigned char* b)
{
    return a == b ? 0 : kz::CompareBytes(a + 1, a[0], b + 1, b[0]);
}

int32 PStrCaseCmp(const unsigned char* a, const unsigned char* b)
{
    return a == b ? 0 : kz::CompareFolded(a + 1, a[0], b + 1, b[0]);
}

KzBool PStrEqual(const unsigned char* a, const unsigned char* b)
{
    return a[0] == b[0] && std::memcmp(a + 1, b + 1, a[0]) == 0;
}

KzBool PStrCaseEqual(const unsigned char* a, const unsigned char* b)
{
    return a[0] == b[0] && PStrCaseCmp(a, b) == 0;
}

int32 PPStrCmp(const void* a, const void* b)
{
    return PStrCmp(PointedTo(a), PointedTo(b));
}

int32 PPStrCaseCmp(const void* a, const void* b)
{
    return PStrCaseCmp(PointedTo(a), PointedTo(b));
}

KzBool PPStrEqual(const void* a, const void* b)
{
    return PStrEqual(PointedTo(a), PointedTo(b));
}

KzBool PPStrCaseEqual(const void* a, const void* b)
{
    return PStrCaseEqual(PointedTo(a), PointedTo(b));
}

KzBool FileNameEqual(const unsigned char* a, const unsigned char* b)
{
    return PStrCaseEqual(a, b);
}

KzBool PStrSplitAtChar(const unsigned char* src, int32 ch, unsigned char* left, unsigned char* right)
{
    const PStrCopy copy(src);
    const unsigned char* text = copy.text;
    const unsigned char delimiter = static_cast<unsigned char>(ch);
    PStrBuilder leftText(left);
    PStrBuilder rightText(right);
    for (int i = 1; i <= text[0]; ++i) {
        if (text[i] == delimiter) {
            // A backslash in front escapes the delimiter and goes, being the last byte that was put left. What precedes
            // the backslash is not looked at, so that a doubled one still escapes.
            if (i == 1 || text[i - 1] != '\\') {
                rightText.Append(text + i + 1, static_cast<std::size_t>(text[0] - i));
                return 1;
            }
            leftText.DropLast();
        }
        leftText.Append(text + i, 1);
    }
    return 0;
}

KzBool PStrEndsWith(const unsigned char* p, const char* suffix)
{
    // A suffix is searched for its end no further than it could fit.
    const std::size_t length = strnlen(suffix, p[0] + std::size_t{1});
    if (length > p[0]) {
        return 0;
    }
    const unsigned char* tail = p + 1 + p[0] - length;
    // Only p is folded, because the suffix is promised to be lower case: a capital in it never matches.
    for (std::size_t i = 0; i < length; ++i) {
        if (kz::LowerByte(tail[i]) != static_cast<unsigned char>(suffix[i])) {
            return 0;
        }
    }
    return 1;
}

int32 PStrInPStr(const unsigned char* p, int32 start, const unsigned char* sub)
{
    if (sub[0] == 0) {
        return -1;
    }
    for (int32 i = std::max(start, 0); i <= p[0] - sub[0]; ++i) {
        if (kz::CompareFolded(p + 1 + i, sub[0], sub + 1, sub[0]) == 0) {
            return i + sub[0];
        }
    }
    return -1;
}

KzBool PStrFindReplace(unsigned char* dst, const unsigned char* src, const char* find, const char* replace)
{
    const PStrCopy copy(src);  // dst may be src, and grows past what has been read
    const unsigned char* cursor = copy.text + 1;
    const unsigned char* end = cursor + copy.text[0];
    const std::size_t findLength = std::strlen(find);
    const std::size_t replaceLength = std::strlen(replace);
    PStrBuilder result(dst);
    bool replaced = false;
    while (cursor != end) {
        const bool match = findLength != 0 && findLength <= static_cast<std::size_t>(end - cursor) &&
                           std::memcmp(cursor, find, findLength) == 0;
        const bool fits = match ? result.Append(replace, replaceLength) : result.Append(cursor, 1);
        if (!fits) {
            // A result that is cut could be taken for a whole one, the name of another file for instance.
            dst[0] = 0;
            return 0;
        }
        cursor += match ? findLength : 1;
        replaced = replaced || match;
    }
    return replaced;
}

uInt32 PStrHash32(const unsigned char* p, KzBool ignoreCase)
{
    if (p == nullptr) {
        return 0;
    }
    if (ignoreCase == 0) {
        return HashText(p);
    }
    PStrCopy copy(p);
    // The mapping can't fail, because text of up to 255 bytes is mapped on the stack.
    StrToUpper(copy.text + 1, copy.text[0]);
    return HashText(copy.text);
}

int32 PStrTerminateIfPossible(unsigned char* p)
{
    if (p[0] < kMostInPStr) {
        p[1 + p[0]] = 0;
    }
    return p[0];
}

int32 PStrNullTerminate(unsigned char* p)
{
    p[std::min<std::size_t>(p[0] + std::size_t{1}, kMostInPStr)] = 0;
    return p[0];
}

int32 CToPStr(const char* c, unsigned char* p)
{
    const std::size_t length = strnlen(c, kMostInPStr);
    MoveBlock(c, p + 1, length);
    p[0] = static_cast<unsigned char>(length);
    return p[0];
}

int32 PToCStr(const unsigned char* p, char* c)
{
    const int32 length = p[0];
    MoveBlock(p + 1, c, static_cast<std::size_t>(length));
    c[length] = 0;
    return length;
}
