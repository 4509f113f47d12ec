#include "win32/emulated/registry/registry.h"

#include <algorithm>

#include "win32/emulated/registry/registry_state.h"
#include "win32/emulated/registry/wow64.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"

namespace emulated {

using win32::DWORD;

namespace {

constexpr unsigned kMostLinks = 32;
constexpr std::u16string_view kRegistryPrefix = u"\\REGISTRY\\";
constexpr std::u16string_view kLinkValue = u"SymbolicLinkValue";

// What the roots of the name space allow.
constexpr std::u16string_view kRootDescriptor = u"O:BAG:SYD:(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;WD)(A;CI;KR;;;RC)";
constexpr std::u16string_view kHiveDescriptor =
    u"O:BAG:SYD:PAI(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;BU)(A;CIIO;KA;;;CO)";

std::shared_ptr<const Bytes> SharedDescriptor(std::u16string_view sddl) {
  return std::make_shared<const Bytes>(DescriptorFromText(sddl).value());
}

std::vector<std::u16string> Components(std::u16string_view path) {
  std::vector<std::u16string> names;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find(u'\\'), path.size());
    if (end != 0) names.emplace_back(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return names;
}

// u"HKLM\\X" as u"MACHINE\\X"; nothing for another root.
std::optional<std::u16string> BelowRegistry(std::u16string_view path) {
  struct Root {
    std::u16string_view name, key;
  };
  static constexpr Root roots[] = {{u"HKLM", u"MACHINE"}, {u"HKU", u"USER"}};
  for (const Root& root : roots)
    if (StartsWithAsciiNoCase(path, root.name) && (path.size() == root.name.size() || path[root.name.size()] == u'\\'))
      return std::u16string(root.key) + std::u16string(path.substr(root.name.size()));
  return std::nullopt;
}

// Where a link leads, below \REGISTRY; nothing for a text that is no such path.
std::optional<std::u16string> LinkTarget(HiveKey& link, const UpCase& upCase) {
  const RegistryValue* const value = link.Value(kLinkValue, upCase);
  if (!value || value->type != win32::REG_LINK) return std::nullopt;
  const std::u16string target = value->Text();
  if (!StartsWithAsciiNoCase(target, kRegistryPrefix)) return std::nullopt;
  return target.substr(kRegistryPrefix.size());
}

}  // namespace

Registry::Registry(Machine& machine) : state_(std::make_unique<State>(machine)) { Reset(); }

Registry::~Registry() {
  for (Mount& mount : state_->mounts) Release(mount);
}

std::shared_ptr<const Bytes> MachineHiveSecurity() {
  static const std::shared_ptr<const Bytes> security = SharedDescriptor(kHiveDescriptor);
  return security;
}

Bytes BlankHive(std::u16string_view rootName, FileTime now) {
  return WriteHive(*NewHive(rootName, MachineHiveSecurity(), std::make_shared<const UpCase>(), now), now);
}

// An empty name space: everything that was loaded leaves it.
void Registry::Reset() {
  State& state = *state_;
  for (Mount& mount : state.mounts) Release(mount);
  state.mounts.clear();
  if (state.master) state.master->Abandon();
  const MountedVolume* const system = state.machine.SystemVolume();
  state.upCase = system ? std::make_shared<const UpCase>(*system->volume) : std::make_shared<const UpCase>();
  const FileTime now = state.machine.Now();
  const auto security = SharedDescriptor(kRootDescriptor);
  state.master = NewHive(u"REGISTRY", security, state.upCase, now);
  state.master->root->flags |= kKeyVolatile;
  state.machineRoot = state.master->AddKey(*state.master->root, u"MACHINE", security, true, now);
  state.usersRoot = state.master->AddKey(*state.master->root, u"USER", security, true, now);
}

const UpCase& Registry::upCase() const { return *state_->upCase; }

DWORD Registry::Walk(std::u16string_view path, bool view32, bool openLink, RegistryPlace& place) {
  std::vector<std::u16string> names = Components(RedirectForView(path, view32));
  unsigned links = 0;
  place = {};
  place.deepest = state_->master->root;
  std::size_t next = 0;
  while (next < names.size()) {
    const std::shared_ptr<HiveKey> child = place.deepest->Child(upCase()(names[next]));
    if (!child) {
      place.missing.assign(names.begin() + static_cast<std::ptrdiff_t>(next), names.end());
      return win32::ERROR_SUCCESS;
    }
    ++next;
    if (child->IsLink() && !(openLink && next == names.size())) {
      const auto target = LinkTarget(*child, upCase());
      if (!target || ++links > kMostLinks) return win32::ERROR_FILE_NOT_FOUND;
      std::u16string onward = *target;
      for (; next < names.size(); ++next) onward += u"\\" + names[next];
      names = Components(RedirectForView(onward, view32));
      place.path.clear();
      place.deepest = state_->master->root;
      next = 0;
      continue;
    }
    place.path += (place.path.empty() ? u"" : u"\\") + child->name;
    place.deepest = child->mounted ? child->mounted->root : child;
  }
  place.key = place.deepest;
  return win32::ERROR_SUCCESS;
}

std::u16string Registry::CurrentUserPath() {
  const std::u16string sid = SidToText(state_->machine.EffectiveToken().user);
  return state_->usersRoot->Child(upCase()(sid)) ? u"USER\\" + sid : u"USER\\.DEFAULT";
}

std::shared_ptr<HiveKey> Registry::Find(std::u16string_view path) {
  const auto below = BelowRegistry(path);
  RegistryPlace place;
  return below && Walk(*below, false, false, place) == 0 ? place.key : nullptr;
}

std::shared_ptr<HiveKey> Registry::FindOrCreate(std::u16string_view path) {
  const auto below = BelowRegistry(path);
  RegistryPlace place;
  if (!below || Walk(*below, false, false, place) != 0) return nullptr;
  if (place.key) return place.key;
  Hive* const hive = place.deepest->hive;
  if (hive == state_->master.get()) return nullptr;  // no hive is mounted there
  const auto system = MakeSystemToken();
  std::shared_ptr<HiveKey> key = place.deepest;
  for (const std::u16string& name : place.missing) {
    auto security = std::make_shared<const Bytes>(
        NewObjectDescriptor(*system, ByteView(*key->security), std::nullopt, true, kKeyMapping));
    key = hive->AddKey(*key, name, std::move(security), key->IsVolatile(), state_->machine.Now());
  }
  return key;
}

bool Registry::KeyExists(std::u16string_view path) { return Find(path) != nullptr; }

std::optional<RegistryValue> Registry::Query(std::u16string_view path, std::u16string_view value) {
  const auto key = Find(path);
  const RegistryValue* const found = key ? key->Value(value, upCase()) : nullptr;
  return found ? std::optional(*found) : std::nullopt;
}

std::vector<RegistryValue> Registry::Values(std::u16string_view path) {
  const auto key = Find(path);
  return key ? key->Values() : std::vector<RegistryValue>();
}

std::vector<std::u16string> Registry::SubKeys(std::u16string_view path) {
  std::vector<std::u16string> names;
  if (const auto key = Find(path))
    for (const auto& child : key->Children()) names.push_back(child->name);
  return names;
}

void Registry::Set(std::u16string_view path, std::u16string_view value, DWORD type, ByteView data) {
  const auto key = FindOrCreate(path);
  if (!key) return;
  RegistryValue* found = key->Value(value, upCase());
  if (!found) found = &key->Values().emplace_back(RegistryValue{std::u16string(value), 0, {}});
  found->type = type;
  found->data.assign(data.begin(), data.end());
  key->hive->Touch(*key, state_->machine.Now());
}

bool Registry::IsDirty(std::u16string_view path) {
  const auto key = Find(path);
  return key && key->hive->dirty;
}

void Registry::SetDirty(std::u16string_view path, bool dirty) {
  if (const auto key = Find(path)) key->hive->dirty = dirty;
}

void Registry::SetText(std::u16string_view path, std::u16string_view value, std::u16string_view text, DWORD type) {
  Set(path, value, type, RegistryText(text));
}

void Registry::SetDword(std::u16string_view path, std::u16string_view value, DWORD number) {
  Bytes data;
  AppendLittleEndian(data, number);
  Set(path, value, win32::REG_DWORD, data);
}

void Registry::CreateKey(std::u16string_view path) { FindOrCreate(path); }

bool Registry::DeleteValue(std::u16string_view path, std::u16string_view value) {
  const auto key = Find(path);
  RegistryValue* const found = key ? key->Value(value, upCase()) : nullptr;
  if (!found) return false;
  key->Values().erase(key->Values().begin() + (found - key->Values().data()));
  key->hive->Touch(*key, state_->machine.Now());
  return true;
}

bool Registry::DeleteTree(std::u16string_view path) {
  const auto below = BelowRegistry(path);
  RegistryPlace place;
  if (!below || Walk(*below, false, true, place) != 0 || !place.key) return false;
  // The roots of hives and of the name space stay.
  if (!place.key->parent || place.key->hive == state_->master.get()) return false;
  place.key->hive->RemoveKey(*place.key, state_->machine.Now());
  return true;
}

std::optional<Bytes> Registry::Security(std::u16string_view path) {
  const auto key = Find(path);
  return key ? std::optional(*key->security) : std::nullopt;
}

bool Registry::SetSecurity(std::u16string_view path, ByteView descriptor) {
  const auto key = Find(path);
  if (!key || !IsSoundDescriptor(descriptor)) return false;
  key->security = std::make_shared<const Bytes>(descriptor.begin(), descriptor.end());
  key->hive->Touch(*key, state_->machine.Now());
  return true;
}

void Registry::SelectControlSet() {
  const auto current = Query(u"HKLM\\SYSTEM\\Select", u"Current");
  const auto system = Find(u"HKLM\\SYSTEM");
  if (!system || !current || current->type != win32::REG_DWORD || current->data.size() != 4) return;
  const DWORD number = LoadLittleEndian<std::uint32_t>(current->data, 0);
  std::u16string digits = Utf16(std::to_string(number));
  if (digits.size() < 3) digits.insert(0, 3 - digits.size(), u'0');
  std::shared_ptr<HiveKey> link = system->Child(upCase()(u"CurrentControlSet"));
  if (!link) link = system->hive->AddKey(*system, u"CurrentControlSet", system->security, true, state_->machine.Now());
  if (!link->IsVolatile()) return;  // somebody's own key of that name: not Windows' link
  link->flags |= kKeySymbolicLink;
  Bytes target = RegistryText(u"\\REGISTRY\\Machine\\SYSTEM\\ControlSet" + digits);
  target.resize(target.size() - 2);  // links are stored without a terminator
  link->Values() = {{std::u16string(kLinkValue), win32::REG_LINK, std::move(target)}};
}

std::u16string ExpandSystemVariables(Registry& registry, std::u16string_view text) {
  constexpr std::u16string_view kNt = u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
  constexpr std::u16string_view kProfiles = u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";
  constexpr std::u16string_view kWindows = u"HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion";
  const auto root = [&] {
    const auto value = registry.Query(kNt, u"SystemRoot");
    return value ? value->Text() : std::u16string(u"C:\\Windows");
  };
  const auto lookUp = [&](std::u16string_view name) -> std::optional<std::u16string> {
    if (EqualAsciiNoCase(name, u"SystemRoot") || EqualAsciiNoCase(name, u"windir")) return root();
    if (EqualAsciiNoCase(name, u"SystemDrive")) return root().substr(0, 2);
    std::optional<RegistryValue> value;
    if (EqualAsciiNoCase(name, u"ProgramFiles")) value = registry.Query(kWindows, u"ProgramFilesDir");
    if (EqualAsciiNoCase(name, u"ProgramFiles(x86)")) value = registry.Query(kWindows, u"ProgramFilesDir (x86)");
    if (EqualAsciiNoCase(name, u"ProgramData")) value = registry.Query(kProfiles, u"ProgramData");
    if (!value) return std::nullopt;
    const std::u16string found = value->Text();
    return StartsWithAsciiNoCase(found, u"%SystemDrive%") ? root().substr(0, 2) + found.substr(13) : found;
  };
  std::u16string expanded;
  while (!text.empty()) {
    const std::size_t first = std::min(text.find(u'%'), text.size());
    expanded += text.substr(0, first);
    text.remove_prefix(first);
    if (text.empty()) break;
    const std::size_t second = text.find(u'%', 1);
    const auto value = second == text.npos ? std::nullopt : lookUp(text.substr(1, second - 1));
    expanded += value ? *value : std::u16string(1, u'%');
    text.remove_prefix(value ? second + 1 : 1);
  }
  return expanded;
}

}  // namespace emulated
