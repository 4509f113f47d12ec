#include "workstation/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "win32/emulated/storage/journal.h"
#include "workstation/command.h"

namespace workstation {

namespace fs = std::filesystem;
using emulated::FileDescriptor;

namespace {

[[noreturn]] void Fail(const fs::path& what) { throw Failure(what.string() + ": " + strerror(errno)); }

fs::path FolderOf(const fs::path& name) { return name.has_parent_path() ? name.parent_path() : fs::path("."); }

}  // namespace

NewFile::NewFile(fs::path name) : name_(std::move(name)) {
  const fs::path folder = FolderOf(name_);
  struct stat status {};
  if (lstat(name_.c_str(), &status) == 0) throw Failure(name_.string() + ": there is such a file already");
  file_ = FileDescriptor(open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666));
  if (!file_ && (errno == EOPNOTSUPP || errno == EISDIR)) {
    temporary_ = (folder / ".workstation-XXXXXX").string();
    file_ = FileDescriptor(mkostemp(temporary_.data(), O_CLOEXEC));
  }
  if (!file_) Fail(folder);
}

NewFile::~NewFile() {
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void NewFile::Publish() {
  if (fsync(file_.get()) != 0) Fail(name_);
  const std::string own = "/proc/self/fd/" + std::to_string(file_.get());
  const bool isDone = temporary_.empty()
                          ? linkat(AT_FDCWD, own.c_str(), AT_FDCWD, name_.c_str(), AT_SYMLINK_FOLLOW) == 0
                          : renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, name_.c_str(), RENAME_NOREPLACE) == 0;
  if (!isDone) Fail(name_);
  temporary_.clear();
  if (!emulated::SyncFolder(FolderOf(name_))) Fail(name_);
}

void ReplaceFile(const fs::path& name, const std::string& text) {
  const fs::path next = name.string() + ".new";
  const FileDescriptor file(open(next.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  const emulated::ByteView bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  if (file && file.WriteAt(0, bytes) && fsync(file.get()) == 0 && std::rename(next.c_str(), name.c_str()) == 0 &&
      emulated::SyncFolder(FolderOf(name)))
    return;
  const int reason = errno;
  unlink(next.c_str());
  errno = reason;
  Fail(name);
}

}  // namespace workstation
