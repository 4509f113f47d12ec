#include "win32/emulated/security/descriptor.h"

#include <algorithm>

namespace emulated {

namespace {

constexpr std::size_t kHeaderSize = 20;  // of a self-relative descriptor
constexpr std::size_t kLongestAcl = 0xFFFC;

// Where the SID of an entry of a known type begins; 0 for other types and for an entry too short to have one.
std::size_t SidOffset(std::uint8_t type, ByteView ace) {
  switch (type) {
    case win32::ACCESS_ALLOWED_ACE_TYPE:
    case win32::ACCESS_DENIED_ACE_TYPE:
    case win32::SYSTEM_AUDIT_ACE_TYPE:
    case kSystemAlarmAce:
    case kAllowedCallbackAce:
    case kDeniedCallbackAce:
    case kAuditCallbackAce:
    case kAlarmCallbackAce:
    case kMandatoryLabelAce:
      return 8;
    case kAllowedObjectAce:
    case kDeniedObjectAce:
    case kAuditObjectAce:
    case kAlarmObjectAce: {
      if (ace.size() < 12) return 0;
      const auto flags = LoadLittleEndian<std::uint32_t>(ace, 8);  // which of the two GUIDs follow
      return 12 + ((flags & 1) != 0 ? 16u : 0u) + ((flags & 2) != 0 ? 16u : 0u);
    }
    default:
      return 0;
  }
}

bool IsObjectAce(std::uint8_t type) { return type >= kAllowedObjectAce && type <= kAlarmObjectAce; }

bool IsSoundAce(ByteView ace) {
  const std::size_t offset = SidOffset(ace[0], ace);
  if (offset == 0) return !IsObjectAce(ace[0]);
  return offset < ace.size() && SidLength(ace.subspan(offset)) != 0;
}

// The SID or ACL that a descriptor refers to: `offset` 0 is none. False when it does not lie inside.
bool SidAt(ByteView descriptor, std::uint32_t offset, ByteView& sid) {
  if (offset == 0) return true;
  if (offset < kHeaderSize || offset >= descriptor.size()) return false;
  const std::size_t length = SidLength(descriptor.subspan(offset));
  sid = descriptor.subspan(offset, length);
  return length != 0;
}

bool AclAt(ByteView descriptor, bool present, std::uint32_t offset, ByteView& acl) {
  if (!present || offset == 0) return true;
  if (offset < kHeaderSize || offset >= descriptor.size()) return false;
  const ByteView from = descriptor.subspan(offset);
  if (!IsSoundAcl(from)) return false;
  acl = from.first(LoadLittleEndian<std::uint16_t>(from, 2));
  return true;
}

struct SelfRelativeHeader {
  std::uint8_t revision;
  std::uint8_t sbz1;
  std::uint16_t control;
  std::uint32_t owner, group, sacl, dacl;
};

// How many bytes a self-relative descriptor in the program's memory takes; 0 when they would be more than `limit`.
std::size_t SelfRelativeLength(const std::uint8_t* from, std::size_t limit) {
  SelfRelativeHeader header;
  if (limit < kHeaderSize) return 0;
  std::memcpy(&header, from, sizeof header);
  std::size_t length = kHeaderSize;
  const auto include = [&](std::uint32_t offset, std::size_t fixed, auto size) {
    if (offset == 0 || length == 0) return;
    if (offset > limit || limit - offset < fixed) {
      length = 0;
      return;
    }
    const std::size_t whole = size(from + offset);
    length = limit - offset < whole ? 0 : std::max(length, offset + whole);
  };
  const auto sidSize = [](const std::uint8_t* sid) { return 8u + 4u * sid[1]; };
  const auto aclSize = [](const std::uint8_t* acl) {
    return std::size_t{LoadLittleEndian<std::uint16_t>({acl, 8}, 2)};
  };
  include(header.owner, 8, sidSize);
  include(header.group, 8, sidSize);
  if ((header.control & win32::SE_SACL_PRESENT) != 0) include(header.sacl, 8, aclSize);
  if ((header.control & win32::SE_DACL_PRESENT) != 0) include(header.dacl, 8, aclSize);
  return length;
}

}  // namespace

bool IsSoundAcl(ByteView acl) {
  if (acl.size() < sizeof(win32::ACL) || acl[0] < 2 || acl[0] > 4) return false;
  const std::size_t size = LoadLittleEndian<std::uint16_t>(acl, 2);
  if (size < sizeof(win32::ACL) || size > acl.size()) return false;
  ByteView rest = acl.subspan(sizeof(win32::ACL), size - sizeof(win32::ACL));
  for (unsigned left = LoadLittleEndian<std::uint16_t>(acl, 4); left > 0; --left) {
    if (rest.size() < sizeof(win32::ACE_HEADER)) return false;
    const std::size_t length = LoadLittleEndian<std::uint16_t>(rest, 2);
    if (length < sizeof(win32::ACE_HEADER) || length % 4 != 0 || length > rest.size()) return false;
    if (!IsSoundAce(rest.first(length))) return false;
    rest = rest.subspan(length);
  }
  return true;
}

Aces::Aces(ByteView acl) : acl_(acl), count_(acl.empty() ? 0 : LoadLittleEndian<std::uint16_t>(acl, 4)) {}

Aces::Iterator::Iterator(ByteView rest, unsigned left) : rest_(rest), left_(left) { Parse(); }

Aces::Iterator& Aces::Iterator::operator++() {
  rest_ = rest_.subspan(ace_.bytes.size());
  --left_;
  Parse();
  return *this;
}

void Aces::Iterator::Parse() {
  if (left_ == 0) return;
  ace_.bytes = rest_.first(LoadLittleEndian<std::uint16_t>(rest_, 2));
  ace_.type = rest_[0];
  ace_.flags = rest_[1];
  ace_.sidOffset = SidOffset(ace_.type, ace_.bytes);
  ace_.mask = ace_.sidOffset == 0 ? 0 : LoadLittleEndian<std::uint32_t>(ace_.bytes, 4);
  ace_.sid = ace_.sidOffset == 0 ? ByteView() : ace_.bytes.subspan(ace_.sidOffset);
  ace_.sid = ace_.sid.first(SidLength(ace_.sid));  // callback entries go on with their condition
}

std::optional<DescriptorView> ViewDescriptor(ByteView descriptor) {
  SelfRelativeHeader header;
  if (descriptor.size() < kHeaderSize) return std::nullopt;
  std::memcpy(&header, descriptor.data(), sizeof header);
  if (header.revision != 1 || (header.control & win32::SE_SELF_RELATIVE) == 0) return std::nullopt;
  DescriptorView view;
  view.control = static_cast<win32::WORD>(header.control & ~win32::SE_SELF_RELATIVE);
  const bool sound = SidAt(descriptor, header.owner, view.owner) && SidAt(descriptor, header.group, view.group) &&
                     AclAt(descriptor, view.HasSacl(), header.sacl, view.sacl) &&
                     AclAt(descriptor, view.HasDacl(), header.dacl, view.dacl);
  if (!sound) return std::nullopt;
  return view;
}

Bytes BuildDescriptor(const DescriptorView& parts) {
  Bytes descriptor(kHeaderSize);
  descriptor.reserve(kHeaderSize + parts.sacl.size() + parts.dacl.size() + parts.owner.size() + parts.group.size());
  const auto append = [&](ByteView part) {
    if (part.empty()) return std::uint32_t{0};
    const auto offset = static_cast<std::uint32_t>(descriptor.size());
    descriptor.insert(descriptor.end(), part.begin(), part.end());
    return offset;
  };
  SelfRelativeHeader header{1, 0, static_cast<std::uint16_t>(parts.control | win32::SE_SELF_RELATIVE), 0, 0, 0, 0};
  header.sacl = parts.HasSacl() ? append(parts.sacl) : 0;
  header.dacl = parts.HasDacl() ? append(parts.dacl) : 0;
  header.owner = append(parts.owner);
  header.group = append(parts.group);
  std::memcpy(descriptor.data(), &header, sizeof header);
  return descriptor;
}

Bytes SelfRelative(const void* descriptor, std::size_t limit) {
  if (!descriptor) return {};
  const auto* const from = static_cast<const std::uint8_t*>(descriptor);
  if (from[0] != 1) return {};
  std::uint16_t control;
  std::memcpy(&control, from + 2, sizeof control);
  if ((control & win32::SE_SELF_RELATIVE) != 0) {
    const ByteView bytes(from, SelfRelativeLength(from, limit));
    if (!ViewDescriptor(bytes)) return {};
    return {bytes.begin(), bytes.end()};
  }
  win32::SECURITY_DESCRIPTOR absolute;
  std::memcpy(&absolute, descriptor, sizeof absolute);
  const auto sacl = AclOf((control & win32::SE_SACL_PRESENT) != 0 ? absolute.Sacl : nullptr);
  const auto dacl = AclOf((control & win32::SE_DACL_PRESENT) != 0 ? absolute.Dacl : nullptr);
  const ByteView owner = SidOf(absolute.Owner), group = SidOf(absolute.Group);
  if (!sacl || !dacl || (absolute.Owner && owner.empty()) || (absolute.Group && group.empty())) return {};
  return BuildDescriptor({control, owner, group, *sacl, *dacl});
}

std::optional<ByteView> AclOf(const win32::ACL* acl) {
  if (!acl) return ByteView();
  const ByteView bytes(reinterpret_cast<const std::uint8_t*>(acl), acl->AclSize);
  if (!IsSoundAcl(bytes)) return std::nullopt;
  return bytes;
}

void AclBuilder::Add(ByteView ace) {
  if (IsObjectAce(ace[0])) revision_ = kAclRevisionDs;
  acl_.insert(acl_.end(), ace.begin(), ace.end());
  ++count_;
}

void AclBuilder::Add(const AceView& ace, std::uint8_t flags, win32::ACCESS_MASK mask, ByteView sid) {
  const std::size_t at = acl_.size();
  if (sid.empty()) {
    Add(ace.bytes);
  } else {
    Add(ace.bytes.first(ace.sidOffset));
    acl_.insert(acl_.end(), sid.begin(), sid.end());
    const ByteView rest = ace.bytes.subspan(ace.sidOffset + ace.sid.size());
    acl_.insert(acl_.end(), rest.begin(), rest.end());
  }
  const std::span<std::uint8_t> added = std::span(acl_).subspan(at);
  added[1] = flags;
  if (!sid.empty()) StoreLittleEndian(added, 2, static_cast<std::uint16_t>(added.size()));
  if (ace.sidOffset != 0) StoreLittleEndian(added, 4, std::uint32_t{mask});
}

void AclBuilder::Add(std::uint8_t type, std::uint8_t flags, win32::ACCESS_MASK mask, ByteView sid) {
  Bytes bytes{type, flags};
  AppendLittleEndian(bytes, static_cast<std::uint16_t>(8 + sid.size()));
  AppendLittleEndian(bytes, std::uint32_t{mask});
  bytes.insert(bytes.end(), sid.begin(), sid.end());
  Add(bytes);
}

Bytes AclBuilder::Take() {
  if (acl_.size() > kLongestAcl) return {};
  acl_[0] = revision_;
  StoreLittleEndian(acl_, 2, static_cast<std::uint16_t>(acl_.size()));
  StoreLittleEndian(acl_, 4, static_cast<std::uint16_t>(count_));
  return std::move(acl_);
}

win32::ACCESS_MASK MapGeneric(win32::ACCESS_MASK mask, const win32::GENERIC_MAPPING& mapping) {
  if ((mask & win32::GENERIC_READ) != 0) mask |= mapping.GenericRead;
  if ((mask & win32::GENERIC_WRITE) != 0) mask |= mapping.GenericWrite;
  if ((mask & win32::GENERIC_EXECUTE) != 0) mask |= mapping.GenericExecute;
  if ((mask & win32::GENERIC_ALL) != 0) mask |= mapping.GenericAll;
  return mask & ~kGenericBits;
}

}  // namespace emulated
