// Node construction for the formula graph: constant folding, a few exact algebraic
// shortcuts, and hash-consing so a repeated sub-expression is computed once.
#include "expr/graph.h"

#include <algorithm>
#include <cstring>

namespace expr {

namespace {

template <typename T> uint64_t bitsOf(T v)
{
    uint64_t bits = 0;
    std::memcpy(&bits, &v, sizeof v);
    return bits;
}

template <typename N> uint64_t hashOf(const N& n)
{
    uint64_t h = uint64_t(n.op) * 0x9E3779B97F4A7C15ull;
    const uint64_t parts[5] = {uint64_t(uint32_t(n.in[0])), uint64_t(uint32_t(n.in[1])),
                               uint64_t(uint32_t(n.in[2])), uint64_t(uint32_t(n.aux)),
                               bitsOf(n.value)};
    for (uint64_t p : parts) {
        h ^= p + 0x9E3779B97F4A7C15ull + (h << 6) + (h >> 2);
        h *= 0xBF58476D1CE4E5B9ull;
    }
    return h ^ (h >> 31);
}

template <typename N> bool sameNode(const N& x, const N& y)
{
    return x.op == y.op && x.in[0] == y.in[0] && x.in[1] == y.in[1] && x.in[2] == y.in[2] &&
           x.aux == y.aux && bitsOf(x.value) == bitsOf(y.value);
}

bool sameBinding(const Binding& x, const Binding& y)
{
    return x.kind == y.kind && x.data == y.data && x.stride == y.stride;
}

} // namespace

template <typename T> Graph<T>::Graph() : mTable(64, -1)
{
    mNodes.reserve(16);
}

template <typename T> int Graph<T>::add(const Node& n)
{
    mNodes.push_back(n);
    return int(mNodes.size()) - 1;
}

template <typename T> void Graph<T>::grow()
{
    std::vector<int> bigger(mTable.size() * 2, -1);
    const size_t mask = bigger.size() - 1;
    for (int id : mTable) {
        if (id < 0) continue;
        size_t slot = hashOf(mNodes[size_t(id)]) & mask;
        while (bigger[slot] >= 0) slot = (slot + 1) & mask;
        bigger[slot] = id;
    }
    mTable.swap(bigger);
}

template <typename T> int Graph<T>::intern(const Node& n)
{
    const size_t mask = mTable.size() - 1;
    size_t slot = hashOf(n) & mask;
    while (mTable[slot] >= 0) {
        if (sameNode(mNodes[size_t(mTable[slot])], n)) return mTable[slot];
        slot = (slot + 1) & mask;
    }
    const int id = add(n);
    mTable[slot] = id;
    if (mNodes.size() * 2 > mTable.size()) grow();
    return id;
}

template <typename T> int Graph<T>::constant(T v)
{
    Node n;
    n.op = Op::Const;
    n.variance = Variance::Fixed;
    n.value = v;
    return intern(n);
}

template <typename T> int Graph<T>::load(const Binding& b)
{
    if (b.kind == Binding::Constant) return constant(T(b.constant));
    if (b.kind != Binding::Index && b.data == nullptr) return constant(T(0)); // nothing to read
    int index = -1;
    for (size_t k = 0; k < mBindings.size(); ++k)
        if (sameBinding(mBindings[k], b)) index = int(k);
    if (index < 0) {
        mBindings.push_back(b);
        index = int(mBindings.size()) - 1;
    }
    Node n;
    n.op = Op::Load;
    n.aux = index;
    const bool perElement = b.kind == Binding::ArrayF32 || b.kind == Binding::ArrayI32 ||
                            b.kind == Binding::Bits || b.kind == Binding::Index;
    n.variance = perElement ? Variance::Varying : Variance::Uniform;
    return intern(n);
}

template <typename T> int Graph<T>::op(Op o, int a, int b, int c)
{
    const int arity = opArity(o);
    const int in[3] = {a, arity > 1 ? b : -1, arity > 2 ? c : -1};
    bool allFixed = true;
    Variance v = Variance::Fixed;
    for (int k = 0; k < arity; ++k) {
        const Node& x = mNodes[size_t(in[k])];
        allFixed &= x.op == Op::Const;
        v = std::max(v, x.variance);
    }
    if (allFixed) {
        const T va = mNodes[size_t(a)].value;
        const T vb = arity > 1 ? mNodes[size_t(b)].value : T(0);
        const T vc = arity > 2 ? mNodes[size_t(c)].value : T(0);
        return constant(evalOp<T>(o, va, vb, vc));
    }
    // Shortcuts that give exactly the same value as the operation itself.
    if (o == Op::Select) {
        if (isConstant(a)) return constantValue(a) != T(0) ? b : c;
        if (b == c) return b;
    }
    if (o == Op::Neg && mNodes[size_t(a)].op == Op::Neg) return mNodes[size_t(a)].in[0];
    if (o == Op::Pow && isConstant(b)) {
        if (constantValue(b) == T(1)) return a;
        if (constantValue(b) == T(2)) return op(Op::Mul, a, a);
    }
    if ((o == Op::Mul || o == Op::Div) && isConstant(b) && constantValue(b) == T(1)) return a;
    if (o == Op::Mul && isConstant(a) && constantValue(a) == T(1)) return b;

    Node n;
    n.op = o;
    n.variance = v;
    n.in[0] = in[0];
    n.in[1] = in[1];
    n.in[2] = in[2];
    return intern(n);
}

template <typename T>
int Graph<T>::call(bool generic, int entry, std::vector<int> args, std::vector<uint8_t> sizes,
                   int guard)
{
    if (guard >= 0 && isConstant(guard)) {
        if (constantValue(guard) == T(0)) return constant(T(0));
        guard = -1;
    }
    Node n;
    n.op = generic ? Op::CallGeneric : Op::Call;
    n.variance = Variance::Uniform; // never folded: the function may read the caller's state
    for (int a : args) n.variance = std::max(n.variance, mNodes[size_t(a)].variance);
    if (guard >= 0) n.variance = std::max(n.variance, mNodes[size_t(guard)].variance);
    CallNode c;
    c.entry = entry;
    c.guard = guard;
    c.args = std::move(args);
    c.sizes = std::move(sizes);
    mCalls.push_back(std::move(c));
    n.aux = int(mCalls.size()) - 1;
    return add(n);
}

template class Graph<float>;
template class Graph<double>;

} // namespace expr
