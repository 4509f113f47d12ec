// On Linux: the program as the module that a machine runs.
#pragma once

#include "resources/program_resources.h"
#include "win32/emulated/machine.h"

// The process's image, and the module with the program's resources. A machine that has them keeps them.
inline void UseProgramModule(emulated::Machine& machine) {
  if (!machine.module.resources.empty()) return;
  machine.process.image = u"QBC.exe";
  machine.module.path = u"C:\\Program Files\\Velmora\\Quillbay\\QBC.exe";
  for (const ProgramResource& resource : ProgramResources())
    machine.module.resources.push_back(
        {resource.type, resource.name, resource.language, {resource.data, resource.size}});
}
