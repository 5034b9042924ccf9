// A small single-threaded TCP server for the planetarium telescope
// protocol: accepts clients, cuts what they send into messages, and sends
// them the position. A client that cannot keep up, or sends a stream that
// can no longer be cut into messages, is dropped; no client ever makes the
// others wait.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "planetarium_protocol.h"

namespace scopemount::cli::planetarium {

struct ServerHandlers {
  // A client connected; `client` identifies it for Send().
  std::function<void(int client, const std::string& peer)> clientCame;
  std::function<void(const std::string& peer, const std::string& why)> clientWent;
  std::function<void(const std::string& peer, const Goto& message)> gotoReceived;
};

class Server {
 public:
  explicit Server(ServerHandlers handlers);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Listens on `host` ("" for loopback) and `port` (0 picks a free one).
  // Returns "" or what went wrong.
  std::string Listen(const std::string& host, uint16_t port);
  // "address:port" actually listened on.
  std::string address() const { return address_; }

  // Waits up to `timeoutMs` for traffic and serves it: new clients, their
  // messages, pending output. Returns early on a signal.
  void Serve(int timeoutMs);
  // Queues a message for one client or for all; sending never blocks.
  void Send(int client, std::span<const uint8_t> message);
  void Broadcast(std::span<const uint8_t> message);
  // Closes every connection, telling the handlers why.
  void CloseAll(const std::string& why);
  size_t clientCount() const { return clients_.size(); }

 private:
  struct Client {
    int id = 0;
    int fd = -1;
    std::string peer;
    MessageReader reader;
    std::vector<uint8_t> outbox;  // bytes the socket did not take yet
    std::string dropReason;       // set once the client is to be closed
  };

  void AcceptClients();
  void ReadFrom(Client& client);
  void Queue(Client& client, std::span<const uint8_t> message);
  void Flush(Client& client);
  void CloseDropped();

  ServerHandlers handlers_;
  int listenFd_ = -1;
  std::string address_;
  std::vector<Client> clients_;
  int nextId_ = 1;
};

}  // namespace scopemount::cli::planetarium
