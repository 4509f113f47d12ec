#include "win32/emulated/files/delayed_renames.h"

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/files/paths.h"
#include "win32/emulated/files/volume_names.h"
#include "win32/emulated/registry/registry.h"
#include "win32/handle.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr std::u16string_view kKey = u"HKLM\\SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr std::u16string_view kValue = u"PendingFileRenameOperations";
constexpr std::u16string_view kNt = u"\\??\\";

// A list of pairs: from, to. Unlike other values of its type it has empty texts inside: a deletion has an empty `to`.
std::vector<std::u16string> LoadTexts(ByteView data) {
  std::vector<std::u16string> texts;
  std::u16string text;
  for (std::size_t at = 0; at + 1 < data.size(); at += sizeof(char16_t)) {
    if (const auto unit = LoadLittleEndian<char16_t>(data, at)) {
      text += unit;
    } else {
      texts.push_back(std::move(text));
      text.clear();
    }
  }
  if (!text.empty()) texts.push_back(std::move(text));
  if (texts.size() % 2 != 0) texts.pop_back();  // the end of the whole list
  return texts;
}

Bytes StoreTexts(const std::vector<std::u16string>& texts) {
  Bytes data;
  for (const std::u16string& text : texts) {
    for (const char16_t unit : text) AppendLittleEndian(data, unit);
    AppendLittleEndian(data, u'\0');
  }
  AppendLittleEndian(data, u'\0');
  return data;
}

// Windows is starting: nobody has anything open and everything may be done, but a read-only file is not deleted and a
// folder that is not empty stays.
DWORD Remove(Machine& machine, const Location& from) {
  FileInfo info;
  if (const DWORD error = from.volume->volume->Stat(from.file, info)) return error;
  if (info.attributes & win32::FILE_ATTRIBUTE_READONLY) return win32::ERROR_ACCESS_DENIED;
  if (const DWORD error = from.volume->volume->Unlink(from.directory, from.name)) return error;
  machine.files().ForgetPaths();
  machine.files().TouchDirectory(*from.volume, from.directory);
  return 0;
}

DWORD Rename(Machine& machine, const Location& from, const Location& to, bool replace) {
  if (from.volume != to.volume) return win32::ERROR_NOT_SAME_DEVICE;
  if (to.file != 0 && to.file != from.file) {
    if (!replace) return win32::ERROR_ALREADY_EXISTS;
    FileInfo there;
    if (const DWORD error = to.volume->volume->Stat(to.file, there)) return error;
    if (there.attributes & win32::FILE_ATTRIBUTE_DIRECTORY) return win32::ERROR_ACCESS_DENIED;
    if (const DWORD error = Remove(machine, to)) return error;
  }
  if (const DWORD error = from.volume->volume->Rename(from.directory, from.name, to.directory, to.name)) return error;
  machine.files().ForgetPaths();
  machine.files().TouchDirectory(*from.volume, from.directory);
  machine.files().TouchDirectory(*to.volume, to.directory);
  return 0;
}

DWORD CarryOut(Machine& machine, std::u16string_view from, std::u16string_view to) {
  const bool replace = to.starts_with(u'!');
  if (replace) to.remove_prefix(1);
  if (!from.starts_with(kNt) || (!to.empty() && !to.starts_with(kNt))) return win32::ERROR_INVALID_NAME;
  const auto win32Path = [](std::u16string_view path) { return u"\\\\?\\" + std::u16string(path.substr(kNt.size())); };
  Location source, target;
  if (const DWORD error = machine.files().Resolve(win32Path(from), false, source)) return error;
  if (source.file == 0 || source.directory == 0 || !source.stream.empty()) return win32::ERROR_FILE_NOT_FOUND;
  if (to.empty()) return Remove(machine, source);
  if (const DWORD error = machine.files().Resolve(win32Path(to), false, target)) return error;
  if (target.directory == 0 || !target.stream.empty()) return win32::ERROR_ACCESS_DENIED;
  return Rename(machine, source, target, replace);
}

// The caller needs the right to change the value.
DWORD CheckSessionManager() {
  win32::UniqueKey key;
  return static_cast<DWORD>(win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE,
                                                 u"SYSTEM\\CurrentControlSet\\Control\\Session Manager", 0,
                                                 win32::KEY_QUERY_VALUE | win32::KEY_SET_VALUE, key.put()));
}

}  // namespace

DWORD RegisterDelayedRename(const char16_t* from, const char16_t* to, DWORD flags) {
  if (!from || !*from) return win32::ERROR_PATH_NOT_FOUND;
  if (flags & win32::MOVEFILE_COPY_ALLOWED) return win32::ERROR_INVALID_PARAMETER;
  Machine& machine = Machine::Current();
  Location location;
  if (const DWORD error = machine.files().Resolve(from, false, location)) return error;
  if (location.file == 0) return win32::ERROR_FILE_NOT_FOUND;
  if (const DWORD error = CheckSessionManager()) return error;
  const auto value = machine.registry().Query(kKey, kValue);
  std::vector<std::u16string> texts = value ? LoadTexts(value->data) : std::vector<std::u16string>();
  texts.push_back(NtPath(FullPath(from)));
  texts.push_back(to && *to ? (flags & win32::MOVEFILE_REPLACE_EXISTING ? u"!" : u"") + NtPath(FullPath(to))
                            : std::u16string());
  for (std::u16string& text : {std::ref(texts[texts.size() - 2]), std::ref(texts.back())})
    while (text.size() > 7 && text.back() == u'\\') text.pop_back();
  machine.registry().Set(kKey, kValue, win32::REG_MULTI_SZ, StoreTexts(texts));
  return 0;
}

// An operation that cannot be done is passed over; none is tried again at the start after.
void FileService::CarryOutDelayedRenames() {
  const auto value = machine_.registry().Query(kKey, kValue);
  if (!value) return;
  const std::vector<std::u16string> texts = LoadTexts(value->data);
  for (std::size_t i = 0; i + 1 < texts.size(); i += 2)
    if (!texts[i].empty()) CarryOut(machine_, texts[i], texts[i + 1]);
  machine_.registry().DeleteValue(kKey, kValue);
}

}  // namespace emulated
