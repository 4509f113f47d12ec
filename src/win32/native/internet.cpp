#include "win32/internet.h"

#include "win32/native/cast.h"

#include <wininet.h>

namespace win32 {

using native::Wide;

static_assert(std::is_same_v<HINTERNET, ::HINTERNET> && std::is_same_v<INTERNET_PORT, ::INTERNET_PORT>);
static_assert(sizeof(ULONG_PTR) == sizeof(::DWORD_PTR));

HINTERNET InternetOpenW(const char16_t* lpszAgent, DWORD dwAccessType, const char16_t* lpszProxy,
                        const char16_t* lpszProxyBypass, DWORD dwFlags) {
  return ::InternetOpenW(Wide(lpszAgent), dwAccessType, Wide(lpszProxy), Wide(lpszProxyBypass), dwFlags);
}

HINTERNET InternetConnectW(HINTERNET hInternet, const char16_t* lpszServerName, INTERNET_PORT nServerPort,
                           const char16_t* lpszUserName, const char16_t* lpszPassword, DWORD dwService, DWORD dwFlags,
                           ULONG_PTR dwContext) {
  return ::InternetConnectW(hInternet, Wide(lpszServerName), nServerPort, Wide(lpszUserName), Wide(lpszPassword),
                            dwService, dwFlags, dwContext);
}

HINTERNET HttpOpenRequestW(HINTERNET hConnect, const char16_t* lpszVerb, const char16_t* lpszObjectName,
                           const char16_t* lpszVersion, const char16_t* lpszReferrer,
                           const char16_t** lplpszAcceptTypes, DWORD dwFlags, ULONG_PTR dwContext) {
  return ::HttpOpenRequestW(hConnect, Wide(lpszVerb), Wide(lpszObjectName), Wide(lpszVersion), Wide(lpszReferrer),
                            native::As<const wchar_t*>(lplpszAcceptTypes), dwFlags, dwContext);
}

BOOL HttpSendRequestW(HINTERNET hRequest, const char16_t* lpszHeaders, DWORD dwHeadersLength, void* lpOptional,
                      DWORD dwOptionalLength) {
  return ::HttpSendRequestW(hRequest, Wide(lpszHeaders), dwHeadersLength, lpOptional, dwOptionalLength);
}

BOOL HttpQueryInfoW(HINTERNET hRequest, DWORD dwInfoLevel, void* lpBuffer, DWORD* lpdwBufferLength, DWORD* lpdwIndex) {
  return ::HttpQueryInfoW(hRequest, dwInfoLevel, lpBuffer, lpdwBufferLength, lpdwIndex);
}

BOOL InternetReadFile(HINTERNET hFile, void* lpBuffer, DWORD dwNumberOfBytesToRead, DWORD* lpdwNumberOfBytesRead) {
  return ::InternetReadFile(hFile, lpBuffer, dwNumberOfBytesToRead, lpdwNumberOfBytesRead);
}

BOOL InternetCloseHandle(HINTERNET hInternet) { return ::InternetCloseHandle(hInternet); }

}  // namespace win32
