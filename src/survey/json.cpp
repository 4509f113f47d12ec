#include "survey/json.h"

#include "probes/version.h"

Json NewDocument(std::string_view verb) {
  ProductVersion version;
  const bool known = GetProductVersion(version);
  return {{"verb", verb}, {"version", known ? Json(ToUtf8(version.dotted)) : Json(nullptr)}};
}

std::string DocumentText(const Json& document) { return document.dump(2) + "\n"; }
