#include "ui/playblastpath.h"

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simulation.h"

#include <cctype>
#include <cstdio>
#include <vector>

namespace {

bool looksLikeImageFile(const std::string& path)
{
    const size_t dot = path.rfind('.');
    const size_t slash = path.find_last_of("/\\");
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return false;
    std::string ext = path.substr(dot + 1);
    for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
    return ext == "png" || ext == "jpg" || ext == "jpeg" || ext == "tif" || ext == "tiff" || ext == "bmp";
}

void replaceAll(std::string& s, const std::string& from, const std::string& to)
{
    for (size_t at = s.find(from); at != std::string::npos; at = s.find(from, at + to.size()))
        s.replace(at, from.size(), to);
}

} // namespace

std::string PlayblastPath::folderOf(const std::string& path)
{
    const size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string PlayblastPath::pattern()
{
    if (!simulation) return std::string();
    const GlobalSettings* settings = simulation->globalSettings;
    if (settings && !settings->fallbackPathImages.empty()) {
        std::string row = settings->fallbackPathImages;
        if (looksLikeImageFile(row)) return row;
        while (row.size() > 1 && (row.back() == '/' || row.back() == '\\')) row.pop_back();
        return row + "/out.%04d.png";
    }
    if (simulation->scenePath.empty()) return std::string();
    std::string folder = folderOf(simulation->scenePath);
    if (folder.empty()) folder = ".";
    return folder + "/images/" + simulation->sceneName + "/out.%04d.png";
}

std::string PlayblastPath::forFrame(const std::string& pattern, int frame)
{
    std::string s = pattern;
    replaceAll(s, "#####", "%05d");
    replaceAll(s, "####", "%04d");
    replaceAll(s, "###", "%03d");
    replaceAll(s, "##", "%02d");
    // write the frame into the first integer field; other '%' stay as they are
    std::string out;
    bool done = false;
    for (size_t i = 0; i < s.size(); ++i) {
        if (!done && s[i] == '%' && i + 3 < s.size() && s[i + 1] == '0' && std::isdigit(static_cast<unsigned char>(s[i + 2])) &&
            s[i + 3] == 'd') {
            char buf[32];
            std::snprintf(buf, sizeof(buf), (std::string("%0") + s[i + 2] + "d").c_str(), frame);
            out += buf;
            i += 3;
            done = true;
            continue;
        }
        if (!done && s[i] == '%' && i + 1 < s.size() && s[i + 1] == 'd') {
            out += std::to_string(frame);
            ++i;
            done = true;
            continue;
        }
        out += s[i];
    }
    return out;
}
