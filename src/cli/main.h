// The program's entry: one run is one command.
#pragma once

// Runs the command line and answers the process's exit code. argv[0] is the program, as in C.
int QuillbayMain(int argc, const char16_t* const* argv);
