// PlatformMutex on a pthread mutex.
#ifndef KZCORE_PLATFORMMUTEXPOSIX_H
#define KZCORE_PLATFORMMUTEXPOSIX_H

#include <pthread.h>

#include "PlatformMutex.h"

class PlatformMutexPosix final : public PlatformMutex {
public:
    KzErr Acquire() override;
    KzErr Release() override;
    KzErr Init() override;
    KzErr Uninit() override;

private:
    pthread_mutex_t mMutex{};
};

#endif
