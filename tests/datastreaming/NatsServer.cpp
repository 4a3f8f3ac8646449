#include "NatsServer.hpp"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "../Eventually.hpp"

namespace kestrel::streams {

/// Where a server may be, for a shell: not every user has the last two.
static const std::string searched = "PATH=$PATH:/usr/sbin:/usr/local/sbin; ";

std::string NatsServer::unavailable() {
  return std::system((searched + "command -v nats-server >/dev/null").c_str()) == 0
             ? ""
             : "no nats-server is installed; scripts/test installs one";
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
  std::ofstream configuration(_directory / "server.conf");
  configuration << "listen: 127.0.0.1:" << _port << "\nports_file_dir: " << _directory
                << "\nlogfile: " << _directory / "log"
                << "\njetstream {\n store_dir: " << _directory / "store"
                << "\n"
                << options.store << "\n}\n"
                << options.more << "\n";
  if (!options.certificate.empty())
    configuration << "tls { cert_file: '" << options.certificate << "', key_file: '" << options.key
                  << "' }\n";
  configuration.close();
  const std::string command = searched + "exec nats-server -c " + (_directory / "server.conf").string();
  _process = ::fork();
  if (_process < 0) throw std::runtime_error("fork failed");
  if (_process == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    ::_exit(127);
  }
  const std::string ports =
      "nats-server_" + std::to_string(_process) + ".ports";  // which it writes when it listens
  if (!becomesTrue([&] { return read(ports).find('}') != std::string::npos; }, std::chrono::seconds(60)))
    throw std::runtime_error("the server did not listen in time:\n" + read("log"));
  _port = std::stoi(read(ports).substr(read(ports).find("127.0.0.1:") + 10));
}

void NatsServer::kill() {
  if (_process <= 0) return;
  ::kill(_process, SIGKILL);
  ::waitpid(_process, nullptr, 0);
  _process = -1;
}

void NatsServer::freeze() {
  ::kill(_process, SIGSTOP);
  ::waitpid(_process, nullptr, WUNTRACED);
}

void NatsServer::thaw() {
  ::kill(_process, SIGCONT);
}

std::string NatsServer::url(const std::string& query) const {
  return (options.certificate.empty() ? "nats://" : "tls://") + address() +
         (query.empty() ? "" : "?" + query);
}

std::string NatsServer::read(const std::string& file) const {
  std::ifstream in(_directory / file);
  return {std::istreambuf_iterator(in), {}};
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
