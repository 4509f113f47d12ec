#include "survey/inventory.h"

#include <algorithm>

#include "configuration/service_config.h"
#include "report/service_path.h"
#include "text/format.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

std::u16string Filled(std::u16string_view text, const Row& row, const std::u16string& other) {
  std::u16string filled;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != u'{' || at + 2 >= text.size() || text[at + 2] != u'}') {
      filled += text[at];
      continue;
    }
    switch (text[at + 1]) {
      case u'S':
        filled += row.source;
        break;
      case u'T':
        filled += row.target;
        break;
      case u'L':
        filled += LastComponent(row.source);
        break;
      case u'N':
        filled += FormatText(u"%u", row.number);
        break;
      case u'U':
        filled += row.user;
        break;
      default:
        filled += other;
    }
    at += 2;
  }
  return filled;
}

bool IsLink(const Row& row) {
  return row.kind == RowKind::Folder || row.kind == RowKind::FolderOnVolume || row.kind == RowKind::File;
}
bool IsBelow(const std::u16string& path, const std::u16string& folder) {
  return IsSameOrBelow(path, folder) && !EqualPaths(path, folder);
}

// Where the one that it lies in is not whole, nothing true can be said of the inner one.
void FindBrokenAbove(Inventory& inventory) {
  std::vector<std::pair<Row*, std::u16string>> inner;
  for (Row& row : inventory.rows)
    for (const Row& above : inventory.rows) {
      const bool inside = IsBelow(row.source, above.source) || IsBelow(row.target, above.source) ||
                          IsBelow(row.source, above.target) || IsBelow(row.target, above.target);
      if (row.IsWhole() || !IsLink(above) || above.State() != Soundness::Broken || !inside) continue;
      inner.emplace_back(&row, above.source);
      break;
    }
  for (const auto& [row, above] : inner) {
    row->findings.clear();
    row->Find(Finds::InsideBroken, above);
  }
}

// False where the service manager does not say that there is none.
bool IsServiceMissing() {
  const win32::UniqueService manager{win32::OpenSCManagerW(nullptr, nullptr, win32::GENERIC_READ)};
  if (!manager) return false;
  const win32::UniqueService service{win32::OpenServiceW(manager.get(), kQuillbayService, win32::SERVICE_QUERY_CONFIG)};
  return !service && win32::GetLastError() == win32::ERROR_SERVICE_DOES_NOT_EXIST;
}

}  // namespace

Soundness Row::State() const {
  Soundness worst = Soundness::Whole;
  for (const Finding& finding : findings) worst = std::max(worst, SayingOf(finding.what).weight);
  return worst;
}

bool Row::Has(Finds what) const { return std::ranges::find(findings, what, &Finding::what) != findings.end(); }

void Row::Find(Finds what, const std::u16string& other) {
  const Saying& saying = SayingOf(what);
  findings.push_back({what, Filled(saying.says, *this, other), Filled(saying.todo, *this, other)});
}

Inventory TakeInventory() {
  Inventory inventory;
  CQBConfig config;
  const bool hasService = !config.path().empty();
  const ConfigReading read = hasService ? config.Read() : ConfigReading::NotTold;
  const bool isRead = read == ConfigReading::Done,
             isTold = read != ConfigReading::NotTold || (!hasService && IsServiceMissing());
  ProfileFolders profiles;
  AddProfiles(inventory, isRead ? &config : nullptr, isTold, profiles);
  AddFoldersAndFiles(inventory, profiles);
  if (isRead) AddRegistry(inventory, config);
  if (read == ConfigReading::Damaged) {
    Row row{.kind = RowKind::RegistryLocation, .source = config.path(), .target = {}};
    row.Find(Finds::ConfigurationDamaged, config.path());
    inventory.rows.push_back(std::move(row));
  }
  if (!isTold)
    inventory.untold.push_back(u"The configuration of the service cannot be read: " +
                               (hasService ? config.path() : u"its folder is not told."));
  FindBrokenAbove(inventory);
  std::ranges::stable_sort(inventory.rows, {}, &Row::kind);
  return inventory;
}
