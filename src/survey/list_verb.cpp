// The verb "list" as people, scripts and spreadsheets read it.
#include "survey/inventory_text.h"
#include "survey/json.h"
#include "survey/table.h"
#include "survey/verbs.h"
#include "text/utf8.h"

namespace {

struct KindName {
  const char16_t* shown;
  const char* written;
};
KindName NameOf(RowKind kind) {
  switch (kind) {
    case RowKind::Folder:
      return {u"folder", "folder"};
    case RowKind::FolderOnVolume:
      return {u"folder on volume", "folder-on-volume"};
    case RowKind::File:
      return {u"file", "file"};
    case RowKind::Profile:
      return {u"profile", "profile"};
    case RowKind::NewProfiles:
      return {u"new profiles", "new-profiles"};
    case RowKind::DefaultProfile:
      return {u"Default profile", "default-profile"};
    case RowKind::PublicProfile:
      return {u"Public profile", "public-profile"};
    case RowKind::RegistryLocation:
      return {u"registry location", "registry-location"};
    case RowKind::RegistryKey:
      break;
  }
  return {u"registry key", "registry-key"};
}

KindName NameOf(Soundness state) {
  if (state == Soundness::Whole) return {u"whole", "whole"};
  return state == Soundness::Broken ? KindName{u"broken", "broken"} : KindName{u"cannot be told", "cannot-be-told"};
}

std::u16string KindOf(const Row& row) {
  return std::u16string(NameOf(row.kind).shown) + (row.user.empty() ? u"" : u" (" + row.user + u")");
}

std::u16string OneLine(std::u16string text) {
  for (char16_t& unit : text)
    if (unit < 0x20 || unit == 0x7F) unit = u'?';
  return text;
}

std::u16string Table(const Inventory& inventory, bool withAdvice) {
  if (inventory.rows.empty()) return inventory.untold.empty() ? u"Nothing is redirected.\n" : u"";
  std::vector<std::vector<std::u16string>> cells{{u"KIND", u"STATE", u"SOURCE", u"TARGET"}};
  std::u16string below;
  for (const Row& row : inventory.rows) {
    cells.push_back({KindOf(row), NameOf(row.State()).shown, row.source.empty() ? u"-" : row.source,
                     row.target.empty() ? u"-" : row.target});
    if (row.IsWhole()) continue;
    below += u"\n" + OneLine(KindOf(row) + u", " + (row.source.empty() ? row.target : row.source)) + u":\n";
    for (const Finding& finding : row.findings) {
      below += u"  " + OneLine(finding.says) + u"\n";
      if (withAdvice) below += u"  What to do: " + OneLine(finding.todo) + u"\n";
    }
  }
  return TextOfTable(cells) + below;
}

Json Document(const Inventory& inventory) {
  Json document = NewDocument("list");
  document["rows"] = Json::array();
  for (const Row& row : inventory.rows) {
    Json findings = Json::array();
    for (const Finding& finding : row.findings)
      findings.push_back(
          {{"name", SayingOf(finding.what).name}, {"says", ToUtf8(finding.says)}, {"todo", ToUtf8(finding.todo)}});
    document["rows"].push_back({{"kind", NameOf(row.kind).written},
                                {"user", row.user.empty() ? Json(nullptr) : Json(ToUtf8(row.user))},
                                {"source", ToUtf8(row.source)},
                                {"target", ToUtf8(row.target)},
                                {"state", NameOf(row.State()).written},
                                {"findings", findings}});
  }
  document["untold"] = Json::array();
  for (const std::u16string& sentence : inventory.untold) document["untold"].push_back(ToUtf8(sentence));
  return document;
}

// RFC 4180: quotes around what holds a comma, a quote or a line break, and quotes in it doubled.
std::string Field(const std::u16string& text) {
  if (text.find_first_of(u",\"\r\n") == text.npos) return ToUtf8(text);
  std::u16string quoted = u"\"";
  for (const char16_t unit : text) quoted += unit == u'"' ? std::u16string(u"\"\"") : std::u16string(1, unit);
  return ToUtf8(quoted + u'"');
}

std::string CommaSeparated(const Inventory& inventory) {
  std::string text = "kind,user,source,target,state,findings,says,todo\r\n";
  for (const Row& row : inventory.rows) {
    std::u16string says, todo;
    std::string names;
    for (const Finding& finding : row.findings) {
      names += (names.empty() ? "" : " ") + std::string(SayingOf(finding.what).name);
      says += (says.empty() ? u"" : u" ") + finding.says;
      todo += (todo.empty() ? u"" : u"\r\n") + finding.todo;
    }
    text += std::string(NameOf(row.kind).written) + "," + Field(row.user) + "," + Field(row.source) + "," +
            Field(row.target) + "," + NameOf(row.State()).written + "," + names + "," + Field(says) + "," +
            Field(todo) + "\r\n";
  }
  return text;
}

}  // namespace

std::string_view WrittenKind(RowKind kind) { return NameOf(kind).written; }

std::string UntoldLines(const Inventory& inventory) {
  std::string lines;
  for (const std::u16string& sentence : inventory.untold) lines += "QBCReport: " + ToUtf8(sentence) + "\n";
  return lines;
}

Answer RunList(const Arguments& arguments) {
  const Inventory inventory = TakeInventory();
  const bool check = arguments.Has(u"check");
  Answer answer;
  answer.errors = UntoldLines(inventory);
  bool isWhole = true;
  for (const Row& row : inventory.rows) isWhole = isWhole && row.IsWhole();
  if (!inventory.untold.empty())
    answer.result = SurveyResult::CannotBeTold;
  else if (check && !isWhole)
    answer.result = SurveyResult::Amiss;
  if (arguments.Has(u"json"))
    answer.output = DocumentText(Document(inventory));
  else if (arguments.Has(u"csv"))
    answer.output = CommaSeparated(inventory);
  else
    answer.output = ToUtf8(Table(inventory, check));
  return answer;
}
