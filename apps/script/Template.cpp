#include "apps/script/Template.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace Agent {

ScriptError::~ScriptError() = default;

namespace {
std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

bool startsName(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_'; }
bool inName(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }

std::int64_t apply(char operation, std::int64_t a, std::int64_t b) {
  std::int64_t result = 0;
  bool overflow = false;
  switch (operation) {
    case '+':
      overflow = __builtin_add_overflow(a, b, &result);
      break;
    case '-':
      overflow = __builtin_sub_overflow(a, b, &result);
      break;
    case '*':
      overflow = __builtin_mul_overflow(a, b, &result);
      break;
    default:
      if (b == 0) throw ScriptError("expected a divisor other than 0");
      if (b == -1) return operation == '%' ? 0 : apply('-', 0, a);
      return operation == '/' ? a / b : a % b;
  }
  if (overflow) throw ScriptError("expected a value of at most 64 bits");
  return result;
}
}  // namespace

/// Recursive descent over "sum := term {+|- term}", "term := factor {*|/|% factor}".
class ExpressionParser {
 public:
  ExpressionParser(std::string_view text, const VariableNames& names) : text_(text), names_(names) {}

  Expression parse() {
    sum();
    skipBlanks();
    if (at_ < text_.size()) fail("an operator or the end of the expression");
    return std::move(expression_);
  }

 private:
  static constexpr int kMaxDepth = 64;  // of parentheses, so that no input can exhaust the stack

  void sum() {
    term();
    while (next("+-")) {
      const char operation = text_[at_++];
      term();
      push(operation, 0);
    }
  }

  void term() {
    factor();
    while (next("*/%")) {
      const char operation = text_[at_++];
      factor();
      push(operation, 0);
    }
  }

  void factor() {
    skipBlanks();
    if (next("(")) {
      if (++depth_ > kMaxDepth) fail("at most 64 open parentheses");
      ++at_;
      sum();
      if (!next(")")) fail("\")\"");
      ++at_;
      --depth_;
    } else if (at_ < text_.size() && startsName(text_[at_])) {
      variable();
    } else {
      number();
    }
  }

  void variable() {
    const std::size_t begin = at_;
    while (at_ < text_.size() && inName(text_[at_])) ++at_;
    const std::string_view name = text_.substr(begin, at_ - begin);
    const auto found = std::find(names_.rbegin(), names_.rend(), name);
    if (found == names_.rend()) throw ScriptError("expected a loop variable, got " + quoted(name));
    push('v', names_.rend() - found - 1);
  }

  void number() {
    const bool hexadecimal = text_.substr(at_, 2) == "0x" || text_.substr(at_, 2) == "0X";
    const char* const begin = text_.data() + at_ + (hexadecimal ? 2 : 0);
    std::int64_t value = 0;
    const auto [end, error] =
        std::from_chars(begin, text_.data() + text_.size(), value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || *begin == '-') fail("a number of at most 64 bits, a loop variable or \"(\"");
    at_ = static_cast<std::size_t>(end - text_.data());
    push('n', value);
  }

  bool next(std::string_view characters) {
    skipBlanks();
    return at_ < text_.size() && characters.find(text_[at_]) != std::string_view::npos;
  }
  void skipBlanks() {
    while (at_ < text_.size() && text_[at_] == ' ') ++at_;
  }
  void push(char kind, std::int64_t operand) { expression_.steps_.push_back({kind, operand}); }
  [[noreturn]] void fail(const std::string& expected) const {
    throw ScriptError("expected " + expected + ", got " + quoted(text_.substr(at_)) + " in the expression " +
                      quoted(text_));
  }

  std::string_view text_;
  const VariableNames& names_;
  std::size_t at_ = 0;
  int depth_ = 0;
  Expression expression_;
};

Expression Expression::parse(std::string_view text, const VariableNames& names) {
  return ExpressionParser(text, names).parse();
}

std::int64_t Expression::value(const VariableValues& variables) const {
  std::vector<std::int64_t> stack;
  for (const Step& step : steps_) {
    if (step.kind == 'n') {
      stack.push_back(step.operand);
    } else if (step.kind == 'v') {
      stack.push_back(variables.at(static_cast<std::size_t>(step.operand)));
    } else {
      const std::int64_t right = stack.back();
      stack.pop_back();
      stack.back() = apply(step.kind, stack.back(), right);
    }
  }
  return stack.back();
}

Template Template::parse(std::string_view text, const VariableNames& names) {
  Template result;
  while (true) {
    const std::size_t open = text.find_first_of("{}");
    if (open == std::string_view::npos) break;
    const std::size_t close = text.find('}', open);
    if (text[open] == '}' || close == std::string_view::npos) {
      throw ScriptError("expected \"{\", an expression and \"}\", got " + quoted(text.substr(open)));
    }
    result.pieces_.push_back(parsePiece(text.substr(open + 1, close - open - 1), names));
    result.pieces_.back().literal = text.substr(0, open);
    text.remove_prefix(close + 1);
  }
  result.tail_ = text;
  return result;
}

Template::Piece Template::parsePiece(std::string_view body, const VariableNames& names) {
  Piece piece;
  const std::size_t colon = body.find(':');
  piece.expression = Expression::parse(body.substr(0, colon), names);
  if (colon == std::string_view::npos) return piece;
  const std::string_view format = body.substr(colon + 1);
  std::string_view digits = format;
  if (!digits.empty() && digits.back() == 'x') {
    piece.hexadecimal = true;
    digits.remove_suffix(1);
  }
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), piece.width);
  const bool wellFormed = error == std::errc{} && end == digits.data() + digits.size() && digits[0] == '0' &&
                          piece.width >= 1 && piece.width <= 16;
  if (!wellFormed && !(digits.empty() && piece.hexadecimal)) {
    throw ScriptError("expected a format such as x, 04x or 03, got " + quoted(format));
  }
  return piece;
}

std::string Template::text(const VariableValues& variables) const {
  std::string result;
  for (const Piece& piece : pieces_) {
    result += piece.literal;
    const std::int64_t value = piece.expression.value(variables);
    char digits[24];
    const auto [end, error] =
        std::to_chars(digits, digits + sizeof digits, value, piece.hexadecimal ? 16 : 10);
    const auto length = static_cast<std::size_t>(end - digits);
    const auto width = static_cast<std::size_t>(piece.width);
    if (value >= 0 && length < width) result.append(width - length, '0');
    result.append(digits, length);
  }
  return result + tail_;
}

}  // namespace Agent
