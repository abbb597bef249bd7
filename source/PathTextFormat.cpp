// The host's form needs no state to be written: the driver puts the separators between the elements, and the root's "/"
// is all that tells an absolute path. A network path has no form here; the driver prints another text for it.
#include "PathTextFormat.h"

void PathTextFormatUNIX::SetToAbsolutePath(std::string* text, int32 /*count*/)
{
    mAbsolute = true;
    *text = "/";
}

void PathTextFormatUNIX::SetToRelativePath(std::string* text, int32 count)
{
    *text = count == 0 ? "." : "";
}

void PathTextFormatUNIX::SetToUNCPath(std::string* /*text*/, const std::string& /*server*/, int32 /*count*/)
{
    mUNC = true;
}

void PathTextFormatUNIX::AppendElement(std::string* text, const std::string& name, int32 /*index*/)
{
    *text += name;
}

void PathTextFormatUNIX::AppendSeparator(std::string* text)
{
    *text += '/';
}

void PathTextFormatUNIX::AppendAbbreviationMark(std::string* text)
{
    *text += "...";
}

void PathTextFormatUNIX::AppendUpDir(std::string* text, int32 /*index*/, int32 /*count*/)
{
    *text += "..";
}

void PathTextFormatUNIX::Finalize(std::string* /*text*/, int32 /*count*/) {}
