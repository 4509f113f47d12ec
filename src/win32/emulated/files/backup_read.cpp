#include <algorithm>

#include "win32/emulated/call.h"
#include "win32/emulated/files/backup_context.h"
#include "win32/emulated/files/backup_format.h"
#include "win32/emulated/security/descriptor.h"
#include "win32/file.h"

namespace emulated {

namespace {

// Puts out the streams of a file one after the other: security, extended attributes, data, named streams, object id,
// reparse data. Other names of the file are not among them: by the Platform SDK (backing up file links) they are left
// to the caller, who may hand them to BackupWrite.
class BackupReader : public BackupContext {
 public:
  BackupReader(const std::shared_ptr<FileObject>& file, bool processSecurity)
      : BackupContext(file), stage_(processSecurity ? Stage::Security : Stage::ExtendedAttributes) {
    const auto& scripted = Machine::Current().scriptedBackup;
    if (!scripted) return;
    held_ = scripted->read;
    stage_ = Stage::End;
  }

  // Fills `to`; `done` is less only at the end of all streams or, with `stopAtStreams`, at the end of one.
  win32::DWORD Read(FileObject& file, std::span<std::uint8_t> to, bool stopAtStreams, std::size_t& done);

 private:
  enum class Stage { Security, ExtendedAttributes, Streams, ObjectId, ReparseData, End };

  win32::DWORD NextStream(const FileObject& file);
  win32::DWORD PutSecurity(const FileObject& file);
  win32::DWORD PutExtendedAttributes(const FileObject& file);
  win32::DWORD PutDataStreams(const FileObject& file);
  win32::DWORD PutData(const FileObject& file, const StreamInfo& stream);
  void PutSparseBlock();
  win32::DWORD PutObjectId(const FileObject& file);
  win32::DWORD PutReparseData(const FileObject& file);
  void Put(BackupStreamHeader header, ByteView content);

  Stage stage_;
  Bytes held_;             // a header, and the content of a stream that is not data
  std::size_t taken_ = 0;  // of held_
  // Data of the volume that follows held_.
  std::u16string stream_;
  std::uint64_t offset_ = 0, left_ = 0;
  // The data streams still to come, and the blocks of a sparse one.
  bool listed_ = false;
  std::vector<StreamInfo> streams_;
  std::size_t nextStream_ = 0;
  std::vector<StreamRange> blocks_;
  std::size_t nextBlock_ = 0;
};

win32::DWORD BackupReader::Read(FileObject& file, std::span<std::uint8_t> to, bool stopAtStreams, std::size_t& done) {
  done = 0;
  while (done < to.size()) {
    const std::span<std::uint8_t> room = to.subspan(done);
    if (taken_ < held_.size()) {
      const std::size_t count = std::min(room.size(), held_.size() - taken_);
      std::copy_n(held_.begin() + static_cast<std::ptrdiff_t>(taken_), count, room.begin());
      taken_ += count;
      done += count;
    } else if (left_ != 0) {
      const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), left_));
      std::size_t read = 0;
      if (const win32::DWORD error = file.volume->volume->Read(file.file, stream_, offset_, room.first(count), read))
        return error;
      file.accessed = true;
      if (read != count) return win32::ERROR_HANDLE_EOF;  // it was cut while we read: its header promised more
      offset_ += count;
      left_ -= count;
      done += count;
    } else {
      if (stopAtStreams && done != 0) return 0;
      if (const win32::DWORD error = NextStream(file)) return error;
      if (held_.empty()) return 0;
    }
  }
  return 0;
}

// Prepares the next stream that the file has; none: held_ stays empty.
win32::DWORD BackupReader::NextStream(const FileObject& file) {
  held_.clear();
  taken_ = 0;
  win32::DWORD error = 0;
  while (held_.empty() && error == 0 && stage_ != Stage::End) {
    const Stage current = stage_;
    if (current != Stage::Streams) stage_ = static_cast<Stage>(static_cast<int>(current) + 1);
    switch (current) {
      case Stage::Security:
        error = PutSecurity(file);
        break;
      case Stage::ExtendedAttributes:
        error = PutExtendedAttributes(file);
        break;
      case Stage::Streams:
        error = PutDataStreams(file);
        break;
      case Stage::ObjectId:
        error = PutObjectId(file);
        break;
      case Stage::ReparseData:
        error = PutReparseData(file);
        break;
      case Stage::End:
        break;
    }
  }
  return error;
}

void BackupReader::Put(BackupStreamHeader header, ByteView content) {
  header.size = content.size();
  AppendStreamHeader(held_, header);
  held_.insert(held_.end(), content.begin(), content.end());
}

// Owner, group and DACL, and the SACL when the handle may read it.
win32::DWORD BackupReader::PutSecurity(const FileObject& file) {
  constexpr win32::WORD kSaclDefaulted = 0x0020;
  if (!(file.granted & win32::READ_CONTROL)) return win32::ERROR_ACCESS_DENIED;
  Bytes descriptor;
  if (const win32::DWORD error = file.volume->volume->GetSecurity(file.file, descriptor)) return error;
  auto parts = ViewDescriptor(descriptor);
  if (!parts) return win32::ERROR_FILE_CORRUPT;
  if (parts->HasSacl() && !(file.granted & win32::ACCESS_SYSTEM_SECURITY)) {
    parts->sacl = {};
    parts->control &= static_cast<win32::WORD>(
        ~(win32::SE_SACL_PRESENT | kSaclDefaulted | win32::SE_SACL_AUTO_INHERITED | win32::SE_SACL_PROTECTED));
    descriptor = BuildDescriptor(*parts);
  }
  Put({win32::BACKUP_SECURITY_DATA, win32::STREAM_CONTAINS_SECURITY}, descriptor);
  return 0;
}

win32::DWORD BackupReader::PutExtendedAttributes(const FileObject& file) {
  std::vector<ExtendedAttribute> attributes;
  if (const win32::DWORD error = file.volume->volume->GetExtendedAttributes(file.file, attributes)) return error;
  if (attributes.empty()) return 0;
  if (!(file.granted & win32::FILE_READ_EA)) return win32::ERROR_ACCESS_DENIED;
  Put({win32::BACKUP_EA_DATA}, PackExtendedAttributes(attributes));
  return 0;
}

win32::DWORD BackupReader::PutDataStreams(const FileObject& file) {
  if (nextBlock_ < blocks_.size()) {
    PutSparseBlock();
    return 0;
  }
  if (!listed_) {
    if (const win32::DWORD error = file.volume->volume->Streams(file.file, streams_)) return error;
    std::stable_partition(streams_.begin(), streams_.end(),
                          [](const StreamInfo& stream) { return stream.name.empty(); });
    listed_ = true;
  }
  if (nextStream_ == streams_.size()) {
    stage_ = Stage::ObjectId;
    return 0;
  }
  return PutData(file, streams_[nextStream_++]);
}

// A sparse stream that is more than one range from its beginning to its end follows as blocks behind an empty data
// stream; the last, empty block stands at the end of the stream.
win32::DWORD BackupReader::PutData(const FileObject& file, const StreamInfo& stream) {
  const bool unnamed = stream.name.empty();
  if (unnamed && stream.size == 0 && !stream.sparse) return 0;
  if (!(file.granted & win32::FILE_READ_DATA)) return win32::ERROR_ACCESS_DENIED;
  BackupStreamHeader header{unnamed ? win32::BACKUP_DATA : win32::BACKUP_ALTERNATE_DATA, win32::STREAM_NORMAL_ATTRIBUTE,
                            stream.size, 0};
  stream_ = stream.name;
  offset_ = 0;
  left_ = stream.size;
  if (stream.sparse) {
    header.attributes = win32::STREAM_SPARSE_ATTRIBUTE;
    std::vector<StreamRange> ranges;
    if (const win32::DWORD error = file.volume->volume->AllocatedRanges(file.file, stream.name, ranges)) return error;
    std::erase_if(ranges, [&](const StreamRange& range) { return range.length == 0 || range.offset >= stream.size; });
    for (StreamRange& range : ranges) range.length = std::min(range.length, stream.size - range.offset);
    if (stream.size != 0 && !(ranges.size() == 1 && ranges[0].length == stream.size)) {
      ranges.push_back({stream.size, 0});
      blocks_ = std::move(ranges);
      nextBlock_ = 0;
      header.size = 0;
      left_ = 0;
    }
  }
  AppendStreamHeader(held_, header, unnamed ? std::u16string() : BackupStreamName(stream.name));
  return 0;
}

void BackupReader::PutSparseBlock() {
  const StreamRange& block = blocks_[nextBlock_++];
  AppendStreamHeader(
      held_, {win32::BACKUP_SPARSE_BLOCK, win32::STREAM_SPARSE_ATTRIBUTE, sizeof(std::uint64_t) + block.length, 0});
  AppendLittleEndian(held_, block.offset);
  offset_ = block.offset;
  left_ = block.length;
}

win32::DWORD BackupReader::PutObjectId(const FileObject& file) {
  Bytes id;
  const win32::DWORD error = file.volume->volume->GetObjectId(file.file, id);
  if (error == win32::ERROR_FILE_NOT_FOUND) return 0;
  if (error == 0) Put({win32::BACKUP_OBJECT_ID}, id);
  return error;
}

win32::DWORD BackupReader::PutReparseData(const FileObject& file) {
  Bytes data;
  const win32::DWORD error = file.volume->volume->GetReparse(file.file, data);
  if (error == win32::ERROR_NOT_A_REPARSE_POINT) return 0;
  if (error == 0) Put({win32::BACKUP_REPARSE_DATA}, data);
  return error;
}

}  // namespace

}  // namespace emulated

namespace win32 {

BOOL BackupRead(HANDLE hFile, BYTE* lpBuffer, DWORD nNumberOfBytesToRead, DWORD* lpNumberOfBytesRead, BOOL bAbort,
                BOOL bProcessSecurity, void** lpContext) {
  WIN32_CALL(hFile, nNumberOfBytesToRead, bAbort, bProcessSecurity);
  if (call.Refused()) return FALSE;
  if (!lpContext) return call.Done(ERROR_INVALID_PARAMETER);
  if (bAbort) return call.Done(emulated::LeaveBackup<emulated::BackupReader>(lpContext));
  if (!lpNumberOfBytesRead || (!lpBuffer && nNumberOfBytesToRead != 0)) return call.Done(ERROR_INVALID_PARAMETER);
  *lpNumberOfBytesRead = 0;
  const auto file = emulated::FileOf(hFile);
  if (!file) return call.Done(ERROR_INVALID_HANDLE);
  if (file->flags & FILE_FLAG_NO_BUFFERING) return call.Done(ERROR_INVALID_PARAMETER);
  std::shared_ptr<emulated::BackupReader> context;
  if (const DWORD error = emulated::EnterBackup(file, bProcessSecurity != FALSE, lpContext, context))
    return call.Done(error);
  std::size_t done = 0;
  const DWORD error = context->Read(*file, {lpBuffer, nNumberOfBytesToRead},
                                    emulated::Machine::Current().backupReadStopsAtStreams, done);
  *lpNumberOfBytesRead = static_cast<DWORD>(done);
  return call.Done(error);
}

}  // namespace win32
