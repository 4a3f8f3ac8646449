#pragma once

#include <string>

namespace kestrel::datastreaming {

/// Keys of the attributes that travel beside a message.
struct MessageAttributes {
  inline static const std::string TimeStamp = "TIMESTAMP";
  inline static const std::string CompressionType = "COMPRESSIONTYPE";
  inline static const std::string UnCompressedSize = "UNCOMPRESSEDSIZE";
};

/// Keys of the attributes of a stream. None is defined yet: streams are opened with an empty map.
struct StreamAttributes {};

/// Keys of the configuration map of the service and of its producers; every value is a std::string.
struct DataSteamingConfig {
  inline static const std::string QXA_TOKEN = "qxaToken";
  inline static const std::string DATASTREAMING_SERIVCE_URL = "_datastreamingurl";
  inline static const std::string WSPROTOCOL = "wsprotocol";
  inline static const std::string PRODUCER_ACK = "producerACK";
  inline static const std::string WS_ENV = "WS_ENV";
  inline static const std::string WS_FIRST_RECONN_BACKOFF_MS = "wsFirstReconnBackoffMs";
  inline static const std::string WS_MAX_RECONN_ATTEMPTS = "wsMaxReconnAttempts";
  inline static const std::string WS_PING_INTERVAL_S = "wsPingIntervalS";
};

/// Codes that begin the text of an error of the service.
struct DataSteamingErrorCodes {
  inline static const std::string TOKEN_NOT_FOUND = "TokenNotFound";
  inline static const std::string CONNECTION_ERROR = "ConnectionError";
};

/// The same for code whose threads may still run while the process ends: the objects above are destroyed
/// then, these never are.
namespace lasting {

struct MessageAttributes {
  inline static const std::string& TimeStamp =
      *new const std::string(datastreaming::MessageAttributes::TimeStamp);
  inline static const std::string& CompressionType =
      *new const std::string(datastreaming::MessageAttributes::CompressionType);
  inline static const std::string& UnCompressedSize =
      *new const std::string(datastreaming::MessageAttributes::UnCompressedSize);
};

struct DataSteamingConfig {
  inline static const std::string& QXA_TOKEN =
      *new const std::string(datastreaming::DataSteamingConfig::QXA_TOKEN);
  inline static const std::string& DATASTREAMING_SERIVCE_URL =
      *new const std::string(datastreaming::DataSteamingConfig::DATASTREAMING_SERIVCE_URL);
  inline static const std::string& WSPROTOCOL =
      *new const std::string(datastreaming::DataSteamingConfig::WSPROTOCOL);
  inline static const std::string& PRODUCER_ACK =
      *new const std::string(datastreaming::DataSteamingConfig::PRODUCER_ACK);
  inline static const std::string& WS_ENV = *new const std::string(datastreaming::DataSteamingConfig::WS_ENV);
  inline static const std::string& WS_FIRST_RECONN_BACKOFF_MS =
      *new const std::string(datastreaming::DataSteamingConfig::WS_FIRST_RECONN_BACKOFF_MS);
  inline static const std::string& WS_MAX_RECONN_ATTEMPTS =
      *new const std::string(datastreaming::DataSteamingConfig::WS_MAX_RECONN_ATTEMPTS);
  inline static const std::string& WS_PING_INTERVAL_S =
      *new const std::string(datastreaming::DataSteamingConfig::WS_PING_INTERVAL_S);
};

struct DataSteamingErrorCodes {
  inline static const std::string& TOKEN_NOT_FOUND =
      *new const std::string(datastreaming::DataSteamingErrorCodes::TOKEN_NOT_FOUND);
  inline static const std::string& CONNECTION_ERROR =
      *new const std::string(datastreaming::DataSteamingErrorCodes::CONNECTION_ERROR);
};

}  // namespace lasting
}  // namespace kestrel::datastreaming
