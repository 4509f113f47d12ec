// The fixed part of a program file's version resource.
#pragma once

#include "win32/types.h"

// False when the file has no version resource, or one whose fixed part is not of the known length and wholly there.
bool ReadFixedFileInfo(const char16_t* path, win32::VS_FIXEDFILEINFO& fixed);
