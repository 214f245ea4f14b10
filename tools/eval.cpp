// qdparam eval: the parameters' values at evenly spaced times.
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "document.h"
#include "names.h"
#include "selection.h"
#include "textformat.h"
#include "texttable.h"
#include "timeline.h"
#include "values.h"

namespace qdtool {

using namespace qdcore;

namespace {

// Decimals shown at most in a table; the machine formats show all of them.
constexpr int kTableDecimals = 3;
// Strings longer than this are cut in a table to keep rows on one line.
constexpr std::size_t kWidestTableText = 28;

struct Samples {
  Sampling at;
  std::vector<const CParam*> params;
  std::vector<std::vector<Value>> rows;  // one per time, one value per parameter
};

// A number parameter's slope; nothing for the other types.
Value SlopeAt(const qd::Param& param, double time) {
  const std::optional<double> slope = param.slope(time);
  return slope ? Value(*slope) : Value();
}

Samples Sample(const Document& document, std::vector<const CParam*> params, Sampling at,
               bool slope) {
  Samples samples{std::move(at), std::move(params), {}};
  samples.rows.reserve(samples.at.times.size());
  for (const double time : samples.at.times) {
    std::vector<Value> row;
    row.reserve(samples.params.size());
    for (const CParam* param : samples.params) {
      const qd::Param& handle = document.Handle(*param);
      row.push_back(slope ? SlopeAt(handle, time) : ValueAt(document.Api(), handle, time));
    }
    samples.rows.push_back(std::move(row));
  }
  return samples;
}

// ---- table

int ColumnDecimals(const std::vector<double>& numbers) {
  int decimals = 0;
  for (const double number : numbers) {
    decimals = std::max(decimals, DecimalsNeeded(number, kTableDecimals));
  }
  return decimals;
}

// Numbers line up on the right; anything else reads better from the left.
bool IsNumberColumn(const Samples& samples, std::size_t index) {
  return std::all_of(samples.rows.begin(), samples.rows.end(), [&](const std::vector<Value>& row) {
    return std::holds_alternative<double>(row[index]) || std::holds_alternative<long>(row[index]);
  });
}

std::vector<int> ValueDecimals(const Samples& samples) {
  std::vector<int> decimals;
  for (std::size_t index = 0; index < samples.params.size(); ++index) {
    std::vector<double> numbers;
    for (const auto& row : samples.rows) {
      if (const double* number = std::get_if<double>(&row[index])) numbers.push_back(*number);
    }
    decimals.push_back(ColumnDecimals(numbers));
  }
  return decimals;
}

void PrintTable(const Samples& samples) {
  const std::vector<double>& times = samples.at.times;
  const bool frames = !samples.at.frames.empty();
  TextTable table;
  if (frames) table.AddColumn("frame", true);
  table.AddColumn("time (s)", true);
  for (std::size_t i = 0; i < samples.params.size(); ++i) {
    table.AddColumn(ParamLabel(*samples.params[i]), IsNumberColumn(samples, i));
  }
  const int timeDecimals = ColumnDecimals(times);
  const std::vector<int> decimals = ValueDecimals(samples);
  for (std::size_t row = 0; row < times.size(); ++row) {
    std::vector<std::string> cells;
    if (frames) cells.push_back(std::to_string(samples.at.frames[row]));
    cells.push_back(FixedNumber(times[row], timeDecimals));
    for (std::size_t i = 0; i < samples.params.size(); ++i) {
      cells.push_back(Shorten(ValueText(samples.rows[row][i], decimals[i]), kWidestTableText));
    }
    table.AddRow(std::move(cells));
  }
  std::fputs(table.Render().c_str(), stdout);
}

// ---- csv

void PrintCsv(const Samples& samples) {
  const bool frames = !samples.at.frames.empty();
  std::string header = frames ? "frame,time" : "time";
  for (const CParam* param : samples.params) {
    header += ',';
    header += CsvField(ParamLabel(*param));
  }
  std::printf("%s\n", header.c_str());
  for (std::size_t row = 0; row < samples.at.times.size(); ++row) {
    std::string line = frames ? std::to_string(samples.at.frames[row]) + "," : "";
    line += ShortestNumber(samples.at.times[row]);
    for (const Value& value : samples.rows[row]) {
      line += ',';
      line += CsvField(ValueTextExact(value));
    }
    std::printf("%s\n", line.c_str());
  }
}

// ---- json

// Numbers as the shortest text that reads back as the same double.
nlohmann::ordered_json ValueJson(const Value& value) {
  struct {
    nlohmann::ordered_json operator()(std::monostate) const { return nullptr; }
    nlohmann::ordered_json operator()(double v) const { return v; }
    nlohmann::ordered_json operator()(long v) const { return v; }
    nlohmann::ordered_json operator()(bool v) const { return v; }
    nlohmann::ordered_json operator()(const std::string& v) const { return v; }
    nlohmann::ordered_json operator()(const Bytes& v) const {
      return {{"bytes", v.size}, {"head", Hex(v.head.data(), v.head.size())}};
    }
  } json;
  return std::visit(json, value);
}

// One line per parameter and per sample, so that the text reads and diffs
// well; each line written by the library.
void PrintJson(const Samples& samples, const Document& document, const TimeLine& timeLine) {
  const auto field = [](const char* name, const nlohmann::ordered_json& value) {
    return "  " + nlohmann::json(name).dump() + ": " + value.dump() + ",\n";
  };
  std::string out = "{\n" + field("file", document.Path()) + field("start", timeLine.start) +
                    field("duration", timeLine.duration);
  if (samples.at.rate) {
    const qd::Rate& rate = *samples.at.rate;
    out += field("fps", std::to_string(rate.numerator) + "/" + std::to_string(rate.denominator));
  }
  const auto list = [&](const char* name, const std::vector<nlohmann::ordered_json>& items) {
    out += "  " + nlohmann::json(name).dump() + ": [";
    for (std::size_t i = 0; i < items.size(); ++i) {
      out += (i ? ",\n    " : "\n    ") + items[i].dump();
    }
    out += "\n  ]";
  };
  std::vector<nlohmann::ordered_json> params;
  for (const CParam* param : samples.params) {
    params.push_back({{"id", param->GetID()},
                      {"name", Utf8(param->GetName())},
                      {"type", TypeName(param->GetType())}});
  }
  list("parameters", params);
  out += ",\n";
  std::vector<nlohmann::ordered_json> rows;
  for (std::size_t row = 0; row < samples.at.times.size(); ++row) {
    nlohmann::ordered_json sample;
    if (!samples.at.frames.empty()) sample["frame"] = samples.at.frames[row];
    sample["time"] = samples.at.times[row];
    sample["values"] = nlohmann::ordered_json::array();
    for (const Value& value : samples.rows[row]) sample["values"].push_back(ValueJson(value));
    rows.push_back(std::move(sample));
  }
  list("samples", rows);
  out += "\n}\n";
  std::fputs(out.c_str(), stdout);
}

}  // namespace

void Eval(const EvalOptions& options) {
  CheckTimeLine(options.timeLine);
  Document document(options.file);
  PlaceOnClip(document.Api(), options.timeLine);
  const Samples samples = Sample(document, SelectParams(document.Set(), options.selection),
                                 SampleTimes(options.timeLine), options.slope);
  if (options.format == "csv") return PrintCsv(samples);
  if (options.format == "json") return PrintJson(samples, document, options.timeLine);
  PrintTable(samples);
}

}  // namespace qdtool
