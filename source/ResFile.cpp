// The bodies of operations that not every kind of file has. They give kzErrNoPermission, as a file that is open
// read-only does, because a caller can't do more about the one than about the other. Those whose harmless answer is
// true of any file without edits give that one: nothing to write, and no id to give.
#include "ResFile.h"

#include "KzErr.h"

Resource::~Resource() = default;

ResChain::~ResChain() = default;

KzErr ResFile::RUpdateFile()
{
    return kzErrNone;
}

KzErr ResFile::RAddPtr(const unsigned char* /*data*/, int32 /*size*/, _ResourceType /*type*/, int32 /*id*/,
                       const unsigned char* /*name*/)
{
    return kzErrNoPermission;
}

KzErr ResFile::RAdd(UHandle /*handle*/, _ResourceType /*type*/, int32 /*id*/, const unsigned char* /*name*/)
{
    return kzErrNoPermission;
}

KzErr ResFile::RReplacePtr(unsigned char* /*data*/, int32 /*size*/, _ResourceType /*type*/, int32 /*id*/)
{
    return kzErrNoPermission;
}

KzErr ResFile::RReplaceDSHandle(UHandle /*handle*/, _ResourceType /*type*/, int32 /*id*/)
{
    return kzErrNoPermission;
}

KzErr ResFile::RRemove(Resource* /*resource*/)
{
    return kzErrNoPermission;
}

int32 ResFile::RUniqueID(_ResourceType /*type*/)
{
    return 0;
}

KzErr ResFile::RGetModDate(const PathRef& /*path*/, uInt32* /*date*/, int32* /*readOnly*/)
{
    return kzErrNoPermission;
}

KzErr ResFile::RSetFileAttrs(int32 /*attrs*/)
{
    return kzErrNoPermission;
}

KzErr ResFile::RPreAllocFile(int32 /*extra*/)
{
    return kzErrNoPermission;
}

KzErr ResFile::RGetUHandleOwnership(UHandle* /*out*/)
{
    return kzErrNoPermission;
}

KzErr ResFile::RGetMemFileHandle(UHandle* /*out*/)
{
    return kzErrNoPermission;
}
