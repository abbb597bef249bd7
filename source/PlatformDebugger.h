// An attached debugger, and the way to end the process so that a crash reporter sees the place.
#ifndef KZCORE_PLATFORMDEBUGGER_H
#define KZCORE_PLATFORMDEBUGGER_H

namespace kz {

// Under a debugger: writes the Pascal string to stderr and breaks. Otherwise does nothing. Any thread.
void DebugStr(const unsigned char* text);

// Ends the process by a fault.
[[noreturn]] void StopProcess();

}  // namespace kz

#endif
