// What planetarium clients send comes from the network: any bytes, cut into
// reads anywhere. Reading must never crash, and the cuts must not matter:
// the Gotos read piece by piece are the Gotos read in one go.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "planetarium_protocol.h"

namespace pp = scopemount::cli::planetarium;

namespace {

struct Result {
  std::vector<uint32_t> rightAscensions;
  std::vector<int32_t> declinations;
  bool framed = true;
  bool operator==(const Result&) const = default;
};

Result Read(std::span<const uint8_t> stream, size_t piece) {
  pp::MessageReader reader;
  Result result;
  for (size_t at = 0; at < stream.size() && result.framed; at += piece) {
    result.framed = reader.Feed(stream.subspan(at, std::min(piece, stream.size() - at)),
                                [&result](const pp::Goto& m) {
                                  result.rightAscensions.push_back(m.rightAscension);
                                  result.declinations.push_back(m.declination);
                                });
  }
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  // The first byte chooses the size of the reads.
  const size_t piece = data[0] % 32 + 1;
  const std::span<const uint8_t> stream(data + 1, size - 1);
  if (!(Read(stream, piece) == Read(stream, stream.size() + 1))) std::abort();
  return 0;
}
