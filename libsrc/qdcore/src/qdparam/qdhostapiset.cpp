// The host API's set: loading, storing, the clip, lookups, presets,
// validation and snapshots.
#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <future>
#include <system_error>
#include <utility>

#include "qdcheckread.h"
#include "qdcore/file.h"
#include "qdformatnames.h"
#include "qdhostapi.h"
#include "qdkeys.h"
#include "qdparam/check.h"
#include "qdparam/paramutil.h"
#include "qdparam/validator.h"
#include "qdparamevaluation.h"

namespace qd {

using namespace qdcore;
using namespace qdcore::names;

namespace detail {

bool ToPooled(std::string_view text, CZPoolString& out) {
  std::u16string wide;
  if (!FromUtf8(text, wide)) return false;
  out = CStringPool::GetStringRef(std::u16string_view(wide));
  return true;
}

std::string ToText(const CZPoolString& text) { return ToUtf8(text.view()); }

Error Failure(std::string message, unsigned int line, unsigned int column) {
  return Error(std::move(message), line, column);
}

mtime ClipFit(const CParam& param) { return ScaleOntoClip(param.GetMinDuration()); }

}  // namespace detail

using detail::Failure;
using detail::SetState;
using detail::ToPooled;
using detail::ToText;

std::string Error::describe() const {
  std::string text = file;
  if (line != 0) {
    if (!text.empty()) text += ':';
    text += std::to_string(line);
    text += ':';
    text += std::to_string(column);
  }
  if (!text.empty()) text += ": ";
  text += message;
  return text;
}

namespace {

// The set is the document element, or a "Property" right inside it (as a
// host property wraps it).
const CXMLObject* FindProperty(const CXMLObject& root) {
  if (root.IsName(kProperty)) return &root;
  return root.FindNextElement(kProperty, nullptr);
}

// Names the first "Parameter" the set refused, and why.
std::string WhyNotLoaded(const CXMLObject& property) {
  unsigned int position = 0;
  for (const CXMLObject* child = property.FindNextElement(kParameter, nullptr); child;
       child = property.FindNextElement(kParameter, child)) {
    ++position;
    CParam param;
    const bool loaded = param.Load(*child);
    const std::string name = ToText(child->FindAttribute(kName));
    const std::string which =
        "parameter " + std::to_string(position) + (name.empty() ? "" : " (\"" + name + "\")");
    if (!child->HasAttribute(kId)) return which + " has no id";
    if (!loaded) return which + " cannot be loaded: a keyframe does not match its type";
    if (param.GetID() < 0) return which + " has a negative id";
  }
  return "its parameters cannot be loaded";
}

// A document's failure in words, with the reader's place for it.
Error DocumentFailure(const CXMLDoc& doc, int result) {
  const CXMLDoc::Failure& failure = doc.GetLastFailure();
  std::string reason = failure.message;  // the reader's words, as "Error parsing …"
  if (!reason.empty()) reason[0] = static_cast<char>(std::tolower(reason[0]));
  std::string message;
  switch (result) {
    case CXMLDoc::kCannotOpen:
      message = "cannot be read: " + reason;
      break;
    case CXMLDoc::kMalformed:
      message = "not well-formed XML: " + reason;
      break;
    case CXMLDoc::kNotUtf8:
      message = "not UTF-8 text";
      break;
    case CXMLDoc::kNoElement:
      message = "the document holds no element";
      break;
    default:
      message = reason;
      break;
  }
  return Failure(std::move(message), failure.line, failure.column);
}

// A set is refused for the first finding that cannot mean anything (an
// unknown type, a number that is none), with its place: never half loaded.
// `findings` holds at least one error.
Error FirstError(const std::vector<CheckFinding>& findings) {
  const auto error = std::find_if(findings.begin(), findings.end(), [](const CheckFinding& f) {
    return f.severity == CheckSeverity::kError;
  });
  return Failure(error->message, error->line, error->column);
}

Result<std::shared_ptr<SetState>> FromDocument(const CXMLDoc& doc) {
  const CXMLObject* property = FindProperty(doc.GetContentElement());
  if (!property) {
    return Failure("no parameter set: the document element is <" +
                       ToText(doc.GetContentElement().GetName()) + ">, not <Property>",
                   1, 1);
  }
  auto state = std::make_shared<SetState>();
  if (!state->set.Load(*property)) return Failure(WhyNotLoaded(*property));
  if (const CXMLObject* rules = property->FindNextElement(kValidation, nullptr)) {
    state->validation = *rules;
  }
  return state;
}

// Below this size a second thread costs more than the check it takes over.
constexpr std::size_t kCheckAsideBytes = std::size_t{1} << 20;

// The errors of the document read, checked without reading it again (a load
// hears of errors only). Set loading and the check only read the tree, so for
// a big document the check runs on a second thread meanwhile (inline when no
// thread can be had). Only an error, which fails the load and must say where,
// reads the text once more to place the findings (`placed`); should that
// reading find none (a file changed meanwhile), the unplaced ones stand.
template <typename Placed>
Result<std::shared_ptr<SetState>> LoadedAndChecked(const CXMLDoc& doc, std::size_t size,
                                                   Placed placed) {
  std::future<std::vector<CheckFinding>> aside;
  if (size >= kCheckAsideBytes) {
    try {
      aside = std::async(std::launch::async, [&doc] { return CheckReadDocument(doc, true); });
    } catch (const std::system_error&) {
    }
  }
  auto state = FromDocument(doc);
  if (!state) return state;  // a pending check is waited for as `aside` goes
  const std::vector<CheckFinding> findings =
      aside.valid() ? aside.get() : CheckReadDocument(doc, true);
  if (!HasCheckErrors(findings)) return state;
  const std::vector<CheckFinding> withPlaces = placed();
  return FirstError(HasCheckErrors(withPlaces) ? withPlaces : findings);
}

CXMLObject Stored(const SetState& state) {
  CXMLObject out;
  state.set.Store(out);
  if (state.validation) out.Add(state.validation);
  return out;
}

}  // namespace

Set::Set() : m_state(std::make_shared<SetState>()) {}
Set::Set(std::shared_ptr<SetState> state) : m_state(std::move(state)) {}

Result<Set> Set::load(std::string_view path) {
  Result<Set> set = [&]() -> Result<Set> {
    std::u16string widePath;
    if (!FromUtf8(path, widePath)) return Failure("the file name is not UTF-8");
    CXMLDoc doc;
    const int result = doc.OpenDocFile(widePath.c_str());
    if (result != CXMLDoc::kOk) return DocumentFailure(doc, result);
    const auto placed = [&widePath] { return CheckParamFile(widePath.c_str()); };
    std::error_code unknown;
    const std::uintmax_t size = std::filesystem::file_size(std::filesystem::path(path), unknown);
    auto state = LoadedAndChecked(doc, unknown ? 0 : static_cast<std::size_t>(size), placed);
    if (!state) return state.error();
    return Set(std::move(*state));
  }();
  if (!set) {
    Error error = set.error();
    error.file = std::string(path);
    return error;
  }
  return set;
}

Result<Set> Set::parse(std::string_view xml) {
  CXMLDoc doc;
  if (const int result = doc.OpenDocMemory(xml); result != CXMLDoc::kOk) {
    return DocumentFailure(doc, result);
  }
  const auto placed = [xml] { return CheckParamDocument(xml); };
  auto state = LoadedAndChecked(doc, xml.size(), placed);
  if (!state) return state.error();
  return Set(std::move(*state));
}

std::string Set::to_xml() const {
  CXMLMemOut out(1);
  out.Open();
  out.Write(Stored(*m_state));
  out.Close();
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + ToUtf8(out.View()) + "\n";
}

Status Set::store(std::string_view path) const {
  std::u16string widePath;
  if (path.empty() || !FromUtf8(path, widePath))
    return Failure("the file name is empty or not UTF-8");
  const std::string text = to_xml();
  errno = 0;
  if (!QF_WriteFileAtomic(widePath.c_str(), text.data(), text.size())) {
    Error error(std::string("cannot write the set") +
                (errno ? std::string(": ") + std::strerror(errno) : std::string()));
    error.file = std::string(path);
    return error;
  }
  return {};
}

double Set::start() const { return m_state->set.GetStartTime(); }
double Set::duration() const { return m_state->set.GetDuration(); }

void Set::set_clip(double start, double duration) {
  if (!std::isfinite(start) || !std::isfinite(duration) || duration <= 0.0) return;
  m_state->set.SetStartTime(start);
  m_state->set.SetDuration(duration);
}

std::optional<Param> Set::param(std::string_view name) const {
  CZPoolString pooled;
  if (name.empty() || !ToPooled(name, pooled)) return std::nullopt;
  const CParam* found = std::as_const(m_state->set).Get(pooled);
  if (!found) return std::nullopt;
  return Param(m_state, const_cast<CParam*>(found));
}

std::optional<Param> Set::param_by_id(long id) const {
  if (id < 0) return std::nullopt;
  const CParam* found = std::as_const(m_state->set).Get(static_cast<unsigned long>(id));
  if (!found) return std::nullopt;
  return Param(m_state, const_cast<CParam*>(found));
}

std::vector<Param> Set::params() const {
  std::vector<Param> all;
  const CParamSet& set = m_state->set;
  for (const CParam* p = set.FindNextParam(nullptr); p; p = set.FindNextParam(p)) {
    all.push_back(Param(m_state, const_cast<CParam*>(p)));
  }
  return all;
}

std::string Set::preset() const {
  CXMLObject preset;
  m_state->set.CreatePreset(preset);
  CXMLMemOut out(1);
  out.Open();
  out.Write(preset);
  out.Close();
  return ToUtf8(out.View()) + "\n";
}

// The update runs on a copy: a failed one empties the set it runs on.
Status Set::apply(std::string_view xml) {
  CXMLDoc doc;
  if (const int result = doc.OpenDocMemory(xml); result != CXMLDoc::kOk) {
    return DocumentFailure(doc, result);
  }
  CParamSet updated(m_state->set);
  updated.Realloc();
  if (!updated.Update(doc.GetContentElement(), false)) {
    return Failure("the preset does not fit the set: a value does not match its parameter");
  }
  m_state->set = std::move(updated);
  ++m_state->generation;
  return {};
}

Result<bool> Set::validate() {
  if (!m_state->validation) return false;
  const CValidator rules(m_state->validation);
  bool changed = false;
  if (!rules.Validate(&m_state->set, changed)) return Failure("a validation rule failed");
  return changed;
}

bool Set::path(std::span<const Param> params, double time, std::span<double> out) const {
  if (params.empty() || params.size() > CParamUtil::kMaxPathParams || out.size() < params.size()) {
    return false;
  }
  std::array<const CParam*, CParamUtil::kMaxPathParams> objects{};
  for (std::size_t i = 0; i < params.size(); ++i) {
    // Only this set's own parameters: a path runs on one clip.
    if (params[i].m_state != m_state || !(objects[i] = params[i].native())) return false;
  }
  return InterpolateParamsPath(m_state->set, objects.data(),
                               static_cast<unsigned int>(params.size()), time, out.data());
}

Set Set::snapshot() const {
  auto copy = std::make_shared<SetState>(*m_state);
  return Set(std::move(copy));
}

const CParamSet& Set::native() const { return m_state->set; }

}  // namespace qd
