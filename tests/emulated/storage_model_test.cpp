// Random operations on names and streams of a volume and on a model of it, with remounts; afterwards the image must
// satisfy other readers.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "support/installed_machine.h"
#include "win32/constants.h"
#include "win32/emulated/storage/volume.h"

namespace emulated {
namespace {

class StorageModel : public testing::TestWithParam<unsigned> {
 protected:
  struct File {
    bool isDirectory = false;
    FileTime created = 0;
    Bytes descriptor;
    std::map<std::u16string, Bytes> streams;
    std::map<std::u16string, FileId> children;  // stored names
    std::set<std::pair<FileId, std::u16string>> names;
  };
  using FileEntry = std::pair<const FileId, File>;

  StorageModel() {
    Mount();
    File& root = files_[volume_->Root()];
    root.isDirectory = true;
    EXPECT_EQ(0u, volume_->GetSecurity(volume_->Root(), root.descriptor));
  }
  void Mount() {
    ASSERT_TRUE(!volume_ || volume_->Flush() == 0);
    volume_.reset();
    ASSERT_EQ(0u, Volume::Mount(*device_, volume_));
    volume_->makesShortNames = GetParam() % 2 == 0;
  }

  std::size_t Below(std::size_t limit) { return random_() % limit; }
  std::u16string RandomName() {
    std::u16string name;
    for (std::size_t length = Below(20) == 0 ? 200 + Below(56) : 1 + Below(2); length > 0; --length)
      name += u"abABcdéÉßЖж字_"[Below(13)];
    return name;
  }
  template <typename Container>
  auto& AnyOf(Container& container) {
    return *std::next(std::begin(container), static_cast<std::ptrdiff_t>(Below(std::size(container))));
  }
  FileEntry& AnyDirectory() {
    for (;;)
      if (FileEntry& file = AnyOf(files_); file.second.isDirectory) return file;
  }
  std::u16string Upper(std::u16string name) const {
    for (char16_t& unit : name) unit = volume_->UpCase(unit);
    return name;
  }
  FileId Child(const File& directory, const std::u16string& name) {
    for (const auto& [stored, file] : directory.children)
      if (Upper(stored) == Upper(name)) return file;
    return 0;
  }
  bool IsInside(FileId directory, FileId ancestor) {
    while (directory != volume_->Root() && directory != ancestor) directory = files_[directory].names.begin()->first;
    return directory == ancestor;
  }

  // Each does one thing to the volume, and to the model unless it must fail.
  void Create() {
    if (files_.size() > 250) return Unlink();
    auto& [directory, parent] = AnyDirectory();
    const std::u16string name = RandomName();
    File made{Below(4) == 0,
              130'000'000'000'000'000 + static_cast<FileTime>(random_()) * 1000,
              test::NumberedDescriptor(static_cast<std::uint32_t>(Below(40))),
              {},
              {},
              {{directory, name}}};
    if (!made.isDirectory) made.streams[u""];
    FileId file = 0;
    const auto error = volume_->Create(directory, name, made.isDirectory, 0, made.descriptor, made.created, file);
    ASSERT_EQ(Child(parent, name) ? win32::ERROR_ALREADY_EXISTS : 0u, error);
    ASSERT_TRUE(error != 0 || (files_.emplace(file, made).second && parent.children.emplace(name, file).second));
  }
  void Unlink() {
    auto& [directory, parent] = AnyDirectory();
    if (parent.children.empty()) return;
    const auto [name, file] = AnyOf(parent.children);
    const auto error = volume_->Unlink(directory, Upper(name));
    ASSERT_EQ(files_[file].children.empty() ? 0u : win32::ERROR_DIR_NOT_EMPTY, error);
    if (error != 0) return;
    parent.children.erase(name);
    files_[file].names.erase({directory, name});
    if (files_[file].names.empty()) files_.erase(file);
  }
  void Rename() {
    auto& [from, before] = AnyDirectory();
    auto& [to, after] = Below(3) ? AnyDirectory() : *files_.find(from);
    if (before.children.empty()) return;
    const auto [name, file] = AnyOf(before.children);
    if (IsInside(to, file)) return;
    const std::u16string newName = Below(4) ? RandomName() : Upper(name);
    const bool isTaken = Child(after, newName) != 0 && !(from == to && Upper(name) == Upper(newName));
    ASSERT_EQ(isTaken ? win32::ERROR_ALREADY_EXISTS : 0u, volume_->Rename(from, name, to, newName));
    if (isTaken) return;
    before.children.erase(name);
    after.children[newName] = file;
    files_[file].names.erase({from, name});
    files_[file].names.insert({to, newName});
  }
  void Link() {
    auto& [file, model] = AnyOf(files_);
    auto& [directory, parent] = AnyDirectory();
    const std::u16string name = RandomName();
    const auto error = volume_->Link(file, directory, name);
    ASSERT_EQ(model.isDirectory          ? win32::ERROR_ACCESS_DENIED
              : Child(parent, name) != 0 ? win32::ERROR_ALREADY_EXISTS
                                         : 0u,
              error);
    if (error != 0) return;
    parent.children[name] = file;
    model.names.insert({directory, name});
  }
  void WriteOrResize() {
    auto& [file, model] = AnyOf(files_);
    if (model.streams.empty()) return;
    auto& [name, content] = AnyOf(model.streams);
    if (Below(3) == 0) {
      content.resize(Below(2) ? Below(30000) : Below(900));
      ASSERT_EQ(0u, volume_->SetStreamSize(file, name, content.size()));
      return;
    }
    const std::size_t offset = Below(3) ? content.size() : Below(6000);
    Bytes data(Below(3) ? Below(1200) : Below(20000));
    std::ranges::generate(data, [this] { return static_cast<std::uint8_t>(random_()); });
    ASSERT_EQ(0u, volume_->Write(file, Upper(name), offset, data));
    if (data.empty()) return;
    if (content.size() < offset + data.size()) content.resize(offset + data.size());
    std::ranges::copy(data, content.begin() + static_cast<std::ptrdiff_t>(offset));
  }
  void Stream() {
    auto& [file, model] = AnyOf(files_);
    const std::u16string names[] = {u"one", u"Two", u"three"}, name = AnyOf(names);
    if (model.streams.contains(name)) {
      ASSERT_EQ(win32::ERROR_ALREADY_EXISTS, volume_->CreateStream(file, Upper(name)));
      ASSERT_EQ(0u, volume_->RemoveStream(file, Upper(name)));
      model.streams.erase(name);
    } else {
      ASSERT_EQ(win32::ERROR_FILE_NOT_FOUND, volume_->RemoveStream(file, name));
      ASSERT_EQ(0u, volume_->CreateStream(file, name));
      model.streams[name];
    }
  }

  void Step() {
    using M = StorageModel;
    static constexpr void (M::*kSteps[])() = {&M::Create, &M::Create, &M::Unlink,        &M::Rename,
                                              &M::Link,   &M::Stream, &M::WriteOrResize, &M::WriteOrResize};
    Below(12) == 0 ? Check(AnyOf(files_)) : (this->*AnyOf(kSteps))();
  }
  void Check(const FileEntry& entry) {
    const auto& [file, model] = entry;
    FileInfo info;
    ASSERT_EQ(0u, volume_->Stat(file, info));
    EXPECT_EQ(model.isDirectory, (info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY) != 0);
    EXPECT_TRUE(model.created == info.creation || file == volume_->Root());
    Bytes descriptor;
    ASSERT_EQ(0u, volume_->GetSecurity(file, descriptor));
    EXPECT_EQ(model.descriptor, descriptor);
    std::vector<std::pair<FileId, std::u16string>> names;
    ASSERT_EQ(0u, volume_->Names(file, names));
    EXPECT_EQ(model.names, std::set(names.begin(), names.end()));
    EXPECT_TRUE(model.names.empty() || model.names.size() == info.links);
    std::vector<StreamInfo> streams;
    ASSERT_EQ(0u, volume_->Streams(file, streams));
    ASSERT_EQ(model.streams.size(), streams.size());
    for (const StreamInfo& stream : streams) {
      const Bytes& content = model.streams.at(stream.name);
      ASSERT_EQ(content.size(), stream.size);
      Bytes read(content.size() + 100);
      std::size_t done = 0;
      ASSERT_EQ(0u, volume_->Read(file, stream.name, 0, read, done));
      read.resize(done);
      ASSERT_EQ(content, read);
    }
    if (!model.isDirectory) return;
    std::vector<DirectoryEntry> entries;
    ASSERT_EQ(0u, volume_->List(file, entries));
    std::map<std::u16string, FileId> children;
    for (const DirectoryEntry& child : entries) {
      children[child.name] = child.id;
      FileId found = 0;  // by its short name, too, when it has one
      EXPECT_EQ(0u, volume_->Lookup(file, child.shortName.empty() ? child.name : child.shortName, found, nullptr));
      EXPECT_EQ(child.id, found);
    }
    EXPECT_EQ(model.children, children);
    EXPECT_TRUE(std::ranges::is_sorted(entries, {}, [this](const DirectoryEntry& child) { return Upper(child.name); }));
  }

  std::mt19937 random_{GetParam()};
  std::unique_ptr<MemoryDevice> device_ = test::FreshNtfs(32, "Random");
  std::unique_ptr<Volume> volume_;
  std::map<FileId, File> files_;
};

TEST_P(StorageModel, AgreesAfterRandomOperationsAndRemounts) {
  for (int step = 1; step <= 3000 && !HasFailure(); ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    Step();
    if (step % 600 != 0) continue;
    Mount();
    for (const FileEntry& file : files_) Check(file);
  }
  Mount();
  const test::TemporaryFolder folder;
  const std::filesystem::path image = folder / "random.ntfs";
  ASSERT_TRUE(device_->SaveTo(image));
  const auto accounting = test::RunCommand("touch /etc/mtab 2>/dev/null; ntfsresize -i -f " + image.string());
  EXPECT_EQ(0, accounting.exitCode) << accounting.output;
  // Every file but the root, as a reader that shares no code with the library finds it (what it digs out of the slack
  // of an index does not count: such a record is not allocated).
  const auto listing = test::RunCommand("cd " + folder.path().string() + R"(
    fls -r -u -f ntfs random.ntfs | grep -oE '[0-9]+-(128|144)-[0-9]+' | cut -d- -f1 | sort -u > named
    ils -a -f ntfs random.ntfs | cut -d'|' -f1 | grep -x '[0-9]*' | sort -u > allocated
    comm -12 named allocated | awk '$1 >= 64' | wc -l)");
  EXPECT_EQ(std::to_string(files_.size() - 1) + "\n", listing.output);
}

INSTANTIATE_TEST_SUITE_P(Seeds, StorageModel, testing::Range(1u, 7u));

}  // namespace
}  // namespace emulated
