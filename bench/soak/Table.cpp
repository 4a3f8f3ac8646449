#include "Table.hpp"

#include <iomanip>
#include <vector>

namespace soak {

namespace {

constexpr long memoryGrowth = 256;  // MiB; allocators keep what threads have used once
constexpr long threadGrowth = 12;   // a pool grows with what waits, and shrinks later
constexpr long descriptorGrowth = 8;

struct Row {
  const char* name;
  std::uint64_t Verdict::*count;
  bool mustBeZero = false;
};

const std::vector<Row> rows{
    {"messages sent", &Verdict::sent},
    {"  right", &Verdict::right},
    {"  wrong", &Verdict::wrong, true},
    {"  out of order", &Verdict::disordered, true},
    {"  twice", &Verdict::twice, true},
    {"  twice, for a receiver was killed or cut off", &Verdict::twiceAllowed},
    {"  lost and reported", &Verdict::lostReported},
    {"  lost, their sender was killed", &Verdict::lostByKill},
    {"  lost, their receiver had ended", &Verdict::lostWithReceiver},
    {"  lost, their sender ended in an outage", &Verdict::lostUnseen},
    {"  lost and NOT reported", &Verdict::lostUnreported, true},
    {"requests answered", &Verdict::answered},
    {"  failed", &Verdict::failed},
    {"  answered wrongly", &Verdict::misanswered, true},
    {"  that did not end", &Verdict::hanging, true},
};

struct Growth {
  const char* name;
  long Footprint::*value;
  long most;
};

const std::vector<Growth> growths{
    {"memory of the long-lived process, MiB", &Footprint::residentMiB, memoryGrowth},
    {"threads", &Footprint::threads, threadGrowth},
    {"descriptors", &Footprint::descriptors, descriptorGrowth},
};

constexpr int nameWidth = 46;
constexpr int width = 14;

}  // namespace

bool Table::print(std::ostream& out) const {
  bool held = true;
  out << std::left << std::setw(nameWidth) << "" << std::right;
  for (const char* name : transportNames) out << std::setw(width) << name;
  out << "\n";
  for (const Row& row : rows) {
    out << std::left << std::setw(nameWidth) << row.name << std::right;
    for (const Column& column : columns) {
      const std::uint64_t count = column.verdict.*row.count;
      out << std::setw(width) << count;
      held = held && (count == 0 || !row.mustBeZero);
    }
    out << (row.mustBeZero ? "  must be 0\n" : "\n");
  }
  for (const Growth& growth : growths) {
    out << std::left << std::setw(nameWidth) << growth.name << std::right;
    for (const Column& column : columns) {
      out << std::setw(width)
          << std::to_string(column.warm.*growth.value) + " > " + std::to_string(column.last.*growth.value);
      held = held && (slowness > 1 || column.last.*growth.value <= column.warm.*growth.value + growth.most);
    }
    out << "  may grow by " << growth.most << (slowness > 1 ? " where no sanitizer runs\n" : "\n");
  }
  for (const Column& column : columns) {
    held = held && column.verdict.right > 0 && column.verdict.answered > 0;
    for (const auto& complaint : column.verdict.complaints) out << complaint << "\n";
  }
  return held;
}

}  // namespace soak
