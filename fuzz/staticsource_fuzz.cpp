// Arbitrary bytes as the file of a static source, as another process or
// user might leave it: reading it back must fail cleanly or give content.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "qdcore/file.h"
#include "qdparam/staticsource.h"
#include "quiet.h"

using namespace qdcore;

namespace {

CGUID g_id;
std::string g_file;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qdfuzz::Silence();
  // A private temporary folder of this process's own.
  const std::string folder = "/tmp/qdparam-staticsource-fuzz-" + std::to_string(::getpid());
  std::filesystem::create_directories(folder);
  ::setenv("TMPDIR", folder.c_str(), 1);
  CStaticSource::StartStaticSource();
  g_id.create();
  const std::u16string sources = QF_GetTempPath().c_str() + std::u16string(u"QWSTATICSOURCE");
  QF_CreatePrivateDirectory(sources.c_str());
  g_file = ToUtf8(sources) + "/" + ToUtf8(g_id.GetString().view()) + ".qws";
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::FILE* file = std::fopen(g_file.c_str(), "wb");
  if (!file) std::abort();
  std::fwrite(data, 1, size, file);
  std::fclose(file);
  CXMLObject content;
  std::vector<unsigned char> bytes;
  CStaticSource::GetSource(g_id, content);
  CStaticSource::GetSource(g_id, bytes);
  return 0;
}
