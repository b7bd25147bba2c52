#include "json_value.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace lumx::cli {

class JsonReader {
 public:
  explicit JsonReader(std::string_view text) : s_(text) {}

  bool Document(JsonValue* out, std::string* error) {
    if (!Value(out, 0)) return Report(error);
    Space();
    if (k_ != s_.size()) {
      why_ = "text after the document";
      return Report(error);
    }
    return true;
  }

 private:
  static constexpr int kMaxDepth = 64;

  bool Report(std::string* error) {
    if (error) *error = why_ + " at byte " + std::to_string(k_);
    return false;
  }
  bool Fail(const char* why) {
    why_ = why;
    return false;
  }
  void Space() {
    while (k_ < s_.size() && (s_[k_] == ' ' || s_[k_] == '\t' || s_[k_] == '\n' || s_[k_] == '\r')) ++k_;
  }
  bool Literal(std::string_view word) {
    if (s_.substr(k_, word.size()) != word) return Fail("unexpected character");
    k_ += word.size();
    return true;
  }

  bool Value(JsonValue* v, int depth) {
    if (depth >= kMaxDepth) return Fail("nesting too deep");
    Space();
    if (k_ >= s_.size()) return Fail("unexpected end");
    switch (s_[k_]) {
      case '{': return Object(v, depth);
      case '[': return Array(v, depth);
      case '"':
        v->type_ = JsonValue::Type::kString;
        return String(&v->string_);
      case 't':
        v->type_ = JsonValue::Type::kBool;
        v->bool_ = true;
        return Literal("true");
      case 'f':
        v->type_ = JsonValue::Type::kBool;
        return Literal("false");
      case 'n':
        return Literal("null");
      default:
        return Number(v);
    }
  }

  bool Object(JsonValue* v, int depth) {
    v->type_ = JsonValue::Type::kObject;
    ++k_;
    Space();
    if (k_ < s_.size() && s_[k_] == '}') {
      ++k_;
      return true;
    }
    for (;;) {
      Space();
      if (k_ >= s_.size() || s_[k_] != '"') return Fail("expected a member name");
      std::string key;
      if (!String(&key)) return false;
      Space();
      if (k_ >= s_.size() || s_[k_] != ':') return Fail("expected ':'");
      ++k_;
      JsonValue member;
      if (!Value(&member, depth + 1)) return false;
      v->object_[key] = std::move(member);
      Space();
      if (k_ < s_.size() && s_[k_] == ',') {
        ++k_;
        continue;
      }
      if (k_ < s_.size() && s_[k_] == '}') {
        ++k_;
        return true;
      }
      return Fail("expected ',' or '}'");
    }
  }

  bool Array(JsonValue* v, int depth) {
    v->type_ = JsonValue::Type::kArray;
    ++k_;
    Space();
    if (k_ < s_.size() && s_[k_] == ']') {
      ++k_;
      return true;
    }
    for (;;) {
      JsonValue item;
      if (!Value(&item, depth + 1)) return false;
      v->array_.push_back(std::move(item));
      Space();
      if (k_ < s_.size() && s_[k_] == ',') {
        ++k_;
        continue;
      }
      if (k_ < s_.size() && s_[k_] == ']') {
        ++k_;
        return true;
      }
      return Fail("expected ',' or ']'");
    }
  }

  static int Hex(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  }

  bool Hex4(uint32_t* out) {
    if (k_ + 4 > s_.size()) return Fail("short \\u escape");
    uint32_t v = 0;
    for (int j = 0; j < 4; ++j) {
      int d = Hex(s_[k_ + j]);
      if (d < 0) return Fail("bad \\u escape");
      v = (v << 4) | static_cast<uint32_t>(d);
    }
    k_ += 4;
    *out = v;
    return true;
  }

  static void AppendUtf8(std::string* out, uint32_t cp) {
    if (cp < 0x80) {
      *out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      *out += static_cast<char>(0xc0 | (cp >> 6));
      *out += static_cast<char>(0x80 | (cp & 0x3f));
    } else if (cp < 0x10000) {
      *out += static_cast<char>(0xe0 | (cp >> 12));
      *out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
      *out += static_cast<char>(0x80 | (cp & 0x3f));
    } else {
      *out += static_cast<char>(0xf0 | (cp >> 18));
      *out += static_cast<char>(0x80 | ((cp >> 12) & 0x3f));
      *out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
      *out += static_cast<char>(0x80 | (cp & 0x3f));
    }
  }

  bool String(std::string* out) {
    ++k_;  // opening quote
    for (;;) {
      if (k_ >= s_.size()) return Fail("unterminated string");
      const auto c = static_cast<unsigned char>(s_[k_++]);
      if (c == '"') return true;
      if (c < 0x20) return Fail("control character in a string");
      if (c != '\\') {
        *out += static_cast<char>(c);
        continue;
      }
      if (k_ >= s_.size()) return Fail("unterminated string");
      const char e = s_[k_++];
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
          uint32_t cp = 0;
          if (!Hex4(&cp)) return false;
          if (cp >= 0xd800 && cp <= 0xdbff && s_.substr(k_, 2) == "\\u") {
            k_ += 2;
            uint32_t low = 0;
            if (!Hex4(&low)) return false;
            if (low < 0xdc00 || low > 0xdfff) return Fail("bad surrogate pair");
            cp = 0x10000 + ((cp - 0xd800) << 10) + (low - 0xdc00);
          }
          AppendUtf8(out, cp);
          break;
        }
        default:
          return Fail("bad escape");
      }
    }
  }

  bool Number(JsonValue* v) {
    const size_t start = k_;
    if (k_ < s_.size() && s_[k_] == '-') ++k_;
    auto digits = [&] {
      size_t from = k_;
      while (k_ < s_.size() && s_[k_] >= '0' && s_[k_] <= '9') ++k_;
      return k_ - from;
    };
    const size_t intStart = k_;
    const size_t intDigits = digits();
    if (intDigits == 0) return Fail("unexpected character");
    if (intDigits > 1 && s_[intStart] == '0') return Fail("leading zero");
    bool integral = true;
    if (k_ < s_.size() && s_[k_] == '.') {
      ++k_;
      integral = false;
      if (digits() == 0) return Fail("digits expected after '.'");
    }
    if (k_ < s_.size() && (s_[k_] == 'e' || s_[k_] == 'E')) {
      ++k_;
      integral = false;
      if (k_ < s_.size() && (s_[k_] == '+' || s_[k_] == '-')) ++k_;
      if (digits() == 0) return Fail("digits expected in the exponent");
    }
    const std::string text(s_.substr(start, k_ - start));
    v->type_ = JsonValue::Type::kNumber;
    v->number_ = strtod(text.c_str(), nullptr);
    if (integral && s_[start] != '-') {
      errno = 0;
      const unsigned long long u = strtoull(text.c_str(), nullptr, 10);
      v->isUnsigned_ = errno != ERANGE;
      v->unsigned_ = u;
    }
    if (!std::isfinite(v->number_)) return Fail("number out of range");
    return true;
  }

  std::string_view s_;
  size_t k_ = 0;
  std::string why_;
};

bool JsonValue::Parse(std::string_view text, JsonValue* out, std::string* error) {
  *out = JsonValue{};
  JsonReader reader(text);
  return reader.Document(out, error);
}

const JsonValue& JsonValue::operator[](const std::string& key) const {
  static const JsonValue kNull;
  auto it = object_.find(key);
  return it == object_.end() ? kNull : it->second;
}

bool JsonValue::has(const std::string& key) const { return object_.count(key) != 0; }

}  // namespace lumx::cli
