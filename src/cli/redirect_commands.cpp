// RedirectFolder and RedirectFile.

#include <algorithm>
#include <initializer_list>

#include "cli/invocation.h"
#include "records/records.h"
#include "redirect/file.h"
#include "redirect/folder.h"
#include "report/outcome.h"

namespace {

int List(int isFile) { return ListJunctions(isFile) ? 0 : 1; }

bool RemovesAndHasAnyOf(const Invocation& invocation, std::initializer_list<std::u16string_view> switches) {
  return invocation.Removes() &&
         std::ranges::any_of(switches, [&](std::u16string_view name) { return invocation.line.Has(name); });
}

}  // namespace

int RunRedirectFolder(const Invocation& invocation) {
  if (invocation.line.arguments.empty()) return List(0);
  if (RefusedWhileFrozen(invocation)) return 0;
  if (RemovesAndHasAnyOf(invocation, {u"NTFS", u"Share", u"-NTFS", u"-Share"}))
    return SayFailure(StringId::RemovalStandsAlone);
  const auto handler = invocation.Removes() ? RemoveFolderRedirection : RedirectFolder;
  return handler(invocation.line.arguments.front().c_str(), invocation.line.arguments.back().c_str(),
                 invocation.Carried());
}

int RunRedirectFile(const Invocation& invocation) {
  if (invocation.line.arguments.empty()) return List(1);
  if (RefusedWhileFrozen(invocation)) return 0;
  if (RemovesAndHasAnyOf(invocation, {u"NTFS", u"-NTFS"})) return SayFailure(StringId::RemovalStandsAlone);
  const char16_t* const source = invocation.line.arguments.front().c_str();
  const char16_t* const target = invocation.line.arguments.back().c_str();
  return invocation.Removes() ? RemoveFileRedirection(source, target)
                              : RedirectFile(source, target, invocation.Carried().ntfsPermissions);
}
