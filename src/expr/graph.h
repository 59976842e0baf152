// The parsed formula as a graph of values, built bottom-up by the parser: every node's
// inputs are created before it, so node ids are already in evaluation order. Building a
// node folds constants, reuses an identical existing node, and records whether the value
// is fixed at compile time, the same for every element (uniform), or varies per element.
#pragma once

#include "expr/formula.h"
#include "expr/ops.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace expr {

// Most scalar components one call may pass to a symbol-table function.
constexpr size_t kMaxCallArguments = 64;

enum class Variance : uint8_t { Fixed, Uniform, Varying };

template <typename T>
class Graph {
public:
    struct Node {
        Op op = Op::Const;
        Variance variance = Variance::Fixed;
        int in[3] = {-1, -1, -1}; // operands of pure operations
        int aux = -1;             // Load: binding index; Call*: call index
        T value = T(0);           // Const
    };
    // A call of a symbol-table function. `args` holds one node per scalar component; a
    // generic function's vector argument contributes three, described by `sizes`.
    struct CallNode {
        int entry = -1;           // index in the symbol table
        int guard = -1;           // node that must be non-zero for the call to happen
        std::vector<int> args;
        std::vector<uint8_t> sizes;
    };

    Graph();

    int constant(T v);
    int load(const Binding& b);
    int op(Op op, int a, int b = -1, int c = -1);
    // A call node, or the constant 0 when `guard` is known to be false.
    int call(bool generic, int entry, std::vector<int> args, std::vector<uint8_t> sizes,
             int guard);

    const Node& node(int id) const { return mNodes[size_t(id)]; }
    int size() const { return int(mNodes.size()); }
    bool isConstant(int id) const { return mNodes[size_t(id)].op == Op::Const; }
    T constantValue(int id) const { return mNodes[size_t(id)].value; }
    const std::vector<Binding>& bindings() const { return mBindings; }
    const std::vector<CallNode>& calls() const { return mCalls; }

    // Calls f(inputNode) for every input of node `id`, call arguments and guard included.
    template <typename F> void forEachInput(int id, F&& f) const
    {
        const Node& n = mNodes[size_t(id)];
        if (n.op == Op::Call || n.op == Op::CallGeneric) {
            const CallNode& c = mCalls[size_t(n.aux)];
            for (int a : c.args) f(a);
            if (c.guard >= 0) f(c.guard);
            return;
        }
        for (int k = 0; k < 3 && n.in[k] >= 0; ++k) f(n.in[k]);
    }

private:
    int intern(const Node& n);
    int add(const Node& n);
    void grow();

    std::vector<Node> mNodes;
    std::vector<int> mTable; // open-addressed hash of node ids, -1 when empty
    std::vector<Binding> mBindings;
    std::vector<CallNode> mCalls;
};

extern template class Graph<float>;
extern template class Graph<double>;

} // namespace expr
