#include "win32/emulated/storage/image_set.h"

#include <sys/file.h>

namespace emulated {

std::unique_ptr<ImageSet> ImageSet::Open(const std::filesystem::path& folder, std::string& error, ImageAccess access) {
  const bool onlyReads = access == ImageAccess::kRead;
  FileDescriptor lock = OpenToRead(folder, O_DIRECTORY);
  if (!lock) {
    error = folder.string() + ": " + strerror(errno);
    return nullptr;
  }
  if (flock(lock.get(), (onlyReads ? LOCK_SH : LOCK_EX) | LOCK_NB) != 0) {
    error = folder.string() + ": in use by another process";
    return nullptr;
  }
  JournalContent left;
  if (onlyReads ? !ReadJournal(folder, left, error) : !CompleteJournal(folder, error)) return nullptr;
  return std::make_unique<ImageFolder>(folder, std::move(lock), access, std::move(left));
}

BlockDevice* ImageFolder::OpenImage(const std::string& name, bool frozen, std::string& error) {
  if (images_.contains(name)) {
    error = (folder_ / name).string() + ": already open";
    return nullptr;
  }
  const JournalContent* const left = access_ == ImageAccess::kRead ? &left_ : nullptr;
  std::unique_ptr<Image> image;
  if (frozen) {
    image = FrozenImage::Open(folder_, name, error, left);
  } else if (left || DropFrozen(name, error)) {
    image = LiveImage::Open(folder_, name, error, left);
  }
  if (!image) return nullptr;
  return images_.emplace(name, std::move(image)).first->second.get();
}

bool ImageFolder::Commit(std::string& error, const ProgressSink& progress) {
  const auto failed = [&](const char* what) {
    error = folder_.string() + ": " + what + ": " + strerror(errno);
    return false;
  };
  if (access_ == ImageAccess::kRead) {
    error = folder_.string() + ": has been opened to be read only";
    return false;
  }
  for (const auto& [name, image] : images_) {
    if (!image->SyncDirect()) return failed("the images cannot be written");
  }
  JournalWriter journal(folder_);
  for (const auto& [name, image] : images_) {
    if (!image->AddTo(journal)) return failed("the changes cannot be recorded");
  }
  if (!journal.IsEmpty()) {
    if (!journal.Finish()) return failed("the changes cannot be recorded");
    Report(CommitStep::kJournalWritten);
    if (!CompleteJournal(folder_, error, true, progress)) return false;
    Report(CommitStep::kJournalRemoved);
  }
  for (const auto& [name, image] : images_) {
    if (!image->Committed()) return failed("an image cannot be read again");
  }
  return true;
}

bool ImageFolder::DropFrozen(const std::string& name, std::string& error) {
  if (images_.contains(name)) {
    error = (folder_ / name).string() + ": is open";
    return false;
  }
  std::error_code failure;
  std::filesystem::remove(FrozenImage::AsideOf(folder_ / name), failure);
  if (failure) error = FrozenImage::AsideOf(folder_ / name).string() + ": " + failure.message();
  return !failure;
}

bool ImageFolder::RecordFrozen(const std::string& name, std::string& error) {
  {
    const auto image = FrozenImage::Open(folder_, name, error);
    if (!image) return false;
    JournalWriter journal(folder_);
    if (!image->AddAllTo(journal, name) || (!journal.IsEmpty() && !journal.Finish())) {
      error = folder_.string() + ": the changes cannot be recorded: " + strerror(errno);
      return false;
    }
  }
  return DropFrozen(name, error);
}

}  // namespace emulated
