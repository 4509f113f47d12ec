// A small HTTP server on loopback that answers as a test wants it to: rightly, wrongly, for ever or not at all.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace test {

// "HTTP/1.1 STATUS", the length, the body.
inline std::string HttpReply(std::string_view status, std::string_view body, std::string_view extraHeaders = {}) {
  return "HTTP/1.1 " + std::string(status) + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
         std::string(extraHeaders) + "\r\n" + std::string(body);
}

class HttpServer {
 public:
  // The way to answer a request. The connection is closed when its answer returns.
  struct Exchange {
    HttpServer& server;

    // Sends as much as the client takes. False once it is gone or the server ends.
    bool Send(std::string_view bytes) {
      while (!bytes.empty()) {
        if (!server.Ready(server.client_, POLLOUT)) return false;
        const ssize_t count = send(server.client_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (count < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
      }
      return true;
    }
  };
  using Answer = std::function<void(Exchange&)>;

  // From now on the host's http_proxy is this server.
  explicit HttpServer(Answer answer)
      : answer_(std::move(answer)), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (listener_ < 0 || bind(listener_, generic, size) != 0 || listen(listener_, 8) != 0 ||
        getsockname(listener_, generic, &size) != 0)
      throw std::runtime_error("no server on loopback");
    setenv("http_proxy", ("http://127.0.0.1:" + std::to_string(ntohs(address.sin_port))).c_str(), 1);
    unsetenv("no_proxy");
    unsetenv("NO_PROXY");
    thread_ = std::thread([this] { Run(); });
  }
  explicit HttpServer(std::string reply)
      : HttpServer([reply = std::move(reply)](Exchange& exchange) { exchange.Send(reply); }) {}
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;
  ~HttpServer() {
    ending_ = true;
    shutdown(listener_, SHUT_RDWR);  // ends the wait for the next connection
    thread_.join();
    close(listener_);
  }

  // Waits until the answers to all that was received have returned; what was received.
  std::vector<std::string> Heads() { return Settled(heads_); }
  std::vector<std::string> Bodies() { return Settled(bodies_); }

 private:
  std::vector<std::string> Settled(const std::vector<std::string>& received) {
    const std::lock_guard guard(lock_);
    return received;
  }

  void Run() {
    while (Ready(listener_, POLLIN)) {
      const std::lock_guard guard(lock_);
      client_ = accept(listener_, nullptr, nullptr);
      if (client_ < 0) continue;
      if (Exchange exchange{*this}; Receive()) answer_(exchange);
      close(client_);
    }
  }

  bool Receive() {
    std::string received;
    std::size_t headEnd = std::string::npos, length = 0;
    while (headEnd == std::string::npos || received.size() < headEnd + 4 + length) {
      char buffer[4096];
      const ssize_t count = Ready(client_, POLLIN) ? recv(client_, buffer, sizeof buffer, 0) : 0;
      if (count <= 0) return false;
      received.append(buffer, static_cast<std::size_t>(count));
      headEnd = received.find("\r\n\r\n");
      const std::size_t at = received.find("Content-Length: ");
      if (at < headEnd) length = std::strtoul(received.c_str() + at + 16, nullptr, 10);
    }
    heads_.push_back(received.substr(0, headEnd + 2));
    bodies_.push_back(received.substr(headEnd + 4));
    return true;
  }

  // Waits for it; false when the server ends.
  bool Ready(int socket, short events) {
    pollfd state{socket, events, 0};
    while (!ending_)
      if (poll(&state, 1, 50) == 1) return true;
    return false;
  }

  Answer answer_;
  int listener_ = -1, client_ = -1;
  std::atomic<bool> ending_ = false;
  std::mutex lock_;  // held while a connection is served
  std::vector<std::string> heads_, bodies_;
  std::thread thread_;
};

}  // namespace test
