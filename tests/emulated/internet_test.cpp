// The workstation's network: what goes through it, what it holds of a reply, how a connection fails.
#include <gtest/gtest.h>

#include "support/http_server.h"
#include "support/machine.h"
#include "win32/emulated/system/internet_transfer.h"
#include "win32/handle.h"

namespace {

using namespace win32;
using test::HttpReply;
using test::HttpServer;

class Internet : public ::testing::Test {
 protected:
  ~Internet() override { emulated::HttpTransfer::SetPatience(std::chrono::seconds(30)); }

  void Open(DWORD flags) {
    session.reset(InternetOpenW(u"agent", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0));
    connection.reset(
        InternetConnectW(session.get(), u"server.example", 8080, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 0));
    request.reset(HttpOpenRequestW(connection.get(), u"POST", u"/path", nullptr, nullptr, nullptr, flags, 0));
    ASSERT_TRUE(request);
  }
  DWORD Send(DWORD flags = INTERNET_FLAG_NO_AUTO_REDIRECT) {
    Open(flags);
    char body[] = "body";
    return HttpSendRequestW(request.get(), u"One: 1\r\nTwo: 2", 0xFFFFFFFF, body, 4) ? 0 : GetLastError();
  }
  std::u16string Status() {
    char16_t text[8] = {};
    DWORD size = sizeof text;
    EXPECT_TRUE(HttpQueryInfoW(request.get(), HTTP_QUERY_STATUS_CODE, text, &size, nullptr));
    EXPECT_EQ(size, std::u16string(text).size() * sizeof(char16_t));
    return text;
  }
  // One read of so many bytes; what came. `error` 0 unless it failed.
  std::string Read(DWORD wanted, DWORD& error) {
    std::string bytes(wanted, '?');
    DWORD read = 0;
    error = InternetReadFile(request.get(), bytes.data(), wanted, &read) ? 0 : GetLastError();
    bytes.resize(read);
    return bytes;
  }

  std::unique_ptr<emulated::Machine> machine = test::TestMachine();
  UniqueInternet session, connection, request;
};

TEST_F(Internet, ARequestGoesOutWhenItIsSentAndNotBefore) {
  HttpServer server(HttpReply("404 Not Found", "text"));
  Open(0);
  DWORD error = 0;
  Read(1, error);
  EXPECT_EQ(error, ERROR_INTERNET_INCORRECT_HANDLE_STATE);
  EXPECT_TRUE(server.Heads().empty());
  ASSERT_EQ(Send(), 0u);
  ASSERT_EQ(server.Heads().size(), 1u);
  EXPECT_TRUE(server.Heads()[0].starts_with("POST http://server.example:8080/path HTTP/1.1\r\n"));
  EXPECT_NE(server.Heads()[0].find("\r\nOne: 1\r\nTwo: 2\r\n"), std::string::npos);
  EXPECT_EQ(server.Bodies()[0], "body");
  EXPECT_EQ(Status(), u"404");
  char16_t little[3];
  DWORD size = sizeof little;
  EXPECT_FALSE(HttpQueryInfoW(request.get(), HTTP_QUERY_STATUS_CODE, little, &size, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(size, 8u);
  EXPECT_EQ(Read(100, error), "text");
  EXPECT_EQ(Read(100, error), "");
  EXPECT_EQ(error, 0u);
}

TEST_F(Internet, TheServerWaitsUntilItsReplyIsAskedFor) {
  constexpr std::size_t kBlock = 40009;  // no multiple of what is read at once
  const auto block = [](int number) { return std::string(kBlock, static_cast<char>('a' + number % 26)); };
  HttpServer server([&](HttpServer::Exchange& exchange) {
    exchange.Send("HTTP/1.1 200 OK\r\n\r\n");
    for (int i = 0; exchange.Send(block(i)); ++i) continue;
  });
  ASSERT_EQ(Send(), 0u);
  // What the host's sockets hold is sent soon; then the server stands still.
  std::size_t before = 0;
  for (int looks = 0; before != server.sent() && looks < 100; ++looks) {
    before = server.sent();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  EXPECT_EQ(server.sent(), before);
  DWORD error = 0;
  std::string reply, expected;
  while (reply.size() < before + 10 * kBlock && error == 0) {
    const std::string piece = Read(1000, error);
    ASSERT_EQ(piece.size(), 1000u);
    reply += piece;
  }
  for (int i = 0; expected.size() < reply.size(); ++i) expected += block(i);
  EXPECT_TRUE(reply == expected.substr(0, reply.size()));
  EXPECT_GT(server.sent(), before);
}

}  // namespace
