// The room that a source takes and the room that there is for it.
#pragma once

#include <cstdint>
#include <optional>

#include "fsops/file_list.h"

// 1 when the volume of the target (of the folder above it, when it does not exist) has more free bytes than the source
// needs. 0 is logged. standIn: the volume of that folder is asked instead.
int HasEnoughFreeSpace(const FolderTree& source, const char16_t* target, const char16_t* standIn = nullptr);

// The bytes that the caller may still fill where the folder is. Nothing when Windows does not tell; the last error says
// why.
std::optional<std::uint64_t> AvailableBytes(const std::u16string& folder);

// The bytes that the source takes: of the files below it, or of its volume when it is one. Nothing (logged) when they
// cannot be told.
std::optional<std::uint64_t> MeasureSource(const FolderTree& source);
