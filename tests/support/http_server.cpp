#include "support/http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace test {

std::string HttpReply(std::string_view status, std::string_view body, std::string_view extraHeaders) {
  return "HTTP/1.1 " + std::string(status) + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
         std::string(extraHeaders) + "\r\n" + std::string(body);
}

bool HttpServer::Ready(int socket, short events) {
  pollfd state{socket, events, 0};
  while (!ending_)
    if (poll(&state, 1, 50) == 1) return true;
  return false;
}

bool HttpServer::Receive(Exchange& exchange) {
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
  heads_.push_back(exchange.head = received.substr(0, headEnd + 2));
  bodies_.push_back(exchange.body = received.substr(headEnd + 4));
  return true;
}

bool HttpServer::Exchange::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    if (!server.Ready(server.client_, POLLOUT)) return false;
    const ssize_t count = send(server.client_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (count < 0) return false;
    server.sent_ += static_cast<std::size_t>(count);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

void HttpServer::Exchange::WaitForClient() {
  char byte;
  while (server.Ready(server.client_, POLLIN) && recv(server.client_, &byte, 1, 0) > 0) continue;
}

void HttpServer::Exchange::Reset() {
  const linger now{1, 0};
  setsockopt(server.client_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

HttpServer::HttpServer(std::string reply)
    : HttpServer([reply = std::move(reply)](Exchange& exchange) { exchange.Send(reply); }) {}

HttpServer::HttpServer(Answer answer)
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

HttpServer::~HttpServer() {
  ending_ = true;
  shutdown(listener_, SHUT_RDWR);  // ends the wait for the next connection
  thread_.join();
  close(listener_);
}

void HttpServer::Run() {
  while (Ready(listener_, POLLIN)) {
    const std::lock_guard guard(lock_);
    client_ = accept(listener_, nullptr, nullptr);
    if (client_ < 0) continue;
    if (Exchange exchange{*this, {}, {}}; Receive(exchange)) answer_(exchange);
    close(client_);
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
