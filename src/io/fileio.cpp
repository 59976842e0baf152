// fileio::read and fileio::write: the extension table, the retry loops with their
// delays and messages, and the paused-run rule. Formats that are not built yet (PRT,
// Alembic, VDB) fail at once with one line rather than going through the retries.
#include "io/fileio.h"

#include <boost/filesystem.hpp>

#include <chrono>
#include <iostream>
#include <locale>
#include <thread>

#include "app/globals.h"
#include "app/simstate.h"
#include "geo/body.h"
#include "io/binformat.h"
#include "io/objformat.h"
#include "io/vdbformat.h"

namespace fileio {

namespace {

void sleepMs(int ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

bool runPaused()
{
    return simState != nullptr && simState->paused;
}

// The formats whose readers and writers are not part of this build yet; null otherwise.
const char* notYetSupported(const std::string& extension)
{
    if (extension == "prt") return "PRT files are not supported yet.";
    if (extension == "abc") return "Alembic files are not supported yet.";
    return nullptr;
}

// Runs the reader for `extension`; false when there is none.
bool dispatchRead(const std::string& extension, const std::string& path, Body& body, float scale, int& result)
{
    if (extension == "bin") {
        result = readBin(path, body);
        return true;
    }
    if (extension == "vdb") {
        result = readVdb(path, body);
        return true;
    }
    if (extension == "obj") {
        result = readObj(path, body, scale);
        return true;
    }
    return false;
}

bool dispatchWrite(const std::string& extension, const std::string& path, const Body& body,
                   const BinFrameInfo* frameInfo, int& result)
{
    if (extension == "bin") {
        result = writeBin(path, body, frameInfo);
        return true;
    }
    if (extension == "obj") {
        result = writeObj(path, body);
        return true;
    }
    if (extension == "vdb") {
        result = writeVdb(path, body);
        return true;
    }
    return false;
}

} // namespace

std::string extensionOf(const std::string& path)
{
    const size_t dot = path.rfind('.');
    std::string extension = dot == std::string::npos ? path : path.substr(dot + 1);
    const auto& ctype = std::use_facet<std::ctype<char>>(std::locale());
    for (char& c : extension) c = ctype.tolower(c);
    return extension;
}

std::string parentFolderOf(const std::string& path)
{
    std::string normal = path;
    for (char& c : normal)
        if (c == '\\') c = '/';
    const size_t slash = normal.rfind('/');
    if (slash == std::string::npos) return std::string();
    if (slash == 0) return "/";
    return normal.substr(0, slash);
}

int read(const std::string& path, std::shared_ptr<Body>& body, float /*frame*/, float /*fps*/,
         bool /*interpolate*/, float scale, AbcInfo* /*info*/)
{
    if (path.empty()) {
        body.reset();
        return -1;
    }
    const std::string extension = extensionOf(path);
    if (const char* text = notYetSupported(extension)) {
        std::cout << text << " (" << path << ")\n";
        body.reset();
        return -1;
    }
    if (!body) body = std::make_shared<Body>();

    int result = -1;
    int limit = 3;
    int delay = 100;
    for (int attempt = 0; attempt < limit; ++attempt) {
        try {
            if (runPaused()) {
                limit = 0;  // the try under way is the last
                delay = 20;
            }
            if (FILE* probe = std::fopen(path.c_str(), "rb")) {
                std::fclose(probe);
                if (!dispatchRead(extension, path, *body, scale, result))
                    std::cout << "reading files with extension \"" << extension << "\" is unsupported.\n";
                if (result == 0) return 0;
            } else if (runPaused()) {
                limit = 0;
                delay = 20;
            } else {
                limit = 2;
                delay = 10;
            }
            std::cerr << "a read error happened. retrying... (" << path << ")\n";
            sleepMs(delay);
        } catch (const std::exception& e) {
            std::cerr << "read error: " << e.what() << " (" << path << ")\n";
            sleepMs(delay);
        } catch (const std::string&) {
            std::cerr << "read error: " << " (" << path << ")\n";
            sleepMs(delay);
        } catch (const char*) {
            std::cerr << "read error: " << " (" << path << ")\n";
            sleepMs(delay);
        } catch (...) {
            std::cerr << "read error. (" << path << ")\n";
            sleepMs(delay);
        }
    }
    if (result == -1) body.reset();
    return result;
}

int write(const std::string& path, const std::shared_ptr<Body>& body, const BinFrameInfo* frameInfo)
{
    const std::string extension = extensionOf(path);
    if (const char* text = notYetSupported(extension)) {
        std::cout << text << " (" << path << ")\n";
        return -1;
    }
    if (!body) {
        std::cerr << "write error: no geometry to write. (" << path << ")\n";
        return -1;
    }

    const int kAttempts = 50;
    int result = -1;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        try {
            const std::string folder = parentFolderOf(path);
            if (!folder.empty() && boost::filesystem::create_directories(folder))
                std::cout << "created dir: " << folder << "\n";
            if (!dispatchWrite(extension, path, *body, frameInfo, result))
                std::cout << "writing files with extension \"" << extension << "\" is unsupported.\n";
            if (result == 0) break;
            std::cerr << "\na write error happened. retrying...\n";
            sleepMs(2);
        } catch (const std::exception& e) {
            std::cerr << "write error: " << e.what() << "\n";
            sleepMs(2);
        } catch (const std::string& s) {
            std::cerr << "write error: " << s << "\n";
            sleepMs(2);
        } catch (const char* s) {
            std::cerr << "write error: " << s << "\n";
            sleepMs(2);
        } catch (...) {
            std::cerr << "write error. \n";
            sleepMs(2);
        }
    }
    return result;
}

} // namespace fileio
