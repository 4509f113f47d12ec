#include "win32/emulated/object.h"

namespace emulated {

win32::HANDLE ObjectTable::Insert(std::shared_ptr<Object> object, win32::DWORD processId, win32::ACCESS_MASK granted) {
  while (entries_.contains(next_)) next_ += kStep;
  const std::uintptr_t value = next_;
  next_ += kStep;
  if (next_ > 0xFFFC && entries_.size() < kFew) next_ = kFirst;
  ++object->handles_;
  entries_.emplace(value, HandleEntry{std::move(object), processId, granted});
  return reinterpret_cast<win32::HANDLE>(value);
}

const HandleEntry* ObjectTable::Entry(win32::HANDLE handle, win32::DWORD processId) const {
  const auto found = entries_.find(reinterpret_cast<std::uintptr_t>(handle));
  return found == entries_.end() || found->second.processId != processId ? nullptr : &found->second;
}

std::shared_ptr<Object> ObjectTable::Find(win32::HANDLE handle, win32::DWORD processId) const {
  const HandleEntry* const entry = Entry(handle, processId);
  return entry ? entry->object : nullptr;
}

bool ObjectTable::Close(win32::HANDLE handle, win32::DWORD processId) {
  const auto found = entries_.find(reinterpret_cast<std::uintptr_t>(handle));
  if (found == entries_.end() || found->second.processId != processId) return false;
  const std::shared_ptr<Object> object = std::move(found->second.object);
  entries_.erase(found);
  if (--object->handles_ == 0) object->Closed();
  return true;
}

void ObjectTable::CloseAll(win32::DWORD processId) {
  std::vector<std::uintptr_t> handles;
  for (const auto& [value, entry] : entries_)
    if (entry.processId == processId) handles.push_back(value);
  for (const std::uintptr_t value : handles) Close(reinterpret_cast<win32::HANDLE>(value), processId);
}

}  // namespace emulated
