#include "texttable.h"

#include <algorithm>

#include "textformat.h"

namespace qdtool {

void TextTable::AddColumn(std::string title, bool rightAligned) {
  m_columns.push_back({OneLine(title), rightAligned});
}

void TextTable::AddRow(std::vector<std::string> cells) {
  cells.resize(m_columns.size());
  for (std::string& cell : cells) cell = OneLine(cell);
  m_rows.push_back(std::move(cells));
}

std::string TextTable::Render(std::string_view indent) const {
  std::vector<std::size_t> widths;
  std::vector<std::string> titles;
  std::vector<std::string> rules;
  for (std::size_t c = 0; c < m_columns.size(); ++c) {
    std::size_t width = DisplayWidth(m_columns[c].title);
    for (const auto& row : m_rows) width = std::max(width, DisplayWidth(row[c]));
    widths.push_back(width);
    titles.push_back(m_columns[c].title);
    rules.push_back(std::string(width, '-'));
  }
  std::string text = Line(indent, titles, widths) + Line(indent, rules, widths);
  for (const auto& row : m_rows) text += Line(indent, row, widths);
  return text;
}

std::string TextTable::Line(std::string_view indent, const std::vector<std::string>& cells,
                            const std::vector<std::size_t>& widths) const {
  std::string line(indent);
  for (std::size_t c = 0; c < cells.size(); ++c) {
    const std::string padding(widths[c] - std::min(widths[c], DisplayWidth(cells[c])), ' ');
    if (c > 0) line += "  ";
    line += m_columns[c].rightAligned ? padding + cells[c] : cells[c] + padding;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line + "\n";
}

}  // namespace qdtool
