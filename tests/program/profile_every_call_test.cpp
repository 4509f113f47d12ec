// Whichever call of a profile's move fails: no file is lost, Windows' record of the profile names the folder that holds
// it, the hive is unloaded, and what the console says is true.
#include <algorithm>
#include <iostream>
#include <map>
#include <set>

#include "fsops/delete_tree.h"
#include "profiles/user_hive.h"
#include "program/profile_stories.h"
#include "support/every_call.h"

namespace {

using emulated::Utf8;
using test::Contents, test::Exists, test::MakeFile, test::MakeFolder, test::RunResult, test::Security;

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
    MakeFile(u"C:\\Users\\anna\\letter.txt", "Dear Jan");
    MakeFile(u"C:\\Users\\anna\\letter.txt:note", "a named stream");
    EnablePrivileges();
  }
  static void Remove(const std::u16string& item) {
    const win32::DWORD attributes = test::Attributes(item);
    if (!(attributes & win32::FILE_ATTRIBUTE_REPARSE_POINT)) DeleteDirectoryTree(item.c_str(), 1);
    win32::SetFileAttributesW(item.c_str(), win32::FILE_ATTRIBUTE_NORMAL);
    EXPECT_TRUE(win32::RemoveDirectoryW(item.c_str())) << Utf8(item);
  }

  struct State {
    Items profile, other;
    std::u16string imagePath;
    Pairs records, fileRecords;
    std::u16string shown, descriptor;
    bool operator==(const State&) const = default;
  };
  State Now(const std::u16string& folder) {
    State state{AllOf(folder), {}, ImagePath(test::kSidOfAnna), AllRecords(), AllRecords(u"FileJunctions"), {}, {}};
    GetJunctionTarget(u"D:\\Shown", state.shown);
    state.descriptor = Security(folder);
    std::ranges::sort(state.records);  // a record that is made again has another number
    return state;
  }
  // What of it is not as in `before`.
  static std::string Difference(const State& now, const State& before) {
    std::string text;
    for (const auto& [path, item] : before.profile) {
      const auto found = now.profile.find(path);
      if (found == now.profile.end())
        text += Utf8(path) + " is not there; ";
      else if (found->second != item)
        text += Utf8(path) + " differs; ";
    }
    for (const auto& [path, item] : now.profile)
      if (!before.profile.contains(path)) text += Utf8(path) + " is new; ";
    if (now.imagePath != before.imagePath) text += "ProfileImagePath: " + Utf8(now.imagePath) + "; ";
    if (now.records != before.records || now.fileRecords != before.fileRecords) text += "records; ";
    if (now.shown != before.shown) text += "D:\\Shown leads to " + Utf8(now.shown) + "; ";
    if (now.descriptor != before.descriptor) text += "the folder's own descriptor; ";
    return text;
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
    for (const auto& [name, contents] : Files())
      EXPECT_TRUE(std::ranges::any_of(folders, [&](const auto& folder) { return Contents(folder + name) == contents; }))
          << Utf8(name) << " is lost: " << when;
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
  static const std::set<std::string>& KnownAsOpen() {
    static const std::set<std::string> calls{"failed, CloseHandle", "failed, FindClose",
                                             "succeeded, GetNamedSecurityInfoW", "succeeded, SetNamedSecurityInfoW",
                                             "succeeded, SetFileAttributesW"};
    return calls;
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
      const std::string difference = Difference(Now(holder), succeeded ? after : before);
      const std::string kind = succeeded ? "succeeded" : "failed";
      ++outcomes[kind + (difference.empty() ? ", all as it should be" : ", not all as it should be")];
      if (!difference.empty()) {
        auto& [count, first] = open[kind + ", " + when.substr(0, when.find(','))];
        if (++count == 1) first = difference;
      }
      const std::u16string& left = side.empty() ? other : side;
      if (!succeeded && Exists(left) && !test::Names(left).empty()) ++outcomes["failed, something left at the target"];
    });
    std::cout << name << ": " << calls << " calls refused, one a run\n";
    if (stillLoaded > 0) std::cout << "  " << stillLoaded << " with the hive loaded until the next run\n";
    for (const auto& [outcome, count] : outcomes) std::cout << "  " << count << " " << outcome << "\n";
    for (const auto& [call, what] : open) {
      std::cout << "  open: " << call << ", " << what.first << " times, such as: " << what.second << "\n";
      EXPECT_TRUE(KnownAsOpen().contains(call)) << call << ": " << what.second;
    }
    RecordProperty(std::string(name) + "_calls", calls);
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
// complete in one of the folders, then as before.
TEST_F(ProfileCalls, LoseNothingWhenThePowerFails) {
  constexpr std::uint64_t kStep = 37;  // one in so many calls
  const std::map<std::u16string, std::vector<std::u16string>> places = {
      {u"D:\\Profiles", {u"C:\\Users\\anna", u"D:\\Profiles\\anna"}},
      {test::kVolume,
       {u"C:\\Users\\anna", u"C:\\Users\\anna.mount", test::kVolume.substr(0, test::kVolume.size() - 1)}}};
  const test::Disks before = machine->Snapshot();
  for (const auto& [location, folders] : places) {
    std::vector<test::Disks> stops;
    machine->gate.Observe([&](const char*, std::uint64_t number) {
      if (number % kStep == 0) stops.push_back(machine->Snapshot());
    });
    ASSERT_EQ(Move(u"anna", location).exitCode, 0);
    std::map<std::string, int> outcomes;
    for (std::size_t stop = 0; stop < stops.size(); ++stop) {
      const std::string when = "stopped at call " + std::to_string((stop + 1) * kStep);
      machine.reset();
      machine = test::BootFrom(std::move(stops[stop]));
      ExpectFilesIn(folders, when);
      const RunResult run = Move(u"anna", location);
      ExpectFilesIn(folders, when + ", then " + Utf8(run.log));
      const bool holdsHive = Exists(ImagePath(test::kSidOfAnna) + u"\\NTUSER.DAT");
      ++outcomes[std::string(run.exitCode == 0 ? "gone on with" : "refused") +
                 (holdsHive ? "" : ", the hive is beside the folder that is recorded")];
    }
    std::cout << Utf8(location) << ": " << stops.size() << " stops\n";
    for (const auto& [outcome, count] : outcomes) std::cout << "  " << count << " " << outcome << "\n";
    test::Disks again;
    for (const auto& [image, device] : before) again[image] = device->Clone();
    machine.reset();
    machine = test::BootFrom(std::move(again));
  }
}

}  // namespace
