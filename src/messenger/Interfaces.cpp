// The destructors of the public interfaces live here, so that each has one home for its virtual table.
#include "remote_connectivity/asyncio/util/DataStruct.hpp"
#include "remote_connectivity/asyncio/util/ICommandUtil.hpp"
#include "remote_connectivity/asyncio/util/IMessengerFactory.hpp"
#include "remote_connectivity/asyncio/util/ISendReceiveMessenger.hpp"
#include "remote_connectivity/asyncio/util/ITimer.hpp"

#include <utility>

namespace remote_connectivity::asyncio::util {

DataStruct::DataStruct(kestreldata::Array array, AttributeMap map, std::string text)
    : data(std::move(array)), attributes(std::move(map)), id(std::move(text)) {}

DataStruct::~DataStruct() = default;
ISendMessenger::~ISendMessenger() = default;
IReceiveMessenger::~IReceiveMessenger() = default;
ISendReceiveMessenger::~ISendReceiveMessenger() = default;
IMessengerFactory::~IMessengerFactory() = default;
ICommandUtil::~ICommandUtil() = default;
ITimer::~ITimer() = default;

}  // namespace remote_connectivity::asyncio::util
