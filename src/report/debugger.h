// What only a debugger is told.
#pragma once

// The last error stays as it was: OutputDebugStringW itself may change it, where nobody listens for one, and what is
// said here is about a failure whose error somebody is yet to read.
void TellDebugger(const char16_t* text);
