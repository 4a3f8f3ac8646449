#include "Table.hpp"

#include <iomanip>
#include <vector>

namespace soak {

namespace {

// By 480 at most it had grown after a minute's traffic on a busy machine; what is kept for the next payloads
// has a bound, whatever the time.
constexpr long memoryGrowth = 640;  // MiB
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
    {"  failed in an outage", &Verdict::failedInOutage},
    {"  failed, their messenger had gone", &Verdict::failedWithMessenger},
    {"  failed and reported", &Verdict::failedReported},
    {"  failed and NOT reported", &Verdict::failedUnreported, true},
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
constexpr int width = 16;

void printName(std::ostream& out, const char* name) {
  out << std::left << std::setw(nameWidth) << name << std::right;
}

}  // namespace

bool Table::print(std::ostream& out) const {
  printName(out, "");
  for (const char* name : transportNames) out << std::setw(width) << name;
  out << "\n";
  bool held = printCounts(out);
  held = printFootprints(out) && held;
  printReported(out);
  for (const Column& column : columns) {
    held = held && column.verdict.right > 0 && column.verdict.answered > 0;
    for (const auto& complaint : column.verdict.complaints) out << complaint << "\n";
  }
  return held;
}

bool Table::printCounts(std::ostream& out) const {
  bool held = true;
  for (const Row& row : rows) {
    printName(out, row.name);
    bool good = true;
    for (const Column& column : columns) {
      const std::uint64_t count = column.verdict.*row.count;
      out << std::setw(width) << count;
      good = good && (count == 0 || !row.mustBeZero);
    }
    out << (row.mustBeZero ? "  must be 0" : "") << (good ? "\n" : "  <<<\n");
    held = held && good;
  }
  return held;
}

bool Table::printFootprints(std::ostream& out) const {
  bool held = true;
  for (const Growth& growth : growths) {
    printName(out, growth.name);
    bool good = true;
    for (const Column& column : columns) {
      const auto at = [&](const Footprint& footprint) { return std::to_string(footprint.*growth.value); };
      out << std::setw(width) << at(column.first) + " " + at(column.most) + " " + at(column.last);
      good = good && (slowness > 1 || column.last.*growth.value <= column.first.*growth.value + growth.most);
    }
    out << "  at first, at most, when idle again; may grow by " << growth.most
        << (slowness > 1 ? " where no sanitizer runs" : "") << (good ? "\n" : "  <<<\n");
    held = held && good;
  }
  return held;
}

void Table::printReported(std::ostream& out) const {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (columns[i].verdict.reportedOn.empty()) continue;
    out << "lost and reported, " << transportNames[i] << ":";
    for (const auto& [lane, of] : columns[i].verdict.reportedOn) {
      out << " " << laneNames[static_cast<std::size_t>(lane)] << " " << of.arrays << " (of " << of.pieces
          << " pieces; " << of.refused << " refused, " << of.givenUp << " given up, " << of.lost << " lost)";
    }
    out << "\n";
  }
}

}  // namespace soak
