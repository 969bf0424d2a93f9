#include "scene/json_positions.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>

namespace {
class Indexer {
public:
    explicit Indexer(std::string_view text) : fText(text) {
        fLineStarts.push_back(0);
        for (size_t i = 0; i < text.size(); ++i)
            if (text[i] == '\n') fLineStarts.push_back(i + 1);
        // A byte-order mark is skipped by the parser as well.
        if (fText.substr(0, 3) == "\xEF\xBB\xBF") fPos = 3;
    }

    bool value(TjsonPositions& out) {
        skipSpace();
        out.at = where(fPos);
        if (fPos >= fText.size()) return true;
        char c = fText[fPos];
        if (c == '{') return object(out);
        if (c == '[') return array(out);
        if (c == '"') {
            string(nullptr);
            return true;
        }
        while (fPos < fText.size() && !std::isspace(static_cast<unsigned char>(fText[fPos])) && fText[fPos] != ',' &&
               fText[fPos] != ']' && fText[fPos] != '}')
            ++fPos;
        return true;
    }

    TtextPosition duplicateAt;
    std::string duplicateKey;

private:
    bool object(TjsonPositions& out) {
        ++fPos;
        skipSpace();
        if (peek() == '}') {
            ++fPos;
            return true;
        }
        for (;;) {
            skipSpace();
            TtextPosition keyAt = where(fPos);
            std::string key;
            string(&key);
            if (std::find(out.names.begin(), out.names.end(), key) != out.names.end()) {
                duplicateAt = keyAt;
                duplicateKey = key;
                return false;
            }
            skipSpace();
            ++fPos;  // ':'
            out.keys.push_back(keyAt);
            out.names.push_back(key);
            out.items.emplace_back();
            if (!value(out.items.back())) return false;
            skipSpace();
            if (peek() == ',') {
                ++fPos;
                continue;
            }
            ++fPos;  // '}'
            return true;
        }
    }

    bool array(TjsonPositions& out) {
        ++fPos;
        skipSpace();
        if (peek() == ']') {
            ++fPos;
            return true;
        }
        for (;;) {
            out.items.emplace_back();
            if (!value(out.items.back())) return false;
            skipSpace();
            if (peek() == ',') {
                ++fPos;
                continue;
            }
            ++fPos;  // ']'
            return true;
        }
    }

    // Reads a string token, decoding escapes so that keys compare as the
    // parser compares them.
    void string(std::string* out) {
        ++fPos;
        while (fPos < fText.size() && fText[fPos] != '"') {
            char c = fText[fPos++];
            if (c != '\\') {
                if (out) out->push_back(c);
                continue;
            }
            char e = peek();
            ++fPos;
            if (!out) continue;  // a value: only its end matters
            switch (e) {
                case 'b': out->push_back('\b'); break;
                case 'f': out->push_back('\f'); break;
                case 'n': out->push_back('\n'); break;
                case 'r': out->push_back('\r'); break;
                case 't': out->push_back('\t'); break;
                case 'u': appendUtf8(*out, codePoint()); break;
                default: out->push_back(e); break;
            }
        }
        ++fPos;
    }

    unsigned hex4() {
        unsigned v = 0;
        for (int i = 0; i < 4 && fPos < fText.size(); ++i, ++fPos) {
            char h = fText[fPos];
            v = v * 16 + unsigned(h <= '9' ? h - '0' : (std::tolower(static_cast<unsigned char>(h)) - 'a' + 10));
        }
        return v;
    }
    unsigned codePoint() {
        unsigned v = hex4();
        if (v >= 0xD800 && v < 0xDC00 && fText.substr(fPos, 2) == "\\u") {
            fPos += 2;
            unsigned low = hex4();
            v = 0x10000 + ((v - 0xD800) << 10) + (low - 0xDC00);
        }
        return v;
    }
    static void appendUtf8(std::string& s, unsigned cp) {
        if (cp < 0x80) {
            s.push_back(char(cp));
        } else if (cp < 0x800) {
            s.push_back(char(0xC0 | (cp >> 6)));
            s.push_back(char(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            s.push_back(char(0xE0 | (cp >> 12)));
            s.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
            s.push_back(char(0x80 | (cp & 0x3F)));
        } else {
            s.push_back(char(0xF0 | (cp >> 18)));
            s.push_back(char(0x80 | ((cp >> 12) & 0x3F)));
            s.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
            s.push_back(char(0x80 | (cp & 0x3F)));
        }
    }

    void skipSpace() {
        while (fPos < fText.size() && (fText[fPos] == ' ' || fText[fPos] == '\t' || fText[fPos] == '\n' || fText[fPos] == '\r'))
            ++fPos;
    }
    char peek() const { return fPos < fText.size() ? fText[fPos] : '\0'; }

    TtextPosition where(size_t offset) const {
        auto it = std::upper_bound(fLineStarts.begin(), fLineStarts.end(), offset);
        size_t line = size_t(it - fLineStarts.begin());
        return {unsigned(line), unsigned(offset - fLineStarts[line - 1] + 1)};
    }

    std::string_view fText;
    size_t fPos = 0;
    std::vector<size_t> fLineStarts;
};
}  // namespace

bool TjsonPositions::index(std::string_view text, TjsonPositions& root, TtextPosition* duplicateAt, std::string* duplicateKey) {
    root = TjsonPositions();
    Indexer indexer(text);
    if (indexer.value(root)) return true;
    if (duplicateAt) *duplicateAt = indexer.duplicateAt;
    if (duplicateKey) *duplicateKey = indexer.duplicateKey;
    return false;
}

TtextPosition textPositionOf(std::string_view text, size_t offset) {
    offset = std::min(offset, text.size());
    TtextPosition p{1, 1};
    for (size_t i = 0; i < offset; ++i) {
        if (text[i] == '\n') {
            ++p.line;
            p.column = 1;
        } else {
            ++p.column;
        }
    }
    return p;
}

namespace {
// Calls visit(i) for each character of `text` outside string literals, until
// it returns false; visit may move i past a token it has read.
template <class F>
void scanOutsideStrings(std::string_view text, F&& visit) {
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (!visit(i)) {
            return;
        }
    }
}
}  // namespace

TtextPosition firstTooDeep(std::string_view text, unsigned maxDepth) {
    unsigned depth = 0;
    TtextPosition found;
    scanOutsideStrings(text, [&](size_t& i) {
        const char c = text[i];
        if (c == '[' || c == '{') {
            if (++depth > maxDepth) {
                found = textPositionOf(text, i);
                return false;
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
        return true;
    });
    return found;
}

TtextPosition firstNumberBeyondDouble(std::string_view text, std::string* number) {
    auto inNumber = [](char c) {
        return std::isdigit(static_cast<unsigned char>(c)) || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E';
    };
    TtextPosition found;
    scanOutsideStrings(text, [&](size_t& i) {
        const char c = text[i];
        if (c != '-' && !std::isdigit(static_cast<unsigned char>(c))) return true;
        size_t end = i;
        while (end < text.size() && inNumber(text[end])) ++end;
        const std::string token(text.substr(i, end - i));
        if (std::isinf(std::strtod(token.c_str(), nullptr))) {
            if (number) *number = token;
            found = textPositionOf(text, i);
            return false;
        }
        i = end - 1;
        return true;
    });
    return found;
}
