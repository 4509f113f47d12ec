// How the verbs that take the inventory name what is in it.
#pragma once

#include <string>
#include <string_view>

#include "survey/inventory.h"

std::string_view WrittenKind(RowKind kind);
// For the standard error: what could not be asked.
std::string UntoldLines(const Inventory& inventory);
