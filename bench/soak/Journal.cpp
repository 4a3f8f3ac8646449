#include "Journal.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <utility>

namespace soak {

namespace {

constexpr std::size_t recordsOfPart = 100'000;

}  // namespace

Journal::Journal(std::filesystem::path folder, std::uint32_t process)
    : _folder(std::move(folder)), _process(process) {
  const std::lock_guard lock(_mutex);
  openNext();
}

Journal::~Journal() {
  ::close(_file);
}

std::filesystem::path Journal::fileOf(const std::filesystem::path& folder, std::uint32_t process, int part) {
  return folder / ("journal-" + std::to_string(process) + "-" + std::to_string(part));
}

void Journal::openNext() {
  if (_file >= 0) ::close(_file);
  const auto file = fileOf(_folder, _process, ++_part);
  _file = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (_file < 0) throw std::runtime_error("the journal " + file.string() + " cannot be written");
  _records = 0;
}

void Journal::write(Record record) {
  const std::lock_guard lock(_mutex);
  record.time = now();
  if (_records++ >= recordsOfPart) openNext();
  if (::write(_file, &record, sizeof record) != sizeof record)
    throw std::runtime_error("the journal is full");
}

JournalReader::JournalReader(std::filesystem::path folder, std::uint32_t process)
    : _folder(std::move(folder)), _process(process) {}

std::vector<Record> JournalReader::read() {
  std::vector<Record> records;
  for (;;) {
    // Asked first: once the next part is there, nothing more comes to this one.
    const bool complete = std::filesystem::exists(Journal::fileOf(_folder, _process, _part + 1));
    if (!readPart(records) || !complete) return records;
    std::filesystem::remove(Journal::fileOf(_folder, _process, _part));
    ++_part;
    _taken = 0;
  }
}

bool JournalReader::readPart(std::vector<Record>& records) {
  std::ifstream in(Journal::fileOf(_folder, _process, _part), std::ios::binary);
  if (!in.seekg(static_cast<std::streamoff>(_taken * sizeof(Record)))) return false;
  for (Record record{}; in.read(reinterpret_cast<char*>(&record), sizeof record); ++_taken) {
    records.push_back(record);
  }
  return true;
}

}  // namespace soak
