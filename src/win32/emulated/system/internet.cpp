// The functions of win32/internet.h on the host's network.
#include "win32/internet.h"

#include <cstring>
#include <optional>

#include "win32/emulated/machine.h"
#include "win32/emulated/system/internet_transfer.h"
#include "win32/emulated/text.h"

namespace emulated {

namespace {

using win32::DWORD;

class InternetHandle : public Object {
 public:
  const char16_t* TypeName() const override { return u"Internet"; }
};

class InternetSession : public InternetHandle {
 public:
  std::string agent;
};

class InternetConnection : public InternetHandle {
 public:
  std::shared_ptr<InternetSession> session;
  std::string server;
  win32::INTERNET_PORT port = 0;
};

class InternetRequest : public InternetHandle {
 public:
  HttpRequest request;
  std::optional<HttpTransfer> transfer;  // once it has been sent
  void Closed() override { transfer.reset(); }
};

// The object of an internet handle of this kind; else null and `error`.
template <typename T>
std::shared_ptr<T> Find(win32::HINTERNET handle, DWORD& error) {
  auto object = ObjectOf<T>(handle);
  error = object                             ? win32::ERROR_SUCCESS
          : ObjectOf<InternetHandle>(handle) ? win32::ERROR_INTERNET_INCORRECT_HANDLE_TYPE
                                             : win32::ERROR_INVALID_HANDLE;
  return object;
}

// A request that has been sent and answered; else null and `error`.
std::shared_ptr<InternetRequest> FindSent(win32::HINTERNET handle, DWORD& error) {
  auto request = Find<InternetRequest>(handle, error);
  if (!request || (request->transfer && request->transfer->Status() != 0)) return request;
  error = win32::ERROR_INTERNET_INCORRECT_HANDLE_STATE;
  return nullptr;
}

std::string UrlOf(const InternetConnection& connection, std::string_view path) {
  std::string url = "http://" + connection.server;
  if (connection.port != win32::INTERNET_DEFAULT_HTTP_PORT) url += ':' + std::to_string(connection.port);
  if (!path.starts_with('/')) url += '/';
  return url.append(path);
}

// What the flags and the library itself add to a request; an empty header takes one of the transfer's own off.
std::vector<std::string> OwnHeaders(DWORD flags) {
  std::vector<std::string> headers{"Accept:", "Expect:"};
  if (flags & win32::INTERNET_FLAG_RELOAD) headers.push_back("Cache-Control: no-cache");
  if (flags & win32::INTERNET_FLAG_KEEP_CONNECTION) headers.push_back("Connection: Keep-Alive");
  return headers;
}

void AddHeaderLines(std::u16string_view text, std::vector<std::string>& headers) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(u"\r\n"), text.size());
    if (end != 0) headers.push_back(Utf8(text.substr(0, end)));
    text.remove_prefix(std::min(end + 2, text.size()));
  }
}

DWORD OpenHttpRequest(win32::HINTERNET handle, const char16_t* verb, const char16_t* path, DWORD flags,
                      win32::HINTERNET& opened) {
  DWORD error = 0;
  const auto connection = Find<InternetConnection>(handle, error);
  if (!connection) return error;
  auto request = std::make_shared<InternetRequest>();
  request->request.url = UrlOf(*connection, Utf8(path ? path : u""));
  request->request.verb = Utf8(verb ? verb : u"GET");
  request->request.agent = connection->session->agent;
  request->request.headers = OwnHeaders(flags);
  request->request.followRedirects = (flags & win32::INTERNET_FLAG_NO_AUTO_REDIRECT) == 0;
  opened = NewHandle(std::move(request), 0);
  return win32::ERROR_SUCCESS;
}

DWORD SendRequest(win32::HINTERNET handle, const char16_t* headers, DWORD headersLength, const void* body, DWORD size) {
  DWORD error = 0;
  const auto request = Find<InternetRequest>(handle, error);
  if (!request) return error;
  HttpRequest sent = request->request;
  constexpr DWORD kEndsWithZero = 0xFFFFFFFF;
  if (headers)
    AddHeaderLines(
        headersLength == kEndsWithZero ? std::u16string_view(headers) : std::u16string_view(headers, headersLength),
        sent.headers);
  const auto* const bytes = static_cast<const win32::BYTE*>(body);
  if (bytes) sent.body.assign(bytes, bytes + size);
  return request->transfer.emplace(std::move(sent)).Send();
}

DWORD QueryInfo(win32::HINTERNET handle, DWORD level, void* buffer, DWORD* length) {
  DWORD error = 0;
  const auto request = FindSent(handle, error);
  if (!request) return error;
  std::optional<std::string> told;
  if (level == win32::HTTP_QUERY_STATUS_CODE)
    told = std::to_string(request->transfer->Status());
  else if (level == win32::HTTP_QUERY_CONTENT_LENGTH)
    told = request->transfer->Header("Content-Length");
  else if (level == win32::HTTP_QUERY_TRANSFER_ENCODING)
    told = request->transfer->Header("Transfer-Encoding");
  else
    return win32::ERROR_INVALID_PARAMETER;
  if (!length) return win32::ERROR_INVALID_PARAMETER;
  if (!told) return win32::ERROR_HTTP_HEADER_NOT_FOUND;
  const std::u16string text = Utf16(*told);
  const auto textSize = static_cast<DWORD>(text.size() * sizeof(char16_t));
  const auto needed = static_cast<DWORD>(textSize + sizeof(char16_t));
  const bool fits = buffer && *length >= needed;
  *length = fits ? textSize : needed;
  if (!fits) return win32::ERROR_INSUFFICIENT_BUFFER;
  std::memcpy(buffer, text.c_str(), needed);
  return win32::ERROR_SUCCESS;
}

DWORD ReadReply(win32::HINTERNET handle, void* buffer, DWORD wanted, DWORD* read) {
  if (!read) return win32::ERROR_INVALID_PARAMETER;
  *read = 0;
  DWORD error = 0;
  const auto request = FindSent(handle, error);
  if (!request) return error;
  Bytes taken;
  error = request->transfer->Read(wanted, taken);
  std::copy(taken.begin(), taken.end(), static_cast<win32::BYTE*>(buffer));
  *read = static_cast<DWORD>(taken.size());
  return error;
}

}  // namespace

}  // namespace emulated

namespace win32 {

using emulated::InternetConnection;
using emulated::InternetSession;

HINTERNET InternetOpenW(const char16_t* lpszAgent, DWORD dwAccessType, const char16_t* lpszProxy,
                        const char16_t* lpszProxyBypass, DWORD dwFlags) {
  WIN32_CALL(lpszAgent, dwAccessType, lpszProxy, lpszProxyBypass, dwFlags);
  if (call.Refused()) return nullptr;
  if (dwAccessType != INTERNET_OPEN_TYPE_PRECONFIG || dwFlags != 0) {
    call.Done(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  auto session = std::make_shared<InternetSession>();
  session->agent = emulated::Utf8(lpszAgent ? lpszAgent : u"");
  return call.Return(emulated::NewHandle(std::move(session), 0));
}

HINTERNET InternetConnectW(HINTERNET hInternet, const char16_t* lpszServerName, INTERNET_PORT nServerPort,
                           const char16_t* lpszUserName, const char16_t* lpszPassword, DWORD dwService, DWORD dwFlags,
                           ULONG_PTR dwContext) {
  WIN32_CALL(hInternet, lpszServerName, nServerPort, lpszUserName, lpszPassword, dwService, dwFlags, dwContext);
  if (call.Refused()) return nullptr;
  DWORD error = ERROR_SUCCESS;
  auto session = emulated::Find<InternetSession>(hInternet, error);
  if (session && (!lpszServerName || !*lpszServerName || dwService != INTERNET_SERVICE_HTTP))
    error = ERROR_INVALID_PARAMETER;
  if (error != ERROR_SUCCESS) {
    call.Done(error);
    return nullptr;
  }
  auto connection = std::make_shared<InternetConnection>();
  connection->session = std::move(session);
  connection->server = emulated::Utf8(lpszServerName);
  connection->port = nServerPort != 0 ? nServerPort : INTERNET_DEFAULT_HTTP_PORT;
  return call.Return(emulated::NewHandle(std::move(connection), 0));
}

HINTERNET HttpOpenRequestW(HINTERNET hConnect, const char16_t* lpszVerb, const char16_t* lpszObjectName,
                           const char16_t* lpszVersion, const char16_t* lpszReferrer,
                           const char16_t** lplpszAcceptTypes, DWORD dwFlags, ULONG_PTR dwContext) {
  WIN32_CALL(hConnect, lpszVerb, lpszObjectName, lpszVersion, lpszReferrer, lplpszAcceptTypes, dwFlags, dwContext);
  if (call.Refused()) return nullptr;
  HINTERNET opened = nullptr;
  if (const DWORD error = emulated::OpenHttpRequest(hConnect, lpszVerb, lpszObjectName, dwFlags, opened)) {
    call.Done(error);
    return nullptr;
  }
  return call.Return(opened);
}

BOOL HttpSendRequestW(HINTERNET hRequest, const char16_t* lpszHeaders, DWORD dwHeadersLength, void* lpOptional,
                      DWORD dwOptionalLength) {
  WIN32_CALL(hRequest, lpszHeaders, dwHeadersLength, lpOptional, dwOptionalLength);
  if (call.Refused()) return FALSE;
  return call.Done(emulated::SendRequest(hRequest, lpszHeaders, dwHeadersLength, lpOptional, dwOptionalLength));
}

BOOL HttpQueryInfoW(HINTERNET hRequest, DWORD dwInfoLevel, void* lpBuffer, DWORD* lpdwBufferLength, DWORD* lpdwIndex) {
  WIN32_CALL(hRequest, dwInfoLevel, lpBuffer, lpdwBufferLength, lpdwIndex);
  if (call.Refused()) return FALSE;
  return call.Done(emulated::QueryInfo(hRequest, dwInfoLevel, lpBuffer, lpdwBufferLength));
}

BOOL InternetReadFile(HINTERNET hFile, void* lpBuffer, DWORD dwNumberOfBytesToRead, DWORD* lpdwNumberOfBytesRead) {
  WIN32_CALL(hFile, lpBuffer, dwNumberOfBytesToRead, lpdwNumberOfBytesRead);
  if (call.Refused()) return FALSE;
  return call.Done(emulated::ReadReply(hFile, lpBuffer, dwNumberOfBytesToRead, lpdwNumberOfBytesRead));
}

BOOL InternetCloseHandle(HINTERNET hInternet) {
  WIN32_CALL(hInternet);
  if (call.Refused()) return FALSE;
  DWORD error = ERROR_SUCCESS;
  if (emulated::Find<emulated::InternetHandle>(hInternet, error)) {
    emulated::Machine& machine = emulated::Machine::Current();
    machine.objects.Close(hInternet, machine.process.id);
  }
  return call.Done(error);
}

}  // namespace win32
