// The verb "plan": what a redirection would come to, found out by the command's own rules without changing anything.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class PlanKind { Folder, File, Profile, Auto };
std::u16string_view NameOf(PlanKind kind);

struct PlanRequest {
  PlanKind kind = PlanKind::Folder;
  std::u16string source;  // a folder, a file, a user; nothing for Auto
  std::u16string target;
};

enum class Verdict { May, Refused, CannotBeTold };
std::string_view NameOf(Verdict verdict);

// A rule that says no: its line, as the command's log or console has it, and what it is about, where the line names
// something.
struct PlanRefusal {
  std::u16string line, item;
};

struct PlannedLink {
  std::u16string path, kind, leadsTo;  // kind: "junction", "symbolic link", "mounted volume"; leadsTo may be empty
};
struct PlannedShare {
  std::u16string name, path;
};
struct PlannedRecord {
  std::u16string list, source, target;  // list: "folder" or "file"
};
struct PlannedFile {
  std::u16string path;
  std::uint64_t bytes = 0;
};

// What goes along. Of new profiles it is what is copied of Default and Public.
struct PlannedMove {
  std::vector<std::u16string> sources;
  std::uint64_t items = 0, folders = 0,
                bytes = 0;           // items: all, folders and links among them, but for the source itself
  std::vector<PlannedFile> largest;  // the ten largest files, the largest first
  std::vector<PlannedLink> links;
  std::vector<PlannedShare> shares;
  bool sharesAreTold = true;  // false: there may be others
  std::vector<PlannedRecord> records;
};

// The place. Nothing where it cannot be told.
struct PlannedPlace {
  std::optional<std::uint64_t> room;  // bytes
  std::optional<bool> sameDrive;      // source and target are on one volume
  std::optional<bool> keepsChanges;   // over a restart, while the computer is Frozen
  std::u16string rimehold;            // its status in words; empty where it is not there
};

struct Plan {
  Verdict verdict = Verdict::CannotBeTold;
  std::vector<PlanRefusal> refusals;
  std::vector<std::u16string> notes;     // what the command would tell besides
  std::vector<std::u16string> notTried;  // what cannot be known without changing something
  std::optional<PlannedMove> move;       // when it may
  PlannedPlace place;
};

// Asks the rules (plan_rules.cpp). `sources` gets the folders, or the file, whose contents would go.
Plan AskRules(const PlanRequest& request, std::vector<std::u16string>& sources);

// Nothing when it cannot be told whole (plan_moves.cpp).
std::optional<PlannedMove> WhatMoves(const PlanRequest& request, const std::vector<std::u16string>& sources);
PlannedPlace WhereTo(const PlanRequest& request, const std::vector<std::u16string>& sources);

// plan_text.cpp.
std::u16string PlanAsText(const PlanRequest& request, const Plan& plan);
std::string PlanAsJson(const PlanRequest& request, const Plan& plan);
