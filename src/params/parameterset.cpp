// ParameterSet: adding rows, lookups, whole-set evaluation, change flags and key times.
#include "params/parameterset.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>

ParameterSet::ParameterSet()
{
    nullParameter.owner = this;
}

Parameter* ParameterSet::add(const Parameter& parameter)
{
    parameters.push_back(parameter);
    Parameter& p = parameters.back();
    p.owner = this;
    p.index = int(parameters.size()) - 1;
    if (p.key == "rotateX") rotateXIndex = p.index;
    else if (p.key == "rotateY") rotateYIndex = p.index;
    else if (p.key == "rotateZ") rotateZIndex = p.index;
    return &p;
}

Parameter* ParameterSet::addSpecial(int kind, const std::string& caption)
{
    Parameter p;
    p.value = &dummyText;
    p.type = kParamString;
    switch (kind) {
    case 100: p.key = "blank"; p.label = "-----"; break;
    case 101:
        p.key = "writeButton";
        p.label = "write";
        p.toolTip = "Shift+click here to start the writing process.";
        break;
    case 102: p.key = "label"; p.label = caption; break;
    default: return nullptr;
    }
    parameters.push_back(p);
    Parameter& stored = parameters.back();
    stored.owner = this;
    stored.index = int(parameters.size()) - 1;
    return &stored;
}

Parameter* ParameterSet::get(const std::string& key)
{
    for (Parameter& p : parameters)
        if (p.key == key) return &p;
    return nullptr;
}

const Parameter* ParameterSet::get(const std::string& key) const
{
    for (const Parameter& p : parameters)
        if (p.key == key) return &p;
    return nullptr;
}

Parameter* ParameterSet::visibleRow(int i, bool includeHidden)
{
    if (i < 0) return nullptr;
    int n = 0;
    for (Parameter& p : parameters) {
        if (!includeHidden && !p.visibility()) continue;
        if (n++ == i) return &p;
    }
    return nullptr;
}

void ParameterSet::evaluateAll(float frame, int substep)
{
    for (Parameter& p : parameters) p.evaluate(frame, substep);
    if (quaternionRotation) blendRotationKeys(frame);
}

void ParameterSet::refreshAllText(bool force)
{
    for (Parameter& p : parameters) p.refreshText(force);
}

bool ParameterSet::excluded(const Parameter& p, const std::vector<std::string>& keys) const
{
    if (p.type == kParamObjectName) return true;
    return std::find(keys.begin(), keys.end(), p.key) != keys.end();
}

bool ParameterSet::anyTextChanged(const std::vector<std::string>& excludedKeys) const
{
    for (const Parameter& p : parameters)
        if (p.textChanged && !excluded(p, excludedKeys)) return true;
    return false;
}

bool ParameterSet::anyValueChanged(const std::vector<std::string>& excludedKeys) const
{
    for (const Parameter& p : parameters)
        if (p.valueChanged && !excluded(p, excludedKeys)) return true;
    return false;
}

std::vector<double> ParameterSet::keyTimes() const
{
    std::set<double> times;
    for (const Parameter& p : parameters)
        for (const auto& kv : p.keys) times.insert(kv.first);
    return std::vector<double>(times.begin(), times.end());
}

double ParameterSet::previousKey(double frame) const
{
    double best = frame;
    bool found = false;
    for (double t : keyTimes())
        if (t <= frame - 1.0 && (!found || t > best)) { best = t; found = true; }
    return best;
}

double ParameterSet::nextKey(double frame) const
{
    for (double t : keyTimes())
        if (t >= frame + 1.0) return t;
    return frame;
}

void ParameterSet::copyTextsFrom(const ParameterSet& other)
{
    std::printf("copy all from\n");
    const size_t n = std::min(parameters.size(), other.parameters.size());
    for (size_t i = 0; i < n; ++i) parameters[i].text = other.parameters[i].text;
}

void ParameterSet::clearChanged()
{
    for (Parameter& p : parameters) {
        p.textChanged = false;
        p.valueChanged = false;
        p.lastText = p.text;
        p.lastResolved = p.resolved;
    }
}
