// The file by which changes of several images become one: written aside and named `journal` only when it is complete,
// then carried out, then removed. Whoever finds a journal carries it out (again).
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "win32/emulated/bytes.h"
#include "win32/emulated/storage/block_device.h"
#include "win32/emulated/storage/file_descriptor.h"

namespace emulated {

class JournalWriter {
 public:
  // Begins `journal.new` in the folder.
  explicit JournalWriter(std::filesystem::path folder);

  // `data` is to stand at `offset` of FOLDER/name. A failure shows at Finish.
  void Add(const std::string& name, std::uint64_t offset, ByteView data);
  bool IsEmpty() const { return records_ == 0; }
  // Puts the journal down safely under its final name. False when it could not be; then there is none.
  bool Finish();

 private:
  void Append(ByteView bytes);
  void WriteOut();

  std::filesystem::path folder_;
  FileDescriptor file_;
  Bytes buffer_;
  std::uint64_t written_ = 0;
  std::uint64_t checksum_;
  std::uint64_t records_ = 0;
  bool failed_ = false;
};

// Drops what was not finished, carries out what was and removes it. False and one line in `error` when a journal cannot
// be carried out; it stays. `isOwn`: this process has just written it, so it is whole.
bool CompleteJournal(const std::filesystem::path& folder, std::string& error, bool isOwn = false,
                     const ProgressSink& progress = {});

// What a journal that was finished would put into the files of its folder: by file and offset.
using JournalContent = std::map<std::string, std::map<std::uint64_t, Bytes>>;
// The same for who may not carry it out. False and one line in `error` when it cannot be read.
bool ReadJournal(const std::filesystem::path& folder, JournalContent& content, std::string& error);

// Makes the folder's entries themselves safe.
bool SyncFolder(const std::filesystem::path& folder);

}  // namespace emulated
