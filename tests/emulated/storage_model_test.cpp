// Random operations on names and streams of a volume and on a model of it, with remounts; afterwards the image must
// satisfy other readers.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "support/images.h"
#include "win32/constants.h"
#include "win32/emulated/storage/volume.h"

namespace emulated {
namespace {

struct ModelFile {
  bool isDirectory = false;
  FileTime created = 0;
  Bytes descriptor;
  std::map<std::u16string, Bytes> streams;
  std::map<std::u16string, FileId> children;  // stored names
  std::set<std::pair<FileId, std::u16string>> names;
};

std::u16string Upper(std::u16string name) {
  for (char16_t& unit : name) unit = unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 32) : unit;
  return name;
}

class Model {
 public:
  explicit Model(unsigned seed) : random_(seed), device_(test::FreshNtfs(32, "Random")) {
    Mount();
    ModelFile& root = files_[volume_->Root()];
    root.isDirectory = true;
    EXPECT_EQ(0u, volume_->GetSecurity(volume_->Root(), root.descriptor));
    FileInfo info;
    EXPECT_EQ(0u, volume_->Stat(volume_->Root(), info));
    root.created = info.creation;
  }

  void Run(int steps) {
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      Step();
      if (Below(700) == 0) {
        Mount();
        CheckAll();
      }
    }
    Mount();
    CheckAll();
  }

  const MemoryDevice& device() const { return *device_; }
  void Unmount() {
    if (volume_) {
      EXPECT_EQ(0u, volume_->Flush());
    }
    volume_.reset();
  }
  std::size_t size() const { return files_.size(); }

 private:
  unsigned Below(std::size_t limit) { return static_cast<unsigned>(random_() % limit); }
  Bytes RandomBytes(std::size_t size) {
    Bytes bytes(size);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random_());
    return bytes;
  }
  FileTime RandomTime() { return 130'000'000'000'000'000 + static_cast<FileTime>(random_()) * 1000; }
  std::u16string RandomName() {
    std::u16string name;
    const bool isLong = Below(20) == 0;
    for (unsigned length = isLong ? 200 + Below(56) : 1 + Below(2); length > 0; --length) {
      name += u"abABcdéÉßЖж字_"[Below(13)];
    }
    return name;
  }
  FileId Any() { return std::next(files_.begin(), Below(files_.size()))->first; }
  FileId AnyDirectory() {
    for (;;) {
      if (const FileId file = Any(); files_[file].isDirectory) return file;
    }
  }
  std::u16string Key(const std::u16string& name) const {
    std::u16string key;
    for (const char16_t unit : name) key += volume_->UpCase(unit);
    return key;
  }
  FileId Child(FileId directory, const std::u16string& name) {
    for (const auto& [stored, file] : files_[directory].children) {
      if (Key(stored) == Key(name)) return file;
    }
    return 0;
  }
  bool IsInside(FileId directory, FileId ancestor) {
    while (directory != volume_->Root()) {
      if (directory == ancestor) return true;
      directory = files_[directory].names.begin()->first;
    }
    return directory == ancestor;
  }

  void Mount() {
    Unmount();
    ASSERT_EQ(0u, Volume::Mount(*device_, volume_));
  }

  void Step() {
    static constexpr void (Model::*kSteps[])() = {&Model::Create, &Model::Create, &Model::Create, &Model::Unlink,
                                                  &Model::Rename, &Model::Link,   &Model::Write,  &Model::Write,
                                                  &Model::Resize, &Model::Stream, &Model::Stream, &Model::CheckAny};
    (this->*kSteps[Below(std::size(kSteps))])();
  }

  void Create() {
    if (files_.size() > 250) return Unlink();
    const FileId directory = AnyDirectory();
    const std::u16string name = RandomName();
    const bool isDirectory = Below(4) == 0;
    const Bytes descriptor = test::NumberedDescriptor(Below(40));
    const FileTime now = RandomTime();
    FileId file = 0;
    const win32::DWORD result = volume_->Create(directory, name, isDirectory, 0, descriptor, now, file);
    if (Child(directory, name)) return Expect(win32::ERROR_ALREADY_EXISTS, result);
    ASSERT_EQ(0u, result);
    ASSERT_FALSE(files_.contains(file));
    ModelFile& made = files_[file];
    made = {isDirectory, now, descriptor, {}, {}, {{directory, name}}};
    if (!isDirectory) made.streams[u""];
    files_[directory].children[name] = file;
  }

  void Unlink() {
    const FileId directory = AnyDirectory();
    if (files_[directory].children.empty()) return;
    const auto [name, file] = *std::next(files_[directory].children.begin(), Below(files_[directory].children.size()));
    const win32::DWORD result = volume_->Unlink(directory, Upper(name));
    if (!files_[file].children.empty()) return Expect(win32::ERROR_DIR_NOT_EMPTY, result);
    ASSERT_EQ(0u, result);
    files_[directory].children.erase(name);
    files_[file].names.erase({directory, name});
    if (!files_[file].names.empty()) return;
    files_.erase(file);
    FileInfo info;
    ASSERT_EQ(win32::ERROR_FILE_NOT_FOUND, volume_->Stat(file, info));
  }

  void Rename() {
    const FileId from = AnyDirectory();
    const FileId to = Below(3) ? AnyDirectory() : from;
    if (files_[from].children.empty()) return;
    const auto [name, file] = *std::next(files_[from].children.begin(), Below(files_[from].children.size()));
    if (IsInside(to, file)) return;
    const std::u16string newName = Below(4) ? RandomName() : Upper(name);
    const win32::DWORD result = volume_->Rename(from, name, to, newName);
    const FileId existing = Child(to, newName);
    if (existing && !(from == to && Key(name) == Key(newName))) return Expect(win32::ERROR_ALREADY_EXISTS, result);
    ASSERT_EQ(0u, result);
    files_[from].children.erase(name);
    files_[to].children[newName] = file;
    files_[file].names.erase({from, name});
    files_[file].names.insert({to, newName});
  }

  void Link() {
    const FileId file = Any();
    const FileId directory = AnyDirectory();
    const std::u16string name = RandomName();
    const win32::DWORD result = volume_->Link(file, directory, name);
    if (files_[file].isDirectory) return Expect(win32::ERROR_ACCESS_DENIED, result);
    if (Child(directory, name)) return Expect(win32::ERROR_ALREADY_EXISTS, result);
    ASSERT_EQ(0u, result);
    files_[directory].children[name] = file;
    files_[file].names.insert({directory, name});
  }

  std::map<std::u16string, Bytes>::iterator AnyStream(ModelFile& file) {
    return std::next(file.streams.begin(), Below(file.streams.size()));
  }

  void Write() {
    const FileId file = Any();
    if (files_[file].streams.empty()) return;
    auto& [name, content] = *AnyStream(files_[file]);
    const std::size_t offset = Below(3) ? content.size() : Below(6000);
    const Bytes data = RandomBytes(Below(3) ? Below(1200) : Below(20000));
    ASSERT_EQ(0u, volume_->Write(file, Upper(name), offset, data));
    if (data.empty()) return;
    if (content.size() < offset + data.size()) content.resize(offset + data.size());
    std::ranges::copy(data, content.begin() + static_cast<std::ptrdiff_t>(offset));
  }

  void Resize() {
    const FileId file = Any();
    if (files_[file].streams.empty()) return;
    auto& [name, content] = *AnyStream(files_[file]);
    const std::size_t size = Below(2) ? Below(30000) : Below(900);
    ASSERT_EQ(0u, volume_->SetStreamSize(file, name, size));
    content.resize(size);
  }

  void Stream() {
    const FileId file = Any();
    ModelFile& model = files_[file];
    const std::u16string names[] = {u"one", u"Two", u"three"};
    const std::u16string name = names[Below(3)];
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

  static void Expect(win32::DWORD expected, win32::DWORD result) { ASSERT_EQ(expected, result); }
  void CheckAny() { Check(Any()); }
  void CheckAll() {
    for (const auto& [file, model] : files_) Check(file);
  }

  void Check(FileId file) {
    const ModelFile& model = files_[file];
    FileInfo info;
    ASSERT_EQ(0u, volume_->Stat(file, info));
    EXPECT_EQ(model.isDirectory, (info.attributes & win32::FILE_ATTRIBUTE_DIRECTORY) != 0);
    EXPECT_EQ(model.created, info.creation);
    Bytes bytes;
    ASSERT_EQ(0u, volume_->GetSecurity(file, bytes));
    EXPECT_EQ(model.descriptor, bytes);
    CheckStreams(file, model);
    CheckNames(file, model, info);
  }

  void CheckStreams(FileId file, const ModelFile& model) {
    std::vector<StreamInfo> streams;
    ASSERT_EQ(0u, volume_->Streams(file, streams));
    ASSERT_EQ(model.streams.size(), streams.size());
    for (const StreamInfo& stream : streams) {
      const Bytes& content = model.streams.at(stream.name);
      ASSERT_EQ(content.size(), stream.size);
      EXPECT_FALSE(stream.sparse);
      Bytes read(content.size() + 100);
      std::size_t done = 0;
      ASSERT_EQ(0u, volume_->Read(file, stream.name, 0, read, done));
      read.resize(done);
      ASSERT_EQ(content, read);
    }
  }

  void CheckNames(FileId file, const ModelFile& model, const FileInfo& info) {
    std::vector<std::pair<FileId, std::u16string>> names;
    ASSERT_EQ(0u, volume_->Names(file, names));
    EXPECT_EQ(model.names, std::set(names.begin(), names.end()));
    if (!model.names.empty()) {
      EXPECT_EQ(model.names.size(), info.links);
    }
    if (!model.isDirectory) return;
    std::vector<DirectoryEntry> entries;
    ASSERT_EQ(0u, volume_->List(file, entries));
    std::map<std::u16string, FileId> children;
    for (const DirectoryEntry& entry : entries) children[entry.name] = entry.id;
    EXPECT_EQ(model.children, children);
    EXPECT_TRUE(std::ranges::is_sorted(entries, {}, [this](const DirectoryEntry& entry) { return Key(entry.name); }));
  }

  std::mt19937 random_;
  std::unique_ptr<MemoryDevice> device_;
  std::unique_ptr<Volume> volume_;
  std::map<FileId, ModelFile> files_;
};

class StorageModel : public testing::TestWithParam<unsigned> {};

TEST_P(StorageModel, AgreesAfterRandomOperationsAndRemounts) {
  Model model(GetParam());
  model.Run(3000);
  model.Unmount();
  const test::TemporaryFolder folder;
  const std::filesystem::path image = folder / "random.ntfs";
  ASSERT_TRUE(model.device().SaveTo(image));
  const auto accounting = test::RunCommand("touch /etc/mtab 2>/dev/null; ntfsresize -i -f " + image.string());
  EXPECT_EQ(0, accounting.exitCode) << accounting.output;
  // Every file but the root, as a reader that shares no code with the library finds it (what it digs out of the slack
  // of an index does not count: such a record is not allocated).
  const auto listing = test::RunCommand("cd " + folder.path().string() + R"(
    fls -r -u -f ntfs random.ntfs | grep -oE '[0-9]+-(128|144)-[0-9]+' | cut -d- -f1 | sort -u > named
    ils -a -f ntfs random.ntfs | cut -d'|' -f1 | grep -x '[0-9]*' | sort -u > allocated
    comm -12 named allocated | awk '$1 >= 64' | wc -l)");
  EXPECT_EQ(std::to_string(model.size() - 1) + "\n", listing.output);
}

INSTANTIATE_TEST_SUITE_P(Seeds, StorageModel, testing::Range(1u, 7u));

}  // namespace
}  // namespace emulated
