// The workstation of redirections (program/redirections.h) under the name that stories of folders have for it.
#pragma once

#include "program/redirections.h"

namespace test {

using FolderStories = Redirections;

}  // namespace test
