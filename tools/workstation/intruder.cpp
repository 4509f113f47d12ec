#include "workstation/intruder.h"

#include <charconv>
#include <utility>
#include <vector>

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/security/token.h"
#include "win32/emulated/text.h"

namespace workstation {

namespace {

constexpr win32::DWORD kProcess = 0x7A8;

// The token of a user in the place of the program's.
class AsUser {
 public:
  explicit AsUser(emulated::Machine& machine)
      : machine_(machine),
        process_(std::exchange(machine.process.token,
                               emulated::MakeUserToken(emulated::SidFromText(u"S-1-5-21-1-2-3-1007")))),
        thread_(std::exchange(machine.threadToken, nullptr)) {}
  ~AsUser() {
    machine_.process.token = process_;
    machine_.threadToken = thread_;
  }
  AsUser(const AsUser&) = delete;
  AsUser& operator=(const AsUser&) = delete;

 private:
  emulated::Machine& machine_;
  const std::shared_ptr<emulated::Token> process_, thread_;
};

// The reparse data of a junction: head, offsets and lengths of the names, the names.
emulated::Bytes JunctionData(const std::u16string& target) {
  const std::u16string name = u"\\??\\" + target;
  const auto length = static_cast<std::uint16_t>(name.size() * 2);
  std::vector<std::uint16_t> words{0x0003, 0xA000, static_cast<std::uint16_t>(length + 12), 0,
                                   0,      length, static_cast<std::uint16_t>(length + 2),  0};
  words.insert(words.end(), name.begin(), name.end());
  words.insert(words.end(), 2, 0);
  emulated::Bytes bytes;
  for (const std::uint16_t word : words) {
    bytes.push_back(static_cast<std::uint8_t>(word));
    bytes.push_back(static_cast<std::uint8_t>(word >> 8));
  }
  return bytes;
}

void DeleteFile(emulated::FileService& files, const std::u16string& path) {
  const auto file = files.OpenForeign(kProcess, path, win32::DELETE, emulated::kAnyShare);
  if (!file) return;
  files.MarkForDeletion(*file);
  files.CloseForeign(file);
}

bool MakeJunction(emulated::Machine& machine, const Intrusion& intrusion) {
  const AsUser user(machine);
  emulated::FileService& files = machine.files();
  const auto folder = files.OpenForeign(kProcess, intrusion.folder, win32::FILE_WRITE_ATTRIBUTES, emulated::kAnyShare);
  if (!folder) return false;
  emulated::Volume& volume = *folder->volume->volume;
  std::vector<emulated::DirectoryEntry> entries;
  volume.List(folder->file, entries);
  for (const emulated::DirectoryEntry& entry : entries) DeleteFile(files, intrusion.folder + u'\\' + entry.name);
  entries.clear();
  const bool done = folder->isDirectory && volume.List(folder->file, entries) == 0 && entries.empty() &&
                    volume.SetReparse(folder->file, JunctionData(intrusion.target)) == 0;
  files.ForgetPaths();
  files.CloseForeign(folder);
  return done;
}

}  // namespace

bool ParseIntrusion(const std::string& text, Intrusion& intrusion) {
  std::vector<std::string> words(1);
  for (const char c : text) {
    if (c == '|')
      words.emplace_back();
    else
      words.back() += c;
  }
  if (words.size() != 4) return false;
  const char* const end = words[1].data() + words[1].size();
  if (std::from_chars(words[1].data(), end, intrusion.number).ptr != end || words[1].empty()) return false;
  intrusion.call = words[0];
  intrusion.folder = emulated::Utf16(words[2]);
  intrusion.target = emulated::Utf16(words[3]);
  return true;
}

void Intrude(emulated::Machine& machine, const Intrusion& intrusion, bool* happened) {
  machine.gate.Observe(
      [&machine, intrusion, happened, met = std::uint64_t{0}](const char* name, std::uint64_t) mutable {
        if (!intrusion.call.empty() && intrusion.call != name) return;
        if (++met == intrusion.number && MakeJunction(machine, intrusion) && happened) *happened = true;
      });
}

}  // namespace workstation
