#include "redirect/service_pause.h"

#include "configuration/service_config.h"
#include "configuration/service_config_file.h"
#include "probes/services.h"
#include "report/log.h"
#include "win32/win32.h"

namespace {

constexpr const char16_t* kFileRecords = u"SOFTWARE\\Velmora\\Quillbay\\FileJunctions";

// Neither setting has a text of its own in the service's configuration; both follow from what it has to work on. What
// cannot be read counts as enabled: a service that runs for nothing does no harm, one that is missing does.

// The text of `OutDir/Status`. Read without CQBConfig::Init, which would put the default in place of a file that cannot
// be read just now.
bool ReadLocationStatus(const std::u16string& path, std::u16string& status) {
  std::u16string text;
  win32::XmlDocument document;
  win32::XmlNode root, element;
  return ReadConfigText(path, text) && document.CreateInstance() == win32::S_OK &&
         document.loadXML(text) == win32::S_OK && document.get_documentElement(root) == win32::S_OK &&
         root.selectSingleNode(u"OutDir/Status", element) == win32::S_OK && element.get_text(status) == win32::S_OK;
}

// Registry keys are redirected while there is a location for their data. Without a configuration file there is none.
bool IsRegistryRedirectionEnabled() {
  const CQBConfig config;  // it knows the path, and COM is there while it lives
  if (config.path().empty()) return true;
  if (!win32::PathFileExistsW(config.path().c_str())) {
    const win32::DWORD error = win32::GetLastError();
    return error != win32::ERROR_FILE_NOT_FOUND && error != win32::ERROR_PATH_NOT_FOUND;
  }
  std::u16string status;
  return !ReadLocationStatus(config.path(), status) || status == u"1";
}

// Files are redirected while one is recorded.
bool IsFileRedirectionEnabled() {
  win32::UniqueKey list;
  const win32::LSTATUS error = win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, kFileRecords, 0,
                                                    win32::KEY_QUERY_VALUE | win32::KEY_WOW64_32KEY, list.put());
  if (error != win32::ERROR_SUCCESS) return error != win32::ERROR_FILE_NOT_FOUND;
  win32::DWORD records = 0;
  return win32::RegQueryInfoKeyW(list.get(), nullptr, nullptr, nullptr, &records, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr) != win32::ERROR_SUCCESS ||
         records != 0;
}

}  // namespace

void ServicePause::Begin() {
  if (!IsServiceRunning(kQuillbayService)) return;
  wasRunning_ = true;
  ControlServiceAndWait(kQuillbayService, win32::SERVICE_CONTROL_STOP);
}

void ServicePause::End() {
  if (!wasRunning_) return;
  wasRunning_ = false;
  if (!StartQuillbayService()) Log(u"#ERROR: Failed to start Quillbay Service.");
}

void StopServiceWithoutWork() {
  const bool registryKeys = IsRegistryRedirectionEnabled();
  const bool files = IsFileRedirectionEnabled();
  Log(u"RemoveFileRedirection - IsRegistryRedirectionEnabled: %d and IsFileRedirectionEnabled: %d ",
      registryKeys ? 1 : 0, files ? 1 : 0);
  if (registryKeys || files) return;
  Log(u"RemoveFileRedirection - Going to stop Quillbay Service");
  DisableQuillbayService();
  ControlServiceAndWait(kQuillbayService, win32::SERVICE_CONTROL_STOP);
}
