// Handles of the Internet library: what makes them and what they are good for, before anything is sent.
#include "contract/fixture.h"

namespace {

using namespace contract;
using namespace win32;

UniqueInternet Connect(HINTERNET session, ULONG_PTR context = 0) {
  return UniqueInternet{InternetConnectW(session, u"server.invalid", INTERNET_DEFAULT_HTTP_PORT, nullptr, nullptr,
                                         INTERNET_SERVICE_HTTP, 0, context)};
}
UniqueInternet Request(HINTERNET connection) {
  return UniqueInternet{HttpOpenRequestW(connection, u"POST", u"path", nullptr, nullptr, nullptr,
                                         INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_AUTO_REDIRECT, 0)};
}
BOOL Send(HINTERNET request) { return HttpSendRequestW(request, nullptr, 0, nullptr, 0); }

// Which of the two a call says differs between systems.
template <typename Result>
bool FindsTheHandleWrong(const Result& result) {
  const DWORD error = ErrorOf(result);
  return error == ERROR_INVALID_HANDLE || error == ERROR_INTERNET_INCORRECT_HANDLE_TYPE;
}

using InternetHandles = FileTest;

TEST_F(InternetHandles, AreMadeWithoutANetworkAndEachKindIsGoodForItsOwnCalls) {
  const UniqueInternet session{InternetOpenW(u"agent", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0)};
  const UniqueInternet connection = Connect(session.get(), 1);
  UniqueInternet request = Request(connection.get());
  EXPECT_TRUE(session && connection && request);
  EXPECT_TRUE(FindsTheHandleWrong(Connect(connection.get())));
  EXPECT_TRUE(FindsTheHandleWrong(Connect(nullptr)));
  EXPECT_TRUE(FindsTheHandleWrong(Request(session.get())));
  EXPECT_TRUE(FindsTheHandleWrong(Send(connection.get())));
  const HINTERNET closed = request.get();
  request.reset();
  EXPECT_EQ(ErrorOf(InternetCloseHandle(closed)), ERROR_INVALID_HANDLE);
  EXPECT_TRUE(FindsTheHandleWrong(Send(closed)));
}

}  // namespace
