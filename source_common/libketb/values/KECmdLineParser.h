// The toolbox's command-line parser: options and positional arguments, each bound to a variable of the
// caller, filled from the words of a command line.
//
// One thread constructs a parser, defines its options and arguments, runs it once and destroys it. Targets
// and presence flags belong to the caller and outlive the parser. The first problem is printed as one line
// and ends the parse; targets written before keep their new values.
#ifndef KESTRELON_KECMDLINEPARSER_H
#define KESTRELON_KECMDLINEPARSER_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "kestatus.h"
#include "text/KEFormatter.h"

namespace kestrelon {

using KEStringVectorCHAR = std::vector<std::string>;
using KEStringVectorWCHAR = std::vector<std::wstring>;

// Converts the word behind an option, or a positional word, to a value of type T.
template <typename StringT, typename T>
struct KECmdLineArgHandler;

template <typename StringT>
struct KECmdLineArgHandler<StringT, StringT> {
    [[nodiscard]] static KESTATUS ProcessValue(StringT& target, const StringT& text) {
        target = text;
        return KESTATUS_SUCCESS;
    }
};

// Decimal, or hexadecimal behind "0x". Leading zeros do not make a number octal. Characters behind the number
// are ignored, and the result is cut to 32 bits.
//   KESTATUS_INVALID_FORMAT  no number at all; target is unchanged
template <>
struct KECmdLineArgHandler<std::string, unsigned int> {
    [[nodiscard]] static KESTATUS ProcessValue(unsigned int& target, const std::string& text);
};

// Instantiated for char.
template <typename CharT>
class KECmdLineParserT {
public:
    using StringT = std::basic_string<CharT>;
    using PrintErrorFunction = void (*)(const CharT* text);

    struct OptionDesc {
        const CharT* mShortName; // used behind one dash; may be empty
        const CharT* mLongName;  // used behind two dashes; may be empty
        bool mIsRequired;
    };
    struct ArgumentDesc {
        bool mIsRequired;
    };
    // An option as it stands on the command line.
    struct Occurrence {
        StringT mWord;      // with its dashes
        StringT mShortName; // empty for an unknown option
        StringT mValue;     // the next word; empty for a switch
    };

    // An option or a positional argument.
    class ArgBase {
    public:
        ArgBase(bool isRequired, bool* isArgPresent) : mIsRequired(isRequired), mIsArgPresent(isArgPresent) {}
        virtual ~ArgBase() = default;
        ArgBase(const ArgBase&) = delete;
        ArgBase& operator=(const ArgBase&) = delete;

        virtual bool HasValue() const { return false; }
        virtual const StringT& GetShortName() const = 0;
        virtual const StringT& GetLongName() const = 0;
        [[nodiscard]] virtual KESTATUS Process(const StringT& text) = 0;

        // The name of an item without a name.
        static inline const StringT sEmptyString;

        bool mIsRequired;
        bool mIsPresent = false; // on the command line
        bool* mIsArgPresent;     // the caller's copy of mIsPresent, may be null
    };

    template <typename T, KESTATUS (*Handler)(T&, const StringT&)>
    class ArgT : public ArgBase {
    public:
        ArgT(T& target, bool isRequired, bool* isArgPresent)
            : ArgBase(isRequired, isArgPresent), mTarget(target) {}

        [[nodiscard]] KESTATUS Process(const StringT& text) override { return Handler(mTarget, text); }

    private:
        T& mTarget;
    };

    // A positional argument.
    template <typename T, KESTATUS (*Handler)(T&, const StringT&)>
    class Argument : public ArgT<T, Handler> {
    public:
        Argument(T& target, const ArgumentDesc& desc, bool* isArgPresent)
            : ArgT<T, Handler>(target, desc.mIsRequired, isArgPresent) {}

        const StringT& GetShortName() const override { return ArgBase::sEmptyString; }
        const StringT& GetLongName() const override { return ArgBase::sEmptyString; }
    };

    template <typename T, KESTATUS (*Handler)(T&, const StringT&)>
    class Option : public ArgT<T, Handler> {
    public:
        Option(T& target, const OptionDesc& desc, bool hasValue, bool* isArgPresent)
            : ArgT<T, Handler>(target, desc.mIsRequired, isArgPresent),
              mShortName(desc.mShortName),
              mLongName(desc.mLongName),
              mHasValue(hasValue) {
            if (isArgPresent) {
                *isArgPresent = false;
            }
        }

        bool HasValue() const override { return mHasValue; }
        const StringT& GetShortName() const override { return mShortName; }
        const StringT& GetLongName() const override { return mLongName; }

    private:
        StringT mShortName;
        StringT mLongName;
        bool mHasValue;
    };

    // Every error line begins with programName. Positional words that no argument takes go to the lists that
    // are not null.
    KECmdLineParserT(const CharT* programName, KEStringVectorCHAR* remainingArguments,
                     KEStringVectorWCHAR* remainingArgumentsW,
                     PrintErrorFunction printError = &DefaultPrintError)
        : mRemainingArguments(remainingArguments),
          mRemainingArgumentsW(remainingArgumentsW),
          mProgramName(programName),
          mPrintErrorFunction(printError) {}

    // isPresent may be null; false is written to it now, and true when the option occurs.
    void DefineOption(bool& target, const OptionDesc& desc, bool* isPresent) {
        DefineOptionImplT<Option<bool, ProcessSwitchOption>>(target, desc, false, isPresent);
    }
    template <typename T>
    void DefineOptionWithValue(T& target, const OptionDesc& desc, bool* isPresent) {
        DefineOptionImplT<Option<T, KECmdLineArgHandler<StringT, T>::ProcessValue>>(target, desc, true,
                                                                                    isPresent);
    }
    // Defines the next positional argument. isPresent may be null; true is written to it when the argument
    // occurs.
    template <typename T>
    void DefineArgument(T& target, const ArgumentDesc& desc, bool* isPresent) {
        DefineArgumentImplT<Argument<T, KECmdLineArgHandler<StringT, T>::ProcessValue>>(target, desc,
                                                                                        isPresent);
    }

    // Unknown options are reported, and the parse goes on. Positional words that nothing takes are dropped.
    void SetIgnoreUnknownOptions(bool ignore) { mIgnoreUnknownOptions = ignore; }
    void SetIgnoreExtraArguments(bool ignore) { mIgnoreExtraArguments = ignore; }

    // argv[0] is the program's own path and is skipped.
    //   KESTATUS_FAILED              there are no words at all
    //   KESTATUS_MISSING_VALUE, KESTATUS_UNKNOWN_OPTION, KESTATUS_PARAMETER_REJECTED (an extra word),
    //   KESTATUS_MISSING_ARGUMENT, KESTATUS_MISSING_OPTION, or the status of the conversion of a value
    //   KESTATUS_NO_MEMORY           memory is short
    [[nodiscard]] KESTATUS ParseCommandLine(int argc, const CharT* const* argv) noexcept;

    // The options of the last parse in their order. One that was rejected is the last.
    const std::vector<Occurrence>& Occurrences() const { return mOccurrences; }

    // How many options are defined.
    std::size_t OptionCount() const { return mOptionsList.size(); }

    // Formats a line and prints it behind the program's name.
    template <typename... Args>
    void PrintError(const CharT* format, const Args&... args) const {
        PrintErrorText(KEStdStringFormat(format, args...).c_str());
    }
    void PrintErrorText(const CharT* text) const;

    // Writes the text as it is to standard error, flushed.
    static void DefaultPrintError(const CharT* text);

    [[nodiscard]] static KESTATUS ProcessSwitchOption(bool& target, const StringT&) {
        target = true;
        return KESTATUS_SUCCESS;
    }

private:
    using ArgList = std::vector<std::unique_ptr<ArgBase>>;

    template <typename OptionClass, typename T>
    void DefineOptionImplT(T& target, const OptionDesc& desc, bool hasValue, bool* isPresent) {
        CheckOption(desc);
        mOptionsList.push_back(std::make_unique<OptionClass>(target, desc, hasValue, isPresent));
    }
    template <typename ArgumentClass, typename T>
    void DefineArgumentImplT(T& target, const ArgumentDesc& desc, bool* isPresent) {
        mArgumentsList.push_back(std::make_unique<ArgumentClass>(target, desc, isPresent));
    }

    void CheckOption(const OptionDesc& desc) const;
    [[nodiscard]] KESTATUS ParseCommandLineImpl(const std::vector<StringT>& words);
    ArgBase* FindOption(const StringT& word) const;
    [[nodiscard]] KESTATUS ParseOption(const std::vector<StringT>& words, std::size_t& index);
    [[nodiscard]] KESTATUS ParseArgument(const StringT& word);
    [[nodiscard]] KESTATUS CheckRequired() const;

    ArgList mArgumentsList; // in the order of definition
    ArgList mOptionsList;
    std::vector<Occurrence> mOccurrences;
    KEStringVectorCHAR* mRemainingArguments;
    KEStringVectorWCHAR* mRemainingArgumentsW;
    StringT mProgramName;
    bool mIgnoreUnknownOptions = false;
    bool mIgnoreExtraArguments = false;
    PrintErrorFunction mPrintErrorFunction;
};

extern template class KECmdLineParserT<char>;

} // namespace kestrelon

#endif
