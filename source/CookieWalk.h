// Walks over the cookies of a jar, for owners that empty one and for whoever asks whether a jar is sound.
#ifndef KZCORE_COOKIEWALK_H
#define KZCORE_COOKIEWALK_H

#include "KZTypes.h"

struct MagicCookieJarRec;

namespace kz {

// The live cookie of the lowest index above that of `cookie`, which may be gone; 0 asks for the first. 0 when there is
// none, or for a null jar. A walk by these calls needs no memory, and may end cookies on its way. Any thread.
uInt32 NextCookie(MagicCookieJarRec** jar, uInt32 cookie);

// What is wrong with a jar, or null when it is sound: every slot is free, in the chain and with no salt, or in use
// with a salt, and the counts agree. Looks at each slot. For a jar that no other thread changes.
const char* CookieJarFault(MagicCookieJarRec** jar);

}  // namespace kz

#endif
