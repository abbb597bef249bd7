// A stream writes to a pooled buffer while the pool has one, else to one from malloc, else nowhere: a report without
// room is sent with an empty text, because its place, level and hash still tell something.
//
// Integers are written as by "%d" and its kin, a `long` by its low 32 bits, and fractions in the C locale, because a
// report reads the same on every machine.
#include "DebugStream.h"

#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

#include "DebugStreamPool.h"
#include "DebugStreamService.h"
#include "KzAssert.h"
#include "PlatformLocale.h"

namespace {

constexpr size_t kTextSize = sizeof DebugStreamBufferPoolRecord::text;

// A stream makes the service's object when there is none, started or not; without memory it does without.
void MakeSureOfService()
{
    try {
        DebugStreamService();
    } catch (const std::bad_alloc&) {
    }
}

}  // namespace

DebugStream::DebugStream(const char* file, int line, const char* versionId, _DebugOutputLevel level)
    : mFile(file), mLine(line), mVersionId(versionId), mLevel(level), mPoolRecord(kz::CheckOutDebugStreamBuffer())
{
    // Only while the pool is closed, because an open pool has a service already.
    if (mPoolRecord == nullptr && !kz::IsDebugStreamPoolOpen()) {
        MakeSureOfService();
    }
    mText = mPoolRecord != nullptr ? mPoolRecord->text : static_cast<char*>(std::malloc(kTextSize));
    if (mText != nullptr) {
        mRest = kz::BoundedText(mText, kTextSize);
    }
    KZ_ASSERT(mPoolRecord == nullptr || mText == mPoolRecord->text);
}

void DebugStream::Process() const
{
    // The stream forgets its buffer, because a second call, or a text appended behind this one, would reach one that
    // another stream may have by then.
    char* const text = std::exchange(mText, nullptr);
    DebugStreamBufferPoolRecord* const record = std::exchange(mPoolRecord, nullptr);
    mRest = {};
    DebugOutputCallHandler(mFile, mLine, mVersionId, mLevel, mHash, text != nullptr ? text : "", mExtra);
    if (record != nullptr) {
        kz::CheckInDebugStreamBuffer(record);
    } else {
        std::free(text);
    }
}

void ToDebugStream(DebugStream& stream, bool value)
{
    stream.Append(value ? "true" : "false");
}

void ToDebugStream(DebugStream& stream, const char* text)
{
    stream.Append(text);
}

void ToDebugStream(DebugStream& stream, const LStr* text)
{
    if (text != nullptr && text->cnt > 0) {
        const char* bytes = reinterpret_cast<const char*>(text) + offsetof(LStr, str);
        stream.Append(bytes, bytes + text->cnt);
    }
}

void ToDebugStream(DebugStream& stream, void (*const& procedure)())
{
    char text[24];
    std::snprintf(text, sizeof text, "%p", reinterpret_cast<void*>(procedure));
    stream.Append(text);
}

void ToDebugStream(DebugStream& stream, int value)
{
    stream.AppendInteger(value);
}

void ToDebugStream(DebugStream& stream, short value)
{
    stream.AppendInteger(value);
}

void ToDebugStream(DebugStream& stream, long value)
{
    stream.AppendInteger(static_cast<int>(value));
}

void ToDebugStream(DebugStream& stream, unsigned long value)
{
    stream.AppendInteger(static_cast<int>(value));
}

void ToDebugStream(DebugStream& stream, unsigned int value)
{
    stream.AppendInteger(value);
}

void ToDebugStream(DebugStream& stream, unsigned short value)
{
    stream.AppendInteger(value);
}

void ToDebugStream(DebugStream& stream, unsigned char value)
{
    stream.AppendInteger(static_cast<unsigned int>(value));
}

void ToDebugStream(DebugStream& stream, long long value)
{
    stream.AppendInteger(value);
}

void ToDebugStream(DebugStream& stream, unsigned long long value)
{
    stream.AppendInteger(value);
}

void ToDebugStream(DebugStream& stream, const double& value)
{
    char text[256];
    const kz::ScopedLocale scope(kz::CLocale());
    std::snprintf(text, sizeof text, "%f", value);
    stream.Append(text);
}

void ToDebugStream(DebugStream& stream, float value)
{
    ToDebugStream(stream, static_cast<double>(value));
}
