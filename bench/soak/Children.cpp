#include "Children.hpp"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace soak {

Child::Child(Assignment assignment)
    : _assignment(std::move(assignment)), _journal(_assignment.folder, _assignment.process), _pid(::fork()) {
  if (_pid < 0) throw std::runtime_error("fork failed");
  if (_pid == 0) become();
}

void Child::become() const {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  sigset_t orders;  // that may come before the new program can take them
  sigemptyset(&orders);
  for (const int order : {SIGTERM, SIGUSR1, SIGUSR2, SIGINT}) sigaddset(&orders, order);
  ::sigprocmask(SIG_BLOCK, &orders, nullptr);
  const int output = ::open(log().c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
  std::vector<std::string> words = _assignment.arguments();
  words.insert(words.begin(), {"soak", "--worker"});
  std::vector<char*> arguments;
  for (auto& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  ::execv("/proc/self/exe", arguments.data());
  ::_exit(127);
}

Child::~Child() {
  if (!ended()) kill();
}

std::filesystem::path Child::log() const {
  return _assignment.folder / ("log-" + std::to_string(_assignment.process));
}

void Child::signal(int signal) const {
  if (!_status) ::kill(_pid, signal);
}

void Child::kill() {
  if (ended()) return;
  _killed = true;
  ::kill(_pid, SIGKILL);
  int status = 0;
  if (::waitpid(_pid, &status, 0) == _pid) _status = status;
}

bool Child::ended() {
  int status = 0;
  if (!_status && ::waitpid(_pid, &status, WNOHANG) == _pid) _status = status;
  return _status.has_value();
}

std::string Child::complaint() const {
  if (_killed || !_status || *_status == 0) return {};
  std::ostringstream text;
  text << "process " << _assignment.process << " ("
       << transportNames[static_cast<std::size_t>(_assignment.transport)] << ") "
       << (WIFSIGNALED(*_status) ? "was ended by signal " : "ended with code ")
       << (WIFSIGNALED(*_status) ? WTERMSIG(*_status) : WEXITSTATUS(*_status)) << "; its log:\n";
  std::ifstream in(log());
  const std::string all{std::istreambuf_iterator<char>(in), {}};
  const auto report = all.find("==================");  // where a sanitizer's begins
  constexpr std::size_t most = 6'000;
  text << all.substr(report != std::string::npos ? report : all.size() - std::min(all.size(), most), most);
  return text.str();
}

std::optional<Footprint> Child::footprint() const {
  const std::filesystem::path folder = "/proc/" + std::to_string(_pid);
  Footprint result;
  std::ifstream in(folder / "status");
  for (std::string word; in >> word;) {
    if (word == "VmRSS:" && in >> result.residentMiB) result.residentMiB /= 1024;
    if (word == "Threads:") in >> result.threads;
  }
  std::error_code gone;
  const std::filesystem::directory_iterator entries(folder / "fd", gone);
  if (gone || result.threads == 0) return std::nullopt;
  result.descriptors = std::distance(begin(entries), end(entries));
  return result;
}

}  // namespace soak
