// Runs tests of this binary in a process of their own, for what is settled when the library is loaded.
#ifndef KZCORE_TESTS_CHILDTEST_H
#define KZCORE_TESTS_CHILDTEST_H

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace kztest {

using Environment = std::vector<std::pair<const char*, const char*>>;  // null: without the variable

// The exit code of the tests that the filter names, disabled ones too: 0 when they pass; -1 when they die.
inline int RunChildTests(const std::string& filter, const Environment& environment)
{
    const std::string argument = "--gtest_filter=" + filter;
    const pid_t child = fork();
    if (child == 0) {
        for (const auto& [name, value] : environment) {
            value == nullptr ? unsetenv(name) : setenv(name, value, 1);
        }
        execl("/proc/self/exe", "child", argument.c_str(), "--gtest_also_run_disabled_tests", "--gtest_brief=1",
              nullptr);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace kztest

#endif
