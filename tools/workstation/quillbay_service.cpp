#include "workstation/quillbay_service.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "win32/emulated/console_text.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/emulated/system/pipes.h"
#include "win32/emulated/text.h"

namespace workstation {

namespace {

constexpr std::u16string_view kService = u"QuillbayService", kPipe = u"QBDataPipe";
constexpr std::u16string_view kPictures = u"\\AccountPictures";
constexpr std::u16string_view kUsersOfPictures =
    u"HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AccountPicture\\Users";

struct ImageRequest {
  std::u16string from, to;  // folders of pictures
};

// Nothing for a record that is no such request, or that has no end: its last path may have been cut.
std::optional<ImageRequest> ParseRequest(emulated::ByteView record, win32::UINT codePage) {
  const auto end = std::find(record.begin(), record.end(), 0);
  if (end == record.end()) return std::nullopt;
  const std::u16string text = emulated::Utf16(emulated::OemToUtf8(std::string(record.begin(), end), codePage));
  constexpr std::u16string_view kKeyword = u"UpdateImgPath|";
  if (!text.starts_with(kKeyword)) return std::nullopt;
  const std::size_t first = kKeyword.size(), separator = text.find(u'|', first);
  if (separator == text.npos || text.find(u'|', separator + 1) != text.npos) return std::nullopt;
  const std::u16string from = text.substr(first, separator - first), to = text.substr(separator + 1);
  if (from.empty() || to.empty()) return std::nullopt;
  return ImageRequest{from + std::u16string(kPictures), to + std::u16string(kPictures)};
}

// `path` with its beginning replaced; nothing when it lies elsewhere.
std::optional<std::u16string> Moved(const std::u16string& path, const ImageRequest& request,
                                    const emulated::UpCase& upCase) {
  const std::size_t length = request.from.size();
  if (upCase(std::u16string_view(path).substr(0, length)) != upCase(request.from)) return std::nullopt;
  if (path.size() > length && path[length] != u'\\') return std::nullopt;
  return request.to + path.substr(length);
}

void OpenPipe(emulated::Machine& machine) {
  const auto server = machine.pipes().Serve(kPipe);
  server->onWrite = [&machine](emulated::ByteView record) {
    CarryOutRequest(machine, record);
    return win32::ERROR_SUCCESS;
  };
  server->onClose = [&machine] { OpenPipe(machine); };
}

}  // namespace

void CarryOutRequest(emulated::Machine& machine, emulated::ByteView record) {
  const auto request = ParseRequest(record, machine.ansiCodePage);
  if (!request) return;
  emulated::Registry& registry = machine.registry();
  for (const std::u16string& user : registry.SubKeys(kUsersOfPictures)) {
    const std::u16string key = std::u16string(kUsersOfPictures) + u"\\" + user;
    for (const emulated::RegistryValue& value : registry.Values(key)) {
      if (value.type != win32::REG_SZ && value.type != win32::REG_EXPAND_SZ) continue;
      if (const auto path = Moved(value.Text(), *request, registry.upCase()))
        registry.SetText(key, value.name, *path, value.type);
    }
  }
}

void RunQuillbayService(emulated::Machine& machine) {
  emulated::ServiceBehaviour& service = machine.services().Behaviour(kService);
  service.onStart = [&machine] { OpenPipe(machine); };
  service.onStop = [&machine] { machine.pipes().Close(kPipe); };
  if (machine.services().State(kService) == win32::SERVICE_RUNNING) OpenPipe(machine);
}

}  // namespace workstation
