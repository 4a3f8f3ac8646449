// Writes the inputs to begin with that are encodings into DIRECTORY/TARGET.
#include <kestreldata/kestreldata.hpp>

#include <filesystem>
#include <fstream>

#include "messenger/Envelope.hpp"
#include "remote_connectivity/asyncio/util/CommandUtil.hpp"

using namespace remote_connectivity::asyncio::util;

int main(int, char** arguments) {
  kestreldata::ArrayFactory f;
  const EnvelopeBuilder envelopes(f);
  const auto complex = f.createArray<std::complex<float>>({1, 2});
  const auto cells = f.createCellArray({3, 1, 1}, f.createScalar("text"), complex, f.createCellArray({0, 2}));
  const DataStruct message(cells, {}, "id");
  const kestreldata::Array seeds[] = {envelopes.send(message), envelopes.request("uuid", message),
                                      envelopes.response(f.createCharArray("uuid"), message),
                                      CommandUtil(nullptr).registerClientResponse("one", "two", 3)};
  for (const std::string target : {"array", "messenger"}) {
    const auto folder = std::filesystem::path(arguments[1]) / target;
    std::filesystem::create_directories(folder);
    for (std::size_t i = 0; i < std::size(seeds); ++i) {
      const auto bytes = KDAHelper().kdaToProtobufBytes(seeds[i]);
      std::ofstream file(folder / std::to_string(i), std::ios::binary);
      file << std::string(bytes.begin(), bytes.end());
      if (target == "messenger") file << std::string(6, '\xff');  // attributes that mark no piece
    }
  }
}
