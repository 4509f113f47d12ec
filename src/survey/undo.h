// The commands of QBC that bring home what is redirected, in the order in which each finds what it needs.
#pragma once

#include <string>
#include <vector>

#include "survey/inventory.h"

struct UndoStep {
  RowKind kind = RowKind::Folder;
  std::u16string source, target, user;       // as the inventory has them
  std::vector<std::u16string> words = {};    // the command's, "QBC" left out; empty when there is none to run
  std::vector<std::u16string> remarks = {};  // sentences: why there is none, or what to know before
  bool isWithheld = false;                   // something must be mended first
};

// One step for each row. Redirections that lie in another come before it; else profiles of users come first, then
// Default, Public and where new profiles are made, registry keys, their location, and folders and files, the latest
// first.
std::vector<UndoStep> PlanUndo(const Inventory& inventory);

// The command as it stands in a script of cmd.exe; empty without words. A word that needs it stands in double quotes,
// a "%" is doubled.
std::u16string CommandLineOf(const UndoStep& step);
// The remark as a line of such a script.
std::u16string RemarkLine(const std::u16string& remark);
