#include "app/uniquename.h"

#include <cctype>

std::string uniqueName(const std::string& wanted, const std::function<bool(const std::string&)>& taken)
{
    if (!taken(wanted)) return wanted;
    size_t cut = wanted.size();
    while (cut > 0 && std::isdigit(static_cast<unsigned char>(wanted[cut - 1]))) --cut;
    const std::string base = wanted.substr(0, cut);
    // at most 9 digits are read, so the number never overflows
    long n = cut < wanted.size() ? std::stol(wanted.substr(cut).substr(0, 9)) : 0;
    std::string candidate;
    do {
        candidate = base + std::to_string(++n);
    } while (taken(candidate));
    return candidate;
}
