// Validation rules: building conditions and actions from XML, comparing
// values, and running actions that narrow a parameter's limits.
#include "qdparamactor.h"

#include <new>

#include "qdformatnames.h"
#include "qdnumberlocale.h"
#include "qdparam/param.h"
#include "qdparam/paramset.h"
#include "qdparam/validator.h"

namespace qdcore {

using namespace names;

namespace {

constexpr wchar kAllowedSeparator = u';';

// Rules nest as deep as their document does; below this depth further
// conditions are ignored like unknown children, so that building, copying,
// running and releasing a rule never exhausts the stack.
constexpr int kMaxConditionDepth = 256;

struct Condition {
  long id = -1;
  RuleList children;
  CZPoolString relation;
  CZPoolString value;
};

// ---------------------------------------------------------------------------
// Object kinds held in rule entries
// ---------------------------------------------------------------------------

template <typename T>
constexpr tagCZOVTABL KindOf() {
  return {[](void* at) { new (at) T(); },
          [](void* at, const void* from) { new (at) T(*static_cast<const T*>(from)); },
          [](void* at) { static_cast<T*>(at)->~T(); }};
}

const tagCZOVTABL kConditionKind = KindOf<Condition>();
const tagCZOVTABL kActionKind = KindOf<CXMLObject>();

template <typename T>
T* Held(CZObjectMemory& entry) {
  return static_cast<T*>(static_cast<void*>(entry));
}

template <typename T>
const T* Held(const CZObjectMemory& entry) {
  return static_cast<const T*>(static_cast<const void*>(entry));
}

// ---------------------------------------------------------------------------
// Comparison
// ---------------------------------------------------------------------------

template <typename T>
struct Relation {
  const wchar* name;
  bool (*holds)(const T& left, const T& right);
};

// IEEE comparisons as they stand: a NaN fails every relation but "NotEqual".
template <typename T>
constexpr Relation<T> kRelations[] = {
    {u"Equal", [](const T& l, const T& r) { return l == r; }},
    {u"NotEqual", [](const T& l, const T& r) { return l != r; }},
    {u"Smaller", [](const T& l, const T& r) { return l < r; }},
    {u"SmallerEqual", [](const T& l, const T& r) { return l <= r; }},
    {u"Greater", [](const T& l, const T& r) { return l > r; }},
    {u"GreaterEqual", [](const T& l, const T& r) { return l >= r; }},
};

template <typename T>
bool Compare(const T& left, const T& right, const CZPoolString& relation, const char* signature) {
  for (const Relation<T>& entry : kRelations<T>) {
    if (relation == entry.name) return entry.holds(left, right);
  }
  ReportFailure("Condition - unknown relation specified", kIllegalCodePointReached, __FILE_NAME__,
                __LINE__, signature);
  return false;
}

// ---------------------------------------------------------------------------
// Actions
// ---------------------------------------------------------------------------

// Writes the action's non-empty limits that differ from the parameter's;
// true when one was written.
bool RewriteLimits(const CXMLObject& action, CParam& param, bool& changed) {
  bool rewritten = false;
  for (const CZPoolString* limit : {&kMin, &kMax}) {
    const CZPoolString wanted = action.FindAttribute(*limit);
    if (!wanted || wanted == param.GetValue(*limit)) continue;
    param.SetValue(*limit, wanted);
    rewritten = true;
  }
  if (rewritten) changed = true;
  return rewritten;
}

// Pulls the static value inside the limits. Both tests use the value as read,
// so with a minimum above the maximum the minimum wins.
template <typename T>
void PullInside(CParam& param, bool (CParam::*getMin)(T&) const, bool (CParam::*getMax)(T&) const,
                bool (CParam::*getValue)(T&) const, bool (CParam::*setValue)(T)) {
  T lowest{}, highest{}, value{};
  const bool hasMin = (param.*getMin)(lowest);
  const bool hasMax = (param.*getMax)(highest);
  if (!(param.*getValue)(value)) return;
  if (hasMax && value > highest) (param.*setValue)(highest);
  if (hasMin && value < lowest) (param.*setValue)(lowest);
}

void ApplyDoubleAction(const CXMLObject& action, CParam& param, bool& changed) {
  if (!RewriteLimits(action, param, changed) || param.GetKeyFrameStatus()) return;
  PullInside<double>(param, &CParam::GetMinValueDouble, &CParam::GetMaxValueDouble,
                     &CParam::GetValueDouble, &CParam::SetValueDouble);
}

void ApplyLongAction(const CXMLObject& action, CParam& param, bool& changed) {
  const CZPoolString allowed = action.FindAttribute(kAllowedValues);
  const bool rewritten = RewriteLimits(action, param, changed);
  if (param.GetKeyFrameStatus() || (!rewritten && !allowed)) return;
  PullInside<long>(param, &CParam::GetMinValueLong, &CParam::GetMaxValueLong, &CParam::GetValueLong,
                   &CParam::SetValueLong);
  if (!allowed) return;
  if (allowed != param.GetValue(kAllowedValues)) {
    param.SetValue(kAllowedValues, allowed);
    changed = true;
  }
  if (param.FindAttributeIndex(kValue, allowed, kAllowedSeparator) != 0xFFFFFFFFu) return;
  // Not an allowed value: fall back to the list's leading entry.
  changed = true;
  param.SetValueLong(action.FindAttributeInt(kAllowedValues, 0));
}

// False when the action names no parameter it can act on.
bool RunAction(const CXMLObject& action, CParamSet* set, bool& changed) {
  const long id = action.FindAttributeInt(kId, -1);
  CParam* param = id < 0 ? nullptr : set->Get(static_cast<unsigned long>(id));
  if (!param) return false;
  switch (param->GetType()) {
    case PARAM_DOUBLE: ApplyDoubleAction(action, *param, changed); return true;
    case PARAM_LONG: ApplyLongAction(action, *param, changed); return true;
    default: return false;
  }
}

// ---------------------------------------------------------------------------
// Conditions
// ---------------------------------------------------------------------------

// Whether the condition's test holds for the parameter's current value. A
// test that cannot be made (empty constant, unreadable value, another type)
// counts as not holding, which the caller treats as satisfied.
bool TestHolds(const Condition& condition, const CParam& param) {
  if (!condition.value) return false;
  switch (param.GetType()) {
    case PARAM_DOUBLE: {
      const double constant = ReadDouble(condition.value);
      double current = 0.0;
      return param.GetValueDouble(current) && compValues<double>(current, constant, condition.relation);
    }
    case PARAM_LONG: {
      const long constant = ParseInt(condition.value);
      long current = 0;
      return param.GetValueLong(current) && compValues<long>(current, constant, condition.relation);
    }
    case PARAM_BOOL: {
      // Only the constant's presence counts: a bool is compared with false.
      bool current = false;
      return param.GetValueBool(current) &&
             compValues<double>(current ? 1.0 : 0.0, 0.0, condition.relation);
    }
    default:
      return false;
  }
}

bool RunChildren(const RuleList& children, CParamSet* set, bool& changed) {
  for (const RuleNode* node = children.First(); node; node = node->next) {
    const bool ok = IsCondition(node->entry)
                        ? EvaluateCondition(node->entry, set, changed)
                        : RunAction(*Held<CXMLObject>(node->entry), set, changed);
    if (!ok) return false;
  }
  return true;
}

}  // namespace

template <>
bool compValues<long>(const long& left, const long& right, const CZPoolString& relation) {
  return Compare(left, right, relation,
                 "bool __cdecl compValues<long>(const long &,const long &,const class "
                 "qdcore::CZPoolString &)");
}

template <>
bool compValues<double>(const double& left, const double& right, const CZPoolString& relation) {
  return Compare(left, right, relation,
                 "bool __cdecl compValues<double>(const double &,const double &,const class "
                 "qdcore::CZPoolString &)");
}

bool IsCondition(const CZObjectMemory& entry) noexcept {
  return entry.IsAssignable(sizeof(Condition), &kConditionKind);
}

// A condition whose parameter is missing, whose relation is "True" or whose
// test does not hold is satisfied and runs nothing.
bool EvaluateCondition(const CZObjectMemory& entry, CParamSet* set, bool& changed) {
  if (!IsCondition(entry)) return true;
  const Condition& condition = *Held<Condition>(entry);
  const CParam* param =
      condition.id < 0 ? nullptr : set->Get(static_cast<unsigned long>(condition.id));
  if (!param || condition.relation == kTrue) return true;
  if (!TestHolds(condition, *param)) return true;
  return RunChildren(condition.children, set, changed);
}

// ---------------------------------------------------------------------------
// Rule list
// ---------------------------------------------------------------------------

const tagCZOVTABL kRuleListKind = KindOf<RuleList>();

RuleList::RuleList(const RuleList& other) {
  try {
    for (const RuleNode* node = other.m_head; node; node = node->next) Append() = node->entry;
  } catch (...) {
    Clear();
    throw;
  }
}

RuleList::~RuleList() { Clear(); }

void RuleList::Clear() noexcept {
  for (RuleNode* node = m_head; node;) {
    RuleNode* next = node->next;
    node->~RuleNode();
    _ffree(node);
    node = next;
  }
  m_head = m_tail = nullptr;
}

CZObjectMemory& RuleList::Append() {
  void* memory = _falloc(sizeof(RuleNode));
  if (!memory) throw std::bad_alloc();
  RuleNode* node = new (memory) RuleNode();
  (m_tail ? m_tail->next : m_head) = node;
  m_tail = node;
  return node->entry;
}

void RuleList::AppendCondition(const CXMLObject& xml, int depth) {
  CZObjectMemory& entry = Append();
  if (!entry.Alloc(sizeof(Condition), &kConditionKind)) throw std::bad_alloc();
  Condition& condition = *Held<Condition>(entry);
  condition.id = xml.FindAttributeInt(kId, -1);
  condition.relation = xml.FindAttribute(kRelation);
  condition.value = xml.FindAttribute(kValue);
  unsigned int count = 0;
  const CXMLObject* children = xml.GetElements(count);
  for (unsigned int i = 0; i < count; ++i) {
    if (children[i].IsName(kCondition) && depth < kMaxConditionDepth) {
      condition.children.AppendCondition(children[i], depth + 1);
    } else if (children[i].IsName(kAction)) {
      condition.children.AppendAction(children[i]);
    }
  }
}

void RuleList::AppendAction(const CXMLObject& xml) {
  CZObjectMemory& entry = Append();
  if (!entry.Alloc(sizeof(CXMLObject), &kActionKind)) throw std::bad_alloc();
  CXMLObject& action = *Held<CXMLObject>(entry);
  action = xml;
  action.Realloc();  // the rule keeps its own copy, whatever happens to the document
}

}  // namespace qdcore
