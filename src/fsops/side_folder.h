// The folder beside a redirected folder ("C:\Data.mount" for "C:\Data") through which the folder and its mounted volume
// change places. A profile that comes home from a volume passes through "C:\Users\anna.temp".
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fsops/folder_itself.h"

// A folder, and no link, with nothing in it.
bool IsEmptyPlainFolder(const std::u16string& path);

// All folders of which the registry notes that a removal fills them, each with the volume. False when it does not tell.
bool ReadFillings(std::vector<std::pair<std::u16string, std::u16string>>& fillings);

// One that was there before is somebody else's: it is used, but never removed, and gets its own security, attributes
// and times back.
//
// While a removal fills the folder, the registry says so (32-bit view, SOFTWARE\Velmora\Quillbay\VolumeRemovals: the
// folder's path, and the volume's name). After a power failure, that tells what the removal left from what is
// somebody else's.
class SideFolder {
 public:
  explicit SideFolder(const std::u16string& source, std::u16string_view suffix = u".mount");
  const std::u16string& path() const { return path_; }
  // The source's path, its last component in the letter case of the disk: the command may have written it otherwise.
  const std::u16string& place() const { return place_; }
  bool stoodThere() const { return stoodThere_; }

  // False: nothing was made.
  bool Make();
  // Gives it back as it was, or removes it; what is in it stays.
  void TakeAway() const;

  // Nothing is there, or nothing in it, or what is there was left by a removal from `volume` that was cut off.
  bool IsFreeFor(const std::u16string& volume) const;
  // Is there a removal from `volume` that began to fill the folder, and did not come to its end?
  bool IsBeingFilledFrom(const std::u16string& volume) const;
  // A removal begins. False: nothing is noted.
  bool NoteFillingFrom(const std::u16string& volume) const;
  // It is over. Should the registry refuse, the log tells.
  void ForgetFilling() const;

 private:
  const std::u16string place_, path_;
  bool stoodThere_ = false;
  SavedFolder before_;
};
