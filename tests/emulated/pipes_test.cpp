// Named pipes with scripted servers, and the product's service behind one.
#include "win32/emulated/system/pipes.h"

#include <gtest/gtest.h>

#include "support/installed_machine.h"
#include "win32/emulated/registry/registry.h"
#include "win32/emulated/registry/services.h"
#include "win32/handle.h"
#include "workstation/quillbay_service.h"

namespace {

using namespace win32;

constexpr const char16_t* kPath = u"\\\\.\\pipe\\QBDataPipe";
constexpr std::u16string_view kUser =
    u"HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AccountPicture\\Users\\S-1-5-21-1-2-3-1001";

class Pipes : public ::testing::Test {
 protected:
  Pipes() : machine(test::InstalledMachine()) {}

  UniqueFile Open(DWORD access = GENERIC_WRITE, DWORD disposition = OPEN_EXISTING) {
    SetLastError(ERROR_SUCCESS);
    return UniqueFile{CreateFileW(kPath, access, 0, nullptr, disposition, 0, nullptr)};
  }
  DWORD ErrorOfOpen(DWORD access = GENERIC_WRITE) {
    const UniqueFile pipe = Open(access);
    return pipe ? ERROR_SUCCESS : GetLastError();
  }
  // 0 or the last error, and the milliseconds that it took.
  std::pair<DWORD, std::uint64_t> Wait(DWORD milliseconds) {
    const std::uint64_t before = machine->sleptMilliseconds;
    const DWORD error = WaitNamedPipeW(kPath, milliseconds) ? ERROR_SUCCESS : GetLastError();
    return {error, machine->sleptMilliseconds - before};
  }
  static DWORD Write(HANDLE pipe, std::string_view bytes) {
    DWORD written = 0;
    if (!WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) return GetLastError();
    return written == bytes.size() ? ERROR_SUCCESS : ERROR_NO_DATA;
  }

  std::unique_ptr<emulated::Machine> machine;
};

TEST_F(Pipes, AClientGetsAFreeInstanceAndWritesWholeRecords) {
  EXPECT_EQ(ErrorOfOpen(), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Wait(20000), std::pair(ERROR_FILE_NOT_FOUND, std::uint64_t{0}));
  const auto server = machine->pipes().Serve(u"qbdatapipe");
  std::vector<std::string> records;
  server->onWrite = [&](emulated::ByteView record) {
    records.emplace_back(record.begin(), record.end());
    return ERROR_SUCCESS;
  };
  EXPECT_EQ(ErrorOfOpen(GENERIC_READ), ERROR_ACCESS_DENIED);
  UniqueFile pipe = Open();
  ASSERT_TRUE(pipe);
  EXPECT_EQ(ErrorOfOpen(), ERROR_PIPE_BUSY);  // the only instance is ours
  EXPECT_EQ(Write(pipe.get(), std::string("a\0b", 3)), ERROR_SUCCESS);
  EXPECT_EQ(Write(pipe.get(), "c"), ERROR_SUCCESS);
  EXPECT_EQ(records, (std::vector{std::string("a\0b", 3), std::string("c")}));
  pipe.reset();
  EXPECT_EQ(ErrorOfOpen(), ERROR_SUCCESS);
  EXPECT_EQ(GetFileAttributesW(u"\\\\.\\pipe"), INVALID_FILE_ATTRIBUTES);
}

TEST_F(Pipes, WaitingTakesUntilAnInstanceIsFreeOrTheTimeIsOver) {
  const auto server = machine->pipes().Serve(u"QBDataPipe");
  EXPECT_EQ(Wait(20000), std::pair(ERROR_SUCCESS, std::uint64_t{0}));
  server->busyUntil = machine->Now() + 12'345 * 10'000;
  EXPECT_EQ(ErrorOfOpen(), ERROR_PIPE_BUSY);
  EXPECT_EQ(Wait(10000), std::pair(ERROR_SEM_TIMEOUT, std::uint64_t{10000}));
  EXPECT_EQ(Wait(20000), std::pair(ERROR_SUCCESS, std::uint64_t{2345}));
  // Somebody else is faster; then the pipe goes while the client waits.
  server->onOpen = [] { return ERROR_PIPE_BUSY; };
  EXPECT_EQ(ErrorOfOpen(), ERROR_PIPE_BUSY);
  server->busyUntil = INT64_MAX;
  machine->onSleep = [&](std::uint64_t) { machine->pipes().Close(u"QBDataPipe"); };
  EXPECT_EQ(Wait(20000).first, ERROR_FILE_NOT_FOUND);
}

TEST_F(Pipes, AServerMayVanish) {
  const auto server = machine->pipes().Serve(u"QBDataPipe");
  const UniqueFile pipe = Open();
  ASSERT_TRUE(pipe);
  server->onWrite = [](emulated::ByteView) { return ERROR_BROKEN_PIPE; };
  EXPECT_EQ(Write(pipe.get(), "x"), ERROR_BROKEN_PIPE);
  machine->pipes().Close(u"QBDataPipe");
  EXPECT_EQ(Write(pipe.get(), "x"), ERROR_NO_DATA);
  EXPECT_EQ(ErrorOfOpen(), ERROR_FILE_NOT_FOUND);
}

TEST_F(Pipes, TheServicesPipeIsThereWhileItRuns) {
  emulated::ServiceManager& services = machine->services();
  workstation::RunQuillbayService(*machine);
  EXPECT_EQ(ErrorOfOpen(), ERROR_SUCCESS);
  EXPECT_EQ(ErrorOfOpen(), ERROR_SUCCESS);  // anew after each client
  services.Behaviour(u"QuillbayService").stopMilliseconds = 3000;
  services.Behaviour(u"QuillbayService").startMilliseconds = 4000;
  EXPECT_EQ(services.Stop(u"QuillbayService"), ERROR_SUCCESS);
  EXPECT_EQ(ErrorOfOpen(), ERROR_SUCCESS);
  Sleep(3000);
  EXPECT_EQ(ErrorOfOpen(), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(services.Start(u"QuillbayService"), ERROR_SUCCESS);
  EXPECT_EQ(ErrorOfOpen(), ERROR_FILE_NOT_FOUND);
  Sleep(4000);  // and nobody asks for its state
  EXPECT_EQ(ErrorOfOpen(), ERROR_SUCCESS);
}

TEST_F(Pipes, TheServiceRewritesThePathsOfPicturesAndNothingElse) {
  workstation::RunQuillbayService(*machine);
  emulated::Registry& registry = machine->registry();
  const auto text = [&](std::u16string_view value) { return registry.Query(kUser, value)->Text(); };
  const auto prepare = [&] {
    registry.SetText(kUser, u"Image32", u"c:\\USERS\\\u00D6FFENTLICH\\accountpictures\\S-1\\a.jpg");
    registry.SetText(kUser, u"Image40", u"C:\\Users\\\u00D6ffentlich\\AccountPictures", REG_EXPAND_SZ);
    registry.SetText(kUser, u"Image48", u"C:\\Users\\\u00D6ffentlich\\AccountPictures2\\b.jpg");
    registry.SetDword(kUser, u"Image96", 1);
  };
  const auto send = [&](std::string record, bool padded = true) {
    if (padded) record.resize(2048);
    prepare();
    const UniqueFile pipe = Open();
    EXPECT_EQ(Write(pipe.get(), record), ERROR_SUCCESS);
    return text(u"Image32");
  };
  const std::string request =
      "UpdateImgPath|C:\\Users\\\xD6"
      "ffentlich|D:\\\xD6";
  EXPECT_EQ(send(request), u"D:\\\u00D6\\AccountPictures\\S-1\\a.jpg");
  EXPECT_EQ(text(u"Image40"), u"D:\\\u00D6\\AccountPictures");
  EXPECT_EQ(registry.Query(kUser, u"Image40")->type, REG_EXPAND_SZ);
  EXPECT_EQ(text(u"Image48"), u"C:\\Users\\\u00D6ffentlich\\AccountPictures2\\b.jpg");
  EXPECT_EQ(registry.Query(kUser, u"Image96")->type, REG_DWORD);

  std::string endless = request;
  endless.resize(2048, 'x');
  const std::u16string unchanged = u"c:\\USERS\\\u00D6FFENTLICH\\accountpictures\\S-1\\a.jpg";
  const std::vector<std::string> others{endless,
                                        "",
                                        "UpdateImgPath|",
                                        request + "|E:\\",
                                        std::string("UpdateImgPath|C:\\Users\\\xD6") + "ffentlich|",
                                        "updateimgpath" + request.substr(13),
                                        std::string(3000, '\xFF')};
  for (const std::string& record : others) EXPECT_EQ(send(record, record.size() < 2048), unchanged) << record;
  EXPECT_EQ(send(request, false), unchanged);
}

}  // namespace
