// An attached debugger, standard error, and the way to end the process so that a crash reporter sees the place. Nothing
// here takes a lock or memory, so that a signal handler may report.
#ifndef KZCORE_PLATFORMDEBUGGER_H
#define KZCORE_PLATFORMDEBUGGER_H

#include <cstddef>

namespace kz {

// Under a debugger: writes the Pascal string to stderr and breaks. Under a tracer that is no debugger: writes it and
// goes on. Otherwise does nothing. Any thread; what a second thread reports while one breaks doesn't break.
void DebugStr(const unsigned char* text);

// Writes all bytes to stderr, as far as they can be written. A reader that is gone ends the process no more than one
// that is there. Any thread.
void WriteToStderr(const void* bytes, std::size_t size);

// Ends the process by a fault.
[[noreturn]] void StopProcess();

}  // namespace kz

#endif
