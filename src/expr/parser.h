// Recursive-descent parser of the formula language. Reads the lexer's tokens, resolves
// names against the symbol table, built-ins and `var` locals, and builds the value graph
// (graph.h) directly. Locals are compile-time names for graph nodes, so assignment is
// just rebinding; branches merge what they assigned through a select on the condition.
#pragma once

#include "expr/builtins.h"
#include "expr/formula.h"
#include "expr/graph.h"
#include "expr/lexer.h"

#include <string>
#include <vector>

namespace expr {

template <typename T>
class Parser {
public:
    Parser(const std::vector<Token>& tokens, const SymbolTable<T>& symbols, Graph<T>& graph);

    // The node holding the program's value, or -1 with `error` set.
    int parseProgram(std::string& error);

private:
    struct Local {
        std::string name; // lower case
        int node = -1;
    };
    class Depth;

    const Token& peek(size_t ahead = 0) const;
    const Token& next();
    bool accept(Tok kind);
    void expect(Tok kind, const char* what);
    [[noreturn]] void fail(const std::string& message) const;
    [[noreturn]] void failAt(const std::string& message, const Token& at) const;
    static bool isWord(const Token& t, const char* lowerWord);

    int statements(Tok end);
    int scopedStatements(Tok end);
    int statement();
    int declaration();
    int assignment();
    int branch();
    int expression();
    int logicalOr();
    int logicalXor();
    int logicalAnd();
    int comparison();
    int additive();
    int multiplicative();
    int unary();
    int power();
    int primary();
    int identifier();
    int vectorElement(int entry, int index);
    int functionCall(const Token& name, const std::string& lower);
    int builtinCall(const Builtin& b, const Token& name);
    int userCall(int entry, const Token& name);
    int genericCall(int entry);
    int ifForm();
    std::vector<int> arguments();
    template <class A, class B> int conditional(int cond, A&& whenTrue, B&& whenFalse);

    int findEntry(std::string_view name) const;
    int findLocal(const std::string& lower) const;

    const std::vector<Token>& mTokens;
    size_t mPos = 0;
    const SymbolTable<T>& mSymbols;
    Graph<T>& mGraph;
    std::vector<Local> mLocals;
    size_t mScope = 0;  // first local of the innermost block
    int mGuard = -1;    // condition under which calls parsed now would run
    int mDepth = 0;
};

extern template class Parser<float>;
extern template class Parser<double>;

} // namespace expr
