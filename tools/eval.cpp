// qdparam eval: the parameters' values at evenly spaced times.
#include <algorithm>
#include <cstdio>
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
  std::vector<double> times;
  std::vector<const CParam*> params;
  std::vector<std::vector<Value>> rows;  // one per time, one value per parameter
};

Samples Sample(const Document& document, std::vector<const CParam*> params,
               std::vector<double> times) {
  Samples samples{std::move(times), std::move(params), {}};
  samples.rows.reserve(samples.times.size());
  for (const double time : samples.times) {
    std::vector<Value> row;
    row.reserve(samples.params.size());
    for (const CParam* param : samples.params) {
      row.push_back(ValueAt(document.Api(), document.Handle(*param), time));
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
  TextTable table;
  table.AddColumn("time (s)", true);
  for (std::size_t i = 0; i < samples.params.size(); ++i) {
    table.AddColumn(ParamLabel(*samples.params[i]), IsNumberColumn(samples, i));
  }
  const int timeDecimals = ColumnDecimals(samples.times);
  const std::vector<int> decimals = ValueDecimals(samples);
  for (std::size_t row = 0; row < samples.times.size(); ++row) {
    std::vector<std::string> cells{FixedNumber(samples.times[row], timeDecimals)};
    for (std::size_t i = 0; i < samples.params.size(); ++i) {
      cells.push_back(Shorten(ValueText(samples.rows[row][i], decimals[i]), kWidestTableText));
    }
    table.AddRow(std::move(cells));
  }
  std::fputs(table.Render().c_str(), stdout);
}

// ---- csv

void PrintCsv(const Samples& samples) {
  std::string header = "time";
  for (const CParam* param : samples.params) {
    header += ',';
    header += CsvField(ParamLabel(*param));
  }
  std::printf("%s\n", header.c_str());
  for (std::size_t row = 0; row < samples.times.size(); ++row) {
    std::string line = ShortestNumber(samples.times[row]);
    for (const Value& value : samples.rows[row]) {
      line += ',';
      line += CsvField(ValueTextExact(value));
    }
    std::printf("%s\n", line.c_str());
  }
}

// ---- json

void PrintJson(const Samples& samples, const Document& document, const TimeLine& timeLine) {
  std::printf("{\n  \"file\": %s,\n  \"start\": %s,\n  \"duration\": %s,\n  \"parameters\": [",
              JsonString(document.Path()).c_str(), ShortestNumber(timeLine.start).c_str(),
              ShortestNumber(timeLine.duration).c_str());
  for (std::size_t i = 0; i < samples.params.size(); ++i) {
    const CParam& param = *samples.params[i];
    std::printf("%s\n    {\"id\": %ld, \"name\": %s, \"type\": %s}", i ? "," : "", param.GetID(),
                JsonString(Utf8(param.GetName())).c_str(),
                JsonString(TypeName(param.GetType())).c_str());
  }
  std::printf("\n  ],\n  \"samples\": [");
  for (std::size_t row = 0; row < samples.times.size(); ++row) {
    std::string values;
    for (const Value& value : samples.rows[row])
      values += (values.empty() ? "" : ", ") + ValueJson(value);
    std::printf("%s\n    {\"time\": %s, \"values\": [%s]}", row ? "," : "",
                ShortestNumber(samples.times[row]).c_str(), values.c_str());
  }
  std::printf("\n  ]\n}\n");
}

}  // namespace

void Eval(const EvalOptions& options) {
  CheckTimeLine(options.timeLine);
  Document document(options.file);
  PlaceOnClip(document.Api(), options.timeLine);
  const Samples samples = Sample(document, SelectParams(document.Set(), options.selection),
                                 SampleTimes(options.timeLine));
  if (options.format == "csv") return PrintCsv(samples);
  if (options.format == "json") return PrintJson(samples, document, options.timeLine);
  PrintTable(samples);
}

}  // namespace qdtool
