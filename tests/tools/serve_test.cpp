// `scopemount serve` run as a process, with planetarium clients written
// here on plain sockets.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "format.h"
#include "planetarium_protocol.h"
#include "scopemount.h"
#include "sky.h"
#include "support/process.h"

namespace {

namespace pp = scopemount::cli::planetarium;
namespace sky = scopemount::cli;
using namespace scopemount::testing;
using Bytes = std::vector<uint8_t>;
using namespace std::chrono_literals;

constexpr auto STARTUP = 20s;
constexpr size_t POSITION_SIZE = pp::CURRENT_POSITION_SIZE;
constexpr auto EVENT = 20s;
// A site and the simulator every test shares.
const std::vector<std::string> SITE = {"--lat", "51.4769", "--lon", "-0.0005", "--elev", "46"};

// A planetarium client on a plain socket, reading the positions it is sent.
class Client {
 public:
  // `receiveBuffer` > 0 shrinks the socket's receive buffer before connecting.
  explicit Client(uint16_t port, int receiveBuffer = 0)
      : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (receiveBuffer > 0) {
      setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    const int on = 1;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t size = sizeof address;
    getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size);
    peer_ = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  }
  ~Client() { Close(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // How the server names this client.
  const std::string& peer() const { return peer_; }
  void Close() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  bool Send(const Bytes& bytes) {
    return send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }

  // The next position, or nothing if none came before the deadline (or the
  // server closed the connection).
  std::optional<pp::CurrentPosition> Next(std::chrono::milliseconds deadline = 10s) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (pending_.size() < POSITION_SIZE) {
      if (!Receive(10) && (eof_ || std::chrono::steady_clock::now() > end)) return std::nullopt;
    }
    const auto position = pp::DecodeCurrentPosition(
        std::span<const uint8_t, POSITION_SIZE>(pending_.data(), POSITION_SIZE));
    pending_.erase(pending_.begin(), pending_.begin() + POSITION_SIZE);
    return position;
  }
  // Reads what has come, keeping up with the server; the positions are dropped.
  void Drain() {
    while (Receive(0)) {
    }
    pending_.erase(pending_.begin(), pending_.end() - pending_.size() % POSITION_SIZE);
  }
  // True once the server has closed the connection.
  bool ClosedByServer(std::chrono::milliseconds deadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!eof_ && std::chrono::steady_clock::now() < end) Receive(10);
    return eof_;
  }

 private:
  // False on time-out, end or error.
  bool Receive(int timeoutMs) {
    pollfd p{fd_, POLLIN, 0};
    if (fd_ < 0 || eof_ || poll(&p, 1, timeoutMs) <= 0) return false;
    uint8_t buffer[4096];
    const ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
    eof_ = n <= 0;
    if (n > 0) pending_.insert(pending_.end(), buffer, buffer + n);
    return n > 0;
  }

  int fd_;
  bool eof_ = false;
  std::string peer_;
  Bytes pending_;
};

struct Serve {
  std::unique_ptr<ChildProcess> process;
  uint16_t port = 0;
};

Serve StartServe(std::vector<std::string> extra) {
  std::vector<std::string> arguments = {"serve", "--listen", "127.0.0.1:0"};
  arguments.insert(arguments.end(), SITE.begin(), SITE.end());
  arguments.insert(arguments.end(), extra.begin(), extra.end());
  Serve serve;
  serve.process = std::make_unique<ChildProcess>(SCOPEMOUNT_CLI_PATH, arguments);
  const std::string marker = "Listening on 127.0.0.1:";
  if (!serve.process->WaitForText("Ctrl-C stops", STARTUP)) {
    ADD_FAILURE() << "serve did not start: " << serve.process->out() << serve.process->err();
    return serve;
  }
  const std::string& out = serve.process->out();
  serve.port = static_cast<uint16_t>(std::stoi(out.substr(out.find(marker) + marker.size())));
  return serve;
}

Bytes GotoUnits(uint32_t rightAscension, int32_t declination) {
  const auto bytes = pp::Encode(pp::Goto{0, rightAscension, declination});
  return Bytes(bytes.begin(), bytes.end());
}

Bytes GotoBytes(double rightAscension, double declination) {
  return GotoUnits(pp::RightAscensionUnits(rightAscension), pp::DeclinationUnits(declination));
}

// Always below the horizon at the test site: refused, and counted by its line.
Bytes RefusedGoto() { return GotoBytes(0.0, -80.0 / sky::DEGREES_PER_RADIAN); }

// What the server adds to the reader (whose own test covers how any stream
// is cut): one reader a client across its writes, the refusal of a
// declination past the pole, and a client dropped once its stream cannot be
// cut. Every refusal is said once, in the library's words; nothing moves.
TEST(Serve, ReadsEachClientsStreamWholeAndDropsOneThatCannotBeCut) {
  Serve serve = StartServe({});
  ASSERT_NE(serve.port, 0);
  Client client(serve.port);
  ASSERT_TRUE(client.Next()) << "first position";
  const Bytes go = RefusedGoto();
  for (const auto& [from, to] : {std::pair{0, 3}, {3, 11}, {11, 20}}) {
    ASSERT_TRUE(client.Send(Bytes(go.begin() + from, go.begin() + to)));
    ASSERT_TRUE(client.Next()) << "a position between the pieces of one Goto";
  }
  const std::string tooLow =
      "below the horizon; limits in force 0 to 75 deg: Target position too low (104)";
  EXPECT_TRUE(serve.process->WaitForText(tooLow, EVENT)) << serve.process->out();
  ASSERT_TRUE(client.Send(GotoUnits(0, 0x7FFFFFFF)));
  EXPECT_TRUE(serve.process->WaitForText("Invalid parameter/data (4)", EVENT)) << serve.process->out();
  ASSERT_TRUE(client.Send({2, 0, 0, 0}));
  EXPECT_TRUE(client.ClosedByServer(EVENT)) << "LENGTH shorter than the header";
  EXPECT_TRUE(serve.process->WaitForText(client.peer() + " went: sent a message shorter", EVENT));
  const std::string& out = serve.process->out();
  EXPECT_EQ(Occurrences(out, "GOTO refused: "), 2u) << out;
  EXPECT_EQ(Occurrences(out, tooLow), 1u) << out;
  EXPECT_EQ(Occurrences(out, "(J2000) from " + client.peer()), 2u) << out;
  EXPECT_EQ(Occurrences(out, "GOTO started"), 0u) << out;
}

TEST(Serve, ClientsThatStopReadingOrVanishAreDroppedWithoutHoldingOthers) {
  // Positions every millisecond fill a non-reading client's buffers soon.
  Serve serve = StartServe({"--interval", "0.001"});
  ASSERT_NE(serve.port, 0);
  Client reader(serve.port);
  Client sleeper(serve.port, 2048);
  Client vanishing(serve.port);
  ASSERT_TRUE(reader.Next());
  const Bytes go = RefusedGoto();
  ASSERT_TRUE(vanishing.Send(Bytes(go.begin(), go.begin() + 9)));
  // Nothing follows the half message: the server must not wait for it.
  ASSERT_TRUE(vanishing.Next());
  vanishing.Close();
  const auto keepReading = [&reader] { reader.Drain(); };
  EXPECT_TRUE(serve.process->WaitForText(sleeper.peer() + " went: not reading", 60s, keepReading))
      << serve.process->out();
  EXPECT_TRUE(serve.process->WaitForText(
      vanishing.peer() + " went: closed in the middle of a message", EVENT, keepReading));
  reader.Drain();
  EXPECT_TRUE(reader.Next()) << "the reading client is still served";
  EXPECT_EQ(Occurrences(serve.process->out(), reader.peer() + " went"), 0u) << serve.process->out();
  EXPECT_TRUE(sleeper.ClosedByServer(EVENT));
}

TEST(Serve, FiftyClientsServedAtOnceAndRegularlyUntilCtrlCClosesThem) {
  constexpr size_t CLIENTS = 50, STAYING = 2;
  Serve serve = StartServe({});
  ASSERT_NE(serve.port, 0);
  std::vector<std::unique_ptr<Client>> clients;
  for (size_t i = 0; i < CLIENTS; ++i) clients.push_back(std::make_unique<Client>(serve.port));
  for (size_t i = 1; i < CLIENTS; ++i) {
    ASSERT_TRUE(clients[i]->Next()) << "client " << i << serve.process->out();
  }
  const auto first = clients[0]->Next();
  ASSERT_TRUE(first) << serve.process->out();
  EXPECT_TRUE(serve.process->WaitForText("(50 connected)", EVENT));
  const int64_t nowUs = std::chrono::duration_cast<std::chrono::microseconds>(
                            std::chrono::system_clock::now().time_since_epoch())
                            .count();
  EXPECT_LT(std::abs(first->timeMicroseconds - nowUs), 60'000'000) << "TIME is now";
  EXPECT_EQ(first->status, 0);
  for (int i = 0; i < 3; ++i) {
    const auto next = clients[0]->Next();
    ASSERT_TRUE(next) << "update " << i;
    EXPECT_GT(next->timeMicroseconds, first->timeMicroseconds);
  }
  clients.resize(STAYING);
  EXPECT_TRUE(serve.process->WaitForText("(2 connected)", EVENT)) << serve.process->out();
  serve.process->Interrupt();
  for (const auto& client : clients) EXPECT_TRUE(client->ClosedByServer(EVENT));
  EXPECT_EQ(serve.process->WaitForExit(EVENT), 0) << serve.process->err();
  const std::string& out = serve.process->out();
  for (const char* text : {" went: the server is stopping", "Stopped the axes.", "Disconnected."}) {
    EXPECT_NE(out.find(text), std::string::npos) << text << "\n" << out;
  }
}

// Where a star stands in the client's frame.
struct StarPlace {
  const char* name;
  double rightAscension, declination;
};

double Separation(const StarPlace& star, const pp::CurrentPosition& position) {
  return ScopeAngularSeparation(star.rightAscension, star.declination,
                                pp::RightAscensionRadians(position.rightAscension),
                                pp::DeclinationRadians(position.declination));
}

// Bright stars comfortably up at the test site now, nearest to `here` first.
std::vector<StarPlace> StarsUp(bool j2000, const pp::CurrentPosition& here) {
  const sky::Site site{51.4769 / sky::DEGREES_PER_RADIAN, -0.0005 / sky::DEGREES_PER_RADIAN, 46};
  std::vector<StarPlace> up;
  for (const sky::Star& star : sky::BrightStars()) {
    const auto place = sky::Observe(star, site, sky::UtcNow());
    const double altitude = place ? place->altitude * sky::DEGREES_PER_RADIAN : -90;
    if (altitude < 25 || altitude > 70) continue;
    up.push_back({star.name, j2000 ? star.rightAscension : place->rightAscension,
                  j2000 ? star.declination : place->declination});
  }
  std::sort(up.begin(), up.end(), [&](const StarPlace& a, const StarPlace& b) {
    return Separation(a, here) < Separation(b, here);
  });
  return up;
}

// A Goto to a star's place comes back as the same place once the mount is
// there, a newer Goto replacing a running one on the way.
TEST(Serve, GotoComesBackAsTheSamePlaceInTheClientsFrame) {
  // The simulator arrives once within its GOTO tolerance, 1/30 degree; a
  // wrong frame is off by arcminutes more (13' for J2000 against of-date).
  constexpr double ARRIVED = (1.0 / 30 + 5.0 / 3600) / sky::DEGREES_PER_RADIAN;
  for (const std::string equinox : {"j2000", "jnow"}) {
    SCOPED_TRACE(equinox);
    Serve serve = StartServe({"--model", "6", "--equinox", equinox});
    ASSERT_NE(serve.port, 0);
    Client client(serve.port);
    const auto here = client.Next();
    ASSERT_TRUE(here);
    // The nearest star keeps the real-time slew short; away from the pole,
    // where the simulator starts, a wrong frame or right ascension shows in
    // full. The replaced GOTO heads for the farthest, so it is still under
    // way when the second one comes.
    const std::vector<StarPlace> up = StarsUp(equinox == "j2000", *here);
    const auto target = std::find_if(up.begin(), up.end(), [](const StarPlace& s) {
      return std::fabs(s.declination) < 60.0 / sky::DEGREES_PER_RADIAN;
    });
    ASSERT_TRUE(up.size() >= 2 && target != up.end()) << "bright stars up at the test site";
    const StarPlace& replaced = target == up.end() - 1 ? up[up.size() - 2] : up.back();
    ASSERT_TRUE(client.Send(GotoBytes(replaced.rightAscension, replaced.declination)));
    const auto drain = [&client] { client.Drain(); };
    ASSERT_TRUE(serve.process->WaitForText("GOTO started", EVENT, drain)) << serve.process->out();
    ASSERT_TRUE(client.Send(GotoBytes(target->rightAscension, target->declination)));
    ASSERT_TRUE(serve.process->WaitForText("GOTO arrived", 300s, drain)) << serve.process->out();
    client.Drain();
    const auto there = client.Next();
    ASSERT_TRUE(there);
    EXPECT_LT(Separation(*target, *there), ARRIVED)
        << target->name << " off by " << Separation(*target, *there) * sky::DEGREES_PER_RADIAN * 3600
        << "\"\n" << serve.process->out();
    EXPECT_EQ(Occurrences(serve.process->out(), "GOTO started"), 2u);
    EXPECT_EQ(Occurrences(serve.process->out(), "GOTO arrived"), 1u) << "the first GOTO was replaced";
  }
}

}  // namespace
