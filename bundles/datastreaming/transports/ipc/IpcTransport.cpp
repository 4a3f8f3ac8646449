#include "transports/ipc/IpcTransport.hpp"

#include <utility>

#include "transports/LocalLink.hpp"
#include "transports/ipc/IpcProducer.hpp"
#include "transports/ipc/IpcReceiver.hpp"

namespace kestrel::streams {

IpcTransport::IpcTransport(const std::string& folder, std::uint64_t queueLimit,
                           const PayloadSequencer::Limits& limits)
    : _streams(IpcStreams::in(folder, queueLimit)), _limits(limits) {
  memory::makeSendingMappable();
}

std::shared_ptr<StreamLink> IpcTransport::open(std::shared_ptr<StreamContext> context) {
  auto stream = _streams->open(context->id);
  return std::make_shared<LocalLink<IpcStream, IpcProducer, IpcReceiver>>(std::move(context),
                                                                          std::move(stream), _limits);
}

}  // namespace kestrel::streams
