// Arbitrary bytes as a document for `qdparam check`: every finding must
// have a message and a place inside the text (or none).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "qdparam/check.h"
#include "quiet.h"

using namespace qdcore;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qdfuzz::Silence();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const CheckFinding& finding : CheckParamDocument(text)) {
    if (finding.message.empty() || finding.line > size + 1 ||
        (finding.line == 0) != (finding.column == 0))
      std::abort();
  }
  return 0;
}
