// A user's host in its smallest form: starts the library, starts a service by itself twice, makes a handle, writes
// through a buffer of a kind of its own, catches what the library throws, stops.

#include <kzcore/KZCore.h>

#include <cstdio>

namespace {

// The library tells this kind of buffer from its own, also where the host was compiled without descriptions of types.
class OwnBuf : public OutputBuf {
public:
    void* GetDataPointer(unsigned long size, KzErr& err) override
    {
        err = mWritten + size <= sizeof mData ? kzErrNone : kzErrCorrupt;
        void* const data = mData + mWritten;
        mWritten += err == kzErrNone ? size : 0;
        return err == kzErrNone ? data : nullptr;
    }
    unsigned long GetBytesWritten() const override { return mWritten; }

private:
    unsigned char mData[64] = {};
    unsigned long mWritten = 0;
};

unsigned long WriteWithOwnBuf()
{
    OwnBuf buffer;
    BinDataWriter writer(&buffer, BigEndianizer());
    writer.WriteU32(1);
    writer.WriteU16(2);
    return writer.GetError() == kzErrNone ? buffer.GetBytesWritten() : 0;
}

bool CatchesOurs()
{
#ifdef __cpp_exceptions
    try {
        PathRef("a name that nothing was stored under");
    } catch (const ZVExcept& exception) {
        return exception.err() == kzErrArgument;
    }
    return false;
#else
    return true;
#endif
}

}  // namespace

int main()
{
    KZDefaultApp host("Consumer");
    KZAppInterfaceSet(&host);
    const KzErr err = InitKZCoreBase();
    // The second start is of a new object: the first stop has destroyed the first one, in the library's own eyes too.
    KzErr serviceErr = ResourceManagerService()->Init();
    ResourceManagerService()->Uninit();
    InitKZCoreAppSupport();
    serviceErr |= ResourceManagerService()->Init();
    serviceErr |= ResourceManagerService()->Uninit();
    UHandle handle = DSNewHandle(12);
    const unsigned long size = DSGetHandleSize(handle);
    DSDisposeHandle(handle);
    const unsigned long written = WriteWithOwnBuf();
    const bool caught = CatchesOurs();
    UninitKZCoreAppSupport();
    UninitKZCoreBase();
    std::printf("start gave %d, the handle has %lu bytes, the buffer %lu\n", static_cast<int>(err), size, written);
    return err == 0 && serviceErr == 0 && size == 12 && written == 6 && caught ? 0 : 1;
}
