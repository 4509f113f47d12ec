#include <algorithm>

#include "survey/json.h"
#include "survey/plan.h"
#include "survey/table.h"

namespace {

std::u16string_view Heading(Verdict verdict) {
  switch (verdict) {
    case Verdict::May:
      return u"It may.";
    case Verdict::Refused:
      return u"It would be refused.";
    case Verdict::CannotBeTold:
      break;
  }
  return u"It cannot be told.";
}

void AddList(std::u16string& text, std::u16string_view title, const std::vector<std::u16string>& lines) {
  if (lines.empty()) return;
  text += u"\n" + std::u16string(title) + u"\n";
  for (std::u16string line : lines) {
    std::ranges::replace(line, u'\n', u' ');  // some lines of the log are several
    text += TextOfTable({{u" ", line}});
  }
}

std::u16string YesOrNo(const std::optional<bool>& answer) {
  return !answer ? u"cannot be told" : *answer ? u"yes" : u"no";
}

// Each with a blank in front: the column that sets it in.
using Rows = std::vector<std::vector<std::u16string>>;

void AddTable(std::u16string& text, std::u16string_view title, const Rows& rows) {
  if (rows.empty()) return;
  text += u"\n" + std::u16string(title) + u"\n";
  Rows inset = rows;
  for (auto& row : inset) row.insert(row.begin(), u" ");
  text += TextOfTable(inset);
}

void AddMove(std::u16string& text, const PlanRequest& request, const PlannedMove& move, const PlannedPlace& place) {
  Rows facts;
  for (const std::u16string& source : move.sources) facts.push_back({u"from", source});
  facts.push_back({u"items", WithThousands(move.items)});
  facts.push_back({u"folders among them", WithThousands(move.folders)});
  facts.push_back({u"bytes", WithThousands(move.bytes)});
  facts.push_back({u"room at the target", place.room ? WithThousands(*place.room) + u" bytes" : u"cannot be told"});
  facts.push_back({u"source and target on one drive", YesOrNo(place.sameDrive)});
  facts.push_back({u"target keeps its changes", YesOrNo(place.keepsChanges)});
  facts.push_back({u"Rimehold", place.rimehold.empty() ? u"not there, or does not tell" : place.rimehold});
  if (!move.sharesAreTold) facts.push_back({u"shares that follow", u"cannot be told"});
  AddTable(text, request.kind == PlanKind::Auto ? u"What would be copied:" : u"What would move:", facts);
  Rows rows;
  for (const PlannedFile& file : move.largest) rows.push_back({file.path, WithThousands(file.bytes)});
  AddTable(text, u"The largest files, in bytes:", rows);
  rows.clear();
  for (const PlannedLink& link : move.links) rows.push_back({link.path, link.kind, link.leadsTo});
  AddTable(text, u"Links and mounts in it:", rows);
  rows.clear();
  for (const PlannedShare& share : move.shares) rows.push_back({share.name, share.path});
  AddTable(text, u"Shares that follow:", rows);
  rows.clear();
  for (const PlannedRecord& record : move.records) rows.push_back({record.list, record.source, record.target});
  AddTable(text, u"Records of redirections that follow:", rows);
}

Json OrNull(const std::u16string& text) { return text.empty() ? Json(nullptr) : Json(ToUtf8(text)); }
template <typename T>
Json OrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json TextsOf(const std::vector<std::u16string>& texts) {
  Json list = Json::array();
  for (const std::u16string& text : texts) list.push_back(ToUtf8(text));
  return list;
}

Json MoveAsJson(const PlannedMove& move, const PlannedPlace& place) {
  Json largest = Json::array(), links = Json::array(), shares = Json::array(), records = Json::array();
  for (const PlannedFile& file : move.largest) largest.push_back({{"path", ToUtf8(file.path)}, {"bytes", file.bytes}});
  for (const PlannedLink& link : move.links)
    links.push_back({{"path", ToUtf8(link.path)}, {"kind", ToUtf8(link.kind)}, {"leadsTo", OrNull(link.leadsTo)}});
  for (const PlannedShare& share : move.shares)
    shares.push_back({{"name", ToUtf8(share.name)}, {"path", ToUtf8(share.path)}});
  for (const PlannedRecord& record : move.records)
    records.push_back(
        {{"list", ToUtf8(record.list)}, {"source", ToUtf8(record.source)}, {"target", ToUtf8(record.target)}});
  return {{"from", TextsOf(move.sources)},
          {"items", move.items},
          {"folders", move.folders},
          {"bytes", move.bytes},
          {"largest", largest},
          {"links", links},
          {"shares", move.sharesAreTold ? shares : Json(nullptr)},
          {"records", records},
          {"room", OrNull(place.room)},
          {"sameDrive", OrNull(place.sameDrive)},
          {"keepsChanges", OrNull(place.keepsChanges)},
          {"rimehold", OrNull(place.rimehold)}};
}

}  // namespace

std::u16string PlanAsText(const PlanRequest& request, const Plan& plan) {
  std::u16string text = TextOfTable({{u"Plan:", std::u16string(NameOf(request.kind)) + u" " + request.source},
                                     {u"To:", request.target},
                                     {u"Verdict:", std::u16string(Heading(plan.verdict))}});
  std::vector<std::u16string> refusals;
  for (const PlanRefusal& refusal : plan.refusals) refusals.push_back(refusal.line);
  AddList(text, u"Refused because of:", refusals);
  if (plan.move) AddMove(text, request, *plan.move, plan.place);
  AddList(text, u"Told besides:", plan.notes);
  AddList(text, u"Not tried, since it would change something:", plan.notTried);
  return text;
}

std::string PlanAsJson(const PlanRequest& request, const Plan& plan) {
  Json document = NewDocument("plan");
  document["kind"] = ToUtf8(NameOf(request.kind));
  document["source"] = OrNull(request.source);
  document["target"] = ToUtf8(request.target);
  document["verdict"] = NameOf(plan.verdict);
  Json refusals = Json::array();
  for (const PlanRefusal& refusal : plan.refusals)
    refusals.push_back({{"line", ToUtf8(refusal.line)}, {"item", OrNull(refusal.item)}});
  document["refusals"] = refusals;
  document["notes"] = TextsOf(plan.notes);
  document["notTried"] = TextsOf(plan.notTried);
  document["move"] = plan.move ? MoveAsJson(*plan.move, plan.place) : Json(nullptr);
  return DocumentText(document);
}
