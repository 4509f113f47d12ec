#include "fsops/kept_link.h"

#include "report/lines.h"
#include "report/log.h"

bool KeptLink::Keep(const std::u16string& link, bool isDirectory) {
  link_ = SaveLink(link, {}, isDirectory);
  if (!link_.reparseData.empty() && itself_.Save(link)) return true;
  link_ = {};
  return false;
}

bool KeptLink::PutBack() const {
  if (!RestoreLink(link_)) return false;
  if (!itself_.Restore()) Log(line::kSecurityNotRestored, link_.source);
  return true;
}
