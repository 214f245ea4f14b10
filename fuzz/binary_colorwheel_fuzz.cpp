// Fuzzes the ColorWheel blend with arbitrary payload pairs, weights and
// caller sizes.
#include "fuzz_input.h"
#include "qdblend.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const qdfuzz::BlendInput input = qdfuzz::Read(data, size);
  qdfuzz::Payload out(input.size);
  const unsigned int length =
      qdcore::BlendColorWheel(input.first, input.second, input.Weight(),
                              input.nullBuffer ? nullptr : out.data(), input.size);
  const bool empty = input.first.empty() && input.second.empty();
  qdfuzz::Check(length == (empty ? 0u : qdcore::kColorWheelBytes));
  return 0;
}
