// An exception holds its texts in place, cut to fit, because it is often thrown when there is no memory. Its
// constructor is noexcept: what can't record its stack has nothing sound to throw, and ends the process.
#include "zvexcept.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <typeinfo>

#include "BareReport.h"
#include "BoundedText.h"
#include "KzAssert.h"

namespace {

constexpr char kModule[] = "source/zvexcept";
constexpr int kTextSize = 255;

// `text`, or its last `size - 1` characters when it is longer, to `field`; null as an empty text.
void CopyTail(char* field, unsigned long size, const char* text)
{
    KZ_ASSERT(size > 0);
    const unsigned long length = text == nullptr ? 0 : std::strlen(text);
    const unsigned long skipped = length < size ? 0 : length - (size - 1);
    if (length != 0) {
        std::memcpy(field, text + skipped, length - skipped);
    }
    field[length - skipped] = '\0';
}

// Written by hand, because the streams' own buffers rest on this module.
void ReportForeignException(const char* file, int line)
{
    char text[256];
    kz::BoundedText rest(text, sizeof text);
    rest.Append("GetExceptionInCatch() called from inside catch(...) -- ");
    rest.Append(file);
    rest.Append(" Line ");
    rest.AppendInteger(line);
    KZ_REPORT_TEXT(kDbgError, 0xA9157FE4, text);
}

}  // namespace

ZVExcept::ZVExcept(int err, const char* detail, const char* file, int line) noexcept : mErr(err), mLine(line)
{
    mStack.Record(0);
    std::snprintf(mDetail, sizeof mDetail, "%s", detail == nullptr ? "" : detail);
    CopyTail(mFile, sizeof mFile, file);
    std::snprintf(mText, kTextSize, "ZVExcept. Err=%d, File=%s, Line=%d, Detail='%s'", mErr, mFile, mLine, mDetail);
}

ZVExcept::~ZVExcept() = default;

const char* ZVExcept::what() const noexcept
{
    return mText;
}

ZVExcept GetExceptionInCatch_FileAndLine(const char* file, int line)
{
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return ZVExcept(kzErrMemoryFull, "converted from std::bad_alloc", file, line);
    } catch (const std::bad_cast&) {
        return ZVExcept(kzErrGeneric, "converted from std::bad_cast", file, line);
    } catch (const ZVExcept& except) {  // before its base: its code and stack are the ones that matter
        return except;
    } catch (const std::exception&) {
        return ZVExcept(kzErrGeneric, "converted from std::exception", file, line);
    } catch (...) {
        ReportForeignException(file, line);
        throw;
    }
}
