#include "fsops/shares.h"

#include "links/real_path.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/win32.h"

// One block of shares as NetShareEnum gave it.
struct ShareList::Buffer {
  explicit Buffer(win32::BYTE* block) : data(block) {}
  ~Buffer() { win32::NetApiBufferFree(data); }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  const win32::SHARE_INFO_502* shares() const {
    return static_cast<const win32::SHARE_INFO_502*>(static_cast<const void*>(data));
  }
  // Once for all that is asked: a tree has many folders.
  void LookUpShortNames() {
    for (win32::DWORD index = 0; index < count; ++index) {
      const char16_t* const path = shares()[index].shi502_path;
      const bool mayHoldThem = path && std::u16string_view(path).find(u'~') != std::u16string_view::npos;
      longPaths.push_back(mayHoldThem ? AsStored(path) : std::u16string());
    }
  }

  win32::BYTE* data;
  win32::DWORD count = 0;
  std::vector<std::u16string> longPaths;  // of the shares whose paths may hold short names
};

ShareList ShareList::Read() {
  constexpr win32::DWORD kServerNotStarted = 2114;  // NERR_ServerNotStarted
  ShareList list;
  win32::DWORD resume = 0;
  win32::DWORD result = win32::ERROR_MORE_DATA;
  while (result == win32::ERROR_MORE_DATA) {
    win32::BYTE* block = nullptr;
    win32::DWORD count = 0, total = 0;
    result = win32::NetShareEnum(nullptr, 502, &block, win32::MAX_PREFERRED_LENGTH, &count, &total, &resume);
    const bool hasShares = block && (result == win32::NERR_Success || result == win32::ERROR_MORE_DATA);
    if (block) list.buffers_.push_back(std::make_shared<Buffer>(block));
    if (hasShares) list.buffers_.back()->count = count;
    if (hasShares) list.buffers_.back()->LookUpShortNames();
    if (count == 0) break;  // nothing came, so the same question would be asked for ever
  }
  list.whole_ = result == win32::NERR_Success || result == kServerNotStarted;
  return list;
}

std::vector<const win32::SHARE_INFO_502*> ShareList::FindByPath(std::u16string_view folder) const {
  std::vector<const win32::SHARE_INFO_502*> found;
  for (const std::shared_ptr<Buffer>& buffer : buffers_)
    for (win32::DWORD index = 0; index < buffer->count; ++index) {
      const win32::SHARE_INFO_502& share = buffer->shares()[index];
      if (share.shi502_path && (EqualPaths(share.shi502_path, folder) || EqualPaths(buffer->longPaths[index], folder)))
        found.push_back(&share);
    }
  return found;
}

bool DeleteShare(const win32::SHARE_INFO_502& share) {
  return win32::NetShareDel(nullptr, share.shi502_netname, 0) == win32::NERR_Success;
}

bool DeleteShare(std::u16string name) { return win32::NetShareDel(nullptr, name.data(), 0) == win32::NERR_Success; }

bool AddShare(const win32::SHARE_INFO_502& share, const std::u16string& folder) {
  std::u16string path = folder;
  win32::SHARE_INFO_502 copy = share;
  copy.shi502_path = path.data();
  win32::DWORD wrongParameter = 0;
  return win32::NetShareAdd(nullptr, 502, static_cast<win32::BYTE*>(static_cast<void*>(&copy)), &wrongParameter) ==
         win32::NERR_Success;
}

void AddShareAgain(const win32::SHARE_INFO_502& share) {
  if (!AddShare(share, share.shi502_path)) Log(u"#ERROR: Unable to add network share %ls again.", share.shi502_netname);
}

bool MoveShares(const std::u16string& folder, const std::u16string& newFolder) {
  const ShareList shares = ShareList::Read();
  bool all = shares.IsWhole();
  if (!all) Log(line::kSharesNotRead, folder);
  for (const win32::SHARE_INFO_502* share : shares.FindByPath(folder)) {
    if (DeleteShare(*share)) {
      if (AddShare(*share, newFolder)) continue;
      AddShareAgain(*share);
    }
    Log(u"#ERROR: Unable to move network share %ls from %ls to %ls.", share->shi502_netname, folder, newFolder);
    all = false;
  }
  return all;
}
