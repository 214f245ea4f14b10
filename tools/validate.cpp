// qdparam validate: the file's own rules applied to its set.
#include <cstdio>
#include <string>
#include <vector>

#include "commands.h"
#include "document.h"
#include "failure.h"
#include "names.h"
#include "outputfile.h"
#include "qdparam/validator.h"
#include "selection.h"
#include "textformat.h"

namespace qdtool {

using namespace qdcore;

namespace {

// What the rules may rewrite.
constexpr const char16_t* kWatched[] = {u"min", u"max", u"allowedValues", u"value"};

struct Snapshot {
  const CParam* param;
  std::vector<std::string> texts;  // one per watched attribute
};

std::vector<Snapshot> TakeSnapshot(const CParamSet& set) {
  std::vector<Snapshot> snapshots;
  for (const CParam* param = set.FindNextParam(nullptr); param; param = set.FindNextParam(param)) {
    Snapshot snapshot{param, {}};
    for (const char16_t* name : kWatched) {
      snapshot.texts.push_back(Utf8(param->FindAttribute(Pooled(name))));
    }
    snapshots.push_back(std::move(snapshot));
  }
  return snapshots;
}

std::string Shown(const std::string& text) {
  return text.empty() ? "(none)" : TidyNumberText(text);
}

// One line per limit or value that differs; the parameters stay in place
// while the rules run, so the snapshots' pointers still name them.
int PrintChanges(const std::vector<Snapshot>& before, const std::vector<Snapshot>& after) {
  int changes = 0;
  for (std::size_t p = 0; p < before.size() && p < after.size(); ++p) {
    for (std::size_t a = 0; a < before[p].texts.size(); ++a) {
      if (before[p].texts[a] == after[p].texts[a]) continue;
      ++changes;
      std::printf("  %s (id %ld): %s %s -> %s\n", ParamLabel(*before[p].param).c_str(),
                  before[p].param->GetID(), ToUtf8(kWatched[a]).c_str(),
                  Shown(before[p].texts[a]).c_str(), Shown(after[p].texts[a]).c_str());
    }
  }
  return changes;
}

unsigned int RuleCount(const CXMLObject& property) {
  const CXMLObject* rules = property.FindNextElement(Pooled(u"Validation"), nullptr);
  return rules ? rules->GetNElements(Pooled(u"Condition")) : 0;
}

}  // namespace

void Validate(const ValidateOptions& options) {
  Document document(options.file);
  if (!options.out.empty()) CheckOutputPath(options.out, options.force);
  const unsigned int rules = RuleCount(document.Property());
  if (rules == 0) throw Failure(document.Path() + " carries no Validation rules");
  const std::vector<Snapshot> before = TakeSnapshot(document.Set());
  const bool passed = document.Api().validate().ok();
  std::printf("%s: %u rule%s\n", document.Name().c_str(), rules, rules == 1 ? "" : "s");
  const int changes = PrintChanges(before, TakeSnapshot(document.Set()));
  if (changes == 0) std::printf("  nothing changed\n");
  if (!passed) {
    throw Failure("a rule of " + document.Path() +
                  " failed: an action names a missing parameter or one that is neither Double "
                  "nor Long");
  }
  if (options.out.empty()) return;
  WriteTextFile(options.out, document.Api().to_xml(), options.force);
  std::printf("wrote %s\n", options.out.c_str());
}

}  // namespace qdtool
