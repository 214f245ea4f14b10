// CValidator: loads validation rules and runs them over a parameter set.
#include "qdparam/validator.h"

#include "qdformatnames.h"
#include "qdparamactor.h"

namespace qdcore {

using namespace names;

namespace {

const RuleList* RulesOf(const CZObjectMemory& block) {
  if (!block.IsAssignable(sizeof(RuleList), &kRuleListKind)) return nullptr;
  return static_cast<const RuleList*>(static_cast<const void*>(block));
}

}  // namespace

CValidator::CValidator(const CXMLObject& xml) { Load(xml); }

// Only a block that holds rules is copied; anything else leaves no rules.
CValidator::CValidator(const CValidator& other) : CZObjectMemory() { *this = other; }

CValidator& CValidator::operator=(const CValidator& other) {
  if (this == &other) return *this;
  if (RulesOf(other)) {
    CZObjectMemory::operator=(other);
  } else {
    Free();
  }
  return *this;
}

bool CValidator::Load(const CXMLObject& xml) {
  const CXMLObject* container = &xml;
  if (xml.IsName(kProperty)) {
    container = xml.FindNextElement(kValidation, nullptr);
    if (!container) return false;
  }
  if (!RulesOf(*this) && !Alloc(sizeof(RuleList), &kRuleListKind)) return false;
  RuleList& rules = *static_cast<RuleList*>(static_cast<void*>(*this));
  unsigned int count = 0;
  const CXMLObject* children = container->GetElements(count);
  for (unsigned int i = 0; i < count; ++i) {
    if (children[i].IsName(kCondition)) rules.AppendCondition(children[i], 1);
  }
  return true;
}

bool CValidator::Validate(CParamSet* set, bool& changed) const {
  const RuleList* rules = RulesOf(*this);
  if (!rules || !set) return false;
  changed = false;
  for (const RuleNode* node = rules->First(); node; node = node->next) {
    if (IsCondition(node->entry) && !EvaluateCondition(node->entry, set, changed)) return false;
  }
  return true;
}

}  // namespace qdcore
