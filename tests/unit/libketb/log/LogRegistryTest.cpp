// Loggers and targets: their lists, attaching, finding by name.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "log/KELogging.h"
#include "log/RecordingTarget.h"

using namespace kestrelon;
using testsupport::DebugOutputCapture;
using testsupport::IsDiagnostic;
using testsupport::ModuleName;
using testsupport::RecordingTarget;

namespace {

// Of the objects on the list; cManyObjects when it has no end.
constexpr std::size_t cManyObjects = 1000;
template <typename Object>
std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (const Object* object = Object::First(); object && names.size() < cManyObjects;
         object = object->Next()) {
        names.emplace_back(object->Name());
    }
    return names;
}

// Looks for Global before the static objects of any other file are made.
struct EarlyLook {
    EarlyLook() {
        RecordingTarget target;
        mLogger = KEGetLoggerByName("Global", true);
        mStatus = target.AttachToAllLoggers();
        mIsAttached = logger::Global.IsAttachedToTarget(target);
    }
    KELogger* mLogger;
    KESTATUS mStatus;
    bool mIsAttached;
};
__attribute__((init_priority(101))) EarlyLook sEarlyLook;

TEST(LogRegistryTest, GlobalIsRegisteredBeforeAnyStaticObject) {
    EXPECT_EQ(sEarlyLook.mLogger, &logger::Global);
    EXPECT_EQ(sEarlyLook.mStatus, KESTATUS_SUCCESS);
    EXPECT_TRUE(sEarlyLook.mIsAttached);
}

TEST(LogRegistryTest, GlobalIsRegisteredAtInfo) {
    EXPECT_EQ(KEGetLoggerByName("Global", true), &logger::Global);
    EXPECT_EQ(logger::Global.Level(), KEINFO);
}

TEST(LogRegistryTest, NewObjectsComeFirst) {
    const std::vector<std::string> loggers = Names<KELogger>();
    const std::vector<std::string> targets = Names<KELogTarget>();
    {
        const KELogger a("a", KEINFO);
        const KELogger b("b", KEINFO);
        const RecordingTarget c("c");
        const RecordingTarget d("d");
        ASSERT_EQ(Names<KELogger>().size(), loggers.size() + 2);
        EXPECT_EQ(Names<KELogger>()[0], "b");
        EXPECT_EQ(Names<KELogger>()[1], "a");
        ASSERT_EQ(Names<KELogTarget>().size(), targets.size() + 2);
        EXPECT_EQ(Names<KELogTarget>()[0], "d");
        EXPECT_EQ(Names<KELogTarget>()[1], "c");
    }
    EXPECT_EQ(Names<KELogger>(), loggers) << "destroyed objects leave the list";
    EXPECT_EQ(Names<KELogTarget>(), targets);
}

TEST(LogRegistryTest, DestroyingInAnyOrderKeepsTheOthers) {
    auto a = std::make_unique<RecordingTarget>("a");
    auto b = std::make_unique<RecordingTarget>("b");
    auto c = std::make_unique<RecordingTarget>("c");
    b.reset();
    EXPECT_EQ(Names<KELogTarget>()[0], "c");
    EXPECT_EQ(Names<KELogTarget>()[1], "a");
    c.reset();
    EXPECT_EQ(Names<KELogTarget>()[0], "a");
}

// A logger whose memory is all zero, as that of a static object is before its constructor has run.
class UnconstructedLogger {
public:
    UnconstructedLogger() : mMemory(std::calloc(1, sizeof(KELogger))) {}
    ~UnconstructedLogger() {
        Get().~KELogger();
        std::free(mMemory);
    }
    UnconstructedLogger(const UnconstructedLogger&) = delete;
    UnconstructedLogger& operator=(const UnconstructedLogger&) = delete;

    KELogger& Get() { return *static_cast<KELogger*>(mMemory); }
    void Construct(const char* name, KELogLevel level) { new (mMemory) KELogger(name, level); }

private:
    void* mMemory;
};

TEST(LogRegistryTest, ALoggerMayBeRegisteredBeforeItsConstructorRuns) {
    const std::vector<std::string> before = Names<KELogger>();
    UnconstructedLogger early;
    KELogger& logger = early.Get();
    EXPECT_STREQ(logger.Name(), "");
    EXPECT_EQ(Names<KELogger>(), before) << "not before it has a name";
    RecordingTarget target;
    logger.ConstructImpl("early", KEWARN);
    EXPECT_EQ(logger.AttachTarget(target), KESTATUS_SUCCESS);
    logger.SetLevel(KEDUMP);
    const KELogger later("later", KEINFO);

    early.Construct("constructed", KEINFO);
    if (Names<KELogger>().size() == cManyObjects) {
        KELogger::UnchainAllObjects(); // so that this process ends
        FAIL() << "a list without an end";
    }
    std::vector<std::string> after = {"later", "early"};
    after.insert(after.end(), before.begin(), before.end());
    EXPECT_EQ(Names<KELogger>(), after);
    EXPECT_EQ(logger.Level(), KEDUMP);
    EXPECT_TRUE(logger.IsAttachedToTarget(target));
    KEOutputLogMessage(logger, KEINFO, "heard");
    EXPECT_EQ(target.mLines, std::vector<std::string>{"heard"});
}

TEST(LogRegistryTest, ALoggerIsNamedOnce) {
    const std::vector<std::string> before = Names<KELogger>();
    UnconstructedLogger early;
    KELogger& logger = early.Get();
    logger.ConstructImpl("first", KEWARN);
    logger.ConstructImpl("second", KEDUMP);
    EXPECT_STREQ(logger.Name(), "first");
    EXPECT_EQ(logger.Level(), KEWARN);
    EXPECT_EQ(Names<KELogger>().size(), before.size() + 1);
}

// What stands where a logger is made does not count.
TEST(LogRegistryTest, ANewLoggerIsEmptyWhateverItsMemoryHeld) {
    alignas(KELogger) unsigned char memory[sizeof(KELogger)];
    std::memset(memory, 0xA5, sizeof memory);
    const auto* logger = new (memory) KELogger("new", KEWARN);
    EXPECT_STREQ(logger->Name(), "new");
    EXPECT_EQ(logger->Level(), KEWARN);
    EXPECT_EQ(KELogger::First(), logger);
    EXPECT_FALSE(logger->IsHeard(KEFATAL));
    logger->~KELogger();
}

TEST(LogRegistryTest, NullNamesAreEmpty) {
    const KELogger logger(nullptr, KEINFO);
    const RecordingTarget target(nullptr);
    EXPECT_STREQ(logger.Name(), "");
    EXPECT_STREQ(target.Name(), "");
    EXPECT_EQ(KELogger::First(), &logger);
}

TEST(LogRegistryTest, ANewTargetHasNoPrefix) {
    const RecordingTarget target;
    EXPECT_EQ(target.mPrefixLayout.mOptions, 0u);
}

TEST(LogRegistryTest, ThreeTargetsPerLogger) {
    KELogger logger("l", KEINFO);
    RecordingTarget a, b, c, d;
    EXPECT_EQ(logger.AttachTarget(a), KESTATUS_SUCCESS);
    EXPECT_EQ(logger.AttachTarget(b), KESTATUS_SUCCESS);
    EXPECT_EQ(logger.AttachTarget(c), KESTATUS_SUCCESS);
    EXPECT_EQ(logger.AttachTarget(d), 0xE0000021u);
    EXPECT_FALSE(logger.IsAttachedToTarget(d));
    for (RecordingTarget* target : {&a, &b, &c}) {
        EXPECT_TRUE(logger.IsAttachedToTarget(*target));
        EXPECT_EQ(logger.AttachTarget(*target), KESTATUS_SUCCESS) << "attaching twice changes nothing";
    }
    KEOutputLogMessage(logger, KEINFO, "x");
    const std::vector<std::string> once = {"x"};
    EXPECT_EQ(a.mLines, once);
    EXPECT_EQ(b.mLines, once);
    EXPECT_EQ(c.mLines, once);
    EXPECT_TRUE(d.mLines.empty());
}

TEST(LogRegistryTest, DetachingClosesTheGap) {
    KELogger logger("l", KEINFO);
    RecordingTarget a, b, c, d;
    EXPECT_EQ(logger.AttachTarget(a), KESTATUS_SUCCESS);
    EXPECT_EQ(logger.AttachTarget(b), KESTATUS_SUCCESS);
    EXPECT_EQ(logger.AttachTarget(c), KESTATUS_SUCCESS);
    EXPECT_EQ(logger.DetachTarget(a), KESTATUS_SUCCESS);
    EXPECT_EQ(logger.DetachTarget(a), KESTATUS_NOT_FOUND);
    KEOutputLogMessage(logger, KEINFO, "x");
    EXPECT_TRUE(a.mLines.empty());
    EXPECT_EQ(b.mLines.size(), 1u);
    EXPECT_EQ(c.mLines.size(), 1u);
    EXPECT_EQ(logger.AttachTarget(d), KESTATUS_SUCCESS);
    EXPECT_EQ(logger.AttachTarget(a), KESTATUS_NO_RESOURCES);
    EXPECT_EQ(logger.DetachTarget(c), KESTATUS_SUCCESS);
    EXPECT_TRUE(logger.IsAttachedToTarget(b));
    EXPECT_TRUE(logger.IsAttachedToTarget(d));
    logger.DetachAllTargets();
    KEOutputLogMessage(logger, KEINFO, "y");
    EXPECT_EQ(b.mLines.size(), 1u);
    EXPECT_TRUE(d.mLines.empty());
}

TEST(LogRegistryTest, ADestroyedTargetIsDetached) {
    KELogger logger("l", KEINFO);
    RecordingTarget second("second");
    {
        RecordingTarget first("first");
        EXPECT_EQ(logger.AttachTarget(first), KESTATUS_SUCCESS);
        EXPECT_EQ(logger.AttachTarget(second), KESTATUS_SUCCESS);
    }
    KEOutputLogMessage(logger, KEINFO, "x");
    EXPECT_EQ(second.mLines, std::vector<std::string>{"x"});
}

TEST(LogRegistryTest, AttachToAllLoggersTriesAll) {
    KELogger first("first", KEINFO);
    KELogger full("full", KEINFO);
    KELogger last("last", KEINFO);
    RecordingTarget a, b, c, d("d");
    for (RecordingTarget* target : {&a, &b, &c}) {
        EXPECT_EQ(full.AttachTarget(*target), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(KEAttachLogTargetToAllLoggers(d), KESTATUS_NO_RESOURCES);
    EXPECT_TRUE(first.IsAttachedToTarget(d));
    EXPECT_TRUE(last.IsAttachedToTarget(d));
    EXPECT_TRUE(logger::Global.IsAttachedToTarget(d));
    EXPECT_FALSE(full.IsAttachedToTarget(d));
    d.DetachFromAllLoggers();
    EXPECT_FALSE(first.IsAttachedToTarget(d));
    EXPECT_FALSE(last.IsAttachedToTarget(d));
    EXPECT_TRUE(full.IsAttachedToTarget(a));
    full.DetachTarget(a);
    EXPECT_EQ(KEAttachLogTargetToAllLoggers("d"), KESTATUS_SUCCESS);
    EXPECT_TRUE(full.IsAttachedToTarget(d));
}

TEST(LogRegistryTest, AttachAndDetachEverything) {
    KELogger one("one", KEINFO);
    KELogger two("two", KEINFO);
    RecordingTarget a, b;
    EXPECT_EQ(KEAttachAllLogTargets(), KESTATUS_SUCCESS);
    for (const KELogger* logger : {&one, &two, static_cast<KELogger*>(&logger::Global)}) {
        EXPECT_TRUE(logger->IsAttachedToTarget(a));
        EXPECT_TRUE(logger->IsAttachedToTarget(b));
    }
    KEDetachAllLogTargets();
    for (const KELogger* logger : {&one, &two, static_cast<KELogger*>(&logger::Global)}) {
        EXPECT_FALSE(logger->IsAttachedToTarget(a));
        EXPECT_FALSE(logger->IsAttachedToTarget(b));
    }
    RecordingTarget c, d;
    EXPECT_EQ(KEAttachAllLogTargets(), KESTATUS_NO_RESOURCES) << "four targets";
    KEDetachAllLogTargets();
}

TEST(LogRegistryTest, FindingByName) {
    const DebugOutputCapture output;
    KELogger logger("Some.Logger", KEINFO);
    RecordingTarget target("Some.Target");
    EXPECT_EQ(KEGetLoggerByName("Some.Logger", true), &logger);
    EXPECT_EQ(KEGetLoggerByName("sOME.lOGGER", false), &logger);
    EXPECT_EQ(KEGetLogTargetByName("Some.Target", true), &target);
    EXPECT_EQ(KEGetLogTargetByName("SOME.TARGET", false), &target);
    EXPECT_TRUE(output.Messages().empty());
}

TEST(LogRegistryTest, ANullNameIsAnEmptyOne) {
    const ModuleName module("mod");
    const DebugOutputCapture output;
    for (const bool caseSensitive : {false, true}) {
        EXPECT_EQ(KEGetLoggerByName(nullptr, caseSensitive), nullptr);
        EXPECT_EQ(KEGetLogTargetByName(nullptr, caseSensitive), nullptr);
    }
    EXPECT_EQ(KESetLevelForLogger(nullptr, KEINFO), 0xE0000081u);
    ASSERT_EQ(output.Messages().size(), 5u);
    EXPECT_TRUE(output.Messages()[0].ends_with(": Logger '' not found\n"));
    const KELogger logger(nullptr, KEINFO);
    const RecordingTarget target(nullptr);
    EXPECT_EQ(KEGetLoggerByName(nullptr, true), &logger);
    EXPECT_EQ(KEGetLogTargetByName(nullptr, true), &target);
}

TEST(LogRegistryTest, UnknownNamesAreReported) {
    const ModuleName module("mod");
    const DebugOutputCapture output;
    KELogger logger("Some.Logger", KEINFO);
    RecordingTarget target("Some.Target");
    EXPECT_EQ(KEGetLoggerByName("some.logger", true), nullptr);
    EXPECT_EQ(KEGetLoggerByName("Some.Logge", false), nullptr);
    EXPECT_EQ(KEGetLoggerByName("Some.Logger1", false), nullptr);
    EXPECT_EQ(KEGetLogTargetByName("some.target", true), nullptr);
    EXPECT_EQ(KEGetLogTargetByName("[ome.Target", false), nullptr);
    const auto messages = output.Messages();
    ASSERT_EQ(messages.size(), 5u);
    const auto isLogger = [&](std::size_t i, const std::string& name) {
        return IsDiagnostic(messages[i], "mod: WARNING: ", "KEGetLoggerByName(",
                            ": Logger '" + name + "' not found\n");
    };
    const auto isTarget = [&](std::size_t i, const std::string& name) {
        return IsDiagnostic(messages[i], "mod: WARNING: ", "KEGetLogTargetByName(",
                            ": Target '" + name + "' not found\n");
    };
    EXPECT_TRUE(isLogger(0, "some.logger")) << messages[0];
    EXPECT_TRUE(isLogger(1, "Some.Logge")) << messages[1];
    EXPECT_TRUE(isLogger(2, "Some.Logger1")) << messages[2];
    EXPECT_TRUE(isTarget(3, "some.target")) << messages[3];
    EXPECT_TRUE(isTarget(4, "[ome.Target")) << messages[4];
}

TEST(LogRegistryTest, OperationsByName) {
    KELogger logger("Named", KEINFO);
    KELogger other("Other", KEINFO);
    RecordingTarget target("Target");
    EXPECT_EQ(KEAttachLogTargetToLogger("Target", "Named"), KESTATUS_SUCCESS);
    EXPECT_TRUE(logger.IsAttachedToTarget(target));
    EXPECT_FALSE(other.IsAttachedToTarget(target));
    EXPECT_EQ(KESetLevelForLogger("Named", KEDUMP), KESTATUS_SUCCESS);
    EXPECT_EQ(logger.Level(), KEDUMP);
    EXPECT_EQ(other.Level(), KEINFO);
    EXPECT_EQ(KESetLevelForLoggersAttachedToTarget("Target", KEFATAL), KESTATUS_SUCCESS);
    EXPECT_EQ(logger.Level(), KEFATAL);
    EXPECT_EQ(other.Level(), KEINFO);
    EXPECT_EQ(KESetPrefixOptionsForLogTarget("Target", 0x408), KESTATUS_SUCCESS);
    EXPECT_EQ(target.mPrefixLayout.mOptions, 0x408u);
    EXPECT_EQ(KEAttachLogTargetToAllLoggers("Target"), KESTATUS_SUCCESS);
    EXPECT_TRUE(other.IsAttachedToTarget(target));
}

TEST(LogRegistryTest, OperationsByUnknownName) {
    const DebugOutputCapture output;
    KELogger logger("Named", KEINFO);
    RecordingTarget target("Target");
    EXPECT_EQ(KEAttachLogTargetToLogger("Target", "named"), 0xE0000081u);
    EXPECT_EQ(KEAttachLogTargetToLogger("target", "Named"), 0xE0000081u);
    EXPECT_EQ(KEAttachLogTargetToAllLoggers("target"), 0xE0000081u);
    EXPECT_EQ(KESetLevelForLogger("named", KEDUMP), 0xE0000081u);
    EXPECT_EQ(KESetLevelForLoggersAttachedToTarget("target", KEDUMP), 0xE0000081u);
    EXPECT_EQ(KESetPrefixOptionsForLogTarget("target", 1), 0xE0000081u);
    EXPECT_EQ(output.Messages().size(), 6u);
    EXPECT_FALSE(logger.IsAttachedToTarget(target));
    EXPECT_EQ(logger.Level(), KEINFO);
    EXPECT_EQ(target.mPrefixLayout.mOptions, 0u);
}

TEST(LogRegistryTest, OperationsOnObjects) {
    KELogger logger("Named", KEINFO);
    KELogger other("Other", KEWARN);
    RecordingTarget target("Target");
    EXPECT_EQ(KEAttachLogTargetToLogger(target, logger), KESTATUS_SUCCESS);
    EXPECT_TRUE(logger.IsAttachedToTarget(target));
    KESetLevelForLogger(logger, KETRACE);
    EXPECT_EQ(logger.Level(), KETRACE);
    KESetLevelForLoggersAttachedToTarget(target, KEVERBOSE);
    EXPECT_EQ(logger.Level(), KEVERBOSE);
    EXPECT_EQ(other.Level(), KEWARN);
    KESetPrefixOptionsForLogTarget(target, 0x30);
    KESetPrefixOptionsForLogTarget(target, 0x400);
    EXPECT_EQ(target.mPrefixLayout.mOptions, 0x400u) << "replaced, not added";
    const KELogLevel globalLevel = logger::Global.Level();
    KESetLevelForAllLoggers(KEMAXLEVEL);
    EXPECT_EQ(logger.Level(), KEMAXLEVEL);
    EXPECT_EQ(other.Level(), KEMAXLEVEL);
    EXPECT_EQ(logger::Global.Level(), KEMAXLEVEL);
    logger::Global.SetLevel(globalLevel);
}

TEST(LogRegistryTest, AttachToAFullLoggerByObject) {
    KELogger logger("Named", KEINFO);
    RecordingTarget a, b, c, d("d");
    EXPECT_EQ(logger.AttachTarget(a), KESTATUS_SUCCESS);
    EXPECT_EQ(logger.AttachTarget(b), KESTATUS_SUCCESS);
    EXPECT_EQ(logger.AttachTarget(c), KESTATUS_SUCCESS);
    EXPECT_EQ(KEAttachLogTargetToLogger(d, logger), KESTATUS_NO_RESOURCES);
    EXPECT_EQ(KEAttachLogTargetToLogger("d", "Named"), KESTATUS_NO_RESOURCES);
}

} // namespace
