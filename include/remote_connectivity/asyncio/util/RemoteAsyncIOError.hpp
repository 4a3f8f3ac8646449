#pragma once

#include <cstdint>

namespace remote_connectivity::asyncio::util {

/// The outcome of a control command, as it travels in the error cell of a response and as the parsers of
/// ICommandUtil give it. On the wire 0 to 15 are valid; 8 to 15 belong to the services, have no names here
/// and are passed through unchanged.
enum class RemoteAsyncIOError : std::uint8_t {
  NoError = 0,
  NotACellArray = 1,        ///< a command, or the client information in one, is not a cell array
  TooFewElements = 2,       ///< a command or a response has fewer elements than its layout
  InvalidElementType = 3,   ///< an element is not the text or the unsigned 64-bit number it must be
  EmptyCommandName = 4,     ///< the name of a command is an empty text
  UnexpectedCommand = 5,    ///< the command has another name than its parser expects
  InvalidErrorElement = 6,  ///< an error cell holds no code, or one of 16 or more
  InvalidResponse = 7,      ///< a response is no cell array, or is empty, or has no valid error cell
};

/// Texts that services may put into the error cell beside a code.
struct RemoteAsyncIOErrorText {
  static constexpr char ServiceErrorParsingRequest[] = "Service error parsing request.";
  static constexpr char ErrorParsingResponse[] = "Error parsing response.";
  static constexpr char TargetMachineNotFound[] = "Did not find target machine.";
  static constexpr char TargetMachineLost[] = "Lost connection to target machine.";
};

}  // namespace remote_connectivity::asyncio::util
