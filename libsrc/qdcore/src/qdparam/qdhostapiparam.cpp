// The host API's parameter: its definition and its values on the set's
// clip. Values come from the same evaluation as the library's getters, with
// absolute keyframes scaled onto short clips (ClipFit).
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <new>
#include <numeric>

#include "qdformatnames.h"
#include "qdhostapi.h"
#include "qdparamevaluation.h"

namespace qd {

using namespace qdcore;
using namespace qdcore::names;
using detail::ClipFit;
using detail::ToPooled;
using detail::ToText;

// ---------------------------------------------------------------------------
// Names and rates
// ---------------------------------------------------------------------------

namespace {

// The format's spellings, made once from the library's own tables.
template <std::size_t N>
std::array<std::string, N> Spellings(std::span<const tagXMLFLAGMAP> table) {
  std::array<std::string, N> spelled;
  for (std::size_t i = 0; i < N && i < table.size(); ++i) spelled[i] = ToText(table[i].name);
  return spelled;
}

}  // namespace

std::string_view name_of(Type type) {
  static const auto names = Spellings<6>(kTypeNames);
  const auto i = static_cast<std::size_t>(type);
  return i < names.size() ? std::string_view(names[i]) : std::string_view("Undefined");
}

std::string_view name_of(Interpolation interpolation) {
  static const auto names = Spellings<6>(kKeyframeInterpolationNames);
  const auto i = static_cast<std::size_t>(interpolation);
  return i < names.size() ? std::string_view(names[i]) : std::string_view();
}

std::string_view name_of(Extrapolation extrapolation) {
  static const auto names = Spellings<5>(kExtrapolationNames);
  const auto i = static_cast<std::size_t>(extrapolation);
  return i < names.size() ? std::string_view(names[i]) : std::string_view();
}

std::string_view name_of(Ease ease) {
  static const auto names = Spellings<5>(kTimeTranslationNames);
  const auto bits = static_cast<unsigned int>(ease);
  if (bits == 0) return "None";
  if (!std::has_single_bit(bits) || bits > static_cast<unsigned int>(Ease::Out)) return {};
  return names[static_cast<std::size_t>(std::countr_zero(bits)) + 1];
}

namespace {

// A positive decimal number as an exact fraction: "29.97" is 2997/100.
bool ExactFraction(std::string_view text, std::int64_t& numerator, std::int64_t& denominator) {
  constexpr std::size_t kMostDigits = 15;  // all of them exact in a double
  numerator = 0;
  denominator = 1;
  bool point = false;
  std::size_t digits = 0;
  for (const char c : text) {
    if (c == '.' && !point) {
      point = true;
      continue;
    }
    if (c < '0' || c > '9' || ++digits > kMostDigits) return false;
    numerator = numerator * 10 + (c - '0');
    if (point) denominator *= 10;
  }
  return digits > 0 && numerator > 0;
}

}  // namespace

Result<Rate> Rate::parse(std::string_view text) {
  Rate rate{0, 1};
  const std::size_t slash = text.find('/');
  std::int64_t below = 1, belowScale = 1;
  const bool ok = slash == std::string_view::npos
                      ? ExactFraction(text, rate.numerator, rate.denominator)
                      : ExactFraction(text.substr(0, slash), rate.numerator, rate.denominator) &&
                            ExactFraction(text.substr(slash + 1), below, belowScale) &&
                            !__builtin_mul_overflow(rate.denominator, below, &rate.denominator) &&
                            !__builtin_mul_overflow(rate.numerator, belowScale, &rate.numerator);
  if (!ok) {
    std::string message(text);
    message +=
        " is no frame rate: write a positive number or a fraction, as 25, 29.97 or "
        "30000/1001";
    return detail::Failure(std::move(message));
  }
  const std::int64_t common = std::gcd(rate.numerator, rate.denominator);
  return Rate{rate.numerator / common, rate.denominator / common};
}

double Rate::frame_time(std::int64_t frame) const noexcept {
  if (numerator <= 0 || denominator <= 0) return std::numeric_limits<double>::quiet_NaN();
  std::int64_t ticks = 0;
  if (__builtin_mul_overflow(frame, denominator, &ticks)) {
    return static_cast<double>(frame) * static_cast<double>(denominator) /
           static_cast<double>(numerator);
  }
  return static_cast<double>(ticks) / static_cast<double>(numerator);
}

// ---------------------------------------------------------------------------
// Definition
// ---------------------------------------------------------------------------

Param::Param(std::shared_ptr<detail::SetState> state, CParam* param)
    : m_state(std::move(state)), m_param(param), m_generation(m_state->generation) {}

CParam* Param::Resolve() const {
  return m_state && m_state->generation == m_generation ? m_param : nullptr;
}

bool Param::valid() const { return Resolve() != nullptr; }
const CParam* Param::native() const { return Resolve(); }

std::string Param::name() const {
  const CParam* p = Resolve();
  return p ? ToText(p->GetName()) : std::string();
}

long Param::id() const {
  const CParam* p = Resolve();
  return p ? p->GetID() : -1;
}

Type Param::type() const {
  const CParam* p = Resolve();
  const unsigned int code = p ? p->GetType() : PARAM_UNDEFINED;
  return code >= PARAM_DOUBLE && code <= PARAM_SUBPROP ? static_cast<Type>(code - PARAM_DOUBLE)
                                                       : Type::Undefined;
}

bool Param::keyframed() const {
  const CParam* p = Resolve();
  return p && p->GetKeyFrameStatus();
}

bool Param::active() const {
  const CParam* p = Resolve();
  bool inactive = false;
  return p && !(p->GetInactiveStatus(inactive) && inactive);
}

namespace {

std::optional<double> NumberAttribute(const CParam* p, const CZPoolString& name) {
  double v = 0.0;
  if (!p || !p->HasAttribute(name) || !p->GetValueDouble(name, v)) return std::nullopt;
  return v;
}

bool IsNumeric(const CParam* p) {
  if (!p) return false;
  const unsigned int type = p->GetType();
  return type == PARAM_DOUBLE || type == PARAM_LONG || type == PARAM_BOOL;
}

}  // namespace

std::optional<double> Param::min() const { return NumberAttribute(Resolve(), kMin); }
std::optional<double> Param::max() const { return NumberAttribute(Resolve(), kMax); }
std::optional<double> Param::granularity() const {
  return NumberAttribute(Resolve(), kGranularity);
}
std::string Param::unit() const { return attribute("unit"); }

std::string Param::attribute(std::string_view name) const {
  const CParam* p = Resolve();
  CZPoolString pooled;
  if (!p || name.empty() || !ToPooled(name, pooled)) return {};
  return ToText(p->FindAttribute(pooled));
}

// ---------------------------------------------------------------------------
// Values
// ---------------------------------------------------------------------------

std::optional<double> Param::value(double time) const {
  const CParam* p = Resolve();
  if (!IsNumeric(p)) return std::nullopt;
  const CParamSet& set = m_state->set;
  return ParamEvaluation::Double(*p, time - set.GetStartTime(), set.GetDuration(), ClipFit(*p),
                                 0.0);
}

std::optional<double> Param::slope(double time) const {
  const CParam* p = Resolve();
  if (!IsNumeric(p)) return std::nullopt;
  const CParamSet& set = m_state->set;
  return ParamEvaluation::Slope(*p, time - set.GetStartTime(), set.GetDuration(), ClipFit(*p));
}

std::optional<std::string> Param::text(double time) const {
  const CParam* p = Resolve();
  if (!p || p->GetType() != PARAM_STRING) return std::nullopt;
  const CParamSet& set = m_state->set;
  return ToText(ParamEvaluation::String(*p, time - set.GetStartTime(), set.GetDuration(),
                                        ClipFit(*p), CZPoolString()));
}

std::optional<double> Param::integral(double time) const {
  const CParam* p = Resolve();
  if (!p || p->GetType() != PARAM_DOUBLE) return std::nullopt;
  const CParamSet& set = m_state->set;
  return ParamEvaluation::Integral(*p, time - set.GetStartTime(), set.GetDuration(), ClipFit(*p));
}

bool Param::values(double start, double step, std::span<double> out) const {
  const CParam* p = Resolve();
  if (!IsNumeric(p)) return false;
  const CParamSet& set = m_state->set;
  ParamEvaluation::ArrayDouble(*p, set.GetDuration(), ClipFit(*p), start - set.GetStartTime(), step,
                               out.data(), out.size());
  return true;
}

namespace {

// Times on the set's time line, moved onto the parameter's clip a block at
// a time so that a million of them need no second array.
template <typename TimeOf>
void SampleInBlocks(const CParam& p, const CParamSet& set, std::size_t count, TimeOf timeOf,
                    double* out) {
  constexpr std::size_t kBlock = 256;
  std::array<double, kBlock> times;
  const double start = set.GetStartTime();
  const mtime fit = ClipFit(p);
  for (std::size_t done = 0; done < count; done += kBlock) {
    const std::size_t n = std::min(kBlock, count - done);
    for (std::size_t i = 0; i < n; ++i) times[i] = timeOf(done + i) - start;
    ParamEvaluation::AtTimes(p, set.GetDuration(), fit, times.data(), out + done, n);
  }
}

}  // namespace

bool Param::values(std::span<const double> times, std::span<double> out) const {
  const CParam* p = Resolve();
  if (!IsNumeric(p) || out.size() < times.size()) return false;
  SampleInBlocks(
      *p, m_state->set, times.size(), [&](std::size_t i) { return times[i]; }, out.data());
  return true;
}

bool Param::frames(Rate rate, std::int64_t first, std::span<double> out) const {
  const CParam* p = Resolve();
  if (!IsNumeric(p) || rate.numerator <= 0 || rate.denominator <= 0) return false;
  std::int64_t last = 0;  // the last frame must be a number too
  if (__builtin_add_overflow(first, static_cast<std::int64_t>(out.size()), &last)) return false;
  SampleInBlocks(
      *p, m_state->set, out.size(),
      [&](std::size_t i) { return rate.frame_time(first + static_cast<std::int64_t>(i)); },
      out.data());
  return true;
}

}  // namespace qd

// ---------------------------------------------------------------------------
// Where the value reaches a target
// ---------------------------------------------------------------------------

namespace qd {

std::vector<double> Param::find_all(double target, std::optional<double> after,
                                    std::size_t limit) const {
  const CParam* p = Resolve();
  if (!p || limit == 0) return {};
  const CParamSet& set = m_state->set;
  const double start = set.GetStartTime();
  struct Found {
    std::vector<double> times;
    std::size_t limit;
    double start;
  } found{{}, limit, start};
  const auto take = [](void* context, double time) {
    auto* f = static_cast<Found*>(context);
    f->times.push_back(time + f->start);
    return f->times.size() < f->limit;
  };
  const double from = after ? *after - start : 0.0;
  try {
    ParamEvaluation::Crossings(*p, target, set.GetDuration(), ClipFit(*p), from, take, &found);
  } catch (const std::bad_alloc&) {
    return {};
  }
  return std::move(found.times);
}

std::optional<double> Param::find(double target, std::optional<double> after) const {
  const std::vector<double> first = find_all(target, after, 1);
  if (first.empty()) return std::nullopt;
  return first.front();
}

}  // namespace qd
