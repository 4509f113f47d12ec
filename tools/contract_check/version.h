// Which program this is. version.cpp is made by cmake/commit.cmake.
#pragma once

namespace check {

extern const char* const kCommit;

}  // namespace check
