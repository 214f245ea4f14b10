// Arbitrary bytes as a document: what the writers make of the tree it reads
// to must read back to the same tree, in memory and through a file, and a
// parameter stored and written must load back to the same store.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "qdcore/xml.h"
#include "qdparam/param.h"
#include "quiet.h"

using namespace qdcore;

namespace {

std::string g_path;  // one file per fuzzing process

void Require(bool holds) {
  if (!holds) std::abort();
}

CXMLObject ReadBack(std::u16string_view text) {
  CXMLDoc doc;
  Require(doc.OpenDocMemory(text) == 0);
  return doc.GetContentElement();
}

std::u16string Written(const CXMLObject& element, int flags) {
  CXMLMemOut out(flags);
  out.Open();
  if (!out.Write(element)) return {};
  return std::u16string(out.View());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qdfuzz::Silence();
  g_path = "/tmp/qdparam-writers-fuzz-" + std::to_string(::getpid()) + ".xml";
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CXMLDoc doc;
  if (doc.OpenDocMemory(std::string_view(reinterpret_cast<const char*>(data), size)) != 0) return 0;
  const CXMLObject& root = doc.GetContentElement();
  for (const int flags : {0, 1}) {
    const std::u16string text = Written(root, flags);
    if (!text.empty()) Require(ReadBack(text).IsEqual(root));
  }
  std::u16string path;
  FromUtf8(g_path, path);
  CXMLFileOut file(1);
  if (file.Open(path.c_str()) && file.Write(root) && file.Close()) {
    CXMLDoc again;
    Require(again.OpenDocFile(path.c_str()) == 0 && again.GetContentElement().IsEqual(root));
  }
  CParam param;
  if (param.Load(root)) {
    CXMLObject stored;
    param.Store(stored);
    const std::u16string text = Written(stored, 0);
    if (!text.empty()) {
      CParam again;
      again.Load(ReadBack(text));
      CXMLObject storedAgain;
      again.Store(storedAgain);
      Require(storedAgain.IsEqual(stored));
    }
  }
  return 0;
}
