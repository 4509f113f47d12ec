#include "records/folder_followers.h"

#include <algorithm>
#include <optional>

#include "links/junction.h"
#include "links/link_data.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/win32.h"

namespace {

// A junction that leads nowhere.
bool IsLost(const std::u16string& junction) {
  return LookAt(junction).IsReparsePoint() && !OpenForAttributes(junction, LastLink::Followed) &&
         MeansGone(win32::GetLastError());
}

}  // namespace

// The same path when the contents are in the new folder.
std::u16string FolderFollowers::There(const std::u16string& path) const {
  const std::optional<std::u16string> rest = BehindFolder(path, folder_);
  return rest ? newFolder_ + *rest : path;
}

bool FolderFollowers::Note() {
  std::vector<JunctionRecord> folders, files;
  if (!ReadJunctionRecords(0, folders) || !ReadJunctionRecords(1, files))
    return LogFailure(u"#ERROR: Unable to read the redirected folders and files in registry.");
  if (!std::ranges::all_of(files, [this](const JunctionRecord& record) { return NoteFile(record); })) return false;
  for (const JunctionRecord& record : folders) NoteJunction(record);
  return true;
}

// A link that was made anew, when a folder around it moved, has the path by which the file was reached then.
bool FolderFollowers::NoteFile(const JunctionRecord& record) {
  if (IsGone(record.source)) return true;
  for (const std::u16string& text : {record.target, SymbolicLinkText(record.source)})
    if (!text.empty() && BehindFolder(text, folder_))
      return LogFailure(
          u"#ERROR: The file %ls is redirected into the folder %ls, to %ls. Remove this redirection first.",
          record.source, folder_, text);
  if (const std::u16string source = There(record.source); source != record.source)
    files_.push_back({record.subkey, source, record.target});
  return true;
}

// The redirection of the folder itself ends. A junction that is not read now is led by its record.
void FolderFollowers::NoteJunction(const JunctionRecord& record) {
  const Look look = LookAt(record.source);
  if (EqualPaths(record.source, newFolder_) || look.IsGone() || (look.IsThere() && !look.IsReparsePoint())) return;
  const LinkText text = TextOfLink(ReadLinkData(record.source));
  const bool namesFolder = IsSameOrBelow(record.target, folder_);
  if (text.symbolic || (text.path.empty() && !namesFolder)) return;
  const std::u16string newText =
      text.path.empty() ? ReplaceFolder(record.target, folder_, newFolder_) : There(text.path);
  if (newText != text.path) junctions_.push_back({There(record.source), text.path, newText});
}

bool FolderFollowers::Lead() const {
  bool all = RestoreJunctionRecords(files_);
  if (!all) Log(line::kRecordsNotUpdated);
  for (const Junction& junction : junctions_) {
    if (Lead(junction)) continue;
    Log(line::kJunctionNotCreated, junction.path, junction.newText);
    all = false;
  }
  return LeadLost() && all;
}

// Whom a question that failed kept back, the records know.
bool FolderFollowers::LeadLost() const {
  bool all = true;
  for (const JunctionRecord& record : SaveJunctionRecords(0)) {
    if (!IsSameOrBelow(record.target, newFolder_) || !IsLost(record.source) || IsGone(record.target)) continue;
    if (ChangeJunctionTarget(record.source.c_str(), record.target.c_str())) continue;
    Log(line::kJunctionNotCreated, record.source, record.target);
    all = false;
  }
  return all;
}

// One that moved along may have been led there already.
bool FolderFollowers::Lead(const Junction& junction) {
  const Look look = LookAt(junction.path);
  if (!look.IsReparsePoint()) return look.IsGone() || look.IsThere();
  const std::u16string text = TextOfLink(ReadLinkData(junction.path)).path;
  if (!text.empty() && !EqualPaths(text, junction.oldText)) return true;
  return ChangeJunctionTarget(junction.path.c_str(), junction.newText.c_str()) != 0;
}
