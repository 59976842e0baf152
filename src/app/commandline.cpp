// Option table of the qorva executable. No option has a short form or a default: an option
// that isn't given leaves the settings' value alone.
#include "app/commandline.h"

#include <boost/program_options.hpp>
#include <sstream>

namespace po = boost::program_options;

bool parseCommandLine(int argc, const char* const* argv, CommandLine& out, std::string& error)
{
    po::options_description desc("Allowed options");
    desc.add_options()
        ("help", "produce help message")
        ("sim", "automatically start the simulation and enable cache writing")
        ("writeimages", "enable playblast image writing (only in gui-mode)")
        ("startframe", po::value<int>(), "override start frame")
        ("endframe", po::value<int>(), "override end frame")
        ("cachepath", po::value<std::string>(), "override the cache folder path")
        ("imagepath", po::value<std::string>(), "override the image folder path")
        ("writeinbackground", po::value<bool>(),
         "enable or disable image and cache writing in background. Default is true")
        ("headless", "no-gui version")
        ("numthreads", po::value<int>(), "number of threads to use")
        ("version", "show version number")
        ("cudadevice", po::value<int>(), "choose a cuda device")
        ("input-file", po::value<std::vector<std::string>>(), "input file");
    po::positional_options_description positional;
    positional.add("input-file", -1);

    std::ostringstream help;
    help << desc;
    out.helpText = help.str();

    po::variables_map vm;
    try {
        po::store(po::command_line_parser(argc, argv).options(desc).positional(positional).run(), vm);
        po::notify(vm);
    } catch (const po::error& e) {
        error = e.what();
        return false;
    }
    out.help = vm.count("help") > 0;
    out.version = vm.count("version") > 0;
    out.sim = vm.count("sim") > 0;
    out.writeImages = vm.count("writeimages") > 0;
    out.headless = vm.count("headless") > 0;
    if (vm.count("startframe")) out.startFrame = vm["startframe"].as<int>();
    if (vm.count("endframe")) out.endFrame = vm["endframe"].as<int>();
    if (vm.count("numthreads")) out.numThreads = vm["numthreads"].as<int>();
    if (vm.count("cudadevice")) out.cudaDevice = vm["cudadevice"].as<int>();
    if (vm.count("cachepath")) out.cachePath = vm["cachepath"].as<std::string>();
    if (vm.count("imagepath")) out.imagePath = vm["imagepath"].as<std::string>();
    if (vm.count("writeinbackground")) out.writeInBackground = vm["writeinbackground"].as<bool>();
    if (vm.count("input-file")) out.inputFiles = vm["input-file"].as<std::vector<std::string>>();
    return true;
}
