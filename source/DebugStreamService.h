// The service that opens the buffers of the reports. It needs no other service, because all others report.
#ifndef KZCORE_DEBUGSTREAMSERVICE_H
#define KZCORE_DEBUGSTREAMSERVICE_H

#include "KZTypes.h"
#include "ServiceObject.h"

// Opens the pool of buffers for as long as it runs; without it a report's buffer comes from malloc. A stop after
// reports that found no buffer reports their number at level 2.
class DebugStream_Service : public PlainService_T<DebugStream_Service> {
    friend KZ_GammaPolicy<DebugStream_Service>;

    DebugStream_Service();
    KzErr _Init() override;
    KzErr _Uninit() override;
};

// The service, made on the first call, or by the first report before it.
KZ_EXPORT DebugStream_Service* DebugStreamService();

#endif
