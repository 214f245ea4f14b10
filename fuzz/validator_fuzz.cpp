// Arbitrary bytes as a set with its validation rules: load the rules from
// the document, run them over the set twice (the second run may change
// nothing more than the first left), and read what they changed.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "qdcore/xml.h"
#include "qdparam/paramset.h"
#include "qdparam/validator.h"
#include "quiet.h"

using namespace qdcore;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qdfuzz::Silence();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CXMLDoc doc;
  if (doc.OpenDocMemory(std::string_view(reinterpret_cast<const char*>(data), size)) != 0) return 0;
  const CXMLObject& root = doc.GetContentElement();
  CParamSet set;
  set.Load(root);
  CValidator validator;
  validator.Load(root);
  if (const CXMLObject* rules = root.FindNextElement(CZPoolString(u"Validation"), nullptr)) {
    validator.Load(*rules);
  }
  bool changed = false;
  validator.Validate(&set, changed);
  validator.Validate(&set, changed);
  const CValidator copy(validator);
  copy.Validate(nullptr, changed);
  for (const CParam* p = set.FindNextParam(nullptr); p; p = set.FindNextParam(p)) {
    set.GetValueDouble(p, 0.5, 0.0);
    set.GetValueLong(p, 0.5, 0);
  }
  return 0;
}
