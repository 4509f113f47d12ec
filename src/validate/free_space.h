// The room that a source takes and the room that there is for it.
#pragma once

#include <cstdint>

#include "fsops/file_list.h"

// 1 when the volume of the target (of the folder above it, when it does not exist) has more free bytes than the source
// needs. 0 is logged. The last form takes the source's listing from the caller.
int HasEnoughFreeSpace(const char16_t* source, const char16_t* target);
int HasEnoughFreeSpace(const char16_t* source, const char16_t* target, LazyListing& sourceTree);

// The bytes that the source takes: of the files below it, or of its volume when it is one. False (logged) when they
// cannot be told.
bool MeasureSource(const char16_t* source, LazyListing& sourceTree, std::uint64_t& bytes);
