// The loaded image that holds an address is looked for first, then the symbol in the image's file, because a loaded
// image has no more than its dynamic symbols in memory, which leave out every local function. The table is read in
// pieces into a buffer on the stack, so that names are found when memory is short. The file may have been replaced
// since it was loaded: nothing in it is trusted to be in range, and the worst outcome is a wrong name.
#include "PlatformSymbols.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "KZTypes.h"
#include "KzAssert.h"

namespace {

// Copies as much of `text` as fits.
void CopyName(const char* text, size_t length, char* name, size_t size)
{
    KZ_ASSERT(size > 0);
    length = std::min(length, size - 1);
    std::memcpy(name, text, length);
    name[length] = '\0';
}

// A loaded image that holds an address.
struct Image {
    uintptr_t address;  // what is looked for
    uintptr_t slide;    // from addresses in the file to those in memory
    char path[4096];    // empty when it has no file
};

int FindImage(dl_phdr_info* info, size_t, void* data)
{
    auto* image = static_cast<Image*>(data);
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = info->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || image->address - (info->dlpi_addr + segment.p_vaddr) >= segment.p_memsz) {
            continue;
        }
        image->slide = info->dlpi_addr;
        // The program itself has no name in the list, the kernel's own image one that is no path.
        const char* path = info->dlpi_name[0] != '\0' ? info->dlpi_name : "/proc/self/exe";
        const size_t length = std::strlen(path);
        if (std::strchr(path, '/') != nullptr && length < sizeof image->path) {
            std::memcpy(image->path, path, length + 1);
        }
        return 1;
    }
    return 0;
}

struct Symbol {
    uInt64 value;       // the address in the file
    uInt64 nameOffset;  // in the file
    uInt64 nameRoom;    // what is left of the string table there
};

// The symbol tables of an ELF file of this machine's word size.
class SymbolFile {
public:
    explicit SymbolFile(const char* path) : mFile(open(path, O_RDONLY | O_CLOEXEC)) {}
    ~SymbolFile()
    {
        if (mFile >= 0) {
            close(mFile);
        }
    }
    SymbolFile(const SymbolFile&) = delete;
    SymbolFile& operator=(const SymbolFile&) = delete;

    // Reads the header; false when this is no file with sections.
    bool ReadHeader();

    // Finds the first table of the type.
    bool FindTable(uInt32 type, Elf64_Shdr* table) const;

    // The function of the table that holds `value`, else the symbol nearest below it.
    bool FindSymbol(const Elf64_Shdr& table, uInt64 value, Symbol* found) const;

    // Reads up to `size` bytes; how many there were.
    size_t ReadSome(uInt64 offset, void* bytes, size_t size) const;

private:
    bool Read(uInt64 offset, void* bytes, size_t size) const { return ReadSome(offset, bytes, size) == size; }
    bool ReadSection(uInt64 index, Elf64_Shdr* section) const;

    int mFile;
    uInt64 mSectionsOffset = 0;
    uInt64 mSectionCount = 0;
};

size_t SymbolFile::ReadSome(uInt64 offset, void* bytes, size_t size) const
{
    KZ_ASSERT(bytes != nullptr || size == 0);
    // A file can place its tables anywhere; past this offset the sum below would be negative as an off_t.
    if (offset > static_cast<uInt64>(INT64_MAX) - size) {
        return 0;
    }
    size_t done = 0;
    while (done < size) {
        const ssize_t count =
            pread(mFile, static_cast<char*>(bytes) + done, size - done, static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    return done;
}

bool SymbolFile::ReadHeader()
{
    Elf64_Ehdr header;
    if (mFile < 0 || !Read(0, &header, sizeof header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_shoff == 0 || header.e_shentsize != sizeof(Elf64_Shdr)) {
        return false;
    }
    mSectionsOffset = header.e_shoff;
    mSectionCount = header.e_shnum;
    if (mSectionCount == 0) {  // too many for the field: the first section's size is the number
        mSectionCount = 1;
        Elf64_Shdr first;
        mSectionCount = ReadSection(0, &first) ? first.sh_size : 0;
    }
    return true;
}

bool SymbolFile::ReadSection(uInt64 index, Elf64_Shdr* section) const
{
    uInt64 offset = 0;
    return index < mSectionCount && !__builtin_mul_overflow(index, sizeof *section, &offset) &&
           !__builtin_add_overflow(offset, mSectionsOffset, &offset) && Read(offset, section, sizeof *section);
}

bool SymbolFile::FindTable(uInt32 type, Elf64_Shdr* table) const
{
    for (uInt64 i = 0; ReadSection(i, table); ++i) {
        if (table->sh_type == type && table->sh_entsize == sizeof(Elf64_Sym)) {
            return true;
        }
    }
    return false;
}

bool IsFunction(const Elf64_Sym& symbol)
{
    const int type = ELF64_ST_TYPE(symbol.st_info);
    return type == STT_FUNC || type == STT_GNU_IFUNC;
}

// A symbol that stands for a place in memory, and has a name.
bool IsPlace(const Elf64_Sym& symbol)
{
    const int type = ELF64_ST_TYPE(symbol.st_info);
    return symbol.st_name != 0 && symbol.st_shndx != SHN_UNDEF && symbol.st_shndx != SHN_ABS &&
           (IsFunction(symbol) || type == STT_OBJECT || type == STT_NOTYPE);
}

// The table is not sorted, so a symbol below the address is kept only until a nearer one comes, or the function that
// really holds the address, which ends the search. A file that was cut short gives what its readable part holds.
bool SymbolFile::FindSymbol(const Elf64_Shdr& table, uInt64 value, Symbol* found) const
{
    Elf64_Shdr strings;
    if (!ReadSection(table.sh_link, &strings)) {
        return false;
    }
    constexpr size_t kPiece = 256;
    Elf64_Sym symbols[kPiece];
    Elf64_Sym best = {};
    bool inside = false;
    const uInt64 total = table.sh_size / sizeof(Elf64_Sym);
    for (uInt64 next = 0; next < total && !inside;) {
        const auto wanted = static_cast<size_t>(std::min<uInt64>(kPiece, total - next));
        const size_t count = ReadSome(table.sh_offset + next * sizeof(Elf64_Sym), symbols, wanted * sizeof(Elf64_Sym)) /
                             sizeof(Elf64_Sym);
        for (size_t i = 0; i < count && !inside; ++i) {
            const Elf64_Sym& symbol = symbols[i];
            if (!IsPlace(symbol) || symbol.st_value > value) {
                continue;
            }
            inside = IsFunction(symbol) && value - symbol.st_value < symbol.st_size;
            if (inside || best.st_name == 0 || symbol.st_value > best.st_value) {
                best = symbol;
            }
        }
        if (count < wanted) {
            break;
        }
        next += count;
    }
    // A name outside the string table would read some other part of the file as text.
    if (best.st_name == 0 || best.st_name >= strings.sh_size ||
        __builtin_add_overflow(strings.sh_offset, best.st_name, &found->nameOffset)) {
        return false;
    }
    KZ_ASSERT(best.st_value <= value);
    found->value = best.st_value;
    found->nameRoom = strings.sh_size - best.st_name;
    return true;
}

enum class Lookup { NoTable, NotThere, Found };

// Looks `value` up in the full table where the file has one, else among its dynamic symbols.
Lookup NameFromFile(const char* path, uInt64 value, char* name, size_t size, uInt64* start)
{
    SymbolFile file(path);
    Elf64_Shdr table;
    if (!file.ReadHeader() || !(file.FindTable(SHT_SYMTAB, &table) || file.FindTable(SHT_DYNSYM, &table))) {
        return Lookup::NoTable;
    }
    Symbol symbol;
    if (!file.FindSymbol(table, value, &symbol)) {
        return Lookup::NotThere;
    }
    char first = '\0';
    if (file.ReadSome(symbol.nameOffset, &first, 1) != 1 || first == '\0') {
        return Lookup::NotThere;
    }
    const auto room = static_cast<size_t>(std::min<uInt64>(symbol.nameRoom, size - 1));
    name[file.ReadSome(symbol.nameOffset, name, room)] = '\0';
    *start = symbol.value;
    return Lookup::Found;
}

// What the dynamic loader knows, for an image without a readable file.
Lookup NameFromLoader(const void* address, char* name, size_t size, uintptr_t* start)
{
    Dl_info info = {};
    if (dladdr(address, &info) == 0 || info.dli_sname == nullptr || info.dli_sname[0] == '\0') {
        return Lookup::NotThere;
    }
    CopyName(info.dli_sname, std::strlen(info.dli_sname), name, size);
    *start = reinterpret_cast<uintptr_t>(info.dli_saddr);
    return Lookup::Found;
}

}  // namespace

bool kz::SymbolAt(const void* address, char* name, size_t size, long* offset)
{
    KZ_ASSERT(size > 0);
    Image image;
    image.address = reinterpret_cast<uintptr_t>(address);
    image.path[0] = '\0';
    if (dl_iterate_phdr(&FindImage, &image) == 0) {
        return false;
    }
    // The loader is asked only when the file has no table, because what a table doesn't know the loader, which knows a
    // part of it, doesn't know either.
    Lookup result = Lookup::NoTable;
    uInt64 start = 0;
    if (image.path[0] != '\0') {
        const uintptr_t value = image.address - image.slide;
        result = NameFromFile(image.path, value, name, size, &start);
        *offset = static_cast<long>(value - start);
    }
    if (result == Lookup::NoTable) {
        uintptr_t loaderStart = 0;
        result = NameFromLoader(address, name, size, &loaderStart);
        *offset = static_cast<long>(image.address - loaderStart);
    }
    return result == Lookup::Found;
}
