// Reading and writing a large parameter document: pugixml's own parse as the
// yardstick, then our element trees read from memory and written to memory
// and to a file.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <pugixml.hpp>
#include <string>

#include "qdcore/xml.h"

using namespace qdcore;

namespace {

constexpr int kParameters = 6848;
constexpr int kKeyframes = 16;

// About 10 MB: parameters with the usual attributes, each with keyframes
// whose numbers are written the way the library writes them.
const std::string& Document() {
  static const std::string text = [] {
    const char* types[] = {"Double", "Long", "Bool", "Color"};
    const char* interpolations[] = {"Linear", "Hold", "Bezier", "Spline"};
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Property name=\"Bench\">\n";
    char line[512];
    for (int p = 0; p < kParameters; ++p) {
      std::snprintf(line, sizeof line,
                    "\t<Parameter id=\"%d\" name=\"param%d\" type=\"%s\" value=\"%.12f\" "
                    "min=\"%.12f\" max=\"%.12f\" useKeyframe=\"%s\">\n",
                    p, p, types[p % 4], p * 0.37, -100.0 - p, 100.0 + p, p % 3 ? "True" : "False");
      out += line;
      for (int k = 0; k < kKeyframes; ++k) {
        std::snprintf(line, sizeof line,
                      "\t\t<Keyframe position=\"%.12f\" value=\"%.12f\" interpolation=\"%s\"/>\n",
                      k / 15.0, (p + 1) * 0.001 * k - 3.5, interpolations[(p + k) % 4]);
        out += line;
      }
      out += "\t</Parameter>\n";
    }
    out += "</Property>\n";
    return out;
  }();
  return text;
}

const CXMLObject& Tree() {
  static const CXMLObject tree = [] {
    CXMLDoc doc;
    if (doc.OpenDocMemory(std::string_view(Document())) != 0) std::abort();
    return doc.GetContentElement();
  }();
  return tree;
}

void BM_XmlPugixmlParse(benchmark::State& state) {
  const std::string& text = Document();
  for (auto _ : state) {
    pugi::xml_document doc;
    const pugi::xml_parse_result result =
        doc.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!result) state.SkipWithError("pugixml failed");
    benchmark::DoNotOptimize(doc.first_child());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_XmlPugixmlParse)->Unit(benchmark::kMillisecond);

void BM_XmlReadObjects(benchmark::State& state) {
  const std::string& text = Document();
  for (auto _ : state) {
    CXMLDoc doc;  // built and torn down each time, as pugixml's is
    if (doc.OpenDocMemory(std::string_view(text)) != 0) state.SkipWithError("read failed");
    benchmark::DoNotOptimize(&doc.GetContentElement());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_XmlReadObjects)->Unit(benchmark::kMillisecond);

void BM_XmlWriteMemory(benchmark::State& state) {
  const CXMLObject& tree = Tree();
  std::size_t chars = 0;
  for (auto _ : state) {
    CXMLMemOut out;
    out.Open();
    if (!out.Write(tree)) state.SkipWithError("write failed");
    chars = out.View().size();
    benchmark::DoNotOptimize(out.View().data());
  }
  // The text is ASCII: one UTF-8 byte per character.
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * chars));
}
BENCHMARK(BM_XmlWriteMemory)->Unit(benchmark::kMillisecond);

void BM_XmlWriteFile(benchmark::State& state) {
  const CXMLObject& tree = Tree();
  const std::filesystem::path path = std::filesystem::temp_directory_path() /
                                     ("qdparam_xml_bench_" + std::to_string(::getpid()) + ".xml");
  std::u16string wide;
  FromUtf8(path.string(), wide);
  for (auto _ : state) {
    CXMLFileOut out(1);
    if (!out.Open(wide.c_str()) || !out.Write(tree) || !out.Close())
      state.SkipWithError("write failed");
  }
  const auto bytes = std::filesystem::file_size(path);
  std::filesystem::remove(path);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_XmlWriteFile)->Unit(benchmark::kMillisecond);

}  // namespace
