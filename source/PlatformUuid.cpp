// A UUID is drawn here and not by a library's call, because version 4 is sixteen random bytes with six bits fixed. The
// random bytes never block for long: the kernel waits for its pool once after the machine's start.
#include "PlatformUuid.h"

#include <sys/random.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace {

bool SystemUuid(uInt8 (&bytes)[16])
{
    uInt8 drawn[sizeof bytes];
    ssize_t got;
    do {
        got = getrandom(drawn, sizeof drawn, 0);  // never short for so few bytes
    } while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(sizeof drawn)) {
        return false;
    }
    drawn[6] = static_cast<uInt8>((drawn[6] & 0x0F) | 0x40);  // version 4: random
    drawn[8] = static_cast<uInt8>((drawn[8] & 0x3F) | 0x80);  // the variant of RFC 4122
    std::memcpy(bytes, drawn, sizeof drawn);
    return true;
}

constinit std::atomic<kz::UuidSource> gSource{&SystemUuid};

}  // namespace

bool kz::PlatformUuid(uInt8 (&bytes)[16])
{
    return gSource.load(std::memory_order_relaxed)(bytes);
}

void kz::SetUuidSource(UuidSource source)
{
    gSource.store(source == nullptr ? &SystemUuid : source, std::memory_order_relaxed);
}
