#include "explanations/CommandLineNotes.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <limits>

#include "explanations/MessageText.h"

namespace flowlane {

namespace {

using Words = std::vector<std::string>;

constexpr std::size_t cMacDigits = 12;
constexpr std::size_t cMaxNotesOnWords = 3;
constexpr std::uint64_t cMaxNumber = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t cBytesPerKB = 1000;
constexpr std::uint64_t cBytesPerMB = 1'000'000;

bool IsGiven(const CommandLineWords& words, const char* shortName) {
    return std::any_of(words.options.begin(), words.options.end(),
                       [&](const GivenOption& option) { return option.mShortName == shortName; });
}

bool IsDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

bool IsHexDigit(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

bool AreAll(const std::string& text, bool (*isOfClass)(char)) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isOfClass);
}

// A number that everybody reads like the parser: decimal, or hexadecimal behind 0x, in 32 bits.
bool IsPlainNumber(const std::string& text) {
    constexpr std::size_t cMaxDigits = 18; // they fit 64 bits
    const bool isHexadecimal = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
    const std::string digits = text.substr(isHexadecimal ? 2 : text.rfind('+', 0) == 0 ? 1 : 0);
    if (!AreAll(digits, isHexadecimal ? IsHexDigit : IsDigit)) {
        return false;
    }
    const std::string significant = digits.substr(std::min(digits.find_first_not_of('0'), digits.size() - 1));
    return significant.size() <= (isHexadecimal ? cMaxDigits - 2 : cMaxDigits) &&
           std::strtoull(significant.c_str(), nullptr, isHexadecimal ? 16 : 10) <= cMaxNumber;
}

std::string WordsOf(const GivenOption& option) {
    return option.mWord + " " + Printable(option.mValue);
}

// A number that is not what its text looks like, or that is too large.
std::string NoteOnNumber(const GivenOption& option, const CommandLineOption& known) {
    const std::uint32_t number = NumberRead(option.mValue);
    Words sentences;
    if (!IsPlainNumber(option.mValue)) {
        sentences.push_back(WordsOf(option) + " is read as " + std::to_string(number) + known.unit + ".");
    }
    if (number > known.max) {
        sentences.push_back(option.mWord + " takes " + known.takes);
    }
    return sentences.size() == 2 ? sentences[0] + " " + sentences[1] : sentences.empty() ? "" : sentences[0];
}

// The size in bytes has 32 bits.
std::string NoteOnFileSize(const GivenOption& option, std::uint64_t unit) {
    const std::uint64_t size = NumberRead(option.mValue) * unit;
    if (size <= cMaxNumber) {
        return "";
    }
    const std::uint64_t limit = size & cMaxNumber;
    return WordsOf(option) + " gives " +
           (limit == 0 ? "no limit" : "a limit of " + std::to_string(limit) + " bytes") +
           ". The largest possible value is " + std::to_string(cMaxNumber / unit) + ".";
}

std::string NoteOnText(const GivenOption& option) {
    if (FindOptionWithDashes(option.mValue)) {
        return Quoted(option.mValue) + " is taken as the value of " + option.mWord + ".";
    }
    const std::string start = option.mValue.substr(0, cMacDigits);
    if (option.mShortName == "m" && option.mValue.size() > cMacDigits && AreAll(start, IsHexDigit)) {
        return WordsOf(option) + " is read as " + start + ".";
    }
    return "";
}

Words NotesOnValue(const GivenOption& option, const CommandLineOption& known) {
    Words notes;
    if (known.kind == OptionKind::Number) {
        notes.push_back(NoteOnNumber(option, known));
    } else if (known.kind == OptionKind::Text) {
        notes.push_back(NoteOnText(option));
    }
    if (option.mShortName == "maxkb") {
        notes.push_back(NoteOnFileSize(option, cBytesPerKB));
    } else if (option.mShortName == "maxmb") {
        notes.push_back(NoteOnFileSize(option, cBytesPerMB));
    }
    return notes;
}

std::string NoteOnUnusedOptions(const CommandLineWords& words) {
    Words unused;
    for (const GivenOption& option : words.options) {
        const CommandLineOption* const known = FindOption(option.mShortName);
        if (known && !IsUsedBy(*known, words.command) &&
            std::find(unused.begin(), unused.end(), option.mWord) == unused.end()) {
            unused.push_back(option.mWord);
        }
    }
    if (unused.empty()) {
        return "";
    }
    return JoinedBy(" and ", unused) + (unused.size() == 1 ? " is" : " are") + " not used by " +
           words.command + ".";
}

bool IsDevice(const std::string& word, const DevicesSeen& devices) {
    return !word.empty() &&
           std::find(devices.names.begin(), devices.names.end(), word) != devices.names.end();
}

// The value that counts when an option is given more than once; null when it is not given.
const std::string* LastValue(const CommandLineWords& words, const char* shortName) {
    const std::string* value = nullptr;
    for (const GivenOption& option : words.options) {
        value = option.mShortName == shortName ? &option.mValue : value;
    }
    return value;
}

bool IsNameGiven(const CommandLineWords& words) {
    const std::string* const name = LastValue(words, "n");
    return name && !name->empty();
}

bool IsDeviceChosen(const CommandLineWords& words) {
    return IsNameGiven(words) || IsGiven(words, "d");
}

// An empty text, as from a variable of the shell that is not set, counts as no option.
Words NotesOnEmptyTexts(const CommandLineWords& words) {
    Words notes;
    const std::string* const name = LastValue(words, "n");
    if (name && name->empty()) {
        const std::string* const index = LastValue(words, "d");
        notes.push_back("The name behind -n is empty. The device with index " +
                        std::to_string(index ? NumberRead(*index) : 0) + " is used.");
    }
    const std::string* const address = LastValue(words, "m");
    if (address && address->empty() && IsUsedBy(*FindOption("m"), words.command)) {
        notes.push_back(
            std::string("The address behind -m is empty. ") +
            (words.command == "ts2av" ? "The broadcast address is used." : "Every sender is accepted."));
    }
    return notes;
}

std::string NoteOnFirstArgument(const CommandLineWords& words, const DevicesSeen& devices) {
    if (words.arguments.empty() || IsDeviceChosen(words) || !IsDevice(words.arguments.front(), devices)) {
        return "";
    }
    const std::string name = words.arguments.front();
    const bool isHost = words.command == "av2rtp";
    return Quoted(name) + " is taken as the " + (isHost ? "host" : "file name") +
           ". To use the device of this name give " + (isHost ? "a host" : "a file name") + " and: -n " +
           ShortShellWord(name);
}

struct SurplusNote {
    std::string text;
    bool isOnDevice; // the choice of the device may be meant
};

SurplusNote NoteOnSurplusWord(const std::string& word, const CommandLineWords& words,
                              const DevicesSeen& devices) {
    const std::string ignored = Quoted(word) + " is ignored";
    const bool isHost = words.command == "av2rtp";
    const bool isDeviceChosen = IsDeviceChosen(words);
    const std::string digits = MacAddressDigits(word);
    if (IsDevice(word, devices)) {
        return {ignored +
                    (isDeviceChosen ? "." : ". A device is chosen with: -n " + ShortShellWord(word) + "."),
                true};
    }
    if (!digits.empty() && IsUsedBy(*FindOption("m"), words.command) && !IsGiven(words, "m")) {
        return {ignored + ". A MAC address is given with: -m " + digits, false};
    }
    if (IsPlainNumber(word) && isHost && !IsGiven(words, "p")) {
        return {ignored + ". The port is given with: -p " + word, false};
    }
    if (IsPlainNumber(word) && !isHost && !isDeviceChosen) {
        return {ignored + ". A device is chosen with: -d " + word + ".", true};
    }
    return {ignored + ": " + words.command + " takes one " + (isHost ? "host." : "file name."),
            !isDeviceChosen};
}

Words WithoutEmpty(Words notes) {
    notes.erase(std::remove(notes.begin(), notes.end(), ""), notes.end());
    return notes;
}

} // namespace

std::vector<std::string> NotesOnOptions(const CommandLineWords& words) {
    Words notes = {NoteOnUnusedOptions(words)};
    for (auto option = words.options.begin(); option != words.options.end(); ++option) {
        const CommandLineOption* const known = FindOption(option->mShortName);
        const bool isReplaced = std::any_of(std::next(option), words.options.end(), [&](const auto& later) {
            return later.mShortName == option->mShortName;
        });
        if (known && !isReplaced && IsUsedBy(*known, words.command)) {
            const Words found = NotesOnValue(*option, *known);
            notes.insert(notes.end(), found.begin(), found.end());
        }
    }
    const Words empty = NotesOnEmptyTexts(words);
    notes.insert(notes.end(), empty.begin(), empty.end());
    if (IsNameGiven(words) && IsGiven(words, "d")) {
        notes.emplace_back("-d is ignored: -n chooses the device.");
    }
    return WithoutEmpty(notes);
}

std::vector<std::string> NotesOnArguments(const CommandLineWords& words, const DevicesSeen& devices) {
    Words notes = {NoteOnFirstArgument(words, devices)};
    const std::string deviceUsed =
        devices.used.empty() ? "" : " The device used is " + Quoted(devices.used) + ".";
    bool isDeviceNamed = deviceUsed.empty();
    for (std::size_t i = 1; i < std::min(words.arguments.size(), cMaxNotesOnWords + 1); ++i) {
        const SurplusNote note = NoteOnSurplusWord(words.arguments[i], words, devices);
        notes.push_back(note.text + (note.isOnDevice && !isDeviceNamed ? deviceUsed : ""));
        isDeviceNamed = isDeviceNamed || note.isOnDevice;
    }
    if (words.arguments.size() > cMaxNotesOnWords + 1) {
        notes.push_back("Further words are ignored: " +
                        std::to_string(words.arguments.size() - cMaxNotesOnWords - 1));
    }
    return WithoutEmpty(notes);
}

bool NeedsDeviceNames(const CommandLineWords& words) {
    if (words.arguments.size() > 1) {
        return true;
    }
    // A path or a name with an ending is no device.
    return !words.arguments.empty() && !IsDeviceChosen(words) &&
           words.arguments.front().find_first_of("/:") == std::string::npos &&
           words.arguments.front().find('.') == std::string::npos;
}

} // namespace flowlane
