// Graph-to-program lowering. Everything here walks node ids in loops, never by
// recursion, so a formula of any length compiles without deep C++ stacks.
#include "expr/codegen.h"

#include <algorithm>
#include <functional>
#include <queue>
#include <utility>

namespace expr {

namespace {

// The inputs of node `id` into `in` (room for a call's arguments and guard); their count.
template <typename T> int inputsOf(const Graph<T>& g, int id, int* in)
{
    int n = 0;
    g.forEachInput(id, [&](int x) { in[n++] = x; });
    return n;
}

constexpr int kMaxInputs = int(kMaxCallArguments) + 1;

// Post-order from `root` skipping constants, the operand that needs more registers
// first (Sethi-Ullman), then stably split into the uniform part and the varying part.
template <typename T>
std::vector<int> evaluationOrder(const Graph<T>& g, int root, const std::vector<int>& need)
{
    std::vector<int> order;
    order.reserve(size_t(g.size()));
    std::vector<uint8_t> done(size_t(g.size()), 0);
    std::vector<std::pair<int, bool>> stack{{root, false}};
    while (!stack.empty()) {
        auto [id, expanded] = stack.back();
        if (done[size_t(id)] || g.isConstant(id)) {
            stack.pop_back();
            continue;
        }
        if (expanded) {
            stack.pop_back();
            done[size_t(id)] = 1;
            order.push_back(id);
            continue;
        }
        stack.back().second = true;
        int in[kMaxInputs];
        const int count = inputsOf(g, id, in);
        std::stable_sort(in, in + count,
                         [&](int x, int y) { return need[size_t(x)] < need[size_t(y)]; });
        for (int k = 0; k < count; ++k) // lowest need pushed first: the highest is expanded first
            if (!done[size_t(in[k])] && !g.isConstant(in[k])) stack.push_back({in[k], false});
    }
    std::stable_partition(order.begin(), order.end(), [&](int id) {
        return g.node(id).variance != Variance::Varying;
    });
    return order;
}

} // namespace

template <typename T>
bool CodeGen<T>::generate(const Graph<T>& g, int root, const SymbolTable<T>& symbols,
                          Code<T>& code, std::string& error)
{
    const size_t n = size_t(g.size());
    code = Code<T>();
    code.bindings = g.bindings();

    // What the result needs, how often each value is read, and which non-varying values
    // the varying part reads (they stay in their slots for the whole run).
    std::vector<uint8_t> reached(n, 0), pinned(n, 0);
    std::vector<int> uses(n, 0), need(n, 0), slot(n, -1);
    reached[size_t(root)] = 1;
    for (size_t id = n; id-- > 0;) {
        if (!reached[id]) continue;
        const bool varying = g.node(int(id)).variance == Variance::Varying;
        g.forEachInput(int(id), [&](int x) {
            reached[size_t(x)] = 1;
            ++uses[size_t(x)];
            if (varying && g.node(x).variance != Variance::Varying) pinned[size_t(x)] = 1;
        });
    }
    for (size_t id = 0; id < n; ++id) {
        if (!reached[id] || g.isConstant(int(id))) continue;
        int childNeeds[kMaxInputs];
        const int count = inputsOf(g, int(id), childNeeds);
        for (int k = 0; k < count; ++k) childNeeds[k] = need[size_t(childNeeds[k])];
        std::sort(childNeeds, childNeeds + count, std::greater<int>());
        int m = 1;
        for (int k = 0; k < count; ++k) m = std::max(m, childNeeds[k] + k);
        need[id] = m;
    }

    // Constants take the first slots.
    for (size_t id = 0; id < n; ++id) {
        if (!reached[id] || !g.isConstant(int(id))) continue;
        slot[id] = int(code.constants.size());
        code.constants.push_back(g.constantValue(int(id)));
    }

    const std::vector<int> order = evaluationOrder(g, root, need);
    std::priority_queue<int, std::vector<int>, std::greater<int>> freeSlots;
    int nextSlot = int(code.constants.size());
    for (int id : order) {
        int dst;
        if (!freeSlots.empty()) {
            dst = freeSlots.top();
            freeSlots.pop();
        } else {
            dst = nextSlot++;
        }
        if (nextSlot > kMaxSlots) {
            error = "expression too complex";
            return false;
        }
        slot[size_t(id)] = dst;
        g.forEachInput(id, [&](int x) {
            if (--uses[size_t(x)] == 0 && !pinned[size_t(x)] && !g.isConstant(x))
                freeSlots.push(slot[size_t(x)]);
        });
    }
    if (int(code.constants.size()) > kMaxSlots) {
        error = "expression too complex";
        return false;
    }
    code.slotCount = nextSlot;

    // Instructions.
    int blockTop = -1;
    for (int id : order) {
        const auto& node = g.node(id);
        const bool varying = node.variance == Variance::Varying;
        auto touch = [&](int s) {
            if (varying) blockTop = std::max(blockTop, s);
            return uint16_t(s);
        };
        Instr in;
        in.op = node.op;
        in.dst = touch(slot[size_t(id)]);
        if (node.op == Op::Call || node.op == Op::CallGeneric) {
            const auto& c = g.calls()[size_t(node.aux)];
            const auto& entry = symbols.entries[size_t(c.entry)];
            CallSite<T> site;
            site.function = entry.function;
            site.generic = entry.generic;
            site.user = entry.user;
            site.firstSlot = uint32_t(code.slots.size());
            site.slotCount = uint16_t(c.args.size());
            site.firstSize = uint32_t(code.sizes.size());
            site.argCount = uint16_t(c.sizes.size());
            site.guard = c.guard >= 0 ? touch(slot[size_t(c.guard)]) : -1;
            for (int a : c.args) code.slots.push_back(touch(slot[size_t(a)]));
            code.sizes.insert(code.sizes.end(), c.sizes.begin(), c.sizes.end());
            in.aux = uint32_t(code.calls.size());
            code.calls.push_back(site);
        } else if (node.op == Op::Load) {
            in.aux = uint32_t(node.aux);
        } else {
            const int arity = opArity(node.op);
            if (arity > 0) in.a = touch(slot[size_t(node.in[0])]);
            if (arity > 1) in.b = touch(slot[size_t(node.in[1])]);
            if (arity > 2) in.c = touch(slot[size_t(node.in[2])]);
        }
        (varying ? code.varying : code.uniform).push_back(in);
    }
    for (size_t id = 0; id < n; ++id) {
        if (!pinned[id]) continue;
        code.liveIn.push_back(uint16_t(slot[id]));
        blockTop = std::max(blockTop, slot[id]);
    }
    code.blockSlotCount = blockTop + 1;
    code.result = uint16_t(slot[size_t(root)]);
    code.resultVariance = g.node(root).variance;
    return true;
}

template class CodeGen<float>;
template class CodeGen<double>;

} // namespace expr
