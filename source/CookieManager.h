// Magic cookies: 32-bit numbers that stand for small records, safe to hand out, to keep after the record is gone and
// to test. Usable from C11 and C++20.
//
// A jar holds the records of one kind. The low 20 bits of a cookie are the index of its record's slot, the high 12 bits
// a salt that differs each time the slot is used again; a number below 0x100000 is never a cookie, 0 means none. A
// query on a stale, foreign or zero cookie fails without a report. Slots never move and are reused last freed first;
// their memory stays with the jar until the jar goes.
//
// Any thread may call any operation on a living jar; a look-up takes no lock. A jar lives until MCDisposeJar or the
// stop of the memory service. That no call uses it afterwards is the caller's to see to: only MCDisposeJar and the
// destructor of BaseCookieJar look.
#ifndef KZCORE_COOKIEMANAGER_H
#define KZCORE_COOKIEMANAGER_H

#include "KZTypes.h"

// A jar: a handle of this module's own, for these calls only. DSDisposeHandle would leave all that hangs on it behind.
typedef struct MagicCookieJarRec** MagicCookieJar;

// A handle to a count and that many cookies; disposed by its owner with DSDisposeHandle.
typedef struct MagicCookieListRec {
    int32 count;
    uInt32 cookies[1];
} MagicCookieListRec;
typedef MagicCookieListRec** MagicCookieList;

KZ_EXTERN_C_BEGIN

// A jar whose records hold 8 bytes of the caller's, or null when out of memory or before the memory service runs.
KZ_EXPORT MagicCookieJar MCNewJar(void);

// The same with `infoSize` bytes.
KZ_EXPORT MagicCookieJar MCNewBigJar(uInt32 infoSize);

// A jar with 8 bytes of info that counts references to its cookies, see BaseCookieJar.
KZ_EXPORT MagicCookieJar MCNewRCJar(void);

// Destroys a jar that no thread uses any more, with what is still in it, which is logged at level 0. Null does
// nothing. What is no living jar, because it was disposed before or has outlived the memory service, is left alone and
// told of as a bad handle, at levels 4 and 2; a jar made since at the same address can't be told from it. Always 0.
KZ_EXPORT KzErr MCDisposeJar(MagicCookieJar jar);

// A cookie for a new record that holds a copy of `info`, zeros when that is null. 0 when the jar is null, holds
// 1,048,576 cookies or memory is out.
KZ_EXPORT uInt32 MCNewCookie(MagicCookieJar jar, const void* info);

// Ends the cookie, and copies its record to `infoOut` unless that is null. kzErrArgument: no such cookie.
KZ_EXPORT KzErr MCDisposeCookie(MagicCookieJar jar, uInt32 cookie, void* infoOut);

// Whether the cookie is alive in this jar; false for a null jar.
KZ_EXPORT KzBool MCIsACookie(MagicCookieJar jar, uInt32 cookie);

// Copies the record to `infoOut`. kzErrArgument: null jar or output, or no such cookie. Records of 8 bytes are read
// without a lock, whole; one that ends during the read gives kzErrArgument and zeros.
KZ_EXPORT KzErr MCGetCookieInfo(MagicCookieJar jar, uInt32 cookie, void* infoOut);

// Copies `info` into the record. kzErrArgument: null jar or info, or no such cookie.
KZ_EXPORT KzErr MCSetCookieInfo(MagicCookieJar jar, uInt32 cookie, const void* info);

// The address of the record itself, which is aligned to 8 bytes and stays addressable for the jar's life, though it
// means nothing once the cookie is gone. The caller orders its own accesses. kzErrArgument: null jar or no such
// cookie, and a null address. `out` may be null.
KZ_EXPORT KzErr MCGetCookieInfoPtr(MagicCookieJar jar, uInt32 cookie, void** out);

// The number of live cookies. kzErrArgument: a null jar or output.
KZ_EXPORT KzErr MCJarSize(MagicCookieJar jar, int32* out);

// Fills the list variable at `list` with all live cookies in the order of their indices; a null list is made, another
// is resized. kzErrArgument: a null jar or address; else the error of the handle call, with the old list in place, or
// an empty one if the jar grew meanwhile.
KZ_EXPORT KzErr MCGetCookieList(MagicCookieJar jar, MagicCookieList* list);

// The cookie of lowest index whose record equals the bytes at `info`, 0 when there is none or an argument is null.
// Looks at each slot.
KZ_EXPORT uInt32 MCGetCookieForInfo(MagicCookieJar jar, const void* info);

KZ_EXTERN_C_END

#ifdef __cplusplus
#include <cstring>
#include <type_traits>

// An array of cookies in a handle of its own. One thread at a time.
class KZ_EXPORT CookieList {
public:
    CookieList() = default;
    ~CookieList();
    CookieList(const CookieList&) = delete;
    CookieList& operator=(const CookieList&) = delete;

    int GetCount() const { return mCount; }

    // Grows with zeros or shrinks; 0 frees the memory. kzErrArgument: a negative count. On another error the list is
    // empty.
    KzErr SetCount(int count);

    // The cookie at this index from 0, or 0 out of range.
    unsigned int GetCookie(int index) const;

    // kzErrArgument: out of range.
    KzErr SetCookie(int index, unsigned int cookie);

private:
    int mCount = 0;
    UHandle mCookies = nullptr;
};

// The owner of one jar. Each call is the MC call of that name on it, a record being what a `long*` points to; before
// Init there is no jar and they fail as for a null one. The destructor disposes a jar that lives and does nothing for
// one that has ended, so a static owner may outlive the memory service; after a restart a jar made since at the same
// address can't be told from it.
class KZ_EXPORT BaseCookieJar {
public:
    BaseCookieJar() = default;
    virtual ~BaseCookieJar();
    BaseCookieJar(const BaseCookieJar&) = delete;
    BaseCookieJar& operator=(const BaseCookieJar&) = delete;

    // Makes the jar, in place of an earlier one, which it disposes as Uninit does, with reference counts if
    // `refCounted` is not 0. kzErrMemoryFull: out of memory; kzErrGeneric: the memory service does not run.
    KzErr Init(unsigned int infoSize, int refCounted);

    // Disposes the jar as MCDisposeJar does, which tells of one that ended with the memory service. Always 0.
    KzErr Uninit();

    MagicCookieJar GetJar() const { return mJar; }
    bool IsAValidJar() const { return mJar != nullptr; }
    KzErr GetNumCookies(int* out) const { return MCJarSize(mJar, out); }
    unsigned int NewCookie(const long* info) { return MCNewCookie(mJar, info); }
    KzErr DisposeCookie(const unsigned int& cookie, long* infoOut) { return MCDisposeCookie(mJar, cookie, infoOut); }
    bool IsACookie(const unsigned int& cookie) const { return MCIsACookie(mJar, cookie) != 0; }
    KzErr GetCookieInfo(const unsigned int& cookie, long* infoOut) const
    {
        return MCGetCookieInfo(mJar, cookie, infoOut);
    }
    KzErr SetCookieInfo(const unsigned int& cookie, const long* info) { return MCSetCookieInfo(mJar, cookie, info); }
    unsigned int GetCookieForInfo(const long* info) const { return MCGetCookieForInfo(mJar, info); }

    // In a jar with reference counts a cookie starts with one. Acquire takes another one of a cookie that has any and
    // copies its record to `infoOut`; false, with zeros there, if it has none. Release gives one back and returns how
    // many there were, 0 if none; with the last one the cookie ends. Without reference counts: false and 0. `infoOut`
    // may be null, and holds a record else.
    bool AcquireCookieRights(const unsigned int& cookie, long* infoOut);
    int ReleaseCookieRights(const unsigned int& cookie);

    // Fills `list` as MCGetCookieList does; kzErrArgument for null.
    KzErr GetCookieList(CookieList* list) const;

private:
    MagicCookieJar mJar = nullptr;
};

// A jar whose records are values of type T, e.g. CookieJar<Resource*>.
template <typename T>
class CookieJar : public BaseCookieJar {
    static_assert(std::is_trivially_copyable_v<T>, "records are copied as bytes");

public:
    KzErr Init(int refCounted = 0) { return BaseCookieJar::Init(sizeof(T), refCounted); }
    unsigned int NewCookie(const T& info) { return MCNewCookie(GetJar(), &info); }
    KzErr DisposeCookie(const unsigned int& cookie, T* infoOut = nullptr)
    {
        return MCDisposeCookie(GetJar(), cookie, infoOut);
    }
    KzErr GetCookieInfo(const unsigned int& cookie, T* infoOut) const
    {
        return MCGetCookieInfo(GetJar(), cookie, infoOut);
    }
    KzErr SetCookieInfo(const unsigned int& cookie, const T& info) { return MCSetCookieInfo(GetJar(), cookie, &info); }
    unsigned int GetCookieForInfo(const T& info) const { return MCGetCookieForInfo(GetJar(), &info); }
    bool AcquireCookieRights(const unsigned int& cookie, T* infoOut = nullptr)
    {
        // Without a jar the base class knows no size but a word's. With one it writes a record's bytes, as bytes.
        if (infoOut != nullptr && !IsAValidJar()) {
            std::memset(static_cast<void*>(infoOut), 0, sizeof(T));
            return false;
        }
        return BaseCookieJar::AcquireCookieRights(cookie, reinterpret_cast<long*>(infoOut));
    }
};

#endif

#endif
