// The growable list in which a service's needs are collected.
#ifndef KZCORE_SERVICEDEPENDENCYLIST_H
#define KZCORE_SERVICEDEPENDENCYLIST_H

#include <vector>

#include "ServiceObject.h"

// Holds at most 1024 services, not owned. One thread at a time.
class ServiceDependencyList final : public IServiceDependencyList {
public:
    ServiceDependencyList();
    ~ServiceDependencyList() override;

    // Appends. A null entry (reported at level 2) and one past the limit (level 4) are dropped.
    void Add(IServiceObject* service) override;

    void Clear() { mServices.clear(); }
    unsigned long GetCount() const { return mServices.size(); }

    // The entry at `index`; null, with a report of level 4, when there is none.
    IServiceObject* Get(unsigned long index) const;

private:
    std::vector<IServiceObject*> mServices;
};

#endif
