// The readers that cut a path's text into names. A reader does not own its text, which must outlive it, and copies
// nothing; only an expanded "~" is text of its own. Positions are byte offsets; kNoPosition means none.
#ifndef KZCORE_PATHFORMATREADER_H
#define KZCORE_PATHFORMATREADER_H

#include <cstddef>
#include <string>
#include <string_view>

#include "KZTypes.h"
#include "KzAssert.h"
#include "PathTypes.h"

namespace WidePathFormat {

using kz::PathTypes;

constexpr size_t kNoPosition = static_cast<size_t>(-1);

// The common part of all forms. An element is given by its offset and length, which the caller keeps: a reader has no
// place of its own, so several walks over one text don't disturb each other. Any thread, while the text stands.
class PathFormatReader {
public:
    // Walks the elements of a reader, which must outlive it. Without a reader it has none, and its steps do nothing.
    class Iterator {
    public:
        Iterator() = default;
        // Stands at the element given; FirstElement makes one that stands at the first.
        Iterator(PathFormatReader* reader, size_t offset, size_t length)
            : mReader(reader), mOffset(offset), mLength(length)
        {}

        // Goes back to the first element.
        void Reset();
        // Goes to the next element, or past the last one, where it stays.
        void Next();
        // True while it stands at an element.
        bool HasMore() const;
        // The element's name, as Extract.
        bool CopyName(std::string* name) const;
        explicit operator bool() const { return HasMore(); }
        Iterator& operator++();
        Iterator operator++(int);

    private:
        PathFormatReader* mReader = nullptr;
        size_t mOffset = kNoPosition;
        size_t mLength = kNoPosition;
    };

    // The text is not copied.
    explicit PathFormatReader(const std::string* text) : mText(text) {}
    PathFormatReader(const PathFormatReader&) = delete;
    PathFormatReader& operator=(const PathFormatReader&) = delete;
    virtual ~PathFormatReader() = default;

    // The root that the text's path hangs from.
    virtual PathTypes::PathBase PathBase() const = 0;
    // The walk from the first element on.
    virtual Iterator FirstElement();
    // Goes to the element behind this one; past the end the length is 0.
    virtual void GetNext(size_t* offset, size_t* length) const;
    // Goes to the first element.
    virtual void Reset(size_t* offset, size_t* length) const;
    // The element's name as PathRef::Append takes it. False, and an empty name, outside the text.
    virtual bool Extract(const size_t* offset, const size_t* length, std::string* name) const;
    // True while there is an element here.
    virtual bool HasMore(const size_t* offset, const size_t* length) const;
    // True if an element ends at `position`; false at and behind the end of the text.
    virtual bool CharacterIsSeparator(size_t position) const = 0;
    // The place of the character behind the one at `position`, which must lie in the text.
    virtual size_t NextCharacterOffset(size_t position) const;
    // Where the names begin; kNoPosition if there are none.
    virtual size_t CharacterPastPathType() const;
    // The first separator at or behind `position`; kNoPosition if there is none.
    virtual size_t NextSeparatorCharacter(size_t position) const;
    // The element's bytes as they stand. False, and an empty name, outside the text.
    virtual bool GetActualElementName(const size_t* offset, const size_t* length, std::string* name) const;

    // True if a character of one byte stands at `position` and is this one: the same byte within a wider character is
    // none.
    bool CharacterAtPositionIs(char character, size_t position) const;

protected:
    // The length of the element that begins at `offset`, up to the next separator or the end of the text.
    size_t LengthFrom(size_t offset) const;

    const std::string* mText;  // not owned
};

// The classic colon form: ":a:b" is relative, "volume:a" absolute, and a text without any colon relative.
class PathFormatReaderMac final : public PathFormatReader {
public:
    using PathFormatReader::PathFormatReader;
    PathTypes::PathBase PathBase() const override;
    bool CharacterIsSeparator(size_t position) const override;
};

// Forms in which "." means nothing and ".." is an up dir.
class PathFormatReaderDotted : public PathFormatReader {
public:
    using PathFormatReader::PathFormatReader;
    void GetNext(size_t* offset, size_t* length) const override;
    void Reset(size_t* offset, size_t* length) const override;
    bool Extract(const size_t* offset, const size_t* length, std::string* name) const override;
    // Goes on while the element is "." or empty.
    virtual void SkipToNextIfNeeded(size_t* offset, size_t* length) const;
};

// The host's own form: "/" separates, and "~" or "~user" at the start stands for a home directory. Steps by bytes.
class PathFormatReaderUnix final : public PathFormatReaderDotted {
public:
    // Looks the home directory up, where the text begins with "~"; it stays "~" if there is none.
    explicit PathFormatReaderUnix(const std::string* text);
    PathTypes::PathBase PathBase() const override;
    bool CharacterIsSeparator(size_t position) const override;
    size_t NextCharacterOffset(size_t position) const override;
    size_t NextSeparatorCharacter(size_t position) const override;

    // The element's bytes in place. Requires HasMore.
    std::string_view Element(size_t offset, size_t length) const
    {
        KZ_ASSERT(HasMore(&offset, &length));
        return {mText->data() + offset, length};
    }

private:
    std::string mExpanded;  // what mText points to when a "~" was expanded
};

}  // namespace WidePathFormat

#endif
