// The state of all resource files at once, for the end of tests.
#ifndef KZCORE_RESOURCECHECKS_H
#define KZCORE_RESOURCECHECKS_H

namespace kz {

// What is wrong with the refnums, the open files that have one, what is loaded from them, or the cache of handles; null
// when all is sound, and when the resource manager does not run. Takes the lock of resource files, for each file anew.
// For a thread that knows that no other one uses refnums or handles of resources meanwhile.
const char* ResourceFault();

}  // namespace kz

#endif
