// The library's statically placed objects, all made at one place so that their order is fixed.
#ifndef KZCORE_KZSTATICOBJECTS_H
#define KZCORE_KZSTATICOBJECTS_H

namespace kz {

// Makes those that don't exist: called while the library loads, and again by each start, since a stop destroys them.
void PlaceStaticObjects();

}  // namespace kz

#endif
