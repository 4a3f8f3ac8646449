#include "NatsServer.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "../Eventually.hpp"
#include "Loopback.hpp"

namespace kestrel::streams {

namespace {

constexpr std::chrono::seconds startPatience{20};

std::string findServer() {
  std::stringstream path(std::string(std::getenv("PATH") != nullptr ? std::getenv("PATH") : "") +
                         ":/usr/sbin:/usr/local/sbin");
  for (std::string folder; std::getline(path, folder, ':');) {
    const std::string file = folder + "/nats-server";
    if (::access(file.c_str(), X_OK) == 0) return file;
  }
  return {};
}

std::string readFile(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

std::string NatsServer::unavailable() {
  return findServer().empty() ? "no nats-server is installed; scripts/test installs one" : "";
}

NatsServer::NatsServer(Options given) : options(std::move(given)) {
  std::string folder = (std::filesystem::temp_directory_path() / "kestrel-nats-XXXXXX").string();
  if (::mkdtemp(folder.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  _directory = folder;
  start();
}

NatsServer::~NatsServer() {
  kill();
  std::error_code ignored;
  std::filesystem::remove_all(_directory, ignored);
}

void NatsServer::start() {
  writeConfiguration();
  spawn();
  if (_port < 0) readPort();
  if (!becomesTrue([this] { return listens(); }, startPatience)) {
    throw std::runtime_error("the server did not listen in time:\n" + log());
  }
}

void NatsServer::writeConfiguration() {
  std::ofstream out(_directory / "server.conf");
  out << "listen: 127.0.0.1:" << _port << "\nports_file_dir: '" << _directory.string() << "'\nlogfile: '"
      << (_directory / "log").string() << "'\n";
  if (options.store) out << "jetstream { store_dir: '" << (_directory / "store").string() << "' }\n";
  out << options.more << "\n";
  if (options.maxPayload > 0) out << "max_payload: " << options.maxPayload << "\n";
  if (!options.token.empty()) out << "authorization { token: '" << options.token << "' }\n";
  if (!options.certificate.empty()) {
    out << "tls { cert_file: '" << options.certificate << "', key_file: '" << options.key << "' }\n";
  }
}

void NatsServer::spawn() {
  const std::string program = findServer();
  const std::string configuration = (_directory / "server.conf").string();
  _process = ::fork();
  if (_process < 0) throw std::runtime_error("fork failed");
  if (_process != 0) return;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::execl(program.c_str(), program.c_str(), "-c", configuration.c_str(), nullptr);
  ::_exit(127);
}

void NatsServer::readPort() {
  const auto file = _directory / ("nats-server_" + std::to_string(_process) + ".ports");
  const auto complete = [&] { return readFile(file).find('}') != std::string::npos; };
  if (!becomesTrue(complete, startPatience)) throw std::runtime_error("the server named no port:\n" + log());
  const std::string text = readFile(file);
  _port = std::stoi(text.substr(text.find("127.0.0.1:") + 10));
}

bool NatsServer::listens() const {
  const int socket = connectToLoopback(_port);
  if (socket >= 0) ::close(socket);
  return socket >= 0;
}

void NatsServer::kill() {
  if (_process <= 0) return;
  ::kill(_process, SIGKILL);
  ::waitpid(_process, nullptr, 0);
  _process = -1;
}

void NatsServer::freeze() {
  ::kill(_process, SIGSTOP);
  int status = 0;
  while (::waitpid(_process, &status, WUNTRACED) == _process && !WIFSTOPPED(status)) {
  }
}

void NatsServer::thaw() {
  ::kill(_process, SIGCONT);
}

std::string NatsServer::url(const std::string& query) const {
  return (options.certificate.empty() ? "nats://" : "tls://") + address() +
         (query.empty() ? "" : "?" + query);
}

std::string NatsServer::log() const {
  return readFile(_directory / "log");
}

Certificate::Certificate(const std::filesystem::path& directory, const std::string& subjectAlternative)
    : file((directory / "certificate.pem").string()), key((directory / "key.pem").string()) {
  const std::string command =
      "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=test "
      "-addext subjectAltName=" +
      subjectAlternative + " -keyout " + key + " -out " + file + " 2>/dev/null";
  if (std::system(command.c_str()) != 0) throw std::runtime_error("openssl could not make a certificate");
}

}  // namespace kestrel::streams
