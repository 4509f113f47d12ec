#include "win32/emulated/workstation.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <system_error>

#include "win32/emulated/storage/file_descriptor.h"
#include "win32/emulated/storage/windows_state.h"
#include "win32/emulated/system/logon.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

namespace fs = std::filesystem;

std::shared_ptr<Token> TokenFor(const WorkstationState& state, const Sid& defaultUser) {
  Sid user = state.user.empty() ? defaultUser : SidFromText(Utf16(state.user));
  if (user.empty()) user = defaultUser;
  if (state.account == "filtered") return MakeFilteredAdministratorToken(user);
  if (state.account == "user") return MakeUserToken(user);
  return MakeAdministratorToken(user);
}

// "SID DOMAIN DNSDOMAIN NAME": names may have spaces in them, domains not.
bool ReadDomainAccount(const std::string& text, WorkstationState& state) {
  std::istringstream line(text);
  std::string sid, domain, dnsDomain, name;
  if (!(line >> sid >> domain >> dnsDomain) || !std::getline(line >> std::ws, name)) return false;
  DomainAccount account{Utf16(domain), Utf16(dnsDomain), Utf16(name), SidFromText(Utf16(sid))};
  if (account.sid.empty()) return false;
  state.domainAccounts.push_back(std::move(account));
  return true;
}

std::string DomainAccountLine(const DomainAccount& account) {
  return Utf8(SidToText(account.sid)) + ' ' + Utf8(account.domain) + ' ' + Utf8(account.dnsDomain) + ' ' +
         Utf8(account.name);
}

std::string StateText(const WorkstationState& state) {
  std::string text;
  const auto line = [&text](std::string_view key, const std::string& value) {
    text.append(key).append(" ").append(value).append("\n");
  };
  for (const std::string& image : state.frozen) line("frozen", image);
  if (!state.user.empty()) line("user", state.user);
  line("account", state.account);
  for (const std::string& session : state.sessions) line("session", session);
  for (const DomainAccount& account : state.domainAccounts) line("domain-account", DomainAccountLine(account));
  return text;
}

}  // namespace

std::vector<std::string> Workstation::Images(const fs::path& folder) {
  std::vector<std::string> names;
  for (const std::string& name : NamesIn(folder))
    if (fs::path(name).extension() == ".ntfs") names.push_back(name);
  std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
    return std::pair(a != "C.ntfs", a) < std::pair(b != "C.ntfs", b);
  });
  return names;
}

bool Workstation::ReadState(const fs::path& folder, WorkstationState& state, std::string& error) {
  state = {};
  const FileDescriptor stored = OpenToRead(folder / "state");
  if (!stored && errno == ENOENT) return true;
  const off_t size = stored ? lseek(stored.get(), 0, SEEK_END) : -1;
  std::string text(size < 0 ? 0 : static_cast<std::size_t>(size), '\0');
  if (size < 0 || !stored.ReadAt(0, {reinterpret_cast<std::uint8_t*>(text.data()), text.size()})) {
    error = (folder / "state").string() + ": " + strerror(errno);
    return false;
  }
  std::istringstream file(text);
  std::string key, value;
  while (file >> key && std::getline(file >> std::ws, value)) {
    if (key == "frozen") {
      state.frozen.insert(value);
    } else if (key == "user" && !SidFromText(Utf16(value)).empty()) {
      state.user = value;
    } else if (key == "account" && (value == "administrator" || value == "filtered" || value == "user")) {
      state.account = value;
    } else if (key == "session" && !SidFromText(Utf16(value)).empty()) {
      state.sessions.insert(value);
    } else if (key != "domain-account" || !ReadDomainAccount(value, state)) {
      error = (folder / "state").string() + ": \"" + key + ' ' + value + "\" is not understood";
      return false;
    }
  }
  return true;
}

bool Workstation::WriteState(const fs::path& folder, const WorkstationState& state, std::string& error) {
  const fs::path next = folder / "state.new";
  {
    std::ofstream file(next, std::ios::trunc);
    file << StateText(state);
    if (!file.flush()) {
      error = next.string() + ": cannot be written";
      return false;
    }
  }
  std::error_code failed;
  fs::rename(next, folder / "state", failed);
  if (failed) error = (folder / "state").string() + ": " + failed.message();
  return !failed;
}

std::unique_ptr<Workstation> Workstation::OpenUnbooted(const fs::path& folder, std::string& error, ImageAccess access) {
  std::unique_ptr<Workstation> station(new Workstation);
  std::error_code failed;
  if (!fs::is_directory(folder, failed)) {
    error = folder.string() + ": no such workstation folder";
    return nullptr;
  }
  const std::vector<std::string> names = Images(folder);
  if (names.empty() || names.front() != "C.ntfs") {
    error = (folder / "C.ntfs").string() + ": missing (the image of the system volume)";
    return nullptr;
  }
  station->access_ = access;
  station->images_ = ImageSet::Open(folder, error, access);
  if (!station->images_ || !ReadState(folder, station->state_, error)) return nullptr;
  station->folder_ = folder;
  station->savedState_ = StateText(station->state_);
  for (const std::string& image : station->state_.frozen) {
    if (std::find(names.begin(), names.end(), image) == names.end()) {
      error = (folder / image).string() + ": missing (the folder's state says that it is frozen)";
      return nullptr;
    }
  }
  station->machine_ = std::make_unique<Machine>();
  Machine& machine = *station->machine_;
  machine.process.token = TokenFor(station->state_, machine.process.token->user);
  machine.domainAccounts = station->state_.domainAccounts;
  for (const std::string& name : names) {
    const bool frozen = station->state_.frozen.contains(name);
    BlockDevice* const device = station->images_->OpenImage(name, frozen, error);
    if (!device) return nullptr;
    MountedVolume* mounted = nullptr;
    if (const win32::DWORD code = machine.Attach(*device, name, &mounted)) {
      error = (folder / name).string() + (code == 1005 ? ": not an NTFS volume" : ": a damaged NTFS volume");
      return nullptr;
    }
    mounted->frozen = frozen;
    if (const std::string why = WhyNotToWrite(*mounted->volume); !why.empty() && station->writeProtection_.empty())
      station->writeProtection_ = (folder / name).string() + ": " + why;
  }
  return station;
}

std::unique_ptr<Workstation> Workstation::Open(const fs::path& folder, std::string& error, ImageAccess access) {
  std::unique_ptr<Workstation> station = OpenUnbooted(folder, error, access);
  if (!station) return nullptr;
  if (!station->machine_->Boot(error)) {
    error = folder.string() + ": " + error;
    return nullptr;
  }
  LogOn(*station->machine_, SidToText(station->machine_->process.token->user));
  for (const std::string& session : station->state_.sessions) LogOn(*station->machine_, Utf16(session));
  return station;
}

bool Workstation::Save(std::string& error, const ProgressSink& progress) {
  error = writeProtection_;
  if (!error.empty()) return false;
  if (access_ == ImageAccess::kRead) return images_->Commit(error, progress);  // says why not
  machine_->objects.CloseAll(machine_->process.id);
  return machine_->Flush(error) && SaveState(error) && images_->Commit(error, progress);
}

bool Workstation::SaveState(std::string& error) {
  const std::string text = StateText(state_);
  if (text == savedState_) return true;
  if (!WriteState(folder_, state_, error)) return false;
  savedState_ = text;
  return true;
}

bool Workstation::ChangeState(const fs::path& folder, const std::function<void(WorkstationState&)>& change,
                              std::string& error) {
  WorkstationState state;
  const auto locked = ImageSet::Open(folder, error);
  if (!locked || !ReadState(folder, state, error)) return false;
  change(state);
  return WriteState(folder, state, error);
}

bool Workstation::Freeze(const fs::path& folder, const std::string& image, std::string& error) {
  std::error_code failed;
  if (!fs::exists(folder / image, failed)) {
    error = (folder / image).string() + ": missing";
    return false;
  }
  return ChangeState(
      folder, [&](WorkstationState& state) { state.frozen.insert(image); }, error);
}

bool Workstation::Thaw(const fs::path& folder, const std::string& image, std::string& error) {
  WorkstationState state;
  const auto images = ImageSet::Open(folder, error);
  if (!images || !ReadState(folder, state, error) || !images->DropFrozen(image, error)) return false;
  state.frozen.erase(image);
  return WriteState(folder, state, error);
}

bool Workstation::Restart(const fs::path& folder, std::string& error) {
  {
    WorkstationState state;
    const auto images = ImageSet::Open(folder, error);
    if (!images || !ReadState(folder, state, error)) return false;
    for (const std::string& image : state.frozen)
      if (!images->DropFrozen(image, error)) return false;
    if (!state.sessions.empty()) {
      state.sessions.clear();
      if (!WriteState(folder, state, error)) return false;
    }
  }
  const auto station = Open(folder, error);
  return station && station->Save(error);
}

}  // namespace emulated
