// Security descriptors, ACLs and ACEs as bytes (MS-DTYP 2.4.4 to 2.4.6): reading them safely and putting them together.
#pragma once

#include <iterator>
#include <optional>

#include "win32/constants.h"
#include "win32/emulated/security/token.h"

namespace emulated {

// What constants.inc leaves out because no program text needs it.
inline constexpr std::uint8_t kSystemAlarmAce = 3;
inline constexpr std::uint8_t kAllowedObjectAce = 5, kDeniedObjectAce = 6, kAuditObjectAce = 7, kAlarmObjectAce = 8;
inline constexpr std::uint8_t kAllowedCallbackAce = 9, kDeniedCallbackAce = 10;
inline constexpr std::uint8_t kAuditCallbackAce = 13, kAlarmCallbackAce = 14;
inline constexpr std::uint8_t kMandatoryLabelAce = 17;
inline constexpr std::uint8_t kAclRevisionDs = 4;  // of an ACL with object entries

inline constexpr std::uint8_t kInheritanceFlags = win32::OBJECT_INHERIT_ACE | win32::CONTAINER_INHERIT_ACE |
                                                  win32::NO_PROPAGATE_INHERIT_ACE | win32::INHERIT_ONLY_ACE;
inline constexpr win32::DWORD kGenericBits =
    win32::GENERIC_READ | win32::GENERIC_WRITE | win32::GENERIC_EXECUTE | win32::GENERIC_ALL;

// One entry of an ACL. `sid` is empty for the types that this system does not look into; their bytes are kept.
struct AceView {
  std::uint8_t type = 0;
  std::uint8_t flags = 0;
  win32::ACCESS_MASK mask = 0;
  ByteView sid;
  std::size_t sidOffset = 0;  // in `bytes`
  ByteView bytes;

  bool Has(std::uint8_t flag) const { return (flags & flag) != 0; }
};

// Every count and length in the ACL that `acl` begins with lies inside it, and so do the SIDs of known entries.
bool IsSoundAcl(ByteView acl);

// The entries of a sound ACL in their order; none for an empty view (no ACL).
class Aces {
 public:
  explicit Aces(ByteView acl);

  class Iterator {
   public:
    Iterator(ByteView rest, unsigned left);
    const AceView& operator*() const { return ace_; }
    const AceView* operator->() const { return &ace_; }
    Iterator& operator++();
    bool operator!=(const Iterator& other) const { return left_ != other.left_; }

   private:
    void Parse();
    ByteView rest_;
    unsigned left_;
    AceView ace_;
  };
  Iterator begin() const { return {acl_.empty() ? acl_ : acl_.subspan(sizeof(win32::ACL)), count_}; }
  Iterator end() const { return {{}, 0}; }

 private:
  ByteView acl_;
  unsigned count_ = 0;
};

// The parts of a descriptor. A DACL that is present and empty (no bytes) is the null DACL, which grants everything.
struct DescriptorView {
  win32::WORD control = 0;  // without SE_SELF_RELATIVE
  ByteView owner, group, sacl, dacl;

  bool HasDacl() const { return (control & win32::SE_DACL_PRESENT) != 0; }
  bool HasSacl() const { return (control & win32::SE_SACL_PRESENT) != 0; }
};

// The parts of a self-relative descriptor; nothing when an offset, length or count in it leads outside.
std::optional<DescriptorView> ViewDescriptor(ByteView descriptor);
// Self-relative, laid out as Windows does it: SACL, DACL, owner, group.
Bytes BuildDescriptor(const DescriptorView& parts);
// A descriptor of the program's, in absolute or self-relative form, as self-relative bytes. At most `limit` bytes of a
// self-relative one are read. Empty for null and for what is no descriptor (ERROR_INVALID_SECURITY_DESCR).
Bytes SelfRelative(const void* descriptor, std::size_t limit = SIZE_MAX);
// The ACL behind a pointer of the program's; nothing when it is not sound, an empty view for null.
std::optional<ByteView> AclOf(const win32::ACL* acl);

// Puts an ACL together. Windows limits ACLs to 64 KiB less 4: what does not fit makes the whole fail.
class AclBuilder {
 public:
  AclBuilder() { acl_.reserve(kUsual); }
  void Add(ByteView ace);
  // The entry with other flags and mask, and with another SID when one is given.
  void Add(const AceView& ace, std::uint8_t flags, win32::ACCESS_MASK mask, ByteView sid = {});
  void Add(std::uint8_t type, std::uint8_t flags, win32::ACCESS_MASK mask, ByteView sid);
  unsigned count() const { return count_; }
  // The ACL; empty when it became too long.
  Bytes Take();

 private:
  static constexpr std::size_t kUsual = 256;  // bytes that few ACLs pass
  Bytes acl_ = Bytes(sizeof(win32::ACL));
  unsigned count_ = 0;
  std::uint8_t revision_ = 2;
};

// Generic rights replaced by what they stand for.
win32::ACCESS_MASK MapGeneric(win32::ACCESS_MASK mask, const win32::GENERIC_MAPPING& mapping);

}  // namespace emulated
