#include "win32/emulated/registry/wow64.h"

#include <algorithm>

#include "win32/emulated/text.h"

namespace emulated {

namespace {

constexpr std::u16string_view kSoftware = u"MACHINE\\SOFTWARE";
constexpr std::u16string_view kNode = u"Wow6432Node";

// Shared since Windows 7: below HKEY_LOCAL_MACHINE\SOFTWARE.
constexpr std::u16string_view kShared[] = {
    u"Classes",
    u"Clients",
    u"Microsoft\\COM3",
    u"Microsoft\\Cryptography\\Calais\\Current",
    u"Microsoft\\Cryptography\\Calais\\Readers",
    u"Microsoft\\Cryptography\\Services",
    u"Microsoft\\CTF\\SystemShared",
    u"Microsoft\\CTF\\TIP",
    u"Microsoft\\DFS",
    u"Microsoft\\Driver Signing",
    u"Microsoft\\EnterpriseCertificates",
    u"Microsoft\\EventSystem",
    u"Microsoft\\MSMQ",
    u"Microsoft\\Non-Driver Signing",
    u"Microsoft\\Notepad\\DefaultFonts",
    u"Microsoft\\OLE",
    u"Microsoft\\RAS",
    u"Microsoft\\RPC",
    u"Microsoft\\Shared Tools\\MSInfo",
    u"Microsoft\\SystemCertificates",
    u"Microsoft\\TermServLicensing",
    u"Microsoft\\Transaction Server",
    u"Microsoft\\Windows\\CurrentVersion\\Control Panel\\Cursors\\Schemes",
    u"Microsoft\\Windows\\CurrentVersion\\Explorer\\AutoplayHandlers",
    u"Microsoft\\Windows\\CurrentVersion\\Explorer\\DriveIcons",
    u"Microsoft\\Windows\\CurrentVersion\\Explorer\\KindMap",
    u"Microsoft\\Windows\\CurrentVersion\\Group Policy",
    u"Microsoft\\Windows\\CurrentVersion\\Policies",
    u"Microsoft\\Windows\\CurrentVersion\\PreviewHandlers",
    u"Microsoft\\Windows\\CurrentVersion\\Setup",
    u"Microsoft\\Windows\\CurrentVersion\\Telephony\\Locations",
    u"Microsoft\\Windows NT\\CurrentVersion\\Console",
    u"Microsoft\\Windows NT\\CurrentVersion\\FontDpi",
    u"Microsoft\\Windows NT\\CurrentVersion\\FontLink",
    u"Microsoft\\Windows NT\\CurrentVersion\\FontMapper",
    u"Microsoft\\Windows NT\\CurrentVersion\\Fonts",
    u"Microsoft\\Windows NT\\CurrentVersion\\FontSubstitutes",
    u"Microsoft\\Windows NT\\CurrentVersion\\Gre_Initialize",
    u"Microsoft\\Windows NT\\CurrentVersion\\Image File Execution Options",
    u"Microsoft\\Windows NT\\CurrentVersion\\Language Pack",
    u"Microsoft\\Windows NT\\CurrentVersion\\NetworkCards",
    u"Microsoft\\Windows NT\\CurrentVersion\\Perflib",
    u"Microsoft\\Windows NT\\CurrentVersion\\Ports",
    u"Microsoft\\Windows NT\\CurrentVersion\\Print",
    u"Microsoft\\Windows NT\\CurrentVersion\\ProfileList",
    u"Microsoft\\Windows NT\\CurrentVersion\\Time Zones",
    u"Policies",
    u"RegisteredApplications",
};

// Of the shared Classes these are apart again, in SOFTWARE\Classes\Wow6432Node.
constexpr std::u16string_view kClassesApart[] = {u"CLSID", u"DirectShow", u"Interface", u"Media Type",
                                                 u"MediaFoundation"};

// `path` is `key` or lies below it.
bool IsAtOrBelow(std::u16string_view path, std::u16string_view key) {
  return StartsWithAsciiNoCase(path, key) && (path.size() == key.size() || path[key.size()] == u'\\');
}

std::u16string_view Below(std::u16string_view path, std::u16string_view key) {
  return path.size() == key.size() ? std::u16string_view() : path.substr(key.size() + 1);
}

std::u16string Join(std::u16string_view a, std::u16string_view b) {
  return b.empty() ? std::u16string(a) : std::u16string(a) + u"\\" + std::u16string(b);
}

}  // namespace

std::u16string RedirectForView(std::u16string_view path, bool view32) {
  if (!IsAtOrBelow(path, kSoftware)) return std::u16string(path);
  const std::u16string_view software = path.substr(0, kSoftware.size());
  std::u16string_view rest = Below(path, kSoftware);
  if (IsAtOrBelow(rest, kNode)) {
    rest = Below(rest, kNode);
  } else if (!view32) {
    return std::u16string(path);
  }
  if (IsAtOrBelow(rest, kShared[0])) {
    std::u16string_view inClasses = Below(rest, kShared[0]);
    if (IsAtOrBelow(inClasses, kNode)) return Join(software, rest);
    const bool apart = std::any_of(std::begin(kClassesApart), std::end(kClassesApart),
                                   [&](std::u16string_view key) { return IsAtOrBelow(inClasses, key); });
    return apart ? Join(Join(Join(software, kShared[0]), kNode), inClasses) : Join(software, rest);
  }
  const bool shared = std::any_of(std::begin(kShared), std::end(kShared),
                                  [&](std::u16string_view key) { return IsAtOrBelow(rest, key); });
  return shared ? Join(software, rest) : Join(Join(software, kNode), rest);
}

}  // namespace emulated
