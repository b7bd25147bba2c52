// A small strict JSON reader for tests: parses one document into a tree so
// that a test checks field names, nesting, types and values by walking it,
// not by searching text. Numbers keep their text too, so a test can tell an
// integer from a number with decimals.
#pragma once

#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace lumx::test {

class JsonValue {
 public:
  enum class Type { kNull, kBool, kNumber, kString, kArray, kObject };

  Type type() const { return type_; }
  bool isNull() const { return type_ == Type::kNull; }
  bool isObject() const { return type_ == Type::kObject; }
  bool isArray() const { return type_ == Type::kArray; }
  bool isNumber() const { return type_ == Type::kNumber; }
  bool isString() const { return type_ == Type::kString; }
  bool isBool() const { return type_ == Type::kBool; }

  bool boolean() const { return bool_; }
  double number() const { return number_; }
  // The number as written ("12", "1.500").
  const std::string& text() const { return text_; }
  const std::string& str() const { return text_; }
  // An unsigned integer written without sign, point or exponent.
  bool isUnsigned() const { return type_ == Type::kNumber && text_.find_first_not_of("0123456789") == std::string::npos; }

  size_t size() const { return type_ == Type::kArray ? items_.size() : members_.size(); }
  const JsonValue& operator[](size_t i) const { return i < items_.size() ? *items_[i] : Missing(); }
  const JsonValue& operator[](int i) const { return (*this)[static_cast<size_t>(i < 0 ? items_.size() : i)]; }
  bool has(const std::string& key) const { return Find(key) != nullptr; }
  // A missing key or index yields a null value whose missing() is true.
  const JsonValue& operator[](const std::string& key) const {
    const JsonValue* v = Find(key);
    return v != nullptr ? *v : Missing();
  }
  const JsonValue& operator[](const char* key) const { return (*this)[std::string(key)]; }
  bool missing() const { return missing_; }
  // Member names in document order.
  std::vector<std::string> keys() const {
    std::vector<std::string> out;
    for (const auto& m : members_) out.push_back(m.first);
    return out;
  }

  // Parses `text` (one value, surrounded by nothing but white space).
  // False with a message in `error` when it is not JSON.
  static bool Parse(const std::string& text, JsonValue* out, std::string* error) {
    Parser p{text, 0, {}};
    p.SkipWs();
    if (!p.Value(out)) {
      *error = p.error + " at offset " + std::to_string(p.pos);
      return false;
    }
    p.SkipWs();
    if (p.pos != text.size()) {
      *error = "trailing text at offset " + std::to_string(p.pos);
      return false;
    }
    return true;
  }

 private:
  const JsonValue* Find(const std::string& key) const {
    for (const auto& m : members_) {
      if (m.first == key) return m.second.get();
    }
    return nullptr;
  }
  static const JsonValue& Missing() {
    static const JsonValue missing = [] {
      JsonValue v;
      v.missing_ = true;
      return v;
    }();
    return missing;
  }

  struct Parser {
    const std::string& s;
    size_t pos;
    std::string error;

    void SkipWs() {
      while (pos < s.size() && (s[pos] == ' ' || s[pos] == '\n' || s[pos] == '\t' || s[pos] == '\r')) ++pos;
    }
    bool Fail(const char* why) {
      error = why;
      return false;
    }
    bool Literal(const char* word) {
      const std::string w(word);
      if (s.compare(pos, w.size(), w) != 0) return Fail("bad literal");
      pos += w.size();
      return true;
    }
    bool String(std::string* out) {
      if (pos >= s.size() || s[pos] != '"') return Fail("string expected");
      ++pos;
      while (pos < s.size() && s[pos] != '"') {
        const unsigned char c = static_cast<unsigned char>(s[pos]);
        if (c < 0x20) return Fail("control character in string");
        if (c != '\\') {
          *out += static_cast<char>(c);
          ++pos;
          continue;
        }
        if (++pos >= s.size()) return Fail("bad escape");
        const char e = s[pos++];
        switch (e) {
          case '"': *out += '"'; break;
          case '\\': *out += '\\'; break;
          case '/': *out += '/'; break;
          case 'b': *out += '\b'; break;
          case 'f': *out += '\f'; break;
          case 'n': *out += '\n'; break;
          case 'r': *out += '\r'; break;
          case 't': *out += '\t'; break;
          case 'u': {
            if (pos + 4 > s.size()) return Fail("bad \\u escape");
            const std::string hex = s.substr(pos, 4);
            if (hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return Fail("bad \\u escape");
            const unsigned long u = std::strtoul(hex.c_str(), nullptr, 16);
            pos += 4;
            // Kept as one byte below 0x100, as UTF-8 above (no surrogates).
            if (u < 0x100) {
              *out += static_cast<char>(u);
            } else if (u < 0x800) {
              *out += static_cast<char>(0xC0 | (u >> 6));
              *out += static_cast<char>(0x80 | (u & 0x3F));
            } else {
              *out += static_cast<char>(0xE0 | (u >> 12));
              *out += static_cast<char>(0x80 | ((u >> 6) & 0x3F));
              *out += static_cast<char>(0x80 | (u & 0x3F));
            }
            break;
          }
          default: return Fail("bad escape");
        }
      }
      if (pos >= s.size()) return Fail("unterminated string");
      ++pos;
      return true;
    }
    bool Number(JsonValue* out) {
      const size_t start = pos;
      if (pos < s.size() && s[pos] == '-') ++pos;
      if (pos >= s.size() || s[pos] < '0' || s[pos] > '9') return Fail("number expected");
      if (s[pos] == '0' && pos + 1 < s.size() && s[pos + 1] >= '0' && s[pos + 1] <= '9') {
        return Fail("leading zero");
      }
      while (pos < s.size() && ((s[pos] >= '0' && s[pos] <= '9') || s[pos] == '.' || s[pos] == 'e' || s[pos] == 'E' ||
                                s[pos] == '+' || s[pos] == '-')) {
        ++pos;
      }
      out->type_ = Type::kNumber;
      out->text_ = s.substr(start, pos - start);
      char* end = nullptr;
      out->number_ = std::strtod(out->text_.c_str(), &end);
      if (end != out->text_.c_str() + out->text_.size() || out->text_.back() == '.') return Fail("bad number");
      return true;
    }
    bool Value(JsonValue* out) {
      if (pos >= s.size()) return Fail("value expected");
      const char c = s[pos];
      if (c == 'n') return Literal("null");
      if (c == 't' || c == 'f') {
        out->type_ = Type::kBool;
        out->bool_ = c == 't';
        return Literal(c == 't' ? "true" : "false");
      }
      if (c == '"') {
        out->type_ = Type::kString;
        return String(&out->text_);
      }
      if (c == '[') {
        out->type_ = Type::kArray;
        ++pos;
        SkipWs();
        if (pos < s.size() && s[pos] == ']') return ++pos, true;
        for (;;) {
          auto item = std::make_unique<JsonValue>();
          SkipWs();
          if (!Value(item.get())) return false;
          out->items_.push_back(std::move(item));
          SkipWs();
          if (pos < s.size() && s[pos] == ',') {
            ++pos;
            continue;
          }
          if (pos < s.size() && s[pos] == ']') return ++pos, true;
          return Fail("',' or ']' expected");
        }
      }
      if (c == '{') {
        out->type_ = Type::kObject;
        ++pos;
        SkipWs();
        if (pos < s.size() && s[pos] == '}') return ++pos, true;
        for (;;) {
          SkipWs();
          std::string key;
          if (!String(&key)) return false;
          for (const auto& m : out->members_) {
            if (m.first == key) return Fail("duplicate key");
          }
          SkipWs();
          if (pos >= s.size() || s[pos] != ':') return Fail("':' expected");
          ++pos;
          SkipWs();
          auto member = std::make_unique<JsonValue>();
          if (!Value(member.get())) return false;
          out->members_.emplace_back(std::move(key), std::move(member));
          SkipWs();
          if (pos < s.size() && s[pos] == ',') {
            ++pos;
            continue;
          }
          if (pos < s.size() && s[pos] == '}') return ++pos, true;
          return Fail("',' or '}' expected");
        }
      }
      return Number(out);
    }
  };

  Type type_ = Type::kNull;
  bool bool_ = false;
  bool missing_ = false;
  double number_ = 0;
  std::string text_;
  std::vector<std::unique_ptr<JsonValue>> items_;
  std::vector<std::pair<std::string, std::unique_ptr<JsonValue>>> members_;
};

}  // namespace lumx::test
