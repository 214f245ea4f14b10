// Fuzzes the ToneCurve blend with arbitrary payload pairs, segment times and
// caller sizes: the size a null buffer learns must be what a buffer of that
// size receives, and a wrong size must receive nothing.
#include <algorithm>

#include "fuzz_input.h"
#include "qdblend.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const qdfuzz::BlendInput input = qdfuzz::Read(data, size);
  auto blend = [&](unsigned char* buffer, unsigned int bytes) {
    return qdcore::BlendToneCurve(input.first, input.second, input.time, input.prevTime,
                                  input.nextTime, buffer, bytes);
  };
  const unsigned int length = blend(nullptr, 0);
  qdfuzz::Check(length >= 16 || length == 0);
  qdfuzz::Payload exact(length);
  qdfuzz::Check(blend(exact.data(), length) == length);
  if (input.size != length) {
    qdfuzz::Payload other(input.size, 0xA5);
    qdfuzz::Check(blend(other.data(), input.size) == length);
    qdfuzz::Check(
        std::all_of(other.begin(), other.end(), [](unsigned char b) { return b == 0xA5; }));
  }
  return 0;
}
