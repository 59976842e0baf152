// The one naming rule of nodes, plugs and classic objects: a taken name that doesn't end
// in digits gets "1" appended, one that does has its number raised, until it is free.
#pragma once

#include <functional>
#include <string>

std::string uniqueName(const std::string& wanted, const std::function<bool(const std::string&)>& taken);
