#include "support/http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace test {

namespace {

constexpr int kLookAgain = 50;  // milliseconds between two looks whether the server ends

bool Ready(int socket, short events) {
  pollfd state{socket, events, 0};
  return poll(&state, 1, kLookAgain) == 1;
}

std::size_t ContentLength(const std::string& head) {
  const std::size_t at = head.find("Content-Length: ");
  return at == std::string::npos ? 0 : std::strtoul(head.c_str() + at + 16, nullptr, 10);
}

}  // namespace

std::string HttpReply(std::string_view status, std::string_view body, std::string_view extraHeaders) {
  return "HTTP/1.1 " + std::string(status) + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
         std::string(extraHeaders) + "\r\n" + std::string(body);
}

bool HttpServer::Exchange::Receive() {
  std::string received;
  std::size_t headEnd = std::string::npos, all = 0;
  while (headEnd == std::string::npos || received.size() < all) {
    if (server_.ending_) return false;
    if (!Ready(socket_, POLLIN)) continue;
    char buffer[4096];
    const ssize_t count = recv(socket_, buffer, sizeof buffer, 0);
    if (count <= 0) return false;
    received.append(buffer, static_cast<std::size_t>(count));
    headEnd = received.find("\r\n\r\n");
    if (headEnd != std::string::npos) all = headEnd + 4 + ContentLength(received.substr(0, headEnd + 4));
  }
  head = received.substr(0, headEnd + 2);
  body = received.substr(headEnd + 4);
  return true;
}

bool HttpServer::Exchange::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    if (server_.ending_) return false;
    if (!Ready(socket_, POLLOUT)) continue;
    const ssize_t count = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (count < 0) return false;
    server_.sent_ += static_cast<std::size_t>(count);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

void HttpServer::Exchange::WaitForClient() {
  char byte;
  while (!server_.ending_)
    if (Ready(socket_, POLLIN) && recv(socket_, &byte, 1, 0) <= 0) return;
}

void HttpServer::Exchange::Reset() {
  const linger now{1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

HttpServer::HttpServer(std::string reply)
    : HttpServer([reply = std::move(reply)](Exchange& exchange) { exchange.Send(reply); }) {}

HttpServer::HttpServer(Answer answer) : answer_(std::move(answer)) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
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

HttpServer::~HttpServer() {
  ending_ = true;
  thread_.join();
  close(listener_);
}

void HttpServer::Run() {
  while (!ending_) {
    if (!Ready(listener_, POLLIN)) continue;
    const std::lock_guard guard(lock_);
    Exchange exchange(*this, accept(listener_, nullptr, nullptr));
    if (exchange.socket_ < 0) continue;
    if (exchange.Receive()) {
      heads_.push_back(exchange.head);
      bodies_.push_back(exchange.body);
      answer_(exchange);
    }
    close(exchange.socket_);
  }
}

std::vector<std::string> HttpServer::Heads() {
  const std::lock_guard guard(lock_);
  return heads_;
}

std::vector<std::string> HttpServer::Bodies() {
  const std::lock_guard guard(lock_);
  return bodies_;
}

}  // namespace test
