// The fixed-width types, handles and counted strings that cross the library's boundary.
// Usable from C11 and C++20.
#ifndef KZCORE_KZTYPES_H
#define KZCORE_KZTYPES_H

#if defined(__cplusplus) && __cplusplus < 202002L
#error "The headers of kzcore need C++20 (or C11): compile with -std=c++20."
#include <-std=c++20>  // no such file: ends the compilation, whose hundreds of other errors would hide this one
#endif

// Marks what a host may link against; everything else is hidden. In a static library nothing needs to be marked.
#ifdef KZCORE_STATIC
#define KZ_EXPORT
#else
#define KZ_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define KZ_EXTERN_C_BEGIN extern "C" {
#define KZ_EXTERN_C_END }
#else
#define KZ_EXTERN_C_BEGIN
#define KZ_EXTERN_C_END
#endif

typedef signed char int8;
typedef unsigned char uInt8;
typedef short int16;
typedef unsigned short uInt16;
typedef int int32;
typedef unsigned int uInt32;
typedef long long int64;
typedef unsigned long long uInt64;

// A Boolean across C functions and KZApp: 0 is false, anything else true.
typedef int32 KzBool;

// An error code; 0 is success. The values stand in KzErr.h.
typedef int32 KzErr;

// A handle: the address of a master pointer, which points to relocatable data (MemoryManager.h).
typedef unsigned char** UHandle;
typedef UHandle Handle;

// A counted string: `cnt` bytes of text follow the count, without a terminator. A null LStr** is an empty string.
typedef struct LStr {
    int32 cnt;
    unsigned char str[1];
} LStr;

// Four-character codes: the bytes in memory, lowest address first, are the code in reading order.
typedef uInt32 _ResourceType;
typedef uInt32 _FMFileType;
typedef uInt32 _FMFileCreator;

// The reference of an open file; null is the closed state.
typedef struct KZFile* File_t;

// The refnum of an open resource file or chain: a magic cookie, 0 for none.
typedef uInt32 RsrcFile;

#ifdef __cplusplus
class PathRef;
namespace kz {

// The four-character code with these bytes in memory, e.g. FourCharCode("STR#").
constexpr uInt32 FourCharCode(const char (&text)[5])
{
    uInt32 code = 0;
    for (int i = 3; i >= 0; --i) {
        code = (code << 8) | static_cast<unsigned char>(text[i]);
    }
    return code;
}

// Whether a variable of this type can't hold a handle. Calls that want the address of a handle's variable as void*
// would take the handle in its place, because it is an address too; this tells the two apart.
template <typename T>
inline constexpr bool kIsHandleType = false;
template <typename T>
inline constexpr bool kIsHandleType<T**> = true;
template <typename T>
concept NotAHandleType = !kIsHandleType<T>;

}  // namespace kz
#else
typedef struct PathRef PathRef;
#endif

#endif
