// One run's command, as the handlers of the commands get it.
#pragma once

#include "cli/parser.h"
#include "fsops/carried_along.h"
#include "resources/string_ids.h"

struct Invocation {
  const CommandTable& table;
  const CommandLine& line;
  std::u16string typedCommand;  // argv[1]
  std::u16string lowered;       // all words, joined by blanks, in lower case

  CarriedAlong Carried() const { return {.ntfsPermissions = !line.Has(u"-NTFS"), .shares = !line.Has(u"-Share")}; }
  bool Removes() const { return line.Has(u"d"); }
};

// The gate of every command that changes the system. True, and the console says so, when Rimehold would undo the
// change.
bool RefusedWhileFrozen(const Invocation& invocation);

// Says how a command is used that was not used so; 1, the exit code.
int SayUsage(StringId name, StringId usage);

// The commands on user profiles (profile_commands.cpp), registry keys (registry_commands.cpp), folders and files
// (redirect_commands.cpp). Each answers the exit code.
int RunAutoRedirectUP(const Invocation& invocation);
int RunRedirectUP(const Invocation& invocation);
int RunRedirectUPDefault(const Invocation& invocation);
int RunRedirectRegKeyLocation(const Invocation& invocation);
int RunRedirectRegKey(const Invocation& invocation);
int RunRedirectFolder(const Invocation& invocation);
int RunRedirectFile(const Invocation& invocation);

// Runs the invocation's command; the exit code.
int Dispatch(const Invocation& invocation);
