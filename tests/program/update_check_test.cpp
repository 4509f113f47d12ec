// The update check against a server that answers well, badly, too much or not at all.
#include "program/everything.h"

namespace {

using namespace test;

constexpr const char* kLatestMarker = "<RESULT>LATEST</RESULT>";

class UpdateCheck : public ::testing::Test {
 protected:
  // The check as the command makes it: the answer is the message's, too, and nothing stays open.
  int Check() {
    const auto run = RunProgram(*machine, {u"/CheckForUpdate"});
    EXPECT_EQ(run.said, run.exitCode == 0   ? u"You have the latest version of Quillbay."
                        : run.exitCode == 1 ? u"There is a newer version of Quillbay."
                                            : u"Can not access Velmora Check for Updates. Please check network "
                                              u"connection and try again.");
    return run.exitCode;
  }
  std::unique_ptr<emulated::Machine> machine = InstalledMachine();
};

TEST_F(UpdateCheck, SendsTheDocumentAsTheServerKnowsIt) {
  const std::string tabs(9, '\t');
  std::string expected = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>";
  for (const char* element : {"<velmoraupdate version=\"1\">", "<response>XML</response>", "<testing>LIVE</testing>",
                              "<email>updates@velmora.example</email>", "<language>en</language>", "<product>",
                              "\t  <productcode>QBS</productcode> ", "\t  <releasetype>Full</releasetype> ",
                              "\t  <majorversion>2</majorversion> ", "\t  <minorversion>34</minorversion> ",
                              "\t  <hotfixversion>1110</hotfixversion> ", "\t  <build>486</build> ",
                              "\t  <versionnumber>2.34.1110.486</versionnumber> ", "\t  <daysremain>0</daysremain>",
                              "</product>", "</velmoraupdate>"})
    expected += tabs + element;
  std::string utf16;
  for (const char letter : expected) utf16 += {letter, '\0'};

  HttpServer server(HttpReply("200 OK", kLatestMarker));
  std::string opened;
  machine->gate.Trace([&](const std::string& line) {
    if (line.starts_with("HttpOpenRequestW")) opened = line.substr(line.find(','), line.find(')') - line.find(','));
  });
  EXPECT_EQ(Check(), 0);
  machine->gate.Trace({});
  ASSERT_EQ(server.Bodies().size(), 1u);
  EXPECT_EQ(server.Bodies()[0], utf16);
  // Read anew, kept nowhere, on a connection that stays, and no redirection is followed.
  EXPECT_EQ(opened, ", \"POST\", \"CheckFileXml.aspx\", null, null, null, 0x84600000, 0");
  const std::string host = emulated::Utf8(QBC_UPDATE_HOST), head = server.Heads()[0];
  EXPECT_TRUE(head.starts_with("POST http://" + host + "/CheckFileXml.aspx HTTP/1.1\r\n")) << head;
  for (const std::string& line :
       {"Host: " + host, std::string("User-Agent: Update Agent"),
        std::string("Content-Type: text/html; charset=utf-16"), "Content-Length: " + std::to_string(utf16.size())})
    EXPECT_NE(head.find("\r\n" + line + "\r\n"), std::string::npos) << line << "\n" << head;
}

// Markers in any case; pieces of 1,024 bytes make one reply, in which a zero ends its piece only. Its length is a
// number, and what stops before its end is no whole reply, whatever the library says of it.
TEST_F(UpdateCheck, JudgesReplies) {
  const std::string zero(1, '\0'), latest = kLatestMarker, newer = "<RESULT>UPDATE</RESULT>";
  std::vector<std::pair<std::string, int>> replies;
  for (const auto& [body, code] :
       {std::pair<std::string, int>("<?xml version=\"1.0\"?><r><Result>latest</Result></r>", 0),
        {"<r><result>Update</result></r>", 1},
        {newer + latest, 0},
        {"<RESULT> LATEST</RESULT>", 2},
        {"", 2},
        {zero + latest, 2},
        {zero + std::string(1023, 'x') + latest, 0},
        {"<RESULT>UP" + zero + std::string(1013, 'x') + "DATE</RESULT>", 1},
        {std::string(1010, ' ') + latest + std::string(3000, 'x'), 0},
        {latest + std::string(1024 * 1024 - latest.size(), 'x'), 0},
        {latest + std::string(1024 * 1024 - latest.size() + 1, 'x'), 2}})
    replies.emplace_back(HttpReply("200 OK", body), code);
  for (const char* status : {"500 Internal Server Error", "201 Created", "204 No Content", "401 No", "302 Found"})
    replies.emplace_back(HttpReply(status, kLatestMarker, "Location: http://elsewhere.example/answer\r\n"), 2);
  const std::string length = "HTTP/1.1 200 OK\r\nContent-Length: ";
  replies.insert(replies.end(), {{length + "00023\r\n\r\n" + newer, 1},
                                 {length + "+23\r\n\r\n" + newer, 2},
                                 {length + "5000\r\n\r\n" + std::string(2000, ' ') + latest, 2},
                                 {"", 2}});
  for (const auto& [chunk, code] : {std::pair("17\r\n" + newer, 1),
                                    {"1f\r\n<?x?>\r\n" + newer + " ", 1},
                                    {"1f\r\n<r>" + newer + "</r> ", 1},
                                    {"1a\r\n<r>" + newer, 2}})  // whole chunks of half a document
    replies.emplace_back("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunk + "\r\n0\r\n\r\n", code);
  for (const auto& [reply, code] : replies) {
    HttpServer server(reply);
    EXPECT_EQ(Check(), code) << reply.substr(0, 200);
    EXPECT_EQ(server.Heads().size(), 1u) << "no redirection is gone after";
  }
}

TEST_F(UpdateCheck, AnyCallMayFail) {
  HttpServer server(HttpReply("200 OK", kLatestMarker + std::string(3000, 'x')));
  for (auto* const call : {"GetModuleFileNameW", "GetFileVersionInfoSizeW", "GetFileVersionInfoW", "VerQueryValueW"}) {
    machine->gate.FailCallsFrom(call, 1, win32::ERROR_RESOURCE_DATA_NOT_FOUND);
    const auto run = RunProgram(*machine, {u"/CheckForUpdate"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.log.ends_with(u"] Product Version extraction failed. Please check the file version."));
    machine->gate.ClearFailures();
  }
  EXPECT_TRUE(server.Heads().empty()) << "without a version nothing is sent";
  for (auto* const call : {"InternetOpenW", "InternetConnectW", "HttpOpenRequestW", "HttpSendRequestW",
                           "HttpQueryInfoW", "InternetReadFile"}) {
    machine->gate.ResetCounts();
    EXPECT_EQ(Check(), 0);
    const std::uint64_t count = machine->gate.Count(call);
    EXPECT_GT(count, 0u) << call;
    for (std::uint64_t nth = 1; nth <= count; ++nth) {
      machine->gate.FailCall(call, nth, win32::ERROR_INTERNET_CONNECTION_RESET);
      EXPECT_EQ(Check(), 2) << call << ' ' << nth;
      machine->gate.ClearFailures();
    }
  }
}

}  // namespace
