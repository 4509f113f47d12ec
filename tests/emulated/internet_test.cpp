// The workstation's network: what goes through it, what it holds of a reply. How much of one is taken, and
// how a connection fails, is in the tests of the update check.
#include "emulated/on_machine.h"
#include "support/http_server.h"

namespace {

using namespace win32;
using test::HttpReply;
using test::HttpServer;

class Internet : public test::OnBareMachine {
 protected:
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
    return contract::ErrorOf(HttpSendRequestW(request.get(), u"One: 1\r\nTwo: 2", 0xFFFFFFFF, body, 4));
  }
  // What one read brought, or its error.
  std::string Read() {
    char bytes[1000];
    DWORD read = 0;
    if (!InternetReadFile(request.get(), bytes, sizeof bytes, &read)) return std::to_string(GetLastError());
    return {bytes, read};
  }

  UniqueInternet session, connection, request;
};

TEST_F(Internet, ARequestGoesOutWhenItIsSentAndNotBefore) {
  HttpServer server(HttpReply("404 Not Found", "text"));
  Open(0);
  EXPECT_EQ(Read(), std::to_string(ERROR_INTERNET_INCORRECT_HANDLE_STATE));
  EXPECT_TRUE(server.Heads().empty());
  ASSERT_EQ(Send(), 0u);
  ASSERT_EQ(server.Heads().size(), 1u);
  EXPECT_TRUE(server.Heads()[0].starts_with("POST http://server.example:8080/path HTTP/1.1\r\n"));
  EXPECT_NE(server.Heads()[0].find("\r\nOne: 1\r\nTwo: 2\r\n"), std::string::npos);
  EXPECT_EQ(server.Bodies()[0], "body");
  char16_t status[8] = {};
  DWORD size = 6;
  EXPECT_EQ(contract::ErrorOf(HttpQueryInfoW(request.get(), HTTP_QUERY_STATUS_CODE, status, &size, nullptr)),
            ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(size, 8u);
  EXPECT_TRUE(HttpQueryInfoW(request.get(), HTTP_QUERY_STATUS_CODE, status, &size, nullptr));
  EXPECT_EQ(size, 6u);
  EXPECT_EQ(std::u16string(status), u"404");
  EXPECT_EQ(Read(), "text");
  EXPECT_EQ(Read(), "");
}

TEST_F(Internet, FollowsRedirectionsUnlessToldNotTo) {
  HttpServer server([](HttpServer::Exchange& exchange) {
    const bool first = exchange.head.find("/path") != std::string::npos;
    exchange.Send(first ? HttpReply("302 Found", "here", "Location: http://other.example/x\r\n")
                        : HttpReply("200 OK", "there"));
  });
  EXPECT_EQ(Send(INTERNET_FLAG_NO_AUTO_REDIRECT), 0u);
  EXPECT_EQ(Read(), "here");
  EXPECT_EQ(Send(0), 0u);
  EXPECT_EQ(Read(), "there");
}

}  // namespace
