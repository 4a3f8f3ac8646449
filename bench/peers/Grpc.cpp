#include <arpa/inet.h>
#include <grpcpp/grpcpp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

#include "Peer.hpp"
#include "Peers.grpc.pb.h"

namespace bench {

namespace {

void check(const grpc::Status& status) {
  if (!status.ok()) throw std::runtime_error("gRPC: " + status.error_message());
}

/// Nobody else is likely to take it before the server does.
int freePort() {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  ::bind(socket, reinterpret_cast<sockaddr*>(&address), size);
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  ::close(socket);
  return ntohs(address.sin_port);
}

class Service final : public Far::Service {
  grpc::Status Exchange(grpc::ServerContext*, const Payload* request, Payload* response) override {
    *response = *request;
    return grpc::Status::OK;
  }
  grpc::Status Send(grpc::ServerContext*, grpc::ServerReader<Payload>* reader, Nothing*) override {
    Payload payload;
    while (reader->Read(&payload)) {
    }
    return grpc::Status::OK;
  }
};

std::shared_ptr<void> serve(const std::string& address) {
  static Service service;
  grpc::ServerBuilder builder;
  builder.SetMaxReceiveMessageSize(-1);
  builder.AddListeningPort(address, grpc::InsecureServerCredentials());
  builder.RegisterService(&service);
  return builder.BuildAndStart();
}

std::shared_ptr<grpc::Channel> channelTo(const std::string& address) {
  grpc::ChannelArguments arguments;
  arguments.SetMaxReceiveMessageSize(-1);
  return grpc::CreateCustomChannel(address, grpc::InsecureChannelCredentials(), arguments);
}

class GrpcPeer final : public Peer {
 public:
  explicit GrpcPeer(const std::string& address) : _stub(Far::NewStub(channelTo(address))) {}

  void load(std::size_t bytes) override { _payload.mutable_data()->assign(bytes, '\0'); }
  void exchange() override {
    grpc::ClientContext context;
    context.set_wait_for_ready(true);
    check(_stub->Exchange(&context, _payload, &_answer));
  }
  void send() override {
    if (!_writer) {
      _context = std::make_unique<grpc::ClientContext>();
      _writer = _stub->Send(_context.get(), &_nothing);
    }
    if (!_writer->Write(_payload)) throw std::runtime_error("gRPC: the stream has ended");
  }
  void settle() override {
    _writer->WritesDone();
    check(_writer->Finish());
    _writer.reset();
  }
  void exchangeMany(int count, int outstanding) override {
    grpc::CompletionQueue queue;
    for (int i = 0; i < count + outstanding - 1; ++i) {
      if (i < count) (new Call)->begin(*_stub, _payload, queue);
      if (i < outstanding - 1) continue;
      void* tag = nullptr;
      bool ok = false;
      queue.Next(&tag, &ok);
      const std::unique_ptr<Call> call(static_cast<Call*>(tag));
      check(call->status);
    }
  }

 private:
  struct Call {
    void begin(Far::Stub& stub, const Payload& payload, grpc::CompletionQueue& queue) {
      reader = stub.AsyncExchange(&context, payload, &queue);
      reader->Finish(&answer, &status, this);
    }
    grpc::ClientContext context;
    Payload answer;
    grpc::Status status;
    std::unique_ptr<grpc::ClientAsyncResponseReader<Payload>> reader;
  };

  std::unique_ptr<Far::Stub> _stub;
  Payload _payload, _answer;
  Nothing _nothing;
  std::unique_ptr<grpc::ClientContext> _context;
  std::unique_ptr<grpc::ClientWriter<Payload>> _writer;
};

}  // namespace

std::vector<PeerKind> grpcKinds(const std::string& folder) {
  const auto connect = [](const std::string& address) { return std::make_unique<GrpcPeer>(address); };
  return {{"gRPC, tcp", "127.0.0.1:" + std::to_string(freePort()), connect, serve},
          {"gRPC, unix", "unix:" + folder + "/grpc", connect, serve}};
}

}  // namespace bench
