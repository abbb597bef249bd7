// The end of services in the library's own stop, which leaves nothing up whatever fails.
#ifndef KZCORE_SERVICEEND_H
#define KZCORE_SERVICEEND_H

class IServiceObject;
class IServiceRegistry;

namespace kz {

// For the library's own stop, which leaves nothing up whatever fails. EndService gives a reference back and destroys
// the service if its last stop fails, so that the next accessor call makes a new one. EndServices does so for all that
// a registry of CreateServiceRegistry has started, newest first, and for the service whose start failed. A service
// whose stop has failed is not stopped again. Both allocate nothing.
void EndService(IServiceObject* service);
void EndServices(IServiceRegistry* registry);

}  // namespace kz

#endif
