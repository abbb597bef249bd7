// The one binary search of the INI engine. C library only.
#ifndef KZCORE_INISEARCH_H
#define KZCORE_INISEARCH_H

namespace qkini {

// The first of `count` numbers from 0 for which `isInFront` is false, or `count`. Requires: `isInFront` is true for
// none behind a number for which it is false.
template <typename Number, typename IsInFront>
Number LowerBound(Number count, IsInFront isInFront)
{
    Number low = 0;
    Number high = count;
    while (low < high) {
        const Number middle = low + (high - low) / 2;
        if (isInFront(middle)) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}

}  // namespace qkini

#endif
