// qdparam show: what each parameter is made of.
#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "document.h"
#include "names.h"
#include "payloads.h"
#include "qdparam/keyframe.h"
#include "qdparam/types.h"
#include "selection.h"
#include "textformat.h"
#include "texttable.h"
#include "timeline.h"
#include "values.h"

namespace qdtool {

using namespace qdcore;

namespace {

// ---- values read through the library's typed getters

std::string Text(double v) { return TidyNumber(v); }
std::string Text(long v) { return std::to_string(v); }
std::string Text(bool v) { return v ? "true" : "false"; }
std::string Text(const CZPoolString& v) { return Quoted(OneLine(Utf8(v))); }
std::string Text(const CXMLObject&) { return "a nested property"; }

// What the getter reads from `object`, or `none` when it finds nothing.
template <typename T, typename Object>
std::string Read(const Object& object, bool (Object::*get)(T&) const, const char* none) {
  T value{};  // the getters read it as their default: never leave it undefined
  return (object.*get)(value) ? Text(value) : none;
}

std::string StaticValue(const CParam& param) {
  switch (param.GetType()) {
    case PARAM_DOUBLE:
      return Read<double>(param, &CParam::GetValueDouble, "none");
    case PARAM_LONG:
      return Read<long>(param, &CParam::GetValueLong, "none");
    case PARAM_BOOL:
      return Read<bool>(param, &CParam::GetValueBool, "none");
    case PARAM_STRING:
      return Read<CZPoolString>(param, &CParam::GetValueString, "none");
    case PARAM_SUBPROP:
      return Read<CXMLObject>(param, &CParam::GetValueProperty, "none");
    case PARAM_BINARY: {
      const auto read = [&](unsigned char* b, unsigned int n) {
        return param.GetValueBinary(b, n, 0);
      };
      return ValueText(ReadBytes(read), 0);
    }
    default:
      return "none";
  }
}

// Empty when the parameter has none.
std::string InactiveValue(const CParam& param) {
  switch (param.GetType()) {
    case PARAM_DOUBLE:
      return Read<double>(param, &CParam::GetInactiveValueDouble, "");
    case PARAM_LONG:
      return Read<long>(param, &CParam::GetInactiveValueLong, "");
    case PARAM_BOOL:
      return Read<bool>(param, &CParam::GetInactiveValueBool, "");
    case PARAM_STRING:
      return Read<CZPoolString>(param, &CParam::GetInactiveValueString, "");
    default:
      return "";
  }
}

std::string KeyFrameValue(const CKeyFrame& kf) {
  switch (kf.m_Type) {
    case PARAM_DOUBLE:
      return Read<double>(kf, &CKeyFrame::GetValueDouble, "none");
    case PARAM_LONG:
      return Read<long>(kf, &CKeyFrame::GetValueLong, "none");
    case PARAM_BOOL:
      return Read<bool>(kf, &CKeyFrame::GetValueBool, "none");
    case PARAM_STRING:
      return Read<CZPoolString>(kf, &CKeyFrame::GetValueString, "none");
    case PARAM_BINARY: {
      const auto read = [&](unsigned char* b, unsigned int n) {
        return kf.GetValueBinary(b, n, 0);
      };
      return ValueText(ReadBytes(read), 0);
    }
    default:
      return "-";
  }
}

// ---- the lines of one parameter

// "min 0, max 100, granularity 0.5", leaving out what the parameter lacks.
template <typename T>
std::string Limits(const CParam& param, bool (CParam::*min)(T&) const,
                   bool (CParam::*max)(T&) const, bool (CParam::*granularity)(T&) const) {
  std::string text;
  for (const auto& [name, get] :
       {std::pair{"min ", min}, {"max ", max}, {"granularity ", granularity}}) {
    const std::string value = Read<T>(param, get, "");
    if (value.empty()) continue;
    if (!text.empty()) text += ", ";
    text += name + value;
  }
  return text.empty() ? "none" : text;
}

std::string Limits(const CParam& param) {
  if (param.GetType() == PARAM_DOUBLE) {
    return Limits<double>(param, &CParam::GetMinValueDouble, &CParam::GetMaxValueDouble,
                          &CParam::GetGranularityDouble);
  }
  return Limits<long>(param, &CParam::GetMinValueLong, &CParam::GetMaxValueLong,
                      &CParam::GetGranularityLong);
}

std::string Heading(const CParam& param) {
  std::string heading = ParamLabel(param) + "  (id " + std::to_string(param.GetID()) + ", " +
                        TypeName(param.GetType());
  if (param.GetType() == PARAM_BINARY)
    heading += ", " + BinaryKindName(param.GetBinaryInterpolationType());
  const std::string unit = Utf8(param.GetValue(Pooled(u"unit")));
  if (!unit.empty()) heading += ", in " + unit;
  return heading + ")";
}

std::string Activity(const CParam& param) {
  bool inactive = false;
  const std::string status = param.GetInactiveStatus(inactive) && inactive ? "inactive" : "active";
  const std::string value = InactiveValue(param);
  return value.empty() ? status : status + ", inactive value " + value;
}

// ", extrapolated Oscillate before, Cycle after", naming the ends that do not hold.
std::string Extrapolations(const CParam& param) {
  std::string text;
  for (const auto& [code, end] : {std::pair{param.GetExtrapolationBefore(), " before"},
                                  {param.GetExtrapolationAfter(), " after"}}) {
    if (code == EXTRAPOLATION_HOLD) continue;
    text += (text.empty() ? ", extrapolated " : ", ") +
            std::string(qd::name_of(static_cast<qd::Extrapolation>(code))) + end;
  }
  if (!text.empty() && param.GetTimeTranslation() == TIMETRANSLATION_EASEINOUT) {
    text += " (held: the ease covers the clip alone)";
  }
  return text;
}

std::string KeyFrameSummary(const CParam& param) {
  const unsigned int count = param.GetSize();
  const std::string counted = std::to_string(count) + (count == 1 ? " keyframe" : " keyframes");
  if (!param.GetKeyFrameStatus()) {
    return count ? counted + ", unused: the parameter is not keyframed" : "not keyframed";
  }
  std::string summary =
      counted + ", allowed " + InterpolationNames(param.GetAllowedInterpolation());
  if (param.GetTimeTranslation() == TIMETRANSLATION_EASEINOUT) summary += ", eased as a whole";
  return summary + Extrapolations(param);
}

std::string AnchorCount(const CKeyFrame& keyFrame) {
  unsigned int count = 0;
  keyFrame.GetAnchors(nullptr, 0, count);
  return count ? std::to_string(count) : "";
}

// In time order, each with the index it is stored at.
std::string KeyFrameTable(const qd::Param& handle) {
  const CParam& param = *handle.native();
  TextTable table;
  table.AddColumn("#", true);
  table.AddColumn("time (s)", true);
  table.AddColumn("written", false);
  table.AddColumn("value", false);
  table.AddColumn("interpolation", false);
  table.AddColumn("easing", false);
  table.AddColumn("anchors", true);
  for (const qd::Keyframe& key : handle.keys()) {
    const CKeyFrame& kf = *param.Get(key.index);
    table.AddRow({std::to_string(key.index), FixedNumber(key.time, 2), key.position,
                  Shorten(KeyFrameValue(kf), 40), InterpolationName(kf.GetInterpolation()),
                  EasingName(kf.GetTimeTranslation()), AnchorCount(kf)});
  }
  return table.Render("      ");
}

// Evaluation walks keyframes in stored order: one stored out of time order
// is easy to miss and changes the curve.
bool StoredInTimeOrder(const qd::Param& handle) {
  const std::vector<qd::Keyframe> keys = handle.keys();
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (keys[i].index != i) return false;
  }
  return true;
}

// Tone curves and colour wheels in words: the value, then each keyframe's.
void PrintPayloads(const qd::Param& handle) {
  const CParam& param = *handle.native();
  const unsigned int kind = param.GetBinaryInterpolationType();
  const auto words = DescribePayload(kind, ReadAllBytes([&](unsigned char* b, unsigned int n) {
                                       return param.GetValueBinary(b, n, 0);
                                     }));
  if (words.empty() && param.GetSize() == 0) return;
  if (!words.empty()) std::printf("  payload    %s\n", words.c_str());
  for (const qd::Keyframe& key : handle.keys()) {
    const CKeyFrame& kf = *param.Get(key.index);
    const std::string keyWords = DescribePayload(
        kind,
        ReadAllBytes([&](unsigned char* b, unsigned int n) { return kf.GetValueBinary(b, n, 0); }));
    if (keyWords.empty()) continue;
    std::printf("  #%-9u %s s: %s\n", key.index, TidyNumber(key.time).c_str(), keyWords.c_str());
  }
}

void PrintParam(const qd::Param& handle) {
  const CParam& param = *handle.native();
  std::printf("%s\n", Heading(param).c_str());
  const bool numbers = param.GetType() == PARAM_DOUBLE || param.GetType() == PARAM_LONG;
  if (numbers) std::printf("  limits     %s\n", Limits(param).c_str());
  std::printf("  value      %s\n", StaticValue(param).c_str());
  std::printf("  status     %s\n", Activity(param).c_str());
  if (const unsigned int alpha = param.GetAlphaHandling(); alpha != ALPHA_NONE) {
    std::printf("  alpha      %s\n", alpha == ALPHA_GENERATE ? "generate" : "remove");
  }
  std::printf("  keyframes  %s\n", KeyFrameSummary(param).c_str());
  if (param.GetSize() == 0) {
    if (param.GetType() == PARAM_BINARY) PrintPayloads(handle);
    return;
  }
  if (!StoredInTimeOrder(handle)) {
    std::printf("  warning    keyframes are stored out of time order (# is the stored index)\n");
  }
  std::fputs(KeyFrameTable(handle).c_str(), stdout);
  if (param.GetType() == PARAM_BINARY) PrintPayloads(handle);
}

}  // namespace

void Show(const ShowOptions& options) {
  CheckTimeLine(options.timeLine);
  Document document(options.file);
  PlaceOnClip(document.Api(), options.timeLine);
  const CParamSet& set = document.Set();
  const std::vector<const CParam*> params = SelectParams(set, options.selection);
  std::string heading = document.Name();
  const std::string title = Utf8(set.FindAttribute(Pooled(u"name")));
  if (!title.empty()) heading.append(" ").append(Quoted(OneLine(title)));
  std::printf("%s: %u parameters; keyframe times on a clip of %s s\n", heading.c_str(),
              set.GetSize(), TidyNumber(options.timeLine.duration).c_str());
  for (const CParam* param : params) {
    std::printf("\n");
    PrintParam(document.Handle(*param));
  }
}

}  // namespace qdtool
