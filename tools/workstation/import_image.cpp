// import, adopt.

#include <sys/stat.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <system_error>

#include "win32/emulated/storage/block_device.h"
#include "win32/emulated/storage/windows_state.h"
#include "workstation/command.h"
#include "workstation/copy_volume.h"
#include "workstation/image_origin.h"
#include "workstation/image_source.h"
#include "workstation/installation.h"
#include "workstation/staging.h"

namespace workstation {

namespace fs = std::filesystem;

namespace {

struct ImportPlan {
  fs::path image;
  std::string name;  // in the folder
  bool bare = false, discardLog = false, move = false;
  std::optional<unsigned> partition;

  bool IsSystem() const { return name == "C.ntfs"; }
};

ImportPlan ParseImport(const Arguments& arguments, bool move) {
  ImportPlan plan;
  plan.image = arguments[0];
  plan.move = move;
  plan.name = arguments[1] == "volume" ? NewGuidImage() : std::string(1, ParseLetter(arguments[1])) + ".ntfs";
  for (std::size_t i = 2; i < arguments.size(); ++i) {
    if (arguments[i] == "--bare") {
      plan.bare = true;
    } else if (arguments[i] == "--discard-log") {
      plan.discardLog = true;
    } else if (arguments[i] == "--partition" && i + 1 < arguments.size() && !move) {
      const std::string& text = arguments[++i];
      unsigned number = 0;
      const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), number);
      if (failed != std::errc() || end != text.data() + text.size())
        throw Failure("\"" + text + "\" is not the number of a partition");
      plan.partition = number;
    } else {
      throw Failure("\"" + arguments[i] + "\" is not an option of " + (move ? "adopt" : "import"));
    }
  }
  return plan;
}

// What stands against taking the image is told of the user's file, before a byte is copied.
void RequireFitImage(const ImageSource& source, bool discardLog) {
  const auto device = MakeDevice(source);
  std::unique_ptr<emulated::Volume> volume;
  if (const win32::DWORD code = emulated::Volume::Mount(*device, volume))
    throw Failure(source.shown.string() + ": " + emulated::WhyNotMounted(*device, code));
  if (discardLog && !volume->IsJournalClean()) return;
  if (const std::string why = emulated::WhyNotToWrite(*volume); !why.empty())
    throw Failure(source.shown.string() + ": " + why +
                  (volume->IsJournalClean() ? "" : "; --discard-log gives up what the journal holds"));
}

// A folder that takes the image: locked from then on, when it is there. What would refuse the drive in it at the end
// refuses it now.
std::unique_ptr<emulated::ImageSet> RequireFitFolder(const fs::path& folder, const ImportPlan& plan) {
  std::error_code failed;
  std::string error;
  if (fs::exists(folder / plan.name, failed))
    throw Failure((folder / plan.name).string() + ": there is such a drive already");
  if (!plan.IsSystem()) {
    if (!fs::exists(folder / "C.ntfs", failed))
      throw Failure(folder.string() + ": a workstation without C: takes no other drives");
    const auto station = emulated::Workstation::Open(folder, error);
    if (!station) throw Failure(error);
    if (!station->writeProtection().empty()) throw Failure(station->writeProtection());
  }
  if (!fs::exists(folder, failed)) return nullptr;
  auto locked = emulated::ImageSet::Open(folder, error);
  if (!locked) throw Failure(error);
  return locked;
}

void DiscardJournal(const fs::path& folder, const std::string& name, bool asFrozen) {
  std::string error;
  const auto images = emulated::ImageSet::Open(folder, error);
  emulated::BlockDevice* const device = images ? images->OpenImage(name, asFrozen, error) : nullptr;
  std::unique_ptr<emulated::Volume> volume;
  if (!device) throw Failure(error);
  if (const win32::DWORD code = emulated::Volume::Mount(*device, volume)) FailWith(name, code);
  if (volume->IsJournalClean()) return;
  if (const win32::DWORD code = volume->DiscardJournal()) FailWith(name, code);
  if (const win32::DWORD code = volume->Flush()) FailWith(name, code);
  if (!images->Commit(error)) throw Failure(error);
}

// Another name for the user's image, which stays as it is until all is whole: nothing of a large one is copied. False
// where the host has no such links, or not from there to here.
bool LinkImage(const ImportPlan& plan, const fs::path& target) {
  return plan.move && link(plan.image.c_str(), target.c_str()) == 0;
}

// What has been unpacked is a file without a name, and may get this one.
bool NameUnpacked(const ImageSource& source, const fs::path& target) {
  const std::string file = "/proc/self/fd/" + std::to_string(source.file.get());
  return !source.container.empty() && linkat(AT_FDCWD, file.c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

// Answers what the system volume was given of Windows.
std::string PrepareImage(const fs::path& folder, const ImportPlan& plan, bool isLinked) {
  std::string added, error;
  emulated::WorkstationState state;
  if (isLinked) {  // what is done to it lies beside it
    state.frozen.insert(plan.name);
    if (!emulated::Workstation::WriteState(folder, state, error)) throw Failure(error);
  }
  if (plan.discardLog) DiscardJournal(folder, plan.name, isLinked);
  if (plan.IsSystem() && plan.bare) {
    OnMachine(folder, false, [](emulated::Machine&) {});
  } else if (plan.IsSystem()) {
    emulated::InstallationFacts facts;
    facts.profiles = emulated::DefaultProfiles();
    added = Install(folder, facts, {});
  }
  if (!isLinked) return added;
  const auto images = emulated::ImageSet::Open(folder, error);
  if (!images || !images->RecordFrozen(plan.name, error)) throw Failure(error);
  std::error_code failed;
  fs::remove(folder / "state", failed);
  if (failed) throw Failure(folder.string() + ": " + failed.message());
  return added;
}

// The drive is there; that Windows' registry knows its letter may come later.
void RecordLetter(const fs::path& folder, const ImportPlan& plan) {
  try {
    OnMachine(folder, true, [](emulated::Machine&) {});
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "workstation: %s is in its place; its name is recorded with the next change: %s\n",
                 (folder / plan.name).c_str(), failure.what());
  }
}

// The drive as it is to be, whole or not at all. Answers what it was given of Windows.
std::string MakeDrive(const fs::path& folder, const ImportPlan& plan, ImageSource& source) {
  std::optional<Staging> staging;
  try {
    staging.emplace(folder);
    const fs::path target = staging->images() / plan.name;
    const bool isLinked = LinkImage(plan, target);
    if (!isLinked && !NameUnpacked(source, target)) CopyVolume(source, target);
    RecordOrigin(source, target);
    std::string added = PrepareImage(staging->images(), plan, isLinked);
    if (plan.move) staging->Take(plan.image, source.file);
    source.file = {};
    staging->Finish();
    return added;
  } catch (const std::exception& failure) {
    std::string why = staging ? staging->Reason(failure) : failure.what();
    if (why.starts_with(plan.name + ": ")) why.erase(0, plan.name.size() + 2);
    if (emulated::FileDescriptor::LastWriteError() != 0)
      why = (folder / plan.name).string() + " cannot be written: " + why;
    throw Failure(plan.image.string() + ": " + why);
  }
}

// What is unpacked lies where it can stay.
fs::path ScratchFor(const fs::path& folder) {
  std::error_code failed;
  for (const fs::path& place : {folder, fs::absolute(folder, failed).parent_path()})
    if (fs::is_directory(place, failed)) return place;
  return {};
}

void RequireToBeTaken(const fs::path& image) {
  std::error_code failed;
  if (fs::is_symlink(image, failed))
    throw Failure(image.string() + ": is a symbolic link; name the image itself, " +
                  fs::weakly_canonical(image, failed).string());
  if (access(image.c_str(), R_OK | W_OK) != 0) throw Failure(image.string() + ": " + std::strerror(errno));
}

void AddImage(const fs::path& folder, const ImportPlan& plan) {
  if (plan.move) RequireToBeTaken(plan.image);
  ImageSource source = OpenImageSource(plan.image, plan.partition, ScratchFor(folder));
  if (plan.move && !source.IsWholeFile())
    throw Failure(plan.image.string() + ": holds more than the volume, or other than it is: import copies from it");
  RequireFitImage(source, plan.discardLog);
  auto locked = RequireFitFolder(folder, plan);
  std::error_code ignored;
  fs::remove(OriginOf(folder / plan.name), ignored);  // of a drive that somebody has taken away
  const std::string added = MakeDrive(folder, plan, source);
  locked.reset();
  if (plan.discardLog)
    std::fprintf(stderr, "workstation: %s: what its journal held has been given up%s\n", plan.image.c_str(),
                 plan.move ? "" : " in the copy");
  if (!added.empty()) std::fprintf(stderr, "workstation: %s: added: %s\n", plan.image.c_str(), added.c_str());
  if (!plan.IsSystem()) RecordLetter(folder, plan);
}

}  // namespace

void Import(const fs::path& folder, const Arguments& arguments) { AddImage(folder, ParseImport(arguments, false)); }
void Adopt(const fs::path& folder, const Arguments& arguments) { AddImage(folder, ParseImport(arguments, true)); }

}  // namespace workstation
