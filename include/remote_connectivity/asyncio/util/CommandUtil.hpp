#pragma once

#include "remote_connectivity/asyncio/util/ICommandUtil.hpp"

namespace remote_connectivity::asyncio::util {

/// The builder and parser of control commands. Its operations call one another through the virtual table, so
/// that a derived class that replaces kdaFactory(), getCommand(), getResponseError(), parseHostCmd() or
/// createErrorResponse() changes all that is built on it.
///
/// Keeps nothing but the helper: several threads may use one object at once. A helper that was handed in and
/// is used by others too must have made its factory before; see KDAHelper.
class REMOTE_CONNECTIVITY_EXPORT CommandUtil : public ICommandUtil {
 public:
  /// Shares the helper; an empty pointer makes one of its own.
  explicit CommandUtil(std::shared_ptr<KDAHelper> helper);
  ~CommandUtil() override;

  [[nodiscard]] std::shared_ptr<KDAHelper> kdaHelper() override;
  [[nodiscard]] kestreldata::ArrayFactory& kdaFactory() override;

  [[nodiscard]] kestreldata::Array createErrorResponse(RemoteAsyncIOError error, std::string message,
                                                       const kestreldata::Array& data) override;
  [[nodiscard]] kestreldata::Array createNoErrorResponse() override;
  [[nodiscard]] RemoteAsyncIOError getResponseError(const kestreldata::Array& response) override;
  [[nodiscard]] std::tuple<std::string, RemoteAsyncIOError> getCommand(
      const kestreldata::Array& command) override;

  [[nodiscard]] kestreldata::Array registerClientCmd(const kestreldata::Array& clientInfo) override;
  [[nodiscard]] kestreldata::Array unregisterClientCmd(std::uint64_t number) override;
  [[nodiscard]] kestreldata::Array createHostCmd(std::uint64_t first, std::uint64_t second) override;
  [[nodiscard]] kestreldata::Array getActiveHostsCmd(std::uint64_t number) override;
  [[nodiscard]] kestreldata::Array terminateHostCmd(std::uint64_t first, std::uint64_t second) override;
  [[nodiscard]] kestreldata::Array terminateChannelCmd(kestreldata::TypedArray<kestreldata::Array>&& command,
                                                       std::uint64_t number) override;

  [[nodiscard]] kestreldata::Array registerClientResponse(std::string first, std::string second,
                                                          std::uint64_t number) override;
  [[nodiscard]] kestreldata::Array registerClientResponse(RemoteAsyncIOError error) override;
  [[nodiscard]] kestreldata::Array createHostResponse(std::uint64_t first, std::uint64_t second,
                                                      RemoteAsyncIOError error) override;
  [[nodiscard]] kestreldata::Array getActiveHostsResponse(std::vector<std::uint64_t> hosts,
                                                          RemoteAsyncIOError error) override;
  [[nodiscard]] kestreldata::Array createChannelResponse(const kestreldata::Array& channel, std::string first,
                                                         std::string second) override;
  [[nodiscard]] kestreldata::Array terminateChannelResponse(const kestreldata::Array& data,
                                                            RemoteAsyncIOError error) override;

  [[nodiscard]] std::tuple<std::string, std::string, RemoteAsyncIOError> parseRegisterClientCmd(
      const kestreldata::Array& command) override;
  [[nodiscard]] std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseCreateHostCmd(
      const kestreldata::Array& command) override;
  [[nodiscard]] std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseTerminateHostCmd(
      const kestreldata::Array& command) override;
  [[nodiscard]] std::tuple<std::uint64_t, RemoteAsyncIOError> parseGetActiveHostsCmd(
      const kestreldata::Array& command) override;
  [[nodiscard]] std::tuple<std::uint64_t, RemoteAsyncIOError> parseUnregisterClientCmd(
      const kestreldata::Array& command) override;
  [[nodiscard]] std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseCreateChannelCmd(
      const kestreldata::Array& command) override;
  [[nodiscard]] std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseTerminateChannelCmd(
      const kestreldata::Array& command) override;
  [[nodiscard]] kestreldata::Array getInterprocessTerminateChannelCmd(
      const kestreldata::TypedArray<kestreldata::Array>& command) override;
  [[nodiscard]] std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseHostCmd(
      const kestreldata::Array& command, std::string expectedName) override;

  [[nodiscard]] std::tuple<std::string, std::string, std::uint64_t, RemoteAsyncIOError>
  parseRegisterClientResponse(const kestreldata::Array& response) override;
  [[nodiscard]] std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseCreateHostResponse(
      const kestreldata::Array& response) override;
  [[nodiscard]] std::tuple<std::vector<std::uint64_t>, RemoteAsyncIOError> parseGetActiveHostsResponse(
      const kestreldata::Array& response) override;
  [[nodiscard]] std::tuple<kestreldata::Array, std::string, std::string, RemoteAsyncIOError>
  parseCreateChannelResponse(const kestreldata::Array& response) override;
  [[nodiscard]] std::tuple<kestreldata::Array, RemoteAsyncIOError> parseTerminateChannelResponse(
      const kestreldata::Array& response) override;

  /// Whether the array is a cell array.
  [[nodiscard]] bool ensureType(const kestreldata::Array& array);

  /// Whether the response has a readable code, of whatever value.
  [[nodiscard]] bool isValidResponse(const kestreldata::Array& response);

  /// Whether the response says anything but NoError; so does an invalid one.
  [[nodiscard]] bool isErrorResponse(const kestreldata::Array& response);

  /// The code of an error cell; InvalidErrorElement if it has none. Never throws.
  [[nodiscard]] RemoteAsyncIOError getError(const kestreldata::Array& errorCell);

  /// The error cell: {code as an unsigned 8-bit number, message, data}.
  [[nodiscard]] kestreldata::Array createError(RemoteAsyncIOError error, std::string message,
                                               const kestreldata::Array& data);

  /// The client text of client information. NotACellArray, InvalidElementType. Throws
  /// InvalidArrayIndexException for an empty cell array.
  [[nodiscard]] std::tuple<RemoteAsyncIOError, std::string> parseClientInfo(
      const kestreldata::Array& clientInfo);

  /// {error cell, first, second, number}
  [[nodiscard]] kestreldata::Array registerClientResponse(RemoteAsyncIOError error, std::string first,
                                                          std::string second, std::uint64_t number);

 private:
  std::shared_ptr<KDAHelper> _helper;  // never empty; set by the constructor only
};

}  // namespace remote_connectivity::asyncio::util
