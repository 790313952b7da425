// Small, strict readers for JSON and CSV, written apart from the writers
// under test so that a test can check that what they wrote parses.
#pragma once

#include <cctype>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

struct JsonValue {
    enum class Type { Null, Bool, Number, String, Array, Object } type = Type::Null;
    bool boolean = false;
    double number = 0;
    std::string text;
    std::vector<JsonValue> items;
    std::vector<std::pair<std::string, JsonValue>> members;

    // The member named key, or null when there is none (or this is no object).
    const JsonValue *get(const std::string &key) const {
        for (const auto &m : members)
            if (m.first == key) return &m.second;
        return nullptr;
    }
};

namespace text_formats_detail {

struct JsonReader {
    const std::string &s;
    size_t pos = 0;

    void blanks() {
        while (pos < s.size() &&
               (s[pos] == ' ' || s[pos] == '\t' || s[pos] == '\n' || s[pos] == '\r'))
            ++pos;
    }
    bool literal(const char *word) {
        std::string w = word;
        if (s.compare(pos, w.size(), w) != 0) return false;
        pos += w.size();
        return true;
    }
    static void put_utf8(std::string &out, unsigned cp) {
        if (cp < 0x80) {
            out += char(cp);
        } else if (cp < 0x800) {
            out += char(0xC0 | (cp >> 6));
            out += char(0x80 | (cp & 0x3F));
        } else {
            out += char(0xE0 | (cp >> 12));
            out += char(0x80 | ((cp >> 6) & 0x3F));
            out += char(0x80 | (cp & 0x3F));
        }
    }
    bool string(std::string *out) {
        if (pos >= s.size() || s[pos] != '"') return false;
        ++pos;
        while (pos < s.size()) {
            unsigned char c = static_cast<unsigned char>(s[pos++]);
            if (c == '"') return true;
            if (c < 0x20) return false;  // control characters must be escaped
            if (c != '\\') {
                *out += char(c);
                continue;
            }
            if (pos >= s.size()) return false;
            char e = s[pos++];
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
                    if (pos + 4 > s.size()) return false;
                    unsigned cp = 0;
                    for (int i = 0; i < 4; ++i) {
                        char h = s[pos++];
                        if (!std::isxdigit(static_cast<unsigned char>(h))) return false;
                        cp = cp * 16 +
                             unsigned(std::isdigit(static_cast<unsigned char>(h))
                                          ? h - '0'
                                          : std::tolower(static_cast<unsigned char>(h)) - 'a' + 10);
                    }
                    put_utf8(*out, cp);
                    break;
                }
                default: return false;
            }
        }
        return false;
    }
    bool number(double *out) {
        size_t start = pos;
        if (pos < s.size() && s[pos] == '-') ++pos;
        if (pos >= s.size() || !std::isdigit(static_cast<unsigned char>(s[pos]))) return false;
        if (s[pos] == '0') {
            ++pos;
        } else {
            while (pos < s.size() && std::isdigit(static_cast<unsigned char>(s[pos]))) ++pos;
        }
        if (pos < s.size() && s[pos] == '.') {
            ++pos;
            if (pos >= s.size() || !std::isdigit(static_cast<unsigned char>(s[pos]))) return false;
            while (pos < s.size() && std::isdigit(static_cast<unsigned char>(s[pos]))) ++pos;
        }
        if (pos < s.size() && (s[pos] == 'e' || s[pos] == 'E')) {
            ++pos;
            if (pos < s.size() && (s[pos] == '+' || s[pos] == '-')) ++pos;
            if (pos >= s.size() || !std::isdigit(static_cast<unsigned char>(s[pos]))) return false;
            while (pos < s.size() && std::isdigit(static_cast<unsigned char>(s[pos]))) ++pos;
        }
        *out = std::strtod(s.substr(start, pos - start).c_str(), nullptr);
        return true;
    }
    bool value(JsonValue *v, int depth) {
        if (depth > 64) return false;
        blanks();
        if (pos >= s.size()) return false;
        char c = s[pos];
        if (c == '{') {
            ++pos;
            v->type = JsonValue::Type::Object;
            blanks();
            if (pos < s.size() && s[pos] == '}') return ++pos, true;
            for (;;) {
                blanks();
                std::string key;
                if (!string(&key)) return false;
                blanks();
                if (pos >= s.size() || s[pos] != ':') return false;
                ++pos;
                JsonValue member;
                if (!value(&member, depth + 1)) return false;
                v->members.emplace_back(key, std::move(member));
                blanks();
                if (pos < s.size() && s[pos] == ',') {
                    ++pos;
                    continue;
                }
                if (pos < s.size() && s[pos] == '}') return ++pos, true;
                return false;
            }
        }
        if (c == '[') {
            ++pos;
            v->type = JsonValue::Type::Array;
            blanks();
            if (pos < s.size() && s[pos] == ']') return ++pos, true;
            for (;;) {
                JsonValue item;
                if (!value(&item, depth + 1)) return false;
                v->items.push_back(std::move(item));
                blanks();
                if (pos < s.size() && s[pos] == ',') {
                    ++pos;
                    continue;
                }
                if (pos < s.size() && s[pos] == ']') return ++pos, true;
                return false;
            }
        }
        if (c == '"') {
            v->type = JsonValue::Type::String;
            return string(&v->text);
        }
        if (literal("null")) return v->type = JsonValue::Type::Null, true;
        if (literal("true")) return v->type = JsonValue::Type::Bool, v->boolean = true, true;
        if (literal("false")) return v->type = JsonValue::Type::Bool, v->boolean = false, true;
        v->type = JsonValue::Type::Number;
        return number(&v->number);
    }
};

}  // namespace text_formats_detail

// The whole text as one JSON value (blanks around it allowed, nothing else).
inline bool parse_json(const std::string &text, JsonValue *out) {
    text_formats_detail::JsonReader r{text};
    *out = JsonValue();
    if (!r.value(out, 0)) return false;
    r.blanks();
    return r.pos == text.size();
}

// CSV as RFC 4180 writes it: fields separated by commas, a field in double
// quotes may hold commas, line ends and doubled quotes. Each record ends with
// "\n" or "\r\n". False on a stray quote or an unclosed field.
inline bool parse_csv(const std::string &text, std::vector<std::vector<std::string>> *rows) {
    rows->clear();
    std::vector<std::string> row;
    std::string field;
    size_t i = 0;
    bool any = false;  // the current record has begun
    while (i < text.size()) {
        char c = text[i];
        if (c == '"' && field.empty()) {
            ++i;
            for (;;) {
                if (i >= text.size()) return false;
                if (text[i] == '"') {
                    if (i + 1 < text.size() && text[i + 1] == '"') {
                        field += '"';
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                field += text[i++];
            }
            any = true;
            if (i < text.size() && text[i] != ',' && text[i] != '\n' && text[i] != '\r')
                return false;
            continue;
        }
        if (c == '"') return false;
        if (c == ',') {
            row.push_back(field);
            field.clear();
            any = true;
            ++i;
            continue;
        }
        if (c == '\r' || c == '\n') {
            if (c == '\r' && (i + 1 >= text.size() || text[i + 1] != '\n')) return false;
            i += c == '\r' ? 2 : 1;
            row.push_back(field);
            field.clear();
            rows->push_back(row);
            row.clear();
            any = false;
            continue;
        }
        field += c;
        any = true;
        ++i;
    }
    if (any) {
        row.push_back(field);
        rows->push_back(row);
    }
    return true;
}
