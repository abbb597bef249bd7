// What the tests of paths share: the path layer by itself, and paths to and from their components.
#ifndef KZCORE_TESTS_PATHTESTING_H
#define KZCORE_TESTS_PATHTESTING_H

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "JsonLines.h"
#include "PathItemStorage.h"
#include "PathRef.h"
#include "ReportCatcher.h"
#include "TestHost.h"
#include "zvexcept.h"

namespace kztest {

// The path layer is up, alone; what leaks is a report of level 2 at the end.
class PathTest : public ::testing::Test {
protected:
    PathTest()
    {
        KZAppInterfaceSet(&mHost);
        EXPECT_EQ(PathRef::Init(), kzErrNone);
        PathRef::SetNotAPathString("<Not A Path>");
    }
    ~PathTest() override
    {
        EXPECT_TRUE(kz::PathTreeIsSane());
        EXPECT_STREQ(kz::PathBlocksFault(), nullptr);
        EXPECT_EQ(PathRef::UnInit(), kzErrNone);
        KZAppInterfaceSet(nullptr);
    }

    ReportCatcher mReports;
    TestHost mHost;
};

inline PathRef PathOf(const std::string& text)
{
    return PathRef(text, PathRef::StringUnix());
}

// A row's path, made in the tree itself, where names and bases that Append has rules about go unheeded.
inline PathRef PathOf(const Json& row)
{
    PathRef path(static_cast<PathRef::PathBase>(row["base"].Int()));
    for (const Json& name : row["names"].Items()) {
        path.AssignElement(path.Element()->CreateChild(name.Str()), PathRef::kTakeReference, false);
    }
    return path;
}

// The base's number, then the names of the components.
using Names = std::vector<std::string>;

inline Names NamesOf(const PathRef& path)
{
    int base = 0;
    while (!path.StartsWith(base)) {
        ++base;
    }
    Names names = {std::to_string(base)};
    for (int i = 0; i < path.ItemCount(); ++i) {
        names.push_back(path.ItemAt(i));
    }
    return names;
}

// The code and the message of the ZVExcept that `body` throws; 0 and none without one.
template <typename Body>
std::pair<KzErr, std::string> Thrown(Body&& body)
{
    try {
        body();
        return {};
    } catch (const ZVExcept& failure) {
        return {failure.err(), failure.diag()};
    }
}

}  // namespace kztest

#endif
