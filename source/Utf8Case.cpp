// Two walks over the text: the first tells whether it is UTF-8 and how many UTF-16 units it has, the second maps. Both
// are over the source, which therefore has to be other memory than the target. What is written is bounded twice: by the
// text's bytes, because it goes where the text stood, and by the text's UTF-16 units, because that is what callers are
// promised. Mapped text can pass either bound: a sharp s has two bytes and one unit, its capitals "SS" two of each.
#include "Utf8Case.h"

#include <algorithm>

#include "KzAssert.h"

namespace kz {

namespace {

constexpr std::size_t Units(uInt32 character)
{
    return character < 0x10000 ? 1 : 2;
}

// A sink that writes nothing.
struct UnitCounter {
    std::size_t units = 0;

    void Put(uInt32 character) { units += Units(character); }
};

// Maps characters and writes what becomes of them, until units or room are used up.
class MappedWriter {
public:
    MappedWriter(const CaseMapping& mapping, std::size_t units, unsigned char* out, std::size_t room)
        : mMapping(mapping), mOut{units, out, room}
    {}

    void Put(uInt32 character) { mMapping.Put(mOut, character); }

private:
    struct Out {
        std::size_t units;
        unsigned char* at;
        std::size_t room;

        void Put(uInt32 character)
        {
            // Half a pair of units is no character: platform text that is cut there writes a `?`.
            const std::size_t taken = std::min(Units(character), units);
            const uInt32 written = taken < Units(character) ? '?' : character;
            const std::size_t size = Utf8Size(written);
            if (taken == 0 || size > room) {
                units = 0;  // nor does a shorter character that follows get in, since text would be missing before it
                return;
            }
            units -= taken;
            room -= size;
            at = EncodeUtf8(written, at);
        }
    };

    const CaseMapping& mMapping;
    Out mOut;
};

// False, with nothing written, where kEscape is not set and the text is not UTF-8.
template <bool kEscape>
bool Map(const CaseMapping& mapping, const unsigned char* from, std::size_t length, unsigned char* to)
{
    UnitCounter counter;
    if (!DecodeUtf8<kEscape>(from, from + length, counter)) {
        return false;
    }
    KZ_ASSERT(counter.units <= length);  // no character has more units than bytes
    MappedWriter writer(mapping, counter.units, to, length);
    return DecodeUtf8<kEscape>(from, from + length, writer);
}

}  // namespace

void MapUtf8Case(const CaseMapping& mapping, const unsigned char* from, std::size_t length, unsigned char* to)
{
    KZ_ASSERT(from + length <= to || to + length <= from);
    // Text that is not UTF-8 is mapped all the same, because these calls have no way to refuse it.
    if (!Map<false>(mapping, from, length, to)) {
        Map<true>(mapping, from, length, to);
    }
}

}  // namespace kz
