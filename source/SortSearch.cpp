// Quicksort with an explicit stack in place of recursion. The order of the compare calls and of the swaps is part of
// what callers see (equal elements, compare procedures with side effects): the steps below keep it. Every index is
// bounded by another one, never by the compare procedure's answers, so a procedure that contradicts itself gives a
// wrong order but no access outside the array.
#include "SortSearch.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

using Byte = unsigned char;

class Sorter {
public:
    Sorter(int32 size, int32 stride, KzCompareExProc compare, void* context)
        : mSize(static_cast<size_t>(size)), mStride(stride), mCompare(compare), mContext(context)
    {}

    // `first` to `last` inclusive, at least two elements.
    void Sort(Byte* first, Byte* last)
    {
        Range range{first, last};
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

    // Sorts a short range, or splits a longer one: puts the larger part on the stack and returns the smaller one. A
    // range of one element is what is left when nothing is.
    Range SortStep(Range range)
    {
        Byte* const lo = range.lo;
        Byte* const hi = range.hi;
        const Range nothing{lo, lo};
        const ptrdiff_t intervals = (hi - lo) / mStride;
        if (intervals < 2) {
            if (intervals == 1) {
                SwapIfAbove(lo, hi);
            }
            return nothing;
        }
        Byte* const mid = lo + intervals / 2 * mStride;
        SwapIfAbove(lo, mid);
        SwapIfAbove(lo, hi);
        SwapIfAbove(mid, hi);
        if (intervals == 2) {
            return nothing;
        }
        Byte* const pivot = Partition(lo, mid, hi);
        if (pivot - lo <= hi - pivot) {
            Push(pivot + mStride, hi);
            return {lo, pivot};
        }
        Push(lo, pivot - mStride);
        return {pivot, hi};
    }

    // Moves what stands before the median at `mid` to the left of it, the rest to its right; its place then.
    Byte* Partition(Byte* lo, Byte* mid, Byte* hi)
    {
        Byte* const pivot = hi - mStride;
        SwapIfApart(mid, pivot);
        Byte* i = lo;
        Byte* j = pivot;
        for (;;) {
            i += mStride;
            if (i == j) {
                break;
            }
            if (Compare(i, pivot) < 0) {
                continue;
            }
            if (!Exchange(i, j, pivot)) {
                break;
            }
        }
        SwapIfApart(i, pivot);
        return i;
    }

    // `i` belongs to the right: swaps it with the next element from the right that belongs to the left, as long as
    // the element behind it does not belong to the left. False when `i` and `j` have met.
    bool Exchange(Byte*& i, Byte*& j, Byte* pivot)
    {
        do {
            do {
                j -= mStride;
                if (j == i) {
                    return false;
                }
            } while (Compare(j, pivot) > 0);
            Swap(i, j);
            i += mStride;
            if (i == j) {
                return false;
            }
        } while (Compare(i, pivot) >= 0);
        return true;
    }

    // Halving bounds the depth: the part that is worked on has at most (n + 1) / 2 of n elements, and n is below 2^31.
    void Push(Byte* lo, Byte* hi)
    {
        if (lo != hi) {
            mPending[mDepth++] = {lo, hi};
        }
    }

    int32 Compare(const Byte* a, const Byte* b) const { return mCompare(a, b, mContext); }

    void SwapIfAbove(Byte* a, Byte* b) const
    {
        if (Compare(a, b) > 0) {
            Swap(a, b);
        }
    }

    void SwapIfApart(Byte* a, Byte* b) const
    {
        if (a != b) {
            Swap(a, b);
        }
    }

    // Swaps n bytes through registers.
    template <size_t n>
    static void SwapChunk(Byte* a, Byte* b)
    {
        Byte copyOfA[n];
        Byte copyOfB[n];
        std::memcpy(copyOfA, a, n);
        std::memcpy(copyOfB, b, n);
        std::memcpy(a, copyOfB, n);
        std::memcpy(b, copyOfA, n);
    }

    void Swap(Byte* a, Byte* b) const
    {
        size_t left = mSize;
        for (; left >= 16; left -= 16, a += 16, b += 16) {
            SwapChunk<16>(a, b);
        }
        for (; left >= 4; left -= 4, a += 4, b += 4) {
            SwapChunk<4>(a, b);
        }
        for (; left > 0; --left, ++a, ++b) {
            SwapChunk<1>(a, b);
        }
    }

    const size_t mSize;
    const ptrdiff_t mStride;
    const KzCompareExProc mCompare;
    void* const mContext;
    size_t mDepth = 0;
    Range mPending[32];
};

// Calls the compare procedure without a context whose address is the context.
int32 CallPlain(const void* a, const void* b, void* context)
{
    return (*static_cast<KzCompareProc*>(context))(a, b);
}

template <typename T>
T ReadAs(const void* p)
{
    T value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

}  // namespace

void QSort2Ex(void* base, int32 count, int32 size, int32 stride, KzCompareExProc compare, void* context)
{
    if (count < 2 || size < 1 || stride < 1) {
        return;
    }
    Byte* const first = static_cast<Byte*>(base);
    Sorter(size, stride, compare, context).Sort(first, first + ptrdiff_t{count - 1} * stride);
}

void QSortEx(void* base, int32 count, int32 size, KzCompareExProc compare, void* context)
{
    QSort2Ex(base, count, size, size, compare, context);
}

void QSort2(void* base, int32 count, int32 size, int32 stride, KzCompareProc compare)
{
    QSort2Ex(base, count, size, stride, &CallPlain, &compare);
}

void QSort(void* base, int32 count, int32 size, KzCompareProc compare)
{
    QSort2(base, count, size, size, compare);
}

int32 BinSearchEx(const void* base, int32 count, int32 size, const void* key, KzCompareExProc compare, void* context)
{
    const Byte* const first = static_cast<const Byte*>(base);
    int32 lo = 0;
    int32 hi = count - 1;
    while (lo <= hi) {
        const int32 middle = lo + (hi - lo) / 2;
        const int32 order = compare(key, first + ptrdiff_t{middle} * size, context);
        if (order == 0) {
            return middle;
        }
        if (order > 0) {
            lo = middle + 1;
        } else {
            hi = middle - 1;
        }
    }
    return ~lo;
}

int32 BinSearch(const void* base, int32 count, int32 size, const void* key, KzCompareProc compare)
{
    return BinSearchEx(base, count, size, key, &CallPlain, &compare);
}

int32 CompareInt16s(const void* a, const void* b)
{
    return ReadAs<int16>(a) - ReadAs<int16>(b);
}

int32 CompareInt32s(const void* a, const void* b)
{
    return static_cast<int32>(ReadAs<uInt32>(a) - ReadAs<uInt32>(b));
}

int32 CompareUIntPtrTs(const void* a, const void* b)
{
    const uintptr_t left = ReadAs<uintptr_t>(a);
    const uintptr_t right = ReadAs<uintptr_t>(b);
    return (left > right) - (left < right);
}
