#pragma once

#include <array>
#include <ostream>

#include "Accounts.hpp"
#include "Children.hpp"

namespace soak {

/// What is printed in the end, and what of it must hold.
struct Table {
  struct Column {
    Verdict verdict{};
    Footprint first{};
    Footprint most{};
    Footprint last{};
  };
  std::array<Column, transportNames.size()> columns{};  ///< in the order of the transports

  /// Whether everything is 0 that must be, and nothing has grown beyond its bound.
  bool print(std::ostream& out) const;

 private:
  bool printCounts(std::ostream& out) const;
  bool printFootprints(std::ostream& out) const;
  void printReported(std::ostream& out) const;
};

}  // namespace soak
