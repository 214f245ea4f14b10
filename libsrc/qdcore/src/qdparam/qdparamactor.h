// Validation rules: conditions with nested conditions and actions, held in
// host object blocks so that a list entry can be asked what it holds.
#pragma once

#include "qdcore/core.h"
#include "qdcore/xml.h"

namespace qdcore {

class CParamSet;

// One list node; nodes come from the host allocator.
struct RuleNode {
  CZObjectMemory entry;  // a Condition or an action element
  RuleNode* next = nullptr;
};

// An ordered list of rule entries. Copies are deep.
class RuleList {
 public:
  RuleList() noexcept = default;
  RuleList(const RuleList& other);
  RuleList& operator=(const RuleList&) = delete;
  ~RuleList();

  const RuleNode* First() const noexcept { return m_head; }
  // Appends a condition built from a "Condition" element.
  void AppendCondition(const CXMLObject& xml, int depth);
  // Appends a private copy of an "Action" element.
  void AppendAction(const CXMLObject& xml);

 private:
  CZObjectMemory& Append();
  void Clear() noexcept;
  RuleNode* m_head = nullptr;
  RuleNode* m_tail = nullptr;
};

// The descriptor of the rule list kind, for the validator's block.
extern const tagCZOVTABL kRuleListKind;

// Evaluates the condition held by `entry` (true for an entry that holds no
// condition, which callers skip).
bool IsCondition(const CZObjectMemory& entry) noexcept;
bool EvaluateCondition(const CZObjectMemory& entry, CParamSet* set, bool& changed);

}  // namespace qdcore
