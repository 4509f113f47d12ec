#include "fsops/copy_watch.h"

#include "report/progress.h"
#include "report/stop_request.h"
#include "win32/win32.h"

namespace {

struct Watched {
  const CopyWatch& watch;
  std::uint64_t transferred = 0;
};

win32::DWORD LookOn(win32::LARGE_INTEGER /*total*/, win32::LARGE_INTEGER transferred, win32::LARGE_INTEGER /*stream*/,
                    win32::LARGE_INTEGER /*ofStream*/, win32::DWORD /*number*/, win32::DWORD /*reason*/,
                    win32::HANDLE /*from*/, win32::HANDLE /*to*/, void* data) {
  Watched& watched = *static_cast<Watched*>(data);
  const auto now = static_cast<std::uint64_t>(transferred.QuadPart);
  const std::uint64_t bytes = now - watched.transferred;
  watched.transferred = now;
  return watched.watch.GoesOn(bytes) ? win32::PROGRESS_CONTINUE : win32::PROGRESS_CANCEL;
}

}  // namespace

bool CopyWatch::GoesOn(std::uint64_t bytes) const {
  if (progress) progress->BytesDone(bytes);
  if (!mayStop || !IsStopRequested()) return true;
  win32::SetLastError(win32::ERROR_REQUEST_ABORTED);
  return false;
}

bool CopyFileWatched(const std::u16string& from, const std::u16string& to, bool failIfExists, const CopyWatch& watch) {
  Watched watched{watch};
  const bool isWatched = watch.progress || watch.mayStop;
  return win32::CopyFileExW(from.c_str(), to.c_str(), isWatched ? LookOn : nullptr, &watched, nullptr,
                            failIfExists ? win32::COPY_FILE_FAIL_IF_EXISTS : win32::DWORD{0}) != win32::FALSE;
}
