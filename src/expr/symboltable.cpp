// SymbolTable: the names a caller lets formulas use. Names must be identifiers and not
// words of the language; a name is taken when an entry has exactly that spelling.
#include "expr/builtins.h"
#include "expr/formula.h"
#include "expr/lexer.h"
#include "expr/mathfn.h"

#include <limits>

namespace expr {

namespace {

template <typename Entry>
bool takenIn(const std::vector<Entry>& entries, const std::string& name)
{
    for (const Entry& e : entries)
        if (e.name == name) return true;
    return false;
}

bool usableName(const std::string& name)
{
    return isIdentifier(name) && !isReservedWord(lowerAscii(name));
}

bool functionName(const std::string& name)
{
    return usableName(name) && !findBuiltin(lowerAscii(name));
}

} // namespace

template <typename T>
bool SymbolTable<T>::addScalar(const std::string& name, const Binding& binding)
{
    if (!usableName(name) || takenIn(entries, name)) return false;
    Entry e;
    e.kind = Entry::Scalar;
    e.name = name;
    e.components[0] = binding;
    entries.push_back(e);
    return true;
}

template <typename T>
bool SymbolTable<T>::addVector(const std::string& name, const Binding& x, const Binding& y,
                               const Binding& z)
{
    if (!usableName(name) || takenIn(entries, name)) return false;
    Entry e;
    e.kind = Entry::Vector;
    e.name = name;
    e.components[0] = x;
    e.components[1] = y;
    e.components[2] = z;
    entries.push_back(e);
    return true;
}

template <typename T>
bool SymbolTable<T>::addFunction(const std::string& name, int arity, Function fn, void* user)
{
    if (!fn || arity < 1 || arity > 5 || !functionName(name) || takenIn(entries, name)) return false;
    Entry e;
    e.kind = Entry::Func;
    e.name = name;
    e.arity = arity;
    e.function = fn;
    e.user = user;
    entries.push_back(e);
    return true;
}

template <typename T>
bool SymbolTable<T>::addGenericFunction(const std::string& name, GenericFunction fn, void* user)
{
    if (!fn || !functionName(name) || takenIn(entries, name)) return false;
    Entry e;
    e.kind = Entry::Generic;
    e.name = name;
    e.generic = fn;
    e.user = user;
    entries.push_back(e);
    return true;
}

template <typename T> void SymbolTable<T>::addStandardConstants()
{
    addScalar("pi", Binding::value(3.14159265358979323846));
    addScalar("epsilon", Binding::value(double(formulaEpsilon<T>())));
    addScalar("inf", Binding::value(std::numeric_limits<double>::infinity()));
}

// True when a formula could use `name`: an exact or a case-insensitive match.
template <typename T> bool SymbolTable<T>::has(const std::string& name) const
{
    for (const Entry& e : entries)
        if (equalsNoCase(e.name, name)) return true;
    return false;
}

template <typename T> void SymbolTable<T>::clear()
{
    entries.clear();
}

template class SymbolTable<float>;
template class SymbolTable<double>;

} // namespace expr
