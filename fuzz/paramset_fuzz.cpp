// Arbitrary bytes as a parameter-set document: load it, store it, load the
// stored form again (which must store the same), merge updates, make a
// preset, dump it and read every parameter at a few awkward times.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string_view>

#include "qdcore/log.h"
#include "qdcore/xml.h"
#include "qdparam/paramset.h"

using namespace qdcore;

namespace {

bool Quiet(const AssertReport&, void*) { return false; }
void Discard(int, int, std::u16string_view, void*) {}

// Times where evaluation has to hold up: inside, at the edges, far out and
// not numbers at all.
constexpr double kInf = std::numeric_limits<double>::infinity();
const double kTimes[] = {0.0, 0.5, 1.0, -3.0, 1e308, -kInf, std::nan("")};

void ReadEverything(const CParamSet& set) {
  unsigned char buffer[64];
  const CZPoolString fallback(u"fallback");
  for (const CParam* p = set.FindNextParam(nullptr); p; p = set.FindNextParam(p)) {
    for (double t : kTimes) {
      set.GetValueDouble(p, t, 1.0);
      set.GetValueLong(p, t, 1);
      set.GetValueBool(p, t, true);
      set.GetValueString(p, t, fallback);
      set.GetValueBinary(p, t, buffer, sizeof buffer);
      set.GetValueBinary(p, t, nullptr, 0);
      set.GetIntegralDouble(p, t);
    }
    set.GetValueDouble(p->GetName(), 0.25, 0.0);
    set.GetValueLong(static_cast<unsigned long>(p->GetID()), 0.25, 0);
  }
}

bool SameStore(const CParamSet& a, const CParamSet& b) {
  CXMLObject storedA, storedB;
  a.Store(storedA);
  b.Store(storedB);
  return storedA.IsEqual(storedB);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  SetAssertHandler(&Quiet);
  wPrintf_SetSink(&Discard);
  wPrintf_SetUserLevel(398, 8);  // dumps run, per-evaluation lines do not
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::uint8_t knobs = data[0];
  CXMLDoc doc;
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  if (doc.OpenDocMemory(text) != 0) return 0;
  const CXMLObject& root = doc.GetContentElement();

  CParamSet set;
  const bool loaded = set.Load(root);
  set.SetStartTime(knobs & 1 ? 0.5 : -2.0);
  set.SetDuration(knobs & 2 ? 4.0 : (knobs & 4 ? 0.0 : -1.0));
  ReadEverything(set);

  // What is stored loads back to the same set.
  CXMLObject stored;
  set.Store(stored);
  const CParamSet again(stored);
  if (loaded && !SameStore(set, again)) std::abort();

  CParamSet fromProperty{CZProperty(root)};
  fromProperty.Update(set, knobs & 8);
  fromProperty.Update(fromProperty, knobs & 16);
  set.Update(root, knobs & 32);
  set.Update(stored, knobs & 64);
  ReadEverything(set);

  CXMLObject preset;
  set.CreatePreset(preset);
  CParamSet presetTarget(again);
  presetTarget.Update(preset, knobs & 128);
  ReadEverything(presetTarget);

  if (const CParam* first = presetTarget.FindNextParam(nullptr)) {
    presetTarget.Insert(*first, first);
    presetTarget.Remove(presetTarget.GetSize() - 1);
  }
  return 0;
}
