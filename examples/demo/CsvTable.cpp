#include "CsvTable.hpp"

#include <charconv>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

std::vector<std::string> split(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream in(line);
  for (std::string field; std::getline(in, field, ',');) fields.push_back(field);
  return fields;
}

double number(const std::string& field, const std::string& where) {
  double value = 0;
  const char* const end = field.data() + field.size();
  const auto [stop, error] = std::from_chars(field.data(), end, value);
  if (error != std::errc() || stop != end) {
    throw std::runtime_error(where + ": expected a number, but found \"" + field + "\"");
  }
  return value;
}

}  // namespace

CsvTable CsvTable::read(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line)) throw std::runtime_error(path + ": cannot be read, or is empty");
  CsvTable table{.columns = split(line), .values = {}};
  std::vector<std::vector<double>> columns(table.columns.size());
  for (std::size_t lineNumber = 2; std::getline(file, line); ++lineNumber) {
    const auto where = path + ", line " + std::to_string(lineNumber);
    const auto fields = split(line);
    if (fields.size() != columns.size()) {
      throw std::runtime_error(where + ": expected " + std::to_string(columns.size()) +
                               " fields, but found " + std::to_string(fields.size()));
    }
    for (std::size_t i = 0; i < fields.size(); ++i) columns[i].push_back(number(fields[i], where));
  }
  for (const auto& column : columns) table.values.insert(table.values.end(), column.begin(), column.end());
  if (table.values.empty()) throw std::runtime_error(path + ": holds no rows");
  return table;
}
