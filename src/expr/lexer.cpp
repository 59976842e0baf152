// Tokenizer of the formula language. Besides splitting the text it inserts the implicit
// multiplication exprtk allows after a number ("2x", "3(x+1)" read as 2*x, 3*(x+1)).
#include "expr/lexer.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace expr {

namespace {

bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
char lowerChar(char c) { return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c; }

// Reads the number starting at `i`; `end` is set one past it.
double readNumber(std::string_view s, size_t i, size_t& end)
{
    size_t j = i;
    while (j < s.size() && isDigit(s[j])) ++j;
    if (j < s.size() && s[j] == '.') {
        ++j;
        while (j < s.size() && isDigit(s[j])) ++j;
    }
    bool negativeExponent = false;
    if (j < s.size() && (s[j] == 'e' || s[j] == 'E')) {
        size_t k = j + 1;
        if (k < s.size() && (s[k] == '+' || s[k] == '-')) {
            negativeExponent = s[k] == '-';
            ++k;
        }
        if (k < s.size() && isDigit(s[k])) {
            while (k < s.size() && isDigit(s[k])) ++k;
            j = k;
        } else {
            negativeExponent = false;
        }
    }
    end = j;
    double value = 0.0;
    const auto r = std::from_chars(s.data() + i, s.data() + j, value);
    if (r.ec == std::errc::result_out_of_range) {
        // Too large or too small for a double: decide which by the digits before any '.'.
        bool wholeNonZero = false;
        for (size_t k = i; k < j && isDigit(s[k]); ++k) wholeNonZero |= s[k] != '0';
        value = (wholeNonZero && !negativeExponent) ? HUGE_VAL : 0.0;
    }
    return value;
}

// The operator at s[i] and its length, or Tok::End when there is none.
Tok readOperator(std::string_view s, size_t i, size_t& length)
{
    const char c = s[i];
    const char d = i + 1 < s.size() ? s[i + 1] : '\0';
    length = 2;
    switch (c) {
    case ':': if (d == '=') return Tok::Assign; length = 1; return Tok::Colon;
    case '+': if (d == '=') return Tok::AddAssign; length = 1; return Tok::Plus;
    case '-': if (d == '=') return Tok::SubAssign; length = 1; return Tok::Minus;
    case '*': if (d == '=') return Tok::MulAssign; length = 1; return Tok::Star;
    case '/': if (d == '=') return Tok::DivAssign; length = 1; return Tok::Slash;
    case '%': if (d == '=') return Tok::ModAssign; length = 1; return Tok::Percent;
    case '<':
        if (d == '=') return Tok::Le;
        if (d == '>') return Tok::Ne;
        length = 1;
        return Tok::Lt;
    case '>': if (d == '=') return Tok::Ge; length = 1; return Tok::Gt;
    case '=': if (d == '=') return Tok::Eq; length = 1; return Tok::Eq;
    case '!': if (d == '=') return Tok::Ne; length = 1; return Tok::Bang;
    case '&': if (d == '&') return Tok::And; length = 1; return Tok::And;
    case '|': if (d == '|') return Tok::Or; length = 1; return Tok::Or;
    default: break;
    }
    length = 1;
    switch (c) {
    case '^': return Tok::Caret;
    case '(': return Tok::LParen;
    case ')': return Tok::RParen;
    case '[': return Tok::LBracket;
    case ']': return Tok::RBracket;
    case '{': return Tok::LBrace;
    case '}': return Tok::RBrace;
    case ',': return Tok::Comma;
    case ';': return Tok::Semicolon;
    case '?': return Tok::Question;
    default: return Tok::End;
    }
}

// Words after which a number is not an implicit factor ("if (c) 2 else 3").
bool continuesAfterOperand(std::string_view word)
{
    static const char* const words[] = {"else", "and", "or", "xor", "nand", "nor", "xnor"};
    for (const char* w : words)
        if (equalsNoCase(word, w)) return true;
    return false;
}

} // namespace

std::string lowerAscii(std::string_view s)
{
    std::string out(s);
    for (char& c : out) c = lowerChar(c);
    return out;
}

bool equalsNoCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (lowerChar(a[i]) != lowerChar(b[i])) return false;
    return true;
}

bool isReservedWord(std::string_view w)
{
    static const char* const words[] = {"if", "else", "var", "and", "or", "not", "xor",
                                        "nand", "nor", "xnor", "true", "false"};
    for (const char* r : words)
        if (w == r) return true;
    return false;
}

bool isIdentifier(std::string_view name)
{
    if (name.empty() || !isAlpha(name[0])) return false;
    for (char c : name)
        if (!isAlpha(c) && !isDigit(c)) return false;
    return true;
}

std::string describe(const Token& t)
{
    if (t.kind == Tok::End) return "end of expression";
    return "'" + std::string(t.text) + "'";
}

bool Lexer::tokenize(std::string_view s, std::vector<Token>& out, std::string& error)
{
    size_t i = 0;
    while (i < s.size()) {
        const char c = s[i];
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v') {
            ++i;
            continue;
        }
        if (c == '#' || (c == '/' && i + 1 < s.size() && s[i + 1] == '/')) {
            while (i < s.size() && s[i] != '\n') ++i;
            continue;
        }
        if (c == '/' && i + 1 < s.size() && s[i + 1] == '*') {
            const size_t close = s.find("*/", i + 2);
            if (close == std::string_view::npos) {
                error = "unterminated comment at position " + std::to_string(i);
                return false;
            }
            i = close + 2;
            continue;
        }
        Token t;
        t.pos = static_cast<uint32_t>(i);
        if (isDigit(c) || (c == '.' && i + 1 < s.size() && isDigit(s[i + 1]))) {
            size_t end = i;
            t.kind = Tok::Number;
            t.number = readNumber(s, i, end);
            t.text = s.substr(i, end - i);
            i = end;
        } else if (isAlpha(c)) {
            size_t end = i;
            while (end < s.size() && (isAlpha(s[end]) || isDigit(s[end]))) ++end;
            t.kind = Tok::Ident;
            t.text = s.substr(i, end - i);
            i = end;
        } else {
            size_t length = 0;
            t.kind = readOperator(s, i, length);
            if (t.kind == Tok::End) {
                char buf[48];
                const unsigned char u = static_cast<unsigned char>(c);
                if (u >= 0x20 && u < 0x7f)
                    std::snprintf(buf, sizeof buf, "unexpected character '%c'", c);
                else
                    std::snprintf(buf, sizeof buf, "unexpected byte 0x%02x", u);
                error = std::string(buf) + " at position " + std::to_string(i);
                return false;
            }
            t.text = s.substr(i, length);
            i += length;
        }
        const bool afterNumber = !out.empty() && out.back().kind == Tok::Number;
        if (afterNumber && (t.kind == Tok::LParen ||
                            (t.kind == Tok::Ident && !continuesAfterOperand(t.text)))) {
            Token star;
            star.kind = Tok::Star;
            star.pos = t.pos;
            star.text = "*";
            out.push_back(star);
        }
        out.push_back(t);
    }
    Token end;
    end.kind = Tok::End;
    end.pos = static_cast<uint32_t>(s.size());
    out.push_back(end);
    return true;
}

} // namespace expr
