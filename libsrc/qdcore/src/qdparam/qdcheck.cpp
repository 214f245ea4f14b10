// Diagnostics of parameter documents: one pass over the element tree as
// read, each element checked by the rules of its name.
//
//   1. Texts: numbers, booleans, names
//   2. Findings and the places of elements
//   3. Keyframes and parameters
//   4. Sets and their rules
//   5. The walk
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "qdblend.h"
#include "qdcheckread.h"
#include "qddecimal.h"
#include "qdformatnames.h"
#include "qdparam/check.h"

namespace qdcore {

using namespace names;

namespace {

// ---------------------------------------------------------------------------
// 1. Texts: numbers, booleans, names
// ---------------------------------------------------------------------------

// What a number text holds, as the library's prefix parse reads it.
enum class NumberText {
  kOk,
  kNone,       // no number at all: reads as 0
  kNotFinite,  // NaN or infinity
  kRange,      // too large for its type
  kTrailing    // a number followed by text that is ignored
};

// `text` with every character beyond ASCII made '?', into `out`, whose
// room is kept: numbers are narrowed by the thousand.
void NarrowInto(std::u16string_view text, std::string& out) {
  out.resize(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    out[i] = c < 0x80 ? static_cast<char>(c) : '?';
  }
}

std::string Narrow(std::u16string_view text) {
  std::string out;
  NarrowInto(text, out);
  return out;
}

// name="text", for a finding about an attribute.
std::string Quoted(const CZPoolString& attribute, const std::string& text) {
  return Narrow(attribute.view()) + "=\"" + text + "\"";
}

// The text without leading blanks and a leading '+', as the C parse skips.
std::string_view Digits(const std::string& text) {
  std::string_view view(text);
  while (!view.empty() && (view.front() == ' ' || view.front() == '\t' || view.front() == '\n' ||
                           view.front() == '\r'))
    view.remove_prefix(1);
  if (view.starts_with('+') && view.size() > 1 && view[1] != '-') view.remove_prefix(1);
  return view;
}

// A real number; `rest` gets the text after it.
NumberText ReadReal(const std::string& text, double& value, std::string_view& rest) {
  const std::string_view digits = Digits(text);
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  rest = std::string_view(end, static_cast<std::size_t>(digits.data() + digits.size() - end));
  if (error == std::errc::invalid_argument) return NumberText::kNone;
  if (error == std::errc::result_out_of_range) {
    // Too small to be told from 0 is fine; too large to be held is not.
    return std::fabs(std::strtod(std::string(digits).c_str(), nullptr)) > 1.0 ? NumberText::kRange
                                                                              : NumberText::kOk;
  }
  if (!std::isfinite(value)) return NumberText::kNotFinite;
  return rest.empty() ? NumberText::kOk : NumberText::kTrailing;
}

// A whole number of 32 bits.
NumberText ReadWhole(const std::string& text, long long& value) {
  const std::string_view digits = Digits(text);
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error == std::errc::invalid_argument) return NumberText::kNone;
  if (error == std::errc::result_out_of_range || value < std::numeric_limits<std::int32_t>::min() ||
      value > std::numeric_limits<std::int32_t>::max())
    return NumberText::kRange;
  return end == digits.data() + digits.size() ? NumberText::kOk : NumberText::kTrailing;
}

bool IsBoolText(std::u16string_view text) {
  for (const char16_t* known : {u"True", u"true", u"1", u"False", u"false", u"0"}) {
    if (text == known) return true;
  }
  return false;
}

bool IsKnown(std::u16string_view text, std::span<const tagXMLFLAGMAP> names) {
  for (const tagXMLFLAGMAP& entry : names) {
    if (entry.name.view() == text) return true;
  }
  return false;
}

std::u16string_view Trimmed(std::u16string_view text) {
  while (!text.empty() && (text.front() == u' ' || text.front() == u'\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == u' ' || text.back() == u'\t')) text.remove_suffix(1);
  return text;
}

// ---------------------------------------------------------------------------
// 2. Findings and the places of elements
// ---------------------------------------------------------------------------

class Findings {
 public:
  // `errorsOnly`: warnings are not kept (a load needs to hear of errors only).
  Findings(const CXMLDoc& doc, bool errorsOnly) : m_doc(doc), m_errorsOnly(errorsOnly) {}

  void Add(CheckSeverity severity, const CXMLObject& element, const std::string& message) {
    if (m_errorsOnly && severity == CheckSeverity::kWarning) return;
    CheckFinding& finding = m_list.emplace_back();
    finding.severity = severity;
    m_doc.GetPosition(element, finding.line, finding.column);
    finding.message = Describe(element) + ": " + message;
  }
  void Error(const CXMLObject& element, const std::string& message) {
    Add(CheckSeverity::kError, element, message);
  }
  void Warning(const CXMLObject& element, const std::string& message) {
    Add(CheckSeverity::kWarning, element, message);
  }
  void AddAt(CheckSeverity severity, unsigned int line, unsigned int column,
             const std::string& message) {
    if (m_errorsOnly && severity == CheckSeverity::kWarning) return;
    m_list.push_back(CheckFinding{severity, line, column, message});
  }
  std::vector<CheckFinding> Take() { return std::move(m_list); }
  bool WantsWarnings() const noexcept { return !m_errorsOnly; }
  // `text` narrowed into a buffer of the walk's, valid until the next call.
  const std::string& Narrowed(std::u16string_view text) {
    NarrowInto(text, m_narrowed);
    return m_narrowed;
  }

 private:
  // <Parameter id="3" name="mode">, so that the message says which one.
  static std::string Describe(const CXMLObject& element) {
    std::string text = "<";
    text.append(Narrow(element.GetName().view()));
    for (const CZPoolString& name : {kId, kName}) {
      const CZPoolString value = element.FindAttribute(name);
      if (!value) continue;
      text.append(" ").append(Narrow(name.view())).append("=\"");
      text.append(Narrow(value.view())).append("\"");
    }
    return text.append(">");
  }

  const CXMLDoc& m_doc;
  bool m_errorsOnly;
  std::vector<CheckFinding> m_list;
  std::string m_narrowed;
};

// Checks one attribute's number text; true with `value` when it reads as
// a finite number (possibly with ignored trailing text).
bool CheckReal(Findings& out, const CXMLObject& element, const CZPoolString& attribute,
               double& value) {
  const CZPoolString text = element.FindAttribute(attribute);
  if (!text) return false;
  if (const std::optional<double> plain = ReadPlainDecimal(text.view())) {
    value = *plain;
    return true;
  }
  const std::string& narrow = out.Narrowed(text.view());
  std::string_view rest;
  switch (ReadReal(narrow, value, rest)) {
    case NumberText::kOk:
      return true;
    case NumberText::kNone:
      out.Error(element, Quoted(attribute, narrow) + " is not a number (it reads as 0)");
      return false;
    case NumberText::kNotFinite:
      out.Error(element, Quoted(attribute, narrow) + " is not a finite number");
      return false;
    case NumberText::kRange:
      out.Error(element, Quoted(attribute, narrow) + " is out of range");
      return false;
    case NumberText::kTrailing:
      if (!out.WantsWarnings()) return true;
      out.Warning(element,
                  Quoted(attribute, narrow) + " has text after its number that is ignored");
      return true;
  }
  return false;
}

bool CheckWhole(Findings& out, const CXMLObject& element, const CZPoolString& attribute,
                long long& value) {
  const CZPoolString text = element.FindAttribute(attribute);
  if (!text) return false;
  if (const std::optional<long long> plain = ReadPlainWhole(text.view())) {
    value = *plain;
    return true;
  }
  const std::string& narrow = out.Narrowed(text.view());
  switch (ReadWhole(narrow, value)) {
    case NumberText::kOk:
      return true;
    case NumberText::kNone:
    case NumberText::kNotFinite:
      out.Error(element, Quoted(attribute, narrow) + " is not a whole number (it reads as 0)");
      return false;
    case NumberText::kRange:
      out.Error(element, Quoted(attribute, narrow) + " is outside the 32-bit range");
      return false;
    case NumberText::kTrailing:
      if (!out.WantsWarnings()) return true;
      out.Warning(element,
                  Quoted(attribute, narrow) + " has text after its whole number that is ignored");
      return true;
  }
  return false;
}

void CheckBool(Findings& out, const CXMLObject& element, const CZPoolString& attribute) {
  if (!out.WantsWarnings()) return;
  const CZPoolString text = element.FindAttribute(attribute);
  if (text && !IsBoolText(text.view())) {
    out.Warning(element, Narrow(attribute.view()) + "=\"" + Narrow(text.view()) +
                             "\" is not True or False (the default is used)");
  }
}

// A flag attribute: every name listed must be known.
void CheckNames(Findings& out, const CXMLObject& element, const CZPoolString& attribute,
                std::span<const tagXMLFLAGMAP> names, bool list, CheckSeverity severity) {
  if (severity == CheckSeverity::kWarning && !out.WantsWarnings()) return;
  const CZPoolString text = element.FindAttribute(attribute);
  if (!text) return;
  std::u16string_view rest = text.view();
  for (;;) {
    const std::size_t end = list ? rest.find(kFlagSeparator) : std::u16string_view::npos;
    const std::u16string_view name = list ? Trimmed(rest.substr(0, end)) : rest;
    if (!IsKnown(name, names)) {
      out.Add(severity, element,
              Narrow(attribute.view()) + ": unknown name \"" + Narrow(name) + "\"");
    }
    if (end == std::u16string_view::npos) return;
    rest.remove_prefix(end + 1);
  }
}

// Base64 text that decodes to nothing reads as no data.
void CheckBase64(Findings& out, const CXMLObject& element) {
  if (element.HasBinaryData()) return;
  const CZPoolString text = element.GetData();
  bool blank = true;
  for (const char16_t c : text.view())
    blank = blank && (c == u' ' || c == u'\t' || c == u'\r' || c == u'\n');
  if (!blank && element.GetDataBinarySize() == 0) {
    out.Error(element, "the binary data is not base64 (it reads as no data)");
  }
}

// A payload of the kinds whose counts say how much follows: blended with
// itself, it declines exactly when a count does not fit its size, and the
// parameter's own value then stands in for it.
void CheckPayload(Findings& out, const CXMLObject& binary, unsigned int kind) {
  using Blend = std::optional<unsigned int> (*)(Bytes, Bytes, double, MutableBytes);
  const Blend blend = kind == BINARY_INTERPOLATION_SPLITGRAPH         ? BlendSplitGraph
                      : kind == BINARY_INTERPOLATION_GEOMETRYMASK     ? BlendGeometryMask
                      : kind == BINARY_INTERPOLATION_MASKMULTIPOLYGON ? BlendMaskMultiPolygon
                                                                      : nullptr;
  const std::uint64_t size = binary.GetDataBinarySize();
  if (kind == BINARY_INTERPOLATION_COLORWHEEL && size != 0 && size != kColorWheelBytes) {
    out.Warning(binary, "a ColorWheel payload of " + std::to_string(size) + " bytes, not " +
                            std::to_string(kColorWheelBytes));
  }
  if (!blend || size == 0) return;
  std::vector<unsigned char> bytes(size), blended(size);
  binary.GetDataBinary(bytes.data(), size);
  if (!blend(bytes, bytes, 1.0, blended)) {
    out.Error(binary, "the payload's counts do not fit its " + std::to_string(size) + " bytes");
  }
}

// ---------------------------------------------------------------------------
// 3. Keyframes and parameters
// ---------------------------------------------------------------------------

unsigned int TypeOf(const CXMLObject& parameter) {
  const CZPoolString text = parameter.FindAttribute(kType);
  if (!text) return PARAM_DOUBLE;
  for (const tagXMLFLAGMAP& entry : kTypeNames) {
    if (entry.name.view() == text.view()) return entry.value;
  }
  return PARAM_UNDEFINED;
}

// A value attribute of a parameter or keyframe of `type`.
void CheckValue(Findings& out, const CXMLObject& element, const CZPoolString& attribute,
                unsigned int type) {
  double real = 0;
  long long whole = 0;
  if (type == PARAM_DOUBLE) CheckReal(out, element, attribute, real);
  if (type == PARAM_LONG) CheckWhole(out, element, attribute, whole);
  if (type == PARAM_BOOL) CheckBool(out, element, attribute);
}

// A keyframe's time: a number, then nothing, "%", "s" or "fs".
struct KeyTime {
  bool known = false;
  unsigned int qualifier = 0;  // 0 relative, 1 absolute, 2 fixed absolute
  double value = 0;
};

// The number and unit of a time that is not a plain number; false after
// an error.
bool ReadKeyTime(Findings& out, const CXMLObject& key, const std::string& narrow, KeyTime& time) {
  const auto quoted = [&narrow] { return Quoted(kPosition, narrow); };
  std::string_view rest;
  switch (ReadReal(narrow, time.value, rest)) {
    case NumberText::kNone:
      out.Error(key, quoted() + " is not a time");
      return false;
    case NumberText::kNotFinite:
    case NumberText::kRange:
      out.Error(key, quoted() + " is not a finite time");
      return false;
    default:
      break;
  }
  if (rest == "%") {
    time.value /= 100.0;
  } else if (rest == "s") {
    time.qualifier = 1;
  } else if (rest == "fs") {
    time.qualifier = 2;
  } else if (!rest.empty()) {
    out.Warning(key, quoted() + " ends in an unknown unit (read as a fraction of the clip)");
  }
  return true;
}

KeyTime CheckKeyTime(Findings& out, const CXMLObject& key) {
  const CZPoolString text = key.FindAttribute(kPosition);
  if (!text) return {};
  KeyTime time;
  if (const std::optional<double> plain = ReadPlainDecimal(text.view())) {
    time.value = *plain;
  } else if (!ReadKeyTime(out, key, out.Narrowed(text.view()), time)) {
    return {};
  }
  const auto quoted = [&text] { return Quoted(kPosition, Narrow(text.view())); };
  time.known = true;
  if (time.qualifier == 0 && (time.value < 0.0 || time.value > 1.0)) {
    out.Warning(key, quoted() + " lies beyond the clip");
  }
  return time;
}

// A Bezier keyframe's first anchor is its outgoing handle, a time offset
// from it; the second is the incoming handle, an offset from the next
// keyframe. A Spline keyframe's anchors are points between the two. Either
// way each must fall inside the segment, which can be told when both of its
// ends are fractions of the clip.
void CheckAnchors(Findings& out, const CXMLObject& key, const KeyTime& from, const KeyTime& to) {
  if (!key.FindNextElement(kAnchor, nullptr)) return;  // most keyframes have none
  const bool bezier = key.AttributeEquals(kInterpolation, std::u16string_view(u"Bezier"));
  const bool spline = key.AttributeEquals(kInterpolation, std::u16string_view(u"Spline"));
  const bool placed = from.known && to.known && from.qualifier == 0 && to.qualifier == 0;
  unsigned int index = 0;
  for (const CXMLObject* anchor = key.FindNextElement(kAnchor, nullptr); anchor;
       anchor = key.FindNextElement(kAnchor, anchor), ++index) {
    double position = 0, value = 0;
    const bool read = CheckReal(out, *anchor, kPosition, position);
    CheckReal(out, *anchor, kValue, value);
    if (!read || !placed || !(bezier || spline) || (bezier && index > 1)) continue;
    const double at = !bezier ? position : (index == 0 ? from.value : to.value) + position;
    if (at < from.value || at > to.value)
      out.Warning(*anchor, "the anchor lies outside its segment");
  }
}

unsigned int PayloadKind(const CXMLObject& parameter) {
  const CZPoolString text = parameter.FindAttribute(kBinaryInterpolationType);
  for (const tagXMLFLAGMAP& entry : kBinaryInterpolationNames) {
    if (text && entry.name.view() == text.view()) return entry.value;
  }
  return BINARY_INTERPOLATION_NONE;
}

void CheckBinary(Findings& out, const CXMLObject& holder, unsigned int kind) {
  const CXMLObject* binary = holder.FindNextElement(kBinary, nullptr);
  if (!binary) return;
  CheckBase64(out, *binary);
  CheckPayload(out, *binary, kind);
}

void CheckKeyframes(Findings& out, const CXMLObject& parameter, unsigned int type) {
  const unsigned int payload = PayloadKind(parameter);
  unsigned int children = 0;
  parameter.GetElements(children);
  std::vector<const CXMLObject*> keys;
  std::vector<KeyTime> times;
  keys.reserve(children);  // one allocation each, not one per doubling
  times.reserve(children);
  for (const CXMLObject* key = parameter.FindNextElement(kKeyframe, nullptr); key;
       key = parameter.FindNextElement(kKeyframe, key)) {
    const KeyTime time = CheckKeyTime(out, *key);
    // Times of one kind and side compare directly; others only on a clip.
    const KeyTime* previous = times.empty() ? nullptr : &times.back();
    if (previous && time.known && previous->known && time.qualifier == previous->qualifier &&
        (time.value < 0) == (previous->value < 0) && time.value < previous->value) {
      out.Warning(*key, "the keyframe comes before the one above it in time");
    }
    CheckValue(out, *key, kValue, type);
    CheckNames(out, *key, kInterpolation, kKeyframeInterpolationNames, false,
               CheckSeverity::kWarning);
    CheckNames(out, *key, kTimeTranslation, kTimeTranslationNames, true, CheckSeverity::kWarning);
    CheckBinary(out, *key, payload);
    keys.push_back(key);
    times.push_back(time);
  }
  for (std::size_t i = 0; i < keys.size(); ++i) {
    CheckAnchors(out, *keys[i], times[i], i + 1 < keys.size() ? times[i + 1] : KeyTime{});
  }
}

// Granularity steps the value: zero, negative or too fine to count in.
void CheckGranularity(Findings& out, const CXMLObject& parameter) {
  double step = 0;
  if (!CheckReal(out, parameter, kGranularity, step)) return;
  if (step <= 0.0) {
    out.Warning(parameter, "granularity is not above 0");
  } else if (!std::isnormal(step)) {
    out.Warning(parameter, "granularity is too small to step by");
  }
}

void CheckLimits(Findings& out, const CXMLObject& parameter, unsigned int type) {
  if (type == PARAM_LONG) {
    long long low = 0, high = 0;
    const bool hasLow = CheckWhole(out, parameter, kMin, low);
    if (CheckWhole(out, parameter, kMax, high) && hasLow && low > high)
      out.Warning(parameter, "min is above max");
    return;
  }
  if (type != PARAM_DOUBLE) return;
  double low = 0, high = 0;
  const bool hasLow = CheckReal(out, parameter, kMin, low);
  if (CheckReal(out, parameter, kMax, high) && hasLow && low > high)
    out.Warning(parameter, "min is above max");
}

void CheckParameter(Findings& out, const CXMLObject& parameter) {
  const unsigned int type = TypeOf(parameter);
  if (type == PARAM_UNDEFINED) {
    out.Error(parameter, "unknown type \"" + Narrow(parameter.FindAttribute(kType).view()) + "\"");
  }
  long long id = 0;
  if (CheckWhole(out, parameter, kId, id) && id < 0) {
    out.Error(parameter, "a negative id: no set keeps the parameter");
  }
  CheckValue(out, parameter, kValue, type);
  CheckValue(out, parameter, kInactive, type);
  CheckLimits(out, parameter, type);
  CheckGranularity(out, parameter);
  CheckBool(out, parameter, kActive);
  CheckBool(out, parameter, kUseKeyframe);
  CheckNames(out, parameter, kInterpolation, kInterpolationNames, true, CheckSeverity::kWarning);
  for (const CZPoolString& end : {kExtrapolateBefore, kExtrapolateAfter}) {
    CheckNames(out, parameter, end, kExtrapolationNames, false, CheckSeverity::kWarning);
  }
  CheckNames(out, parameter, kBinaryInterpolationType, kBinaryInterpolationNames, false,
             CheckSeverity::kWarning);
  CheckBinary(out, parameter, PayloadKind(parameter));
  CheckKeyframes(out, parameter, type);
}

// ---------------------------------------------------------------------------
// 4. Sets and their rules
// ---------------------------------------------------------------------------

// Rules name parameters by id; conditions nest, so they are walked from a
// stack rather than by recursion.
void CheckRules(Findings& out, const CXMLObject& validation,
                const std::unordered_map<std::u16string_view, int>& ids) {
  static const tagXMLFLAGMAP kRelations[] = {{0, Pooled(u"Equal")},   {0, Pooled(u"NotEqual")},
                                             {0, Pooled(u"Smaller")}, {0, Pooled(u"SmallerEqual")},
                                             {0, Pooled(u"Greater")}, {0, Pooled(u"GreaterEqual")},
                                             {0, Pooled(u"True")}};
  std::vector<const CXMLObject*> pending{&validation};
  while (!pending.empty()) {
    const CXMLObject& rule = *pending.back();
    pending.pop_back();
    const bool isCondition = rule.IsName(kCondition);
    if (isCondition || rule.IsName(kAction)) {
      // Read as a number, looked up by its decimal text, as the rules do.
      const std::string id =
          std::to_string(static_cast<std::int32_t>(rule.FindAttributeInt(kId, -1)));
      if (!ids.contains(std::u16string(id.begin(), id.end()))) {
        out.Warning(rule, "names no parameter of the set");
      }
    }
    if (isCondition) CheckNames(out, rule, kRelation, kRelations, false, CheckSeverity::kWarning);
    unsigned int count = 0;
    const CXMLObject* children = rule.GetElements(count);
    for (unsigned int i = count; i > 0; --i) pending.push_back(&children[i - 1]);
  }
}

void CheckSet(Findings& out, const CXMLObject& set) {
  CheckNames(out, set, kAlpha, kAlphaNames, false, CheckSeverity::kWarning);
  // The texts are viewed where the set's elements hold them, unchanged
  // while they are checked.
  std::unordered_map<std::u16string_view, int> ids, names;
  unsigned int children = 0;
  set.GetElements(children);
  ids.reserve(children);  // sets of many thousand parameters: no rehashing on the way
  for (const CXMLObject* parameter = set.FindNextElement(kParameter, nullptr); parameter;
       parameter = set.FindNextElement(kParameter, parameter)) {
    const CZPoolString id = parameter->FindAttribute(kId);
    if (id && ++ids[id.view()] == 2)
      out.Error(*parameter, "another parameter above has the same id");
    const CZPoolString name =
        out.WantsWarnings() ? parameter->FindAttribute(kName) : CZPoolString();
    if (name && ++names[name.view()] == 2)
      out.Warning(*parameter, "another parameter above has the same name");
  }
  for (const CXMLObject* validation = set.FindNextElement(kValidation, nullptr); validation;
       validation = set.FindNextElement(kValidation, validation)) {
    CheckRules(out, *validation, ids);
  }
}

// ---------------------------------------------------------------------------
// 5. The walk
// ---------------------------------------------------------------------------

// Every element once, in document order, from a stack: sets and parameters
// may sit anywhere (a host property, a preset, a nested property tree).
std::vector<CheckFinding> CheckTree(const CXMLDoc& doc, bool errorsOnly = false) {
  Findings out(doc, errorsOnly);
  std::vector<const CXMLObject*> pending{&doc.GetContentElement()};
  while (!pending.empty()) {
    const CXMLObject& element = *pending.back();
    pending.pop_back();
    const CZPoolString name = element.GetName();  // looked at once: most are keyframes
    if (name == kProperty) CheckSet(out, element);
    if (name == kParameter) CheckParameter(out, element);
    if (name == kValueElement) {
      long long id = 0;
      CheckWhole(out, element, kId, id);
    }
    unsigned int count = 0;
    const CXMLObject* children = element.GetElements(count);
    for (unsigned int i = count; i > 0; --i) pending.push_back(&children[i - 1]);
  }
  for (const CXMLDoc::Reference& reference : doc.GetUnresolvedReferences()) {
    out.AddAt(CheckSeverity::kWarning, reference.line, reference.column,
              "&" + reference.name + "; is no declared entity: it is kept as literal text");
  }
  // Sets report after their parameters' own findings: put all in text order,
  // keeping the order of findings at one place.
  std::vector<CheckFinding> found = out.Take();
  std::vector<std::size_t> order(found.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&found](std::size_t a, std::size_t b) {
    const CheckFinding& x = found[a];
    const CheckFinding& y = found[b];
    if (x.line != y.line) return x.line < y.line;
    return x.column != y.column ? x.column < y.column : a < b;
  });
  std::vector<CheckFinding> findings;
  findings.reserve(found.size());
  for (const std::size_t i : order) findings.push_back(std::move(found[i]));
  return findings;
}

std::vector<CheckFinding> Failure(const CXMLDoc& doc) {
  const CXMLDoc::Failure& failure = doc.GetLastFailure();
  CheckFinding finding;
  finding.severity = CheckSeverity::kError;
  finding.line = failure.line;
  finding.column = failure.column;
  finding.message = failure.message.empty() ? "cannot be read" : failure.message;
  return {finding};
}

// Out of memory as the one finding, when even that fits.
std::vector<CheckFinding> OutOfMemory() noexcept {
  try {
    return {CheckFinding{CheckSeverity::kError, 0, 0, "out of memory"}};
  } catch (...) {
    return {};
  }
}

}  // namespace

// Nothing escapes: out of memory is one more finding.
template <typename Open>
std::vector<CheckFinding> Check(Open open) noexcept {
  try {
    CXMLDoc doc;
    doc.KeepPositions(true);
    if (open(doc) != CXMLDoc::kOk) return Failure(doc);
    return CheckTree(doc);
  } catch (...) {
    return OutOfMemory();
  }
}

std::vector<CheckFinding> CheckReadDocument(const CXMLDoc& doc, bool errorsOnly) noexcept {
  try {
    return CheckTree(doc, errorsOnly);
  } catch (...) {
    return OutOfMemory();
  }
}

std::vector<CheckFinding> CheckParamDocument(std::string_view utf8) {
  return Check([utf8](CXMLDoc& doc) { return doc.OpenDocMemory(utf8); });
}

std::vector<CheckFinding> CheckParamFile(const wchar* path) {
  return Check([path](CXMLDoc& doc) { return doc.OpenDocFile(path); });
}

bool HasCheckErrors(const std::vector<CheckFinding>& findings) noexcept {
  for (const CheckFinding& finding : findings) {
    if (finding.severity == CheckSeverity::kError) return true;
  }
  return false;
}

}  // namespace qdcore
