// Arbitrary bytes as a document for both readers: whenever the plain reader
// takes it, the general reader must take it too and build an equal tree;
// with both allowed, the result is the general reader's.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "qdcore/xml.h"
#include "quiet.h"

using namespace qdcore;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qdfuzz::Silence();
  return 0;
}

namespace {

struct Reading {
  int result;
  std::string failure;
  CXMLObject root;
};

Reading Read(std::string_view text, const char* only) {
  setenv("QD_XMLREADER", only, 1);
  CXMLDoc doc;
  const int result = doc.OpenDocMemory(text);
  return {result, doc.GetLastFailure().message, doc.GetContentElement()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const Reading general = Read(text, "general");
  const Reading both = Read(text, "both");
  if (both.result != general.result || both.failure != general.failure ||
      !both.root.IsEqual(general.root))
    std::abort();
  const Reading plain = Read(text, "plain");
  if (plain.result == 0 && (general.result != 0 || !plain.root.IsEqual(general.root))) std::abort();
  return 0;
}
