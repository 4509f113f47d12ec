#include "survey/undo.h"

#include <algorithm>

#include "links/real_path.h"
#include "regredirect/registry_keys.h"
#include "text/ascii_case.h"
#include "text/path_text.h"

namespace {

bool IsLink(const Row& row) {
  return row.kind == RowKind::Folder || row.kind == RowKind::FolderOnVolume || row.kind == RowKind::File;
}
bool IsProfile(const Row& row) { return row.kind == RowKind::Profile; }
bool IsShared(const Row& row) { return row.kind == RowKind::DefaultProfile || row.kind == RowKind::PublicProfile; }
bool IsProfileListKey(const Row& row) {
  return row.kind == RowKind::RegistryKey && EqualIgnoringAsciiCase(row.source, kProfileListKey);
}

// The command that takes the redirection away is the cure, or is not disturbed.
bool IsNoObstacle(Finds what) {
  return what == Finds::KeyMissing || what == Finds::LocationMissing || what == Finds::RemovalCutOff ||
         what == Finds::NewProfilesElsewhere || what == Finds::ProfileListNotKept;
}

// A row with its places as they are written and as they really are.
struct Node {
  Row row;
  std::u16string realSource, realTarget;
  bool isDone = false, isWithheld = false;

  explicit Node(const Row& of) : row(of) {
    const bool hasPlaces = IsLink(row) || IsProfile(row) || IsShared(row);
    realSource = hasPlaces && IsLink(row) ? RealPlace(row.source) : row.source;
    realTarget = hasPlaces ? RealVolumePath(row.target) : row.target;
  }

  int Rank() const {
    switch (row.kind) {
      case RowKind::Profile:
        return 1;
      case RowKind::DefaultProfile:
      case RowKind::PublicProfile:
        return 2;
      case RowKind::NewProfiles:
        return 3;
      case RowKind::RegistryKey:
        return 4;
      case RowKind::RegistryLocation:
        return 5;
      default:
        return 6;
    }
  }
};

bool IsBelow(const std::u16string& path, const std::u16string& folder) {
  return IsSameOrBelow(path, folder) && !EqualPaths(WithoutTrailingBackslash(path), WithoutTrailingBackslash(folder));
}
bool IsBelow(const std::u16string& path, const std::u16string& real, const std::u16string& folder,
             const std::u16string& realFolder) {
  return IsBelow(path, folder) || IsBelow(real, realFolder);
}

// Does anything of `a` lie in a place of `b`?
bool LiesIn(const Node& a, const Node& b) {
  if (IsProfile(a.row) && a.row.source != a.row.target && IsLink(b.row))
    return IsBelow(a.row.target, a.realTarget, b.row.source, b.realSource) ||
           IsBelow(a.row.target, a.realTarget, b.row.target, b.realTarget);
  if (!IsLink(a.row)) return false;
  const bool inTarget = IsBelow(a.row.source, a.realSource, b.row.target, b.realTarget) ||
                        IsBelow(a.row.target, a.realTarget, b.row.target, b.realTarget);
  if (IsProfile(b.row) || IsShared(b.row))
    return inTarget || IsBelow(a.row.source, a.realSource, b.row.source, b.realSource);
  if (!IsLink(b.row)) return false;
  return inTarget || IsBelow(a.row.source, a.realSource, b.row.source, b.realSource) ||
         IsBelow(a.row.target, a.realTarget, b.row.source, b.realSource);
}

// What was redirected on from where it had come to, goes back there first.
bool GoesOnFrom(const Node& a, const Node& b) {
  return IsLink(a.row) && IsLink(b.row) &&
         (EqualPaths(a.row.source, b.row.target) ||
          (EqualPaths(a.row.target, b.row.target) && a.row.number > b.row.number));
}

// Must `a` be home before `b`?
bool ComesBefore(const Node& a, const Node& b) {
  if (LiesIn(a, b) || GoesOnFrom(a, b)) return true;
  const bool isAutomatic = a.row.kind == RowKind::NewProfiles;
  if (IsShared(a.row)) return b.row.kind == RowKind::NewProfiles;
  if (isAutomatic) return b.row.kind == RowKind::RegistryLocation || IsProfileListKey(b.row);
  return a.row.kind == RowKind::RegistryKey && b.row.kind == RowKind::RegistryLocation;
}

// A quote ends the word, and a control the line.
bool CanBeTyped(const std::u16string& word) {
  return std::ranges::none_of(word, [](char16_t unit) { return unit < 0x20 || unit == u'"'; });
}

std::vector<std::u16string> WordsOf(const Row& row) {
  switch (row.kind) {
    case RowKind::Folder:
      return {u"/RedirectFolder", row.source, u"/loc:" + row.target, u"/d"};
    case RowKind::FolderOnVolume:
      return {u"/RedirectFolder", row.source, u"/vol:" + row.target, u"/d"};
    case RowKind::File:
      return {u"/RedirectFile", row.source, u"/loc:" + row.target, u"/d"};
    case RowKind::Profile:
      return {u"/RedirectUPDefault", row.user};
    case RowKind::DefaultProfile:
      return {u"/RedirectUPDefault", u"/DefaultProfile"};
    case RowKind::PublicProfile:
      return {u"/RedirectUPDefault", u"/PublicProfile"};
    case RowKind::NewProfiles:
      return {u"/AutoRedirectUP", u"/d"};
    case RowKind::RegistryKey:
      return {u"/RedirectRegKey", row.source, u"/d"};
    case RowKind::RegistryLocation:
      return {u"/RedirectRegKeyLocation", u"/d"};
  }
  return {};
}

class Planner {
 public:
  explicit Planner(const Inventory& inventory) : inventory_(inventory) {
    for (const Row& row : inventory.rows) nodes_.emplace_back(row);
  }

  std::vector<UndoStep> Plan() {
    for (Node* next = Next(); next; next = Next()) {
      next->isDone = true;
      steps_.push_back(StepOf(*next));
      if (!steps_.back().words.empty()) FollowRecords(next->row);
    }
    return steps_;
  }

 private:
  bool IsReady(const Node& node) const {
    return std::ranges::none_of(
        nodes_, [&](const Node& other) { return &other != &node && !other.isDone && ComesBefore(other, node); });
  }
  // The next one that nothing is to come before; where each waits for another, the first of all.
  Node* Next() {
    Node* best = nullptr;
    bool bestIsReady = false;
    for (Node& node : nodes_) {
      if (node.isDone) continue;
      const bool ready = IsReady(node);
      const bool later = best && node.Rank() == best->Rank() && IsLink(node.row) && node.row.number > best->row.number;
      if (!best || (ready && !bestIsReady) || (ready == bestIsReady && (node.Rank() < best->Rank() || later))) {
        best = &node;
        bestIsReady = ready;
      }
    }
    return best;
  }

  const Node* Automatic() const {
    const auto found = std::ranges::find(nodes_, RowKind::NewProfiles, [](const Node& node) { return node.row.kind; });
    return found == nodes_.end() ? nullptr : &*found;
  }

  // Does the removal of automatic redirection bring it home, too?
  bool GoesWithAutomatic(const Row& row) const {
    const Node* const automatic = Automatic();
    if (!automatic) return false;
    if (IsShared(row)) return true;
    const auto& note = inventory_.newProfiles;
    if (!note) return false;
    if (IsProfileListKey(row)) return note->monitorsProfileList;
    return row.kind == RowKind::RegistryLocation && note->setsRegistryLocation &&
           EqualPaths(row.target, automatic->row.target) && std::ranges::none_of(nodes_, [&](const Node& node) {
             return node.row.kind == RowKind::RegistryKey && !GoesWithAutomatic(node.row);
           });
  }

  void Withhold(Node& node, UndoStep& step) const {
    for (const Finding& finding : node.row.findings) {
      if (IsNoObstacle(finding.what)) continue;
      node.isWithheld = true;
      step.remarks.push_back(finding.says + u" " + finding.todo);
    }
    for (const Node& other : nodes_)
      if (&other != &node && other.isWithheld && ComesBefore(other, node)) {
        node.isWithheld = true;
        step.remarks.push_back(u"It holds, or needs, " + (IsLink(other.row) ? other.row.source : other.row.target) +
                               u", which is to come home before it.");
      }
    if (node.row.kind == RowKind::Profile && !node.row.isNameable) {
      node.isWithheld = true;
      step.remarks.push_back(u"No name leads to just this profile. Give its account one of its own.");
    }
    if (!std::ranges::all_of(WordsOf(node.row), CanBeTyped)) {
      node.isWithheld = true;
      step.remarks.push_back(u"It has a name that no command line can hold.");
    }
  }

  UndoStep StepOf(Node& node) {
    const Row& row = node.row;
    UndoStep step{.kind = row.kind, .source = row.source, .target = row.target, .user = row.user};
    Withhold(node, step);
    step.isWithheld = node.isWithheld;
    if (node.isWithheld) {
      step.remarks.insert(step.remarks.begin(), u"Mend first: " + (row.source.empty() ? row.target : row.source));
    } else if (GoesWithAutomatic(row)) {
      step.remarks.push_back((IsShared(row) || IsProfileListKey(row) ? row.source : row.target) +
                             u" comes home with AutoRedirectUP /d.");
    } else {
      if (row.kind == RowKind::Profile) step.remarks.push_back(row.user + u" must be logged off.");
      step.words = WordsOf(row);
    }
    return step;
  }

  // The records that name what has come home follow: a later command names it as they do then.
  void FollowRecords(const Row& home) {
    if (home.kind != RowKind::Folder && home.kind != RowKind::File) return;
    for (Node& node : nodes_) {
      if (node.isDone || !IsLink(node.row) || (home.kind == RowKind::File && node.row.kind != RowKind::File)) continue;
      node.row.source = ReplaceFolder(node.row.source, home.target, home.source);
      node.row.target = ReplaceFolder(node.row.target, home.target, home.source);
    }
  }

  const Inventory& inventory_;
  std::vector<Node> nodes_;
  std::vector<UndoStep> steps_;
};

// As the C library and CommandLineToArgvW read it: backslashes before a quote count twice.
std::u16string Quoted(const std::u16string& word) {
  const std::size_t text = word.starts_with(u"/loc:") || word.starts_with(u"/vol:") ? 5 : 0;
  const bool isPath = word.size() > text + 1 && word[text + 1] == u':';
  if (!isPath && word.find_first_of(u" \t&|<>^(),;=%!'`~+[]@#$", text) == word.npos) return word;
  const std::size_t end = word.find_last_not_of(u'\\') + 1;
  return word.substr(0, text) + u'"' + word.substr(text) + std::u16string(word.size() - end, u'\\') + u'"';
}

std::u16string ForScript(const std::u16string& text) {
  std::u16string line;
  for (const char16_t unit : text) {
    line += unit < 0x20 ? u'?' : unit;
    if (unit == u'%') line += unit;
  }
  return line;
}

}  // namespace

std::vector<UndoStep> PlanUndo(const Inventory& inventory) { return Planner(inventory).Plan(); }

std::u16string CommandLineOf(const UndoStep& step) {
  if (step.words.empty()) return {};
  std::u16string line = u"QBC";
  for (const std::u16string& word : step.words) line += u' ' + Quoted(word);
  return ForScript(line);
}

std::u16string RemarkLine(const std::u16string& remark) { return u"REM - " + ForScript(remark); }
