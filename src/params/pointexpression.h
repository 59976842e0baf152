// PointExpression: a formula over the attributes of a Body ("@P.y * 2"), compiled once
// per process call in single precision and then run per point. The compiled program
// reads attribute arrays by point index directly, so `value` and `values` are safe to
// call from parallel point loops.
#pragma once

#include "expr/formula.h"

#include <memory>
#include <string>
#include <vector>

class Body;
class NodeMaster;

class PointExpression {
public:
    explicit PointExpression(NodeMaster* master = nullptr);

    std::shared_ptr<Body> body;
    std::vector<std::string> names;  // attributes named, in order of appearance (repeats kept)
    std::vector<char> components;    // suffix kept from "@name.c", 0 where none
    std::vector<int> attribIndex;    // position among the Body's attributes, -1 if missing
    std::vector<int> attribType;     // type code, 14 if missing
    NodeMaster* nodeMaster = nullptr;
    uint32_t numPoints = 0;
    float numPointsF = 0.f;

    bool compile(const std::string& text, const std::shared_ptr<Body>& source, float frame);
    bool valid() const { return program.valid(); }
    float value(size_t pointIndex) const { return program.value(pointIndex); }
    void values(size_t first, size_t count, float* out) const { program.values(first, count, out); }

private:
    expr::SymbolTable<float> symbols;
    expr::Program<float> program;
};
