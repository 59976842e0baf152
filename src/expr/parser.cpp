// The formula parser: statements, operators by precedence, names, and calls of built-in
// and caller functions, building graph nodes as it goes. Nesting is limited so that no
// input can exhaust the C++ stack.
#include "expr/parser.h"

#include <cmath>
#include <limits>

namespace expr {

// Grammar, loosest binding first:
//   statements  := statement { ';' statement }      value of the last one
//   statement   := 'var' name [':=' expr] | name (':=' | '+=' ...) expr | expr
//   expr        := or [ '?' expr ':' expr ]
//   or / xor / and := next level joined by or|nor|'|' / xor|xnor / and|nand|'&'
//   comparison  := additive { (< <= > >= == = != <>) additive }
//   additive    := multiplicative { (+ -) multiplicative }
//   multiplicative := unary { (* / %) unary }
//   unary       := { - + ! not } power              so -x^2 is -(x^2)
//   power       := primary [ '^' unary ]            right associative, 2^-1 allowed

namespace {

struct ParseError {
    std::string message;
};

constexpr int kMaxDepth = 256;       // nesting budget: keeps the C++ stack small

std::string at(const Token& t) { return " at position " + std::to_string(t.pos); }

} // namespace

template <typename T>
class Parser<T>::Depth {
public:
    explicit Depth(Parser& p) : mParser(p)
    {
        if (++mParser.mDepth > kMaxDepth) mParser.fail("expression nested too deeply");
    }
    ~Depth() { --mParser.mDepth; }
    Depth(const Depth&) = delete;
    Depth& operator=(const Depth&) = delete;

private:
    Parser& mParser;
};

template <typename T>
Parser<T>::Parser(const std::vector<Token>& tokens, const SymbolTable<T>& symbols, Graph<T>& graph)
    : mTokens(tokens), mSymbols(symbols), mGraph(graph)
{
}

template <typename T> int Parser<T>::parseProgram(std::string& error)
{
    try {
        return statements(Tok::End);
    } catch (const ParseError& e) {
        error = e.message;
        return -1;
    }
}

template <typename T> const Token& Parser<T>::peek(size_t ahead) const
{
    const size_t i = mPos + ahead;
    return i < mTokens.size() ? mTokens[i] : mTokens.back();
}

template <typename T> const Token& Parser<T>::next()
{
    const Token& t = peek();
    if (mPos + 1 < mTokens.size()) ++mPos;
    return t;
}

template <typename T> bool Parser<T>::accept(Tok kind)
{
    if (peek().kind != kind) return false;
    next();
    return true;
}

template <typename T> void Parser<T>::expect(Tok kind, const char* what)
{
    if (!accept(kind)) failAt(std::string("expected ") + what + " but found " + describe(peek()), peek());
}

template <typename T> void Parser<T>::fail(const std::string& message) const
{
    throw ParseError{message};
}

template <typename T> void Parser<T>::failAt(const std::string& message, const Token& t) const
{
    throw ParseError{message + at(t)};
}

template <typename T> bool Parser<T>::isWord(const Token& t, const char* lowerWord)
{
    return t.kind == Tok::Ident && equalsNoCase(t.text, lowerWord);
}

// ---- statements --------------------------------------------------------------------

template <typename T> int Parser<T>::statements(Tok end)
{
    int last = -1;
    for (;;) {
        while (accept(Tok::Semicolon)) {}
        if (peek().kind == end || peek().kind == Tok::End) break;
        last = statement();
        if (accept(Tok::Semicolon)) continue;
        if (peek().kind == end || peek().kind == Tok::End) break;
        if (mTokens[mPos - 1].kind == Tok::RBrace) continue; // "{...} x" needs no ';'
        failAt("unexpected " + describe(peek()), peek());
    }
    if (peek().kind != end)
        failAt(std::string("expected ") + (end == Tok::RParen ? "')'" : "'}'") + " but found " +
                   describe(peek()),
               peek());
    if (last < 0) fail(end == Tok::End ? "empty expression" : "empty group" + at(peek()));
    return last;
}

template <typename T> int Parser<T>::scopedStatements(Tok end)
{
    const size_t outerScope = mScope, outerSize = mLocals.size();
    mScope = outerSize;
    const int value = statements(end);
    mLocals.resize(outerSize);
    mScope = outerScope;
    return value;
}

template <typename T> int Parser<T>::statement()
{
    const Token& t = peek();
    if (t.kind == Tok::Ident) {
        if (isWord(t, "var")) return declaration();
        const Tok k = peek(1).kind;
        if (k == Tok::Assign || k == Tok::AddAssign || k == Tok::SubAssign ||
            k == Tok::MulAssign || k == Tok::DivAssign || k == Tok::ModAssign)
            return assignment();
    }
    return expression();
}

template <typename T> int Parser<T>::declaration()
{
    next(); // var
    const Token& name = next();
    if (name.kind != Tok::Ident) failAt("expected a variable name after 'var'", name);
    std::string lower = lowerAscii(name.text);
    if (isReservedWord(lower) || findBuiltin(lower))
        failAt("'" + std::string(name.text) + "' cannot be a variable name", name);
    bool taken = findEntry(name.text) >= 0;
    for (size_t k = mScope; k < mLocals.size(); ++k) taken |= mLocals[k].name == lower;
    if (taken) failAt("'" + std::string(name.text) + "' is already defined", name);
    const int value = accept(Tok::Assign) ? expression() : mGraph.constant(T(0));
    mLocals.push_back(Local{std::move(lower), value});
    return value;
}

template <typename T> int Parser<T>::assignment()
{
    const Token& name = next();
    const Tok kind = next().kind;
    const int local = findLocal(lowerAscii(name.text));
    if (local < 0) {
        if (findEntry(name.text) >= 0) failAt("cannot assign to '" + std::string(name.text) + "'", name);
        fail("unknown symbol '" + std::string(name.text) + "'");
    }
    int value = expression();
    const int old = mLocals[size_t(local)].node;
    switch (kind) {
    case Tok::AddAssign: value = mGraph.op(Op::Add, old, value); break;
    case Tok::SubAssign: value = mGraph.op(Op::Sub, old, value); break;
    case Tok::MulAssign: value = mGraph.op(Op::Mul, old, value); break;
    case Tok::DivAssign: value = mGraph.op(Op::Div, old, value); break;
    case Tok::ModAssign: value = mGraph.op(Op::Mod, old, value); break;
    default: break;
    }
    mLocals[size_t(local)].node = value;
    return value;
}

// One arm of an if statement: a { block } or a single statement.
template <typename T> int Parser<T>::branch()
{
    if (!accept(Tok::LBrace)) return statement();
    const int value = scopedStatements(Tok::RBrace);
    expect(Tok::RBrace, "'}'");
    return value;
}

// Parses both arms of a conditional. Calls in an arm only run where it is taken (the
// guard), and locals assigned in either arm take the value of the arm that was taken.
template <typename T>
template <class A, class B>
int Parser<T>::conditional(int cond, A&& whenTrue, B&& whenFalse)
{
    const int outerGuard = mGuard;
    const size_t base = mLocals.size();
    std::vector<int> before(base), afterTrue(base);
    for (size_t k = 0; k < base; ++k) before[k] = mLocals[k].node;

    mGuard = outerGuard < 0 ? cond : mGraph.op(Op::And, outerGuard, cond);
    const int a = whenTrue();
    mLocals.resize(base);
    for (size_t k = 0; k < base; ++k) {
        afterTrue[k] = mLocals[k].node;
        mLocals[k].node = before[k];
    }
    const int notCond = mGraph.op(Op::Not, cond);
    mGuard = outerGuard < 0 ? notCond : mGraph.op(Op::And, outerGuard, notCond);
    const int b = whenFalse();
    mLocals.resize(base);
    for (size_t k = 0; k < base; ++k)
        if (afterTrue[k] != mLocals[k].node)
            mLocals[k].node = mGraph.op(Op::Select, cond, afterTrue[k], mLocals[k].node);
    mGuard = outerGuard;
    return mGraph.op(Op::Select, cond, a, b);
}

// ---- operators -----------------------------------------------------------------------

template <typename T> int Parser<T>::expression()
{
    Depth depth(*this);
    const int cond = logicalOr();
    if (!accept(Tok::Question)) return cond;
    return conditional(
        cond, [&] { return expression(); },
        [&] {
            expect(Tok::Colon, "':'");
            return expression();
        });
}

template <typename T> int Parser<T>::logicalOr()
{
    int a = logicalXor();
    for (;;) {
        const Token& t = peek();
        Op o;
        if (t.kind == Tok::Or || isWord(t, "or")) o = Op::Or;
        else if (isWord(t, "nor")) o = Op::Nor;
        else return a;
        next();
        const int b = logicalXor();
        a = mGraph.op(o, a, b);
    }
}

template <typename T> int Parser<T>::logicalXor()
{
    int a = logicalAnd();
    for (;;) {
        const Token& t = peek();
        Op o;
        if (isWord(t, "xor")) o = Op::Xor;
        else if (isWord(t, "xnor")) o = Op::Xnor;
        else return a;
        next();
        const int b = logicalAnd();
        a = mGraph.op(o, a, b);
    }
}

template <typename T> int Parser<T>::logicalAnd()
{
    int a = comparison();
    for (;;) {
        const Token& t = peek();
        Op o;
        if (t.kind == Tok::And || isWord(t, "and")) o = Op::And;
        else if (isWord(t, "nand")) o = Op::Nand;
        else return a;
        next();
        const int b = comparison();
        a = mGraph.op(o, a, b);
    }
}

template <typename T> int Parser<T>::comparison()
{
    int a = additive();
    for (;;) {
        Op o;
        switch (peek().kind) {
        case Tok::Lt: o = Op::Lt; break;
        case Tok::Le: o = Op::Le; break;
        case Tok::Gt: o = Op::Gt; break;
        case Tok::Ge: o = Op::Ge; break;
        case Tok::Eq: o = Op::Eq; break;
        case Tok::Ne: o = Op::Ne; break;
        default: return a;
        }
        next();
        const int b = additive();
        a = mGraph.op(o, a, b);
    }
}

template <typename T> int Parser<T>::additive()
{
    int a = multiplicative();
    for (;;) {
        Op o;
        switch (peek().kind) {
        case Tok::Plus: o = Op::Add; break;
        case Tok::Minus: o = Op::Sub; break;
        default: return a;
        }
        next();
        const int b = multiplicative();
        a = mGraph.op(o, a, b);
    }
}

template <typename T> int Parser<T>::multiplicative()
{
    int a = unary();
    for (;;) {
        Op o;
        switch (peek().kind) {
        case Tok::Star: o = Op::Mul; break;
        case Tok::Slash: o = Op::Div; break;
        case Tok::Percent: o = Op::Mod; break;
        default: return a;
        }
        next();
        const int b = unary();
        a = mGraph.op(o, a, b);
    }
}

template <typename T> int Parser<T>::unary()
{
    Depth depth(*this);
    std::vector<Op> prefixes; // read in a loop: "- - - x" costs no stack
    for (;;) {
        const Token& t = peek();
        if (t.kind == Tok::Minus) prefixes.push_back(Op::Neg);
        else if (t.kind == Tok::Bang) prefixes.push_back(Op::Not);
        else if (isWord(t, "not") && peek(1).kind != Tok::LParen) prefixes.push_back(Op::Not);
        else if (t.kind != Tok::Plus) break;
        next();
    }
    int value = power();
    for (size_t k = prefixes.size(); k-- > 0;) value = mGraph.op(prefixes[k], value);
    return value;
}

template <typename T> int Parser<T>::power()
{
    const int base = primary();
    if (!accept(Tok::Caret)) return base;
    const int exponent = unary();
    return mGraph.op(Op::Pow, base, exponent);
}

template <typename T> int Parser<T>::primary()
{
    const Token& t = peek();
    switch (t.kind) {
    case Tok::Number:
        next();
        return mGraph.constant(T(t.number));
    case Tok::LParen: {
        next();
        const int value = scopedStatements(Tok::RParen);
        expect(Tok::RParen, "')'");
        return value;
    }
    case Tok::LBrace: {
        next();
        const int value = scopedStatements(Tok::RBrace);
        expect(Tok::RBrace, "'}'");
        return value;
    }
    case Tok::Ident:
        return identifier();
    default:
        failAt("unexpected " + describe(t), t);
    }
}

// ---- names and calls -----------------------------------------------------------------

template <typename T> int Parser<T>::findEntry(std::string_view name) const
{
    const auto& entries = mSymbols.entries;
    for (size_t k = 0; k < entries.size(); ++k)
        if (entries[k].name == name) return int(k);
    for (size_t k = 0; k < entries.size(); ++k)
        if (equalsNoCase(entries[k].name, name)) return int(k);
    return -1;
}

template <typename T> int Parser<T>::findLocal(const std::string& lower) const
{
    for (size_t k = mLocals.size(); k-- > 0;)
        if (mLocals[k].name == lower) return int(k);
    return -1;
}

template <typename T> int Parser<T>::identifier()
{
    const Token& t = next();
    const std::string lower = lowerAscii(t.text);
    if (peek().kind == Tok::LParen) return functionCall(t, lower);
    if (lower == "true") return mGraph.constant(T(1));
    if (lower == "false") return mGraph.constant(T(0));
    if (isReservedWord(lower)) failAt("unexpected " + describe(t), t);
    const int local = findLocal(lower);
    if (local >= 0) return mLocals[size_t(local)].node;
    const int entry = findEntry(t.text);
    if (entry < 0) fail("unknown symbol '" + std::string(t.text) + "'");
    const auto& e = mSymbols.entries[size_t(entry)];
    switch (e.kind) {
    case SymbolTable<T>::Entry::Scalar:
        return mGraph.load(e.components[0]);
    case SymbolTable<T>::Entry::Vector: {
        if (!accept(Tok::LBracket))
            failAt("vector '" + e.name + "' needs an index here, as in " + e.name + "[0]", t);
        const int index = expression();
        expect(Tok::RBracket, "']'");
        return vectorElement(entry, index);
    }
    default:
        failAt("function '" + e.name + "' needs arguments", t);
    }
}

// v[i]: i is truncated; outside 0..2 the element is 0.
template <typename T> int Parser<T>::vectorElement(int entry, int index)
{
    const auto& e = mSymbols.entries[size_t(entry)];
    if (mGraph.isConstant(index)) {
        const T k = std::trunc(mGraph.constantValue(index));
        if (k >= T(0) && k <= T(2)) return mGraph.load(e.components[int(k)]);
        return mGraph.constant(T(0));
    }
    const int k = mGraph.op(Op::Trunc, index);
    int value = mGraph.constant(T(0));
    for (int c = 2; c >= 0; --c) {
        const int isC = mGraph.op(Op::Eq, k, mGraph.constant(T(c)));
        value = mGraph.op(Op::Select, isC, mGraph.load(e.components[c]), value);
    }
    return value;
}

template <typename T> std::vector<int> Parser<T>::arguments()
{
    std::vector<int> args;
    expect(Tok::LParen, "'('");
    if (accept(Tok::RParen)) return args;
    do {
        args.push_back(expression());
        if (args.size() > kMaxCallArguments) fail("too many arguments" + at(peek()));
    } while (accept(Tok::Comma));
    expect(Tok::RParen, "',' or ')'");
    return args;
}

template <typename T> int Parser<T>::functionCall(const Token& name, const std::string& lower)
{
    if (const Builtin* b = findBuiltin(lower)) return builtinCall(*b, name);
    const int entry = findEntry(name.text);
    if (entry < 0) fail("unknown function '" + std::string(name.text) + "'");
    switch (mSymbols.entries[size_t(entry)].kind) {
    case SymbolTable<T>::Entry::Func: return userCall(entry, name);
    case SymbolTable<T>::Entry::Generic: return genericCall(entry);
    default: failAt("'" + std::string(name.text) + "' is not a function", name);
    }
}

template <typename T> int Parser<T>::builtinCall(const Builtin& b, const Token& name)
{
    if (b.form == Builtin::If) return ifForm();
    const std::vector<int> args = arguments();
    const int n = int(args.size());
    if ((b.form == Builtin::Fixed || b.form == Builtin::Scale) && n != b.arity)
        failAt("'" + std::string(b.name) + "' takes " + std::to_string(b.arity) +
                   (b.arity == 1 ? " argument" : " arguments") + ", not " + std::to_string(n),
               name);
    if (n == 0) failAt("'" + std::string(b.name) + "' needs at least one argument", name);
    switch (b.form) {
    case Builtin::Scale:
        return mGraph.op(Op::Mul, args[0], mGraph.constant(T(b.factor)));
    case Builtin::Fold:
    case Builtin::Avg: {
        int value = args[0];
        for (int k = 1; k < n; ++k) value = mGraph.op(b.op, value, args[size_t(k)]);
        return b.form == Builtin::Avg ? mGraph.op(Op::Div, value, mGraph.constant(T(n))) : value;
    }
    default:
        return mGraph.op(b.op, args[0], n > 1 ? args[1] : -1, n > 2 ? args[2] : -1);
    }
}

// if(c, a, b), or the statement form: if (c) a; else b;  (no else: NaN when c is false)
template <typename T> int Parser<T>::ifForm()
{
    expect(Tok::LParen, "'('");
    const int cond = expression();
    if (accept(Tok::Comma)) {
        return conditional(
            cond,
            [&] {
                const int a = expression();
                expect(Tok::Comma, "','");
                return a;
            },
            [&] {
                const int b = expression();
                expect(Tok::RParen, "')'");
                return b;
            });
    }
    expect(Tok::RParen, "',' or ')'");
    return conditional(
        cond, [&] { return branch(); },
        [&] {
            if (peek().kind == Tok::Semicolon && isWord(peek(1), "else")) next();
            if (!isWord(peek(), "else")) return mGraph.constant(std::numeric_limits<T>::quiet_NaN());
            next();
            return branch();
        });
}

template <typename T> int Parser<T>::userCall(int entry, const Token& name)
{
    const auto& e = mSymbols.entries[size_t(entry)];
    std::vector<int> args = arguments();
    if (int(args.size()) != e.arity)
        failAt("'" + e.name + "' takes " + std::to_string(e.arity) +
                   (e.arity == 1 ? " argument" : " arguments") + ", not " +
                   std::to_string(args.size()),
               name);
    return mGraph.call(false, entry, std::move(args), {}, mGuard);
}

// A generic function also accepts a bare vector name, passed as its three components.
template <typename T> int Parser<T>::genericCall(int entry)
{
    std::vector<int> args;
    std::vector<uint8_t> sizes;
    expect(Tok::LParen, "'('");
    if (!accept(Tok::RParen)) {
        do {
            const Token& t = peek();
            const Tok after = peek(1).kind;
            if (t.kind == Tok::Ident && (after == Tok::Comma || after == Tok::RParen) &&
                findLocal(lowerAscii(t.text)) < 0) {
                const int v = findEntry(t.text);
                if (v >= 0 && mSymbols.entries[size_t(v)].kind == SymbolTable<T>::Entry::Vector) {
                    next();
                    for (const Binding& b : mSymbols.entries[size_t(v)].components)
                        args.push_back(mGraph.load(b));
                    sizes.push_back(3);
                    continue;
                }
            }
            args.push_back(expression());
            sizes.push_back(1);
        } while (args.size() <= kMaxCallArguments && accept(Tok::Comma));
        if (args.size() > kMaxCallArguments) fail("too many arguments" + at(peek()));
        expect(Tok::RParen, "',' or ')'");
    }
    return mGraph.call(true, entry, std::move(args), std::move(sizes), mGuard);
}

template class Parser<float>;
template class Parser<double>;

} // namespace expr
