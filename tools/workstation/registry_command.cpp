// reg, service, share: what the registry holds, and what the service manager and the server make of it.

#include <algorithm>
#include <cstdio>

#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/emulated/text.h"
#include "win32/win32.h"
#include "workstation/command.h"

namespace workstation {

namespace fs = std::filesystem;
using emulated::Bytes;
using emulated::RegistryValue;
using emulated::Utf16;
using emulated::Utf8;

namespace {

// "HKLM\..." or the hive spelled out; with `narrow` the key as the 32-bit view shows it.
std::u16string KeyPath(const std::string& text, bool narrow) {
  std::u16string path = Utf16(text);
  struct Root {
    std::u16string_view name, shortName;
  };
  static constexpr Root roots[] = {{u"HKEY_LOCAL_MACHINE", u"HKLM"}, {u"HKEY_USERS", u"HKU"}};
  for (const Root& root : roots)
    if (emulated::StartsWithAsciiNoCase(path, root.name))
      path = std::u16string(root.shortName) + path.substr(root.name.size());
  if (!emulated::StartsWithAsciiNoCase(path, u"HKLM") && !emulated::StartsWithAsciiNoCase(path, u"HKU"))
    throw Failure("\"" + text + "\" does not begin with HKLM or HKU");
  constexpr std::u16string_view kSoftware = u"HKLM\\SOFTWARE";
  if (narrow && emulated::StartsWithAsciiNoCase(path, kSoftware) &&
      (path.size() == kSoftware.size() || path[kSoftware.size()] == u'\\') &&
      !emulated::StartsWithAsciiNoCase(path, u"HKLM\\SOFTWARE\\Wow6432Node"))
    path.insert(kSoftware.size(), u"\\Wow6432Node");
  return path;
}

const char* TypeText(win32::DWORD type) {
  static constexpr const char* names[] = {"REG_NONE",   "REG_SZ",      "REG_EXPAND_SZ",
                                          "REG_BINARY", "REG_DWORD",   "REG_DWORD_BIG_ENDIAN",
                                          "REG_LINK",   "REG_MULTI_SZ"};
  return type < 8 ? names[type] : type == win32::REG_QWORD ? "REG_QWORD" : "REG_?";
}

std::string DataText(const RegistryValue& value) {
  char text[16];
  if (value.type == win32::REG_SZ || value.type == win32::REG_EXPAND_SZ || value.type == win32::REG_LINK)
    return Utf8(value.Text());
  if (value.type == win32::REG_DWORD && value.data.size() == 4) {
    std::snprintf(text, sizeof text, "0x%x", emulated::LoadLittleEndian<std::uint32_t>(value.data, 0));
    return text;
  }
  if (value.type == win32::REG_MULTI_SZ) {
    std::u16string units(value.data.size() / 2, u'\0');
    std::memcpy(units.data(), value.data.data(), units.size() * 2);
    while (!units.empty() && units.back() == u'\0') units.pop_back();
    std::replace(units.begin(), units.end(), u'\0', u'|');
    return Utf8(units);
  }
  std::string hex;
  for (const std::uint8_t byte : value.data) {
    std::snprintf(text, sizeof text, "%02x", byte);
    hex += text;
  }
  return hex;
}

void Query(emulated::Registry& registry, const std::u16string& key, bool recursive) {
  std::printf("%s\n", Utf8(key).c_str());
  for (const RegistryValue& value : registry.Values(key))
    std::printf("    %-24s %-14s %s\n", value.name.empty() ? "(Default)" : Utf8(value.name).c_str(),
                TypeText(value.type), DataText(value).c_str());
  for (const std::u16string& name : registry.SubKeys(key)) {
    if (recursive) {
      Query(registry, key + u"\\" + name, true);
    } else {
      std::printf("  %s\\\n", Utf8(name).c_str());
    }
  }
}

std::string Escaped(std::u16string_view text) {
  std::string escaped;
  for (const char c : Utf8(text)) {
    if (c == '\\' || c == '"') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

// The text format of registration files, version 5 (here in UTF-8, which regedit's own is not).
void Export(emulated::Registry& registry, const std::u16string& key) {
  const std::u16string full =
      key.starts_with(u"HKLM") ? u"HKEY_LOCAL_MACHINE" + key.substr(4) : u"HKEY_USERS" + key.substr(3);
  std::printf("\n[%s]\n", Utf8(full).c_str());
  for (const RegistryValue& value : registry.Values(key)) {
    std::printf("%s=", value.name.empty() ? "@" : ("\"" + Escaped(value.name) + "\"").c_str());
    // Only a text that ends where its terminator is fits the quoted form; everything else goes out byte for byte.
    const bool plain = value.type == win32::REG_SZ && emulated::RegistryText(value.Text()) == value.data;
    if (plain) {
      std::printf("\"%s\"\n", Escaped(value.Text()).c_str());
    } else if (value.type == win32::REG_DWORD && value.data.size() == 4) {
      std::printf("dword:%08x\n", emulated::LoadLittleEndian<std::uint32_t>(value.data, 0));
    } else {
      if (value.type == win32::REG_BINARY)
        std::printf("hex:");
      else
        std::printf("hex(%x):", value.type);
      for (std::size_t i = 0; i < value.data.size(); ++i) std::printf("%s%02x", i ? "," : "", value.data[i]);
      std::printf("\n");
    }
  }
  for (const std::u16string& name : registry.SubKeys(key)) Export(registry, key + u"\\" + name);
}

void Add(emulated::Registry& registry, const std::u16string& key, const Arguments& words) {
  if (words.size() != 3) throw Failure("reg add KEY VALUE TYPE DATA (TYPE: sz, expand, dword, multi or binary)");
  const std::u16string name = Utf16(words[0]), text = Utf16(words[2]);
  try {
    if (words[1] == "sz") {
      registry.SetText(key, name, text);
    } else if (words[1] == "expand") {
      registry.SetText(key, name, text, win32::REG_EXPAND_SZ);
    } else if (words[1] == "dword") {
      const unsigned long number = std::stoul(words[2], nullptr, 0);
      if (number > 0xFFFFFFFF) throw Failure("\"" + words[2] + "\" does not fit a dword");
      registry.SetDword(key, name, static_cast<win32::DWORD>(number));
    } else if (words[1] == "multi") {
      std::vector<std::u16string> texts;
      for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(u'|', at), text.size());
        texts.push_back(text.substr(at, end - at));
        at = end + 1;
      }
      registry.Set(key, name, win32::REG_MULTI_SZ, emulated::RegistryMultiText(texts));
    } else if (words[1] == "binary" && words[2].size() % 2 == 0) {
      Bytes bytes;
      for (std::size_t i = 0; i < words[2].size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(words[2].substr(i, 2), nullptr, 16)));
      registry.Set(key, name, win32::REG_BINARY, bytes);
    } else {
      throw Failure("\"" + words[1] + "\" is not a type: sz, expand, dword, multi or binary");
    }
  } catch (const std::logic_error&) {
    throw Failure("\"" + words[2] + "\" is not a value of type " + words[1]);
  }
}

win32::DWORD StartType(const std::string& text) {
  if (text == "auto") return win32::SERVICE_AUTO_START;
  if (text == "demand") return win32::SERVICE_DEMAND_START;
  if (text == "disabled") return win32::SERVICE_DISABLED;
  throw Failure("\"" + text + "\" is not a start type: auto, demand or disabled");
}

constexpr std::u16string_view kServices = u"HKLM\\SYSTEM\\CurrentControlSet\\Services";

}  // namespace

void Registry(const fs::path& folder, const Arguments& arguments) {
  Arguments words = arguments;
  const auto narrow = std::find(words.begin(), words.end(), "--32");
  const bool view32 = narrow != words.end();
  if (view32) words.erase(narrow);
  const auto deep = std::find(words.begin(), words.end(), "-s");
  const bool recursive = deep != words.end();
  if (recursive) words.erase(deep);
  if (words.size() < 2) throw Failure("reg query|add|delete|export KEY ...");
  const std::string verb = words[0];
  const std::u16string key = KeyPath(words[1], view32);
  const Arguments rest(words.begin() + 2, words.end());
  if (verb != "query" && verb != "export" && verb != "add" && verb != "delete")
    throw Failure("\"" + verb + "\" is not query, add, delete or export");
  OnMachine(folder, verb == "add" || verb == "delete", [&](emulated::Machine& machine) {
    emulated::Registry& registry = machine.registry();
    if (verb != "add" && !registry.KeyExists(key)) throw Failure(words[1] + ": there is no such key");
    if (verb == "query") {
      Query(registry, key, recursive);
    } else if (verb == "export") {
      std::printf("Windows Registry Editor Version 5.00\n");
      Export(registry, key);
    } else if (verb == "add") {
      Add(registry, key, rest);
    } else if (rest.empty()) {
      if (!registry.DeleteTree(key)) throw Failure(words[1] + ": could not be deleted");
    } else if (!registry.DeleteValue(key, Utf16(rest[0]))) {
      throw Failure(words[1] + ": has no value \"" + rest[0] + "\"");
    }
  });
}

void Service(const fs::path& folder, const Arguments& arguments) {
  const std::string& verb = arguments[0];
  if (verb == "list") {
    OnMachine(folder, false, [](emulated::Machine& machine) {
      for (const std::u16string& name : machine.registry().SubKeys(kServices)) {
        if (!machine.services().Exists(name)) continue;
        const std::u16string key = std::u16string(kServices) + u"\\" + name;
        const auto start = machine.registry().Query(key, u"Start"), image = machine.registry().Query(key, u"ImagePath");
        std::printf("%-24s %-8s start %s  %s\n", Utf8(name).c_str(),
                    machine.services().State(name) == win32::SERVICE_RUNNING ? "running" : "stopped",
                    start ? DataText(*start).c_str() : "?", image ? Utf8(image->Text()).c_str() : "");
      }
    });
  } else if (verb == "add" && arguments.size() == 4) {
    const win32::DWORD start = StartType(arguments[3]);
    OnMachine(folder, true, [&](emulated::Machine& machine) {
      machine.services().Install(Utf16(arguments[1]), Utf16(arguments[2]), start);
    });
  } else if (verb == "set" && arguments.size() == 3) {
    const win32::DWORD start = StartType(arguments[2]);
    OnMachine(folder, true, [&](emulated::Machine& machine) {
      if (!machine.services().Exists(Utf16(arguments[1]))) throw Failure(arguments[1] + ": there is no such service");
      machine.registry().SetDword(std::u16string(kServices) + u"\\" + Utf16(arguments[1]), u"Start", start);
    });
  } else {
    throw Failure("service list | add NAME IMAGE auto|demand|disabled | set NAME auto|demand|disabled");
  }
}

void Share(const fs::path& folder, const Arguments& arguments) {
  const std::string& verb = arguments[0];
  if (verb == "list") {
    OnMachine(folder, false, [](emulated::Machine&) {
      win32::BYTE* buffer = nullptr;
      win32::DWORD read = 0, total = 0;
      if (const win32::DWORD error =
              win32::NetShareEnum(nullptr, 502, &buffer, win32::MAX_PREFERRED_LENGTH, &read, &total, nullptr))
        FailWith("share list", error);
      const auto* const shares = reinterpret_cast<const win32::SHARE_INFO_502*>(buffer);
      for (win32::DWORD i = 0; i < read; ++i)
        std::printf("%-16s %-40s %s\n", Utf8(shares[i].shi502_netname).c_str(), Utf8(shares[i].shi502_path).c_str(),
                    shares[i].shi502_remark ? Utf8(shares[i].shi502_remark).c_str() : "");
      win32::NetApiBufferFree(buffer);
    });
  } else if (verb == "add" && (arguments.size() == 3 || arguments.size() == 4)) {
    OnMachine(folder, true, [&](emulated::Machine&) {
      std::u16string name = Utf16(arguments[1]), path = Utf16(arguments[2]),
                     remark = arguments.size() == 4 ? Utf16(arguments[3]) : u"";
      win32::SHARE_INFO_502 share{};
      share.shi502_netname = name.data();
      share.shi502_type = win32::STYPE_DISKTREE;
      share.shi502_remark = remark.data();
      share.shi502_max_uses = 0xFFFFFFFF;
      share.shi502_path = path.data();
      if (const win32::DWORD error = win32::NetShareAdd(nullptr, 502, reinterpret_cast<win32::BYTE*>(&share), nullptr))
        FailWith(arguments[1], error);
    });
  } else if (verb == "delete" && arguments.size() == 2) {
    OnMachine(folder, true, [&](emulated::Machine&) {
      std::u16string name = Utf16(arguments[1]);
      if (const win32::DWORD error = win32::NetShareDel(nullptr, name.data(), 0)) FailWith(arguments[1], error);
    });
  } else {
    throw Failure("share list | add NAME PATH [REMARK] | delete NAME");
  }
}

}  // namespace workstation
