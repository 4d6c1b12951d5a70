// A value in a script: text with loop variables in it, such as "10.0.{i/256}.{i%256}" or "2001:db8::{i:x}".
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// What is wrong with a piece of a script: what was expected and what came.
class ScriptError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  ~ScriptError() override;
};

/// The names of the loop variables in sight, outermost first, and their values in the same order.
using VariableNames = std::vector<std::string>;
using VariableValues = std::vector<std::int64_t>;

/// An integer expression: numbers (decimal or 0x), loop variables, + - * / %, parentheses.
class Expression {
 public:
  /// Throws ScriptError when `text` is no expression over `names`.
  static Expression parse(std::string_view text, const VariableNames& names);
  /// Throws ScriptError on a division by zero and on a result beyond 64 bits.
  std::int64_t value(const VariableValues& variables) const;

 private:
  friend class ExpressionParser;
  struct Step {
    char kind;  // 'n' push operand, 'v' push variable number operand, or the operator
    std::int64_t operand;
  };
  std::vector<Step> steps_;  // in reverse Polish order
};

/// Text with expressions in braces. "{e}" is replaced by the value of e in decimal, "{e:x}" in hexadecimal,
/// "{e:04x}" in hexadecimal with leading zeros up to four digits (1 to 16), "{e:03}" the same in decimal.
class Template {
 public:
  Template() = default;
  /// Throws ScriptError when the braces do not hold an expression over `names`.
  static Template parse(std::string_view text, const VariableNames& names);
  /// Throws ScriptError as Expression::value does.
  std::string text(const VariableValues& variables) const;

 private:
  struct Piece {
    std::string literal;  // stands before the expression
    Expression expression;
    bool hexadecimal = false;
    int width = 0;
  };
  static Piece parsePiece(std::string_view body, const VariableNames& names);

  std::vector<Piece> pieces_;
  std::string tail_;
};

}  // namespace Agent
