#include "profiles/redirection_notes.h"

#include <algorithm>
#include <exception>
#include <string_view>
#include <vector>

#include "records/registry_text.h"
#include "report/log.h"
#include "win32/win32.h"

namespace {

constexpr const char16_t* kNotesKey = u"SOFTWARE\\Velmora\\Quillbay\\ProfileRedirection";
constexpr const char16_t* kRegistryLocation = u"RegistryLocation";
constexpr const char16_t* kMonitoredKey = u"MonitoredKey";
using Texts = std::vector<std::u16string>;

const char16_t* NameOf(ProfileFolder which) {
  if (which == ProfileFolder::ProfilesDirectory) return u"NewProfiles";
  return which == ProfileFolder::Default ? u"Default" : u"Public";
}

// The texts up to the first empty one. Those of another type are none.
Texts TextsOf(const RegistryValue& value) {
  Texts texts;
  if (value.type != win32::REG_MULTI_SZ) return texts;
  const std::u16string all = UnitsOf(value);
  for (std::u16string_view rest = all; !rest.empty() && rest.front() != u'\0';) {
    const std::size_t end = std::min(rest.find(u'\0'), rest.size());
    texts.emplace_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return texts;
}

RegistryValue ValueOf(const Texts& texts) {
  std::u16string all;
  for (const std::u16string& text : texts)
    if (!text.empty()) all += text + u'\0';
  // TextValue adds the zero that ends them all.
  return TextValue(all, win32::REG_MULTI_SZ);
}

bool Read(ProfileFolder which, Texts& texts) {
  texts.clear();
  RegistryValue value;
  const win32::LSTATUS error = ReadMachineValue(kNotesKey, NameOf(which), value, win32::KEY_WOW64_32KEY);
  if (error == win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND}) return true;
  if (error == 0) {
    texts = TextsOf(value);
    return true;
  }
  return LogFailure(u"#ERROR: Unable to read what is noted of redirected profiles in registry.");
}

bool Write(ProfileFolder which, const Texts& texts) {
  win32::UniqueKey key;
  if (win32::RegCreateKeyExW(win32::HKEY_LOCAL_MACHINE, kNotesKey, 0, nullptr, win32::REG_OPTION_NON_VOLATILE,
                             win32::KEY_SET_VALUE | win32::KEY_WOW64_32KEY, nullptr, key.put(), nullptr) == 0 &&
      WriteRegistryValue(key.get(), NameOf(which), ValueOf(texts)) == 0)
    return true;
  return LogFailure(u"#ERROR: Unable to note in registry where profiles are redirected to.");
}

}  // namespace

bool ReadNote(std::optional<NewProfilesNote>& note) try {
  note.reset();
  Texts texts;
  if (!Read(ProfileFolder::ProfilesDirectory, texts)) return false;
  if (texts.size() < 2) return true;
  const auto says = [&](const char16_t* word) {
    return std::find(texts.begin() + 2, texts.end(), word) != texts.end();
  };
  note = NewProfilesNote{texts[0], texts[1], says(kRegistryLocation), says(kMonitoredKey)};
  return true;
} catch (const std::exception&) {
  return false;
}

bool WriteNote(const NewProfilesNote& note) try {
  return Write(ProfileFolder::ProfilesDirectory,
               {note.home, note.location, note.setsRegistryLocation ? kRegistryLocation : u"",
                note.monitorsProfileList ? kMonitoredKey : u""});
} catch (const std::exception&) {
  return false;
}

bool ReadNote(ProfileFolder which, std::optional<SharedProfileNote>& note) try {
  note.reset();
  Texts texts;
  if (!Read(which, texts)) return false;
  if (texts.size() >= 2) note = SharedProfileNote{texts[0], texts[1], texts.size() > 2 ? texts[2] : std::u16string()};
  return true;
} catch (const std::exception&) {
  return false;
}

bool WriteNote(ProfileFolder which, const SharedProfileNote& note) try {
  return Write(which, {note.original, note.copy, note.volume});
} catch (const std::exception&) {
  return false;
}

void DropNote(ProfileFolder which) {
  win32::UniqueKey key;
  win32::LSTATUS error = win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kNotesKey, 0,
                                              win32::KEY_SET_VALUE | win32::KEY_WOW64_32KEY, key.put());
  if (error == 0) error = win32::RegDeleteValueW(key.get(), NameOf(which));
  if (error != 0 && error != win32::LSTATUS{win32::ERROR_FILE_NOT_FOUND})
    Log(u"#INFO: Unable to remove what is noted of redirected profiles in registry.");
}
