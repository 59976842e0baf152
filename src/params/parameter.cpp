// Evaluation and application of one parameter row: text to bound field, with keyframes,
// expressions, references and tokens. A literal number takes the short road (no
// expression machinery), since every row is evaluated on every cook.
#include "params/parameter.h"

#include "params/expression.h"
#include "params/parameterset.h"
#include "params/paths.h"
#include "params/pointexpression.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace {

// Reads the whole of `s` as a float number; false if anything is left over or it is empty.
bool readsAsNumber(const std::string& s, double& out)
{
    if (s.empty()) return false;
    const char* begin = s.data();
    const char* end = begin + s.size();
    // from_chars is the fast road for plain decimals; strtod also takes "+1", " 1", hex.
    const auto r = std::from_chars(begin, end, out);
    if (r.ec == std::errc() && r.ptr == end) return true;
    char* stop = nullptr;
    out = std::strtod(s.c_str(), &stop);
    return stop != s.c_str() && size_t(stop - s.c_str()) == s.size();
}

// atof-like: the leading number of `s`, 0 if there is none.
double leadingNumber(const std::string& s)
{
    return std::strtod(s.c_str(), nullptr);
}

std::string lowered(std::string s)
{
    for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

} // namespace

const std::vector<std::string>& globalList(int type)
{
    static const std::vector<std::string> colliderKinds{"Plane", "Mesh", "Volume"};
    static const std::vector<std::string> falloffKinds{"Uniform", "Radial"};
    static const std::vector<std::string> sourceKinds{"Volume", "Mesh"};
    static const std::vector<std::string> domainKinds{"Unbound", "Box", "Sphere"};
    static const std::vector<std::string> noiseKinds{"Regular", "Curl"};
    static const std::vector<std::string> none;
    switch (type) {
    case kParamColliderKind: return colliderKinds;
    case kParamFalloffKind: return falloffKinds;
    case kParamSourceKind: return sourceKinds;
    case kParamDomainKind: return domainKinds;
    case kParamNoiseKind: return noiseKinds;
    default: return none;
    }
}

Parameter::Parameter(void* valuePtr, const std::string& keyName, const std::string& labelText, int typeCode,
                     const std::string& tooltip)
    : value(valuePtr), key(keyName), label(labelText), type(typeCode)
{
    if (key != "blank" && key != "label") {
        toolTip = "<b>" + label + ":</b><br><i>(" + key + ")</i>";
        if (!tooltip.empty()) toolTip += "<br><br>" + tooltip;
    }
    if (text.empty()) {
        refreshText(false);
        defaultText = text;
        text.clear();
    }
}

bool Parameter::isNumeric() const
{
    switch (type) {
    case kParamBool: case kParamInt: case kParamFloat: case kParamColliderKind: case kParamFalloffKind:
    case kParamSourceKind: case kParamDomainKind: case kParamNoiseKind: case kParamEnum:
        return true;
    default:
        return false;
    }
}

bool Parameter::isListKind() const
{
    return type == kParamColliderKind || type == kParamFalloffKind || type == kParamSourceKind ||
           type == kParamDomainKind || type == kParamNoiseKind || type == kParamEnum;
}

const std::vector<std::string>& Parameter::listEntries() const
{
    return type == kParamEnum ? enumEntries : globalList(type);
}

bool Parameter::visibility() const
{
    if (visibleIfInt) {
        if (visibleIntValue == -1) return *visibleIfInt != 0;
        return visibleNegate ? *visibleIfInt != visibleIntValue : *visibleIfInt == visibleIntValue;
    }
    if (visibleIfBool) return *visibleIfBool == visibleBoolValue;
    return visible;
}

std::string Parameter::trimmedNumber(double v)
{
    char buf[64];
    std::snprintf(buf, sizeof(buf), "%f", v);
    std::string s(buf);
    if (s.find('.') != std::string::npos) {
        while (!s.empty() && s.back() == '0') s.pop_back();
        if (!s.empty() && s.back() == '.') s.pop_back();
    }
    if (s == "-0") s = "0";
    return s;
}

void Parameter::evaluate(float frame, int substep)
{
    if (!value) return;
    // 1-2: remember what the last evaluation saw.
    if (text != lastText) {
        lastText = text;
        textChanged = true;
    }
    lastNumber = number;
    lastResolved.swap(resolved);

    // 3: an override holds until the frame changes.
    if (overridden && !keys.empty()) {
        apply(true, overrideValue, std::string());
        return;
    }
    // 4: a manipulator writes the field itself.
    if (manipulated) {
        resolved = lastResolved;
        textChanged = valueChanged = true;
        return;
    }
    // 5: translate, rotate and scale of a source or collider driven from elsewhere.
    if ((owner && (owner->typeCode == 5 || owner->typeCode == 8)) && owner->transformDriven &&
        *owner->transformDriven && index >= 1 && index <= 9 && type == kParamFloat) {
        resolved = trimmedNumber(*static_cast<float*>(value));
        return;
    }
    // 6
    const bool numeric = isNumeric();
    if (numeric && (text.empty() || text == " ")) text = "0";

    // 7: references, then tokens.
    std::string work = text;
    bool substituted = false;
    if (work.find("ref(") != std::string::npos) {
        work = resolveRefs(*this, work, frame, substep);
        substituted = true;
    }
    if (work.find('$') != std::string::npos || work.find("####") != std::string::npos) {
        work = resolveTokens(*this, work, frame);
        substituted = true;
    }

    // 8
    keys.clear();
    hasExpression = false;
    isPerPoint = false;
    double result = 0.0;
    bool haveResult = false;

    double literal = 0.0;
    const bool isNumber = readsAsNumber(text, literal);
    if (isNumber) {
        // 9: a plain number.
        isLiteral = true;
    } else if (numeric) {
        bool isName = false;
        // 11: keyframes.
        try {
            if (parseKeys(work, keys)) {
                result = keyValue(frame);
                haveResult = true;
            }
        } catch (const std::exception&) {
            std::printf("something wrong in keyframe evaluation: %s\n", key.c_str());
            keys.clear();
            result = 0.0;
        }
        if (!haveResult) {
            // 12: a name of a list entry or a bool word is no expression.
            if (work == "true" || work == "false") isName = true;
            for (int t : {kParamColliderKind, kParamFalloffKind, kParamSourceKind, kParamDomainKind,
                          kParamNoiseKind}) {
                const auto& list = globalList(t);
                if (!isName && std::find(list.begin(), list.end(), work) != list.end()) isName = true;
            }
            if (!isName && std::find(enumEntries.begin(), enumEntries.end(), work) != enumEntries.end())
                isName = true;
        }
        // 13: a formula, per point or for the whole row.
        if (!haveResult && !isName) {
            if (work.find('@') != std::string::npos) {
                hasExpression = isPerPoint = true;
            } else {
                try {
                    bool ok = false;
                    result = evaluateExpression(*this, work, frame, substep, &ok);
                    if (ok) {
                        haveResult = true;
                        hasExpression = true;
                    }
                } catch (...) {
                    std::printf("expr. parse error.\n");
                    haveResult = false;
                }
            }
        }
    }
    // 14
    if (substituted) {
        hasExpression = true;
        if (isPerPoint) valueChanged = true;
    }
    // 15: a literal's number is already parsed when the text needed no substitution.
    applyText(haveResult, result, work, isNumber && !substituted ? &literal : nullptr);
}

void Parameter::applyNumber(double v)
{
    if (std::isnan(v)) {
        std::printf("warning: parameter %s is not a number, using 0.\n", key.c_str());
        v = 0.0;
    }
    if (hasMin && v < minValue) v = minValue;
    if (hasMax && v > maxValue) v = maxValue;
    if (type == kParamInt) {
        const double lo = double(std::numeric_limits<int32_t>::min());
        const double hi = double(std::numeric_limits<int32_t>::max());
        const int32_t i = int32_t(std::trunc(std::clamp(v, lo, hi)));
        *static_cast<int32_t*>(value) = i;
        char buf[16];
        const auto r = std::to_chars(buf, buf + sizeof(buf), i);
        resolved.assign(buf, r.ptr);
    } else {
        const float f = float(v);
        *static_cast<float*>(value) = f;
        char buf[48];
        const auto r = std::to_chars(buf, buf + sizeof(buf), f);
        resolved.assign(buf, r.ptr);
    }
}

void Parameter::applyList(bool haveNumber, double num, const std::string& txt)
{
    const auto& entries = listEntries();
    long index = 0;
    if (haveNumber) {
        index = std::isfinite(num) ? long(std::trunc(num)) : 0;
    } else {
        const auto it = std::find(entries.begin(), entries.end(), txt);
        if (it != entries.end()) {
            index = long(it - entries.begin());
        } else {
            double d = 0.0;
            index = readsAsNumber(txt, d) && std::isfinite(d) ? long(std::trunc(d)) : 0;
        }
    }
    if (hasMin && index < minValue) index = long(minValue);
    if (hasMax && index > maxValue) index = long(maxValue);
    if (!entries.empty()) index = std::clamp<long>(index, 0, long(entries.size()) - 1);
    else index = std::max<long>(index, 0);
    *static_cast<int32_t*>(value) = int32_t(index);
    resolved = entries.empty() ? std::to_string(index) : entries[size_t(index)];
}

void Parameter::apply(bool haveNumber, double num, const std::string& txt)
{
    applyText(haveNumber, num, txt, nullptr);
}

void Parameter::applyText(bool haveNumber, double num, const std::string& txt, const double* parsedText)
{
    if (!value) return;
    switch (type) {
    case kParamBool: {
        const bool b = haveNumber ? num != 0.0 : (txt == "1" || txt == "true");
        *static_cast<bool*>(value) = b;
        resolved = b ? "true" : "false";
        break;
    }
    case kParamInt:
    case kParamFloat:
        applyNumber(haveNumber ? num : parsedText ? *parsedText : leadingNumber(txt));
        break;
    case kParamString:
    case kParamPath:
        *static_cast<std::string*>(value) = txt;
        resolved = txt;
        break;
    case kParamObjectName: {
        std::string& field = *static_cast<std::string*>(value);
        if (!txt.empty() && txt != field) { // an empty text never renames
            if (owner && owner->renamer) field = owner->renamer(txt);
            else field = txt;
        }
        resolved = field;
        break;
    }
    default:
        if (isListKind()) applyList(haveNumber, num, txt);
        break;
    }
    number = haveNumber ? num : 0.0;
    if (number != lastNumber || resolved != lastResolved) valueChanged = true;
}

void Parameter::refreshText(bool force)
{
    if (!force && !text.empty()) return;
    if (!value) return;
    switch (type) {
    case kParamBool: text = *static_cast<bool*>(value) ? "true" : "false"; break;
    case kParamInt: text = std::to_string(*static_cast<int32_t*>(value)); break;
    case kParamFloat: text = trimmedNumber(*static_cast<float*>(value)); break;
    case kParamString: case kParamPath: case kParamObjectName:
        text = *static_cast<std::string*>(value);
        break;
    default:
        if (isListKind()) text = std::to_string(*static_cast<int32_t*>(value));
        break;
    }
}

bool Parameter::isTimeDependent() const
{
    if (!keys.empty()) return true;
    for (const char* word : {"framef", "$F", "frame", "time", "$", "####"})
        if (text.find(word) != std::string::npos) return true;
    return false;
}

std::string Parameter::clampedText(const std::string& input) const
{
    const bool clampable = type == kParamInt || type == kParamFloat || type == kParamColliderKind ||
                           type == kParamFalloffKind || type == kParamSourceKind ||
                           type == kParamDomainKind || type == kParamNoiseKind;
    double v = 0.0;
    if (!clampable || !readsAsNumber(input, v)) return input;
    if (hasMin && v < minValue) v = minValue;
    if (hasMax && v > maxValue) v = maxValue;
    if (type == kParamFloat) return trimmedNumber(v);
    return std::to_string(long(std::trunc(v)));
}

bool Parameter::parseKeys(const std::string& source, std::map<double, std::pair<double, double>>& out)
{
    out.clear();
    std::string s = lowered(source);
    const size_t k = s.find("key");
    if (k != std::string::npos) s.erase(k, 3);
    const size_t open = s.find('(');
    const size_t close = s.rfind(')');
    if (open != std::string::npos && close != std::string::npos && close > open)
        s = s.substr(open + 1, close - open - 1);

    size_t pos = 0;
    while (pos < s.size()) {
        const size_t next = s.find(' ', pos);
        const std::string part = s.substr(pos, next == std::string::npos ? std::string::npos : next - pos);
        pos = next == std::string::npos ? s.size() : next + 1;
        if (part.empty()) continue;
        const size_t colon = part.find(':');
        if (colon == std::string::npos || part.find(':', colon + 1) != std::string::npos) break;
        double f = 0.0, v = 0.0;
        if (!readsAsNumber(part.substr(0, colon), f) || !readsAsNumber(part.substr(colon + 1), v))
            throw std::invalid_argument("keyframe piece is no number");
        out[f] = std::make_pair(f, v);
    }
    return !out.empty();
}

double Parameter::keyValue(double t) const
{
    if (keys.empty()) return 0.0;
    const auto first = keys.begin();
    const auto last = std::prev(keys.end());
    if (t <= first->first + 0.00001) return first->second.second;
    if (t >= last->first) return last->second.second;
    for (auto it = keys.begin(); std::next(it) != keys.end(); ++it) {
        const auto nx = std::next(it);
        const double k0 = it->first, k1 = nx->first;
        if (t >= k0 - 0.00001 && t < k1 + 0.00001) {
            const double a = (t - k0) / (k1 - k0);
            return it->second.second * (1.0 - a) + nx->second.second * a;
        }
    }
    return last->second.second;
}

void Parameter::writeKeysToText()
{
    std::string s;
    for (const auto& kv : keys) s += trimmedNumber(kv.second.first) + ":" + trimmedNumber(kv.second.second) + " ";
    text = s;
}

void Parameter::setKey(double frame, double v)
{
    keys[frame] = std::make_pair(frame, v);
    writeKeysToText();
}

void Parameter::userEdit(const std::string& input)
{
    double v = 0.0;
    if (!keys.empty() && readsAsNumber(input, v)) {
        std::printf("the input is numeric and there wasn't a full switch. marking for override.\n");
        overridden = true;
        overrideValue = float(v);
    } else {
        text = input;
    }
    if (owner) owner->edited = true;
}

void Parameter::setPointExpression(const std::shared_ptr<Body>& body)
{
    const float frame = currentFrame();
    std::string work = text;
    if (work.find("ref(") != std::string::npos) work = resolveRefs(*this, work, frame, 0);
    if (work.find('$') != std::string::npos || work.find("####") != std::string::npos)
        work = resolveTokens(*this, work, frame);
    setPointExpression(work, body);
}

void Parameter::setPointExpression(const std::string& exprText, const std::shared_ptr<Body>& body)
{
    pointExpression = std::make_shared<PointExpression>(owner ? owner->nodeMaster : nullptr);
    pointExpression->compile(exprText, body, currentFrame());
}
