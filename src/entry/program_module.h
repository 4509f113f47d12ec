// On Linux: the program as the module that a machine runs.
#pragma once

#include <string>

#include "resources/program_resources.h"
#include "win32/emulated/machine.h"

// The process's image, and the module with the program's resources. A machine that has them keeps them.
inline void UseProgramModule(emulated::Machine& machine, const std::u16string& name = u"QBC.exe") {
  if (!machine.module.resources.empty()) return;
  machine.process.image = name;
  machine.module.path = u"C:\\Program Files\\Velmora\\Quillbay\\" + name;
  for (const ProgramResource& resource : ProgramResources())
    machine.module.resources.push_back(
        {resource.type, resource.name, resource.language, {resource.data, resource.size}});
}
