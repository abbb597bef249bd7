// Paths to and from text, by the name of a form. Works on elements, so that everything that has no PathRef at hand can
// use it; PathRef's members forward here.
#ifndef KZCORE_PATHTEXT_H
#define KZCORE_PATHTEXT_H

#include <string>

#include "KzErr.h"
#include "PathItemElement.h"

namespace kz {

// The text of the path that ends at `element` (null: not a path), as PathRef::ConvertToString. The element must be
// referenced. Takes the tree's lock.
KzErr WritePathText(PathItemElement* element, std::string* text, const char* form);

// What a text means, as PathRef's text constructor: an element with one reference for the caller, or null for not a
// path. Throws what the constructor throws. Takes the tree's lock.
PathItemElement* ReadPathText(const std::string& text, const char* form);

// The texts that stand for not a path and for a path too long to print, and the name of a path without components:
// one object of each, to be set at start-up, while no other thread uses paths.
std::string& NotAPathText();
std::string& PathTooLongText();
const std::string& EmptyPathName();
// Places the three in static storage, where they are not placed yet.
void PlacePathTexts();

}  // namespace kz

#endif
