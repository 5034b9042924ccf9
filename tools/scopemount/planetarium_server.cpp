#include "planetarium_server.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "text.h"

namespace scopemount::cli::planetarium {

namespace {

// More clients than this are turned away: each holds a socket.
constexpr size_t MAX_CLIENTS = 100;
// A client more than this many bytes behind (about 10 s of positions at
// 4 a second, once its socket buffers are full) does not read: drop it.
constexpr size_t MAX_OUTBOX = 1024;
constexpr size_t READ_CHUNK = 4096;
// The kernel's share of a client's backlog: fixed and modest, so a client
// that stops reading shows up as a full socket within seconds, not hours.
constexpr int SEND_BUFFER_BYTES = 16 * 1024;
constexpr int LISTEN_BACKLOG = 64;

// A client that closed its end went for the same reason whether a read or
// a write found out first: a slow machine may send the next position
// before it reads the close.
bool ClosedByPeer(int error) { return error == EPIPE || error == ECONNRESET; }

const char* ClosedReason(const MessageReader& reader) {
  return reader.midMessage() ? _("closed in the middle of a message")
                             : _("closed by the client");
}

std::string PeerName(const sockaddr_storage& address) {
  char host[INET6_ADDRSTRLEN] = "?";
  uint16_t port = 0;
  if (address.ss_family == AF_INET) {
    const auto* v4 = reinterpret_cast<const sockaddr_in*>(&address);
    inet_ntop(AF_INET, &v4->sin_addr, host, sizeof host);
    port = ntohs(v4->sin_port);
    return std::string(host) + ":" + std::to_string(port);
  }
  if (address.ss_family == AF_INET6) {
    const auto* v6 = reinterpret_cast<const sockaddr_in6*>(&address);
    inet_ntop(AF_INET6, &v6->sin6_addr, host, sizeof host);
    port = ntohs(v6->sin6_port);
  }
  return "[" + std::string(host) + "]:" + std::to_string(port);
}

}  // namespace

Server::Server(ServerHandlers handlers) : handlers_(std::move(handlers)) {}

Server::~Server() {
  for (Client& client : clients_) close(client.fd);
  if (listenFd_ >= 0) close(listenFd_);
}

std::string Server::Listen(const std::string& host, uint16_t port) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const std::string service = std::to_string(port);
  const int looked = getaddrinfo(host.empty() ? "127.0.0.1" : host.c_str(), service.c_str(),
                                 &hints, &found);
  if (looked != 0) return host + ": " + gai_strerror(looked);
  std::string failure = _("no address for ") + host;
  for (addrinfo* a = found; a != nullptr; a = a->ai_next) {
    const int fd = socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC,
                          a->ai_protocol);
    if (fd < 0) continue;
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(fd, a->ai_addr, a->ai_addrlen) != 0 || listen(fd, LISTEN_BACKLOG) != 0) {
      failure = std::strerror(errno);
      close(fd);
      continue;
    }
    sockaddr_storage bound{};
    socklen_t size = sizeof bound;
    getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &size);
    listenFd_ = fd;
    address_ = PeerName(bound);
    break;
  }
  freeaddrinfo(found);
  return listenFd_ >= 0 ? "" : failure;
}

void Server::Serve(int timeoutMs) {
  std::vector<pollfd> fds;
  fds.reserve(clients_.size() + 1);
  for (const Client& client : clients_) {
    const short events = static_cast<short>(POLLIN | (client.outbox.empty() ? 0 : POLLOUT));
    fds.push_back({client.fd, events, 0});
  }
  if (listenFd_ >= 0) fds.push_back({listenFd_, POLLIN, 0});
  if (poll(fds.data(), fds.size(), std::max(timeoutMs, 0)) <= 0) return;
  // Clients first (by index: accepting appends), then the newcomers.
  const size_t known = clients_.size();
  for (size_t i = 0; i < known; ++i) {
    const short ready = fds[i].revents;
    if ((ready & POLLOUT) != 0) Flush(clients_[i]);
    if ((ready & (POLLIN | POLLHUP | POLLERR)) != 0) ReadFrom(clients_[i]);
  }
  if (listenFd_ >= 0 && (fds.back().revents & POLLIN) != 0) AcceptClients();
  CloseDropped();
}

void Server::AcceptClients() {
  for (;;) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    const int fd = accept4(listenFd_, reinterpret_cast<sockaddr*>(&address), &size,
                           SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;  // none left (or out of descriptors: try next round)
    const std::string peer = PeerName(address);
    if (clients_.size() >= MAX_CLIENTS) {
      close(fd);
      if (handlers_.clientWent) handlers_.clientWent(peer, _("too many clients"));
      continue;
    }
    // Positions are small and should leave at once.
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER_BYTES, sizeof SEND_BUFFER_BYTES);
    Client client;
    client.id = nextId_++;
    client.fd = fd;
    client.peer = peer;
    clients_.push_back(std::move(client));
    if (handlers_.clientCame) handlers_.clientCame(clients_.back().id, peer);
  }
}

void Server::ReadFrom(Client& client) {
  if (!client.dropReason.empty()) return;
  uint8_t buffer[READ_CHUNK];
  // One read per round: a client that floods cannot starve the others.
  const ssize_t n = recv(client.fd, buffer, sizeof buffer, 0);
  if (n == 0) {
    client.dropReason = ClosedReason(client.reader);
    return;
  }
  if (n < 0) {
    // A client that closes with positions still unread resets the connection.
    if (ClosedByPeer(errno)) {
      client.dropReason = ClosedReason(client.reader);
    } else if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
      client.dropReason = std::string(_("connection lost: ")) + std::strerror(errno);
    }
    return;
  }
  const std::string peer = client.peer;
  const bool framed = client.reader.Feed(
      std::span<const uint8_t>(buffer, static_cast<size_t>(n)), [this, &peer](const Goto& m) {
        if (handlers_.gotoReceived) handlers_.gotoReceived(peer, m);
      });
  if (!framed) client.dropReason = _("sent a message shorter than its header");
}

void Server::Send(int id, std::span<const uint8_t> message) {
  for (Client& client : clients_) {
    if (client.id == id) Queue(client, message);
  }
}

void Server::Broadcast(std::span<const uint8_t> message) {
  for (Client& client : clients_) Queue(client, message);
  CloseDropped();
}

void Server::Queue(Client& client, std::span<const uint8_t> message) {
  if (!client.dropReason.empty()) return;
  if (client.outbox.size() + message.size() > MAX_OUTBOX) {
    client.dropReason = _("not reading its positions");
    return;
  }
  client.outbox.insert(client.outbox.end(), message.begin(), message.end());
  Flush(client);
}

void Server::Flush(Client& client) {
  if (!client.dropReason.empty() || client.outbox.empty()) return;
  const ssize_t n =
      send(client.fd, client.outbox.data(), client.outbox.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (n > 0) {
    client.outbox.erase(client.outbox.begin(), client.outbox.begin() + n);
  } else if (n < 0 && ClosedByPeer(errno)) {
    client.dropReason = ClosedReason(client.reader);
  } else if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
    client.dropReason = std::string(_("connection lost: ")) + std::strerror(errno);
  }
}

void Server::CloseDropped() {
  std::vector<std::pair<std::string, std::string>> gone;
  std::erase_if(clients_, [&gone](const Client& client) {
    if (client.dropReason.empty()) return false;
    close(client.fd);
    gone.emplace_back(client.peer, client.dropReason);
    return true;
  });
  if (!handlers_.clientWent) return;
  for (const auto& [peer, why] : gone) handlers_.clientWent(peer, why);
}

void Server::CloseAll(const std::string& why) {
  for (Client& client : clients_) client.dropReason = why;
  CloseDropped();
}

}  // namespace scopemount::cli::planetarium
