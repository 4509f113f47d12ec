// Whichever call of a profile's move fails: no file is lost, Windows' record of the profile names the folder that holds
// it, the hive is unloaded, and what the console says is true.
#include <algorithm>
#include <iostream>
#include <map>
#include <set>

#include "fsops/delete_tree.h"
#include "links/link_data.h"
#include "profiles/user_hive.h"
#include "program/profile_stories.h"
#include "support/every_call.h"

namespace {

using emulated::Utf8;
using test::Contents, test::Exists, test::MakeFile, test::MakeFolder, test::RunResult, test::Security;

const std::u16string kImagePath = u"ProfileImagePath", kOwnDescriptor = u"the folder's own descriptor";

// A small profile in which an administrator may not read everything, with a folder that is redirected out of it and
// another one that is redirected into it.
class ProfileCalls : public test::ProfileStories {
 protected:
  ProfileCalls() {
    for (const auto* folder : {u"AppData",
                               u"Contacts",
                               u"Desktop",
                               u"Documents\\My Music",
                               u"Documents\\My Pictures",
                               u"Documents\\My Videos",
                               u"Downloads",
                               u"Favorites",
                               u"Links",
                               u"Local Settings",
                               u"Music",
                               u"My Documents",
                               u"NetHood",
                               u"Pictures",
                               u"PrintHood",
                               u"Recent",
                               u"Saved Games",
                               u"Searches",
                               u"SendTo",
                               u"Start Menu",
                               u"Templates",
                               u"Videos",
                               u"Cookies",
                               u"Application Data"})
      Remove(u"C:\\Users\\anna\\" + std::u16string(folder));
    for (const auto* file : {u"ntuser.dat.LOG2", u"ntuser.ini"}) {
      const std::u16string path = u"C:\\Users\\anna\\" + std::u16string(file);
      win32::SetFileAttributesW(path.c_str(), win32::FILE_ATTRIBUTE_NORMAL);
      EXPECT_TRUE(win32::DeleteFileW(path.c_str()));
    }
    MakeFolder(u"C:\\Users\\anna\\AppData");
    MakeFolder(u"C:\\Users\\anna\\vault");
    MakeFile(u"C:\\Users\\anna\\vault\\inner.txt", "inner");
    EXPECT_TRUE(CreateJunction(u"C:\\Users\\anna\\Application Data", u"C:\\Users\\anna\\AppData"));
    test::SetSecurity(u"C:\\Users\\anna\\Application Data", u"O:SYD:AI(D;;CC;;;WD)(A;ID;FA;;;SY)(A;ID;FA;;;BA)");
    test::SetSecurity(u"C:\\Users\\anna\\vault",
                      u"O:" + test::kSidOfAnna + u"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;" + test::kSidOfAnna + u")");
    EXPECT_EQ(Run({u"/RedirectFolder", u"C:\\Users\\anna\\Documents", u"/loc:D:\\Kept"}).exitCode, 0);
    MakeFolder(u"D:\\Shown");
    MakeFile(u"D:\\Shown\\s.txt", "shown");
    EXPECT_EQ(Run({u"/RedirectFolder", u"D:\\Shown", u"/loc:C:\\Users\\anna"}).exitCode, 0);
    EXPECT_TRUE(RestoreLink(
        {u"D:\\Shown", {}, true, MountPointData(u"\\??\\C:\\Users\\anna\\Shown\\", u"C:\\Users\\anna\\Shown")}));
    MakeFile(u"C:\\Users\\anna\\letter.txt", "Dear Jan");
    MakeFile(u"C:\\Users\\anna\\letter.txt:note", "a named stream");
    EnablePrivileges();
  }
  static void Remove(const std::u16string& item) {
    const win32::DWORD attributes = test::Attributes(item);
    if (!(attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT)) DeleteDirectoryTree(item.c_str(), {.stopOnFailure = true});
    win32::SetFileAttributesW(item.c_str(), win32::FILE_ATTRIBUTE_NORMAL);
    EXPECT_TRUE(win32::RemoveDirectoryW(item.c_str())) << Utf8(item);
  }

  struct State {
    Items profile, other;
    std::u16string imagePath;
    Pairs records, fileRecords;
    ReparseData shown;
    std::u16string descriptor;
    bool operator==(const State&) const = default;
  };
  State Now(const std::u16string& folder) {
    State state{AllOf(folder), {}, ImagePath(test::kSidOfAnna), AllRecords(), AllRecords(u"FileJunctions"), {}, {}};
    state.shown = ReadLinkData(u"D:\\Shown");
    state.descriptor = Security(folder);
    std::ranges::sort(state.records);  // a record that is made again has another number
    return state;
  }
  // What is not as it was before: an item of the profile (or something else, by a name of its own), and in what way.
  using Differences = std::map<std::u16string, std::string>;
  static Differences Difference(const State& now, const State& before) {
    Differences differences;
    for (const auto& [path, item] : before.profile) {
      const auto found = now.profile.find(path);
      if (found == now.profile.end())
        differences[path] = "missing";
      else if (found->second != item)
        differences[path] = HowDifferent(found->second, item);
    }
    for (const auto& [path, item] : now.profile)
      if (!before.profile.contains(path)) differences[path] = "new";
    if (now.imagePath != before.imagePath) differences[kImagePath] = "other folder";
    if (now.records != before.records || now.fileRecords != before.fileRecords) differences[u"records"] = "changed";
    if (now.shown != before.shown) differences[u"D:\\Shown"] = "leads elsewhere";
    if (now.descriptor != before.descriptor) differences[kOwnDescriptor] = "changed";
    return differences;
  }
  // Descriptions of AllOf: what the item is, then its security.
  static std::string HowDifferent(const std::string& now, const std::string& before) {
    const std::string item = now.substr(0, now.rfind(' ')), itemBefore = before.substr(0, before.rfind(' '));
    const std::string security = now.substr(item.size()), securityBefore = before.substr(itemBefore.size());
    const bool wasLink = !before.starts_with("attributes ");
    if (item == itemBefore) {
      std::string unmarked = securityBefore;
      if (const std::size_t mark = unmarked.find("D:AI("); mark != unmarked.npos) unmarked.erase(mark + 2, 2);
      if (security == unmarked) return "inheritance not marked";
      return wasLink ? "link's security" : "security";
    }
    if (security != securityBefore) return "item and security";
    if (wasLink) return now.starts_with("attributes ") ? "link is a plain folder" : "leads elsewhere";
    const auto cut = [](const std::string& text, const char* from, const char* to) {
      const std::size_t start = text.find(from);
      return start < text.find(to) ? std::string(text).erase(start, text.find(to) - start) : text;
    };
    if (cut(item, " created ", " holds ") == cut(itemBefore, " created ", " holds ")) return "times";
    if (cut(item, "attributes ", " created ") == cut(itemBefore, "attributes ", " created ")) return "attributes";
    return "contents";
  }

  static const std::map<std::u16string, std::string>& Files() {
    static const std::map<std::u16string, std::string> files = {{u"\\letter.txt", "Dear Jan"},
                                                                {u"\\letter.txt:note", "a named stream"},
                                                                {u"\\vault\\inner.txt", "inner"},
                                                                {u"\\Shown\\s.txt", "shown"}};
    return files;
  }
  // Complete in the folder that is to hold the profile, or in another one, which the log then names.
  void ExpectFiles(const std::u16string& folder, const std::u16string& other, const RunResult& run,
                   const std::string& when) {
    EnablePrivileges();
    const std::u16string imagePath = ImagePath(test::kSidOfAnna);
    for (const auto& [name, contents] : Files()) {
      if (Contents(folder + name) == contents) continue;
      const std::u16string& holder = Contents(other + name) == contents ? other : imagePath;
      EXPECT_TRUE(Contents(holder + name) == contents) << Utf8(name) << " is lost: " << when;
      EXPECT_TRUE(run.Logged(holder + name.substr(0, name.find(u':'))) || run.Logged(u"stays in " + holder))
          << Utf8(name) << " is not named: " << when;
    }
    EXPECT_EQ(Contents(u"D:\\Kept\\Documents\\old.bin").size(), 70000u) << when;
  }
  void ExpectFilesIn(const std::vector<std::u16string>& folders, const std::string& when) {
    EnablePrivileges();
    for (const auto& file : Files())
      EXPECT_TRUE(std::ranges::any_of(folders,
                                      [&](const auto& folder) { return Contents(folder + file.first) == file.second; }))
          << Utf8(file.first) << " is lost: " << when;
  }
  // A key that could not be closed keeps it loaded to the end of the program; the next run unloads it.
  void ExpectHiveUnloaded(const RunResult& run, const std::string& when) {
    if (!HiveIsLoaded()) return;
    EXPECT_TRUE(when.starts_with("RegCloseKey") && run.Logged(u"Unable to unload")) << when;
    UnloadForgottenHive();
    EXPECT_FALSE(HiveIsLoaded()) << when;
    ++stillLoaded;
  }

  // A handle that is not closed keeps its file from being made anew, or renamed with its folder. The other calls are
  // those whose result the copy of a tree leaves out of account.
  static const std::map<std::string, std::set<std::string>>& KnownAsOpen() {
    static const std::map<std::string, std::set<std::string>> calls{
        {"failed, CloseHandle",
         {"missing", "link is a plain folder", "link's security", "times", "other folder", "changed"}},
        {"failed, FindClose", {"missing", "other folder", "changed"}},
        {"succeeded, SetNamedSecurityInfoW", {"inheritance not marked"}},
        {"succeeded, SetFileAttributesW", {"attributes"}}};
    return calls;
  }
  // It is one item and what is below it, each in a known way; what is missing, or is no link any more, is in `left`,
  // or on the volume that was mounted there.
  // Only where ProfileImagePath names `left` may more be there.
  void ExpectKnown(const std::string& call, const Differences& differences, const std::u16string& left,
                   const std::string& when) {
    const auto known = KnownAsOpen().find(call);
    ASSERT_TRUE(known != KnownAsOpen().end()) << Text(differences) << when;
    const bool isLeft = differences.contains(kImagePath);
    EXPECT_TRUE(!isLeft || ImagePath(test::kSidOfAnna) == left) << Text(differences) << when;
    for (const auto& [item, way] : differences) {
      EXPECT_TRUE(known->second.contains(way)) << Text(differences) << when;
      if (item == kImagePath) continue;
      const bool isOneItem = item != kOwnDescriptor && IsSameOrBelow(item, differences.begin()->first);
      EXPECT_TRUE(isLeft || isOneItem) << Text(differences) << when;
      const bool isElsewhere = way == "missing" || way == "link is a plain folder";
      EXPECT_TRUE(!isElsewhere || Exists(left + item) || Exists(test::kVolume + item.substr(1)))
          << Utf8(left + item) << ": " << when;
    }
  }
  static std::string Text(const Differences& differences) {
    std::string text;
    for (const auto& [item, way] : differences) text += Utf8(item) + " " + way + "; ";
    return text;
  }

  // `place`: where the profile is, `other`: where it goes, `side`: the folder that it passes through, if any.
  template <typename Command>
  void FailEach(const char* name, Command command, const std::u16string& place, const std::u16string& other,
                const std::u16string& side = {}) {
    const State before = Now(place);
    const test::Disks disks = machine->Snapshot();
    ASSERT_EQ(command().exitCode, 0);
    const State after = Now(other);
    test::Disks again;
    for (const auto& [image, device] : disks) again[image] = device->Clone();
    machine.reset();
    machine = test::BootFrom(std::move(again));

    int calls = 0;
    std::map<std::string, int> outcomes;
    std::map<std::string, std::pair<int, std::string>> open;  // how often, and what the first time
    test::WithEachCallRefused(machine, command, [&](const RunResult& run, const std::string& when) {
      ++calls;
      const bool succeeded = run.exitCode == 0;
      const std::u16string& holder = succeeded ? other : place;
      ExpectFiles(holder, !side.empty() ? side : succeeded ? place : other, run, when);
      ExpectHiveUnloaded(run, when);
      EXPECT_TRUE(Exists(ImagePath(test::kSidOfAnna) + u"\\NTUSER.DAT")) << Utf8(ImagePath(test::kSidOfAnna)) << when;
      EXPECT_TRUE(succeeded || !run.Said(u"Redirect user profile was successful.")) << when;
      const Differences differences = Difference(Now(holder), succeeded ? after : before);
      const std::u16string& left = side.empty() ? other : side;
      const std::string kind = succeeded ? "succeeded" : "failed";
      ++outcomes[kind + (differences.empty() ? ", all as it should be" : ", not all as it should be")];
      if (!differences.empty()) {
        const std::string call = kind + ", " + when.substr(0, when.find(','));
        ExpectKnown(call, differences, left, when);
        auto& [count, first] = open[call];
        if (++count == 1) first = Text(differences);
      }
      if (!succeeded && Exists(left) && !test::Names(left).empty()) ++outcomes["failed, something left at the target"];
    });
    std::cout << name << ": " << calls << " calls refused, one a run\n";
    if (stillLoaded > 0) std::cout << "  " << stillLoaded << " with the hive loaded until the next run\n";
    for (const auto& [outcome, count] : outcomes) std::cout << "  " << count << " " << outcome << "\n";
    for (const auto& [call, what] : open)
      std::cout << "  open: " << call << ", " << what.first << " times, such as: " << what.second << "\n";
    RecordProperty(std::string(name) + "_calls", calls);
  }

  // Of a command after a power failure. Its name.
  std::string ExpectRightOutcome(const RunResult& run, const std::vector<std::u16string>& folders,
                                 const std::string& when) {
    const std::u16string imagePath = ImagePath(test::kSidOfAnna);
    const auto holdsHive = [](const std::u16string& folder) { return Exists(folder + u"\\NTUSER.DAT"); };
    EXPECT_FALSE(HiveIsLoaded()) << when;
    if (run.exitCode == 0) {
      ExpectFilesIn({imagePath}, when);
      EXPECT_TRUE(holdsHive(imagePath)) << when;
      return "gone on with";
    }
    ExpectFilesIn(folders, when);
    EXPECT_TRUE(run.Logged(u"#ERROR: ") || run.Logged(u"#INFO: ")) << when;
    if (holdsHive(imagePath)) return "refused";
    const auto found = std::ranges::find_if(folders, holdsHive);
    const std::u16string holder = found != folders.end() ? *found : u"(nowhere)";
    EXPECT_TRUE(run.Logged(u"was interrupted. ") && run.Logged(u" is in " + holder)) << Utf8(holder) << ": " << when;
    return "refused, the hive is beside the folder that is recorded";
  }

  int stillLoaded = 0;
};

TEST_F(ProfileCalls, OfAMoveToAFolderMayFail) {
  FailEach(
      "RedirectUP", [this] { return Move(u"anna", u"D:\\Profiles"); }, u"C:\\Users\\anna", u"D:\\Profiles\\anna");
}

TEST_F(ProfileCalls, OfTheWayHomeMayFail) {
  ASSERT_EQ(Move(u"anna", u"D:\\Profiles").exitCode, 0);
  FailEach(
      "RedirectUPDefault", [this] { return MoveHome(u"anna"); }, u"D:\\Profiles\\anna", u"C:\\Users\\anna");
}

TEST_F(ProfileCalls, OfAMoveToAVolumeMayFail) {
  FailEach(
      "RedirectUP to a volume", [this] { return Move(u"anna", test::kVolume); }, u"C:\\Users\\anna", u"C:\\Users\\anna",
      u"C:\\Users\\anna.mount");
}

TEST_F(ProfileCalls, OfTheWayHomeFromAVolumeMayFail) {
  ASSERT_EQ(Move(u"anna", test::kVolume).exitCode, 0);
  FailEach(
      "RedirectUPDefault from a volume", [this] { return MoveHome(u"anna"); }, u"C:\\Users\\anna", u"C:\\Users\\anna",
      u"C:\\Users\\anna.temp");
}

// The machine stops dead somewhere on the way, and the same command is given again: whatever it can do, every file is
// complete in one of the folders, then as before. The profile is where ProfileImagePath says, or the log names its
// place.
TEST_F(ProfileCalls, LoseNothingWhenThePowerFails) {
  constexpr std::uint64_t kStep = 41;  // one in so many calls
  const std::u16string home = u"C:\\Users\\anna", root = test::kVolume.substr(0, test::kVolume.size() - 1);
  struct Way {
    std::u16string location;
    std::vector<std::u16string> folders;
  };
  const std::vector<Way> ways = {{u"D:\\Profiles", {home, u"D:\\Profiles\\anna"}},
                                 {test::kVolume, {home, home + u".mount", home + u".temp", root}}};
  for (const Way& way : ways)
    for (const bool isWayHome : {false, true}) {
      const auto command = [&] { return isWayHome ? MoveHome(u"anna") : Move(u"anna", way.location); };
      std::vector<test::Disks> stops;
      machine->gate.Observe([&](const char*, std::uint64_t number) {
        if (number % kStep == 0) stops.push_back(machine->Snapshot());
      });
      ASSERT_EQ(command().exitCode, 0);
      machine->gate.Observe({});
      test::Disks arrived = machine->Snapshot();
      std::map<std::string, int> outcomes;
      for (std::size_t stop = 0; stop < stops.size() && !HasFailure(); ++stop) {
        machine.reset();
        machine = test::BootFrom(std::move(stops[stop]));
        const std::string where = "stopped at call " + std::to_string((stop + 1) * kStep);
        ExpectFilesIn(way.folders, where);
        const RunResult run = command();
        ++outcomes[ExpectRightOutcome(run, way.folders, where + ", then " + Utf8(run.log))];
      }
      std::cout << Utf8(way.location) << (isWayHome ? ", home: " : ": ") << stops.size() << " stops\n";
      for (const auto& [outcome, count] : outcomes) std::cout << "  " << count << " " << outcome << "\n";
      EXPECT_GT(outcomes["gone on with"], static_cast<int>(stops.size()) / 2);
      machine.reset();
      machine = test::BootFrom(std::move(arrived));
    }
}

}  // namespace
