// Bytes as they come from a peer are an array or refused; an array survives its encoding; and whoever parses
// it for a command gets a result, or an array's failure where that is allowed.
#include <sanitizer/allocator_interface.h>
#include <kestreldata/SerializationContext.hpp>
#include <kestreldata/kestreldata.hpp>

#include "Fuzz.hpp"
#include "remote_connectivity/asyncio/util/CommandUtil.hpp"
#include "remote_connectivity/asyncio/util/KDAHelper.hpp"

using namespace kestrel::fuzz;
using kestreldata::Array;
using C = remote_connectivity::asyncio::util::CommandUtil;

static void parse(C& commands, const Array& array) {
  const auto mayFail = [&](auto... parsers) {
    (failureOf<kestreldata::Exception>([&] { (void)(commands.*parsers)(array); }), ...);
  };
  mayFail(&C::getCommand, &C::parseClientInfo, &C::parseRegisterClientCmd, &C::parseUnregisterClientCmd,
          &C::parseCreateHostCmd, &C::parseTerminateHostCmd, &C::parseGetActiveHostsCmd,
          &C::parseCreateChannelCmd, &C::parseTerminateChannelCmd, &C::parseRegisterClientResponse,
          &C::parseCreateHostResponse, &C::parseCreateChannelResponse);
  (void)commands.getError(array);
  (void)commands.getResponseError(array);
  (void)commands.parseGetActiveHostsResponse(array);
  (void)commands.parseTerminateChannelResponse(array);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static C commands(nullptr);
  const auto helper = commands.kdaHelper();
  const auto decode = [&](const std::uint8_t* bytes, std::size_t count, Array& array) {
    return failureOf<kestreldata::SerializationException>(
        [&] { array = helper->kdaFromProtobuf(bytes, count); });
  };
  Array array, again;
  const std::size_t before = __sanitizer_get_current_allocated_bytes();
  const bool isArray = decode(data, size, array).empty();
  check(__sanitizer_get_current_allocated_bytes() <= before + 256 * size + 4096,
        "an array takes memory in proportion to its bytes");
  if (!isArray) return 0;
  auto message = helper->getSerializationContext().createKESTREL_Array();
  if (message->ParseFromArray(data, static_cast<int>(size))) {  // which knows no number of more than 5 bytes
    again = helper->getSerializationContext().convertFromProtobuf(std::move(message));
    check(again == array, "it is the array that its protobuf message stands for");
  }
  const Bytes bytes = helper->kdaToProtobufBytes(array);
  check(!bytes.empty() && decode(bytes.data(), bytes.size(), again).empty(),
        "what was decoded can be sent on");
  check(again == array, "the encoding decodes to an equal array");
  check(!decode(bytes.data(), size % bytes.size(), again).empty(), "no proper prefix of an encoding decodes");
  parse(commands, array);
  return 0;
}
