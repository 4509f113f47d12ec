#include <algorithm>
#include <limits>

#include "win32/emulated/call.h"
#include "win32/emulated/files/backup_context.h"
#include "win32/emulated/files/backup_format.h"
#include "win32/emulated/security/access.h"
#include "win32/emulated/security/descriptor.h"
#include "win32/file.h"
#include "win32/handle.h"

namespace emulated {

namespace {

using win32::DWORD;

// The longest content of a stream that is put on the file as one piece: a descriptor, reparse data, extended attributes
// and a path all end below 64 KiB.
constexpr std::uint64_t kLongestPiece = 0x20000;
constexpr DWORD kLongestName = 0xFFFE;  // bytes
constexpr std::uint64_t kBlockOffset = sizeof(std::uint64_t);

// Takes the streams of a backup, in pieces of any size, and puts each on the file as soon as it is complete; data goes
// through as it comes.
class BackupWriter : public BackupContext {
 public:
  BackupWriter(const std::shared_ptr<FileObject>& file, bool processSecurity)
      : BackupContext(file), processSecurity_(processSecurity) {}

  // `done` counts what was taken. After an error the rest of the backup cannot be understood: every further call fails
  // too.
  DWORD Write(win32::HANDLE handle, FileObject& file, ByteView from, std::size_t& done);

 private:
  enum class Phase { Header, Name, BlockOffset, Content };

  DWORD Step(win32::HANDLE handle, FileObject& file, ByteView from, std::size_t& done, bool& hungry);
  bool Collect(std::uint64_t size, ByteView from, std::size_t& done);
  DWORD TakeHeader();
  DWORD BeginContent(FileObject& file);
  DWORD BeginData(FileObject& file);
  DWORD BeginBlock();
  DWORD Finish(win32::HANDLE handle, FileObject& file);
  bool IsData() const {
    return header_.id == win32::BACKUP_DATA || header_.id == win32::BACKUP_ALTERNATE_DATA ||
           header_.id == win32::BACKUP_SPARSE_BLOCK;
  }
  bool IsSkipped() const {
    return header_.id == win32::BACKUP_PROPERTY_DATA || header_.id == win32::BACKUP_TXFS_DATA ||
           (header_.id == win32::BACKUP_SECURITY_DATA && !processSecurity_);
  }

  bool processSecurity_;
  DWORD failed_ = 0;
  Phase phase_ = Phase::Header;
  BackupStreamHeader header_;
  Bytes collected_;  // of the header, the name, a block's offset or a content that is put down as one piece
  std::u16string name_;
  std::uint64_t left_ = 0;  // of the content
  // Where data goes.
  bool hasStream_ = false;
  std::u16string stream_;
  std::uint64_t offset_ = 0;
};

// Owner and group, DACL and SACL as far as the handle's rights go.
DWORD RestoreSecurity(const FileObject& file, ByteView descriptor) {
  const auto view = ViewDescriptor(descriptor);
  if (!view) return win32::ERROR_INVALID_SECURITY_DESCR;
  if (!(file.granted & (win32::WRITE_OWNER | win32::WRITE_DAC))) return win32::ERROR_ACCESS_DENIED;
  DWORD parts = 0;
  if (file.granted & win32::WRITE_DAC) parts |= win32::DACL_SECURITY_INFORMATION;
  if ((file.granted & win32::WRITE_OWNER) && !view->owner.empty()) parts |= win32::OWNER_SECURITY_INFORMATION;
  if ((file.granted & win32::WRITE_OWNER) && !view->group.empty()) parts |= win32::GROUP_SECURITY_INFORMATION;
  if ((file.granted & win32::ACCESS_SYSTEM_SECURITY) && view->HasSacl()) parts |= win32::SACL_SECURITY_INFORMATION;
  if ((parts & win32::OWNER_SECURITY_INFORMATION) && !MayMakeOwner(Machine::Current().EffectiveToken(), view->owner))
    return win32::ERROR_INVALID_OWNER;
  Bytes current;
  if (const DWORD error = file.volume->volume->GetSecurity(file.file, current)) return error;
  return file.volume->volume->SetSecurity(file.file, MergeDescriptor(current, descriptor, parts));
}

// Adds the attributes to those that the file has; one without a value is taken away.
DWORD RestoreExtendedAttributes(const FileObject& file, ByteView content) {
  if (!(file.granted & win32::FILE_WRITE_EA)) return win32::ERROR_ACCESS_DENIED;
  std::vector<ExtendedAttribute> added, all;
  if (const DWORD error = UnpackExtendedAttributes(content, added)) return error;
  if (const DWORD error = file.volume->volume->GetExtendedAttributes(file.file, all)) return error;
  for (ExtendedAttribute& attribute : added) {
    std::erase_if(all, [&](const ExtendedAttribute& other) { return other.name == attribute.name; });
    if (!attribute.value.empty()) all.push_back(std::move(attribute));
  }
  return file.volume->volume->SetExtendedAttributes(file.file, all);
}

// An id that another file of the volume has already is passed over: the copy does without.
DWORD RestoreObjectId(const FileObject& file, ByteView id) {
  if (id.size() != 64) return win32::ERROR_INVALID_DATA;
  const DWORD error = file.volume->volume->SetObjectId(file.file, id);
  return error == win32::ERROR_ALREADY_EXISTS ? 0 : error;
}

// The content is the full path of another name that the open file is to get.
DWORD RestoreLink(const FileObject& file, ByteView content) {
  std::u16string path;
  for (std::size_t at = 0; at + 1 < content.size(); at += sizeof(char16_t))
    path += LoadLittleEndian<char16_t>(content, at);
  path = path.c_str();  // up to its terminator
  if (path.empty()) return win32::ERROR_INVALID_DATA;
  const std::u16string root = file.volume->guidName.substr(0, file.volume->guidName.size() - 1);
  const std::u16string existing = root + Machine::Current().files().PathInVolume(file);
  return win32::CreateHardLinkW(path.c_str(), existing.c_str(), nullptr) ? 0 : LastError();
}

DWORD RestoreReparseData(win32::HANDLE handle, Bytes& data) {
  DWORD returned = 0;
  const win32::BOOL set = win32::DeviceIoControl(handle, win32::FSCTL_SET_REPARSE_POINT, data.data(),
                                                 static_cast<DWORD>(data.size()), nullptr, 0, &returned, nullptr);
  return set ? 0 : LastError();
}

DWORD BackupWriter::Write(win32::HANDLE handle, FileObject& file, ByteView from, std::size_t& done) {
  done = 0;
  if (auto& scripted = Machine::Current().scriptedBackup) {
    scripted->written.insert(scripted->written.end(), from.begin(), from.end());
    done = from.size();
    return 0;
  }
  for (bool hungry = false; failed_ == 0 && !hungry;) failed_ = Step(handle, file, from, done, hungry);
  return failed_;
}

// One phase further, or `hungry` when `from` does not complete it.
DWORD BackupWriter::Step(win32::HANDLE handle, FileObject& file, ByteView from, std::size_t& done, bool& hungry) {
  switch (phase_) {
    case Phase::Header:
      hungry = !Collect(BackupStreamHeader::kSize, from, done);
      return hungry ? 0 : TakeHeader();
    case Phase::Name:
      hungry = !Collect(header_.nameSize, from, done);
      return hungry ? 0 : BeginContent(file);
    case Phase::BlockOffset:
      hungry = !Collect(kBlockOffset, from, done);
      return hungry ? 0 : BeginBlock();
    case Phase::Content:
      break;
  }
  const ByteView here =
      from.subspan(done, static_cast<std::size_t>(std::min<std::uint64_t>(left_, from.size() - done)));
  if (IsData() && !here.empty()) {
    if (const DWORD error = file.volume->volume->Write(file.file, stream_, offset_, here)) return error;
    Machine::Current().files().NoteWrite(file);
    offset_ += here.size();
  } else if (!IsSkipped()) {
    collected_.insert(collected_.end(), here.begin(), here.end());
  }
  done += here.size();
  left_ -= here.size();
  hungry = left_ != 0;
  return hungry ? 0 : Finish(handle, file);
}

// Adds to collected_ until it has `size` bytes.
bool BackupWriter::Collect(std::uint64_t size, ByteView from, std::size_t& done) {
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(size - collected_.size(), from.size() - done));
  const ByteView here = from.subspan(done, count);
  collected_.insert(collected_.end(), here.begin(), here.end());
  done += count;
  return collected_.size() == size;
}

DWORD BackupWriter::TakeHeader() {
  header_ = LoadStreamHeader(collected_);
  collected_.clear();
  if (header_.id == win32::BACKUP_INVALID || header_.id > win32::BACKUP_TXFS_DATA) return win32::ERROR_INVALID_DATA;
  if (header_.size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
    return win32::ERROR_INVALID_DATA;
  if (header_.nameSize % sizeof(char16_t) != 0 || header_.nameSize > kLongestName) return win32::ERROR_INVALID_DATA;
  if (!IsData() && !IsSkipped() && header_.size > kLongestPiece) return win32::ERROR_INVALID_DATA;
  left_ = header_.size;
  phase_ = Phase::Name;
  return 0;
}

DWORD BackupWriter::BeginContent(FileObject& file) {
  name_.clear();
  for (std::size_t at = 0; at < collected_.size(); at += sizeof(char16_t))
    name_ += LoadLittleEndian<char16_t>(collected_, at);
  collected_.clear();
  phase_ = Phase::Content;
  if (header_.id == win32::BACKUP_SPARSE_BLOCK) {
    if (!hasStream_ || header_.size < kBlockOffset) return win32::ERROR_INVALID_DATA;
    phase_ = Phase::BlockOffset;
    return 0;
  }
  hasStream_ = false;
  return IsData() ? BeginData(file) : 0;
}

// Data overwrites what is there from the beginning; a named stream is made when it is missing.
DWORD BackupWriter::BeginData(FileObject& file) {
  Volume& volume = *file.volume->volume;
  stream_.clear();
  if (header_.id == win32::BACKUP_ALTERNATE_DATA) {
    const auto stream = StreamOfBackupName(name_);
    if (!stream) return win32::ERROR_INVALID_DATA;
    stream_ = *stream;
  } else if (file.isDirectory) {
    return win32::ERROR_INVALID_FUNCTION;
  }
  if (!(file.granted & win32::FILE_WRITE_DATA)) return win32::ERROR_ACCESS_DENIED;
  std::uint64_t size = 0;
  DWORD error = volume.StreamSize(file.file, stream_, size);
  if (error == win32::ERROR_FILE_NOT_FOUND && !stream_.empty()) error = volume.CreateStream(file.file, stream_);
  if (error == 0 && (header_.attributes & win32::STREAM_SPARSE_ATTRIBUTE)) {
    if (header_.size == 0 && size != 0) error = volume.SetStreamSize(file.file, stream_, 0);
    if (error == 0) error = volume.SetSparse(file.file, stream_);
  }
  hasStream_ = error == 0;
  offset_ = 0;
  return error;
}

DWORD BackupWriter::BeginBlock() {
  offset_ = LoadLittleEndian<std::uint64_t>(collected_, 0);
  collected_.clear();
  left_ = header_.size - kBlockOffset;
  phase_ = Phase::Content;
  const auto end = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  return offset_ > end || left_ > end - offset_ ? DWORD{win32::ERROR_INVALID_DATA} : 0;
}

DWORD BackupWriter::Finish(win32::HANDLE handle, FileObject& file) {
  phase_ = Phase::Header;
  Bytes content;
  content.swap(collected_);
  if (IsSkipped()) return 0;
  switch (header_.id) {
    case win32::BACKUP_DATA:
    case win32::BACKUP_ALTERNATE_DATA:
    case win32::BACKUP_SPARSE_BLOCK: {
      // The data ends where its stream ends; of the blocks only the last, empty one says where that is.
      if (header_.id == win32::BACKUP_SPARSE_BLOCK && header_.size != kBlockOffset) return 0;
      std::uint64_t size = 0;
      if (const DWORD error = file.volume->volume->StreamSize(file.file, stream_, size)) return error;
      if (size == offset_) return 0;
      if (const DWORD error = file.volume->volume->SetStreamSize(file.file, stream_, offset_)) return error;
      Machine::Current().files().NoteWrite(file);
      return 0;
    }
    case win32::BACKUP_SECURITY_DATA:
      return RestoreSecurity(file, content);
    case win32::BACKUP_EA_DATA:
      return RestoreExtendedAttributes(file, content);
    case win32::BACKUP_OBJECT_ID:
      return RestoreObjectId(file, content);
    case win32::BACKUP_LINK:
      return RestoreLink(file, content);
    case win32::BACKUP_REPARSE_DATA:
      return RestoreReparseData(handle, content);
    default:
      return win32::ERROR_INVALID_DATA;
  }
}

}  // namespace

}  // namespace emulated

namespace win32 {

BOOL BackupWrite(HANDLE hFile, BYTE* lpBuffer, DWORD nNumberOfBytesToWrite, DWORD* lpNumberOfBytesWritten, BOOL bAbort,
                 BOOL bProcessSecurity, void** lpContext) {
  WIN32_CALL(hFile, nNumberOfBytesToWrite, bAbort, bProcessSecurity);
  if (call.Refused()) return FALSE;
  if (!lpContext) return call.Done(ERROR_INVALID_PARAMETER);
  if (bAbort) return call.Done(emulated::LeaveBackup<emulated::BackupWriter>(lpContext));
  if (!lpNumberOfBytesWritten || (!lpBuffer && nNumberOfBytesToWrite != 0)) return call.Done(ERROR_INVALID_PARAMETER);
  *lpNumberOfBytesWritten = 0;
  const auto file = emulated::FileOf(hFile);
  if (!file) return call.Done(ERROR_INVALID_HANDLE);
  if (file->flags & FILE_FLAG_NO_BUFFERING) return call.Done(ERROR_INVALID_PARAMETER);
  std::shared_ptr<emulated::BackupWriter> context;
  if (const DWORD error = emulated::EnterBackup(file, bProcessSecurity != FALSE, lpContext, context))
    return call.Done(error);
  std::size_t done = 0;
  const DWORD error = context->Write(hFile, *file, {lpBuffer, nNumberOfBytesToWrite}, done);
  *lpNumberOfBytesWritten = static_cast<DWORD>(done);
  return call.Done(error);
}

}  // namespace win32
