// The names that the linker left for addresses of code. Any thread.
#ifndef KZCORE_PLATFORMSYMBOLS_H
#define KZCORE_PLATFORMSYMBOLS_H

#include <cstddef>

namespace kz {

// Writes the name of the function that holds `address`, or of the nearest symbol below it in the same image, cut to
// size - 1 bytes and NUL-terminated, and the offset of `address` from its start. False, with both undefined, when
// nothing names it. Reads the symbol table from the image's file, which takes long; allocates nothing. Requires:
// size > 0.
bool SymbolAt(const void* address, char* name, std::size_t size, long* offset);

}  // namespace kz

#endif
