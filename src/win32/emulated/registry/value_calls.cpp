// Values of keys, and hives loaded by programs.
#include <algorithm>
#include <cstring>

#include "win32/emulated/registry/key_object.h"

namespace emulated {

using win32::DWORD;

namespace {

constexpr DWORD kNoAccess = 998;  // ERROR_NOACCESS
constexpr std::u16string_view kLinkValue = u"SymbolicLinkValue";

std::u16string_view NameOf(const char16_t* name) { return name ? std::u16string_view(name) : std::u16string_view(); }

// Data as the calls hand it out: `size` is the room and then what there is. Nothing is added, a terminator neither.
DWORD GiveData(const RegistryValue& value, DWORD* type, win32::BYTE* data, DWORD* size) {
  if (type) *type = value.type;
  if (!size) return win32::ERROR_SUCCESS;
  const DWORD room = *size;
  *size = static_cast<DWORD>(value.data.size());
  if (!data) return win32::ERROR_SUCCESS;
  if (room < value.data.size()) return win32::ERROR_MORE_DATA;
  std::copy(value.data.begin(), value.data.end(), data);
  return win32::ERROR_SUCCESS;
}

// Where a hive is loaded: the name that Registry::LoadHive takes. 87 unless `handle` is a root; 1314 without the
// privileges.
DWORD MountPath(win32::HKEY handle, const char16_t* subKey, std::u16string& path) {
  KeyArgument root;
  if (const DWORD error = FindKey(handle, root)) return error;
  const bool machineRoot = root.path == u"MACHINE";
  if (!subKey || !*subKey || (!machineRoot && root.path != u"USER")) return win32::ERROR_INVALID_PARAMETER;
  const Token& token = Machine::Current().EffectiveToken();
  if (!token.PrivilegeEnabled(Privilege::Backup) || !token.PrivilegeEnabled(Privilege::Restore))
    return win32::ERROR_PRIVILEGE_NOT_HELD;
  path = (machineRoot ? u"HKLM\\" : u"HKU\\") + std::u16string(subKey);
  return win32::ERROR_SUCCESS;
}

bool IsString(DWORD type) {
  return type == win32::REG_SZ || type == win32::REG_EXPAND_SZ || type == win32::REG_MULTI_SZ;
}

// The size that is stored of a text: with the terminator that its size leaves out, when one stands right behind. The
// look at a text that does not end with one goes past what the caller has counted, as Windows' own does.
DWORD SizeWithTerminator(DWORD type, const win32::BYTE* data, DWORD size) {
  constexpr DWORD kUnit = sizeof(char16_t);
  if (!IsString(type) || size < kUnit) return size;
  const auto isZero = [data](DWORD unit) { return data[unit * kUnit] == 0 && data[unit * kUnit + 1] == 0; };
  const DWORD last = size / kUnit - 1;  // that is counted whole
  return !isZero(last) && isZero(last + 1) ? size + kUnit : size;
}

DWORD SetValue(win32::HKEY handle, std::u16string_view name, DWORD type, const win32::BYTE* data, DWORD size) {
  if (name.size() > kLongestValueName) return win32::ERROR_INVALID_PARAMETER;
  if (!data && size != 0) return kNoAccess;
  KeyArgument argument;
  if (const DWORD error = FindKey(handle, win32::KEY_SET_VALUE, argument)) return error;
  Machine& machine = Machine::Current();
  HiveKey& key = *argument.key;
  const UpCase& upCase = machine.registry().upCase();
  // A link has its target and nothing else.
  if (key.IsLink() && (type != win32::REG_LINK || upCase(name) != upCase(kLinkValue)))
    return win32::ERROR_ACCESS_DENIED;
  RegistryValue* value = key.Value(name, upCase);
  if (!value) value = &key.Values().emplace_back(RegistryValue{std::u16string(name), type, {}});
  const ByteView bytes(data, SizeWithTerminator(type, data, size));
  value->type = type;
  value->data.assign(bytes.begin(), bytes.end());
  key.hive->Touch(key, machine.Now());
  return win32::ERROR_SUCCESS;
}

}  // namespace

}  // namespace emulated

namespace win32 {

using namespace emulated;

LSTATUS RegQueryValueExW(HKEY hKey, const char16_t* lpValueName, DWORD* lpReserved, DWORD* lpType, BYTE* lpData,
                         DWORD* lpcbData) {
  WIN32_CALL(hKey, lpValueName);
  if (call.Refused()) return call.Code(call.error());
  if (lpReserved || (lpData && !lpcbData)) return call.Code(ERROR_INVALID_PARAMETER);
  KeyArgument argument;
  if (const DWORD error = FindKey(hKey, KEY_QUERY_VALUE, argument)) return call.Code(error);
  const RegistryValue* const value = argument.key->Value(NameOf(lpValueName), Machine::Current().registry().upCase());
  return call.Code(value ? GiveData(*value, lpType, lpData, lpcbData) : ERROR_FILE_NOT_FOUND);
}

LSTATUS RegEnumValueW(HKEY hKey, DWORD dwIndex, char16_t* lpValueName, DWORD* lpcchValueName, DWORD* lpReserved,
                      DWORD* lpType, BYTE* lpData, DWORD* lpcbData) {
  WIN32_CALL(hKey, dwIndex);
  if (call.Refused()) return call.Code(call.error());
  if (!lpValueName || !lpcchValueName || lpReserved || (lpData && !lpcbData)) return call.Code(ERROR_INVALID_PARAMETER);
  KeyArgument argument;
  if (const DWORD error = FindKey(hKey, KEY_QUERY_VALUE, argument)) return call.Code(error);
  if (dwIndex >= argument.key->Values().size()) return call.Code(ERROR_NO_MORE_ITEMS);
  const RegistryValue& value = argument.key->Values()[dwIndex];
  if (value.name.size() >= *lpcchValueName) {
    GiveData(value, lpType, nullptr, lpcbData);
    return call.Code(ERROR_MORE_DATA);
  }
  std::copy_n(value.name.c_str(), value.name.size() + 1, lpValueName);
  *lpcchValueName = static_cast<DWORD>(value.name.size());
  return call.Code(GiveData(value, lpType, lpData, lpcbData));
}

LSTATUS RegSetValueExW(HKEY hKey, const char16_t* lpValueName, DWORD Reserved, DWORD dwType, const BYTE* lpData,
                       DWORD cbData) {
  WIN32_CALL(hKey, lpValueName, dwType, cbData);
  if (call.Refused()) return call.Code(call.error());
  return call.Code(Reserved != 0 ? ERROR_INVALID_PARAMETER
                                 : SetValue(hKey, NameOf(lpValueName), dwType, lpData, cbData));
}

LSTATUS RegDeleteValueW(HKEY hKey, const char16_t* lpValueName) {
  WIN32_CALL(hKey, lpValueName);
  if (call.Refused()) return call.Code(call.error());
  KeyArgument argument;
  if (const DWORD error = FindKey(hKey, KEY_SET_VALUE, argument)) return call.Code(error);
  Machine& machine = Machine::Current();
  HiveKey& key = *argument.key;
  const RegistryValue* const value = key.Value(NameOf(lpValueName), machine.registry().upCase());
  if (!value) return call.Code(ERROR_FILE_NOT_FOUND);
  key.Values().erase(key.Values().begin() + (value - key.Values().data()));
  key.hive->Touch(key, machine.Now());
  return call.Code(ERROR_SUCCESS);
}

LSTATUS RegLoadKeyW(HKEY hKey, const char16_t* lpSubKey, const char16_t* lpFile) {
  WIN32_CALL(hKey, lpSubKey, lpFile);
  if (call.Refused()) return call.Code(call.error());
  if (!lpFile || !*lpFile) return call.Code(ERROR_INVALID_PARAMETER);
  std::u16string path;
  if (const DWORD error = MountPath(hKey, lpSubKey, path)) return call.Code(error);
  return call.Code(Machine::Current().registry().LoadHive(path, lpFile));
}

LSTATUS RegUnLoadKeyW(HKEY hKey, const char16_t* lpSubKey) {
  WIN32_CALL(hKey, lpSubKey);
  if (call.Refused()) return call.Code(call.error());
  std::u16string path;
  if (const DWORD error = MountPath(hKey, lpSubKey, path)) return call.Code(error);
  return call.Code(Machine::Current().registry().UnloadHive(path));
}

}  // namespace win32
