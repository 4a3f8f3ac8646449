#include "RandomArrays.hpp"

#include "Parsers.hpp"

namespace remote_connectivity::asyncio::util {

using kestreldata::Array;
using kestreldata::ArrayFactory;
using kestreldata::ArrayType;

Array RandomArrays::next() {
  const Array parts[] = {command(), response(), errorCell(), anything(3)};
  const Array chosen = parts[below(std::size(parts))];
  if (chosen.getType() != ArrayType::CELL || below(2) == 0) return chosen;
  kestreldata::TypedArray<Array> spoilt(chosen);
  if (!spoilt.isEmpty()) spoilt[below(spoilt.getNumberOfElements())] = anything(2);
  return spoilt;
}

Array RandomArrays::anything(int depth) {
  if (depth == 0 || below(3) != 0) return leaf();
  std::vector<Array> elements(below(5));
  for (auto& element : elements) element = anything(depth - 1);
  return below(2) == 0 ? row(elements) : column(elements);
}

Array RandomArrays::leaf() {
  const Array leaves[] = {Array(),
                          text(""),
                          text("x"),
                          chars(u"term"),
                          chars(u"\u00e9"),
                          noText(),
                          missingText(),
                          number(1),
                          noNumbers(),
                          real(1),
                          byte(static_cast<std::uint8_t>(below(20))),
                          row({}),
                          ArrayFactory().createArray(ArrayType{static_cast<int>(1 + below(24))},
                                                     {below(3), below(3), 1 + below(2)})};
  return leaves[below(std::size(leaves))];
}

Array RandomArrays::name() {
  const char* const names[] = {
      "registerAsyncIOClient", "unregisterAsyncIOClient", "createHost", "terminateHost",
      "getActiveHosts",        "createChannel",           "term",       "heartbeat"};
  return text(names[below(std::size(names))]);
}

Array RandomArrays::errorCell() {
  return row(
      {byte(below(2) == 0 ? std::uint8_t{0} : static_cast<std::uint8_t>(below(20))), text(""), Array()});
}

Array RandomArrays::command() {
  if (below(4) == 0) return row({name(), row({text("me")})});
  const auto whole = column({name(), number(1), number(2)});
  return below(4) == 0 ? row({name(), number(1)}) : whole;
}

Array RandomArrays::response() {
  switch (below(4)) {
    case 0:
      return row({errorCell(), text("a"), text("b"), number(1)});
    case 1:
      return row({errorCell(), number(1), number(2)});
    case 2:
      return row({errorCell(), anything(1), text("a"), text("b")});
    default:
      return row({errorCell(), anything(1)});
  }
}

}  // namespace remote_connectivity::asyncio::util
