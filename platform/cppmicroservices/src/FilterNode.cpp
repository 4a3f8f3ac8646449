#include "FilterNode.hpp"

#include <algorithm>

#include "FilterComparison.hpp"

namespace cppmicroservices::detail {

namespace {

const char* symbol(FilterNode::Kind kind) {
  switch (kind) {
    case FilterNode::Kind::And:
      return "&";
    case FilterNode::Kind::Or:
      return "|";
    case FilterNode::Kind::Not:
      return "!";
    case FilterNode::Kind::Equal:
      return "=";
    case FilterNode::Kind::Approximate:
      return "~=";
    case FilterNode::Kind::AtLeast:
      return ">=";
    case FilterNode::Kind::AtMost:
      return "<=";
  }
  return "";
}

std::string escaped(const std::string& piece) {
  std::string text;
  for (const char c : piece) {
    if (c == '(' || c == ')' || c == '*' || c == '\\') {
      text += '\\';
    }
    text += c;
  }
  return text;
}

}  // namespace

FilterNode::FilterNode(Kind kind, std::vector<Pointer> children)
    : _kind(kind), _children(std::move(children)) {}

FilterNode::FilterNode(Kind kind, std::string name, std::vector<std::string> pieces)
    : _kind(kind), _name(std::move(name)), _pieces(std::move(pieces)) {}

bool FilterNode::isPresenceTest() const {
  return _kind == Kind::Equal && _pieces.size() == 2 && _pieces.front().empty() && _pieces.back().empty();
}

bool FilterNode::matches(const Lookup& lookup) const {
  const auto childMatches = [&lookup](const Pointer& child) { return child->matches(lookup); };
  switch (_kind) {
    case Kind::And:
      return std::ranges::all_of(_children, childMatches);
    case Kind::Or:
      return std::ranges::any_of(_children, childMatches);
    case Kind::Not:
      return !childMatches(_children.front());
    default:
      break;
  }
  const Any* value = lookup(_name);
  return value != nullptr && !value->Empty() && (isPresenceTest() || compareProperty(_kind, *value, _pieces));
}

std::string FilterNode::toString() const {
  std::string text = "(";
  if (_children.empty()) {
    text += _name + symbol(_kind);
    const char* separator = "";
    for (const auto& piece : _pieces) {
      text += std::exchange(separator, "*") + escaped(piece);
    }
  } else {
    text += symbol(_kind);
    for (const auto& child : _children) {
      text += child->toString();
    }
  }
  return text + ")";
}

}  // namespace cppmicroservices::detail
