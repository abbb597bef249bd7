// A reader's place in its text is an offset and a length, kept by whoever reads, so that one reader can serve several
// iterators. The place past the last element has length 0 and an offset at or behind the end of the text; kNoPosition
// in either says that the text has no names at all.
//
// The operations that step call one another as virtual ones: a form changes what separates, how wide a character is, or
// which elements are skipped, and the common part does the rest.
#include "PathFormatReader.h"

#include "PathStep.h"
#include "UnixUserUtil.h"

namespace WidePathFormat {

// ---- Iterator ----

void PathFormatReader::Iterator::Reset()
{
    if (mReader != nullptr) {
        mReader->Reset(&mOffset, &mLength);
    }
}

void PathFormatReader::Iterator::Next()
{
    if (mReader != nullptr) {
        mReader->GetNext(&mOffset, &mLength);
    }
}

bool PathFormatReader::Iterator::HasMore() const
{
    return mReader != nullptr && mReader->HasMore(&mOffset, &mLength);
}

bool PathFormatReader::Iterator::CopyName(std::string* name) const
{
    return mReader != nullptr && mReader->Extract(&mOffset, &mLength, name);
}

PathFormatReader::Iterator& PathFormatReader::Iterator::operator++()
{
    Next();
    return *this;
}

PathFormatReader::Iterator PathFormatReader::Iterator::operator++(int)
{
    const Iterator before = *this;
    Next();
    return before;
}

// ---- The common part ----

PathFormatReader::Iterator PathFormatReader::FirstElement()
{
    Iterator first(this, kNoPosition, kNoPosition);
    first.Reset();
    return first;
}

size_t PathFormatReader::LengthFrom(size_t offset) const
{
    const size_t separator = NextSeparatorCharacter(offset);
    return (separator != kNoPosition ? separator : mText->size()) - offset;
}

void PathFormatReader::GetNext(size_t* offset, size_t* length) const
{
    if (*offset == kNoPosition || *length == kNoPosition) {
        return;
    }
    *offset += *length + 1;
    *length = *offset < mText->size() ? LengthFrom(*offset) : 0;
}

void PathFormatReader::Reset(size_t* offset, size_t* length) const
{
    *offset = CharacterPastPathType();
    *length = *offset != kNoPosition ? LengthFrom(*offset) : kNoPosition;
}

bool PathFormatReader::Extract(const size_t* offset, const size_t* length, std::string* name) const
{
    return GetActualElementName(offset, length, name);
}

bool PathFormatReader::HasMore(const size_t* offset, const size_t* length) const
{
    return *offset != kNoPosition && *length != kNoPosition && *offset < mText->size() &&
           *length <= mText->size() - *offset;
}

size_t PathFormatReader::NextCharacterOffset(size_t position) const
{
    return static_cast<size_t>(PathNextChar(mText->c_str(), static_cast<int32>(position)));
}

size_t PathFormatReader::CharacterPastPathType() const
{
    if (CharacterIsSeparator(0)) {
        return mText->size() > 1 ? 1 : kNoPosition;
    }
    return mText->empty() ? kNoPosition : 0;
}

size_t PathFormatReader::NextSeparatorCharacter(size_t position) const
{
    while (position < mText->size()) {
        if (CharacterIsSeparator(position)) {
            return position;
        }
        position = NextCharacterOffset(position);
    }
    return kNoPosition;
}

bool PathFormatReader::GetActualElementName(const size_t* offset, const size_t* length, std::string* name) const
{
    if (*offset > mText->size() || *length > mText->size() - *offset) {
        name->clear();
        return false;
    }
    name->assign(*mText, *offset, *length);
    return true;
}

bool PathFormatReader::CharacterAtPositionIs(char character, size_t position) const
{
    return position < mText->size() && (*mText)[position] == character && NextCharacterOffset(position) == position + 1;
}

// ---- Mac ----

bool PathFormatReaderMac::CharacterIsSeparator(size_t position) const
{
    return CharacterAtPositionIs(':', position);
}

PathTypes::PathBase PathFormatReaderMac::PathBase() const
{
    if (CharacterIsSeparator(0)) {
        return PathTypes::kRelative;
    }
    const size_t first = CharacterPastPathType();
    if (first == kNoPosition) {
        return PathTypes::kAbsolute;
    }
    return NextSeparatorCharacter(first) == kNoPosition ? PathTypes::kRelative : PathTypes::kAbsolute;
}

// ---- Dotted ----

void PathFormatReaderDotted::GetNext(size_t* offset, size_t* length) const
{
    PathFormatReader::GetNext(offset, length);
    SkipToNextIfNeeded(offset, length);
}

void PathFormatReaderDotted::Reset(size_t* offset, size_t* length) const
{
    PathFormatReader::Reset(offset, length);
    if (PathBase() == PathTypes::kRelative) {
        SkipToNextIfNeeded(offset, length);
    }
}

bool PathFormatReaderDotted::Extract(const size_t* offset, const size_t* length, std::string* name) const
{
    const bool inside = PathFormatReader::Extract(offset, length, name);
    if (*name == "..") {
        name->clear();
    }
    return inside;
}

void PathFormatReaderDotted::SkipToNextIfNeeded(size_t* offset, size_t* length) const
{
    // A loop over the plain step: a text of separators only may be longer than the stack is deep.
    while (*offset < mText->size() && (*length == 0 || (*length == 1 && (*mText)[*offset] == '.'))) {
        PathFormatReader::GetNext(offset, length);
    }
}

// ---- Unix ----

PathFormatReaderUnix::PathFormatReaderUnix(const std::string* text) : PathFormatReaderDotted(text)
{
    if (text->empty() || text->front() != '~') {
        return;
    }
    // "~" or "~user" up to the first separator. A user whose home is not known leaves the text as it is, and so does a
    // home that begins with "~" itself, which would be taken for expanded when it is not.
    const size_t separator = PathFormatReaderUnix::NextSeparatorCharacter(0);
    const size_t end = separator != kNoPosition ? separator : text->size();
    std::string home;
    static_cast<void>(GetHomeDir(&home, text->substr(1, end - 1)));
    if (home.empty() || home.front() == '~') {
        return;
    }
    mExpanded = home.append(*text, end);
    mText = &mExpanded;
}

PathTypes::PathBase PathFormatReaderUnix::PathBase() const
{
    return mText->empty() || mText->front() == '/' ? PathTypes::kAbsolute : PathTypes::kRelative;
}

bool PathFormatReaderUnix::CharacterIsSeparator(size_t position) const
{
    return position < mText->size() && (*mText)[position] == '/';
}

size_t PathFormatReaderUnix::NextCharacterOffset(size_t position) const
{
    return position + 1;
}

size_t PathFormatReaderUnix::NextSeparatorCharacter(size_t position) const
{
    return mText->find('/', position);
}

}  // namespace WidePathFormat
