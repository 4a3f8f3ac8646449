#include "remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp"

#include <stdexcept>
#include <utility>

#include "Constants.hpp"
#include "factories/ServiceConfiguration.hpp"
#include "kestrel/datastreaming/StreamsFactory.hpp"
#include "kestrel/framework/Framework.hpp"
#include "kestrel/framework/InstallAndStart.hpp"
#include "kestrel/framework/InstallPath.hpp"
#include "kestrel/framework/ServiceLookup.hpp"
#include "messenger/MessengerLog.hpp"
#include "messenger/NewId.hpp"
#include "messenger/SendReceiveDataStream.hpp"

namespace remote_connectivity::asyncio::util {

using kestrel::datastreaming::StreamsFactory;
using kestrel::datastreaming::lasting::DataSteamingConfig;

namespace {

std::u16string bundleDirectory() {
  auto path = kestrel::framework::get_install_path();
  if (!path.empty()) path = kestrel::framework::make_native_form(path, true);
  for (const char16_t* component :
       {u"bin", u"osarch64", u"microservices", u"eps", u"platformservices", u"datastreaming_impl"}) {
    path = kestrel::framework::concatenate_pathname(path, component, true);
  }
  return path;
}

std::pair<std::string, std::string> newStreamIds() {
  auto sendStreamId = newId<struct StreamIds>();
  return {std::move(sendStreamId), newId<struct StreamIds>()};
}

}  // namespace

DataStreamMessengerFactory::DataStreamMessengerFactory(std::string token, std::string endpoint) {
  const auto framework = kestrel::framework::getFramework();  // kept alive until the service is found
  const auto directory = bundleDirectory();
  if (kestrel::framework::installAndStart(directory).empty()) {
    messengerLog().log(
        kestrel::diagnostics::Severity::error, "No bundle was taken from \"",
        kestrel::framework::toNarrow(directory),
        "\"; the installation path comes from the Host, KESTREL_INSTALL_PATH or the place of the "
        "libraries");
    throw std::runtime_error("No bundles for DataStreaming");
  }
  _streamsFactory = kestrel::framework::findService<StreamsFactory>();
  configure(std::move(token), std::move(endpoint));
}

DataStreamMessengerFactory::~DataStreamMessengerFactory() = default;

void DataStreamMessengerFactory::configure(std::string token, std::string endpoint) {
  ServiceConfiguration configuration;
  token = argumentOrEnvironment(std::move(token), "QXA_TOKEN");
  if (!token.empty()) configuration[DataSteamingConfig::QXA_TOKEN] = token;
  endpoint = argumentOrEnvironment(std::move(endpoint), "DS_ENDPOINT");
  if (!endpoint.empty()) {
    configuration[DataSteamingConfig::DATASTREAMING_SERIVCE_URL] = endpoint;
    if (endpoint.find("http:") != std::string::npos) {
      configuration[DataSteamingConfig::WSPROTOCOL] = std::string("ws");
    }
  }
  configureService(_streamsFactory, configuration);
}

std::unique_ptr<ISendReceiveMessenger> DataStreamMessengerFactory::createSendReceiveMessenger() {
  auto [sendStreamId, receiveStreamId] = newStreamIds();
  IMessengerFactory& self = *this;  // through the virtual table, so that an override counts here too
  return self.createSendReceiveMessenger(std::move(sendStreamId), std::move(receiveStreamId));
}

std::unique_ptr<ISendReceiveMessenger> DataStreamMessengerFactory::createSendReceiveMessenger(
    std::string sendStreamId, std::string receiveStreamId) {
  const std::unordered_map<std::string, std::any> options{{constants::ProducerUsesBuffer, std::any(true)}};
  return std::make_unique<SendReceiveDataStream>(sendStreamId, receiveStreamId, _streamsFactory, options);
}

std::unique_ptr<ISendReceiveMessenger> DataStreamMessengerFactory::createSendReceiveMessenger(
    std::string sendStreamId, std::string receiveStreamId,
    const std::unordered_map<std::string, std::any>& options) {
  return std::make_unique<SendReceiveDataStream>(sendStreamId, receiveStreamId, _streamsFactory, options);
}

std::vector<kestrel::datastreaming::StreamStatistics> DataStreamMessengerFactory::statistics() const {
  if (!_streamsFactory) return {};
  return _streamsFactory->statistics();
}

}  // namespace remote_connectivity::asyncio::util
