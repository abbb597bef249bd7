// All static objects are placed here, in one order, because a cleanup destroys them in the opposite one.
#include "KZStaticObjects.h"

#include "PathText.h"
#include "SharedEndianizers.h"

void kz::PlaceStaticObjects()
{
    PlaceEndianizers();
    PlacePathTexts();
}

namespace {

// Runs while the library loads. Load-time code of other files that runs earlier gets each object from its accessor.
[[maybe_unused]] const bool gPlacedAtLoad = (kz::PlaceStaticObjects(), true);

}  // namespace
