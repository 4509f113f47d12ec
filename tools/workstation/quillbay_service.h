// What QuillbayService does on a workstation: while it runs, it serves its pipe and carries out what clients ask for.
#pragma once

#include "win32/emulated/machine.h"

namespace workstation {

// On a booted machine with the product: the service's pipe "\\.\pipe\QBDataPipe" is there whenever the service runs.
// One client at a time; the pipe is closed after each and opened anew.
void RunQuillbayService(emulated::Machine& machine);

// Carries out a record from the pipe. "UpdateImgPath|OLD|NEW" with a zero behind it, in the ANSI code page: the stored
// paths of account pictures at or below OLD\AccountPictures lead to NEW\AccountPictures from now on. Anything else is
// left alone.
void CarryOutRequest(emulated::Machine& machine, emulated::ByteView record);

}  // namespace workstation
