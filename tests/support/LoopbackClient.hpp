// SPDX-License-Identifier: Apache-2.0
// A plain connection to a server on this machine, for clients that do as they like.
#pragma once

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/support/Await.hpp"

namespace stereo::test {

/// A TCP connection to 127.0.0.1.
class LoopbackClient {
public:
  explicit LoopbackClient(std::uint16_t port) : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (m_socket < 0 || connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
      const int error = errno;
      if (m_socket >= 0) {
        ::close(m_socket);
      }
      throw std::runtime_error("cannot connect to port " + std::to_string(port) + ": " + std::to_string(error));
    }
  }
  ~LoopbackClient() { ::close(m_socket); }
  LoopbackClient(const LoopbackClient&) = delete;
  LoopbackClient& operator=(const LoopbackClient&) = delete;

  /// False if the server has closed the connection.
  bool send(const std::string& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
      const ssize_t sent = ::send(m_socket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
      if (sent <= 0) {
        return false;
      }
      done += static_cast<std::size_t>(sent);
    }
    return true;
  }

  /// Reads until the text has come, and returns all up to its end; all that came if the connection ends, or nothing
  /// more comes, before.
  std::string receiveUntil(const std::string& end) {
    while (m_received.find(end) == std::string::npos && receiveSome()) {
    }
    const std::size_t found = m_received.find(end);
    return take(found == std::string::npos ? m_received.size() : found + end.size());
  }
  /// The next bytes; fewer if the connection ends before.
  std::string receive(std::size_t count) {
    while (m_received.size() < count && receiveSome()) {
    }
    return take(std::min(count, m_received.size()));
  }
  /// All until the server closes the connection. Throws if it does not within the deadline.
  std::string receiveAll() {
    while (receiveSome()) {
    }
    if (!m_isOver) {
      throw std::runtime_error("the server does not close the connection");
    }
    return take(m_received.size());
  }

private:
  bool receiveSome() {
    pollfd waiting{m_socket, POLLIN, 0};
    if (m_isOver || poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(deadline).count())) <= 0) {
      return false;
    }
    char bytes[16384];
    const ssize_t count = recv(m_socket, bytes, sizeof(bytes), 0);
    if (count <= 0) {
      m_isOver = true;
      return false;
    }
    m_received.append(bytes, static_cast<std::size_t>(count));
    return true;
  }

  std::string take(std::size_t count) {
    const std::string taken = m_received.substr(0, count);
    m_received.erase(0, count);
    return taken;
  }

  int m_socket;
  bool m_isOver = false;
  std::string m_received;
};

}  // namespace stereo::test
