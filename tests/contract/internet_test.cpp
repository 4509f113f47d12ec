// Handles of the Internet library: what makes them and what they are good for, before anything is sent.
#include "contract/fixture.h"

namespace {

using namespace win32;

class InternetHandles : public contract::FileTest {
 protected:
  UniqueInternet session{InternetOpenW(u"agent", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0)};
  UniqueInternet connection{InternetConnectW(session.get(), u"server.invalid", INTERNET_DEFAULT_HTTP_PORT, nullptr,
                                             nullptr, INTERNET_SERVICE_HTTP, 0, 1)};
  UniqueInternet request{HttpOpenRequestW(connection.get(), u"POST", u"path", nullptr, nullptr, nullptr,
                                          INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_AUTO_REDIRECT, 0)};
};

TEST_F(InternetHandles, AreMadeWithoutANetwork) {
  EXPECT_TRUE(session);
  EXPECT_TRUE(connection);
  EXPECT_TRUE(request);
}

// Which of the two a call says differs between systems.
bool SaysThatTheHandleIsWrong() {
  const DWORD error = GetLastError();
  return error == ERROR_INVALID_HANDLE || error == ERROR_INTERNET_INCORRECT_HANDLE_TYPE;
}

TEST_F(InternetHandles, EachKindIsGoodForItsOwnCalls) {
  EXPECT_FALSE(InternetConnectW(connection.get(), u"server.invalid", INTERNET_DEFAULT_HTTP_PORT, nullptr, nullptr,
                                INTERNET_SERVICE_HTTP, 0, 0));
  EXPECT_TRUE(SaysThatTheHandleIsWrong());
  EXPECT_FALSE(HttpOpenRequestW(session.get(), u"POST", u"path", nullptr, nullptr, nullptr, 0, 0));
  EXPECT_TRUE(SaysThatTheHandleIsWrong());
  EXPECT_FALSE(HttpSendRequestW(connection.get(), nullptr, 0, nullptr, 0));
  EXPECT_TRUE(SaysThatTheHandleIsWrong());
}

TEST_F(InternetHandles, AClosedHandleIsNone) {
  const HINTERNET closed = request.get();
  request.reset();
  EXPECT_FALSE(InternetCloseHandle(closed));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(HttpSendRequestW(closed, nullptr, 0, nullptr, 0));
  EXPECT_TRUE(SaysThatTheHandleIsWrong());
  EXPECT_FALSE(InternetConnectW(nullptr, u"server.invalid", INTERNET_DEFAULT_HTTP_PORT, nullptr, nullptr,
                                INTERNET_SERVICE_HTTP, 0, 0));
  EXPECT_TRUE(SaysThatTheHandleIsWrong());
}

}  // namespace
