// A workstation in a folder of the host: its images, what is frozen and who is logged on.
//
//   C.ntfs D.ntfs ... {GUID}.ntfs   raw NTFS images, one a volume
//   state                           one "key value" a line: frozen IMAGE, user SID, account KIND, session SID,
//                                   domain-account SID DOMAIN DNSDOMAIN NAME (see WorkstationState)
//   *.frozen                        what was written to a frozen image since it was frozen (see ImageSet)
//   journal                         see ImageSet, which also locks the folder itself
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "win32/emulated/machine.h"

namespace emulated {

struct WorkstationState {
  std::set<std::string> frozen;           // image names
  std::string user;                       // SID of the logged-on user; empty: the machine's default administrator
  std::string account = "administrator";  // or "filtered" (deny-only Administrators), "user"
  std::set<std::string> sessions;         // SIDs of who else is logged on at the desktop
  std::vector<DomainAccount> domainAccounts;
};

class Workstation {
 public:
  // Opens the folder's images and boots; the user that programs run for and everyone with a session are logged on at
  // the desktop then. On failure answers null and sets `error` to one clear line; nothing is written. With kRead all
  // that changes stays in memory, and no save is possible.
  static std::unique_ptr<Workstation> Open(const std::filesystem::path& folder, std::string& error,
                                           ImageAccess access = ImageAccess::kWrite);
  // The same without booting: images attached, hives not loaded. For making and adopting machines.
  static std::unique_ptr<Workstation> OpenUnbooted(const std::filesystem::path& folder, std::string& error,
                                                   ImageAccess access = ImageAccess::kWrite);

  Machine& machine() { return *machine_; }
  // Why nothing may be written here, in one line that names the image; empty when all may. See WhyNotToWrite.
  const std::string& writeProtection() const { return writeProtection_; }
  bool MayBeSaved() const { return access_ == ImageAccess::kWrite && writeProtection_.empty(); }
  // What was changed in it is put down by the next save.
  WorkstationState& state() { return state_; }
  // The running program ends (its handles are closed) and everything it changed is put down: the state, when it
  // changed, then all images together. When a save ends between the two, accounts of domains are known that nothing on
  // the images belongs to yet, and the same change can be made again.
  bool Save(std::string& error, const ProgressSink& progress = {});
  // The state alone; what changed on the images is dropped.
  bool SaveState(std::string& error);

  // Work on a folder that is not open; it is locked meanwhile. Freezing keeps what is on the image; thawing and
  // restarting forget what was written to frozen images since. A restart ends all sessions.
  static bool Freeze(const std::filesystem::path& folder, const std::string& image, std::string& error);
  static bool Thaw(const std::filesystem::path& folder, const std::string& image, std::string& error);
  static bool Restart(const std::filesystem::path& folder, std::string& error);
  // Reads the state, has it changed and writes it. When `change` throws nothing is written.
  static bool ChangeState(const std::filesystem::path& folder, const std::function<void(WorkstationState&)>& change,
                          std::string& error);
  // For a folder that nobody else works on.
  static bool ReadState(const std::filesystem::path& folder, WorkstationState& state, std::string& error);
  static bool WriteState(const std::filesystem::path& folder, const WorkstationState& state, std::string& error);
  // The images of the folder by name, the system volume first.
  static std::vector<std::string> Images(const std::filesystem::path& folder);

 private:
  Workstation() = default;
  std::filesystem::path folder_;
  WorkstationState state_;
  std::string savedState_;  // the text of the state as the folder has it
  std::string writeProtection_;
  ImageAccess access_ = ImageAccess::kWrite;
  std::unique_ptr<ImageSet> images_;
  std::unique_ptr<Machine> machine_;  // after images_: its volumes flush into them
};

}  // namespace emulated
