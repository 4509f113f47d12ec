// The volume on libntfs-3g. The library's rule that a record is open at most once shapes it: an inode is opened inside
// one call, and closed or kept (KeptInodes) before the call ends.
//
// What the calls ask for again and again is remembered: a Node per file (all that its MFT record says, found in one
// walk of its attributes) and the entries of each directory that was looked into. Times, attributes and descriptors are
// set in the node only; they reach the record when the node is dropped or the volume is flushed, and never when the
// file is deleted first. A new descriptor goes into $Secure at that moment, so a file whose descriptor is set three
// times costs one entry.
#pragma once

#include <algorithm>
#include <optional>
#include <unordered_map>

#include "win32/constants.h"
#include "win32/emulated/storage/ntfs_device.h"
#include "win32/emulated/storage/ntfs_kept_inodes.h"
#include "win32/emulated/storage/ntfs_secure.h"
#include "win32/emulated/storage/volume.h"

struct _ntfs_inode;

namespace emulated {

class NtfsVolume final : public Volume {
 public:
  explicit NtfsVolume(BlockDevice& device) { state_.device = &device; }
  NtfsVolume(const NtfsVolume&) = delete;
  NtfsVolume& operator=(const NtfsVolume&) = delete;
  ~NtfsVolume() override;
  win32::DWORD Open();

  FileId Root() const override { return root_; }
  win32::DWORD Lookup(FileId directory, std::u16string_view name, FileId& file, std::u16string* storedName,
                      std::u16string* shortName) override;
  win32::DWORD Stat(FileId file, FileInfo& info) override;
  win32::DWORD List(FileId directory, std::vector<DirectoryEntry>& entries) override;
  win32::DWORD Names(FileId file, std::vector<std::pair<FileId, std::u16string>>& names) override;

  win32::DWORD Create(FileId directory, std::u16string_view name, bool isDirectory, win32::DWORD attributes,
                      ByteView descriptor, FileTime now, FileId& file) override;
  win32::DWORD Link(FileId file, FileId directory, std::u16string_view name) override;
  win32::DWORD Unlink(FileId directory, std::u16string_view name) override;
  win32::DWORD Rename(FileId fromDirectory, std::u16string_view fromName, FileId toDirectory,
                      std::u16string_view toName) override;

  bool AllowsShortNames() const override;
  win32::DWORD AllowShortNames(bool allow) override;

  win32::DWORD Streams(FileId file, std::vector<StreamInfo>& streams) override;
  win32::DWORD CreateStream(FileId file, std::u16string_view stream) override;
  win32::DWORD RemoveStream(FileId file, std::u16string_view stream) override;
  win32::DWORD StreamSize(FileId file, std::u16string_view stream, std::uint64_t& size) override;
  win32::DWORD Read(FileId file, std::u16string_view stream, std::uint64_t offset, std::span<std::uint8_t> to,
                    std::size_t& done) override;
  win32::DWORD Write(FileId file, std::u16string_view stream, std::uint64_t offset, ByteView from) override;
  win32::DWORD SetStreamSize(FileId file, std::u16string_view stream, std::uint64_t size) override;
  win32::DWORD SetSparse(FileId file, std::u16string_view stream) override;
  win32::DWORD AllocatedRanges(FileId file, std::u16string_view stream, std::vector<StreamRange>& ranges) override;

  win32::DWORD SetAttributes(FileId file, win32::DWORD attributes) override;
  win32::DWORD SetTimes(FileId file, const FileTimes& times) override;
  win32::DWORD GetSecurity(FileId file, Bytes& descriptor) override;
  win32::DWORD SetSecurity(FileId file, ByteView descriptor) override;
  win32::DWORD GetReparse(FileId file, Bytes& data) override;
  win32::DWORD SetReparse(FileId file, ByteView data) override;
  win32::DWORD RemoveReparse(FileId file) override;
  win32::DWORD ReparsePoints(std::vector<FileId>& files) override;
  win32::DWORD GetExtendedAttributes(FileId file, std::vector<ExtendedAttribute>& attributes) override;
  win32::DWORD SetExtendedAttributes(FileId file, const std::vector<ExtendedAttribute>& attributes) override;
  win32::DWORD GetObjectId(FileId file, Bytes& id) override;
  win32::DWORD SetObjectId(FileId file, ByteView id) override;

  std::u16string Label() const override { return label_; }
  std::uint64_t SerialNumber() const override { return serialNumber_; }
  std::uint64_t TotalBytes() const override;
  std::uint64_t FreeBytes() const override;
  std::uint32_t ClusterSize() const override;
  bool IsJournalClean() const override { return isJournalClean_; }
  bool IsMarkedForCheck() const override { return isMarkedForCheck_; }
  win32::DWORD DiscardJournal() override;
  char16_t UpCase(char16_t unit) const override { return upCase_[unit]; }
  win32::DWORD Flush() override;

 private:
  using Descriptor = ntfs::SecureFile::Descriptor;

  // Descriptors are told apart by their bytes, wherever these are.
  struct BytesHash {
    using is_transparent = void;
    std::size_t operator()(ByteView bytes) const {
      return std::hash<std::string_view>{}({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
    std::size_t operator()(const Descriptor& descriptor) const { return (*this)(ByteView(*descriptor)); }
  };
  struct SameBytes {
    using is_transparent = void;
    static ByteView View(ByteView bytes) { return bytes; }
    static ByteView View(const Descriptor& descriptor) { return *descriptor; }
    bool operator()(const auto& a, const auto& b) const { return std::ranges::equal(View(a), View(b)); }
  };
  // Names that differ in case only are one: by the volume's table, which is `upCase`.
  struct NameHash {
    using is_transparent = void;
    const char16_t* upCase;
    std::size_t operator()(std::u16string_view name) const;
  };
  struct SameName {
    using is_transparent = void;
    const char16_t* upCase;
    bool operator()(std::u16string_view a, std::u16string_view b) const;
  };

  struct Name {
    FileId directory = 0;
    std::u16string name;
    bool isShort = false;
  };

  // A file as every reader sees it. `dirty`: the times and the settable attributes are not in the record yet;
  // `descriptor`: neither is this descriptor.
  struct Node {
    FileInfo info;
    FileId directory = 0;     // in which all its names are; 0 when they are in several
    std::vector<Name> names;  // none of a file with one: its record is asked again, which is rare
    std::vector<StreamInfo> streams;
    Bytes reparse;
    bool hasExtendedAttributes = false;
    bool hasObjectId = false;
    bool dirty = false;
    bool isListed = false;  // in dirty_
    Descriptor descriptor;

    bool IsDirectory() const { return (info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY) != 0; }
    // In no index but those of directories.
    bool IsPlainFile() const { return !IsDirectory() && reparse.empty() && !hasObjectId; }
  };

  template <typename Content>
  using ByName = std::unordered_map<std::u16string, Content, NameHash, SameName>;

  // All entries of a directory, by their names. A name is kept once, and few have a short one: there are many entries.
  struct Entry {
    FileId id = 0;
    std::unique_ptr<std::u16string> shortName;  // null when there is none
  };
  struct Directory {
    explicit Directory(const char16_t* upCase)
        : entries(0, NameHash{upCase}, SameName{upCase}), shortNames(0, NameHash{upCase}, SameName{upCase}) {}
    ByName<Entry> entries;
    ByName<std::u16string> shortNames;  // to the key of `entries`
  };
  using KnownEntry = std::pair<const std::u16string, Entry>;

  // ntfs_volume.cpp: the mount, the caches, and what goes down to the records.
  bool ReadJournalState();
  void Enter();
  win32::DWORD GetNode(FileId file, Node*& node);
  win32::DWORD Refresh(Node& node, _ntfs_inode* inode);
  static win32::DWORD ReadAttributes(Node& node, _ntfs_inode* inode);
  static void ReadAttribute(Node& node, _ntfs_inode* inode, const void* record);
  win32::DWORD PutDown(Node& node, _ntfs_inode* directory);
  win32::DWORD PutDownAll();
  win32::DWORD Lost(win32::DWORD error);
  bool IsNearlyFull(std::uint64_t wanted) const;
  win32::DWORD MakeRoomFor(std::uint64_t wanted);
  win32::DWORD Settle(Node& node);
  void ListDirty(Node& node);
  void ForgetFiles(const std::vector<FileId>& files);
  win32::DWORD HoldTimes(FileId file);
  void RefreshTotals(Node& node);

  // ntfs_names.cpp
  std::u16string UpCased(std::u16string_view name) const;
  bool EqualNames(std::u16string_view a, std::u16string_view b) const;
  win32::DWORD GetDirectory(FileId file, Directory*& directory);
  static bool IsLegalName(std::u16string_view name);
  win32::DWORD CheckNewName(const Directory& entries, FileId directory, std::u16string_view name) const;
  static const KnownEntry* Find(const Directory& directory, std::u16string_view name);
  win32::DWORD AddName(FileId file, FileId directory, std::u16string_view name);
  win32::DWORD RemoveName(FileId file, FileId directory, std::u16string_view name);
  void Remember(Directory& directory, std::u16string_view name, FileId file);
  void Forget(Directory& directory, std::u16string_view name);
  win32::DWORD RefreshIfKnown(FileId file);

  // ntfs_short_names.cpp
  win32::DWORD GiveShortName(FileId file, FileId directory, std::u16string_view name);
  void RenewShortName(FileId file, FileId directory, std::u16string_view name, bool hadOne);

  // ntfs_streams.cpp
  StreamInfo* FindStream(Node& node, std::u16string_view stream) const;
  win32::DWORD ChangeStream(FileId file, std::u16string_view stream, std::uint64_t size, std::uint64_t offset,
                            ByteView from);

  // ntfs_security.cpp
  win32::DWORD StoreDescriptor(_ntfs_inode* inode, const Bytes& descriptor, std::uint32_t& id);
  std::optional<Bytes> StoredDescriptor(std::uint32_t id);
  void EnterDescriptors(const std::vector<std::pair<FileId, FileId>>& files);
  void RememberDescriptor(std::uint32_t id, Descriptor descriptor);
  std::uint32_t KnownId(ByteView descriptor) const;

  ntfs::DeviceState state_;
  _ntfs_volume* volume_ = nullptr;
  ntfs::KeptInodes inodes_;        // each one's node is dirty, or its record as it was read
  std::int64_t nextCluster_ = -1;  // behind those that a stream was given last
  FileId root_ = 0;
  std::u16string label_;
  std::uint64_t serialNumber_ = 0;
  bool isJournalClean_ = true, isMarkedForCheck_ = false;
  std::vector<char16_t> upCase_;

  std::unordered_map<FileId, Node> nodes_;
  std::vector<FileId> dirty_;  // nodes with something to put down; some may be gone
  std::unordered_map<FileId, Directory> directories_;
  std::size_t entries_ = 0;           // of all directories_
  std::size_t largestDirectory_ = 0;  // the most entries that one of them had
  std::unordered_map<std::uint32_t, Descriptor> descriptors_;
  std::unordered_map<Descriptor, std::uint32_t, BytesHash, SameBytes> descriptorIds_;  // of the same descriptors
  ntfs::SecureFile secure_{volume_};
  win32::DWORD lateError_ = 0;  // of something that was lost behind a call that had succeeded
};

// The length of a self-relative security descriptor without what may follow it; 0 when it is not one that NTFS stores
// (it must have an owner and a group).
std::size_t DescriptorLength(ByteView descriptor);

}  // namespace emulated
