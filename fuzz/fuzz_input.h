// What every blend fuzzer reads from libFuzzer's bytes: a segment's times (at
// times arbitrary doubles, NaN and infinities included), the caller's buffer
// size, and two payloads.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace qdfuzz {

using Payload = std::vector<unsigned char>;

struct BlendInput {
  double time = 0, prevTime = 0, nextTime = 1;
  bool nullBuffer = false;
  unsigned int size = 0;  // a buffer of exactly this many bytes, so overruns are caught
  Payload first, second;

  double Weight() const { return (nextTime - time) / (nextTime - prevTime); }
};

inline BlendInput Read(const std::uint8_t* data, std::size_t bytes) {
  FuzzedDataProvider in(data, bytes);
  BlendInput input;
  if (in.ConsumeBool()) {
    input.time = in.ConsumeFloatingPoint<double>();
    input.prevTime = in.ConsumeFloatingPoint<double>();
    input.nextTime = in.ConsumeFloatingPoint<double>();
  } else {
    input.prevTime = in.ConsumeIntegralInRange(0, 100) * 0.1;
    input.nextTime = input.prevTime + in.ConsumeIntegralInRange(1, 100) * 0.1;
    input.time = input.prevTime +
                 in.ConsumeIntegralInRange(-10, 110) * 0.01 * (input.nextTime - input.prevTime);
  }
  input.nullBuffer = in.ConsumeBool();
  const bool sizeOfFirst = in.ConsumeBool();
  const auto size = in.ConsumeIntegralInRange<unsigned int>(0, 4096);
  input.first = in.ConsumeBytes<unsigned char>(
      in.ConsumeIntegralInRange<std::size_t>(0, in.remaining_bytes()));
  input.second = in.ConsumeRemainingBytes<unsigned char>();
  input.size = sizeOfFirst ? static_cast<unsigned int>(input.first.size()) : size;
  return input;
}

// A finding libFuzzer reports as a crash.
inline void Check(bool holds) {
  if (!holds) std::abort();
}

}  // namespace qdfuzz
