// What a value or a piece of code writes to a DebugStream.
#ifndef KZCORE_TESTS_STREAMTEXT_H
#define KZCORE_TESTS_STREAMTEXT_H

#include <string>
#include <vector>

#include "DebugStream.h"
#include "ReportCatcher.h"

namespace kztest {

// Runs `write` on a stream and returns the text that reaches the handler.
template <typename Write>
std::string StreamText(Write&& write)
{
    ReportCatcher catcher;
    DebugStream stream("StreamText", __LINE__, "", kDbgLog);
    write(stream);
    stream.Process();
    const std::vector<CaughtReport> reports = catcher.TakeAll();
    return reports.size() == 1 ? reports[0].text : "not one report";
}

// The text of one value.
template <typename T>
std::string ValueText(const T& value)
{
    return StreamText([&](DebugStream& stream) { ToDebugStream(stream, value); });
}

}  // namespace kztest

#endif
