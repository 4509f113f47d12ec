// HTTP through the Internet library. Every function behaves, returns and sets the last error as Windows' own of that
// name; no handle is opened for asynchronous use, so every call returns when its work is done.
#pragma once

#include "win32/constants.h"

namespace win32 {

using HINTERNET = HANDLE;
using INTERNET_PORT = WORD;

// lpszAgent: the user agent that requests name. dwAccessType: INTERNET_OPEN_TYPE_PRECONFIG, the proxy that the system
// is set up for; lpszProxy and lpszProxyBypass: null. dwFlags: 0. Null on failure.
HINTERNET InternetOpenW(const char16_t* lpszAgent, DWORD dwAccessType, const char16_t* lpszProxy,
                        const char16_t* lpszProxyBypass, DWORD dwFlags);
// Names the server; nothing is sent yet. dwService: INTERNET_SERVICE_HTTP. lpszUserName and lpszPassword: null.
// dwFlags: 0. dwContext: any number, meant for status callbacks. Null on failure.
HINTERNET InternetConnectW(HINTERNET hInternet, const char16_t* lpszServerName, INTERNET_PORT nServerPort,
                           const char16_t* lpszUserName, const char16_t* lpszPassword, DWORD dwService, DWORD dwFlags,
                           ULONG_PTR dwContext);
// lpszObjectName: the path on the server, with or without its leading slash. lpszVersion null: the default version.
// lpszReferrer and lplpszAcceptTypes: null. dwFlags: INTERNET_FLAG_... Null on failure.
HINTERNET HttpOpenRequestW(HINTERNET hConnect, const char16_t* lpszVerb, const char16_t* lpszObjectName,
                           const char16_t* lpszVersion, const char16_t* lpszReferrer,
                           const char16_t** lplpszAcceptTypes, DWORD dwFlags, ULONG_PTR dwContext);
// Connects, sends headers and body, and waits for the reply's headers, whatever its status. lpszHeaders: lines with
// CR LF between; dwHeadersLength in characters, 0xFFFFFFFF for a text that ends with a zero. lpOptional: the body,
// dwOptionalLength bytes.
BOOL HttpSendRequestW(HINTERNET hRequest, const char16_t* lpszHeaders, DWORD dwHeadersLength, void* lpOptional,
                      DWORD dwOptionalLength);
// dwInfoLevel: HTTP_QUERY_STATUS_CODE, or HTTP_QUERY_CONTENT_LENGTH or HTTP_QUERY_TRANSFER_ENCODING as the server wrote
// it (ERROR_HTTP_HEADER_NOT_FOUND when it did not), as a text. lpdwBufferLength: in, the buffer's bytes; out, the
// text's without its terminator, or the bytes it needs with ERROR_INSUFFICIENT_BUFFER. lpdwIndex: null.
BOOL HttpQueryInfoW(HINTERNET hRequest, DWORD dwInfoLevel, void* lpBuffer, DWORD* lpdwBufferLength, DWORD* lpdwIndex);
// Waits for as many bytes of the reply's body as are asked for, or for its end. TRUE with no bytes read: there are no
// more - also when the connection ended before the reply did, which the content's length tells.
BOOL InternetReadFile(HINTERNET hFile, void* lpBuffer, DWORD dwNumberOfBytesToRead, DWORD* lpdwNumberOfBytesRead);
BOOL InternetCloseHandle(HINTERNET hInternet);

}  // namespace win32
