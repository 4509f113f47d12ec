// The shares of the server service: kept where Windows keeps them, in LanmanServer\Shares (a REG_MULTI_SZ a share of
// lines KEY=value) and its sub-key Security (a REG_BINARY descriptor a share).

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "win32/emulated/call.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/security/descriptor.h"
#include "win32/emulated/text.h"
#include "win32/file.h"
#include "win32/net.h"

namespace emulated {

namespace {

using win32::DWORD;

constexpr std::u16string_view kShares = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\LanmanServer\\Shares";
constexpr std::u16string_view kSecurity = u"HKLM\\SYSTEM\\CurrentControlSet\\Services\\LanmanServer\\Shares\\Security";
constexpr DWORD STYPE_IPC = 3;
constexpr std::size_t NNLEN = 80;  // the longest share name
// Which member of a SHARE_INFO is not right.
constexpr DWORD SHARE_NETNAME_PARMNUM = 1, SHARE_TYPE_PARMNUM = 3, SHARE_MAX_USES_PARMNUM = 6, SHARE_PATH_PARMNUM = 8;
constexpr DWORD SHARE_FILE_SD_PARMNUM = 501;

// SHARE_INFO_502 begins with the members of SHARE_INFO_2.
constexpr std::size_t kShareInfo2 = offsetof(win32::SHARE_INFO_502, shi502_reserved);

struct Share {
  std::u16string name, remark, path;
  DWORD type = win32::STYPE_DISKTREE;
  DWORD permissions = 0;
  DWORD maxUses = 0xFFFFFFFF;
  Bytes descriptor;  // self-relative; empty: none
};

// The members of the local Administrators group change and see shares in full.
bool IsAdministrator(const Token& token) {
  static const Sid administrators = SidFromText(u"S-1-5-32-544");
  return token.Allows(administrators);
}

DWORD Number(std::u16string_view text, DWORD otherwise) {
  const std::string digits = Utf8(text);
  std::uint32_t number = 0;
  const auto [end, failed] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return failed == std::errc() && end == digits.data() + digits.size() ? number : otherwise;
}

Share FromRegistry(const RegistryValue& value) {
  Share share;
  share.name = value.name;
  std::u16string line;
  const auto take = [&] {
    const std::size_t equals = line.find(u'=');
    const std::u16string key = line.substr(0, equals),
                         text = equals == std::u16string::npos ? std::u16string() : line.substr(equals + 1);
    if (EqualAsciiNoCase(key, u"Path")) share.path = text;
    if (EqualAsciiNoCase(key, u"Remark")) share.remark = text;
    if (EqualAsciiNoCase(key, u"Type")) share.type = Number(text, share.type);
    if (EqualAsciiNoCase(key, u"Permissions")) share.permissions = Number(text, share.permissions);
    if (EqualAsciiNoCase(key, u"MaxUses")) share.maxUses = Number(text, share.maxUses);
    line.clear();
  };
  for (std::size_t at = 0; at + 1 < value.data.size(); at += sizeof(char16_t)) {
    const auto unit = LoadLittleEndian<char16_t>(value.data, at);
    if (unit != 0)
      line += unit;
    else
      take();
  }
  return share;
}

void ToRegistry(Registry& registry, const Share& share) {
  const auto line = [](std::u16string_view key, std::u16string_view text) {
    return std::u16string(key) + u"=" + std::u16string(text);
  };
  const auto number = [](DWORD value) { return Utf16(std::to_string(value)); };
  registry.Set(
      kShares, share.name, win32::REG_MULTI_SZ,
      RegistryMultiText({line(u"CSCFlags", u"0"), line(u"MaxUses", number(share.maxUses)), line(u"Path", share.path),
                         line(u"Permissions", number(share.permissions)), line(u"Remark", share.remark),
                         line(u"ShareName", share.name), line(u"Type", number(share.type))}));
  if (share.descriptor.empty())
    registry.DeleteValue(kSecurity, share.name);
  else
    registry.Set(kSecurity, share.name, win32::REG_BINARY, share.descriptor);
}

// The shares that the server makes by itself for administrators.
std::vector<Share> AdministrativeShares(Machine& machine) {
  const auto root = machine.registry().Query(u"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", u"SystemRoot");
  std::vector<Share> shares = {
      {u"ADMIN$", u"Remote Admin", root ? root->Text() : u"C:\\Windows", win32::STYPE_SPECIAL, 0, 0xFFFFFFFF, {}},
      {u"IPC$", u"Remote IPC", u"", win32::STYPE_SPECIAL | STYPE_IPC, 0, 0xFFFFFFFF, {}}};
  for (const auto& mounted : machine.volumes)
    if (mounted->letter != 0 && mounted->driveType == win32::DRIVE_FIXED)
      shares.push_back({std::u16string(1, mounted->letter) + u"$",
                        u"Default share",
                        std::u16string(1, mounted->letter) + u":\\",
                        win32::STYPE_SPECIAL,
                        0,
                        0xFFFFFFFF,
                        {}});
  return shares;
}

// All shares by name.
std::vector<Share> Shares(Machine& machine) {
  std::vector<Share> shares = AdministrativeShares(machine);
  for (const RegistryValue& value : machine.registry().Values(kShares)) {
    if (value.type != win32::REG_MULTI_SZ || value.name.empty()) continue;
    Share share = FromRegistry(value);
    if (const auto descriptor = machine.registry().Query(kSecurity, value.name)) share.descriptor = descriptor->data;
    shares.push_back(std::move(share));
  }
  std::sort(shares.begin(), shares.end(),
            [](const Share& a, const Share& b) { return LowerAscii(a.name) < LowerAscii(b.name); });
  return shares;
}

const Share* FindShare(const std::vector<Share>& shares, std::u16string_view name) {
  const auto found = std::find_if(shares.begin(), shares.end(),
                                  [&](const Share& share) { return EqualAsciiNoCase(share.name, name); });
  return found == shares.end() ? nullptr : &*found;
}

// Buffers given out and not yet freed.
std::set<void*>& Buffers() {
  static std::set<void*> buffers;
  return buffers;
}

std::size_t Aligned(std::size_t size) { return (size + 7) & ~std::size_t{7}; }

std::size_t RoomOf(const Share& share, std::size_t record) {
  return record + 2 * (share.name.size() + share.remark.size() + share.path.size() + 3) +
         Aligned(share.descriptor.size()) + 8;
}

// One block: the records first, what they point to behind them.
std::uint8_t* ShareBuffer(std::span<const Share> shares, DWORD level, std::size_t size) {
  const std::size_t record = level == 2 ? kShareInfo2 : sizeof(win32::SHARE_INFO_502);
  auto* const block = static_cast<std::uint8_t*>(std::calloc(1, std::max<std::size_t>(size, 1)));
  if (!block) return nullptr;
  Buffers().insert(block);
  std::uint8_t* free = block + shares.size() * record;
  const auto place = [&](const void* data, std::size_t bytes) {
    std::uint8_t* const at = free;
    if (bytes != 0) std::memcpy(at, data, bytes);
    free += bytes;
    return at;
  };
  std::uint8_t* to = block;
  std::vector<win32::SHARE_INFO_502> records;
  for (const Share& share : shares) {
    win32::SHARE_INFO_502 info{};
    info.shi502_type = share.type;
    info.shi502_permissions = share.permissions;
    info.shi502_max_uses = share.maxUses;
    if (level == 502 && !share.descriptor.empty())
      info.shi502_security_descriptor = place(share.descriptor.data(), share.descriptor.size());
    free = block + Aligned(static_cast<std::size_t>(free - block));
    records.push_back(info);
  }
  for (std::size_t i = 0; i < shares.size(); ++i) {
    const auto text = [&](const std::u16string& value) {
      void* const at = place(value.c_str(), (value.size() + 1) * sizeof(char16_t));
      return static_cast<char16_t*>(at);
    };
    records[i].shi502_netname = text(shares[i].name);
    records[i].shi502_remark = text(shares[i].remark);
    records[i].shi502_path = text(shares[i].path);
    std::memcpy(to, &records[i], record);
    to += record;
  }
  return block;
}

bool IsThisComputer(const char16_t* server) { return !server || !*server; }

bool IsShareName(std::u16string_view name) {
  return !name.empty() && name.size() <= NNLEN && std::none_of(name.begin(), name.end(), [](char16_t unit) {
    return unit < 0x20 || std::u16string_view(u"\"/\\[]:|<>+=;,?*").find(unit) != std::u16string_view::npos;
  });
}

// 0, or the error and the number of the member that is at fault.
DWORD CheckNewShare(const win32::SHARE_INFO_502& info, DWORD& member) {
  member = SHARE_NETNAME_PARMNUM;
  if (!info.shi502_netname || !IsShareName(info.shi502_netname)) return win32::ERROR_INVALID_NAME;
  member = SHARE_TYPE_PARMNUM;
  if (info.shi502_type != win32::STYPE_DISKTREE) return win32::ERROR_INVALID_PARAMETER;
  member = SHARE_MAX_USES_PARMNUM;
  if (info.shi502_max_uses == 0) return win32::ERROR_INVALID_PARAMETER;
  member = SHARE_PATH_PARMNUM;
  const std::u16string_view path = info.shi502_path ? info.shi502_path : u"";
  if (path.size() < 3 || path[1] != u':' || path[2] != u'\\') return win32::ERROR_INVALID_PARAMETER;
  const DWORD attributes = win32::GetFileAttributesW(info.shi502_path);
  if (attributes == win32::INVALID_FILE_ATTRIBUTES || !(attributes & win32::FILE_ATTRIBUTE_DIRECTORY))
    return win32::NERR_UnknownDevDir;
  member = 0;
  return 0;
}

DWORD AddShare(const win32::SHARE_INFO_502& info, DWORD& member) {
  if (const DWORD error = CheckNewShare(info, member)) return error;
  Machine& machine = Machine::Current();
  if (FindShare(Shares(machine), info.shi502_netname)) return win32::NERR_DuplicateShare;
  Share share{info.shi502_netname,
              info.shi502_remark ? info.shi502_remark : u"",
              info.shi502_path,
              info.shi502_type,
              info.shi502_permissions,
              info.shi502_max_uses,
              {}};
  while (share.path.size() > 3 && share.path.back() == u'\\') share.path.pop_back();
  if (info.shi502_security_descriptor) {
    share.descriptor = SelfRelative(info.shi502_security_descriptor);
    if (share.descriptor.empty()) {
      member = SHARE_FILE_SD_PARMNUM;
      return win32::ERROR_INVALID_PARAMETER;
    }
  }
  ToRegistry(machine.registry(), share);
  return 0;
}

}  // namespace

}  // namespace emulated

namespace win32 {

using namespace emulated;

DWORD NetShareEnum(char16_t* servername, DWORD level, BYTE** bufptr, DWORD prefmaxlen, DWORD* entriesread,
                   DWORD* totalentries, DWORD* resume_handle) {
  WIN32_CALL(servername, level, prefmaxlen);
  if (call.Refused()) return call.Code<DWORD>(call.error());
  if (!bufptr || !entriesread || !totalentries) return call.Code<DWORD>(ERROR_INVALID_PARAMETER);
  *bufptr = nullptr;
  *entriesread = *totalentries = 0;
  if (!IsThisComputer(servername)) return call.Code<DWORD>(ERROR_BAD_NETPATH);
  if (level != 2 && level != 502) return call.Code<DWORD>(ERROR_INVALID_LEVEL);
  Machine& machine = Machine::Current();
  if (!IsAdministrator(machine.EffectiveToken())) return call.Code<DWORD>(ERROR_ACCESS_DENIED);
  const std::vector<Share> all = Shares(machine);
  const std::size_t first = std::min<std::size_t>(resume_handle ? *resume_handle : 0, all.size());
  const std::size_t record = level == 2 ? kShareInfo2 : sizeof(SHARE_INFO_502);
  std::size_t size = 0, count = 0;
  while (first + count < all.size()) {
    const std::size_t next = RoomOf(all[first + count], record);
    if (count != 0 && prefmaxlen != MAX_PREFERRED_LENGTH && size + next > prefmaxlen) break;
    size += next;
    ++count;
  }
  *bufptr = ShareBuffer(std::span(all).subspan(first, count), level, size);
  if (!*bufptr) return call.Code<DWORD>(ERROR_NOT_ENOUGH_MEMORY);
  *entriesread = static_cast<DWORD>(count);
  *totalentries = static_cast<DWORD>(all.size() - first);
  const bool more = first + count < all.size();
  if (resume_handle) *resume_handle = more ? static_cast<DWORD>(first + count) : 0;
  return call.Code<DWORD>(more ? ERROR_MORE_DATA : NERR_Success);
}

DWORD NetShareAdd(char16_t* servername, DWORD level, BYTE* buf, DWORD* parm_err) {
  WIN32_CALL(servername, level);
  if (call.Refused()) return call.Code<DWORD>(call.error());
  if (!IsThisComputer(servername)) return call.Code<DWORD>(ERROR_BAD_NETPATH);
  if (level != 2 && level != 502) return call.Code<DWORD>(ERROR_INVALID_LEVEL);
  if (!buf) return call.Code<DWORD>(ERROR_INVALID_PARAMETER);
  if (!IsAdministrator(Machine::Current().EffectiveToken())) return call.Code<DWORD>(ERROR_ACCESS_DENIED);
  SHARE_INFO_502 info{};
  std::memcpy(&info, buf, level == 2 ? kShareInfo2 : sizeof info);
  DWORD member = 0;
  const DWORD error = AddShare(info, member);
  if (parm_err && error != 0) *parm_err = member;
  return call.Code<DWORD>(error);
}

// The administrative shares stay: the server makes them anew whenever it starts, and it starts with the workstation.
DWORD NetShareDel(char16_t* servername, char16_t* netname, DWORD reserved) {
  WIN32_CALL(servername, netname, reserved);
  if (call.Refused()) return call.Code<DWORD>(call.error());
  if (!IsThisComputer(servername)) return call.Code<DWORD>(ERROR_BAD_NETPATH);
  if (!netname || !*netname) return call.Code<DWORD>(ERROR_INVALID_PARAMETER);
  Machine& machine = Machine::Current();
  if (!IsAdministrator(machine.EffectiveToken())) return call.Code<DWORD>(ERROR_ACCESS_DENIED);
  const std::vector<Share> shares = Shares(machine);
  const Share* const share = FindShare(shares, netname);
  if (!share) return call.Code<DWORD>(NERR_NetNameNotFound);
  if (share->type & STYPE_SPECIAL) return call.Code<DWORD>(ERROR_NOT_SUPPORTED);
  machine.registry().DeleteValue(kShares, share->name);
  machine.registry().DeleteValue(kSecurity, share->name);
  return call.Code<DWORD>(NERR_Success);
}

DWORD NetApiBufferFree(void* Buffer) {
  WIN32_CALL(static_cast<const void*>(Buffer));
  if (call.Refused()) return call.Code<DWORD>(call.error());
  if (!Buffer) return call.Code<DWORD>(NERR_Success);
  if (Buffers().erase(Buffer) == 0) return call.Code<DWORD>(ERROR_INVALID_PARAMETER);
  std::free(Buffer);
  return call.Code<DWORD>(NERR_Success);
}

}  // namespace win32
