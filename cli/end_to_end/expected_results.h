// Reads the tables of docs/EXPECTED-RESULTS.md, so that the end-to-end test
// checks exactly what the document promises and the two cannot drift apart.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace testing_support {

// One row: cell text by column name, with surrounding blanks and backticks
// taken off and a dash ("-" or an em dash) read as empty.
struct TableRow {
  std::map<std::string, std::string> cells;
  int line = 0;  // in the file, for messages
  std::string cell(const std::string& column) const;
};

// A Markdown table and the heading it stands under.
struct Table {
  std::string heading;
  std::vector<std::string> columns;
  std::vector<TableRow> rows;
};

// All tables of a Markdown text. Rows whose cell count differs from the
// header's are kept with the cells they have, so a check can name them.
std::vector<Table> readTables(const std::string& text);
// The file's tables; an unreadable file gives none.
std::vector<Table> readTablesFromFile(const std::string& path);
// The first table whose heading starts with `heading`, or null.
const Table* findTable(const std::vector<Table>& tables, const std::string& heading);

// The leading decimal number of a cell such as "0 (hdd0)"; false when the
// cell does not start with one.
bool leadingNumber(const std::string& cell, uint64_t* value);
// The text in parentheses of "0 (hdd0)", or "".
std::string parenthesised(const std::string& cell);
// Words separated by blanks or commas.
std::vector<std::string> words(const std::string& cell);

}  // namespace testing_support
