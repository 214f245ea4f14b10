// qdparam: inspect effect parameter sets from the command line.
//
// For now it reads a parameter-set document (the bundled example when no
// file is named) and prints it as the library writes it back.
#include <cstdio>
#include <filesystem>
#include <string>

#include "qdcore/xml.h"
#include "qdparam/version.h"

namespace {

std::string DefaultExample() {
  for (const char* folder : {QD_EXAMPLES_DIR, QD_INSTALLED_EXAMPLES_DIR}) {
    const std::filesystem::path path = std::filesystem::path(folder) / "glow.xml";
    std::error_code error;
    if (std::filesystem::exists(path, error)) return path.string();
  }
  return "glow.xml";
}

int Usage() {
  std::fprintf(stderr, "usage: qdparam [roundtrip] [FILE]\n");
  return 2;
}

int RoundTrip(const std::string& file) {
  std::u16string path;
  if (!qdcore::FromUtf8(file, path)) return Usage();
  qdcore::CXMLDoc doc;
  if (const int result = doc.OpenDocFile(path.c_str(), 0, 0); result != 0) {
    std::fprintf(stderr, "qdparam: cannot read %s (error %d)\n", file.c_str(), result);
    return 1;
  }
  qdcore::CXMLMemOut out(1);
  out.Open();
  out.Write(doc.GetContentElement());
  out.Close();
  std::printf("%s\n", qdcore::ToUtf8(out.View()).c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string file;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--version") {
      std::printf("qdparam %s\n", qdcore::GetParamLibraryVersion());
      return 0;
    }
    if (argument == "roundtrip") continue;
    if (!file.empty() || argument.starts_with("-")) return Usage();
    file = argument;
  }
  return RoundTrip(file.empty() ? DefaultExample() : file);
}
