#include "support/program.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "cli/main.h"
#include "win32/emulated/console_text.h"
#include "win32/emulated/files/backup_context.h"
#include "win32/emulated/system/console.h"
#include "win32/emulated/system/threads.h"
#include "win32/emulated/text.h"

namespace test {
namespace {

std::u16string WithoutCarriageReturns(std::u16string text) {
  for (std::size_t at = 0; (at = text.find(u"\r\n", at)) != std::u16string::npos; ++at) text.erase(at, 1);
  return text;
}

}  // namespace

std::string LogBytes(emulated::Machine& machine) {
  constexpr std::u16string_view kPath = u"\\Program Files\\Velmora\\Quillbay\\QBC.log";
  emulated::Bytes content;
  if (emulated::ReadWholeFile(*machine.SystemVolume()->volume, kPath, content) != 0) return {};
  return {content.begin(), content.end()};
}

std::u16string LogText(emulated::Machine& machine, std::size_t before) {
  const std::string bytes = LogBytes(machine);
  std::u16string text;
  for (std::size_t i = std::max<std::size_t>(before, 2); i + 1 < bytes.size(); i += 2)
    text += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
  return text;
}

std::vector<std::u16string> Messages(const std::u16string& log) {
  std::vector<std::u16string> messages;
  constexpr std::u16string_view kStart = u"\n[", kTimeEnd = u"] ";
  const std::u16string text = u"\n" + log;
  for (std::size_t at = text.find(kStart); at != std::u16string::npos;) {
    const std::size_t next = text.find(kStart, at + kStart.size());
    std::u16string message = text.substr(at, next - at);
    message.erase(0, message.find(kTimeEnd) + kTimeEnd.size());
    while (message.ends_with(u'\n') || message.ends_with(u'\r')) message.pop_back();
    if (!message.starts_with(u"---")) messages.push_back(std::move(message));
    at = next;
  }
  return messages;
}

OpenHandles::Handles OpenHandles::All() const {
  Handles handles;
  for (const auto& [handle, entry] : machine_.objects.all())
    if (entry.processId == machine_.process.id || dynamic_cast<emulated::BackupContext*>(entry.object.get()))
      handles.emplace(handle, entry.processId);
  return handles;
}

OpenHandles::~OpenHandles() {
  const bool closingFailed = std::ranges::any_of(machine_.gate.failed(), [](const std::string& call) {
    return call.find("Close") != std::string::npos || call.starts_with("Backup");
  });
  for (const auto& [handle, process] : All()) {
    if (older_.contains({handle, process})) continue;
    const auto object = machine_.objects.Find(reinterpret_cast<win32::HANDLE>(handle), process);
    const bool isConsole = dynamic_cast<const emulated::ConsoleObject*>(object.get()) != nullptr;
    EXPECT_TRUE(isConsole || closingFailed)
        << "left open: " << emulated::Utf8(object->TypeName()) << ' ' << emulated::Utf8(object->NativeName());
    machine_.objects.Close(reinterpret_cast<win32::HANDLE>(handle), process);
  }
}

RunResult RunProgram(emulated::Machine& machine, const std::vector<std::u16string>& words) {
  UseProgramModule(machine);
  const auto token = machine.process.token;
  machine.process.token = std::make_shared<emulated::Token>(*token);
  machine.console.clear();
  const std::size_t logged = LogBytes(machine).size();

  std::vector<const char16_t*> arguments{u"QBC.exe"};
  for (const std::u16string& word : words) arguments.push_back(word.c_str());
  arguments.push_back(nullptr);

  RunResult result;
  {
    const OpenHandles process(machine);  // whose end closes them
    result.exitCode = QuillbayMain(static_cast<int>(words.size()) + 1, arguments.data());
    machine.threads().EndAll();
    machine.controls.Forget();
  }
  machine.process.token = token;

  result.console = WithoutCarriageReturns(emulated::Utf16(emulated::OemToUtf8(machine.console, machine.oemCodePage)));
  const std::u16string banner = LoadResourceString(101);
  result.said = result.console.starts_with(banner) ? result.console.substr(banner.size()) : result.console;
  result.log = WithoutCarriageReturns(LogText(machine, logged));
  const std::size_t second = std::min(result.log.find(u'\n', 1), result.log.size());
  const std::size_t third = std::min(result.log.find(u'\n', second + 1), result.log.size());
  if (const std::u16string line = result.log.substr(second, third - second); line.find(u", Quillbay ") != line.npos) {
    result.which = line;
    result.log.erase(second, line.size());
  }
  return result;
}

}  // namespace test
