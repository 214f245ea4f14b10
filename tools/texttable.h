// Columns aligned for a terminal: a header, a rule under it, then the rows.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qdtool {

class TextTable {
 public:
  void AddColumn(std::string title, bool rightAligned);
  // Missing cells print empty, extra ones are dropped.
  void AddRow(std::vector<std::string> cells);
  // Every line starts with `indent`; cells keep to one line.
  std::string Render(std::string_view indent = "") const;

 private:
  struct Column {
    std::string title;
    bool rightAligned;
  };
  std::string Line(std::string_view indent, const std::vector<std::string>& cells,
                   const std::vector<std::size_t>& widths) const;
  std::vector<Column> m_columns;
  std::vector<std::vector<std::string>> m_rows;
};

}  // namespace qdtool
