// The formula language: exprtk's syntax and semantics for the subset users write in
// parameters and point expressions, compiled once to a flat register program and then
// run many times. Programs come in double (parameter values) and float (per point).
//
// A program never holds mutable state: `value` and `values` may run from many threads
// at once. Symbols are bound to where their values live (a constant, a pointer read at
// run time, or an array indexed by the element number), so a point loop hands the
// program nothing but the index.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace expr {

// Where a scalar symbol's value comes from when a program runs for element i.
struct Binding {
    enum Kind : uint8_t {
        Constant,   // `constant`
        PointerF32, // *(const float*)data, read at every run
        PointerF64, // *(const double*)data, read at every run
        ArrayF32,   // ((const float*)data)[i * stride]
        ArrayI32,   // ((const int32_t*)data)[i * stride], converted
        Bits,       // bit i of the 32-bit words at data: 1 or 0
        Index       // i itself
    };
    Kind kind = Constant;
    double constant = 0.0;
    const void* data = nullptr;
    uint32_t stride = 1;

    static Binding value(double v) { Binding b; b.kind = Constant; b.constant = v; return b; }
    static Binding pointer(const float* p) { Binding b; b.kind = PointerF32; b.data = p; return b; }
    static Binding pointer(const double* p) { Binding b; b.kind = PointerF64; b.data = p; return b; }
    static Binding array(const float* p, uint32_t stride = 1)
    { Binding b; b.kind = ArrayF32; b.data = p; b.stride = stride; return b; }
    static Binding array(const int32_t* p, uint32_t stride = 1)
    { Binding b; b.kind = ArrayI32; b.data = p; b.stride = stride; return b; }
    static Binding bits(const uint32_t* words) { Binding b; b.kind = Bits; b.data = words; return b; }
    static Binding index() { Binding b; b.kind = Index; return b; }
};

// Names a program may use beside the built-in functions, keywords and operators.
// Lookup is exact first, then case-insensitive (exprtk's own symbols are caseless).
template <typename T>
class SymbolTable {
public:
    // A function of fixed arity (1 to 5) with a caller's context pointer.
    using Function = T (*)(void* user, const T* args);
    // A function over any arguments; a vector argument arrives with size 3, a scalar with 1.
    struct Arg { const T* data; int size; };
    using GenericFunction = T (*)(void* user, const Arg* args, int count);

    // Each add returns false and changes nothing when the name is already taken here.
    bool addScalar(const std::string& name, const Binding& binding);
    bool addVector(const std::string& name, const Binding& x, const Binding& y, const Binding& z);
    bool addFunction(const std::string& name, int arity, Function fn, void* user = nullptr);
    bool addGenericFunction(const std::string& name, GenericFunction fn, void* user = nullptr);
    // exprtk's constants: pi, epsilon, inf.
    void addStandardConstants();
    bool has(const std::string& name) const;
    void clear();

    struct Entry {
        enum Kind : uint8_t { Scalar, Vector, Func, Generic };
        Kind kind = Scalar;
        std::string name;
        Binding components[3]; // Scalar uses the first
        int arity = 0;
        Function function = nullptr;
        GenericFunction generic = nullptr;
        void* user = nullptr;
    };
    std::vector<Entry> entries; // in order of registration
};

template <typename T>
class Program {
public:
    Program();
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Compiles `text` against `symbols`. The table's bindings are copied into the program;
    // pointers and arrays they name must outlive the runs. On failure the program answers
    // 0 for every element, and `error` (if given) says why.
    bool compile(const std::string& text, const SymbolTable<T>& symbols, std::string* error = nullptr);
    bool valid() const;

    // The value for element i. Thread safe; allocates nothing.
    T value(size_t i = 0) const;
    // out[k] = value(first + k) for k < count. Thread safe; faster than a loop of `value`.
    void values(size_t first, size_t count, T* out) const;

    struct Impl;
private:
    std::unique_ptr<Impl> mImpl;
};

extern template class SymbolTable<float>;
extern template class SymbolTable<double>;
extern template class Program<float>;
extern template class Program<double>;

} // namespace expr
