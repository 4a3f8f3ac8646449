#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cppmicroservices/Any.h"

namespace cppmicroservices::detail {

/// One expression of a filter: a comparison, or a combination of others. Immutable once it is built.
class FilterNode {
 public:
  enum class Kind { And, Or, Not, Equal, Approximate, AtLeast, AtMost };
  using Pointer = std::shared_ptr<const FilterNode>;
  /// Gives the property of a name, or a null pointer.
  using Lookup = std::function<const Any*(const std::string& name)>;

  FilterNode(Kind kind, std::vector<Pointer> children);
  /// The pieces are the value's text, cut at each wildcard: one piece means that there is none.
  FilterNode(Kind kind, std::string name, std::vector<std::string> pieces);

  [[nodiscard]] bool matches(const Lookup& lookup) const;
  [[nodiscard]] std::string toString() const;

 private:
  [[nodiscard]] bool isPresenceTest() const;

  Kind _kind;
  std::vector<Pointer> _children;
  std::string _name;
  std::vector<std::string> _pieces;
};

}  // namespace cppmicroservices::detail
