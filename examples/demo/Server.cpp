#include "Server.hpp"

#include <kestreldata/kestreldata.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "Sha256.hpp"

using kestreldata::Array;
using kestreldata::ArrayFactory;
using kestreldata::TypedArray;

namespace {

Array columnStatistics(const TypedArray<double>& matrix) {
  const auto dimensions = matrix.getDimensions();
  const std::size_t rows = dimensions[0];
  const std::size_t columns = dimensions[1];
  if (rows == 0) throw std::invalid_argument("statistics need at least one row");
  auto result = ArrayFactory().createArray<double>({columns, 5});
  for (std::size_t column = 0; column < columns; ++column) {
    const double* first = matrix.begin() + column * rows;
    const double* last = first + rows;
    const double count = static_cast<double>(rows);
    const double mean = std::accumulate(first, last, 0.0) / count;
    const double squares = std::accumulate(
        first, last, 0.0, [&](double sum, double value) { return sum + (value - mean) * (value - mean); });
    const auto [least, most] = std::minmax_element(first, last);
    result[column][0] = count;
    result[column][1] = mean;
    result[column][2] = rows > 1 ? std::sqrt(squares / (count - 1)) : 0.0;
    result[column][3] = *least;
    result[column][4] = *most;
  }
  return result;
}

}  // namespace

Server::Server(std::unique_ptr<Messenger> messenger) : _messenger(std::move(messenger)) {
  _messenger->setReceiveHandler([this](const DataStruct& message) { receive(message); });
  _messenger->setRequestHandler([this](const DataStruct& request) { return answer(request); });
}

void Server::receive(const DataStruct& message) {
  const TypedArray<std::uint8_t> bytes(message.data);
  _digest = sha256(bytes.begin(), bytes.getNumberOfElements());
}

Server::DataStruct Server::answer(const DataStruct& request) const {
  if (request.id == "statistics") return {columnStatistics(TypedArray<double>(request.data))};
  if (request.id == "digest") return {ArrayFactory().createScalar(_digest)};
  throw std::invalid_argument("expected a request \"statistics\" or \"digest\", but got \"" + request.id +
                              "\"");
}
