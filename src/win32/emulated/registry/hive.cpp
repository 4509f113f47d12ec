#include "win32/emulated/registry/hive.h"

#include <algorithm>
#include <utility>

#include "win32/emulated/storage/volume.h"

namespace emulated {

namespace {

char16_t SimpleUpper(char16_t unit) {
  const auto in = [unit](unsigned first, unsigned last) { return unit >= first && unit <= last; };
  if (in('a', 'z') || (in(0xE0, 0xFE) && unit != 0xF7) || in(0x3B1, 0x3C1) || in(0x3C3, 0x3CB) || in(0x430, 0x44F))
    return static_cast<char16_t>(unit - 32);
  if (in(0x450, 0x45F)) return static_cast<char16_t>(unit - 80);
  return unit == 0xFF ? u'\x178' : unit;
}

auto ChildPlace(HiveKey& key, std::u16string_view upperName) {
  return std::lower_bound(
      key.Children().begin(), key.Children().end(), upperName,
      [](const std::shared_ptr<HiveKey>& child, std::u16string_view name) { return child->upperName < name; });
}

}  // namespace

UpCase::UpCase() : table_(0x10000) {
  for (std::size_t i = 0; i < table_.size(); ++i) table_[i] = SimpleUpper(static_cast<char16_t>(i));
}

UpCase::UpCase(const Volume& volume) : table_(0x10000) {
  for (std::size_t i = 0; i < table_.size(); ++i) table_[i] = volume.UpCase(static_cast<char16_t>(i));
}

std::u16string UpCase::operator()(std::u16string_view text) const {
  std::u16string upper(text);
  for (char16_t& unit : upper) unit = table_[unit];
  return upper;
}

std::u16string RegistryValue::Text() const {
  std::u16string text(data.size() / 2, u'\0');
  if (!text.empty()) std::memcpy(text.data(), data.data(), text.size() * 2);
  return text.substr(0, text.find(u'\0'));
}

Bytes RegistryText(std::u16string_view text) {
  Bytes bytes;
  for (const char16_t unit : text) AppendLittleEndian(bytes, unit);
  AppendLittleEndian(bytes, u'\0');
  return bytes;
}

Bytes RegistryMultiText(const std::vector<std::u16string>& texts) {
  Bytes bytes;
  for (const std::u16string& text : texts) {
    const Bytes one = RegistryText(text);
    bytes.insert(bytes.end(), one.begin(), one.end());
  }
  AppendLittleEndian(bytes, u'\0');
  return bytes;
}

std::vector<std::u16string> MultiText(const RegistryValue& value) {
  std::vector<std::u16string> texts;
  std::u16string text;
  for (std::size_t i = 0; i + 1 < value.data.size(); i += 2) {
    const auto unit = LoadLittleEndian<char16_t>(value.data, i);
    if (unit != 0) {
      text += unit;
      continue;
    }
    if (text.empty()) return texts;
    texts.push_back(std::exchange(text, {}));
  }
  if (!text.empty()) texts.push_back(text);
  return texts;
}

void HiveKey::Detach() {
  unread_ = 0;
  for (const auto& child : children_) child->Detach();
  children_.clear();
  deleted = true;
  parent = nullptr;
  hive = nullptr;
}

std::shared_ptr<HiveKey> HiveKey::Child(std::u16string_view upper) {
  const auto place = ChildPlace(*this, upper);
  return place != children_.end() && (*place)->upperName == upper ? *place : nullptr;
}

RegistryValue* HiveKey::Value(std::u16string_view valueName, const UpCase& upCase) {
  for (RegistryValue& value : Values()) {
    if (value.name.size() == valueName.size() &&
        std::equal(value.name.begin(), value.name.end(), valueName.begin(),
                   [&](char16_t a, char16_t b) { return upCase(a) == upCase(b); }))
      return &value;
  }
  return nullptr;
}

std::shared_ptr<HiveKey> Hive::AddKey(HiveKey& parent, std::u16string_view name, std::shared_ptr<const Bytes> security,
                                      bool isVolatile, FileTime now) {
  auto key = std::make_shared<HiveKey>();
  key->name = name;
  key->upperName = (*upCase)(name);
  key->flags = isVolatile ? kKeyVolatile : 0;
  key->lastWrite = now;
  key->security = std::move(security);
  key->parent = &parent;
  key->hive = this;
  const auto place = ChildPlace(parent, key->upperName);
  parent.Children().insert(place, key);
  parent.lastWrite = now;
  if (!isVolatile) dirty = true;
  return key;
}

void Hive::RemoveKey(HiveKey& key, FileTime now) {
  HiveKey* const parent = key.parent;
  if (!parent) return;
  if (!key.IsVolatile()) dirty = true;
  parent->lastWrite = now;
  const auto place = ChildPlace(*parent, key.upperName);
  // `key` may live in this list alone.
  const std::shared_ptr<HiveKey> kept = *place;  // NOLINT(performance-unnecessary-copy-initialization)
  parent->Children().erase(place);
  kept->Detach();
}

void Hive::Touch(HiveKey& key, FileTime now) {
  key.lastWrite = now;
  if (!key.IsVolatile()) dirty = true;
}

void Hive::Abandon() {
  if (root) root->Detach();
}

std::uint32_t NameHash(std::u16string_view upperName) {
  std::uint32_t hash = 0;
  for (const char16_t unit : upperName) hash = hash * 37 + unit;
  return hash;
}

}  // namespace emulated
