// The limit is no need of this list, which could grow on. A service with a thousand needs adds them in a loop that went
// wrong, and the limit ends the loop's growth with a report in place of the end of memory.
#include "ServiceDependencyList.h"

#include "Report.h"

namespace {

constexpr char kModule[] = "source/ServiceDependencyList";
constexpr int kFirstCapacity = 4;  // no service of the library needs more, so one block does
constexpr unsigned long kMaxEntries = 1024;

}  // namespace

ServiceDependencyList::ServiceDependencyList()
{
    mServices.reserve(kFirstCapacity);
}

ServiceDependencyList::~ServiceDependencyList() = default;

void ServiceDependencyList::Add(IServiceObject* service)
{
    if (service == nullptr) {
        KZ_REPORT(kDbgWarning, 0x3D0A51E7) << "Cannot add null service dependency to dependency list.";
    } else if (mServices.size() >= kMaxEntries) {
        KZ_REPORT(kDbgFatal, 0x8E6C2B19) << "Too many service dependencies (" << kMaxEntries << ").";
    } else {
        mServices.push_back(service);
    }
}

IServiceObject* ServiceDependencyList::Get(unsigned long index) const
{
    if (index >= mServices.size()) {
        KZ_REPORT(kDbgFatal, 0x51F7D0C3) << "Service dependency index " << index << " not in range 0.." << GetCount();
        return nullptr;
    }
    return mServices[index];
}
