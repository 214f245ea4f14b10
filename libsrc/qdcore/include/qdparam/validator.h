// CValidator: an effect's validation rules, read from XML, that narrow the
// limits of a parameter set's parameters and pull values back inside them.
#pragma once

#include "qdcore/core.h"
#include "qdcore/xml.h"
#include "qdparam/export.h"

namespace qdcore {

class CParamSet;

/// The validation rules of a parameter set, loaded from its "Validation" element.
///
/// Rules are trees of conditions on parameter values whose actions rewrite
/// "min", "max" and "allowedValues". They are only ever appended.
class QDPARAM_API CValidator : public CZObjectMemory {
 public:
  /// A validator without rules.
  CValidator() noexcept = default;
  explicit CValidator(const CXMLObject& xml);  ///< Load(xml)
  /// Copies the other's rules.
  CValidator(const CValidator& other);
  /// Replaces the rules by copies of the other's.
  CValidator& operator=(const CValidator& other);
  /// Releases the rules.
  ~CValidator() override = default;

  /// Appends the "Condition" rules of a "Validation" element, or of the first
  /// "Validation" child of a "Property" (false when it has none).
  bool Load(const CXMLObject& xml);
  /// Runs the rules in order until one fails. False when nothing was ever
  /// loaded (`changed` untouched) or a rule failed; `changed` tells whether
  /// any limit, allowed list or value was rewritten.
  bool Validate(CParamSet* set, bool& changed) const;
};

/// The comparison of a current value (left) with a rule's constant (right) by
/// the relation's name: "Equal", "NotEqual", "Smaller", "SmallerEqual",
/// "Greater", "GreaterEqual". An unknown name is reported and does not hold.
template <typename T>
bool compValues(const T& left, const T& right, const CZPoolString& relation);
/// compValues for whole numbers; false for an unknown relation.
template <>
QDPARAM_API bool compValues<long>(const long& left, const long& right, const CZPoolString& relation);
/// compValues for real numbers (a NaN holds only for "NotEqual"); false for an unknown relation.
template <>
QDPARAM_API bool compValues<double>(const double& left, const double& right,
                                    const CZPoolString& relation);

}  // namespace qdcore
