// Three streams of small modulus are drawn in step, and the sum of their fractions is the number, with a
// period of some 7e12. A seed of 0 would keep a stream at 0 for ever, so the first stream never starts there.
//
// The streams have two locks: the ThMutex, which shows in the record of lock orders, and the plain one where there is
// no memory for a ThMutex. Which of them guards is settled by a seeding, because the two may not change places while
// threads draw.
#include "RandomGen.h"

#include <atomic>
#include <cmath>
#include <utility>

#include "HiResClock.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "PthreadScopes.h"
#include "ScopedLock.h"

namespace {

constexpr uInt32 kSeedMask = 0x3FFF;
constexpr uInt32 kSeedFactor = 8191;
constexpr uInt32 kSeedInsteadOfZero = 1234;

// Makes sure that the first draws of several threads seed once, and stands in where the ThMutex could not be made. A
// leaf: no call goes out while it is held.
constinit kz::PthreadMutex gSeedLock;
constinit std::atomic<bool> gSeeded{false};

// Set by a seeding, and taken away when no other thread draws, so a draw reads it without a lock.
constinit ThMutex gRandomRights = nullptr;

// Guarded by gRandomRights, or by gSeedLock while there is none, which is more than an annotation can say.
constinit uInt32 gStreams[3] = {};

void Seed(uInt32 (&streams)[3], uInt32 seed)
{
    KZ_ASSERT(seed <= 30000);  // below each modulus, as the streams must be
    streams[0] = seed == 0 ? kSeedInsteadOfZero : seed;
    streams[1] = (streams[0] * kSeedFactor) & kSeedMask;
    streams[2] = (streams[1] * kSeedFactor) & kSeedMask;
}

// Seeds, unless that was done and `again` is not set.
KzErr SeedShared(bool again)
{
    const uInt32 now = MilliSecs();
    ThMutex made = nullptr;
    const KzErr err = ThMutexCreate(&made, "RandomGen");
    {
        const kz::PthreadLocked lock(&gSeedLock);
        if (again || !gSeeded.load(std::memory_order_relaxed)) {
            Seed(gStreams, now & kSeedMask);
            if (gRandomRights == nullptr) {
                std::swap(gRandomRights, made);
            }
            gSeeded.store(true, std::memory_order_release);
        }
    }
    ThMutexDestroy(made);
    return gRandomRights != nullptr ? kzErrNone : err;
}

void Draw(uInt32 (&drawn)[3])
{
    KZ_ASSERT(gSeeded.load(std::memory_order_relaxed));
    drawn[0] = gStreams[0] = gStreams[0] * 171 % 30269;
    drawn[1] = gStreams[1] = gStreams[1] * 172 % 30307;
    drawn[2] = gStreams[2] = gStreams[2] * 170 % 30323;
}

}  // namespace

KzErr InitRandomGen(void)
{
    return SeedShared(true);
}

void UninitRandomGen(void)
{
    ThMutex rights = nullptr;
    {
        const kz::PthreadLocked lock(&gSeedLock);
        gSeeded.store(false, std::memory_order_release);
        std::swap(gRandomRights, rights);
    }
    ThMutexDestroy(rights);
}

void RandomGen(double* out)
{
    if (!gSeeded.load(std::memory_order_acquire)) {
        SeedShared(false);
    }
    // Only the draw is locked; the sum is worked out on the thread's own copies.
    uInt32 drawn[3];
    if (gRandomRights != nullptr) {
        kz::ScopedLock lock(gRandomRights);
        Draw(drawn);
    } else {
        const kz::PthreadLocked lock(&gSeedLock);
        Draw(drawn);
    }
    const double sum =
        drawn[0] * 3.3037100664045725e-5 + drawn[1] * 3.2995677566238825e-5 + drawn[2] * 3.297826732183491e-5;
    *out = sum - std::floor(sum);
}

uInt32 RandomGenInitState(uInt32 state[3])
{
    double value;
    RandomGen(&value);
    uInt32 streams[3];
    Seed(streams, static_cast<uInt32>(30000 * value));
    for (int i = 0; i < 3; ++i) {
        state[i] = streams[i];
    }
    return state[1];
}
