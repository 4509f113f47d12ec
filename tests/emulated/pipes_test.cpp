// Named pipes with scripted servers, and the product's service behind one.
#include "win32/emulated/system/pipes.h"

#include "emulated/on_machine.h"
#include "win32/emulated/registry/services.h"
#include "workstation/quillbay_service.h"

namespace {

using namespace win32;

constexpr const char16_t* kPath = u"\\\\.\\pipe\\QBDataPipe";

class Pipes : public test::OnWindows {
 protected:
  static UniqueFile Open(DWORD access = GENERIC_WRITE) { return contract::Open(kPath, access, 0); }
  static DWORD ErrorOfOpen(DWORD access = GENERIC_WRITE) { return contract::OpenError(kPath, access, 0); }
  static DWORD Write(HANDLE pipe, std::string_view bytes) {
    DWORD written = 0;
    if (!WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) return GetLastError();
    return written == bytes.size() ? ERROR_SUCCESS : ERROR_INVALID_DATA;
  }
};

TEST_F(Pipes, AClientGetsAFreeInstanceAndWritesWholeRecordsUntilTheServerVanishes) {
  EXPECT_EQ(ErrorOfOpen(), ERROR_FILE_NOT_FOUND);
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
  pipe = Open();
  EXPECT_TRUE(pipe) << "the instance is free again";
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
  constexpr std::u16string_view kUser =
      u"HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AccountPicture\\Users\\S-1-5-21-1-2-3-1001";
  workstation::RunQuillbayService(*machine);
  const struct {
    std::u16string_view name, before, after;
    DWORD type;
  } values[] = {
      {u"Image32", u"c:\\USERS\\\u00D6FFENTLICH\\accountpictures\\S-1\\a.jpg",
       u"D:\\\u00D6\\AccountPictures\\S-1\\a.jpg", REG_SZ},
      {u"Image40", u"C:\\Users\\\u00D6ffentlich\\AccountPictures", u"D:\\\u00D6\\AccountPictures", REG_EXPAND_SZ},
      {u"Image48", u"C:\\Users\\\u00D6ffentlich\\AccountPictures2\\b.jpg",
       u"C:\\Users\\\u00D6ffentlich\\AccountPictures2\\b.jpg", REG_SZ}};
  const std::string from =
                        "C:\\Users\\\xD6"
                        "ffentlich",
                    good = "UpdateImgPath|" + from + "|D:\\\xD6";
  std::string endless = good;
  endless.resize(2048, 'x');
  const std::vector<std::string> bad{endless,
                                     "",
                                     "UpdateImgPath|",
                                     good + "|E:\\",
                                     "UpdateImgPath|" + from + "|",
                                     "updateimgpath" + good.substr(13),
                                     std::string(3000, '\xFF')};
  const auto send = [&](std::string record, bool padded, bool taken) {
    for (const auto& value : values) registry().SetText(kUser, value.name, value.before, value.type);
    registry().SetDword(kUser, u"Image96", 1);
    if (padded && record.size() < 2048) record.resize(2048);
    EXPECT_EQ(Write(Open().get(), record), ERROR_SUCCESS);
    for (const auto& value : values) {
      EXPECT_EQ(registry().Query(kUser, value.name)->Text(), taken ? value.after : value.before) << record;
      EXPECT_EQ(registry().Query(kUser, value.name)->type, value.type);
    }
    EXPECT_EQ(registry().Query(kUser, u"Image96")->type, REG_DWORD);
  };
  send(good, true, true);
  send(good, false, false);
  for (const std::string& record : bad) send(record, true, false);
}

}  // namespace
