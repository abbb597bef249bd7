// How two paths relate. A component chain can only be walked from its end to the root, and two chains that meet stay
// together from there, because equal paths are one element. So the chains are cut to one length and walked in step
// until they meet; siblings meet after one step, however deep they are.
//
// Chains that never meet hang from different bases. Each element knows its root, so that is asked first and costs no
// walk. Elements are constant while a path refers to them, which is why nothing here takes a lock.
#include "PathRelations.h"

#include <algorithm>

#include "KzAssert.h"
#include "PathItemStorage.h"
#include "Report.h"

namespace {

using kz::PathTypes;

constexpr char kModule[] = "source/PathRelations";

// The place of a path's base in the order of bases: network, absolute, relative, others.
constexpr int32 kOtherRank = 3;

// Not the order of the bases' numbers, which is that of their table.
int32 BaseRank(const PathItemElement& element)
{
    switch (PathItemStorage::BaseOf(element)) {
        case PathTypes::kUNC:
            return 0;
        case PathTypes::kAbsolute:
            return 1;
        case PathTypes::kRelative:
            return 2;
        default:
            return kOtherRank;
    }
}

}  // namespace

namespace kz {

const PathItemElement* AncestorOfCount(const PathItemElement* at, int32 count)
{
    while (at != nullptr && at->Count() > count) {
        at = at->Parent();
    }
    return at;
}

CommonPrefix FindCommonPrefix(const PathItemElement& a, const PathItemElement& b, PathTypes::ComparePolicy policy)
{
    // A path without components shares none with any other, even of another base, so the bases are not looked at.
    const int32 n = std::min(a.Count(), b.Count());
    const PathItemElement* const shorter = a.Count() >= b.Count() ? &b : &a;
    CommonPrefix result{kzErrNone, n, 0, shorter};
    if (n == 0) {
        result.comparison = a.Count() == b.Count() ? 0 : a.Count() > 0 ? 1 : -1;
        result.element = a.Count() > 0 ? &b : &a;
        return result;
    }
    const NameComparison names(policy);
    const PathItemElement* atA = AncestorOfCount(&a, n);
    const PathItemElement* atB = AncestorOfCount(&b, n);
    // The last difference met on the way up is the first one of the paths.
    while (atA != nullptr && atB != nullptr && atA != atB && atA->Count() > 0) {
        const int32 difference = names.Order(atA->Name(), atB->Name());
        if (difference != 0) {
            result.count = atA->Count() - 1;
            result.comparison = difference;
            result.element = atA->Parent();
        }
        atA = atA->Parent();
        atB = atB->Parent();
    }
    if (atA == nullptr || atB == nullptr) {
        KZ_REPORT(kDbgWarning, 0xAD7C05E6) << "Corrupt Path";
        return {kzErrCorrupt, 0, 0, nullptr};
    }
    if (atA != atB) {
        return {kzErrArgument, 0, 0, nullptr};  // different bases
    }
    return result;
}

void ReportUnexpectedPolicy()
{
    KZ_REPORT(kDbgWarning, 0x61BF3A90) << "Unexpected PathRef::ComparePolicy";
}

namespace {

// True if the bases decide the order; `*order` is then -1 or 1. A base that was replaced in the table still has its
// rank, so paths below it and below the new one are left to the comparison of components.
bool BasesDecide(const PathItemElement& a, const PathItemElement& b, PathTypes::ComparePolicy policy, int32* order)
{
    if (a.Root() == b.Root()) {
        return false;
    }
    const int32 rank = BaseRank(a);
    const int32 otherRank = BaseRank(b);
    if (rank == otherRank && rank != kOtherRank) {
        return false;
    }
    // -1 from both sides is what a policy without an order of bases gives: the paths differ, and neither comes first.
    const bool isOrdered = policy == PathTypes::kCompareExact || policy == PathTypes::kCompareLexical;
    *order = isOrdered && rank > otherRank ? 1 : -1;
    return true;
}

}  // namespace

int32 ComparePaths(const PathItemElement* a, const PathItemElement* b, PathTypes::ComparePolicy policy)
{
    if (a == b) {
        return 0;
    }
    if (a == nullptr) {
        return 1;
    }
    if (b == nullptr) {
        return -1;
    }
    int32 order = 0;
    if (BasesDecide(*a, *b, policy, &order)) {
        return order;
    }
    // The size of the answer is the place of the first difference, counted from 1, so that callers can sort as well as
    // ask how far two paths go together. A path without components has no such place; the counts answer for it.
    const int32 count = a->Count();
    const int32 otherCount = b->Count();
    if (count == 0 || otherCount == 0) {
        return count - otherCount;
    }
    const CommonPrefix common = FindCommonPrefix(*a, *b, policy);
    if (common.err != kzErrNone || common.element == nullptr) {
        return -1;
    }
    if (common.count == count && count == otherCount) {
        return 0;
    }
    KZ_ASSERT(common.count >= 0 && common.count <= std::min(count, otherCount));
    const bool isLess = (count < otherCount && common.count == count) || common.comparison < 0;
    return isLess ? -(common.count + 1) : common.count + 1;
}

}  // namespace kz
