// Fuzzes the GeometryMask blend with arbitrary payload pairs and weights. Pairs
// are mostly cut to equal sizes, which is what reaches the walk.
#include "fuzz_input.h"
#include "qdblend.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qdfuzz::BlendInput input = qdfuzz::Read(data, size);
  if (!input.nullBuffer) input.second.resize(input.first.size());  // zeros past a shorter end
  qdfuzz::Payload out(input.first.size());
  const std::optional<unsigned int> length =
      qdcore::BlendGeometryMask(input.first, input.second, input.Weight(), out);
  qdfuzz::Check(!length || *length <= out.size());
  qdfuzz::Check(input.second.size() == input.first.size() || !length);
  return 0;
}
