// The text of security descriptors (the security descriptor definition language, MS-DTYP 2.5.1).
#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

#include "win32/emulated/security/access.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

using Text = std::u16string_view;

struct Name {
  Text text;
  std::uint32_t value;
};

// In the order in which Windows writes them: from the lowest bit up.
constexpr Name kRights[] = {
    {u"CC", 0x1},        {u"DC", 0x2},        {u"LC", 0x4},     {u"SW", 0x8},        {u"RP", 0x10},
    {u"WP", 0x20},       {u"DT", 0x40},       {u"LO", 0x80},    {u"CR", 0x100},      {u"SD", 0x10000},
    {u"RC", 0x20000},    {u"WD", 0x40000},    {u"WO", 0x80000}, {u"GA", 0x10000000}, {u"GX", 0x20000000},
    {u"GW", 0x40000000}, {u"GR", 0x80000000},
};
// Names of whole sets of rights. Only the first of two names for the same set is written.
constexpr Name kRightSets[] = {
    {u"FA", 0x1F01FF}, {u"FR", 0x120089}, {u"FW", 0x120116}, {u"FX", 0x1200A0},
    {u"KA", 0xF003F},  {u"KR", 0x20019},  {u"KW", 0x20006},  {u"KX", 0x20019},
};
constexpr Name kLabelRights[] = {{u"NW", 1}, {u"NR", 2}, {u"NX", 4}};
constexpr Name kAceTypes[] = {
    {u"A", win32::ACCESS_ALLOWED_ACE_TYPE},
    {u"D", win32::ACCESS_DENIED_ACE_TYPE},
    {u"AU", win32::SYSTEM_AUDIT_ACE_TYPE},
    {u"AL", kSystemAlarmAce},
    {u"OA", kAllowedObjectAce},
    {u"OD", kDeniedObjectAce},
    {u"OU", kAuditObjectAce},
    {u"OL", kAlarmObjectAce},
    {u"ML", kMandatoryLabelAce},
};
constexpr Name kAceFlags[] = {
    {u"OI", win32::OBJECT_INHERIT_ACE},
    {u"CI", win32::CONTAINER_INHERIT_ACE},
    {u"NP", win32::NO_PROPAGATE_INHERIT_ACE},
    {u"IO", win32::INHERIT_ONLY_ACE},
    {u"ID", win32::INHERITED_ACE},
    {u"SA", 0x40},
    {u"FA", 0x80},
};

struct Alias {
  Text text;
  Text sid;
};
constexpr Alias kAliases[] = {
    {u"WD", u"S-1-1-0"},      {u"CO", u"S-1-3-0"},      {u"CG", u"S-1-3-1"},      {u"OW", u"S-1-3-4"},
    {u"NU", u"S-1-5-2"},      {u"IU", u"S-1-5-4"},      {u"SU", u"S-1-5-6"},      {u"AN", u"S-1-5-7"},
    {u"ED", u"S-1-5-9"},      {u"PS", u"S-1-5-10"},     {u"AU", u"S-1-5-11"},     {u"RC", u"S-1-5-12"},
    {u"SY", u"S-1-5-18"},     {u"LS", u"S-1-5-19"},     {u"NS", u"S-1-5-20"},     {u"WR", u"S-1-5-33"},
    {u"BA", u"S-1-5-32-544"}, {u"BU", u"S-1-5-32-545"}, {u"BG", u"S-1-5-32-546"}, {u"PU", u"S-1-5-32-547"},
    {u"AO", u"S-1-5-32-548"}, {u"SO", u"S-1-5-32-549"}, {u"PO", u"S-1-5-32-550"}, {u"BO", u"S-1-5-32-551"},
    {u"RE", u"S-1-5-32-552"}, {u"RU", u"S-1-5-32-554"}, {u"RD", u"S-1-5-32-555"}, {u"NO", u"S-1-5-32-556"},
    {u"MU", u"S-1-5-32-558"}, {u"LU", u"S-1-5-32-559"}, {u"IS", u"S-1-5-32-568"}, {u"CY", u"S-1-5-32-569"},
    {u"ER", u"S-1-5-32-573"}, {u"CD", u"S-1-5-32-574"}, {u"HA", u"S-1-5-32-578"}, {u"AA", u"S-1-5-32-579"},
    {u"RM", u"S-1-5-32-580"}, {u"AC", u"S-1-15-2-1"},   {u"LW", u"S-1-16-4096"},  {u"ME", u"S-1-16-8192"},
    {u"MP", u"S-1-16-8448"},  {u"HI", u"S-1-16-12288"}, {u"SI", u"S-1-16-16384"},
};

struct KnownSid {
  Text alias;
  Sid sid;
};
const std::vector<KnownSid>& KnownSids() {
  static const std::vector<KnownSid> sids = [] {
    std::vector<KnownSid> known;
    for (const Alias& alias : kAliases) known.push_back({alias.text, SidFromText(alias.sid)});
    return known;
  }();
  return sids;
}

template <std::size_t N>
const Name* FindName(const Name (&names)[N], Text text) {
  const auto* const found = std::find_if(std::begin(names), std::end(names),
                                         [&](const Name& name) { return EqualAsciiNoCase(name.text, text); });
  return found == std::end(names) ? nullptr : found;
}

void SkipBlanks(Text& text) {
  while (!text.empty() && text.front() == u' ') text.remove_prefix(1);
}

Text Trimmed(Text text) {
  SkipBlanks(text);
  while (!text.empty() && text.back() == u' ') text.remove_suffix(1);
  return text;
}

std::optional<std::uint32_t> HexNumber(Text digits) {
  if (digits.empty() || digits.size() > 8) return std::nullopt;
  std::uint32_t number = 0;
  for (const char16_t unit : LowerAscii(digits)) {
    const bool decimal = unit >= u'0' && unit <= u'9';
    if (!decimal && !(unit >= u'a' && unit <= u'f')) return std::nullopt;
    number = number << 4 | static_cast<std::uint32_t>(decimal ? unit - u'0' : unit - u'a' + 10);
  }
  return number;
}

std::u16string HexText(std::uint32_t number) {
  char text[12];
  std::snprintf(text, sizeof text, "0x%x", number);
  return Utf16(text);
}

// ---- from text

// Takes an alias or S-1-... off the front of `text`.
std::optional<Sid> TakeSid(Text& text) {
  if (StartsWithAsciiNoCase(text, u"S-")) {
    std::size_t end = 2;
    const auto belongs = [](char16_t unit) {
      return (unit >= u'0' && unit <= u'9') || (unit >= u'a' && unit <= u'f') || (unit >= u'A' && unit <= u'F') ||
             unit == u'-' || unit == u'x' || unit == u'X';
    };
    while (end < text.size() && belongs(text[end])) ++end;
    // "O:S-1-5-18D:" : the letter of the next part is a hexadecimal digit, too.
    if (end < text.size() && text[end] == u':') --end;
    Sid sid = SidFromText(text.substr(0, end));
    if (sid.empty()) return std::nullopt;
    text.remove_prefix(end);
    return sid;
  }
  for (const KnownSid& known : KnownSids()) {
    if (!StartsWithAsciiNoCase(text, known.alias)) continue;
    text.remove_prefix(known.alias.size());
    return known.sid;
  }
  return std::nullopt;
}

std::optional<win32::ACCESS_MASK> ParseRights(Text text) {
  text = Trimmed(text);
  if (StartsWithAsciiNoCase(text, u"0x")) return HexNumber(text.substr(2));
  if (!text.empty() && text.front() >= u'0' && text.front() <= u'9') {
    std::uint64_t number = 0;
    for (const char16_t unit : text) {
      if (unit < u'0' || unit > u'9') return std::nullopt;
      number = number * 10 + static_cast<std::uint64_t>(unit - u'0');
      if (number > 0xFFFFFFFF) return std::nullopt;
    }
    return static_cast<win32::ACCESS_MASK>(number);
  }
  win32::ACCESS_MASK mask = 0;
  for (; !text.empty(); text.remove_prefix(2)) {
    const Text part = text.substr(0, 2);
    const Name* name = FindName(kRights, part);
    if (!name) name = FindName(kRightSets, part);
    if (!name) name = FindName(kLabelRights, part);
    if (!name) return std::nullopt;
    mask |= name->value;
  }
  return mask;
}

std::optional<std::uint8_t> ParseAceFlags(Text text) {
  text = Trimmed(text);
  std::uint8_t flags = 0;
  for (; !text.empty(); text.remove_prefix(2)) {
    const Name* const name = FindName(kAceFlags, text.substr(0, 2));
    if (!name) return std::nullopt;
    flags = static_cast<std::uint8_t>(flags | name->value);
  }
  return flags;
}

// "6da8a4ff-0e52-11d0-a286-00aa003049e2" in the byte order of a GUID in memory; no bytes for an empty text.
std::optional<Bytes> ParseGuid(Text text) {
  Bytes guid;
  if (text.empty()) return guid;
  if (text.size() != 36) return std::nullopt;
  constexpr std::array<std::size_t, 16> kDigits{6, 4, 2, 0, 11, 9, 16, 14, 19, 21, 24, 26, 28, 30, 32, 34};
  for (const std::size_t dash : {8u, 13u, 18u, 23u})
    if (text[dash] != u'-') return std::nullopt;
  for (const std::size_t at : kDigits) {
    const auto byte = HexNumber(text.substr(at, 2));
    if (!byte) return std::nullopt;
    guid.push_back(static_cast<std::uint8_t>(*byte));
  }
  return guid;
}

// The six fields between the brackets of one entry.
bool ParseAce(Text text, AclBuilder& acl) {
  std::array<Text, 6> fields;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::size_t end = text.find(u';');
    if ((end == Text::npos) != (i + 1 == fields.size())) return false;
    fields[i] = Trimmed(text.substr(0, end));
    if (end != Text::npos) text.remove_prefix(end + 1);
  }
  const Name* const type = FindName(kAceTypes, fields[0]);
  const auto flags = ParseAceFlags(fields[1]);
  const auto mask = ParseRights(fields[2]);
  const auto object = ParseGuid(fields[3]), inheritedObject = ParseGuid(fields[4]);
  const auto sid = TakeSid(fields[5]);
  if (!type || !flags || !mask || !object || !inheritedObject || !sid || !fields[5].empty()) return false;
  if (type->value < kAllowedObjectAce || type->value > kAlarmObjectAce) {
    if (!object->empty() || !inheritedObject->empty()) return false;
    acl.Add(static_cast<std::uint8_t>(type->value), *flags, *mask, *sid);
    return true;
  }
  Bytes ace{static_cast<std::uint8_t>(type->value), *flags, 0, 0};
  AppendLittleEndian(ace, std::uint32_t{*mask});
  AppendLittleEndian(ace, static_cast<std::uint32_t>((object->empty() ? 0 : 1) | (inheritedObject->empty() ? 0 : 2)));
  for (const Bytes* const part : {&*object, &*inheritedObject, &*sid})
    ace.insert(ace.end(), part->begin(), part->end());
  StoreLittleEndian(ace, 2, static_cast<std::uint16_t>(ace.size()));
  acl.Add(ace);
  return true;
}

struct AclText {
  bool present = false;
  bool null = false;
  win32::WORD control = 0;
  Bytes bytes;
};

// "PAI(...)(...)" behind "D:" or "S:"; the letters set the bits of the DACL, which are half those of the SACL.
bool TakeAcl(Text& text, bool sacl, AclText& parsed) {
  unsigned control = win32::SE_DACL_PRESENT;
  for (;;) {
    SkipBlanks(text);
    const auto take = [&](Text word, unsigned bit) {
      if (!StartsWithAsciiNoCase(text, word)) return false;
      text.remove_prefix(word.size());
      control |= bit;
      return true;
    };
    if (take(u"NO_ACCESS_CONTROL", 0))
      parsed.null = true;
    else if (!take(u"AR", win32::SE_DACL_AUTO_INHERIT_REQ) && !take(u"AI", win32::SE_DACL_AUTO_INHERITED) &&
             !take(u"P", win32::SE_DACL_PROTECTED))
      break;
  }
  AclBuilder acl;
  for (SkipBlanks(text); !text.empty() && text.front() == u'('; SkipBlanks(text)) {
    const std::size_t end = text.find(u')');
    if (end == Text::npos || !ParseAce(text.substr(1, end - 1), acl)) return false;
    text.remove_prefix(end + 1);
  }
  if (parsed.null && acl.count() != 0) return false;
  parsed.present = true;
  if (!parsed.null) {
    parsed.bytes = acl.Take();
    if (parsed.bytes.empty()) return false;
  }
  // SE_SACL_PRESENT is four times SE_DACL_PRESENT; the other SACL bits are twice those of the DACL.
  parsed.control = static_cast<win32::WORD>(
      !sacl ? control : win32::SE_SACL_PRESENT | (control & ~unsigned{win32::SE_DACL_PRESENT}) << 1);
  return true;
}

// ---- to text

std::u16string SidName(ByteView sid) {
  for (const KnownSid& known : KnownSids())
    if (std::ranges::equal(known.sid, sid)) return std::u16string(known.alias);
  return SidToText(sid);
}

template <std::size_t N>
std::u16string NamesOf(const Name (&names)[N], std::uint32_t bits, std::uint32_t& left) {
  std::u16string text;
  left = bits;
  for (const Name& name : names) {
    if ((left & name.value) == 0) continue;
    text += name.text;
    left &= ~name.value;
  }
  return text;
}

std::u16string RightsText(std::uint8_t type, win32::ACCESS_MASK mask) {
  std::uint32_t left = 0;
  if (type == kMandatoryLabelAce) {
    const std::u16string text = NamesOf(kLabelRights, mask, left);
    return left == 0 ? text : HexText(mask);
  }
  for (const Name& set : kRightSets)
    if (set.value == mask) return std::u16string(set.text);
  const std::u16string text = NamesOf(kRights, mask, left);
  return left == 0 ? text : HexText(mask);
}

std::u16string GuidText(ByteView guid) {
  constexpr int kOrder[] = {3, 2, 1, 0, -1, 5, 4, -1, 7, 6, -1, 8, 9, -1, 10, 11, 12, 13, 14, 15};
  std::string text;
  for (const int index : kOrder) {
    char byte[4] = "-";
    if (index >= 0) std::snprintf(byte, sizeof byte, "%02x", unsigned{guid[static_cast<std::size_t>(index)]});
    text += byte;
  }
  return Utf16(text);
}

bool AppendAce(const AceView& ace, std::u16string& text) {
  const auto* const type = std::find_if(std::begin(kAceTypes), std::end(kAceTypes),
                                        [&](const Name& name) { return name.value == ace.type; });
  if (type == std::end(kAceTypes)) return false;
  std::u16string object, inheritedObject;
  if (ace.type >= kAllowedObjectAce && ace.type <= kAlarmObjectAce) {
    const auto present = LoadLittleEndian<std::uint32_t>(ace.bytes, 8);
    if ((present & 1) != 0) object = GuidText(ace.bytes.subspan(12, 16));
    if ((present & 2) != 0) inheritedObject = GuidText(ace.bytes.subspan((present & 1) != 0 ? 28 : 12, 16));
  }
  std::uint32_t left = 0;
  text += u'(' + std::u16string(type->text) + u';' + NamesOf(kAceFlags, ace.flags, left) + u';' +
          RightsText(ace.type, ace.mask) + u';' + object + u';' + inheritedObject + u';' + SidName(ace.sid) + u')';
  return true;
}

bool AppendAcl(char16_t letter, unsigned control, ByteView acl, std::u16string& text) {
  text += letter;
  text += u':';
  if ((control & win32::SE_DACL_PROTECTED) != 0) text += u'P';
  if ((control & win32::SE_DACL_AUTO_INHERIT_REQ) != 0) text += u"AR";
  if ((control & win32::SE_DACL_AUTO_INHERITED) != 0) text += u"AI";
  if (acl.empty()) {
    text += u"NO_ACCESS_CONTROL";
    return true;
  }
  for (const AceView& ace : Aces(acl))
    if (!AppendAce(ace, text)) return false;
  return true;
}

}  // namespace

Sid SidFromSddl(std::u16string_view text) {
  const auto sid = TakeSid(text);
  return sid && text.empty() ? *sid : Sid();
}

std::optional<Bytes> DescriptorFromText(std::u16string_view sddl) {
  Sid owner, group;
  AclText dacl, sacl;
  for (SkipBlanks(sddl); !sddl.empty(); SkipBlanks(sddl)) {
    if (sddl.size() < 2 || sddl[1] != u':') return std::nullopt;
    const char16_t letter = LowerAscii(sddl.substr(0, 1)).front();
    sddl.remove_prefix(2);
    SkipBlanks(sddl);
    if (letter == u'o' || letter == u'g') {
      Sid& to = letter == u'o' ? owner : group;
      const auto sid = TakeSid(sddl);
      if (!to.empty() || !sid) return std::nullopt;
      to = *sid;
    } else if (letter == u'd' || letter == u's') {
      AclText& to = letter == u'd' ? dacl : sacl;
      if (to.present || !TakeAcl(sddl, letter == u's', to)) return std::nullopt;
    } else {
      return std::nullopt;
    }
  }
  return BuildDescriptor({static_cast<win32::WORD>(dacl.control | sacl.control), owner, group, sacl.bytes, dacl.bytes});
}

std::u16string DescriptorToText(ByteView descriptor, win32::DWORD information) {
  const auto view = ViewDescriptor(descriptor);
  if (!view) return {};
  std::u16string text;
  if ((information & win32::OWNER_SECURITY_INFORMATION) != 0 && !view->owner.empty())
    text += u"O:" + SidName(view->owner);
  if ((information & win32::GROUP_SECURITY_INFORMATION) != 0 && !view->group.empty())
    text += u"G:" + SidName(view->group);
  if ((information & win32::DACL_SECURITY_INFORMATION) != 0 && view->HasDacl() &&
      !AppendAcl(u'D', view->control, view->dacl, text))
    return {};
  if ((information & win32::SACL_SECURITY_INFORMATION) != 0 && view->HasSacl() &&
      !AppendAcl(u'S', view->control >> 1u, view->sacl, text))
    return {};
  return text;
}

}  // namespace emulated
