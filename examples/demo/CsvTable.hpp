#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// A table of numbers as a CSV file holds it: one line of column names, then one line a row.
struct CsvTable {
  std::vector<std::string> columns;
  std::vector<double> values;  ///< column by column

  [[nodiscard]] std::size_t rows() const { return values.size() / columns.size(); }

  /// Throws std::runtime_error, with the line's number, for a file that is no such table.
  [[nodiscard]] static CsvTable read(const std::string& path);
};
