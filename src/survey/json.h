// JSON documents of the report program (docs/report.schema.json).
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "text/utf8.h"

using Json = nlohmann::ordered_json;  // in the order in which it is written

// The document of a verb, which says whose it is.
Json NewDocument(std::string_view verb);
// The document as UTF-8, two blanks deep, with a line break at its end.
std::string DocumentText(const Json& document);
