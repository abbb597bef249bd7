// The names of a path's components, root first. The tree can only be walked from a component to its root, so whoever
// needs the names in the order in which they are read collects them here first.
#ifndef KZCORE_PATHNAMES_H
#define KZCORE_PATHNAMES_H

#include <memory>
#include <string>

#include "KZTypes.h"
#include "KzAssert.h"
#include "PathItemElement.h"

namespace kz {

// The elements are constant while they are referenced, so no lock is needed. Holds no references: the last element must
// be referenced for as long as this lives.
class PathNames {
public:
    // The last `count` components of the path that ends at `last`. Takes memory above 32, and throws std::bad_alloc
    // without it.
    PathNames(const PathItemElement* last, int32 count);
    // All components of the path.
    explicit PathNames(const PathItemElement& last) : PathNames(&last, last.Count()) {}
    PathNames(const PathNames&) = delete;
    PathNames& operator=(const PathNames&) = delete;

    // As many as were asked for.
    int32 Count() const { return mCount; }
    // What the first component hangs from. Null if the chain is shorter than its count says; there are no names then.
    const PathItemElement* Above() const { return mAbove; }

    // The name of component `index`, from 0; empty for an up dir.
    const std::string& operator[](int32 index) const
    {
        KZ_ASSERT(index >= 0 && index < mCount && mAbove != nullptr);
        return mElements[index]->Name();
    }

private:
    // Paths of files seldom have more names.
    static constexpr int32 kInPlace = 32;

    const int32 mCount;
    const PathItemElement* mAbove;                    // while the names are collected: the one to be taken next
    const PathItemElement* mPlace[kInPlace];          // not set beyond mCount
    std::unique_ptr<const PathItemElement*[]> mMore;  // for a count above kInPlace
    const PathItemElement** mElements = mPlace;       // mPlace or mMore
};

}  // namespace kz

#endif
