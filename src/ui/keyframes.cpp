#include "ui/keyframes.h"

#include "params/parameter.h"

#include <cmath>
#include <cstdint>
#include <exception>
#include <map>

namespace {
using KeyMap = std::map<double, std::pair<double, double>>;

bool keysOf(const std::string& text, KeyMap& keys)
{
    try {
        return Parameter::parseKeys(text, keys);
    } catch (const std::exception&) {
        keys.clear();
        return false;
    }
}

// The text the core writes for these keys (Parameter::setKey formats them).
std::string keyText(const KeyMap& keys)
{
    Parameter scratch;
    for (const auto& k : keys) scratch.setKey(k.first, k.second.second);
    return scratch.text;
}
} // namespace

double fieldValue(const Parameter& row)
{
    if (!row.value) return row.number;
    if (row.type == kParamBool) return *static_cast<const bool*>(row.value) ? 1.0 : 0.0;
    if (row.type == kParamFloat) return double(*static_cast<const float*>(row.value));
    return double(*static_cast<const int32_t*>(row.value));
}

std::string textWithKey(const Parameter& row, double frame, double value)
{
    KeyMap keys;
    keysOf(row.text, keys);
    keys[frame] = std::make_pair(frame, value);
    return keyText(keys);
}

bool textWithoutKey(const Parameter& row, double frame, std::string& text)
{
    KeyMap keys;
    if (!keysOf(row.text, keys)) return false;
    auto it = keys.begin();
    while (it != keys.end() && std::fabs(it->first - frame) >= 0.5) ++it;
    if (it == keys.end()) return false;
    const double removedValue = it->second.second;
    keys.erase(it);
    text = keys.empty() ? row.clampedText(Parameter::trimmedNumber(removedValue)) : keyText(keys);
    return true;
}
