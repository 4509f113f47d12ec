#include "survey/plan.h"

#include <array>
#include <exception>
#include <utility>

#include "links/mounted_folder.h"
#include "survey/verbs.h"
#include "text/utf8.h"

namespace {

constexpr std::array<std::pair<PlanKind, std::u16string_view>, 4> kKinds{{{PlanKind::Folder, u"folder"},
                                                                          {PlanKind::File, u"file"},
                                                                          {PlanKind::Profile, u"profile"},
                                                                          {PlanKind::Auto, u"auto"}}};

// What is wrong with the arguments; empty when nothing is.
std::u16string TakeRequest(const Arguments& arguments, PlanRequest& request) {
  bool known = false;
  for (const auto& [kind, name] : kKinds)
    if (name == arguments.words.front()) {
      request.kind = kind;
      known = true;
    }
  if (!known) return u"There is no plan for \"" + arguments.words.front() + u"\".";
  if (arguments.words.size() != (request.kind == PlanKind::Auto ? 1u : 2u))
    return u"The number of arguments of \"plan " + arguments.words.front() + u"\" is not proper.";
  request.source = arguments.words.size() > 1 ? arguments.words[1] : std::u16string();
  request.target = arguments.Value(u"to");
  if (request.target.empty()) return u"The option \"--to\" is missing.";
  if (request.kind != PlanKind::Auto && request.source.empty()) return u"What is to be redirected is empty.";
  if (arguments.Has(u"volume") && !IsVolumePath(request.target.c_str()))
    return u"\"" + request.target + u"\" is no volume: \\\\?\\Volume{...}\\ names one.";
  return {};
}

SurveyResult ResultOf(Verdict verdict) {
  return verdict == Verdict::May       ? SurveyResult::Fine
         : verdict == Verdict::Refused ? SurveyResult::Amiss
                                       : SurveyResult::CannotBeTold;
}

// What would move is a part of the answer: when it cannot be told, neither can that it may.
Plan Make(const PlanRequest& request) {
  std::vector<std::u16string> sources;
  Plan plan = AskRules(request, sources);
  if (plan.verdict != Verdict::May) return plan;
  plan.move = WhatMoves(request, sources);
  plan.place = WhereTo(request, sources);
  if (!plan.move) plan.verdict = Verdict::CannotBeTold;
  return plan;
}

}  // namespace

std::u16string_view NameOf(PlanKind kind) { return kKinds[static_cast<std::size_t>(kind)].second; }

std::string_view NameOf(Verdict verdict) {
  return verdict == Verdict::May ? "may" : verdict == Verdict::Refused ? "refused" : "cannot be told";
}

Answer RunPlan(const Arguments& arguments) {
  PlanRequest request;
  if (const std::u16string error = TakeRequest(arguments, request); !error.empty())
    return {SurveyResult::WrongArguments, {}, ToUtf8(u"QBCReport: " + error + u"\n" + SurveyHelp(arguments.verb))};
  const Plan plan = Make(request);
  return {ResultOf(plan.verdict),
          arguments.Has(u"json") ? PlanAsJson(request, plan) : ToUtf8(PlanAsText(request, plan)),
          plan.verdict == Verdict::CannotBeTold
              ? "QBCReport: it cannot be told, since Windows did not answer all that had to be asked.\n"
              : ""};
}
