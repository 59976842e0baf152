// The qorva executable from the outside: help, version, bad options, and headless runs
// with no display at all.
#include "app/commandline.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace {

struct RunResult {
    int code = -1;
    std::string out;
};

RunResult runQorva(const std::string& args)
{
    // No DISPLAY, like a render node; a time limit so a hang fails instead of blocking.
    const std::string cmd = "cd /tmp && env -u DISPLAY -u QT_QPA_PLATFORM timeout 120 " +
                            std::string(QORVA_BINARY) + " " + args + " 2>&1";
    RunResult r;
    FILE* pipe = popen(cmd.c_str(), "r");
    if (!pipe) return r;
    std::array<char, 4096> buf;
    size_t n;
    while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0) r.out.append(buf.data(), n);
    const int status = pclose(pipe);
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

size_t count(const std::string& s, const std::string& what)
{
    size_t n = 0;
    for (size_t p = s.find(what); p != std::string::npos; p = s.find(what, p + 1)) ++n;
    return n;
}

TEST(CommandLineParse, OptionsAndPositionals)
{
    const char* argv[] = {"qorva", "--sim", "--startframe", "5", "--writeinbackground", "false",
                          "a.qrv", "b.qrv"};
    CommandLine cl;
    std::string error;
    ASSERT_TRUE(parseCommandLine(8, argv, cl, error));
    EXPECT_TRUE(cl.sim);
    EXPECT_EQ(cl.startFrame.value_or(-1), 5);
    EXPECT_FALSE(cl.endFrame.has_value());
    EXPECT_EQ(cl.writeInBackground.value_or(true), false);
    EXPECT_EQ(cl.inputFiles, (std::vector<std::string>{"a.qrv", "b.qrv"}));
}

TEST(CommandLineParse, BadValueIsAnError)
{
    const char* argv[] = {"qorva", "--numthreads", "many"};
    CommandLine cl;
    std::string error;
    EXPECT_FALSE(parseCommandLine(3, argv, cl, error));
    EXPECT_FALSE(error.empty());
}

TEST(Executable, HelpAndVersionEndEarly)
{
    const RunResult help = runQorva("--help");
    EXPECT_EQ(help.code, 0);
    EXPECT_NE(help.out.find("Allowed options"), std::string::npos);
    EXPECT_NE(help.out.find("--numthreads"), std::string::npos);
    EXPECT_EQ(help.out.find("CUDA"), std::string::npos) << "--help ends before the CUDA check";
    const RunResult version = runQorva("--version");
    EXPECT_EQ(version.code, 0);
    EXPECT_NE(version.out.find("Qorva version: 0.6.0"), std::string::npos);
}

TEST(Executable, BadOptionPrintsErrorAndExitsZero)
{
    const RunResult r = runQorva("--nosuchoption");
    EXPECT_EQ(r.code, 0);
    EXPECT_NE(r.out.find("nosuchoption"), std::string::npos);
    EXPECT_EQ(r.out.find("ready."), std::string::npos);
}

TEST(Executable, HeadlessSimRunsEmptySceneWithoutDisplay)
{
    const RunResult r = runQorva("--sim --headless --startframe 3 --endframe 6 --numthreads 2");
    EXPECT_EQ(r.code, 0) << r.out;
    EXPECT_NE(r.out.find("Enabling headless mode."), std::string::npos);
    EXPECT_NE(r.out.find("Startframe was set to 3."), std::string::npos);
    EXPECT_NE(r.out.find("currentframe: 3 - startframe: 3 - endframe: 6"), std::string::npos);
    EXPECT_EQ(count(r.out, "solved. ---"), 4u);
    EXPECT_EQ(count(r.out, "solved step"), 4u * 8u) << "an empty scene runs at minSubsteps";
    EXPECT_NE(r.out.find("sim finished after 4 frames."), std::string::npos);
    EXPECT_NE(r.out.find("CUDA"), std::string::npos);
    EXPECT_NE(r.out.find("shutting down... ok."), std::string::npos);
}

TEST(Executable, MissingSceneGoesOnWithEmptyScene)
{
    const RunResult r = runQorva("--sim --headless --endframe 1 /nonexistent/scene.qrv second.qrv");
    EXPECT_EQ(r.code, 0);
    EXPECT_NE(r.out.find("opening /nonexistent/scene.qrv..."), std::string::npos);
    EXPECT_NE(r.out.find("error opening scene file."), std::string::npos);
    EXPECT_EQ(r.out.find("second.qrv"), std::string::npos) << "only the first input file is used";
    EXPECT_NE(r.out.find("sim finished after 2 frames."), std::string::npos);
}

TEST(Executable, StartAboveEndIsAcceptedAndFinishes)
{
    const RunResult r = runQorva("--sim --headless --startframe 10 --endframe 5");
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(count(r.out, "solved. ---"), 0u);
    EXPECT_NE(r.out.find("sim finished after"), std::string::npos);
}

} // namespace
