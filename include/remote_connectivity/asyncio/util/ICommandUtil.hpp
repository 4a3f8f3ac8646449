#pragma once

#include <kestreldata/Array.hpp>
#include <kestreldata/ArrayFactory.hpp>
#include <kestreldata/TypedArray.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "remote_connectivity/asyncio/util/Export.hpp"
#include "remote_connectivity/asyncio/util/RemoteAsyncIOError.hpp"

namespace remote_connectivity::asyncio::util {

class KDAHelper;

/// Builds and parses the control commands that clients and services exchange, and their responses: row cell
/// arrays whose first element is the command's name or the response's error cell. See CommandUtil for
/// threads.
///
/// Builders do not look at what they are given; they throw NonAsciiCharInInputDataException for text beyond 7
/// bits. Parsers give the values in element order, then the outcome. After a failure the values are: empty
/// texts, numbers with all bits set, an empty vector, a 0x0 double array; values read before it are kept
/// where so noted. Text is a char array, or the first element of a string array; text that is beyond 7 bits,
/// missing, or in an empty string array makes the parser throw the array library's exception.
///
/// Compiled callers depend on the order of the declarations.
class REMOTE_CONNECTIVITY_EXPORT ICommandUtil {
 public:
  virtual ~ICommandUtil();

  /// The helper that texts are read with, never empty.
  [[nodiscard]] virtual std::shared_ptr<KDAHelper> kdaHelper() = 0;

  /// The factory of all arrays that are built; valid as long as the helper.
  [[nodiscard]] virtual kestreldata::ArrayFactory& kdaFactory() = 0;

  /// A response without payload: a 1x1 cell of the error cell {code, message, data}.
  [[nodiscard]] virtual kestreldata::Array createErrorResponse(RemoteAsyncIOError error, std::string message,
                                                               const kestreldata::Array& data) = 0;

  /// The response without payload that says NoError.
  [[nodiscard]] virtual kestreldata::Array createNoErrorResponse() = 0;

  /// The code in a response's error cell, InvalidErrorElement if there is no valid one, and InvalidResponse
  /// for anything but a cell array with elements.
  [[nodiscard]] virtual RemoteAsyncIOError getResponseError(const kestreldata::Array& response) = 0;

  /// The name of any command. NotACellArray, TooFewElements (no element), InvalidElementType,
  /// EmptyCommandName.
  [[nodiscard]] virtual std::tuple<std::string, RemoteAsyncIOError> getCommand(
      const kestreldata::Array& command) = 0;

  /// {"registerAsyncIOClient", client information}: a cell array that begins with the client's text.
  [[nodiscard]] virtual kestreldata::Array registerClientCmd(const kestreldata::Array& clientInfo) = 0;

  /// {"unregisterAsyncIOClient", number}
  [[nodiscard]] virtual kestreldata::Array unregisterClientCmd(std::uint64_t number) = 0;

  /// {"createHost", first, second}
  [[nodiscard]] virtual kestreldata::Array createHostCmd(std::uint64_t first, std::uint64_t second) = 0;

  /// {"getActiveHosts", number}
  [[nodiscard]] virtual kestreldata::Array getActiveHostsCmd(std::uint64_t number) = 0;

  /// {"terminateHost", first, second}
  [[nodiscard]] virtual kestreldata::Array terminateHostCmd(std::uint64_t first, std::uint64_t second) = 0;

  /// The command with a number after the first elements, as many as it has rows. Meant for columns: of a row
  /// command only the first element is kept. Throws InvalidArrayIndexException where there are no columns.
  [[nodiscard]] virtual kestreldata::Array terminateChannelCmd(
      kestreldata::TypedArray<kestreldata::Array>&& command, std::uint64_t number) = 0;

  /// {error cell of NoError, first, second, number}
  [[nodiscard]] virtual kestreldata::Array registerClientResponse(std::string first, std::string second,
                                                                  std::uint64_t number) = 0;

  /// createErrorResponse() without message and data.
  [[nodiscard]] virtual kestreldata::Array registerClientResponse(RemoteAsyncIOError error) = 0;

  /// {error cell, first, second}
  [[nodiscard]] virtual kestreldata::Array createHostResponse(std::uint64_t first, std::uint64_t second,
                                                              RemoteAsyncIOError error) = 0;

  /// {error cell, 1xN unsigned 64-bit array}. An empty list becomes a 0x0 double array, which the parser does
  /// not take for a list.
  [[nodiscard]] virtual kestreldata::Array getActiveHostsResponse(std::vector<std::uint64_t> hosts,
                                                                  RemoteAsyncIOError error) = 0;

  /// {error cell of NoError, channel, first, second}. A failure is answered with createErrorResponse().
  [[nodiscard]] virtual kestreldata::Array createChannelResponse(const kestreldata::Array& channel,
                                                                 std::string first, std::string second) = 0;

  /// {error cell, data}
  [[nodiscard]] virtual kestreldata::Array terminateChannelResponse(const kestreldata::Array& data,
                                                                    RemoteAsyncIOError error) = 0;

  /// Command name, client text. The name is not compared: any name will do. The number of elements is judged
  /// before the type. Throws InvalidArrayIndexException for an empty cell array as client information.
  [[nodiscard]] virtual std::tuple<std::string, std::string, RemoteAsyncIOError> parseRegisterClientCmd(
      const kestreldata::Array& command) = 0;

  /// parseHostCmd() for "createHost".
  [[nodiscard]] virtual std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseCreateHostCmd(
      const kestreldata::Array& command) = 0;

  /// parseHostCmd() for "terminateHost".
  [[nodiscard]] virtual std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseTerminateHostCmd(
      const kestreldata::Array& command) = 0;

  /// The number. Fails as parseHostCmd() does.
  [[nodiscard]] virtual std::tuple<std::uint64_t, RemoteAsyncIOError> parseGetActiveHostsCmd(
      const kestreldata::Array& command) = 0;

  /// The number. Fails as parseHostCmd() does.
  [[nodiscard]] virtual std::tuple<std::uint64_t, RemoteAsyncIOError> parseUnregisterClientCmd(
      const kestreldata::Array& command) = 0;

  /// parseHostCmd() for "createChannel", a command that callers assemble themselves.
  [[nodiscard]] virtual std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseCreateChannelCmd(
      const kestreldata::Array& command) = 0;

  /// parseHostCmd() for "term", a command that callers assemble themselves.
  [[nodiscard]] virtual std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseTerminateChannelCmd(
      const kestreldata::Array& command) = 0;

  /// Undoes terminateChannelCmd() on a column: the command without its last row; a row command gives an empty
  /// 0xN cell array, a command without rows a 0x0 double array.
  [[nodiscard]] virtual kestreldata::Array getInterprocessTerminateChannelCmd(
      const kestreldata::TypedArray<kestreldata::Array>& command) = 0;

  /// The two numbers of a command {expectedName, first, second}; further elements are ignored.
  /// NotACellArray, TooFewElements, the errors of getCommand(), UnexpectedCommand, InvalidElementType (with
  /// the first number where the second is at fault), looked for in this order.
  [[nodiscard]] virtual std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseHostCmd(
      const kestreldata::Array& command, std::string expectedName) = 0;

  /// The two texts and the number; else the response's code or InvalidResponse. A response of fewer than four
  /// elements without an error is a success without values. An element that is no text reads as an empty
  /// text; one that is no number gives InvalidElementType with the texts.
  [[nodiscard]] virtual std::tuple<std::string, std::string, std::uint64_t, RemoteAsyncIOError>
  parseRegisterClientResponse(const kestreldata::Array& response) = 0;

  /// The two numbers; else the response's code, or InvalidResponse, also for fewer than three elements.
  /// Throws InvalidArrayTypeException or InvalidArrayIndexException for an element that is no number.
  [[nodiscard]] virtual std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseCreateHostResponse(
      const kestreldata::Array& response) = 0;

  /// The host numbers in column-major order, whatever the list's shape; else the response's code,
  /// InvalidResponse, TooFewElements or InvalidElementType, the last also for the empty list that
  /// getActiveHostsResponse() builds.
  [[nodiscard]] virtual std::tuple<std::vector<std::uint64_t>, RemoteAsyncIOError>
  parseGetActiveHostsResponse(const kestreldata::Array& response) = 0;

  /// The channel and the two texts; else the response's code, InvalidResponse, TooFewElements or
  /// InvalidElementType.
  [[nodiscard]] virtual std::tuple<kestreldata::Array, std::string, std::string, RemoteAsyncIOError>
  parseCreateChannelResponse(const kestreldata::Array& response) = 0;

  /// The data; else the response's code, InvalidResponse or TooFewElements.
  [[nodiscard]] virtual std::tuple<kestreldata::Array, RemoteAsyncIOError> parseTerminateChannelResponse(
      const kestreldata::Array& response) = 0;
};

}  // namespace remote_connectivity::asyncio::util
