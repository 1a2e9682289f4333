// Every format string of the product fits its arguments. A message that nobody reads is not formatted, so
// that only this test sees a fault in a rare one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "text/FormatCalls.h"
#include "text/KEFormatter.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// What the formatter reports about a format string with this many arguments.
std::vector<std::string> Diagnostics(const std::string& format, std::size_t count) {
    const DebugOutputCapture output;
    const int number = 0;
    const std::vector<fmtimpl::ArgumentHolder> arguments(count, fmtimpl::MakeArgument(number));
    KEFormatter().FormatArgs(format.c_str(), arguments.data(), count);
    return output.Messages();
}

std::vector<std::string> DiagnosticsOfSource(const std::string& source) {
    std::vector<std::string> all;
    for (const FormatCall& call : FindFormatCalls(source).calls) {
        const std::vector<std::string> messages = Diagnostics(call.format, call.arguments);
        all.insert(all.end(), messages.begin(), messages.end());
    }
    return all;
}

// --- The search ----------------------------------------------------------------------------------

struct FoundFormat {
    const char* source;
    const char* format;
    std::size_t arguments;
};

TEST(FormatCallsTest, AreFoundWithTheirArguments) {
    const FoundFormat cases[] = {
        {R"(KEOutputLogMessage(logger::Global, KEERROR, "plain");)", "plain", 0},
        {R"(KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "a={}", err);)", "a={}", 1},
        {R"(KEOutputLogMessageImpl({logger, KEINFO, &tag}, "x");)", "x", 0},
        {"KEOutputLogMessage(l, KEINFO,\n \"a {} \" // why\n  \"b {}\",\n f(1, 2), g{3, 4});", "a {} b {}",
         2},
        {R"(st = KEStdStringFormat<char>("{}", static_cast<std::pair<A, B>>(x));)", "{}", 1},
        {R"(KEStdStringFormat("{}{}", a < b, c > d);)", "{}{}", 2},
        {R"(return Failed("f failed, st={}", st);)", "f failed, st={}", 1},
        {R"x(if (x) Print("{}", 1'000, '"', ")");)x", "{}", 3},
        {R"(call([&] { return a, b; }, "{}", [](int x) { return x; });)", "{}", 1},
        {R"x(Log(R"(a "{}")", 1);)x", "a \"{}\"", 1},
        {R"(Log("a \"{}\" \\", 1);)", "a \"{}\" \\", 1},
        {R"(KEGuardFilesystemOperation([&] { f(a, b); }, "remove({}) failed, err={}", path);)",
         "remove({}) failed, err={}", 2},
        {R"(FailureReport failure("ended, st={}.");)", "ended, st={}.", 1},
        {R"(const ErrorLine lines[] = {ErrorLine(&Statistics::errInvalid, "Invalid: {}")};)", "Invalid: {}",
         1},
    };
    for (const FoundFormat& expected : cases) {
        const FormatCalls found = FindFormatCalls(expected.source);
        ASSERT_EQ(found.calls.size(), 1u) << expected.source;
        EXPECT_EQ(found.calls[0].format, expected.format) << expected.source;
        EXPECT_EQ(found.calls[0].arguments, expected.arguments) << expected.source;
        EXPECT_THAT(found.strays, IsEmpty()) << expected.source;
    }
}

TEST(FormatCallsTest, TwoFormatsOfOneCallHaveTheirOwnArguments) {
    const FormatCalls found = FindFormatCalls(R"(ReadDeviceMacAddress(device, mac, "st={}", "{} of {}");)");
    ASSERT_EQ(found.calls.size(), 2u);
    EXPECT_EQ(found.calls[0].arguments, 1u);
    EXPECT_EQ(found.calls[1].arguments, 2u);
}

TEST(FormatCallsTest, BothFormatsOfAChoice) {
    const FormatCalls found = FindFormatCalls(R"(Log(isLong ? "{:08x}" : "{:04x}", x);)");
    ASSERT_EQ(found.calls.size(), 2u);
    EXPECT_EQ(found.calls[0].format, "{:08x}");
    EXPECT_EQ(found.calls[1].format, "{:04x}");
    EXPECT_EQ(found.calls[1].arguments, 1u);
}

TEST(FormatCallsTest, AFunctionThatTakesFormatsIsFollowedInItsFile) {
    const FormatCalls found =
        FindFormatCalls("Log(\"{}\", 1);\nLog(\"no field\", 2);\nOther(\"no format\", 3);");
    ASSERT_EQ(found.calls.size(), 2u);
    EXPECT_EQ(found.calls[1].line, 2u);
    EXPECT_EQ(found.calls[1].function, "Log");
    EXPECT_EQ(found.calls[1].format, "no field");
    EXPECT_EQ(found.calls[1].arguments, 1u);
}

TEST(FormatCallsTest, WhatIsNoFormat) {
    const FormatCalls found = FindFormatCalls(R"(
        #include "a{}.h"
        // Log("{}");
        /* Log("{}"); */
        std::printf("{%s}", text);
        Other("text");
        const char c = '{';)");
    EXPECT_THAT(found.calls, IsEmpty());
    EXPECT_THAT(found.strays, IsEmpty());
}

TEST(FormatCallsTest, AFormatOutsideACallIsAStray) {
    const FormatCalls found =
        FindFormatCalls("int a;\nconst char* const format = \"{}\";\nT t{1, \"{:x}\"};");
    EXPECT_THAT(found.calls, IsEmpty());
    ASSERT_EQ(found.strays.size(), 2u);
    EXPECT_EQ(found.strays[0].format, "{:x}");
    EXPECT_EQ(found.strays[0].line, 3u);
    EXPECT_EQ(found.strays[1].format, "{}");
    EXPECT_EQ(found.strays[1].line, 2u);
}

TEST(FormatCallsTest, FaultyFormatsAreReported) {
    const struct {
        const char* source;
        const char* diagnostic;
    } cases[] = {
        {R"(KEOutputLogMessage(l, KEINFO, "{} {}", 1);)", "No argument for {} replacement field."},
        {R"(KEOutputLogMessage(l, KEINFO, "{1}", 1);)", "Index=1 is an invalid index specification."},
        {R"(KEOutputLogMessage(l, KEINFO, "{}", 1, 2);)", "More arguments than {} replacement fields."},
        {R"(KEOutputLogMessage(l, KEINFO, "text", 1);)", "More arguments than {} replacement fields."},
        {R"(KEOutputLogMessage(l, KEINFO, "{", 1);)", "Missing closing bracket }."},
        {R"(KEOutputLogMessage(l, KEINFO, "{:b}", 1);)", "Ignoring unsupported format specifier 98."},
        {R"(KEOutputLogMessage(l, KEINFO, "{x}", 1);)", "Ignoring unexpected character 120"},
        {R"(KEOutputLogMessage(l, KEINFO, "a}");)", "Discarding unexpected closing bracket }."},
        {R"(KEOutputLogMessage(l, KEINFO, "{:", 1);)", "Incomplete format specification."},
        {R"(Failed("st={}, {}", st);)", "No argument for {} replacement field."},
    };
    for (const auto& faulty : cases) {
        EXPECT_THAT(DiagnosticsOfSource(faulty.source), testing::Contains(HasSubstr(faulty.diagnostic)))
            << faulty.source;
    }
    EXPECT_THAT(DiagnosticsOfSource(R"(KEOutputLogMessage(l, KEINFO, "{:#06x} {{}} {0}", 1);)"), IsEmpty());
}

// --- The sources ---------------------------------------------------------------------------------

// The formats whose fields do not match their arguments, and are meant to be so.
struct KnownMismatch {
    const char* format;
    std::size_t arguments;
    const char* diagnostic;
};
constexpr KnownMismatch cKnownMismatches[] = {
    {"VLAN ID {:#X} in specified VLAN TCI value {:#X} exceeds max. 0xFFE.", 1,
     "No argument for {} replacement field."},
    {"invalid optionLength {}, exp. ", 2, "More arguments than {} replacement fields."},
};

struct SourceFormat {
    std::string place; // file:line
    FormatCall call;
};

struct SourceFormats {
    std::vector<SourceFormat> formats;
    std::vector<std::string> strays;
    std::size_t files = 0;
};

SourceFormats ReadSources() {
    SourceFormats result;
    const std::filesystem::path root(FLOWLANE_SOURCE_DIR);
    for (const char* folder : {"source_common", "source_linux"}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root / folder)) {
            const std::filesystem::path& path = entry.path();
            if (path.extension() != ".cpp" && path.extension() != ".h") {
                continue;
            }
            std::ifstream file(path);
            const std::string source(std::istreambuf_iterator<char>(file), {});
            EXPECT_FALSE(source.empty()) << path;
            const auto place = [&](unsigned line) {
                return path.lexically_relative(root).string() + ":" + std::to_string(line);
            };
            ++result.files;
            const FormatCalls found = FindFormatCalls(source);
            for (const FormatCall& call : found.calls) {
                result.formats.push_back({place(call.line), call});
            }
            for (const StrayFormat& stray : found.strays) {
                result.strays.push_back(place(stray.line) + ": " + stray.format);
            }
        }
    }
    return result;
}

bool IsKnownMismatch(const FormatCall& call) {
    return std::any_of(std::begin(cKnownMismatches), std::end(cKnownMismatches),
                       [&](const KnownMismatch& known) { return call.format == known.format; });
}

TEST(FormatStringsTest, EveryCallOfTheProductIsWellFormed) {
    const SourceFormats sources = ReadSources();
    EXPECT_GT(sources.files, 100u);
    EXPECT_GT(sources.formats.size(), 200u);
    for (const SourceFormat& source : sources.formats) {
        if (!IsKnownMismatch(source.call)) {
            EXPECT_THAT(Diagnostics(source.call.format, source.call.arguments), IsEmpty())
                << source.place << ": " << source.call.function << " with " << source.call.arguments
                << " argument(s) behind the format \"" << source.call.format << "\".\n"
                << "A function that adds arguments of its own has to be named in FormatCalls.cpp.";
        }
    }
}

TEST(FormatStringsTest, NoneStandsOutsideACall) {
    EXPECT_THAT(ReadSources().strays, IsEmpty()) << "write each format string into the call that uses it";
}

TEST(FormatStringsTest, TheKnownMismatchesAreStillThere) {
    const SourceFormats sources = ReadSources();
    for (const KnownMismatch& known : cKnownMismatches) {
        std::vector<SourceFormat> found;
        std::copy_if(sources.formats.begin(), sources.formats.end(), std::back_inserter(found),
                     [&](const SourceFormat& source) { return source.call.format == known.format; });
        ASSERT_EQ(found.size(), 1u) << known.format;
        EXPECT_EQ(found[0].call.arguments, known.arguments) << known.format;
        EXPECT_THAT(Diagnostics(known.format, known.arguments),
                    ElementsAre(HasSubstr(known.diagnostic), std::string(known.format) + "\n"));
    }
}

} // namespace
