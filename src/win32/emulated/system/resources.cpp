// Resources and version information, of win32/system.h.
#include <algorithm>
#include <cstring>
#include <functional>

#include "win32/emulated/files/file_service.h"
#include "win32/emulated/machine.h"
#include "win32/emulated/system/modules.h"
#include "win32/emulated/system/pe_resources.h"
#include "win32/emulated/text.h"
#include "win32/system.h"

namespace win32 {

namespace {

using emulated::Bytes;
using emulated::ByteView;
using emulated::Machine;
using emulated::ModuleImage;

template <typename T>
T Fail(emulated::Call& call, T value, DWORD error) {
  emulated::SetLastError(error);
  return call.Return(value);
}

// A type or name as ModuleImage writes it: a number as "#6", which a program may also spell so itself.
std::u16string ResourceKey(const char16_t* key) {
  const auto number = reinterpret_cast<std::uintptr_t>(key);
  return number < 0x10000 ? u"#" + emulated::Utf16(std::to_string(number)) : std::u16string(key);
}

// `language` 0 means any, the neutral one first. Else that one only, or the neutral one in its place.
DWORD FindResource(HMODULE module, const char16_t* typeKey, const char16_t* nameKey, WORD language,
                   const ModuleImage::Resource*& found) {
  const auto& resources = Machine::Current().module.resources;
  if (!emulated::IsOwnModule(module) || resources.empty()) return ERROR_RESOURCE_DATA_NOT_FOUND;
  const std::u16string type = ResourceKey(typeKey), name = ResourceKey(nameKey);
  bool typeSeen = false;
  const ModuleImage::Resource* neutral = nullptr;
  const ModuleImage::Resource* other = nullptr;
  for (const ModuleImage::Resource& resource : resources) {
    if (!emulated::EqualAsciiNoCase(resource.type, type)) continue;
    typeSeen = true;
    if (!emulated::EqualAsciiNoCase(resource.name, name)) continue;
    if (resource.language == language) found = &resource;
    if (resource.language == 0) neutral = &resource;
    other = &resource;
  }
  if (!found) found = neutral;
  if (!found && language == 0) found = other;
  if (found) return ERROR_SUCCESS;
  if (!typeSeen) return ERROR_RESOURCE_TYPE_NOT_FOUND;
  return other ? ERROR_RESOURCE_LANG_NOT_FOUND : ERROR_RESOURCE_NAME_NOT_FOUND;
}

const ModuleImage::Resource* ResourceOf(HRSRC handle) {
  const auto& resources = Machine::Current().module.resources;
  for (const ModuleImage::Resource& resource : resources)
    if (&resource == handle) return &resource;
  return nullptr;
}

// The version resource of a file: of the program itself from its module, else from the file on its disk.
DWORD VersionResource(const char16_t* path, Bytes& data) {
  Machine& machine = Machine::Current();
  if (emulated::EqualAsciiNoCase(path, machine.module.path)) {
    const ModuleImage::Resource* const own = emulated::FindResource(machine.module, u"#16", u"#1");
    if (!own) return machine.module.resources.empty() ? ERROR_RESOURCE_DATA_NOT_FOUND : ERROR_RESOURCE_TYPE_NOT_FOUND;
    data.assign(own->data.begin(), own->data.end());
    return ERROR_SUCCESS;
  }
  emulated::OpenRequest request;
  request.path = path;
  request.access = FILE_READ_DATA;
  request.share = FILE_SHARE_READ | FILE_SHARE_DELETE;
  std::shared_ptr<emulated::FileObject> file;
  if (const DWORD error = machine.files().Open(request, file)) return error;
  constexpr std::uint64_t kLargest = 64u << 20;
  emulated::Volume& volume = *file->volume->volume;
  std::uint64_t size = 0;
  if (const DWORD error = volume.StreamSize(file->file, file->stream, size)) return error;
  if (size > kLargest) return ERROR_RESOURCE_DATA_NOT_FOUND;
  Bytes image(static_cast<std::size_t>(size));
  std::size_t done = 0;
  if (const DWORD error = volume.Read(file->file, file->stream, 0, image, done)) return error;
  const auto found = emulated::FindPeResource(ByteView(image).first(done), RT_VERSION);
  if (!found) return ERROR_RESOURCE_DATA_NOT_FOUND;
  data.assign(found->begin(), found->end());
  return ERROR_SUCCESS;
}

// A node of a version block: length, length of the value, whether that is text, key, padding, value, padding, children
// (documented with VS_VERSIONINFO, StringFileInfo and VarFileInfo).
struct VersionNode {
  std::u16string key;
  bool isText = false;
  ByteView value;
  WORD valueLength = 0;  // as stored: characters of a text, else bytes
  ByteView children;
};

std::size_t Aligned(std::size_t offset) { return (offset + 3) & ~std::size_t{3}; }

// The node at `offset` of the block; nothing when it does not lie inside `end`.
bool ReadNode(ByteView block, std::size_t offset, std::size_t end, VersionNode& node, std::size_t& next) {
  if (end - offset < 6) return false;
  const std::size_t length = emulated::LoadLittleEndian<std::uint16_t>(block, offset);
  if (length < 6 || length > end - offset) return false;
  const std::size_t nodeEnd = offset + length;
  node = {};
  node.valueLength = emulated::LoadLittleEndian<std::uint16_t>(block, offset + 2);
  node.isText = emulated::LoadLittleEndian<std::uint16_t>(block, offset + 4) != 0;
  std::size_t at = offset + 6;
  for (;; at += 2) {
    if (nodeEnd - at < 2) return false;
    const auto unit = static_cast<char16_t>(emulated::LoadLittleEndian<std::uint16_t>(block, at));
    if (unit == 0) break;
    node.key += unit;
  }
  at = std::min(Aligned(at + 2), nodeEnd);
  const std::size_t valueBytes =
      std::min<std::size_t>(node.isText ? node.valueLength * 2u : node.valueLength, nodeEnd - at);
  node.value = block.subspan(at, valueBytes);
  at = std::min(Aligned(at + valueBytes), nodeEnd);
  node.children = block.subspan(at, nodeEnd - at);
  next = std::min(Aligned(nodeEnd), end);
  return true;
}

bool FindChild(ByteView block, const VersionNode& parent, std::u16string_view key, VersionNode& child) {
  std::size_t offset = static_cast<std::size_t>(parent.children.data() - block.data());
  const std::size_t end = offset + parent.children.size();
  while (offset < end && ReadNode(block, offset, end, child, offset))
    if (emulated::EqualAsciiNoCase(child.key, key)) return true;
  return false;
}

}  // namespace

HRSRC FindResourceExW(HMODULE hModule, const char16_t* lpType, const char16_t* lpName, WORD wLanguage) {
  WIN32_CALL(hModule, lpType, lpName, wLanguage);
  if (call.Refused()) return nullptr;
  const ModuleImage::Resource* found = nullptr;
  if (const DWORD error = FindResource(hModule, lpType, lpName, wLanguage, found))
    return Fail(call, HRSRC{nullptr}, error);
  return call.Return(const_cast<HRSRC>(static_cast<const void*>(found)));
}

HRSRC FindResourceW(HMODULE hModule, const char16_t* lpName, const char16_t* lpType) {
  WIN32_CALL(hModule, lpName, lpType);
  if (call.Refused()) return nullptr;
  const ModuleImage::Resource* found = nullptr;
  if (const DWORD error = FindResource(hModule, lpType, lpName, 0, found)) return Fail(call, HRSRC{nullptr}, error);
  return call.Return(const_cast<HRSRC>(static_cast<const void*>(found)));
}

HGLOBAL LoadResource(HMODULE hModule, HRSRC hResInfo) {
  WIN32_CALL(hModule, hResInfo);
  if (call.Refused()) return nullptr;
  const ModuleImage::Resource* const resource = ResourceOf(hResInfo);
  if (!resource) return Fail(call, HGLOBAL{nullptr}, ERROR_RESOURCE_DATA_NOT_FOUND);
  return call.Return(const_cast<HGLOBAL>(static_cast<const void*>(resource->data.data())));
}

void* LockResource(HGLOBAL hResData) {
  WIN32_CALL(hResData);
  if (call.Refused()) return nullptr;
  return call.Return(hResData);
}

DWORD SizeofResource(HMODULE hModule, HRSRC hResInfo) {
  WIN32_CALL(hModule, hResInfo);
  if (call.Refused()) return 0;
  const ModuleImage::Resource* const resource = ResourceOf(hResInfo);
  if (!resource) return Fail(call, DWORD{0}, ERROR_RESOURCE_DATA_NOT_FOUND);
  return call.Return(static_cast<DWORD>(resource->data.size()));
}

DWORD GetFileVersionInfoSizeW(const char16_t* lptstrFilename, DWORD* lpdwHandle) {
  WIN32_CALL(lptstrFilename);
  if (call.Refused()) return 0;
  if (lpdwHandle) *lpdwHandle = 0;
  if (!lptstrFilename) return Fail(call, DWORD{0}, ERROR_INVALID_PARAMETER);
  Bytes data;
  if (const DWORD error = VersionResource(lptstrFilename, data)) return Fail(call, DWORD{0}, error);
  return call.Return(static_cast<DWORD>(data.size()));
}

BOOL GetFileVersionInfoW(const char16_t* lptstrFilename, DWORD dwHandle, DWORD dwLen, void* lpData) {
  WIN32_CALL(lptstrFilename, dwHandle, dwLen);
  if (call.Refused()) return FALSE;
  if (!lptstrFilename || !lpData) return call.Done(ERROR_INVALID_DATA);
  Bytes data;
  if (const DWORD error = VersionResource(lptstrFilename, data)) return call.Done(error);
  if (dwLen < data.size()) return call.Done(ERROR_INSUFFICIENT_BUFFER);
  // What a block says of its length is what VerQueryValue may read: never more than what is here.
  if (data.size() < 6 || emulated::LoadLittleEndian<std::uint16_t>(data, 0) > data.size())
    return call.Done(ERROR_RESOURCE_DATA_NOT_FOUND);
  std::memcpy(lpData, data.data(), data.size());
  return call.Done(ERROR_SUCCESS);
}

BOOL VerQueryValueW(const void* pBlock, const char16_t* lpSubBlock, void** lplpBuffer, UINT* puLen) {
  WIN32_CALL(pBlock, lpSubBlock);
  if (call.Refused()) return FALSE;
  if (!pBlock || !lpSubBlock || !lplpBuffer) return call.Done(ERROR_INVALID_DATA);
  const auto* const bytes = static_cast<const std::uint8_t*>(pBlock);
  const ByteView block(bytes, emulated::LoadLittleEndian<std::uint16_t>({bytes, 2}, 0));
  VersionNode node;
  std::size_t next = 0;
  if (block.size() < 6 || !ReadNode(block, 0, block.size(), node, next)) return call.Done(ERROR_INVALID_DATA);
  for (std::u16string_view path = lpSubBlock; !path.empty();) {
    const std::size_t end = path.find(u'\\');
    const std::u16string_view key = path.substr(0, end);
    path.remove_prefix(end == std::u16string_view::npos ? path.size() : end + 1);
    VersionNode child;
    if (key.empty()) continue;
    if (!FindChild(block, node, key, child)) return call.Done(ERROR_RESOURCE_TYPE_NOT_FOUND);
    node = child;
  }
  *lplpBuffer = const_cast<std::uint8_t*>(node.value.data());
  if (puLen) *puLen = static_cast<UINT>(node.isText ? node.value.size() / 2 : node.value.size());
  return call.Done(ERROR_SUCCESS);
}

}  // namespace win32
