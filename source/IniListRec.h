// How the record of a list lies in its block. C library only.
#ifndef KZCORE_INILISTREC_H
#define KZCORE_INILISTREC_H

// The elements follow it.
struct qkini_ListRec {
    char magic[4];  // "TSIL"
    int capacity;
    int elementSize;
    int count;
};

#endif
