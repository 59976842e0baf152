// Program: the public face of the formula engine (formula.h). Compiling runs the lexer,
// the parser (which builds and folds the value graph) and the code generator; running
// hands the compiled code to the interpreters in vm.cpp.
#include "expr/formula.h"

#include "expr/code.h"
#include "expr/codegen.h"
#include "expr/graph.h"
#include "expr/lexer.h"
#include "expr/parser.h"
#include "expr/vm.h"

#include <algorithm>

namespace expr {

template <typename T>
struct Program<T>::Impl {
    Code<T> code;
    bool valid = false;
};

template <typename T> Program<T>::Program() : mImpl(std::make_unique<Impl>()) {}

template <typename T> Program<T>::~Program() = default;

template <typename T>
bool Program<T>::compile(const std::string& text, const SymbolTable<T>& symbols, std::string* error)
{
    mImpl->valid = false;
    mImpl->code = Code<T>();
    std::string message;
    std::vector<Token> tokens;
    tokens.reserve(32);
    if (Lexer::tokenize(text, tokens, message)) {
        Graph<T> graph;
        Parser<T> parser(tokens, symbols, graph);
        const int root = parser.parseProgram(message);
        if (root >= 0) mImpl->valid = CodeGen<T>::generate(graph, root, symbols, mImpl->code, message);
    }
    if (!mImpl->valid) mImpl->code = Code<T>();
    if (error) *error = mImpl->valid ? std::string() : message;
    return mImpl->valid;
}

template <typename T> bool Program<T>::valid() const
{
    return mImpl->valid;
}

template <typename T> T Program<T>::value(size_t i) const
{
    return mImpl->valid ? Vm<T>::run(mImpl->code, i) : T(0);
}

template <typename T> void Program<T>::values(size_t first, size_t count, T* out) const
{
    if (mImpl->valid)
        Vm<T>::runBlocks(mImpl->code, first, count, out);
    else
        std::fill_n(out, count, T(0));
}

template class Program<float>;
template class Program<double>;

} // namespace expr
