// What the commands of the workstation tool share.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "win32/emulated/registry/hive.h"
#include "win32/emulated/workstation.h"

namespace workstation {

// A command's failure: one clear line for stderr; the folder stays as it was.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// "PATH: the text of the error (n)".
[[noreturn]] void FailWith(std::string_view what, std::uint32_t error);

using Arguments = std::vector<std::string>;

struct Command {
  std::string_view name;
  std::string_view synopsis;  // behind the name; a line for each form
  std::string_view purpose;
  std::size_t least, most;  // arguments behind FOLDER
  void (*run)(const std::filesystem::path& folder, const Arguments& arguments);
};

const std::vector<Command>& Commands();

// Runs `work` on the booted machine; with `save` what it changed is put down when it returns. Without, nothing in the
// folder is written, and who may read it can do so.
void OnMachine(const std::filesystem::path& folder, bool save, const std::function<void(emulated::Machine&)>& work);

// The same with the folder's state at hand: what `work` changes in it is put down as well.
void OnStation(const std::filesystem::path& folder, bool save, const std::function<void(emulated::Workstation&)>& work);

// "64M", "2G", "512K" or bytes.
std::uint64_t ParseSize(const std::string& text);
// What NtfsDisable8dot3NameCreation takes: "0" to "3".
std::uint32_t ParseShortNames(const std::string& text);
// "C", "C:" or "C:\\" -> 'C'.
char ParseLetter(const std::string& text);

// "anna", "CORP\\maria" in its two parts. Fails for what no account, or no folder of one, can be called.
struct AccountName {
  std::string domain, name;
};
AccountName ParseAccountName(const std::string& text);
// Fails for the names of accounts, groups and folders that every Windows has.
void RefuseNameOfWindows(const std::string& name);
// The account of a domain, made in `state` when it is new. Each domain has a SID of its own.
emulated::DomainAccount DomainAccountFor(emulated::WorkstationState& state, const AccountName& account,
                                         const emulated::UpCase& upCase);

// The commands, by file.
void Create(const std::filesystem::path&, const Arguments&);
void Info(const std::filesystem::path&, const Arguments&);
void Import(const std::filesystem::path&, const Arguments&);
void Adopt(const std::filesystem::path&, const Arguments&);
void Export(const std::filesystem::path&, const Arguments&);
void Freeze(const std::filesystem::path&, const Arguments&);
void Thaw(const std::filesystem::path&, const Arguments&);
void Restart(const std::filesystem::path&, const Arguments&);
void Logon(const std::filesystem::path&, const Arguments&);
void ShortNames(const std::filesystem::path&, const Arguments&);
void ProtectionStatus(const std::filesystem::path&, const Arguments&);

void List(const std::filesystem::path&, const Arguments&);
void Cat(const std::filesystem::path&, const Arguments&);
void Put(const std::filesystem::path&, const Arguments&);
void Get(const std::filesystem::path&, const Arguments&);
void MakeDirectory(const std::filesystem::path&, const Arguments&);
void Remove(const std::filesystem::path&, const Arguments&);
void Link(const std::filesystem::path&, const Arguments&);
void Attributes(const std::filesystem::path&, const Arguments&);
void SetDescriptor(const std::filesystem::path&, const Arguments&);
void SetTimes(const std::filesystem::path&, const Arguments&);
void Stat(const std::filesystem::path&, const Arguments&);

void Profile(const std::filesystem::path&, const Arguments&);
void Session(const std::filesystem::path&, const Arguments&);

void Registry(const std::filesystem::path&, const Arguments&);
void Service(const std::filesystem::path&, const Arguments&);
void Share(const std::filesystem::path&, const Arguments&);

}  // namespace workstation
