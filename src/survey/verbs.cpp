#include "survey/verbs.h"

namespace {

constexpr VerbOption kJson{u"json", u"", u"the answer as JSON (docs/report.md)"};
constexpr VerbOption kCsv{u"csv", u"", u"the answer as comma-separated values"};

}  // namespace

const std::vector<Verb>& Verbs() {
  static const std::vector<Verb> kVerbs{
      {u"plan",
       u"(folder SOURCE | file SOURCE | profile USER | auto) --to LOCATION",
       u"Whether the redirection would be refused and why, or else what would move.",
       {{u"to", u"LOCATION", u"where it is to go: a folder, or with --volume a volume"},
        {u"volume", u"", u"LOCATION names a volume"},
        kJson},
       1,
       2,
       RunPlan},
      {u"list",
       u"",
       u"Everything that is redirected on this machine, and whether it is whole.",
       {{u"check", u"", u"exit code 1 when something is not whole, and what to do about it"}, kJson, kCsv},
       0,
       0,
       RunList},
      {u"undo",
       u"",
       u"The commands that bring everything home, in their order. It runs none of them.",
       {kJson},
       0,
       0,
       RunUndo},
  };
  return kVerbs;
}
