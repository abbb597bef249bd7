// The writers of a path's text. One driver (PathText.cpp) steps a writer through a path's components. A writer knows
// no path, only what it is told.
#ifndef KZCORE_PATHTEXTFORMAT_H
#define KZCORE_PATHTEXTFORMAT_H

#include <string>

#include "KZTypes.h"

// The order of calls: one SetTo..., then for each component AppendElement or AppendUpDir, with AppendSeparator between
// two and Finalize behind the last. A path without components is SetTo... alone. `count` is the path's number of
// components, `index` that of one of them, from 0. A writer writes one path and belongs to one thread; all of them may
// throw std::bad_alloc.
class PathTextFormat {
public:
    PathTextFormat() = default;
    PathTextFormat(const PathTextFormat&) = delete;
    PathTextFormat& operator=(const PathTextFormat&) = delete;
    virtual ~PathTextFormat() = default;

    // Set the text to what a path of this kind begins with, or to all of it when `count` is 0.
    virtual void SetToAbsolutePath(std::string* text, int32 count) = 0;
    virtual void SetToRelativePath(std::string* text, int32 count) = 0;
    virtual void SetToUNCPath(std::string* text, const std::string& server, int32 count) = 0;
    // Appends a component that has a name.
    virtual void AppendElement(std::string* text, const std::string& name, int32 index) = 0;
    // Appends what stands between two components.
    virtual void AppendSeparator(std::string* text) = 0;
    // Appends what stands for the components that an abbreviated text leaves out.
    virtual void AppendAbbreviationMark(std::string* text) = 0;
    // Appends a component without a name: the step to the folder above.
    virtual void AppendUpDir(std::string* text, int32 index, int32 count) = 0;
    // Appends what ends the text.
    virtual void Finalize(std::string* text, int32 count) = 0;

protected:
    // Which SetTo... was called; neither after SetToRelativePath.
    bool mAbsolute = false;
    bool mUNC = false;
};

// The host's own form: "/a/b", "../x"; "/" and "." without components.
class PathTextFormatUNIX : public PathTextFormat {
public:
    void SetToAbsolutePath(std::string* text, int32 count) override;
    void SetToRelativePath(std::string* text, int32 count) override;
    void SetToUNCPath(std::string* text, const std::string& server, int32 count) override;
    void AppendElement(std::string* text, const std::string& name, int32 index) override;
    void AppendSeparator(std::string* text) override;
    void AppendAbbreviationMark(std::string* text) override;
    void AppendUpDir(std::string* text, int32 index, int32 count) override;
    void Finalize(std::string* text, int32 count) override;
};

#endif
