// Which slot of the virtual table a member has; a destructor pair that stands first takes slots 0 and 1.
#ifndef KZCORE_TESTS_SLOTOF_H
#define KZCORE_TESTS_SLOTOF_H

#include <cstring>
#include <vector>

namespace kztest {

// A pointer to a virtual member holds 1 + 8 * slot.
template <typename Member>
long SlotOf(Member member)
{
    long words[2];
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof words);
    return (words[0] - 1) / 8;
}

template <typename... Members>
std::vector<long> SlotsOf(Members... members)
{
    return {SlotOf(members)...};
}

}  // namespace kztest

#endif
