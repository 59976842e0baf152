// Splits formula text into tokens: numbers, identifiers and operators, skipping blanks
// and comments (#, // and /* */). The first stage of Program::compile; the parser reads
// the token list. Number text is read without regard to the process locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace expr {

enum class Tok : uint8_t {
    End, Number, Ident,
    Plus, Minus, Star, Slash, Percent, Caret,
    LParen, RParen, LBracket, RBracket, LBrace, RBrace,
    Comma, Semicolon, Question, Colon,
    Assign, AddAssign, SubAssign, MulAssign, DivAssign, ModAssign,
    Lt, Le, Gt, Ge, Eq, Ne,
    And, Or, Bang
};

struct Token {
    Tok kind = Tok::End;
    uint32_t pos = 0;      // byte offset in the source
    double number = 0.0;   // Number
    std::string_view text; // the source characters (views the compiled string)
};

// ASCII lower case, independent of the locale.
std::string lowerAscii(std::string_view s);
bool equalsNoCase(std::string_view a, std::string_view b);
// Words with a meaning of their own: never symbol names.
bool isReservedWord(std::string_view lowerName);
bool isIdentifier(std::string_view name);
// How a token reads in an error message, e.g. "')'".
std::string describe(const Token& t);

class Lexer {
public:
    // Appends the tokens of `text` and a final End. False with a message on a bad character.
    static bool tokenize(std::string_view text, std::vector<Token>& out, std::string& error);
};

} // namespace expr
