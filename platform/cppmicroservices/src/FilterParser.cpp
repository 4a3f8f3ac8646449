#include "FilterParser.hpp"

#include <stdexcept>
#include <string_view>

namespace cppmicroservices::detail {

namespace {

using Kind = FilterNode::Kind;

// Matching and parsing recurse, so a hostile text must not set the depth of the stack.
constexpr int maximumDepth = 100;
constexpr std::string_view blanks = " \t\r\n";

class Parser {
 public:
  explicit Parser(const std::string& text) : _text(text) {}

  FilterNode::Pointer parse() {
    auto root = expression(0);
    if (_position != _text.size()) {
      fail("the end");
    }
    return root;
  }

 private:
  FilterNode::Pointer expression(int depth) {
    if (depth > maximumDepth) {
      fail("at most 100 levels");
    }
    skipBlanks();
    expect('(');
    skipBlanks();
    auto node = content(depth);
    expect(')');
    skipBlanks();
    return node;
  }

  FilterNode::Pointer content(int depth) {
    if (accept('&')) {
      return combination(Kind::And, depth);
    }
    if (accept('|')) {
      return combination(Kind::Or, depth);
    }
    if (accept('!')) {
      return std::make_shared<FilterNode>(Kind::Not, std::vector{expression(depth + 1)});
    }
    return comparison();
  }

  FilterNode::Pointer combination(Kind kind, int depth) {
    std::vector<FilterNode::Pointer> children;
    do {
      children.push_back(expression(depth + 1));
    } while (peek() == '(');
    return std::make_shared<FilterNode>(kind, std::move(children));
  }

  FilterNode::Pointer comparison() {
    const auto end = _text.find_first_of("=<>~()", _position);
    auto name = _text.substr(_position, end - _position);
    name.erase(name.find_last_not_of(blanks) + 1);
    if (name.empty() || end == std::string::npos) {
      fail("a property name and an operator");
    }
    _position = end;
    const auto kind = operation();
    return std::make_shared<FilterNode>(kind, std::move(name), value());
  }

  Kind operation() {
    auto kind = Kind::Equal;
    if (accept('<')) {
      kind = Kind::AtMost;
    } else if (accept('>')) {
      kind = Kind::AtLeast;
    } else if (accept('~')) {
      kind = Kind::Approximate;
    }
    expect('=');
    return kind;
  }

  std::vector<std::string> value() {
    std::vector<std::string> pieces(1);
    // Parentheses should be escaped in a value, but CppMicroServices takes pairs of them, and so do its
    // users.
    for (int open = 0; open > 0 || peek() != ')'; ++_position) {
      char c = peek();
      if (c == '*') {
        pieces.emplace_back();
        continue;
      }
      if (c == '\\') {
        ++_position;
        c = peek();
      } else if (c == '(' || c == ')') {
        open += c == '(' ? 1 : -1;
      }
      if (_position >= _text.size()) {
        fail("')'");
      }
      pieces.back() += c;
    }
    return pieces;
  }

  [[nodiscard]] char peek() const { return _position < _text.size() ? _text[_position] : '\0'; }

  bool accept(char c) {
    const bool found = peek() == c;
    _position += found ? 1 : 0;
    return found;
  }

  void expect(char c) {
    if (!accept(c)) {
      fail(std::string("'") + c + "'");
    }
  }

  void skipBlanks() {
    const auto next = _text.find_first_not_of(blanks, _position);
    _position = next == std::string::npos ? _text.size() : next;
  }

  [[noreturn]] void fail(const std::string& expected) const {
    throw std::invalid_argument("Malformed filter \"" + _text + "\": expected " + expected + " at position " +
                                std::to_string(_position));
  }

  const std::string& _text;
  std::size_t _position = 0;
};

}  // namespace

FilterNode::Pointer parseFilter(const std::string& text) {
  return Parser(text).parse();
}

}  // namespace cppmicroservices::detail
