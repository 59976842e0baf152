// The two interpreters of compiled formulas. Both expand the operation tables of ops.h,
// so a block run and a per-element run give bit-identical values. Nothing here
// allocates per run: the slot file is on the stack, and block registers live in a
// per-thread buffer that only grows.
#include "expr/vm.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace expr {

namespace {

template <typename T> T loadOne(const Binding& b, size_t i)
{
    switch (b.kind) {
    case Binding::PointerF32: return T(*static_cast<const float*>(b.data));
    case Binding::PointerF64: return T(*static_cast<const double*>(b.data));
    case Binding::ArrayF32: return T(static_cast<const float*>(b.data)[i * b.stride]);
    case Binding::ArrayI32: return T(static_cast<const int32_t*>(b.data)[i * b.stride]);
    case Binding::Bits: return T((static_cast<const uint32_t*>(b.data)[i >> 5] >> (i & 31)) & 1u);
    case Binding::Index: return T(i);
    default: return T(b.constant);
    }
}

template <typename T> void loadBlock(const Binding& b, T* __restrict d, size_t base, int n)
{
    switch (b.kind) {
    case Binding::ArrayF32: {
        const float* p = static_cast<const float*>(b.data) + base * b.stride;
        if (b.stride == 1) {
            for (int k = 0; k < n; ++k) d[k] = T(p[k]);
        } else {
            const size_t s = b.stride;
            for (int k = 0; k < n; ++k) d[k] = T(p[size_t(k) * s]);
        }
        break;
    }
    case Binding::ArrayI32: {
        const int32_t* p = static_cast<const int32_t*>(b.data) + base * b.stride;
        const size_t s = b.stride;
        for (int k = 0; k < n; ++k) d[k] = T(p[size_t(k) * s]);
        break;
    }
    case Binding::Index:
        for (int k = 0; k < n; ++k) d[k] = T(base + size_t(k));
        break;
    default:
        for (int k = 0; k < n; ++k) d[k] = loadOne<T>(b, base + size_t(k));
        break;
    }
}

// One call; `at(slot)` reads an argument component.
template <typename T, typename At> T callOne(const Code<T>& code, const CallSite<T>& site, At at)
{
    if (site.guard >= 0 && at(site.guard) == T(0)) return T(0);
    T values[kMaxCallArguments];
    for (int k = 0; k < site.slotCount; ++k) values[k] = at(code.slots[site.firstSlot + size_t(k)]);
    if (site.function) return site.function(site.user, values);
    typename SymbolTable<T>::Arg args[kMaxCallArguments];
    const T* p = values;
    for (int k = 0; k < site.argCount; ++k) {
        const int size = code.sizes[site.firstSize + size_t(k)];
        args[k] = {p, size};
        p += size;
    }
    return site.generic(site.user, args, site.argCount);
}

template <typename T> void execScalar(const Code<T>& code, const std::vector<Instr>& list, T* s, size_t i)
{
    for (const Instr& in : list) {
        switch (in.op) {
        case Op::Load: s[in.dst] = loadOne<T>(code.bindings[in.aux], i); break;
        case Op::Call:
        case Op::CallGeneric:
            s[in.dst] = callOne(code, code.calls[in.aux], [s](int slot) { return s[slot]; });
            break;
#define QORVA_EXPR_CASE1(name, e) case Op::name: { const T a = s[in.a]; s[in.dst] = (e); break; }
#define QORVA_EXPR_CASE2(name, e) case Op::name: { const T a = s[in.a], b = s[in.b]; s[in.dst] = (e); break; }
#define QORVA_EXPR_CASE3(name, e) case Op::name: { const T a = s[in.a], b = s[in.b], c = s[in.c]; s[in.dst] = (e); break; }
            QORVA_EXPR_UNARY_OPS(QORVA_EXPR_CASE1)
            QORVA_EXPR_BINARY_OPS(QORVA_EXPR_CASE2)
            QORVA_EXPR_TERNARY_OPS(QORVA_EXPR_CASE3)
#undef QORVA_EXPR_CASE1
#undef QORVA_EXPR_CASE2
#undef QORVA_EXPR_CASE3
        default: break;
        }
    }
}

template <typename T> void execBlock(const Code<T>& code, T* regs, size_t base, int n)
{
    for (const Instr& in : code.varying) {
        T* __restrict d = regs + size_t(in.dst) * kBlock;
        const T* __restrict pa = regs + size_t(in.a) * kBlock;
        const T* __restrict pb = regs + size_t(in.b) * kBlock;
        const T* __restrict pc = regs + size_t(in.c) * kBlock;
        switch (in.op) {
        case Op::Load: loadBlock<T>(code.bindings[in.aux], d, base, n); break;
        case Op::Call:
        case Op::CallGeneric:
            for (int k = 0; k < n; ++k)
                d[k] = callOne(code, code.calls[in.aux],
                               [regs, k](int slot) { return regs[size_t(slot) * kBlock + size_t(k)]; });
            break;
#define QORVA_EXPR_CASE1(name, e) case Op::name: for (int k = 0; k < n; ++k) { const T a = pa[k]; d[k] = (e); } break;
#define QORVA_EXPR_CASE2(name, e) case Op::name: for (int k = 0; k < n; ++k) { const T a = pa[k], b = pb[k]; d[k] = (e); } break;
#define QORVA_EXPR_CASE3(name, e) case Op::name: for (int k = 0; k < n; ++k) { const T a = pa[k], b = pb[k], c = pc[k]; d[k] = (e); } break;
            QORVA_EXPR_UNARY_OPS(QORVA_EXPR_CASE1)
            QORVA_EXPR_BINARY_OPS(QORVA_EXPR_CASE2)
            QORVA_EXPR_TERNARY_OPS(QORVA_EXPR_CASE3)
#undef QORVA_EXPR_CASE1
#undef QORVA_EXPR_CASE2
#undef QORVA_EXPR_CASE3
        default: break;
        }
    }
}

// Block registers of the current thread. A run nested inside another on the same thread
// (a user function evaluating a formula) gets a buffer of its own.
template <typename T> class Workspace {
public:
    explicit Workspace(size_t values)
    {
        Shared& shared = sharedBuffer();
        if (!shared.busy) {
            shared.busy = true;
            mShared = &shared;
            if (shared.data.size() < values) shared.data.resize(values);
            mData = shared.data.data();
        } else {
            mOwn.resize(values);
            mData = mOwn.data();
        }
    }
    ~Workspace()
    {
        if (mShared) mShared->busy = false;
    }
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;
    T* data() const { return mData; }

private:
    struct Shared {
        std::vector<T> data;
        bool busy = false;
    };
    static Shared& sharedBuffer()
    {
        static thread_local Shared shared;
        return shared;
    }
    Shared* mShared = nullptr;
    std::vector<T> mOwn;
    T* mData = nullptr;
};

} // namespace

template <typename T> T Vm<T>::run(const Code<T>& code, size_t i)
{
    if (code.resultVariance == Variance::Fixed) return code.constants[code.result];
    T s[kMaxSlots];
    std::copy(code.constants.begin(), code.constants.end(), s);
    execScalar(code, code.uniform, s, i);
    execScalar(code, code.varying, s, i);
    return s[code.result];
}

template <typename T> void Vm<T>::runBlocks(const Code<T>& code, size_t first, size_t count, T* out)
{
    if (count == 0) return;
    if (code.resultVariance == Variance::Fixed) {
        std::fill_n(out, count, code.constants[code.result]);
        return;
    }
    T s[kMaxSlots];
    std::copy(code.constants.begin(), code.constants.end(), s);
    execScalar(code, code.uniform, s, first);
    if (code.resultVariance == Variance::Uniform) {
        std::fill_n(out, count, s[code.result]);
        return;
    }
    Workspace<T> workspace(size_t(code.blockSlotCount) * kBlock);
    T* regs = workspace.data();
    const size_t lanes = std::min<size_t>(kBlock, count); // short calls fill only what they use
    for (uint16_t slot : code.liveIn) std::fill_n(regs + size_t(slot) * kBlock, lanes, s[slot]);
    const T* result = regs + size_t(code.result) * kBlock;
    for (size_t done = 0; done < count; done += kBlock) {
        const int n = int(std::min<size_t>(kBlock, count - done));
        execBlock(code, regs, first + done, n);
        std::memcpy(out + done, result, sizeof(T) * size_t(n));
    }
}

template class Vm<float>;
template class Vm<double>;

} // namespace expr
