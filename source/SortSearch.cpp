// The sort is a quicksort with an explicit stack in place of recursion, as R. Sedgewick tells it ("Implementing
// Quicksort Programs", 1978): the median of three as pivot, and the smaller part first, so that a stack of 32 ranges is
// enough whatever the order. The order of the compare calls and of the swaps is part of what callers see (equal
// elements, compare procedures with side effects), and the steps below keep it. Every index is bounded by another one,
// never by the compare procedure's answers, so a procedure that contradicts itself gives a wrong order but no access
// outside the array.
//
// Orders made against the median of three would cost n squared compares. A budget that is above what the orders of
// everyday data need ends the splitting; the ranges still to be sorted then are sorted by heap, which needs n log n
// whatever the order, as in D. R. Musser, "Introspective Sorting and Selection Algorithms", 1997. The heap is that of
// J. W. J. Williams, built from its middle towards the root as R. W. Floyd does ("Treesort 3", 1964).
//
// The search is a binary one without a branch on what the compare procedure answers, and with the next two elements
// asked for in advance, after P.-V. Khuong and P. Morin, "Array Layouts for Comparison-Based Searching", 2017.
#include "SortSearch.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "ByteOrder.h"
#include "KzAssert.h"

namespace {

using Byte = unsigned char;

// The two kinds of compare procedure, as one thing to call. The sort is made for each, because a test at every compare
// would cost more than the second copy.
struct PlainCompare {
    KzCompareProc proc;
    int32 operator()(const void* a, const void* b) const { return proc(a, b); }
};

struct ContextCompare {
    KzCompareExProc proc;
    void* context;
    int32 operator()(const void* a, const void* b) const { return proc(a, b, context); }
};

// Swaps n bytes through registers; the two may have any alignment.
template <size_t n>
void SwapBytes(Byte* a, Byte* b)
{
    Byte copyOfA[n];
    Byte copyOfB[n];
    std::memcpy(copyOfA, a, n);
    std::memcpy(copyOfB, b, n);
    std::memcpy(a, copyOfB, n);
    std::memcpy(b, copyOfA, n);
}

// How elements lie in their array, and how two are swapped. The common sizes are known to the compiler: the loops of
// the sort then find room for all they need in registers.
template <int32 n>
struct PackedElements {
    static constexpr ptrdiff_t Stride() { return n; }
    static void Swap(Byte* a, Byte* b) { SwapBytes<n>(a, b); }
};

struct AnyElements {
    size_t size;
    ptrdiff_t stride;

    ptrdiff_t Stride() const { return stride; }
    // In pieces that registers hold, and nowhere past an element: what lies between two elements is the caller's.
    void Swap(Byte* a, Byte* b) const
    {
        size_t left = size;
        for (; left >= 16; left -= 16, a += 16, b += 16) {
            SwapBytes<16>(a, b);
        }
        for (; left >= 4; left -= 4, a += 4, b += 4) {
            SwapBytes<4>(a, b);
        }
        for (; left > 0; --left, ++a, ++b) {
            SwapBytes<1>(a, b);
        }
    }
};

template <typename Elements, typename CompareType>
class Sorter {
public:
    Sorter(Elements elements, CompareType compare) : mElements(elements), mCompare(compare) {}

    // Requires at least two elements.
    void Sort(Byte* base, int32 count)
    {
        KZ_ASSERT(count >= 2);
        mBudget = SplitBudget(count);
        Range range{base, base + (count - 1) * mElements.Stride()};
        for (;;) {
            range = SortStep(range);
            if (range.lo == range.hi) {
                if (mDepth == 0) {
                    return;
                }
                range = mPending[--mDepth];
            }
        }
    }

private:
    struct Range {
        Byte* lo;
        Byte* hi;
    };

    // How many elements the splits may pass in all: eight times what even splits pass. A random order needs 1.15 times
    // that. Two runs one behind the other, up and down or merged the wrong way, need 2.2 times at 1,000 elements, 4.2
    // at 2,000,000 and nearly 0.2 more for each doubling, because their medians lie near the ends of the ranges.
    static int64_t SplitBudget(int32 count)
    {
        int64_t levels = 1;
        for (int32 left = count; left > 1; left /= 2) {
            ++levels;
        }
        return 8 * levels * count;
    }

    // Sorts a short range, or splits a longer one: puts the larger part on the stack and returns the smaller one. A
    // range of one element is what is left when nothing is.
    Range SortStep(Range range)
    {
        Byte* const lo = range.lo;
        Byte* const hi = range.hi;
        const Range nothing{lo, lo};
        KZ_ASSERT(lo <= hi && (hi - lo) % mElements.Stride() == 0);
        const ptrdiff_t intervals = (hi - lo) / mElements.Stride();
        if (intervals < 2) {
            if (intervals == 1) {
                SwapIfAbove(lo, hi);
            }
            return nothing;
        }
        // Three elements are sorted by the median's own compares, so the heap is never asked for them.
        if (intervals > 2 && mBudget < 0) {
            SortByHeap(lo, intervals + 1);
            return nothing;
        }
        mBudget -= intervals;
        Byte* const mid = lo + intervals / 2 * mElements.Stride();
        SwapIfAbove(lo, mid);
        SwapIfAbove(lo, hi);
        SwapIfAbove(mid, hi);
        if (intervals == 2) {
            return nothing;
        }
        Byte* const pivot = Partition(lo, mid, hi);
        KZ_ASSERT(lo < pivot && pivot < hi);
        if (pivot - lo <= hi - pivot) {
            Push(pivot + mElements.Stride(), hi);
            return {lo, pivot};
        }
        Push(lo, pivot - mElements.Stride());
        return {pivot, hi};
    }

    // Moves what belongs before the median at `mid` to the left of it and the rest to its right. Returns the median's
    // place.
    Byte* Partition(Byte* lo, Byte* mid, Byte* hi) const
    {
        // The first and the last element stand on their sides already, so only those between are walked over.
        Byte* const pivot = hi - mElements.Stride();
        SwapIfApart(mid, pivot);
        Byte* const place = Exchange(lo + mElements.Stride(), pivot);
        SwapIfApart(place, pivot);
        return place;
    }

    // Swaps each element from `i` on that belongs to the right of `pivot` with the next one from the right that belongs
    // to its left. Returns where the two walks meet. Kept out of line because it would otherwise share the registers
    // with the rest of the sort. It works on copies of the members, because calls of an unknown procedure would make
    // the compiler read those again.
    [[gnu::noinline]] Byte* Exchange(Byte* i, Byte* const pivot) const
    {
        const Elements elements = mElements;
        const CompareType compare = mCompare;
        for (Byte* j = pivot; i != j; i += elements.Stride()) {
            if (compare(i, pivot) < 0) {
                continue;
            }
            do {
                j -= elements.Stride();
                if (j == i) {
                    return i;
                }
            } while (compare(j, pivot) > 0);
            elements.Swap(i, j);
        }
        return i;
    }

    // Halving bounds the depth: the part that is worked on has at most (n + 1) / 2 of n elements, and n is below 2^31.
    void Push(Byte* lo, Byte* hi)
    {
        if (lo != hi) {
            KZ_ASSERT(mDepth < std::size(mPending));
            mPending[mDepth++] = {lo, hi};
        }
    }

    // Makes a heap of the range, the greatest element in front, and puts that behind the others until none is left.
    void SortByHeap(Byte* lo, ptrdiff_t count)
    {
        KZ_ASSERT(count > 1);
        for (ptrdiff_t root = count / 2; root-- > 0;) {
            SiftDown(lo, root, count);
        }
        for (ptrdiff_t last = count - 1; last > 0; --last) {
            mElements.Swap(lo, lo + last * mElements.Stride());
            SiftDown(lo, 0, last);
        }
    }

    // Lets the element at `root` of a heap of `count` elements sink to its place: the greater of its two children comes
    // up until neither is greater.
    void SiftDown(Byte* lo, ptrdiff_t root, ptrdiff_t count)
    {
        KZ_ASSERT(root >= 0 && root < count);
        for (ptrdiff_t child = 2 * root + 1; child < count; child = 2 * root + 1) {
            Byte* greater = lo + child * mElements.Stride();
            if (child + 1 < count && mCompare(greater, greater + mElements.Stride()) < 0) {
                greater += mElements.Stride();
                ++child;
            }
            Byte* const parent = lo + root * mElements.Stride();
            if (mCompare(parent, greater) >= 0) {
                return;
            }
            mElements.Swap(parent, greater);
            root = child;
        }
    }

    void SwapIfAbove(Byte* a, Byte* b) const
    {
        if (mCompare(a, b) > 0) {
            mElements.Swap(a, b);
        }
    }

    void SwapIfApart(Byte* a, Byte* b) const
    {
        if (a != b) {
            mElements.Swap(a, b);
        }
    }

    const Elements mElements;
    const CompareType mCompare;
    int64_t mBudget = 0;
    size_t mDepth = 0;
    Range mPending[32];
};

template <typename CompareType>
void SortArray(void* base, int32 count, int32 size, int32 stride, CompareType compare)
{
    if (count < 2 || size < 1 || stride < 1) {
        return;
    }
    // Numbers and pointers get a sort of their own; a compare procedure that is called through a pointer either way
    // leaves little to gain for other sizes.
    Byte* const first = static_cast<Byte*>(base);
    if (size == 4 && stride == 4) {
        Sorter(PackedElements<4>(), compare).Sort(first, count);
    } else if (size == 8 && stride == 8) {
        Sorter(PackedElements<8>(), compare).Sort(first, count);
    } else {
        Sorter(AnyElements{static_cast<size_t>(size), stride}, compare).Sort(first, count);
    }
}

// What is left to search: `count` elements from number `start` on, and where the one in the middle of them lies.
struct SearchRange {
    ptrdiff_t start;
    ptrdiff_t count;
    ptrdiff_t middle;
};

// `a` where `mask` is all ones, `b` where it is 0.
ptrdiff_t Choose(ptrdiff_t mask, ptrdiff_t a, ptrdiff_t b)
{
    return b ^ ((a ^ b) & mask);
}

// The ranges on both sides are made, and their middles asked for, before the compare procedure chooses between them: a
// choice of values costs less than a branch that no predictor guesses, and memory answers meanwhile.
template <typename CompareType>
int32 SearchArray(const void* base, int32 count, int32 size, const void* key, CompareType compare)
{
    const Byte* const first = static_cast<const Byte*>(base);
    const auto rangeAt = [first, size](ptrdiff_t start, ptrdiff_t n) {
        const ptrdiff_t middle = (start + (n - 1) / 2) * size;
        __builtin_prefetch(first + middle);
        return SearchRange{start, n, middle};
    };
    SearchRange range = rangeAt(0, std::max(count, 0));
    // Elements before the range are below the key and those behind it above, if the array is sorted. If it isn't, the
    // key may be missed, but each turn halves the range all the same.
    while (range.count > 0) {
        KZ_ASSERT(range.start >= 0 && range.start + range.count <= count);
        const ptrdiff_t below = (range.count - 1) / 2;
        const ptrdiff_t middle = range.start + below;
        const SearchRange left = rangeAt(range.start, below);
        const SearchRange right = rangeAt(middle + 1, range.count - below - 1);
        const int32 order = compare(key, first + range.middle);
        if (order == 0) {
            return static_cast<int32>(middle);
        }
        const ptrdiff_t above = -static_cast<ptrdiff_t>(order > 0);
        range.start = Choose(above, right.start, left.start);
        range.count = Choose(above, right.count, left.count);
        range.middle = Choose(above, right.middle, left.middle);
    }
    return static_cast<int32>(~range.start);
}

}  // namespace

void QSort2Ex(void* base, int32 count, int32 size, int32 stride, KzCompareExProc compare, void* context)
{
    SortArray(base, count, size, stride, ContextCompare{compare, context});
}

void QSortEx(void* base, int32 count, int32 size, KzCompareExProc compare, void* context)
{
    QSort2Ex(base, count, size, size, compare, context);
}

void QSort2(void* base, int32 count, int32 size, int32 stride, KzCompareProc compare)
{
    SortArray(base, count, size, stride, PlainCompare{compare});
}

void QSort(void* base, int32 count, int32 size, KzCompareProc compare)
{
    QSort2(base, count, size, size, compare);
}

int32 BinSearchEx(const void* base, int32 count, int32 size, const void* key, KzCompareExProc compare, void* context)
{
    return SearchArray(base, count, size, key, ContextCompare{compare, context});
}

int32 BinSearch(const void* base, int32 count, int32 size, const void* key, KzCompareProc compare)
{
    return SearchArray(base, count, size, key, PlainCompare{compare});
}

int32 CompareInt16s(const void* a, const void* b)
{
    return kz::LoadNative<int16>(a) - kz::LoadNative<int16>(b);
}

int32 CompareInt32s(const void* a, const void* b)
{
    // Unsigned, because the difference is documented to wrap, which signed numbers must not.
    return static_cast<int32>(kz::LoadNative<uInt32>(a) - kz::LoadNative<uInt32>(b));
}

int32 CompareUIntPtrTs(const void* a, const void* b)
{
    // A difference of pointers does not fit the result.
    const uintptr_t left = kz::LoadNative<uintptr_t>(a);
    const uintptr_t right = kz::LoadNative<uintptr_t>(b);
    return (left > right) - (left < right);
}
