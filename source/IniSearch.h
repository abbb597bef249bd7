// The one binary search of the INI engine. C library only. Over numbers instead of memory, because lists of hosts lie
// in one block and those of an object in a tree.
#ifndef KZCORE_INISEARCH_H
#define KZCORE_INISEARCH_H

namespace qkini {

// The first of `count` numbers from 0 for which `isInFront` is false, or `count`. The answer is right only where
// `isInFront` is true for no number behind one for which it is false. Elsewhere it is some number up to `count`, so a
// list that is out of order leads to a wrong answer and never out of the list.
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
