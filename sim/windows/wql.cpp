// WQL data queries for the simulated WMI service: a tokenizer, a recursive
// descent parser into a small condition tree, and its evaluation on an
// instance.
#include "sim/windows/wql.h"

#include <cctype>
#include <cstdlib>

#include "sim/windows/face_state.h"

namespace sim {
namespace windows {

struct WqlCondition {
  enum class Kind { Compare, IsNull, IsNotNull, And, Or, Not };
  Kind kind = Kind::Compare;
  std::string property;
  std::string op;  // "=", "<>", "<", ">", "<=", ">="
  enum class Literal { Text, Number, Boolean, Null } literal = Literal::Text;
  std::string text;
  int64_t number = 0;
  std::shared_ptr<WqlCondition> left;
  std::shared_ptr<WqlCondition> right;
};

namespace {

struct Token {
  enum class Kind { Name, Text, Number, Symbol, End } kind = Kind::End;
  std::string text;
  int64_t number = 0;
};

bool tokenize(const std::string& text, std::vector<Token>* out, std::string* error) {
  size_t i = 0;
  while (i < text.size()) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (std::isspace(c)) {
      ++i;
      continue;
    }
    Token token;
    if (std::isalpha(c) || c == '_') {
      size_t end = i;
      while (end < text.size() && (std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_')) ++end;
      token.kind = Token::Kind::Name;
      token.text = text.substr(i, end - i);
      i = end;
    } else if (std::isdigit(c) || (c == '-' && i + 1 < text.size() && std::isdigit(static_cast<unsigned char>(text[i + 1])))) {
      size_t end = i + 1;
      while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end]))) ++end;
      token.kind = Token::Kind::Number;
      token.text = text.substr(i, end - i);
      if (token.text.size() > 19) {
        *error = "number too long: " + token.text;
        return false;
      }
      token.number = std::strtoll(token.text.c_str(), nullptr, 10);
      i = end;
    } else if (c == '\'' || c == '"') {
      // A string; a backslash takes the next character as it is.
      const char quote = static_cast<char>(c);
      size_t at = i + 1;
      std::string value;
      bool closed = false;
      while (at < text.size()) {
        if (text[at] == '\\' && at + 1 < text.size()) {
          value += text[at + 1];
          at += 2;
          continue;
        }
        if (text[at] == quote) {
          closed = true;
          break;
        }
        value += text[at++];
      }
      if (!closed) {
        *error = "unterminated string";
        return false;
      }
      token.kind = Token::Kind::Text;
      token.text = value;
      i = at + 1;
    } else {
      static const char* const kSymbols[] = {"<>", "!=", "<=", ">=", "=", "<", ">", ",", "*", "(", ")"};
      bool found = false;
      for (const char* symbol : kSymbols) {
        const std::string s(symbol);
        if (text.compare(i, s.size(), s) == 0) {
          token.kind = Token::Kind::Symbol;
          token.text = s == "!=" ? "<>" : s;
          i += s.size();
          found = true;
          break;
        }
      }
      if (!found) {
        *error = std::string("unexpected character '") + static_cast<char>(c) + "'";
        return false;
      }
    }
    out->push_back(token);
  }
  out->push_back(Token{});
  return true;
}

class Parser {
 public:
  Parser(std::vector<Token> tokens, std::string* error) : tokens_(std::move(tokens)), error_(error) {}

  bool query(WqlQuery* out) {
    if (!keyword("SELECT")) return fail("expected SELECT");
    if (symbol("*")) {
      out->fields.clear();
    } else {
      do {
        if (peek().kind != Token::Kind::Name || isKeyword(peek(), "FROM")) return fail("expected a property name");
        out->fields.push_back(next().text);
      } while (symbol(","));
    }
    if (!keyword("FROM")) return fail("expected FROM");
    if (peek().kind != Token::Kind::Name) return fail("expected a class name");
    out->className = next().text;
    if (keyword("WHERE")) {
      out->where = orExpression();
      if (!out->where) return false;
    }
    if (peek().kind != Token::Kind::End) return fail("unexpected '" + peek().text + "'");
    return true;
  }

 private:
  static bool isKeyword(const Token& token, const char* word) {
    return token.kind == Token::Kind::Name && lowerAscii(token.text) == lowerAscii(word);
  }
  const Token& peek() const { return tokens_[at_]; }
  const Token& next() {
    const Token& token = tokens_[at_];
    if (at_ + 1 < tokens_.size()) ++at_;
    return token;
  }
  bool keyword(const char* word) {
    if (!isKeyword(peek(), word)) return false;
    next();
    return true;
  }
  bool symbol(const char* s) {
    if (peek().kind != Token::Kind::Symbol || peek().text != s) return false;
    next();
    return true;
  }
  bool fail(const std::string& reason) {
    if (error_->empty()) *error_ = reason;
    return false;
  }

  std::shared_ptr<WqlCondition> join(WqlCondition::Kind kind, std::shared_ptr<WqlCondition> left,
                                     std::shared_ptr<WqlCondition> right) {
    auto node = std::make_shared<WqlCondition>();
    node->kind = kind;
    node->left = std::move(left);
    node->right = std::move(right);
    return node;
  }

  std::shared_ptr<WqlCondition> orExpression() {
    auto left = andExpression();
    while (left && keyword("OR")) {
      auto right = andExpression();
      if (!right) return nullptr;
      left = join(WqlCondition::Kind::Or, left, right);
    }
    return left;
  }

  std::shared_ptr<WqlCondition> andExpression() {
    auto left = factor();
    while (left && keyword("AND")) {
      auto right = factor();
      if (!right) return nullptr;
      left = join(WqlCondition::Kind::And, left, right);
    }
    return left;
  }

  std::shared_ptr<WqlCondition> factor() {
    if (++depth_ > 64) {
      fail("condition nested too deeply");
      return nullptr;
    }
    std::shared_ptr<WqlCondition> result;
    if (keyword("NOT")) {
      auto inner = factor();
      if (inner) result = join(WqlCondition::Kind::Not, inner, nullptr);
    } else if (symbol("(")) {
      result = orExpression();
      if (result && !symbol(")")) {
        fail("expected ')'");
        result = nullptr;
      }
    } else {
      result = comparison();
    }
    --depth_;
    return result;
  }

  std::shared_ptr<WqlCondition> comparison() {
    if (peek().kind != Token::Kind::Name) {
      fail("expected a property name");
      return nullptr;
    }
    auto node = std::make_shared<WqlCondition>();
    node->property = next().text;
    if (keyword("IS")) {
      node->kind = keyword("NOT") ? WqlCondition::Kind::IsNotNull : WqlCondition::Kind::IsNull;
      if (!keyword("NULL")) {
        fail("expected NULL");
        return nullptr;
      }
      return node;
    }
    if (peek().kind != Token::Kind::Symbol || peek().text == "," || peek().text == "*" || peek().text == "(" ||
        peek().text == ")") {
      fail("expected a comparison");
      return nullptr;
    }
    node->op = next().text;
    const Token& value = next();
    if (value.kind == Token::Kind::Text) {
      node->literal = WqlCondition::Literal::Text;
      node->text = value.text;
    } else if (value.kind == Token::Kind::Number) {
      node->literal = WqlCondition::Literal::Number;
      node->number = value.number;
    } else if (isKeyword(value, "TRUE") || isKeyword(value, "FALSE")) {
      node->literal = WqlCondition::Literal::Boolean;
      node->number = isKeyword(value, "TRUE") ? 1 : 0;
    } else if (isKeyword(value, "NULL")) {
      node->literal = WqlCondition::Literal::Null;
    } else {
      fail("expected a value");
      return nullptr;
    }
    return node;
  }

  std::vector<Token> tokens_;
  size_t at_ = 0;
  int depth_ = 0;
  std::string* error_;
};

template <typename T>
bool compare(const T& a, const T& b, const std::string& op) {
  if (op == "=") return a == b;
  if (op == "<>") return !(a == b);
  if (op == "<") return a < b;
  if (op == ">") return b < a;
  if (op == "<=") return !(b < a);
  if (op == ">=") return !(a < b);
  return false;
}

bool asInteger(const std::string& text, int64_t* out) {
  if (text.empty() || text.size() > 19) return false;
  char* end = nullptr;
  const long long value = std::strtoll(text.c_str(), &end, 10);
  if (*end != '\0') return false;
  *out = value;
  return true;
}

bool evaluate(const WqlCondition& condition, const WmiObject& instance) {
  switch (condition.kind) {
    case WqlCondition::Kind::And:
      return evaluate(*condition.left, instance) && evaluate(*condition.right, instance);
    case WqlCondition::Kind::Or:
      return evaluate(*condition.left, instance) || evaluate(*condition.right, instance);
    case WqlCondition::Kind::Not:
      return !evaluate(*condition.left, instance);
    default:
      break;
  }
  const WmiProperty* property = instance.find(condition.property);
  const bool isNull = property == nullptr || property->value.kind == WmiValue::Kind::Null;
  if (condition.kind == WqlCondition::Kind::IsNull) return isNull;
  if (condition.kind == WqlCondition::Kind::IsNotNull) return !isNull;
  if (isNull || condition.literal == WqlCondition::Literal::Null) return false;
  const WmiValue& value = property->value;
  switch (value.kind) {
    case WmiValue::Kind::Bstr: {
      if (condition.literal == WqlCondition::Literal::Text) {
        return compare(lowerAscii(value.text), lowerAscii(condition.text), condition.op);
      }
      int64_t number = 0;  // a 64-bit number travels as text
      return condition.literal == WqlCondition::Literal::Number && asInteger(value.text, &number) &&
             compare(number, condition.number, condition.op);
    }
    case WmiValue::Kind::I4:
    case WmiValue::Kind::I1:
    case WmiValue::Kind::UI1:
    case WmiValue::Kind::UI2:
    case WmiValue::Kind::Bool: {
      int64_t literal = condition.number;
      if (condition.literal == WqlCondition::Literal::Text && !asInteger(condition.text, &literal)) return false;
      return compare(value.number, literal, condition.op);
    }
    case WmiValue::Kind::R8:
      return condition.literal == WqlCondition::Literal::Number &&
             compare(value.real, static_cast<double>(condition.number), condition.op);
    default:
      return false;
  }
}

void collectNames(const WqlCondition& condition, std::vector<std::string>* names) {
  if (condition.left) collectNames(*condition.left, names);
  if (condition.right) collectNames(*condition.right, names);
  if (!condition.property.empty()) names->push_back(condition.property);
}

}  // namespace

bool parseWql(const std::string& text, WqlQuery* out, std::string* error) {
  std::string local;
  std::string* err = error != nullptr ? error : &local;
  err->clear();
  std::vector<Token> tokens;
  if (!tokenize(text, &tokens, err)) return false;
  WqlQuery query;
  Parser parser(std::move(tokens), err);
  if (!parser.query(&query)) return false;
  *out = std::move(query);
  return true;
}

std::vector<std::string> wqlNamesUsed(const WqlQuery& query) {
  std::vector<std::string> names = query.fields;
  if (query.where) collectNames(*query.where, &names);
  return names;
}

bool wqlMatches(const WqlQuery& query, const WmiObject& instance) {
  return !query.where || evaluate(*query.where, instance);
}

}  // namespace windows
}  // namespace sim
