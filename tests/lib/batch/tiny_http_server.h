// A tiny HTTP/1.1 server on 127.0.0.1 for the batch client tests: one thread, one request per
// connection, answers from a handler. It serves until destroyed and never runs longer: accept
// waits in 50 ms slices, reads time out after 5 s.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct HttpCall {
  std::string method;
  std::string path;
  std::map<std::string, std::string> headers;  // names in lower case
  std::string body;
};

struct HttpReply {
  int status = 200;
  std::string body;
};

class TinyHttpServer {
 public:
  using Handler = std::function<HttpReply(const HttpCall&)>;

  explicit TinyHttpServer(Handler handler) : handler_(std::move(handler)) {
    fd_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = 0;
    bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a);
    listen(fd_, 16);
    socklen_t len = sizeof a;
    getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len);
    port_ = ntohs(a.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~TinyHttpServer() {
    stop_ = true;
    thread_.join();
    close(fd_);
  }

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  int connections() const { return connections_; }
  std::vector<HttpCall> calls() {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
  }

  // A loopback port with nothing listening on it (bound, then released).
  static std::string closed_url() {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
    socklen_t len = sizeof a;
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    close(fd);
    return "http://127.0.0.1:" + std::to_string(ntohs(a.sin_port));
  }

 private:
  void serve() {
    while (!stop_) {
      pollfd p{fd_, POLLIN, 0};
      if (poll(&p, 1, 50) <= 0) continue;
      int c = accept(fd_, nullptr, nullptr);
      if (c < 0) continue;
      ++connections_;
      timeval tv{5, 0};
      setsockopt(c, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
      HttpCall call;
      if (read_call(c, &call)) {
        {
          std::lock_guard<std::mutex> lock(mutex_);
          calls_.push_back(call);
        }
        HttpReply r = handler_(call);
        std::string out = "HTTP/1.1 " + std::to_string(r.status) +
                          " X\r\nContent-Type: application/json\r\nContent-Length: " +
                          std::to_string(r.body.size()) + "\r\nConnection: close\r\n\r\n" + r.body;
        for (std::size_t done = 0; done < out.size();) {
          ssize_t n = send(c, out.data() + done, out.size() - done, MSG_NOSIGNAL);
          if (n <= 0) break;
          done += static_cast<std::size_t>(n);
        }
      }
      close(c);
    }
  }

  static bool read_call(int c, HttpCall* call) {
    std::string data;
    char buf[65536];
    std::size_t head_end = std::string::npos;
    while ((head_end = data.find("\r\n\r\n")) == std::string::npos) {
      ssize_t n = recv(c, buf, sizeof buf, 0);
      if (n <= 0) return false;
      data.append(buf, static_cast<std::size_t>(n));
    }
    std::size_t line_end = data.find("\r\n");
    std::string first = data.substr(0, line_end);
    std::size_t sp1 = first.find(' '), sp2 = first.rfind(' ');
    call->method = first.substr(0, sp1);
    call->path = first.substr(sp1 + 1, sp2 - sp1 - 1);
    std::size_t pos = line_end + 2;
    while (pos < head_end) {
      std::size_t e = data.find("\r\n", pos);
      std::string line = data.substr(pos, e - pos);
      std::size_t colon = line.find(':');
      std::string name = line.substr(0, colon);
      for (char& ch : name) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
      std::string value = colon + 1 < line.size() ? line.substr(colon + 1) : "";
      while (!value.empty() && value.front() == ' ') value.erase(0, 1);
      call->headers[name] = value;
      pos = e + 2;
    }
    std::size_t length = call->headers.count("content-length") ? std::stoul(call->headers["content-length"]) : 0;
    call->body = data.substr(head_end + 4);
    while (call->body.size() < length) {
      ssize_t n = recv(c, buf, sizeof buf, 0);
      if (n <= 0) return false;
      call->body.append(buf, static_cast<std::size_t>(n));
    }
    return true;
  }

  Handler handler_;
  int fd_ = -1;
  int port_ = 0;
  std::atomic<bool> stop_{false};
  std::atomic<int> connections_{0};
  std::mutex mutex_;
  std::vector<HttpCall> calls_;
  std::thread thread_;
};
