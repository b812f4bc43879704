// A reader for the pipe tables of Markdown, enough for the document of
// expected results: a header row, a delimiter row, body rows.
#include "end_to_end/expected_results.h"

#include <fstream>
#include <sstream>

namespace testing_support {
namespace {

std::string trim(const std::string& text) {
  const char* blanks = " \t\r";
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return "";
  const size_t last = text.find_last_not_of(blanks);
  return text.substr(first, last - first + 1);
}

// The cells of "| a | b |": a pipe inside backticks belongs to the cell.
std::vector<std::string> splitRow(const std::string& line) {
  std::vector<std::string> cells;
  std::string text = trim(line);
  if (!text.empty() && text.front() == '|') text.erase(0, 1);
  if (!text.empty() && text.back() == '|') text.pop_back();
  std::string current;
  bool inCode = false;
  for (char c : text) {
    if (c == '`') inCode = !inCode;
    if (c == '|' && !inCode) {
      cells.push_back(current);
      current.clear();
    } else {
      current += c;
    }
  }
  cells.push_back(current);
  return cells;
}

std::string cellText(const std::string& raw) {
  std::string text = trim(raw);
  std::string plain;
  for (char c : text) {
    if (c != '`') plain += c;
  }
  plain = trim(plain);
  if (plain == "-" || plain == "\xE2\x80\x94") return "";
  return plain;
}

bool isDelimiterRow(const std::string& line) {
  const std::string text = trim(line);
  if (text.empty() || text.front() != '|') return false;
  return text.find_first_not_of("|-: ") == std::string::npos && text.find('-') != std::string::npos;
}

bool isTableLine(const std::string& line) {
  const std::string text = trim(line);
  return !text.empty() && text.front() == '|';
}

}  // namespace

std::string TableRow::cell(const std::string& column) const {
  auto it = cells.find(column);
  return it == cells.end() ? "" : it->second;
}

std::vector<Table> readTables(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);

  std::vector<Table> tables;
  std::string heading;
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string line = trim(lines[i]);
    if (!line.empty() && line.front() == '#') {
      heading = trim(line.substr(line.find_first_not_of('#')));
      continue;
    }
    if (!isTableLine(line) || i + 1 >= lines.size() || !isDelimiterRow(lines[i + 1])) continue;
    Table table;
    table.heading = heading;
    for (const std::string& cell : splitRow(line)) table.columns.push_back(cellText(cell));
    i += 2;
    for (; i < lines.size() && isTableLine(lines[i]); ++i) {
      TableRow row;
      row.line = static_cast<int>(i + 1);
      const std::vector<std::string> cells = splitRow(lines[i]);
      for (size_t c = 0; c < cells.size() && c < table.columns.size(); ++c) {
        row.cells[table.columns[c]] = cellText(cells[c]);
      }
      if (cells.size() != table.columns.size()) row.cells["(cell count)"] = std::to_string(cells.size());
      table.rows.push_back(row);
    }
    tables.push_back(table);
  }
  return tables;
}

std::vector<Table> readTablesFromFile(const std::string& path) {
  std::ifstream file(path);
  if (!file) return {};
  std::stringstream text;
  text << file.rdbuf();
  return readTables(text.str());
}

const Table* findTable(const std::vector<Table>& tables, const std::string& heading) {
  for (const Table& table : tables) {
    if (table.heading.compare(0, heading.size(), heading) == 0) return &table;
  }
  return nullptr;
}

bool leadingNumber(const std::string& cell, uint64_t* value) {
  size_t i = 0;
  uint64_t number = 0;
  while (i < cell.size() && cell[i] >= '0' && cell[i] <= '9' && i < 19) {
    number = number * 10 + static_cast<uint64_t>(cell[i] - '0');
    ++i;
  }
  if (i == 0) return false;
  *value = number;
  return true;
}

std::string parenthesised(const std::string& cell) {
  const size_t open = cell.find('(');
  const size_t close = cell.find(')', open == std::string::npos ? 0 : open);
  if (open == std::string::npos || close == std::string::npos) return "";
  return trim(cell.substr(open + 1, close - open - 1));
}

std::vector<std::string> words(const std::string& cell) {
  std::vector<std::string> out;
  std::string current;
  for (char c : cell) {
    if (c == ' ' || c == ',' || c == '\t') {
      if (!current.empty()) out.push_back(current);
      current.clear();
    } else {
      current += c;
    }
  }
  if (!current.empty()) out.push_back(current);
  return out;
}

}  // namespace testing_support
