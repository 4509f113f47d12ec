#include "workstation/staging.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "win32/emulated/storage/journal.h"
#include "workstation/command.h"
#include "workstation/image_origin.h"

namespace workstation {

namespace fs = std::filesystem;
using emulated::FileDescriptor;

namespace {

constexpr std::string_view kMaking = ".workstation-making-", kMade = ".workstation-made-", kImages = "images",
                           kTaken = "taken";
constexpr std::size_t kDigits = 8;

std::string RandomDigits() {
  std::random_device random;
  char digits[kDigits + 1];
  std::snprintf(digits, sizeof digits, "%08x", random());
  return digits;
}

bool IsNamed(const fs::path& path, const std::string& start) {
  const std::string name = path.filename().string();
  return name.size() == start.size() + kDigits && name.starts_with(start) &&
         name.find_first_not_of("0123456789abcdef", start.size()) == name.npos;
}

// The folder without links and dots, so that it has a name and a folder above it.
fs::path RealPath(const fs::path& folder) {
  std::error_code failed;
  const fs::path real = fs::weakly_canonical(fs::absolute(folder, failed), failed);
  return real.has_filename() ? real : real.parent_path();
}

[[noreturn]] void FailWithReason(const fs::path& path) { throw Failure(path.string() + ": " + std::strerror(errno)); }

// Locked, or nothing when somebody is at it or when it is not there (any more).
FileDescriptor TryLock(const fs::path& folder) {
  FileDescriptor lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!lock || flock(lock.get(), LOCK_EX | LOCK_NB) != 0 || fstat(lock.get(), &status) != 0 || status.st_nlink == 0)
    return {};
  return lock;
}

// The same of what a killed process had locked: a program that it ran has its files open for a moment longer.
FileDescriptor LockSoon(const fs::path& folder) {
  FileDescriptor lock;
  for (int tries = 0; tries < 10 && !(lock = TryLock(folder)); ++tries) usleep(10'000);
  return lock;
}

// What another user could have put there is not for us to carry out.
bool IsOwn(const FileDescriptor& file) {
  struct stat status {};
  return file && fstat(file.get(), &status) == 0 && status.st_uid == geteuid();
}

// Fails with errno EEXIST when there is something of the new name, on file systems without such a rename as well.
bool RenameToFree(const fs::path& from, const fs::path& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL) return false;
  struct stat status {};
  if (lstat(to.c_str(), &status) != 0) return std::rename(from.c_str(), to.c_str()) == 0;
  errno = EEXIST;
  return false;
}

void SyncFile(const fs::path& path) {
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file || fsync(file.get()) != 0) FailWithReason(path);
}

// What tells a file from one that took its name later.
std::string Mark(const struct stat& status) {
  return std::to_string(status.st_dev) + ' ' + std::to_string(status.st_ino) + ' ' + std::to_string(status.st_size) +
         ' ' + std::to_string(status.st_mtim.tv_sec) + ' ' + std::to_string(status.st_mtim.tv_nsec);
}

void RemoveTaken(const fs::path& record) {
  std::ifstream file(record, std::ios::binary);
  std::string mark, name;
  if (!std::getline(file, mark) || !std::getline(file, name, '\0')) return;
  struct stat status {};
  if (lstat(name.c_str(), &status) != 0 || Mark(status) != mark) return;
  if (unlink(name.c_str()) != 0)
    std::fprintf(stderr, "workstation: %s: stays there as well: %s\n", name.c_str(), std::strerror(errno));
  emulated::SyncFolder(fs::path(name).parent_path());
}

bool IsImage(const fs::path& name) { return name.extension() == ".ntfs"; }

// The user's name for the image goes first: what the journal holds is for the workstation's image, not for his.
void FinishMade(const fs::path& made, const fs::path& folder) {
  const fs::path images = made / kImages;
  std::string error;
  std::error_code failed;
  RemoveTaken(made / kTaken);
  if (!emulated::CompleteJournal(images, error)) throw Failure(error);
  std::vector<fs::path> names;
  for (const auto& entry : fs::directory_iterator(images, failed)) names.push_back(entry.path().filename());
  // The system volume is the last image; what goes with images comes behind them.
  std::ranges::sort(names, std::greater<>(), [](const fs::path& name) { return std::pair(IsImage(name), name); });
  for (const fs::path& name : names) {
    if (IsImage(name)) fs::remove(OriginOf(folder / name), failed);  // of an image that was here before
    if (IsImage(name) ? !RenameToFree(images / name, folder / name)
                      : std::rename((images / name).c_str(), (folder / name).c_str()) != 0)
      FailWithReason(folder / name);
  }
  if (!emulated::SyncFolder(folder)) FailWithReason(folder);
  fs::remove_all(made, failed);
}

}  // namespace

Staging::Staging(const fs::path& folder) : folder_(RealPath(folder)) {
  std::error_code failed;
  const bool isThere = fs::exists(folder_, failed);
  if (!isThere) fs::create_directories(folder_.parent_path(), failed);
  for (int tries = 0; !makingLock_; ++tries) {
    constexpr int kMost = 10;
    if (tries == kMost) throw Failure(folder_.string() + ": cannot be locked");
    making_ = isThere
                  ? folder_ / (std::string(kMaking) + RandomDigits())
                  : folder_.parent_path() / ("." + folder_.filename().string() + std::string(kMaking) + RandomDigits());
    constexpr mode_t kAsTheUserLikes = 0777;
    if (mkdir(making_.c_str(), kAsTheUserLikes) != 0) FailWithReason(folder_);
    makingLock_ = TryLock(making_);  // who clears away may have come first
  }
  made_ = making_ / (std::string(kMade) + RandomDigits());
  images_ = made_ / kImages;
  fs::create_directories(images_, failed);
  if (!failed) fs::permissions(made_, fs::perms::owner_all, failed);
  madeLock_ = TryLock(made_);
  if (failed) throw Failure(folder_.string() + ": " + failed.message());
}

Staging::~Staging() {
  std::error_code ignored;
  if (!making_.empty()) fs::remove_all(making_, ignored);
}

std::string Staging::Reason(const std::exception& failure) const {
  if (const int error = FileDescriptor::LastWriteError(); error != 0) return std::strerror(error);
  std::string why = failure.what();
  const std::string place = images_.string();
  if (why.starts_with(place + ": ")) why.erase(0, place.size() + 2);
  for (std::size_t at = 0; (at = why.find(place, at)) != why.npos;) why.replace(at, place.size(), folder_.string());
  return why;
}

void Staging::Take(const fs::path& image, const FileDescriptor& file) {
  std::error_code failed;
  struct stat status {};
  const fs::path real = fs::canonical(image, failed);
  if (fstat(file.get(), &status) != 0 || access(real.parent_path().c_str(), W_OK) != 0) FailWithReason(image);
  std::ofstream record(made_ / kTaken, std::ios::binary);
  record << Mark(status) << '\n' << real.string() << '\0';
  if (failed || !record.flush()) throw Failure(image.string() + ": cannot be taken away");
}

void Staging::Finish() {
  for (const auto& entry : fs::directory_iterator(images_)) SyncFile(entry.path());
  std::error_code failed;
  if (fs::exists(made_ / kTaken, failed)) SyncFile(made_ / kTaken);
  for (const fs::path& place : {images_, made_, making_})
    if (!emulated::SyncFolder(place)) FailWithReason(place);
  const bool isNew = making_.parent_path() != folder_;
  const fs::path made = folder_ / made_.filename();
  if (!(isNew ? RenameToFree(making_, folder_) : RenameToFree(made_, made))) FailWithReason(folder_);
  if (!isNew) fs::remove(making_, failed);
  making_.clear();  // whole: nobody takes it away any more
  emulated::SyncFolder(isNew ? folder_.parent_path() : folder_);
  FinishMade(made, folder_);
  makingLock_ = {};
  madeLock_ = {};
}

void ClearUnfinished(const fs::path& folder) {
  const fs::path real = RealPath(folder);
  const std::string beside = "." + real.filename().string() + std::string(kMaking);
  std::error_code ignored;
  std::vector<fs::path> making, made;
  for (const std::string& name : emulated::NamesIn(real.parent_path()))
    if (IsNamed(name, beside)) making.push_back(real.parent_path() / name);
  for (const std::string& name : emulated::NamesIn(real)) {
    if (IsNamed(name, std::string(kMaking))) making.push_back(real / name);
    if (IsNamed(name, std::string(kMade))) made.push_back(real / name);
  }
  for (const fs::path& place : making)
    if (const FileDescriptor lock = LockSoon(place); IsOwn(lock)) fs::remove_all(place, ignored);
  for (const fs::path& place : made)
    if (const FileDescriptor lock = LockSoon(place); IsOwn(lock)) try {
        FinishMade(place, real);
      } catch (const Failure& failure) {
        std::fprintf(stderr, "workstation: what was made could not be put in its place: %s\n", failure.what());
      }
}

}  // namespace workstation
