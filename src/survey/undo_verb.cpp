// The verb "undo" as a script of cmd.exe, and as JSON.
#include "survey/undo.h"

#include <algorithm>

#include "survey/inventory_text.h"
#include "survey/json.h"
#include "survey/verbs.h"
#include "text/utf8.h"

namespace {

std::string Script(const std::vector<UndoStep>& steps, const Inventory& inventory) {
  std::u16string text;
  for (const std::u16string& sentence : inventory.untold) text += RemarkLine(sentence) + u"\n";
  if (steps.empty() && inventory.untold.empty()) text += RemarkLine(u"Nothing is redirected.") + u"\n";
  for (const UndoStep& step : steps) {
    for (const std::u16string& remark : step.remarks) text += RemarkLine(remark) + u"\n";
    if (const std::u16string command = CommandLineOf(step); !command.empty()) text += command + u"\n";
  }
  // The script is UTF-8, and cmd.exe reads it by the code page of its console.
  const bool isAscii = std::ranges::all_of(text, [](char16_t unit) { return unit < 0x80; });
  return ToUtf8((isAscii ? u"" : u"chcp 65001 >nul\n") + text);
}

Json Document(const std::vector<UndoStep>& steps, const Inventory& inventory) {
  Json document = NewDocument("undo");
  document["steps"] = Json::array();
  for (const UndoStep& step : steps) {
    Json words = Json::array(), remarks = Json::array();
    for (const std::u16string& word : step.words) words.push_back(ToUtf8(word));
    for (const std::u16string& remark : step.remarks) remarks.push_back(ToUtf8(remark));
    document["steps"].push_back({{"kind", WrittenKind(step.kind)},
                                 {"user", step.user.empty() ? Json(nullptr) : Json(ToUtf8(step.user))},
                                 {"source", ToUtf8(step.source)},
                                 {"target", ToUtf8(step.target)},
                                 {"withheld", step.isWithheld},
                                 {"command", step.words.empty() ? Json(nullptr) : Json(ToUtf8(CommandLineOf(step)))},
                                 {"words", words},
                                 {"remarks", remarks}});
  }
  document["untold"] = Json::array();
  for (const std::u16string& sentence : inventory.untold) document["untold"].push_back(ToUtf8(sentence));
  return document;
}

}  // namespace

Answer RunUndo(const Arguments& arguments) {
  const Inventory inventory = TakeInventory();
  const std::vector<UndoStep> steps = PlanUndo(inventory);
  Answer answer;
  answer.errors = UntoldLines(inventory);
  if (!inventory.untold.empty())
    answer.result = SurveyResult::CannotBeTold;
  else if (std::ranges::any_of(steps, &UndoStep::isWithheld))
    answer.result = SurveyResult::Amiss;
  answer.output = arguments.Has(u"json") ? DocumentText(Document(steps, inventory)) : Script(steps, inventory);
  return answer;
}
