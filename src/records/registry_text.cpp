#include "records/registry_text.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "win32/win32.h"

namespace {

// Empty when Windows cannot tell.
std::u16string Expand(const std::u16string& text) {
  std::u16string expanded(win32::MAX_PATH, u'\0');
  for (int attempt = 0; attempt < 2; ++attempt) {
    const auto room = static_cast<win32::DWORD>(expanded.size());
    const win32::DWORD size = win32::ExpandEnvironmentStringsW(text.c_str(), expanded.data(), room);
    if (size == 0) return {};
    if (size <= room) return expanded.c_str();  // the terminator is counted
    expanded.resize(size);
  }
  return {};
}

}  // namespace

// The value may grow between asking for its size and reading it: one more try at the new size.
win32::LSTATUS ReadRegistryValue(win32::HKEY key, const char16_t* name, RegistryValue& value) {
  RegistryValue read;
  win32::DWORD size = 0;
  win32::LSTATUS result = win32::RegQueryValueExW(key, name, nullptr, &read.type, nullptr, &size);
  for (int attempt = 0; attempt < 2 && result == 0; ++attempt) {
    read.data.assign(std::max<win32::DWORD>(size, 1), 0);
    result = win32::RegQueryValueExW(key, name, nullptr, &read.type, read.data.data(), &size);
    if (result == 0) {
      read.data.resize(size);
      value = std::move(read);
      return 0;
    }
    if (result == win32::LSTATUS{win32::ERROR_MORE_DATA} && attempt == 0) result = 0;
  }
  return result;
}

// Behind a text whose size leaves its terminator out Windows looks for one and stores it, too. What stands behind the
// value here is ours and no terminator: a value that somebody stored without one is put back as it was, and one that is
// to have it has it among its bytes.
win32::LSTATUS WriteRegistryValue(win32::HKEY key, const char16_t* name, const RegistryValue& value) {
  std::vector<win32::BYTE> data = value.data;
  data.insert(data.end(), sizeof(char16_t), win32::BYTE{0xFF});
  return win32::RegSetValueExW(key, name, 0, value.type, data.data(), static_cast<win32::DWORD>(value.data.size()));
}

win32::LSTATUS ReadMachineValue(const std::u16string& key, const char16_t* name, RegistryValue& value,
                                win32::ACCESS_MASK view) {
  win32::UniqueKey opened;
  const win32::LSTATUS result =
      win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, key.c_str(), 0, win32::KEY_QUERY_VALUE | view, opened.put());
  return result == 0 ? ReadRegistryValue(opened.get(), name, value) : result;
}

win32::LSTATUS WriteMachineValue(const std::u16string& key, const char16_t* name, const RegistryValue& value) {
  win32::UniqueKey opened;
  const win32::LSTATUS result =
      win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, key.c_str(), 0, win32::KEY_SET_VALUE, opened.put());
  return result == 0 ? WriteRegistryValue(opened.get(), name, value) : result;
}

bool IsText(const RegistryValue& value) { return value.type == win32::REG_SZ || value.type == win32::REG_EXPAND_SZ; }

std::u16string UnitsOf(const RegistryValue& value) {
  std::u16string units(value.data.size() / sizeof(char16_t), u'\0');
  std::memcpy(units.data(), value.data.data(), units.size() * sizeof(char16_t));
  return units;
}

std::u16string RawText(const RegistryValue& value) {
  if (!IsText(value)) return {};
  std::u16string text = UnitsOf(value);
  text.resize(std::min(text.find(u'\0'), text.size()));
  return text;
}

std::u16string ExpandedText(const RegistryValue& value) {
  const std::u16string text = RawText(value);
  return value.type == win32::REG_EXPAND_SZ && !text.empty() ? Expand(text) : text;
}

RegistryValue TextValue(const std::u16string& text, win32::DWORD type) {
  RegistryValue value{type, std::vector<win32::BYTE>((text.size() + 1) * sizeof(char16_t))};
  std::memcpy(value.data.data(), text.c_str(), value.data.size());
  return value;
}
