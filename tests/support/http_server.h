// A small HTTP server on loopback that answers as a test wants it to: rightly, wrongly, for ever or not at all.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace test {

// "HTTP/1.1 STATUS", the length, the body.
std::string HttpReply(std::string_view status, std::string_view body, std::string_view extraHeaders = {});

class HttpServer {
 public:
  // One request, and the way to answer it. The connection is closed when its answer returns.
  struct Exchange {
    HttpServer& server;
    std::string head, body;  // the request line and the headers, each with CR LF; what came behind them
    // Sends as much as the client takes. False once it is gone or the server ends.
    bool Send(std::string_view bytes);
    // Sends no more and waits until the client goes or the server ends.
    void WaitForClient();
    // Makes the end of the connection a reset.
    void Reset();
  };
  using Answer = std::function<void(Exchange&)>;

  // From now on the host's http_proxy is this server.
  explicit HttpServer(Answer answer);
  explicit HttpServer(std::string reply);
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // Waits until the answers to all that was received have returned; what was received.
  std::vector<std::string> Heads();
  std::vector<std::string> Bodies();
  // Bytes that all answers have sent so far.
  std::size_t sent() const { return sent_; }

 private:
  void Run();
  bool Receive(Exchange& exchange);
  bool Ready(int socket, short events);  // waits for it; false when the server ends

  Answer answer_;
  int listener_ = -1, client_ = -1;
  std::atomic<bool> ending_ = false;
  std::atomic<std::size_t> sent_ = 0;
  std::mutex lock_;  // held while a connection is served
  std::vector<std::string> heads_, bodies_;
  std::thread thread_;
};

}  // namespace test
