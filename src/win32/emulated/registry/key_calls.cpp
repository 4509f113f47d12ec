// Keys: opening, creating, deleting, what they contain.
#include <algorithm>

#include "win32/emulated/registry/key_object.h"
#include "win32/emulated/security/access.h"

namespace emulated {

using win32::DWORD;
using win32::HKEY;

namespace {

// Options that no program text needs.
constexpr DWORD kOptionCreateLink = 2, kOptionBackupRestore = 4;
constexpr DWORD kViewBits = win32::KEY_WOW64_32KEY | win32::KEY_WOW64_64KEY;

// Of a predefined key, below \REGISTRY; empty for any other handle.
std::u16string PredefinedPath(HKEY handle) {
  if (handle == win32::HKEY_LOCAL_MACHINE) return u"MACHINE";
  if (handle == win32::HKEY_USERS) return u"USER";
  if (handle == win32::HKEY_CURRENT_USER) return Machine::Current().registry().CurrentUserPath();
  // The machine's classes; a user's own are not merged in.
  if (handle == win32::HKEY_CLASSES_ROOT) return u"MACHINE\\SOFTWARE\\Classes";
  return {};
}

DWORD CheckKey(const HiveKey& key, DWORD desired, bool backupIntent, win32::ACCESS_MASK& granted) {
  return CheckAccess(Machine::Current().EffectiveToken(), *key.security, desired, kKeyMapping, backupIntent,
                     std::nullopt, granted);
}

bool MayOnKey(const HiveKey& key, DWORD rights) {
  win32::ACCESS_MASK granted = 0;
  return CheckKey(key, rights, false, granted) == 0;
}

HKEY NewKeyHandle(std::shared_ptr<HiveKey> key, std::u16string path, bool view32, win32::ACCESS_MASK granted) {
  auto object = std::make_shared<KeyObject>();
  object->key = std::move(key);
  object->path = std::move(path);
  object->view32 = view32;
  return NewHandle(std::move(object), granted);
}

bool IsEmpty(const char16_t* text) { return !text || !*text; }

// The place that a sub-key of an open key names; 161 for a name that begins with a backslash.
DWORD FindPlace(const KeyArgument& parent, const char16_t* subKey, bool view32, bool openLink, RegistryPlace& place) {
  if (!IsEmpty(subKey) && *subKey == u'\\') return win32::ERROR_BAD_PATHNAME;
  const std::u16string path = IsEmpty(subKey) ? parent.path : parent.path + u"\\" + subKey;
  return Machine::Current().registry().Walk(path, view32, openLink || (IsEmpty(subKey) && parent.key->IsLink()), place);
}

DWORD OpenPlace(const RegistryPlace& place, DWORD options, DWORD desired, bool view32, HKEY* result) {
  if (!place.key) return win32::ERROR_FILE_NOT_FOUND;
  win32::ACCESS_MASK granted = 0;
  if (const DWORD error = CheckKey(*place.key, desired & ~kViewBits, (options & kOptionBackupRestore) != 0, granted))
    return error;
  *result = NewKeyHandle(place.key, place.path, view32, granted);
  return win32::ERROR_SUCCESS;
}

DWORD OpenKey(HKEY handle, const char16_t* subKey, DWORD options, DWORD desired, HKEY* result) {
  if (!result) return win32::ERROR_INVALID_PARAMETER;
  *result = nullptr;
  if ((desired & kViewBits) == kViewBits) return win32::ERROR_INVALID_PARAMETER;
  KeyArgument parent;
  if (const DWORD error = FindKey(handle, parent)) return error;
  if (parent.predefined && IsEmpty(subKey)) {
    *result = handle;
    return win32::ERROR_SUCCESS;
  }
  const bool view32 = parent.view32 || (desired & win32::KEY_WOW64_32KEY) != 0;
  RegistryPlace place;
  if (const DWORD error = FindPlace(parent, subKey, view32, (options & win32::REG_OPTION_OPEN_LINK) != 0, place))
    return error;
  return OpenPlace(place, options, desired, view32, result);
}

struct NewKey {
  DWORD options = 0;
  DWORD desired = 0;
  std::u16string className;
  std::optional<Bytes> descriptor;  // the creator's
};

// Creates what is missing; `place` then leads to the new key.
DWORD CreateMissing(RegistryPlace& place, const NewKey& request) {
  Machine& machine = Machine::Current();
  const bool isVolatile = (request.options & win32::REG_OPTION_VOLATILE) != 0,
             isLink = (request.options & kOptionCreateLink) != 0;
  if (!place.deepest->parent && place.deepest->IsVolatile()) return win32::ERROR_INVALID_PARAMETER;
  const auto impossible = [](const std::u16string& name) { return name.size() > kLongestKeyName; };
  const auto depth =
      static_cast<std::size_t>(std::count(place.path.begin(), place.path.end(), u'\\')) + place.missing.size();
  if (std::any_of(place.missing.begin(), place.missing.end(), impossible) || depth > kDeepestKey)
    return win32::ERROR_INVALID_PARAMETER;
  if (place.deepest->IsVolatile() && !isVolatile) return win32::ERROR_CHILD_MUST_BE_VOLATILE;
  if ((request.desired & win32::ACCESS_SYSTEM_SECURITY) != 0 &&
      !machine.EffectiveToken().PrivilegeEnabled(Privilege::Security))
    return win32::ERROR_PRIVILEGE_NOT_HELD;

  Hive& hive = *place.deepest->hive;
  for (std::size_t i = 0; i < place.missing.size(); ++i) {
    HiveKey& parent = *place.deepest;
    const bool last = i + 1 == place.missing.size();
    if (!MayOnKey(parent, win32::KEY_CREATE_SUB_KEY | (last && isLink ? win32::KEY_CREATE_LINK : 0)))
      return win32::ERROR_ACCESS_DENIED;
    const std::optional<ByteView> creator =
        last && request.descriptor ? std::optional<ByteView>(*request.descriptor) : std::nullopt;
    if (const DWORD error = CheckCreator(machine.EffectiveToken(), creator)) return error;
    Bytes security =
        NewObjectDescriptor(machine.EffectiveToken(), ByteView(*parent.security), creator, true, kKeyMapping);
    if (security.empty()) return win32::ERROR_INVALID_SECURITY_DESCR;
    place.deepest = hive.AddKey(parent, place.missing[i], std::make_shared<const Bytes>(std::move(security)),
                                isVolatile, machine.Now());
    place.path += u"\\" + place.missing[i];
  }
  place.key = place.deepest;
  place.key->className = request.className;
  if (isLink) place.key->flags |= kKeySymbolicLink;
  return win32::ERROR_SUCCESS;
}

// Whoever creates a key has it as he asked for it, whatever its descriptor says.
win32::ACCESS_MASK CreatorAccess(DWORD desired) {
  if ((desired & win32::MAXIMUM_ALLOWED) != 0) return win32::KEY_ALL_ACCESS;
  return MapGeneric(desired & ~kViewBits, kKeyMapping);
}

DWORD CreateKey(HKEY handle, const char16_t* subKey, const NewKey& request, HKEY* result, DWORD* disposition) {
  KeyArgument parent;
  if (const DWORD error = FindKey(handle, parent)) return error;
  const bool view32 = parent.view32 || (request.desired & win32::KEY_WOW64_32KEY) != 0;
  const bool openLink = (request.options & (win32::REG_OPTION_OPEN_LINK | kOptionCreateLink)) != 0;
  RegistryPlace place;
  if (const DWORD error = FindPlace(parent, subKey, view32, openLink, place)) return error;
  const bool existed = place.key != nullptr;
  if (existed && (request.options & kOptionCreateLink) != 0) return win32::ERROR_ALREADY_EXISTS;
  if (existed) {
    if (const DWORD error = OpenPlace(place, request.options, request.desired, view32, result)) return error;
  } else {
    if (const DWORD error = CreateMissing(place, request)) return error;
    *result = NewKeyHandle(place.key, place.path, view32, CreatorAccess(request.desired));
  }
  if (disposition) *disposition = existed ? win32::REG_OPENED_EXISTING_KEY : win32::REG_CREATED_NEW_KEY;
  return win32::ERROR_SUCCESS;
}

DWORD DeleteKey(HKEY handle, const char16_t* subKey) {
  if (!subKey) return win32::ERROR_INVALID_PARAMETER;
  KeyArgument parent;
  if (const DWORD error = FindKey(handle, parent)) return error;
  RegistryPlace place;
  if (const DWORD error = FindPlace(parent, subKey, parent.view32, true, place)) return error;
  if (!place.key) return win32::ERROR_FILE_NOT_FOUND;
  const bool isRoot =
      !place.key->parent || place.path.find(u'\\') == place.path.npos;  // of a hive, or MACHINE and USER
  if (isRoot || !place.key->Children().empty() || !MayOnKey(*place.key, win32::DELETE))
    return win32::ERROR_ACCESS_DENIED;
  place.key->hive->RemoveKey(*place.key, Machine::Current().Now());
  return win32::ERROR_SUCCESS;
}

win32::FILETIME ToFileTime(FileTime time) {
  const auto ticks = static_cast<std::uint64_t>(time);
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// Copies a text with its terminator; `units` is the size of the buffer and then the length. False: too small.
bool CopyText(const std::u16string& text, char16_t* buffer, DWORD* units) {
  if (text.size() >= *units) return false;
  std::copy_n(text.c_str(), text.size() + 1, buffer);
  *units = static_cast<DWORD>(text.size());
  return true;
}

}  // namespace

DWORD FindKey(HKEY handle, KeyArgument& argument) {
  if (const std::u16string path = PredefinedPath(handle); !path.empty()) {
    RegistryPlace place;
    if (const DWORD error = Machine::Current().registry().Walk(path, false, false, place)) return error;
    if (!place.key) return win32::ERROR_FILE_NOT_FOUND;
    argument = {place.key, place.path, false, true, 0};
    if (CheckKey(*place.key, win32::MAXIMUM_ALLOWED, false, argument.granted) != 0) argument.granted = 0;
    return win32::ERROR_SUCCESS;
  }
  const auto object = ObjectOf<KeyObject>(handle);
  if (!object) return win32::ERROR_INVALID_HANDLE;
  Machine& machine = Machine::Current();
  argument = {object->key, object->path, object->view32, false,
              machine.objects.Entry(handle, machine.process.id)->granted};
  return object->key->hive ? win32::ERROR_SUCCESS : win32::ERROR_KEY_DELETED;
}

DWORD FindKey(HKEY handle, win32::ACCESS_MASK rights, KeyArgument& argument) {
  if (const DWORD error = FindKey(handle, argument)) return error;
  return argument.May(rights) ? win32::ERROR_SUCCESS : win32::ERROR_ACCESS_DENIED;
}

}  // namespace emulated

namespace win32 {

using namespace emulated;

LSTATUS RegOpenKeyExW(HKEY hKey, const char16_t* lpSubKey, DWORD ulOptions, DWORD samDesired, HKEY* phkResult) {
  WIN32_CALL(hKey, lpSubKey, ulOptions, samDesired);
  if (call.Refused()) return call.Code(call.error());
  return call.Code(OpenKey(hKey, lpSubKey, ulOptions, samDesired, phkResult));
}

LSTATUS RegCreateKeyExW(HKEY hKey, const char16_t* lpSubKey, DWORD Reserved, char16_t* lpClass, DWORD dwOptions,
                        DWORD samDesired, const SECURITY_ATTRIBUTES* lpSecurityAttributes, HKEY* phkResult,
                        DWORD* lpdwDisposition) {
  WIN32_CALL(hKey, lpSubKey, dwOptions, samDesired);
  if (call.Refused()) return call.Code(call.error());
  if (!phkResult) return call.Code(ERROR_BADKEY);
  constexpr DWORD kOptions = REG_OPTION_VOLATILE | kOptionCreateLink | kOptionBackupRestore | REG_OPTION_OPEN_LINK;
  if (!lpSubKey || Reserved != 0 || (dwOptions & ~kOptions) != 0 || (samDesired & kViewBits) == kViewBits)
    return call.Code(ERROR_INVALID_PARAMETER);
  *phkResult = nullptr;
  NewKey request{dwOptions, samDesired, lpClass ? lpClass : u"", std::nullopt};
  if (lpSecurityAttributes && lpSecurityAttributes->lpSecurityDescriptor) {
    request.descriptor = SelfRelative(lpSecurityAttributes->lpSecurityDescriptor);
    if (request.descriptor->empty()) return call.Code(ERROR_INVALID_SECURITY_DESCR);
  }
  return call.Code(CreateKey(hKey, lpSubKey, request, phkResult, lpdwDisposition));
}

LSTATUS RegCloseKey(HKEY hKey) {
  WIN32_CALL(hKey);
  if (call.Refused()) return call.Code(call.error());
  if (!PredefinedPath(hKey).empty()) return call.Code(ERROR_SUCCESS);
  if (!ObjectOf<KeyObject>(hKey)) return call.Code(ERROR_INVALID_HANDLE);
  Machine& machine = Machine::Current();
  machine.objects.Close(hKey, machine.process.id);
  return call.Code(ERROR_SUCCESS);
}

LSTATUS RegQueryInfoKeyW(HKEY hKey, char16_t* lpClass, DWORD* lpcchClass, DWORD* lpReserved, DWORD* lpcSubKeys,
                         DWORD* lpcbMaxSubKeyLen, DWORD* lpcbMaxClassLen, DWORD* lpcValues, DWORD* lpcbMaxValueNameLen,
                         DWORD* lpcbMaxValueLen, DWORD* lpcbSecurityDescriptor, FILETIME* lpftLastWriteTime) {
  WIN32_CALL(hKey);
  if (call.Refused()) return call.Code(call.error());
  if (lpReserved || (lpClass && !lpcchClass)) return call.Code(ERROR_INVALID_PARAMETER);
  KeyArgument argument;
  if (const DWORD error = FindKey(hKey, KEY_QUERY_VALUE, argument)) return call.Code(error);
  HiveKey& key = *argument.key;
  std::size_t subKey = 0, className = 0, valueName = 0, data = 0;
  for (const auto& child : key.Children()) {
    subKey = std::max(subKey, child->name.size());
    className = std::max(className, (child->mounted ? child->mounted->root : child)->className.size());
  }
  for (const RegistryValue& value : key.Values()) {
    valueName = std::max(valueName, value.name.size());
    data = std::max(data, value.data.size());
  }
  const auto give = [](DWORD* to, std::size_t number) {
    if (to) *to = static_cast<DWORD>(number);
  };
  give(lpcSubKeys, key.Children().size());
  give(lpcbMaxSubKeyLen, subKey);
  give(lpcbMaxClassLen, className);
  give(lpcValues, key.Values().size());
  give(lpcbMaxValueNameLen, valueName);
  give(lpcbMaxValueLen, data);
  give(lpcbSecurityDescriptor, key.security->size());
  if (lpftLastWriteTime) *lpftLastWriteTime = ToFileTime(key.lastWrite);
  const bool fits = !lpClass || CopyText(key.className, lpClass, lpcchClass);
  give(lpcchClass, key.className.size());
  return call.Code(fits ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER);
}

LSTATUS RegEnumKeyExW(HKEY hKey, DWORD dwIndex, char16_t* lpName, DWORD* lpcchName, DWORD* lpReserved,
                      char16_t* lpClass, DWORD* lpcchClass, FILETIME* lpftLastWriteTime) {
  WIN32_CALL(hKey, dwIndex);
  if (call.Refused()) return call.Code(call.error());
  if (!lpName || !lpcchName || lpReserved || (lpClass && !lpcchClass)) return call.Code(ERROR_INVALID_PARAMETER);
  KeyArgument argument;
  if (const DWORD error = FindKey(hKey, KEY_ENUMERATE_SUB_KEYS, argument)) return call.Code(error);
  if (dwIndex >= argument.key->Children().size()) return call.Code(ERROR_NO_MORE_ITEMS);
  const HiveKey& child = *argument.key->Children()[dwIndex];
  const HiveKey& content = child.mounted ? *child.mounted->root : child;
  if (!CopyText(child.name, lpName, lpcchName)) return call.Code(ERROR_MORE_DATA);
  if (lpClass && !CopyText(content.className, lpClass, lpcchClass)) return call.Code(ERROR_MORE_DATA);
  if (lpcchClass) *lpcchClass = static_cast<DWORD>(content.className.size());
  if (lpftLastWriteTime) *lpftLastWriteTime = ToFileTime(content.lastWrite);
  return call.Code(ERROR_SUCCESS);
}

LSTATUS RegEnumKeyW(HKEY hKey, DWORD dwIndex, char16_t* lpName, DWORD cchName) {
  WIN32_CALL(hKey, dwIndex);
  if (call.Refused()) return call.Code(call.error());
  return call.Code(
      static_cast<DWORD>(RegEnumKeyExW(hKey, dwIndex, lpName, &cchName, nullptr, nullptr, nullptr, nullptr)));
}

LSTATUS RegDeleteKeyW(HKEY hKey, const char16_t* lpSubKey) {
  WIN32_CALL(hKey, lpSubKey);
  if (call.Refused()) return call.Code(call.error());
  return call.Code(DeleteKey(hKey, lpSubKey));
}

}  // namespace win32
