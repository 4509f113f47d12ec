// The update check against a server that answers well, badly, too much or not at all.
#include "program/everything.h"

namespace {

using test::HttpReply;
using test::HttpServer;

constexpr const char* kLatestMarker = "<RESULT>LATEST</RESULT>";
constexpr const char* kUpdateMarker = "<RESULT>UPDATE</RESULT>";

class UpdateCheck : public ::testing::Test {
 protected:
  ~UpdateCheck() override { emulated::HttpTransfer::SetPatience(std::chrono::seconds(30)); }

  // The check as the command makes it: the answer is the message's, too, and nothing stays open.
  int Check() {
    const auto run = test::RunProgram(*machine, {u"/CheckForUpdate"});
    EXPECT_EQ(run.said, run.exitCode == 0   ? u"You have the latest version of Quillbay."
                        : run.exitCode == 1 ? u"There is a newer version of Quillbay."
                                            : u"Can not access Velmora Check for Updates. Please check network "
                                              u"connection and try again.");
    return run.exitCode;
  }
  int CheckWith(std::string_view body, std::string_view status = "200 OK") {
    const HttpServer server(HttpReply(status, body));
    return Check();
  }

  std::unique_ptr<emulated::Machine> machine = test::InstalledMachine();
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

// Markers in any case; pieces of 1,024 bytes make one reply, in which a zero ends its piece only.
TEST_F(UpdateCheck, LooksForTheMarkers) {
  const std::string zero(1, '\0'), latest = kLatestMarker;
  std::vector<std::pair<std::string, int>> bodies = {
      {"<?xml version=\"1.0\"?><r><Result>latest</Result></r>", 0},
      {"<r><result>Update</result></r>", 1},
      {kUpdateMarker + latest, 0},
      {"<RESULT> LATEST</RESULT>", 2},
      {"<RESULT>LATEST", 2},
      {"", 2},
      {zero + latest, 2},
      {zero + std::string(1023, 'x') + latest, 0},
      {"<RESULT>UP" + zero + std::string(1013, 'x') + "DATE</RESULT>", 1},
      {latest + std::string(1024 * 1024 - latest.size(), 'x'), 0},
      {latest + std::string(1024 * 1024 - latest.size() + 1, 'x'), 2}};
  for (const unsigned before : {0u, 1010u, 1024u, 4090u})
    bodies.emplace_back(std::string(before, ' ') + latest + std::string(3000, 'x'), 0);
  for (const auto& [body, code] : bodies) EXPECT_EQ(CheckWith(body), code) << body.size() << body.substr(0, 60);
}

TEST_F(UpdateCheck, OnlyAPlain200IsAnAnswer) {
  for (const char* status : {"500 Internal Server Error", "201 Created", "204 No Content", "401 No"})
    EXPECT_EQ(CheckWith(kLatestMarker, status), 2) << status;
  HttpServer redirecting(HttpReply("302 Found", kLatestMarker, "Location: http://elsewhere.example/answer\r\n"));
  EXPECT_EQ(Check(), 2) << "it is not gone after";
  EXPECT_EQ(redirecting.Heads().size(), 1u);
}

// Its length is a number, and what stops before its end is no whole reply, whatever the library says of it.
TEST_F(UpdateCheck, AReplyIsAsLongAsItSays) {
  const std::string ok = "HTTP/1.1 200 OK\r\n", newer = kUpdateMarker;
  const std::string begun = ok + "Content-Length: 5000\r\n\r\n" + std::string(2000, ' ') + kLatestMarker;
  const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
  const std::pair<std::string, int> replies[] = {
      {ok + "Content-Length: 00023\r\n\r\n" + newer, 1},
      {ok + "Content-Length: +23\r\n\r\n" + newer, 2},
      {chunked + "17\r\n" + newer + "\r\n0\r\n\r\n", 1},
      {chunked + "1f\r\n<?x?>\r\n" + newer + " \r\n0\r\n\r\n", 1},
      {chunked + "1f\r\n<r>" + newer + "</r> \r\n0\r\n\r\n", 1},
      {chunked + "1a\r\n<r>" + newer + "\r\n0\r\n\r\n", 2},  // whole chunks of half a document
      {begun, 2},
      {"", 2}};
  for (const auto& [reply, code] : replies) {
    const HttpServer server(reply);
    EXPECT_EQ(Check(), code) << reply;
  }
  emulated::HttpTransfer::SetPatience(std::chrono::milliseconds(50));
  {
    const HttpServer server([&](HttpServer::Exchange& exchange) { exchange.Send(begun), exchange.WaitForClient(); });
    EXPECT_EQ(Check(), 2);
  }
  EXPECT_EQ(Check(), 2) << "the server's port is closed";
}

// Without an end: little more is taken than what counts and what is on its way.
TEST_F(UpdateCheck, AReplyThatIsTooLongIsNotTaken) {
  HttpServer server([&](HttpServer::Exchange& exchange) {
    exchange.Send(std::string("HTTP/1.1 200 OK\r\n\r\n") + kLatestMarker);
    const std::string block(65536, '\0');
    for (int i = 0; i < 1600 && exchange.Send(block); ++i) continue;
  });
  EXPECT_EQ(Check(), 2);
  server.Heads();
  EXPECT_LT(server.sent(), 40u * 1024 * 1024);
}

TEST_F(UpdateCheck, AnyCallMayFail) {
  HttpServer server(HttpReply("200 OK", kLatestMarker + std::string(3000, 'x')));
  for (auto* const call : {"GetModuleFileNameW", "GetFileVersionInfoSizeW", "GetFileVersionInfoW", "VerQueryValueW"}) {
    machine->gate.FailCallsFrom(call, 1, win32::ERROR_RESOURCE_DATA_NOT_FOUND);
    const auto run = test::RunProgram(*machine, {u"/CheckForUpdate"});
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
