#include "redirect/folder_steps.h"

#include "fsops/security.h"
#include "links/junction.h"
#include "links/presence.h"
#include "links/real_path.h"
#include "probes/privileges.h"
#include "records/profile_keys.h"
#include "records/records.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"

namespace {

constexpr std::u16string_view kSeeManual = u"See \"After a power failure, folder form\" in what-is-refused.md.";

}  // namespace

bool MayBegin(const char16_t* source, const char16_t* target, const char16_t* pathMissing) {
  if (!IsAdministrator()) return false;
  if (source && target) return true;
  return LogFailure(u"%ls", pathMissing);
}

bool AreThere(const std::u16string& source, const std::u16string& target) {
  if (!PathExists(source)) return LogFailure(line::kSourceDoesNotExist, source);
  // What was there may have gone, and another item that came since may have its name as the short one. (A record that
  // names both ends by short names means the item.)
  const bool isAnother =
      EqualPaths(LastComponent(AsStored(source)), LastComponent(target)) && IsShortNameOfAnother(target);
  if (PathExists(target) && !isAnother) return true;
  return LogFailure(u"#ERROR: Target = %ls Path Does Not Exist.", target);
}

bool MayBeBroughtBack(const std::u16string& source, const std::u16string& folder) {
  if (HasAccess(ImpersonatedCaller().token(), FolderForm(folder), kFullControl)) return true;
  return LogFailure(
      u"#ERROR: %ls could not be brought back. Insufficient permissions. The minimum permissions requirement on %ls is "
      u"full control.",
      source, folder);
}

void TellIfRemovalWasCutOff(const std::u16string& source, const std::u16string& target) {
  if (!LookAt(source).IsReparsePoint() && IsProfileFolder(target)) {
    Log(u"#INFO: The folder %ls is the place of the User Profile in %ls. RedirectUPDefault brings it back.", source,
        target);
    return;
  }
  if (!LookAt(source).IsPlainDirectory()) return;
  Log(u"#INFO: The folder %ls is no junction, although its redirection is recorded: its removal was cut off, or "
      u"somebody has put a folder in the junction's place. Its files and folders are in it, in %ls, or partly in both; "
      u"nothing has been changed now. %ls",
      source, target, kSeeManual);
}

void TellIfRedirectionWasCutOff(const std::u16string& source, const std::u16string& target) {
  std::u16string text;
  const Look look = LookAt(source);
  if (!look.IsDirectory() || !look.IsReparsePoint() || IsSymbolicLink(source.c_str()) ||
      !GetJunctionTarget(source.c_str(), text) || !EqualPaths(text, target))
    return;
  for (const JunctionRecord& record : SaveJunctionRecords(0))
    if (EqualPaths(record.source, source)) return;
  Log(u"#INFO: The folder %ls is a junction to %ls, but no redirection is recorded: it was cut off at its very end. "
      u"All files and folders are in the second folder; nothing has been changed now. To go on, put an empty folder in "
      u"the junction's place (rmdir, mkdir) and run the redirection again. %ls",
      source, target, kSeeManual);
}
