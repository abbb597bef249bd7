// The writers of a path's text. One driver (PathText.cpp) steps a writer through a path's components. A writer knows
// no path, only what it is told.
#ifndef KZCORE_PATHTEXTFORMAT_H
#define KZCORE_PATHTEXTFORMAT_H

#include <string>

#include "KZTypes.h"

// Each call appends to the text, or sets it where a path begins; `count` is the path's number of components.
class PathTextFormat {
public:
    PathTextFormat() = default;
    PathTextFormat(const PathTextFormat&) = delete;
    PathTextFormat& operator=(const PathTextFormat&) = delete;
    virtual ~PathTextFormat() = default;

    virtual void SetToAbsolutePath(std::string* text, int32 count) = 0;
    virtual void SetToRelativePath(std::string* text, int32 count) = 0;
    virtual void SetToUNCPath(std::string* text, const std::string& server, int32 count) = 0;
    virtual void AppendElement(std::string* text, const std::string& name, int32 index) = 0;
    virtual void AppendSeparator(std::string* text) = 0;
    virtual void AppendAbbreviationMark(std::string* text) = 0;
    virtual void AppendUpDir(std::string* text, int32 index, int32 count) = 0;
    virtual void Finalize(std::string* text, int32 count) = 0;

protected:
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
