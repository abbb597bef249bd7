// How two paths relate: equality, order, and the common prefix on which their order and the path from one to the other
// stand. Works on elements; PathRef's members forward here. Nothing here takes a lock or allocates.
#ifndef KZCORE_PATHRELATIONS_H
#define KZCORE_PATHRELATIONS_H

#include <string>

#include "KZTypes.h"
#include "KzErr.h"
#include "PathItemElement.h"
#include "PathTypes.h"
#include "StringUtils.h"

namespace kz {

// Reports, at level 2, a policy that is none.
void ReportUnexpectedPolicy();

// How the names of one comparison compare. A policy is looked at, and a bad one reported, when this is made: once for
// each comparison, however many names it has. It then means without case.
class NameComparison {
public:
    explicit NameComparison(PathTypes::ComparePolicy policy) : mIsExact(policy == PathTypes::kCompareExact)
    {
        if (policy < PathTypes::kComparePlatform || policy > PathTypes::kCompareLexical) {
            ReportUnexpectedPolicy();
        }
    }

    // Whether the two are one name to the policy.
    bool AreEqual(const std::string& a, const std::string& b) const
    {
        return mIsExact ? a == b : StringUtils::CaseInsensitiveEqual(a, b);
    }

    // -1, 0 or 1.
    int32 Order(const std::string& a, const std::string& b) const
    {
        if (!mIsExact) {
            return StringUtils::CaseInsensitiveCompare(a, b);
        }
        const int order = a.compare(b);
        return order < 0 ? -1 : order > 0;
    }

private:
    const bool mIsExact;
};

// The ancestor with this many components, or the element itself if it has no more. Null in a chain whose counts are
// wrong.
const PathItemElement* AncestorOfCount(const PathItemElement* at, int32 count);

// What two paths have in common, from the base on.
struct CommonPrefix {
    KzErr err;         // kzErrArgument: different bases; kzErrCorrupt: a broken chain. The rest then means nothing.
    int32 count;       // leading components in common
    int32 comparison;  // the sign at the first difference; 0 if the shorter path is all in common
    const PathItemElement* element;  // the common prefix itself
};

// Names compare by the policy. A path without components has none in common with any other, whatever their bases; with
// names on both sides, different bases are kzErrArgument. The result lives as long as the two paths' elements.
CommonPrefix FindCommonPrefix(const PathItemElement& a, const PathItemElement& b, PathTypes::ComparePolicy policy);

// As PathRef::Equals; null is not a path. Inline because PathRef's member is the one caller in a hot path, where a call
// more would show.
inline bool PathsAreEqual(const PathItemElement* a, const PathItemElement* b, PathTypes::ComparePolicy policy)
{
    if (a == b) {
        return true;
    }
    if (a == nullptr || b == nullptr || a->Count() != b->Count()) {
        return false;
    }
    const NameComparison names(policy);
    // The names of the bases count too. A base and the one that replaced it in the table have one name, so chains that
    // both come to their end without having met are equal.
    for (; a != nullptr && b != nullptr && a != b; a = a->Parent(), b = b->Parent()) {
        if (!names.AreEqual(a->Name(), b->Name())) {
            return false;
        }
    }
    return a == b;
}

// As PathRef::Compare; null is not a path.
int32 ComparePaths(const PathItemElement* a, const PathItemElement* b, PathTypes::ComparePolicy policy);

}  // namespace kz

#endif
