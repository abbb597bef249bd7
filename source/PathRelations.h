// How two paths relate: equality, order, and the common prefix on which their order and the path from one to the other
// stand. Works on elements; PathRef's members forward here. Nothing here takes a lock or allocates.
#ifndef KZCORE_PATHRELATIONS_H
#define KZCORE_PATHRELATIONS_H

#include <string>

#include "KZTypes.h"
#include "KzErr.h"
#include "PathItemElement.h"
#include "PathTypes.h"

namespace kz {

struct CommonPrefix {
    KzErr err;         // kzErrArgument: different bases; kzErrCorrupt: a broken chain. The rest then means nothing.
    int32 count;       // leading components in common
    int32 comparison;  // the sign at the first difference; 0 if the shorter path is all in common
    const PathItemElement* element;  // the common prefix itself
};

// Names compare by the policy. The result lives as long as the two paths' elements.
CommonPrefix FindCommonPrefix(const PathItemElement& a, const PathItemElement& b, PathTypes::ComparePolicy policy);

// A policy outside the list is reported, once by a call, and means without case.
bool NamesAreEqual(const std::string& a, const std::string& b, PathTypes::ComparePolicy policy);
int32 CompareNames(const std::string& a, const std::string& b, PathTypes::ComparePolicy policy);

// Whether two different elements of one count have equal names, those of their bases included, up to where their chains
// meet.
bool ChainsAreEqual(const PathItemElement& a, const PathItemElement& b, PathTypes::ComparePolicy policy);

// As PathRef::Equals and PathRef::Compare; null is not a path. The first is inline because most answers need no name.
inline bool PathsAreEqual(const PathItemElement* a, const PathItemElement* b, PathTypes::ComparePolicy policy)
{
    if (a == b) {
        return true;
    }
    return a != nullptr && b != nullptr && a->Count() == b->Count() && ChainsAreEqual(*a, *b, policy);
}
int32 ComparePaths(const PathItemElement* a, const PathItemElement* b, PathTypes::ComparePolicy policy);

}  // namespace kz

#endif
