#include <algorithm>
#include <exception>

#include "links/mounted_folder.h"
#include "links/real_path.h"
#include "probes/privileges.h"
#include "probes/rimehold_status.h"
#include "probes/windows_version.h"
#include "profiles/automatic.h"
#include "profiles/shared_profiles.h"
#include "profiles/user_profile.h"
#include "redirect/file.h"
#include "redirect/folder.h"
#include "report/console.h"
#include "report/log.h"
#include "report/only_looks.h"
#include "survey/plan.h"
#include "text/ascii_case.h"

namespace {

// Without the line breaks around it.
std::u16string Trimmed(const std::u16string& text) {
  const std::size_t begin = text.find_first_not_of(u"\r\n ");
  return begin == text.npos ? std::u16string() : text.substr(begin, text.find_last_not_of(u"\r\n ") - begin + 1);
}

std::u16string CommandOf(PlanKind kind) {
  switch (kind) {
    case PlanKind::Folder:
      return u"/RedirectFolder";
    case PlanKind::File:
      return u"/RedirectFile";
    case PlanKind::Profile:
      return u"/RedirectUP";
    case PlanKind::Auto:
      return u"/AutoRedirectUP";
  }
  return {};
}

// The command line takes these words for mistyped switches, wherever they stand.
bool LooksMistyped(const PlanRequest& request) {
  const std::u16string words = LowerAscii(request.source + u" " + request.target);
  return IsVistaOrLater() && (words.find(LowerAscii(kDefaultProfile)) != words.npos ||
                              words.find(LowerAscii(kPublicProfile)) != words.npos);
}

// A line calls itself an error at its beginning, or behind words that say what was looked at.
bool IsError(const LogLines::Line& line) {
  return !line.aside && (line.text.find(u"#ERROR") != line.text.npos || line.text.starts_with(u"ERROR"));
}

class Rules {
 public:
  Rules(const PlanRequest& request, std::vector<std::u16string>& sources) : request_(request), sources_(sources) {}

  // As far as they could be asked; an exception leaves the verdict at that.
  void Ask(Plan& plan) try {
    AskGates(plan);
    const bool allowed = AskCommand(plan);
    TakeLines(plan, allowed);
    plan.verdict = !plan.refusals.empty() ? Verdict::Refused : allowed ? Verdict::May : Verdict::CannotBeTold;
    if (!log_.complete() || (!isTold_ && plan.verdict == Verdict::May)) plan.verdict = Verdict::CannotBeTold;
  } catch (const std::exception&) {
    plan.verdict = Verdict::CannotBeTold;
  }
  void TellWhatWasLeft(Plan& plan) const { plan.notTried = look_.left(); }

 private:
  static void Refuse(Plan& plan, const std::u16string& line) { plan.refusals.push_back({Trimmed(line), {}}); }

  // What keeps every command from beginning.
  void AskGates(Plan& plan) {
    if (!IsUserAdministrator())
      Refuse(plan, LoadResourceString(StringId::StartNeedsAdministrator));
    else if (!IsAdministrator())
      Refuse(plan, console_.Take());
    const std::optional<bool> frozen = TellWhetherFrozen();
    if (!frozen) isTold_ = false;
    if (request_.kind == PlanKind::Profile && LooksMistyped(request_)) Refuse(plan, u"Invalid parameters");
    if (frozen.value_or(false)) Refuse(plan, FormatString(StringId::MustBeThawed, CommandOf(request_.kind)));
    console_.Take();
    log_.Take();
  }

  bool AskCommand(Plan& plan) {
    const char16_t* const source = request_.source.c_str();
    const char16_t* const target = request_.target.c_str();
    switch (request_.kind) {
      case PlanKind::Folder:
        sources_ = {request_.source};
        return MayRedirectFolder(source, target);
      case PlanKind::File:
        sources_ = {request_.source};
        return MayRedirectFile(source, target);
      case PlanKind::Profile: {
        std::u16string folder;
        const bool may = MayRedirectUserProfile(request_.source, request_.target, folder);
        if (!folder.empty()) sources_ = {folder};
        return may;
      }
      case PlanKind::Auto:
        if (!IsVolumePath(target)) return MaySetAutoRedirection(request_.target, true, sources_);
        Refuse(plan, kNotOnVolume);
        return false;
    }
    return false;
  }

  // A refusal without a line that calls itself an error is told by what there is.
  void TakeLines(Plan& plan, bool allowed) {
    const std::vector<LogLines::Line> lines = log_.Take();
    const bool haveError = std::ranges::any_of(lines, IsError);
    for (const LogLines::Line& line : lines) {
      const bool refuses = !allowed && (IsError(line) || (!haveError && !line.aside));
      const bool known = std::ranges::find(plan.refusals, line.text, &PlanRefusal::line) != plan.refusals.end();
      if (refuses && !known) plan.refusals.push_back({line.text, line.item});
      if (!refuses) AddNote(plan, line.text);
    }
    AddNote(plan, Trimmed(console_.Take()));
  }

  static void AddNote(Plan& plan, const std::u16string& note) {
    const bool known = note.empty() || std::ranges::find(plan.notes, note) != plan.notes.end() ||
                       std::ranges::find(plan.refusals, note, &PlanRefusal::line) != plan.refusals.end();
    if (!known) plan.notes.push_back(note);
  }

  const PlanRequest& request_;
  std::vector<std::u16string>& sources_;
  bool isTold_ = true;
  OnlyLooks look_;
  LogLines log_;
  ConsoleCapture console_;
};

}  // namespace

Plan AskRules(const PlanRequest& request, std::vector<std::u16string>& sources) {
  Plan plan;
  Rules rules(request, sources);
  rules.Ask(plan);
  rules.TellWhatWasLeft(plan);
  plan.notTried.push_back(
      u"Whatever others hold open and the command sees by its privileges alone, to debug and to restore; and whether "
      u"it "
      u"gets through: a disk may fail, and what is free now may be taken then.");
  return plan;
}
