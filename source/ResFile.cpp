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
