// Parameter: one user-settable row of a node or classic object. The row does not own the
// value the code reads: it points at a plain field of its owner, and `evaluate` turns the
// row's text (a number, keyframes, an expression, a ref(), a path with tokens) into that
// field at a given frame, recording whether the text or the value changed.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class ParameterSet;
class PointExpression;
class Body;

// Type codes of a parameter. The gaps are kept: files and code use the numbers.
enum ParamType : int {
    kParamBool = 0,
    kParamInt = 1,
    kParamFloat = 2,
    kParamString = 4,
    kParamPath = 5,
    kParamObjectName = 10,
    kParamColliderKind = 11,
    kParamFalloffKind = 12,
    kParamSourceKind = 13,
    kParamDomainKind = 20,
    kParamNoiseKind = 21,
    kParamEnum = 22,
};

class Parameter {
public:
    Parameter() = default;
    Parameter(void* value, const std::string& key, const std::string& label, int type,
              const std::string& tooltip = std::string());

    void* value = nullptr;
    std::string key;
    std::string label;
    std::string toolTip;
    int type = kParamFloat;
    bool editable = true;
    bool visible = true;
    int* visibleIfInt = nullptr;
    bool* visibleIfBool = nullptr;
    int visibleIntValue = -1;
    bool visibleBoolValue = false;
    bool visibleNegate = false;
    std::vector<std::string> enumEntries;
    bool isLiteral = true;
    bool savedLiteral = true;
    std::string text;
    std::string lastText;
    std::string resolved;
    std::string lastResolved;
    double number = 0.0;
    double lastNumber = 0.0;
    bool textChanged = false;
    bool valueChanged = false;
    float minValue = -1000.f;
    float maxValue = 1000.f;
    bool hasMin = false;
    bool hasMax = false;
    ParameterSet* owner = nullptr;
    int index = -1;
    bool overridden = false;
    float overrideValue = 0.f;
    bool manipulated = false;
    std::map<double, std::pair<double, double>> keys;
    bool hasExpression = false;
    bool isPerPoint = false;
    bool highlightValue = false;
    std::shared_ptr<PointExpression> pointExpression;
    std::string defaultText;

    bool isNumeric() const;
    bool isListKind() const;
    // The entries of a list kind: a global list or `enumEntries`.
    const std::vector<std::string>& listEntries() const;
    bool visibility() const;

    void evaluate(float frame, int substep);
    void apply(bool haveNumber, double number, const std::string& text);
    void refreshText(bool force);
    bool isTimeDependent() const;
    std::string clampedText(const std::string& input) const;

    // Keyframes: value at t, and keying a frame (rewrites `text` from the map).
    double keyValue(double t) const;
    void setKey(double frame, double value);
    // An edit from the user: on a keyed row a number overrides until the frame changes.
    void userEdit(const std::string& input);

    void setPointExpression(const std::shared_ptr<Body>& body);
    void setPointExpression(const std::string& text, const std::shared_ptr<Body>& body);

    // Parses keyframe text ("key(1:0 24:1)" or "1:0 24:1"); throws on a piece that is no
    // number. Returns false when the text holds no keys.
    static bool parseKeys(const std::string& text, std::map<double, std::pair<double, double>>& out);
    // Formats a float with "%f" and drops trailing zeros (and a trailing point).
    static std::string trimmedNumber(double v);

private:
    // apply, with the text's number when the caller has parsed it already.
    void applyText(bool haveNumber, double number, const std::string& text, const double* parsedText);
    void applyNumber(double v);
    void applyList(bool haveNumber, double number, const std::string& text);
    void writeKeysToText();
};

// The five global lists of the list kinds, by type code.
const std::vector<std::string>& globalList(int type);
