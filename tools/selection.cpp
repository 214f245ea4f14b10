#include "selection.h"

#include <algorithm>

#include "failure.h"
#include "names.h"
#include "textformat.h"

namespace qdtool {

using namespace qdcore;

namespace {

std::vector<const CParam*> AllParams(const CParamSet& set) {
  std::vector<const CParam*> params;
  for (const CParam* param = set.FindNextParam(nullptr); param; param = set.FindNextParam(param)) {
    params.push_back(param);
  }
  return params;
}

std::string ListOf(const std::vector<const CParam*>& params, bool ids) {
  std::string list;
  for (const CParam* param : params) {
    if (!list.empty()) list += ", ";
    list += ids ? std::to_string(param->GetID()) : ParamLabel(*param);
  }
  return list.empty() ? "(none)" : list;
}

bool HasName(const CParam& param, const std::string& name) { return Utf8(param.GetName()) == name; }

}  // namespace

std::string ParamLabel(const CParam& param) {
  const std::string name = OneLine(Utf8(param.GetName()));
  return name.empty() ? std::string("#").append(std::to_string(param.GetID())) : name;
}

std::vector<const CParam*> SelectParams(const CParamSet& set, const Selection& selection) {
  const std::vector<const CParam*> all = AllParams(set);
  if (selection.names.empty() && selection.ids.empty()) return all;
  for (const std::string& name : selection.names) {
    if (std::none_of(all.begin(), all.end(), [&](const CParam* p) { return HasName(*p, name); })) {
      throw Failure("no parameter named \"" + name + "\"; the names are: " + ListOf(all, false));
    }
  }
  for (const long id : selection.ids) {
    if (std::none_of(all.begin(), all.end(), [&](const CParam* p) { return p->GetID() == id; })) {
      throw Failure("no parameter with id " + std::to_string(id) +
                    "; the ids are: " + ListOf(all, true));
    }
  }
  std::vector<const CParam*> chosen;
  for (const CParam* param : all) {
    const bool named = std::any_of(selection.names.begin(), selection.names.end(),
                                   [&](const std::string& name) { return HasName(*param, name); });
    const bool numbered = std::find(selection.ids.begin(), selection.ids.end(), param->GetID()) !=
                          selection.ids.end();
    if (named || numbered) chosen.push_back(param);
  }
  return chosen;
}

}  // namespace qdtool
