#include "values/KECmdLineParser.h"

#include <algorithm>
#include <cstdio>
#include <exception>

#include "log/KELogging.h"
#include "text/KEStringUtils.h"
#include "values/KEStringConv.h"

namespace kestrelon {

namespace {

constexpr int cDecimalOrHexadecimal = 0;

bool IsLetter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// A dash and a letter, or two dashes and a letter; anything else is positional.
bool IsOptionCandidate(const std::string& word) noexcept {
    if (word.size() < 2 || word[0] != '-') {
        return false;
    }
    return IsLetter(word[1]) || (word[1] == '-' && word.size() > 2 && IsLetter(word[2]));
}

} // namespace

KESTATUS KECmdLineArgHandler<std::string, unsigned int>::ProcessValue(unsigned int& target,
                                                                      const std::string& text) {
    return KEConvertStringToNumeric(target, text.c_str(), cDecimalOrHexadecimal);
}

template <typename CharT>
void KECmdLineParserT<CharT>::CheckOption(const OptionDesc& desc) const {
    const StringT shortName = desc.mShortName;
    const StringT longName = desc.mLongName;
    if (shortName.empty() && longName.empty()) {
        KEOutputLogMessage(logger::Global, KEFATAL, "At least one name must be given.");
    }
    for (const auto& option : mOptionsList) {
        if (!longName.empty() && longName == option->GetLongName()) {
            KEOutputLogMessage(logger::Global, KEFATAL, "Long option name {} already defined.", longName);
        }
        if (!shortName.empty() && shortName == option->GetShortName()) {
            KEOutputLogMessage(logger::Global, KEFATAL, "Short option name {} already defined.", shortName);
        }
    }
}

template <typename CharT>
KESTATUS KECmdLineParserT<CharT>::ParseCommandLine(int argc, const CharT* const* argv) noexcept {
    try {
        return ParseCommandLineImpl(std::vector<StringT>(argv, argv + std::max(argc, 0)));
    } catch (const std::exception&) {
        return KESTATUS_NO_MEMORY;
    }
}

template <typename CharT>
KESTATUS KECmdLineParserT<CharT>::ParseCommandLineImpl(const std::vector<StringT>& words) {
    mOccurrences.clear();
    if (words.empty()) {
        return KESTATUS_FAILED;
    }
    for (std::size_t index = 1; index < words.size(); ++index) {
        const KESTATUS st =
            IsOptionCandidate(words[index]) ? ParseOption(words, index) : ParseArgument(words[index]);
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
    }
    return CheckRequired();
}

// The first option whose short name stands behind one dash, or whose long name behind two.
template <typename CharT>
auto KECmdLineParserT<CharT>::FindOption(const StringT& word) const -> ArgBase* {
    const bool isLong = word[1] == '-';
    const StringT name = word.substr(isLong ? 2 : 1);
    const auto found = std::find_if(mOptionsList.begin(), mOptionsList.end(), [&](const auto& option) {
        return name == (isLong ? option->GetLongName() : option->GetShortName());
    });
    return found != mOptionsList.end() ? found->get() : nullptr;
}

// Processes the option at index, which is left on the last word that belongs to it.
template <typename CharT>
KESTATUS KECmdLineParserT<CharT>::ParseOption(const std::vector<StringT>& words, std::size_t& index) {
    const StringT& word = words[index];
    ArgBase* const option = FindOption(word);
    mOccurrences.push_back({word, option ? option->GetShortName() : StringT(), StringT()});
    if (!option) {
        if (mIgnoreUnknownOptions) {
            PrintError("Ignoring unknown option {}.\n", word);
            return KESTATUS_SUCCESS;
        }
        PrintError("Unknown option {}.\n", word);
        return KESTATUS_UNKNOWN_OPTION;
    }
    KESTATUS st;
    if (option->HasValue()) {
        if (index + 1 == words.size()) {
            PrintError("Missing value for option {}.\n", word);
            return KESTATUS_MISSING_VALUE;
        }
        ++index;
        mOccurrences.back().mValue = words[index];
        st = option->Process(words[index]);
        if (st != KESTATUS_SUCCESS) {
            PrintError("Invalid value {} for option {}.\n", words[index], word);
        }
    } else {
        st = option->Process(ArgBase::sEmptyString);
    }
    if (st == KESTATUS_SUCCESS) {
        option->mIsPresent = true;
        if (option->mIsArgPresent) {
            *option->mIsArgPresent = true;
        }
    }
    return st;
}

template <typename CharT>
KESTATUS KECmdLineParserT<CharT>::ParseArgument(const StringT& word) {
    for (const auto& argument : mArgumentsList) {
        if (argument->mIsPresent) {
            continue;
        }
        const KESTATUS st = argument->Process(word);
        if (st != KESTATUS_SUCCESS) {
            PrintError("Invalid argument {}.\n", word);
            return st;
        }
        argument->mIsPresent = true;
        if (argument->mIsArgPresent) {
            *argument->mIsArgPresent = true;
        }
        return KESTATUS_SUCCESS;
    }
    if (mRemainingArguments) {
        mRemainingArguments->push_back(word);
    }
    if (mRemainingArgumentsW) {
        mRemainingArgumentsW->push_back(KEConvToWString(word.c_str()));
    }
    if (mRemainingArguments || mRemainingArgumentsW || mIgnoreExtraArguments) {
        return KESTATUS_SUCCESS;
    }
    PrintError("Unexpected argument {}.\n", word);
    return KESTATUS_PARAMETER_REJECTED;
}

template <typename CharT>
KESTATUS KECmdLineParserT<CharT>::CheckRequired() const {
    const auto isMissing = [](const auto& item) { return item->mIsRequired && !item->mIsPresent; };
    if (std::any_of(mArgumentsList.begin(), mArgumentsList.end(), isMissing)) {
        PrintError("Missing argument.\n");
        return KESTATUS_MISSING_ARGUMENT;
    }
    const auto option = std::find_if(mOptionsList.begin(), mOptionsList.end(), isMissing);
    if (option != mOptionsList.end()) {
        PrintError("Missing required option {} ({}).\n", (*option)->GetShortName(), (*option)->GetLongName());
        return KESTATUS_MISSING_OPTION;
    }
    return KESTATUS_SUCCESS;
}

template <typename CharT>
void KECmdLineParserT<CharT>::PrintErrorText(const CharT* text) const {
    StringT line = mProgramName;
    if (!line.empty()) {
        line += ": ";
    }
    line += text;
    mPrintErrorFunction(line.c_str());
}

template <typename CharT>
void KECmdLineParserT<CharT>::DefaultPrintError(const CharT* text) {
    static_cast<void>(std::fputs(text, stderr));
    static_cast<void>(std::fflush(stderr));
}

template class KECmdLineParserT<char>;

} // namespace kestrelon
