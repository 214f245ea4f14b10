// An outside program that knows only the host API's header: evaluates the
// bundled example on a short clip and reads a malformed document.
#include <cstdio>
#include <qdparam/qdparam.hpp>
#include <string>

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  auto set = qd::Set::load(std::string(argv[1]) + "/pip.xml");
  if (!set) {
    std::fprintf(stderr, "%s\n", set.error().describe().c_str());
    return 1;
  }
  set->set_clip(0.0, 4.0);
  const auto x = set->param("position_x");
  const double at2 = x ? x->value(2.0).value_or(-1.0) : -1.0;
  const auto broken = qd::Set::parse("<Property>\n<Parameter id=\"1\"\n</Property>");
  std::printf("position_x at 2 s of 4 s: %g; malformed: %s\n", at2,
              broken ? "loaded" : broken.error().describe().c_str());
  return at2 == 20.0 && !broken && broken.error().line == 3 ? 0 : 1;
}
