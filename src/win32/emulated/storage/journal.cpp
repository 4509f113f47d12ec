#include "win32/emulated/storage/journal.h"

#include <sys/stat.h>

#include <array>

namespace emulated {
namespace {

// MAGIC, records, TRAILER. A record: name length, data length (32 bits each), offset (64 bits), name, data.
// The trailer: a name length of 0, 32 bits of zeros, the number of records and the checksum of all before it.
constexpr std::uint64_t kMagic = 0x314C4E524A474D49;  // "IMGJRNL1"
constexpr std::size_t kRecordHeader = 16;
constexpr std::size_t kMaximumName = 255, kMaximumData = 1 << 20;
constexpr std::size_t kBuffer = 1 << 20;
constexpr std::uint64_t kChecksumStart = 0xCBF29CE484222325;

// FNV-1a, by 8 bytes at a time and then by the bytes that are left of each piece.
std::uint64_t Checksum(std::uint64_t sum, ByteView bytes) {
  constexpr std::uint64_t kPrime = 0x100000001B3;
  std::size_t at = 0;
  for (; bytes.size() - at >= 8; at += 8) sum = (sum ^ LoadLittleEndian<std::uint64_t>(bytes, at)) * kPrime;
  for (; at < bytes.size(); ++at) sum = (sum ^ bytes[at]) * kPrime;
  return sum ^ sum >> 32;
}

ByteView ViewOf(const std::string& text) { return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}; }

struct Record {
  std::string name;
  std::uint64_t offset = 0;
  Bytes data;
};

enum class Next { kRecord, kEnd, kDamaged };

class JournalReader {
 public:
  explicit JournalReader(const FileDescriptor& file) : file_(file) {
    std::array<std::uint8_t, sizeof kMagic> magic{};
    isDamaged_ = !Take(magic) || LoadLittleEndian<std::uint64_t>(magic, 0) != kMagic;
  }

  Next Read(Record& record) {
    std::array<std::uint8_t, kRecordHeader> header{};
    if (isDamaged_) return Next::kDamaged;
    const std::uint64_t sum = sum_;
    if (!Take(header)) return Next::kDamaged;
    const auto nameLength = LoadLittleEndian<std::uint32_t>(header, 0);
    const auto dataLength = LoadLittleEndian<std::uint32_t>(header, 4);
    record.offset = LoadLittleEndian<std::uint64_t>(header, 8);
    if (nameLength == 0) {
      std::array<std::uint8_t, 8> checksum{};
      const bool isWhole =
          Take(checksum) && record.offset == records_ && LoadLittleEndian<std::uint64_t>(checksum, 0) == sum;
      return isWhole ? Next::kEnd : Next::kDamaged;
    }
    if (nameLength > kMaximumName || dataLength > kMaximumData) return Next::kDamaged;
    Bytes name(nameLength);
    record.data.resize(dataLength);
    if (!Take(name) || !Take(record.data)) return Next::kDamaged;
    record.name.assign(name.begin(), name.end());
    const bool isPlainName = record.name.find('/') == record.name.npos && record.name != "." && record.name != "..";
    ++records_;
    return isPlainName ? Next::kRecord : Next::kDamaged;
  }

  std::uint64_t position() const { return position_; }

 private:
  bool Take(std::span<std::uint8_t> to) {
    if (!file_.ReadAt(position_, to)) return false;
    position_ += to.size();
    sum_ = Checksum(sum_, to);
    return true;
  }

  const FileDescriptor& file_;
  std::uint64_t position_ = 0;
  std::uint64_t sum_ = kChecksumStart;
  std::uint64_t records_ = 0;
  bool isDamaged_ = false;
};

bool IsWhole(const FileDescriptor& journal) {
  JournalReader reader(journal);
  Record record;
  Next next = Next::kRecord;
  while (next == Next::kRecord) next = reader.Read(record);
  return next == Next::kEnd;
}

bool CarryOut(const FileDescriptor& journal, const std::filesystem::path& folder, std::string& error,
              const ProgressSink& progress) {
  std::map<std::string, FileDescriptor> images;
  JournalReader reader(journal);
  const off_t total = lseek(journal.get(), 0, SEEK_END);
  for (Record record; reader.Read(record) == Next::kRecord;) {
    if (progress && total > 0) progress(reader.position(), static_cast<std::uint64_t>(total));
    auto& image = images[record.name];
    if (!image) image = FileDescriptor(open((folder / record.name).c_str(), O_WRONLY | O_CLOEXEC));
    if (!image || !image.WriteAt(record.offset, record.data)) {
      error = (folder / record.name).string() + ": an interrupted change cannot be completed: " + strerror(errno);
      return false;
    }
  }
  for (const auto& [name, image] : images) {
    if (fdatasync(image.get()) == 0) continue;
    error = (folder / name).string() + ": " + strerror(errno);
    return false;
  }
  return true;
}

}  // namespace

JournalWriter::JournalWriter(std::filesystem::path folder) : folder_(std::move(folder)), checksum_(kChecksumStart) {}

void JournalWriter::Append(ByteView bytes) {
  checksum_ = Checksum(checksum_, bytes);
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
  if (buffer_.size() >= kBuffer) WriteOut();
}

void JournalWriter::WriteOut() {
  if (!file_)
    file_ = FileDescriptor(open((folder_ / "journal.new").c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  failed_ = failed_ || !file_ || !file_.WriteAt(written_, buffer_);
  written_ += buffer_.size();
  buffer_.clear();
}

void JournalWriter::Add(const std::string& name, std::uint64_t offset, ByteView data) {
  if (records_ == 0) {
    Bytes magic;
    AppendLittleEndian(magic, kMagic);
    Append(magic);
  }
  Bytes header;
  AppendLittleEndian(header, static_cast<std::uint32_t>(name.size()));
  AppendLittleEndian(header, static_cast<std::uint32_t>(data.size()));
  AppendLittleEndian(header, offset);
  Append(header);
  Append(ViewOf(name));
  Append(data);
  ++records_;
}

bool JournalWriter::Finish() {
  const std::uint64_t sum = checksum_;
  Bytes trailer(8, 0);
  AppendLittleEndian(trailer, records_);
  AppendLittleEndian(trailer, sum);
  Append(trailer);
  WriteOut();
  std::error_code failure;
  if (!failed_ && fdatasync(file_.get()) == 0) {
    std::filesystem::rename(folder_ / "journal.new", folder_ / "journal", failure);
    if (!failure && SyncFolder(folder_)) return true;
  }
  const int reason = errno;
  std::filesystem::remove(folder_ / "journal.new", failure);
  std::filesystem::remove(folder_ / "journal", failure);
  errno = reason;
  return false;
}

bool SyncFolder(const std::filesystem::path& folder) {
  const FileDescriptor directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return directory && fsync(directory.get()) == 0;
}

static std::string DamagedJournal(const std::filesystem::path& name) {
  return name.string() + ": the record of an interrupted change is damaged or cannot be read";
}

bool ReadJournal(const std::filesystem::path& folder, JournalContent& content, std::string& error) {
  const std::filesystem::path name = folder / "journal";
  const FileDescriptor journal = OpenToRead(name);
  if (!journal && errno == ENOENT) return true;
  JournalReader reader(journal);
  Record record;
  Next next = Next::kDamaged;
  while ((next = reader.Read(record)) == Next::kRecord) content[record.name][record.offset] = std::move(record.data);
  if (next == Next::kDamaged) error = DamagedJournal(name);
  return next == Next::kEnd;
}

bool CompleteJournal(const std::filesystem::path& folder, std::string& error, bool isOwn,
                     const ProgressSink& progress) {
  std::error_code failure;
  std::filesystem::remove(folder / "journal.new", failure);
  const std::filesystem::path name = folder / "journal";
  const FileDescriptor journal(open(name.c_str(), O_RDONLY | O_CLOEXEC));
  if (!journal && errno == ENOENT) return true;
  if (!journal || (!isOwn && !IsWhole(journal))) {
    error = DamagedJournal(name);
    return false;
  }
  if (!CarryOut(journal, folder, error, progress)) return false;
  std::filesystem::remove(name, failure);
  if (failure || !SyncFolder(folder)) {
    error = name.string() + ": cannot be removed";
    return false;
  }
  return true;
}

}  // namespace emulated
