// The common prefix of two paths, on which their order and the path from one to the other stand.
#ifndef KZCORE_PATHRELATIONS_H
#define KZCORE_PATHRELATIONS_H

#include "KZTypes.h"
#include "KzErr.h"
#include "PathRef.h"

namespace kz {

struct CommonPrefix {
    KzErr err;         // kzErrArgument: different bases; kzErrCorrupt: a broken chain. The rest then means nothing.
    int32 count;       // leading components in common
    int32 comparison;  // the sign at the first difference; 0 if the shorter path is all in common
    const PathItemElement* element;  // the common prefix itself
};

// Names compare by the policy. The result lives as long as the two paths' elements. No lock, no allocation.
CommonPrefix FindCommonPrefix(const PathItemElement& a, const PathItemElement& b, PathRef::ComparePolicy policy);

}  // namespace kz

#endif
