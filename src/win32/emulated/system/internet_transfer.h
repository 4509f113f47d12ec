// One HTTP request over the host's network, and its reply as it is asked for.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "win32/emulated/bytes.h"
#include "win32/types.h"

namespace emulated {

struct HttpRequest {
  std::string url;
  std::string verb;
  std::string agent;
  std::vector<std::string> headers;  // without line ends
  Bytes body;
  bool followRedirects = false;
};

// The request goes through the proxy that the host's environment variable http_proxy names, if any. However long the
// reply is, no more of it is held than one read asks for and what arrives with it; the server waits meanwhile.
class HttpTransfer {
 public:
  explicit HttpTransfer(HttpRequest request);
  ~HttpTransfer();
  HttpTransfer(const HttpTransfer&) = delete;
  HttpTransfer& operator=(const HttpTransfer&) = delete;

  // Sends everything and waits for the reply's headers. 0 or one of ERROR_INTERNET_... .
  win32::DWORD Send();
  // The reply's status, after Send; 0 before.
  long Status() const { return status_; }
  // What the reply's header of this name says, to the letter, after Send; nothing without such a header.
  std::optional<std::string> Header(const char* name) const;
  // Takes as many bytes of the body as asked for; fewer only at its end, none behind it. A connection that fails shows
  // after the bytes that came before.
  win32::DWORD Read(std::size_t wanted, Bytes& taken);

 private:
  struct Curl;
  struct Callbacks;

  // Lets the transfer go on until `enough` says so, it ends, or it has been silent too long.
  template <typename Condition>
  void Drive(Condition enough);
  void FinishMessages();

  HttpRequest request_;
  std::chrono::steady_clock::time_point lastSign_;
  std::unique_ptr<Curl> curl_;
  Bytes held_;
  std::size_t room_ = 0;  // the reply is taken from the network while less than this is held
  std::size_t headerBytes_ = 0;
  long status_ = 0;
  bool headersDone_ = false;
  bool paused_ = false;
  bool ended_ = false;
  win32::DWORD error_ = 0;
};

}  // namespace emulated
