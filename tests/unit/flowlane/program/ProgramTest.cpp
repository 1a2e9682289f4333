// The whole program, with a scripted device. Each run has a process of its own, since it changes the state of
// the process.

#include "program/Program.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "log/KELogging.h"

using namespace flowlane;
using namespace kestrelon;

namespace {

// Runs the program and ends the process, with 0 if all loggers have this level then.
[[noreturn]] void RunAndCheckLevels(std::vector<const char*> words, KELogLevel level) {
    words.insert(words.begin(), "flowlane");
    RunProgram(static_cast<int>(words.size()), words.data());
    bool areAllAtLevel = true;
    for (const KELogger* logger = KELogger::First(); logger; logger = logger->Next()) {
        areAllAtLevel = areAllAtLevel && logger->Level() == level;
    }
    std::_Exit(areAllAtLevel ? 0 : 1);
}

} // namespace

TEST(ProgramTest, VerboseRaisesTheLevelOfAllLoggers) {
    EXPECT_EXIT(RunAndCheckLevels({"ts2av", "-v"}, KEMAXLEVEL), testing::ExitedWithCode(0),
                "Missing arguments");
    EXPECT_EXIT(RunAndCheckLevels({"--verbose", "nonsense"}, KEMAXLEVEL), testing::ExitedWithCode(0),
                "Invalid command nonsense");
}

TEST(ProgramTest, WithoutVerboseTheLevelIsInfo) {
    EXPECT_EXIT(RunAndCheckLevels({"ts2av"}, KEINFO), testing::ExitedWithCode(0), "Missing arguments");
}
