// A registry hive: the tree in memory, and the regf file format that it is read from and written to.
//
// A file is checked whole when it is read; its keys are made when they are asked for. It is written whole as a fresh,
// compact file; nothing is edited in place. What is kept of a key that is not understood here: flags, access bits,
// class name, time stamp, security descriptor, types and bytes of values; and of the file: its base block (GUIDs,
// version, file name) but for the fields that count or check.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "win32/constants.h"
#include "win32/emulated/bytes.h"

namespace emulated {

class HiveSource;  // hive_reader.cpp: the bytes of a hive's file
class Volume;
struct Hive;

// 100 ns since 1601.
using FileTime = std::int64_t;

// The order and the equality of names: upper case, one UTF-16 unit at a time.
class UpCase {
 public:
  UpCase();                               // A to Z, Latin-1, Greek and Cyrillic; for a machine without a disk
  explicit UpCase(const Volume& volume);  // the volume's table, which is Windows' own
  char16_t operator()(char16_t unit) const { return table_[unit]; }
  std::u16string operator()(std::u16string_view text) const;

 private:
  std::vector<char16_t> table_;
};

struct RegistryValue {
  std::u16string name;  // empty: the default value
  win32::DWORD type = 0;
  Bytes data;
  std::uint16_t flags = 0;  // kept: bits beside the one for the form of the name
  // The text of a REG_SZ or REG_EXPAND_SZ without its terminator.
  std::u16string Text() const;
};

Bytes RegistryText(std::u16string_view text);                       // with its terminator
Bytes RegistryMultiText(const std::vector<std::u16string>& texts);  // REG_MULTI_SZ
std::vector<std::u16string> MultiText(const RegistryValue& value);

inline constexpr std::size_t kLongestKeyName = 255;
inline constexpr std::size_t kLongestValueName = 16383;
inline constexpr unsigned kDeepestKey = 512;

// Flags of a key node.
inline constexpr std::uint16_t kKeyVolatile = 0x01, kKeyHiveEntry = 0x04, kKeyNoDelete = 0x08, kKeySymbolicLink = 0x10,
                               kKeyCompressedName = 0x20, kKeyPredefinedHandle = 0x40;

struct HiveKey {
  std::u16string name;
  std::u16string upperName;
  std::uint16_t flags = 0;             // kKey*, and bits that are only kept
  std::uint32_t accessBits = 0;        // kept
  std::uint8_t virtualization = 0;     // kept: user and virtualization flags
  std::uint32_t predefinedHandle = 0;  // kept: of a key that stands for a handle, which has no values of its own
  FileTime lastWrite = 0;
  std::u16string className;
  std::shared_ptr<const Bytes> security;  // a self-relative descriptor; keys with equal ones may share it
  HiveKey* parent = nullptr;
  Hive* hive = nullptr;           // null once the key is deleted or its hive unloaded
  std::shared_ptr<Hive> mounted;  // the hive that is loaded here; its root stands for this key
  bool deleted = false;

  bool IsVolatile() const { return (flags & kKeyVolatile) != 0; }
  bool IsLink() const { return (flags & kKeySymbolicLink) != 0; }

  // In the order they were set.
  std::vector<RegistryValue>& Values() {
    ReadContents();
    return values_;
  }
  // By upperName.
  std::vector<std::shared_ptr<HiveKey>>& Children() {
    ReadContents();
    return children_;
  }
  // Null when there is none.
  std::shared_ptr<HiveKey> Child(std::u16string_view upperName);
  // The value of the name, in any case; null when there is none.
  RegistryValue* Value(std::u16string_view name, const UpCase& upCase);
  // It is no longer of its hive, nor is what is below it. (What nobody has asked for of it is never read then.)
  void Detach();

 private:
  friend class HiveSource;
  void ReadContents();

  std::uint32_t unread_ = 0;  // where its record is in the hive's file, until values and children have been read
  std::vector<RegistryValue> values_;
  std::vector<std::shared_ptr<HiveKey>> children_;
};

struct Hive {
  Bytes baseBlock;  // 4096 bytes as read
  std::shared_ptr<HiveKey> root;
  std::shared_ptr<const UpCase> upCase;
  std::shared_ptr<HiveSource> source;  // what keys are read from; null for a hive that is all in memory
  bool dirty = false;

  // Adds a key without values; the name must be free. The descriptor is the caller's to choose.
  std::shared_ptr<HiveKey> AddKey(HiveKey& parent, std::u16string_view name, std::shared_ptr<const Bytes> security,
                                  bool isVolatile, FileTime now);
  // Takes a key with all below it out of the tree; whoever still holds one of them sees that it is deleted.
  void RemoveKey(HiveKey& key, FileTime now);
  // The key's values or children have changed: time stamps and the need to write.
  void Touch(HiveKey& key, FileTime now);
  // The hive leaves the machine: keys that are still held no longer belong to it.
  void Abandon();
};

// Reads a hive file. Null and one line in `error` for a file that is damaged in any way, is dirty (its two sequence
// numbers differ: changes are in log files that nobody replays here) or is of a version that is not known (1.3 to 1.6
// are).
std::shared_ptr<Hive> ReadHive(Bytes file, std::shared_ptr<const UpCase> upCase, std::string& error);
// The hive as a file; volatile keys are left out. The base block's sequence numbers go on. All of it has been read
// then.
Bytes WriteHive(const Hive& hive, FileTime now);
// An empty hive whose root has this name.
std::shared_ptr<Hive> NewHive(std::u16string_view rootName, std::shared_ptr<const Bytes> security,
                              std::shared_ptr<const UpCase> upCase, FileTime now);

// The hash of an lh list: 37 * hash + upper-case unit.
std::uint32_t NameHash(std::u16string_view upperName);

}  // namespace emulated
