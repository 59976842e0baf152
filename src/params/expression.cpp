// Parameter expressions and references. A parameter formula is compiled on every
// evaluation against constants of that evaluation (frame, time, dt...), which is why
// plain constants suffice here; it runs once per row, not per point.
#include "params/expression.h"

#include "app/globals.h"
#include "app/sceneobject.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "expr/formula.h"
#include "graph/nodemaster.h"
#include "params/parameter.h"
#include "params/parameterset.h"
#include "params/paths.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <random>

namespace {

// Improved Perlin noise over a fixed permutation: the identity shuffled by an MT19937 at
// its default seed, doubled so that lookups need no wrap.
struct NoiseTable {
    std::array<int, 512> p;
    NoiseTable()
    {
        std::array<int, 256> perm;
        std::iota(perm.begin(), perm.end(), 0);
        std::mt19937 generator; // default seed 5489
        std::shuffle(perm.begin(), perm.end(), generator);
        for (int i = 0; i < 512; ++i) p[size_t(i)] = perm[size_t(i & 255)];
    }
};

const NoiseTable& noiseTable()
{
    static const NoiseTable table;
    return table;
}

double fade(double t) { return t * t * t * (t * (t * 6.0 - 15.0) + 10.0); }
double lerp(double t, double a, double b) { return a + t * (b - a); }
double grad(int hash, double x, double y, double z)
{
    const int h = hash & 15;
    const double u = h < 8 ? x : y;
    const double v = h < 4 ? y : (h == 12 || h == 14 ? x : z);
    return ((h & 1) == 0 ? u : -u) + ((h & 2) == 0 ? v : -v);
}

double perlin(double x, double y, double z)
{
    const auto& p = noiseTable().p;
    const int X = int(std::floor(x)) & 255, Y = int(std::floor(y)) & 255, Z = int(std::floor(z)) & 255;
    x -= std::floor(x);
    y -= std::floor(y);
    z -= std::floor(z);
    const double u = fade(x), v = fade(y), w = fade(z);
    const int A = p[size_t(X)] + Y, AA = p[size_t(A)] + Z, AB = p[size_t(A + 1)] + Z;
    const int B = p[size_t(X + 1)] + Y, BA = p[size_t(B)] + Z, BB = p[size_t(B + 1)] + Z;
    return lerp(w,
                lerp(v, lerp(u, grad(p[size_t(AA)], x, y, z), grad(p[size_t(BA)], x - 1, y, z)),
                     lerp(u, grad(p[size_t(AB)], x, y - 1, z), grad(p[size_t(BB)], x - 1, y - 1, z))),
                lerp(v, lerp(u, grad(p[size_t(AA + 1)], x, y, z - 1), grad(p[size_t(BA + 1)], x - 1, y, z - 1)),
                     lerp(u, grad(p[size_t(AB + 1)], x, y - 1, z - 1),
                          grad(p[size_t(BB + 1)], x - 1, y - 1, z - 1))));
}

template <typename T> T randFn(void*, const T* a) { return T(formulaRand(double(a[0]))); }
template <typename T> T noiseFn(void*, const T* a) { return T(formulaNoise(double(a[0]))); }
template <typename T> T remapFn(void*, const T* a)
{
    return T(formulaRemap(double(a[0]), double(a[1]), double(a[2]), double(a[3]), double(a[4])));
}
template <typename T> T remapsFn(void*, const T* a)
{
    return T(formulaRemaps(double(a[0]), double(a[1]), double(a[2]), double(a[3]), double(a[4])));
}

// Guards against ref() cycles, which would otherwise recurse until the stack runs out.
thread_local int refDepth = 0;
const int kMaxRefDepth = 32;

ParameterSet* findSet(const std::string& name)
{
    if (nodeMaster)
        if (ParameterSet* s = nodeMaster->findNodeParameters(name)) return s;
    if (simulation)
        if (SceneObject* o = simulation->findByName(name)) return &o->params;
    return nullptr;
}

} // namespace

namespace formulavocab {
template <typename T> void addShared(expr::SymbolTable<T>& t)
{
    t.addFunction("rand", 1, &randFn<T>);
    t.addFunction("noise", 1, &noiseFn<T>);
    t.addFunction("remap", 5, &remapFn<T>);
    t.addFunction("remaps", 5, &remapsFn<T>);
}
template void addShared<float>(expr::SymbolTable<float>&);
template void addShared<double>(expr::SymbolTable<double>&);
} // namespace formulavocab

double formulaNoise(double x) { return perlin(0.937432 * x, 0.0, 0.0) * 0.5 + 0.5; }

double formulaRemap(double x, double a, double b, double c, double d)
{
    const double t = std::clamp((x - a) / (b - a), 0.0, 1.0);
    return (1.0 - t) * c + t * d;
}

double formulaRemaps(double x, double a, double b, double c, double d)
{
    const double t = std::clamp((x - a) / (b - a), 0.0, 1.0);
    const double s = (3.0 - 2.0 * t) * t * t;
    return (1.0 - s) * c + s * d;
}

double formulaRand(double x)
{
    if (!simState || simState->randomTable.empty() || !std::isfinite(x)) return 0.0;
    const double m = std::fmod(std::fabs(std::trunc(x)), 4294967296.0);
    const unsigned u = x < 0 ? unsigned(-m) : unsigned(m); // truncation to unsigned wraps
    return simState->randomTable[u % simState->randomTable.size()];
}

float currentFrame() { return simState ? float(simState->frame) : 0.f; }

std::string prepareFormula(const std::string& text, bool pointForm)
{
    std::string s = text;
    if (pointForm) {
        replaceAll(s, ".x", "[0]");
        replaceAll(s, ".y", "[1]");
        replaceAll(s, ".z", "[2]");
        replaceAll(s, ".r", "[0]");
        replaceAll(s, ".g", "[1]");
        replaceAll(s, ".b", "[2]");
    }
    replaceAll(s, "!(", "not(");
    replaceAll(s, "! (", "not(");
    replaceAll(s, "&&", "&");
    replaceAll(s, "||", "|");
    return s;
}

double evaluateExpression(const Parameter& parameter, const std::string& text, float frame, int substep,
                          bool* ok)
{
    expr::SymbolTable<double> symbols;
    formulavocab::addShared(symbols);
    const float fps = simState ? simState->fps : 24.f;
    double dt = simState ? simState->dt : 0.0;
    if (parameter.owner && parameter.owner->nodeMaster) dt = parameter.owner->nodeMaster->graphDt;
    symbols.addScalar("frame", expr::Binding::value(std::trunc(frame)));
    symbols.addScalar("framef", expr::Binding::value(frame));
    symbols.addScalar("substep", expr::Binding::value(substep));
    symbols.addScalar("dt", expr::Binding::value(dt));
    symbols.addScalar("fps", expr::Binding::value(fps));
    symbols.addScalar("time", expr::Binding::value(double(frame) / fps));
    symbols.addStandardConstants();

    expr::Program<double> program;
    const bool compiled = program.compile(prepareFormula(text, false), symbols);
    if (ok) *ok = compiled;
    return compiled ? program.value() : 0.0;
}

std::string resolveRefs(const Parameter& parameter, const std::string& text, float frame, int substep)
{
    (void)parameter;
    std::string s = text;
    size_t pos = 0;
    while ((pos = s.find("ref(", pos)) != std::string::npos) {
        const size_t close = s.find(')', pos + 4);
        if (close == std::string::npos) break;
        const std::string match = s.substr(pos, close + 1 - pos);
        const std::string inner = s.substr(pos + 4, close - pos - 4);
        const size_t dot = inner.find('.');
        const std::string objectName = dot == std::string::npos ? inner : inner.substr(0, dot);
        std::string key = dot == std::string::npos ? inner : inner.substr(dot + 1);

        Parameter* row = nullptr;
        if (ParameterSet* set = findSet(objectName)) {
            row = set->get(key);
            if (!row && (key == "attribSetValueX" || key == "attribSetValueY" || key == "attribSetValueZ"))
                row = set->get(std::string(1, char('x' + (key.back() - 'X'))));
        }
        if (!row || refDepth >= kMaxRefDepth) {
            if (row) std::printf("warning: ref() chain too deep at %s.\n", match.c_str());
            pos = close + 1;
            continue;
        }
        ++refDepth;
        row->evaluate(frame, substep);
        --refDepth;
        const std::string replacement = row->resolved;
        replaceAll(s, match, replacement);
        pos += replacement.size();
    }
    return s;
}

std::vector<std::string> referencedNodes(const Parameter& parameter)
{
    std::vector<std::string> names;
    size_t pos = 0;
    const std::string& s = parameter.text;
    while ((pos = s.find("ref(", pos)) != std::string::npos) {
        const size_t close = s.find(')', pos + 4);
        if (close == std::string::npos) break;
        const std::string inner = s.substr(pos + 4, close - pos - 4);
        const std::string name = inner.substr(0, inner.find('.'));
        if (nodeMaster && nodeMaster->findNodeParameters(name) &&
            std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(name);
        pos = close + 1;
    }
    return names;
}
