// ParameterSet: the rows of one node or classic object, in display order. Rows live in a
// deque so that a pointer returned by `add` stays valid as more rows are added.
#pragma once

#include "params/parameter.h"

#include <deque>
#include <functional>
#include <string>
#include <vector>

class NodeMaster;

class ParameterSet {
public:
    ParameterSet();
    ParameterSet(const ParameterSet&) = delete;
    ParameterSet& operator=(const ParameterSet&) = delete;

    int typeCode = -1;
    std::string name = "NULL";
    void* owner = nullptr;
    NodeMaster* nodeMaster = nullptr;
    std::deque<Parameter> parameters;
    Parameter nullParameter;
    bool edited = false;
    bool quaternionRotation = false;
    int rotateXIndex = -1, rotateYIndex = -1, rotateZIndex = -1;
    std::string dummyText;

    // Set by the owner: true while its transform rows are driven from elsewhere.
    const bool* transformDriven = nullptr;
    // Renames the owner (object-name rows); answers the name it finally got.
    std::function<std::string(const std::string& wanted)> renamer;

    Parameter* add(const Parameter& parameter);
    // 100 separator, 101 write button, 102 caption; others add nothing and answer null.
    Parameter* addSpecial(int kind, const std::string& caption = std::string());
    Parameter* get(const std::string& key);
    const Parameter* get(const std::string& key) const;
    Parameter* visibleRow(int i, bool includeHidden);
    int size() const { return int(parameters.size()); }

    void evaluateAll(float frame, int substep);
    void refreshAllText(bool force);
    bool anyTextChanged(const std::vector<std::string>& excludedKeys = {}) const;
    bool anyValueChanged(const std::vector<std::string>& excludedKeys = {}) const;
    std::vector<double> keyTimes() const;
    double previousKey(double frame) const;
    double nextKey(double frame) const;
    void copyTextsFrom(const ParameterSet& other);
    void clearChanged();

private:
    bool excluded(const Parameter& p, const std::vector<std::string>& keys) const;
    void blendRotationKeys(float frame);
};
