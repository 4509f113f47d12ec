// The rules for a source and a target together.
#pragma once

#include "fsops/file_list.h"
#include "validate/free_space.h"

// 1 when source and target may stand in a redirection to each other. skipTarget leaves out the rules that look at the
// target itself. The last form takes the source's listing from the caller.
int CheckPathRelations(const char16_t* source, const char16_t* target, int skipTarget, int sourceIsRedirectedProfile,
                       int excludeMountedVolume, int quietSystemFolder);
int CheckPathRelations(const char16_t* source, const char16_t* target, int skipTarget, int sourceIsRedirectedProfile,
                       int excludeMountedVolume, int quietSystemFolder, LazyListing& sourceTree);
