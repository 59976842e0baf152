// Compiling a point formula: find the "@names", bind each to its attribute array, bind the
// point index and count, and hand the prepared text to the formula compiler.
#include "params/pointexpression.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "geo/body.h"
#include "graph/nodemaster.h"
#include "params/expression.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace formulavocab {
template <typename T> void addShared(expr::SymbolTable<T>& t);
}

namespace {

bool nameChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

bool isBuiltinName(const std::string& n)
{
    static const char* const builtins[] = {"pointNum", "ptNum", "numPoints", "numPt", "frame",
                                           "framef", "substep", "substeps", "time"};
    return std::find(std::begin(builtins), std::end(builtins), n) != std::end(builtins);
}

// The length of the first vector among the arguments.
float lengthOfFirstVector(void*, const expr::SymbolTable<float>::Arg* args, int count)
{
    for (int i = 0; i < count; ++i) {
        if (args[i].size >= 3) {
            const float* v = args[i].data;
            return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        }
    }
    return 0.f;
}

} // namespace

PointExpression::PointExpression(NodeMaster* master) : nodeMaster(master) {}

bool PointExpression::compile(const std::string& text, const std::shared_ptr<Body>& source, float frame)
{
    symbols.clear();
    names.clear();
    components.clear();
    attribIndex.clear();
    attribType.clear();
    body = source;
    numPoints = body ? uint32_t(body->points->size()) : 0;
    numPointsF = float(numPoints);

    std::string s = prepareFormula(text, true);
    // Attribute names follow "@"; the original text tells which component was asked for.
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '@') continue;
        size_t end = i + 1;
        while (end < text.size() && nameChar(text[end])) ++end;
        const std::string name = text.substr(i + 1, end - i - 1);
        if (name.empty() || isBuiltinName(name)) continue;
        names.push_back(name);
        char component = 0;
        if (end + 1 < text.size() && text[end] == '.' && nameChar(text[end + 1])) component = text[end + 1];
        components.push_back(component);
    }
    s.erase(std::remove(s.begin(), s.end(), '@'), s.end());

    using expr::Binding;
    for (const char* n : {"pointNum", "pointnum", "ptNum", "ptnum"}) symbols.addScalar(n, Binding::index());
    for (const char* n : {"numPoints", "numpoints", "numPt", "numpt"})
        symbols.addScalar(n, Binding::value(numPointsF));
    symbols.addGenericFunction("length", &lengthOfFirstVector);
    formulavocab::addShared(symbols);
    const float fps = simState ? simState->fps : 24.f;
    symbols.addScalar("frame", Binding::value(double(int(frame))));
    symbols.addScalar("framef", Binding::value(frame));
    symbols.addScalar("substep", Binding::value(simState ? simState->substep : 0));
    symbols.addScalar("substeps", Binding::value(simState ? simState->substeps : 1));
    symbols.addScalar("time", Binding::value(double(frame) / fps));
    if (nodeMaster) symbols.addScalar("dt", Binding::pointer(&nodeMaster->graphDt));
    else if (simState) symbols.addScalar("dt", Binding::pointer(&simState->dt));
    else symbols.addScalar("dt", Binding::value(0.0));
    symbols.addStandardConstants();

    attribIndex.assign(names.size(), -1);
    attribType.assign(names.size(), 14);
    const PointData* points = body ? body->points.get() : nullptr;
    for (size_t k = 0; k < names.size(); ++k) {
        const std::string& name = names[k];
        const int type = points ? points->attribType(name) : 14;
        void* data = type != 14 ? points->attrib(name) : nullptr;
        if (!data) {
            if (name != "ptNum" && name != "ptnum") std::printf("attr %s not found.\n", name.c_str());
            continue;
        }
        const auto it = std::find(points->names.begin(), points->names.end(), name);
        attribIndex[k] = it == points->names.end() ? -1 : int(it - points->names.begin());
        attribType[k] = type;
        switch (type) {
        case 0:
            symbols.addScalar(name, Binding::array(static_cast<std::vector<int32_t>*>(data)->data()));
            break;
        case 1:
            symbols.addScalar(name, Binding::array(static_cast<std::vector<float>*>(data)->data()));
            break;
        case 2:
            symbols.addScalar(name, Binding::bits(static_cast<BitArray*>(data)->words()));
            break;
        case 4: case 5: case 6: case 7: case 8: {
            const float* base = reinterpret_cast<const float*>(static_cast<std::vector<Vec4f>*>(data)->data());
            symbols.addVector(name, Binding::array(base, 4), Binding::array(base + 1, 4),
                              Binding::array(base + 2, 4));
            break;
        }
        default:
            break; // other types cannot be read per point: the compile fails on the name
        }
    }
    return program.compile(s, symbols);
}
