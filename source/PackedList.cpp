// A record comes and goes by way of the list's end. One that goes is turned to the end, where the resize cuts it off,
// and from where it can come back if the resize fails. One that comes is spliced behind the last one by the same
// resize, and then turned into place, which can't fail.
//
// Whatever fails, the list is thus whole at each step: a host's procedure that the manager calls for want of memory may
// meet the records in another order, but never half a record.
#include "PackedList.h"

#include <cstring>

namespace kz {

namespace {

// The record has the size of the one that it replaces, so nothing moves.
void Overwrite(unsigned char* record, const RecordChange& change)
{
    KZ_ASSERT(change.size + change.padding == change.end - change.at);
    std::memmove(record, change.bytes, change.size);
    std::memset(record + change.size, 0, change.padding);
}

// Whether a CLStr's record is filled up with zeros.
bool IsPadded(const unsigned char* record, std::size_t size)
{
    const auto text = static_cast<std::size_t>(LoadNative<int32>(record));
    return std::all_of(record + sizeof(int32) + text, record + size, [](unsigned char byte) { return byte == 0; });
}

}  // namespace

KzErr ChangeRecord(void* handle, const RecordChange& change, Fit fit)
{
    KZ_ASSERT(kListCountSize <= change.at && change.at <= change.end && change.end <= change.used);
    KZ_ASSERT(change.count >= 0);
    const std::size_t oldSize = change.end - change.at;
    const std::size_t newSize = change.size + change.padding;
    const std::size_t kept = change.used - oldSize;
    if (newSize > oldSize && kept + newSize > kMaxListSize) {
        return kzErrMemoryFull;
    }
    // The data is touched only where there is an old record. Without one the handle may be bad, which the splice
    // reports.
    if (oldSize != 0) {
        unsigned char* const data = DataOf(handle);
        if (newSize == oldSize) {
            Overwrite(data + change.at, change);
            StoreNative(data, change.count);
            return kzErrNone;
        }
        TurnBytes(data + change.at, data + change.end, data + change.used);
    }
    const Splice splice{change.block, kept, change.bytes, change.size, 0, change.padding};
    if (const KzErr err = SpliceBehind(&handle, splice, fit)) {
        if (oldSize != 0) {
            unsigned char* const data = DataOf(handle);
            TurnBytes(data + change.at, data + kept, data + change.used);
        }
        return err;
    }
    unsigned char* const data = DataOf(handle);
    std::memset(data + kept + change.size, 0, change.padding);
    TurnBytes(data + change.at, data + kept, data + kept + newSize);
    StoreNative(data, change.count);
    return kzErrNone;
}

const char* CPStrFault(const void* handle)
{
    return PackedFault<ShortStringRule>(handle);
}

const char* CLStrFault(const void* handle)
{
    if (const char* const fault = PackedFault<LongStringRule>(handle)) {
        return fault;
    }
    LongStringWalk walk(DataOf(handle));
    while (walk.Next()) {
        if (!IsPadded(walk.Record(), walk.End() - walk.At())) {
            return "a string of the list is not filled up with zeros";
        }
    }
    return nullptr;
}

}  // namespace kz
