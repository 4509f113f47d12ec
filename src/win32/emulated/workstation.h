// A workstation in a folder of the host: its images, what is frozen and who is logged on.
//
//   C.ntfs D.ntfs ... {GUID}.ntfs   raw NTFS images, one a volume
//   state                           one "key value" a line: frozen IMAGE, user SID, account KIND, session SID,
//                                   domain-account SID DOMAIN DNSDOMAIN NAME (see WorkstationState)
//   *.frozen                        what was written to a frozen image since it was frozen (see ImageSet)
//   journal                         see ImageSet, which also locks the folder itself
#pragma once

#include <filesystem>
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
  // the desktop then. On failure answers null and sets `error` to one clear line; nothing is written.
  static std::unique_ptr<Workstation> Open(const std::filesystem::path& folder, std::string& error);
  // The same without booting: images attached, hives not loaded. For making and adopting machines.
  static std::unique_ptr<Workstation> OpenUnbooted(const std::filesystem::path& folder, std::string& error);

  Machine& machine() { return *machine_; }
  const WorkstationState& state() const { return state_; }
  // The running program ends (its handles are closed) and everything it changed is put down, all images together.
  bool Save(std::string& error);

  // Work on a folder that is not open. Freezing keeps what is on the image; thawing and restarting forget what was
  // written to frozen images since. A restart ends all sessions.
  static bool Freeze(const std::filesystem::path& folder, const std::string& image, std::string& error);
  static bool Thaw(const std::filesystem::path& folder, const std::string& image, std::string& error);
  static bool Restart(const std::filesystem::path& folder, std::string& error);
  static bool ReadState(const std::filesystem::path& folder, WorkstationState& state, std::string& error);
  static bool WriteState(const std::filesystem::path& folder, const WorkstationState& state, std::string& error);
  // The images of the folder by name, the system volume first.
  static std::vector<std::string> Images(const std::filesystem::path& folder);

 private:
  Workstation() = default;
  WorkstationState state_;
  std::unique_ptr<ImageSet> images_;
  std::unique_ptr<Machine> machine_;  // after images_: its volumes flush into them
};

}  // namespace emulated
