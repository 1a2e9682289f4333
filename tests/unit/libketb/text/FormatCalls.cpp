#include "text/FormatCalls.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

namespace testsupport {

namespace {

// --- Tokens --------------------------------------------------------------------------------------

enum class Kind { Word, Text, Symbol }; // a name or number; a string; any other character

struct Token {
    Kind kind;
    std::string text; // of a string: what stands between the quotes, escapes resolved
    unsigned line;
};

bool IsWordCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

class Tokenizer {
public:
    explicit Tokenizer(const std::string& source) : mSource(source) {}

    std::vector<Token> Run() {
        while (mPosition < mSource.size()) {
            ReadToken();
        }
        return std::move(mTokens);
    }

private:
    bool IsNext(std::string_view text) const { return mSource.compare(mPosition, text.size(), text) == 0; }

    char Take() {
        const char c = mSource[mPosition++];
        mLine += c == '\n' ? 1 : 0;
        return c;
    }

    void SkipUntil(std::string_view end) {
        while (mPosition < mSource.size() && !IsNext(end)) {
            Take();
        }
    }

    void ReadToken() {
        const char c = mSource[mPosition];
        if (IsNext("//") || IsNext("#include")) {
            SkipUntil("\n");
        } else if (IsNext("/*")) {
            SkipUntil("*/");
        } else if (IsNext("R\"")) {
            ReadRawText();
        } else if (c == '"') {
            ReadText();
        } else if (c == '\'') {
            ReadCharacter();
        } else if (IsWordCharacter(c)) {
            ReadWord();
        } else if (std::isspace(static_cast<unsigned char>(Take())) == 0) {
            mTokens.push_back({Kind::Symbol, std::string(1, c), mLine});
        }
    }

    void ReadWord() {
        std::string word;
        // An apostrophe inside a number separates its digits.
        while (mPosition < mSource.size() &&
               (IsWordCharacter(mSource[mPosition]) ||
                (mSource[mPosition] == '\'' && std::isdigit(static_cast<unsigned char>(word[0])) != 0))) {
            word += Take();
        }
        // An encoding prefix belongs to its string.
        const bool isPrefix = word == "L" || word == "u" || word == "U" || word == "u8";
        if (!isPrefix || mPosition == mSource.size() || mSource[mPosition] != '"') {
            mTokens.push_back({Kind::Word, word, mLine});
        }
    }

    void ReadCharacter() {
        const unsigned line = mLine;
        Take();
        while (mPosition < mSource.size() && mSource[mPosition] != '\'') {
            if (Take() == '\\') {
                Take();
            }
        }
        Take();
        mTokens.push_back({Kind::Word, "''", line});
    }

    void ReadText() {
        const unsigned line = mLine;
        std::string text;
        Take();
        while (mPosition < mSource.size() && mSource[mPosition] != '"') {
            const char c = Take();
            if (c == '\\') {
                const char escaped = Take();
                text += escaped == '"' || escaped == '\\' ? escaped : '?'; // none of the others is a bracket
            } else {
                text += c;
            }
        }
        Take();
        PutText(text, line);
    }

    void ReadRawText() {
        const unsigned line = mLine;
        mPosition += 2;
        std::string end = ")";
        while (mSource[mPosition] != '(') {
            end += Take();
        }
        end += '"';
        Take();
        const std::size_t begin = mPosition;
        SkipUntil(end);
        PutText(mSource.substr(begin, mPosition - begin), line);
        mPosition += end.size();
    }

    // Neighbouring strings are one.
    void PutText(const std::string& text, unsigned line) {
        if (!mTokens.empty() && mTokens.back().kind == Kind::Text) {
            mTokens.back().text += text;
        } else {
            mTokens.push_back({Kind::Text, text, line});
        }
    }

    const std::string& mSource;
    std::size_t mPosition = 0;
    unsigned mLine = 1;
    std::vector<Token> mTokens;
};

// --- Calls ---------------------------------------------------------------------------------------

struct Text {
    std::string text;
    unsigned line;
};

struct Argument {
    std::vector<Text> texts; // more than one where a condition chooses
    bool isEmpty = true;

    bool HasBracket() const {
        return std::any_of(texts.begin(), texts.end(), [](const Text& text) {
            return text.text.find_first_of("{}") != std::string::npos;
        });
    }
};

// What stands between two brackets. Without a function it is no call.
struct Bracket {
    std::string function;
    std::vector<Argument> arguments{1};
};

bool IsOneOf(std::initializer_list<std::string_view> names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool IsKeyword(const std::string& word) {
    return IsOneOf({"if", "while", "for", "switch", "return", "case", "else", "sizeof", "catch", "throw"},
                   word);
}

class CallFinder {
public:
    explicit CallFinder(std::vector<Token> tokens) : mTokens(std::move(tokens)) {}

    // The calls with a string among their arguments, and the strings with brackets elsewhere.
    void Run() {
        std::vector<Bracket> open(1);
        for (std::size_t i = 0; i < mTokens.size(); ++i) {
            const Token& token = mTokens[i];
            Argument& argument = open.back().arguments.back();
            if (token.kind == Kind::Text) {
                argument.isEmpty = false;
                argument.texts.push_back({token.text, token.line});
            } else if (IsSymbol(i, "(") || IsSymbol(i, "[") || IsSymbol(i, "{")) {
                argument.isEmpty = false;
                open.emplace_back();
                open.back().function = IsSymbol(i, "(") ? FunctionBefore(i) : "";
            } else if ((IsSymbol(i, ")") || IsSymbol(i, "]") || IsSymbol(i, "}")) && open.size() > 1) {
                Close(open.back());
                open.pop_back();
            } else if (IsSymbol(i, ",") || IsSymbol(i, ";")) {
                open.back().arguments.emplace_back();
            } else {
                argument.isEmpty = false;
                i = EndOfTemplateArguments(i).value_or(i);
            }
        }
        Close(open.front());
    }

    std::vector<Bracket> mCalls;
    std::vector<StrayFormat> mStrays;

private:
    bool IsSymbol(std::size_t i, std::string_view symbol) const {
        return i < mTokens.size() && mTokens[i].kind == Kind::Symbol && mTokens[i].text == symbol;
    }
    bool IsName(std::size_t i) const {
        return i < mTokens.size() && mTokens[i].kind == Kind::Word && !IsKeyword(mTokens[i].text);
    }

    // The ">" of the list that opens at i; nothing when there is no list of template arguments before a call.
    std::optional<std::size_t> EndOfTemplateArguments(std::size_t i) const {
        if (i == 0 || !IsSymbol(i, "<") || !IsName(i - 1)) {
            return std::nullopt;
        }
        for (unsigned depth = 0; i < mTokens.size(); ++i) {
            if (IsSymbol(i, "<")) {
                ++depth;
            } else if (IsSymbol(i, ">")) {
                if (--depth == 0) {
                    return IsSymbol(i + 1, "(") || IsSymbol(i + 1, "{") ? std::optional(i) : std::nullopt;
                }
            } else if (!IsName(i) && !IsSymbol(i, ",") && !IsSymbol(i, ":") && !IsSymbol(i, "*") &&
                       !IsSymbol(i, "&")) {
                return std::nullopt;
            }
        }
        return std::nullopt;
    }

    // The function whose arguments begin behind the bracket at i: the name in front of it, or the name of the
    // type where an object is declared.
    std::string FunctionBefore(std::size_t i) const {
        if (i != 0 && IsSymbol(i - 1, ">")) {
            unsigned depth = 0;
            for (--i; i != 0; --i) {
                depth += IsSymbol(i, ">") ? 1 : 0;
                depth -= IsSymbol(i, "<") ? 1 : 0;
                if (depth == 0) {
                    break;
                }
            }
        }
        if (i == 0 || !IsName(i - 1)) {
            return "";
        }
        return i >= 2 && IsName(i - 2) ? mTokens[i - 2].text : mTokens[i - 1].text;
    }

    void Close(const Bracket& bracket) {
        if (!bracket.function.empty()) {
            mCalls.push_back(bracket);
            return;
        }
        for (const Argument& argument : bracket.arguments) {
            for (const Text& text : argument.texts) {
                if (argument.HasBracket()) {
                    mStrays.push_back({text.line, text.text});
                }
            }
        }
    }

    std::vector<Token> mTokens;
};

// Their format strings are printf's.
bool IsPrintfLike(const std::string& function) {
    return IsOneOf({"printf", "fprintf", "snprintf", "ReportFault", "KEOutputDebugString", "KEStringPrintf",
                    "KEStringPrintfA", "KEStringPrintfW", "KEStdStringPrintf"},
                   function);
}

bool IsFormatting(const std::string& function) {
    return IsOneOf({"KEOutputLogMessage", "KEOutputLogMessageImpl", "KEStdStringFormat"}, function);
}

// How many fields a function fills by itself in the format that is the number-th of a call, from 0.
std::size_t ArgumentsAddedBy(const std::string& function, std::size_t number) {
    if (function == "ReadDeviceMacAddress") {
        return number + 1; // the status; the sizes found and expected
    }
    return IsOneOf({"AddStringOption", "ErrorLine", "FailureReport", "KEGuardFilesystemOperation",
                    "LostFramesReport", "TransferData"},
                   function)
               ? 1
               : 0;
}

void AddFormats(const Bracket& call, bool isFormatting, std::vector<FormatCall>& calls) {
    bool isFirst = true;
    std::size_t number = 0;
    for (std::size_t i = 0; i < call.arguments.size(); ++i) {
        const Argument& argument = call.arguments[i];
        if (argument.HasBracket() || (isFormatting && isFirst && !argument.texts.empty())) {
            const auto behind = static_cast<std::size_t>(std::count_if(
                call.arguments.begin() + static_cast<std::ptrdiff_t>(i) + 1, call.arguments.end(),
                [](const Argument& other) { return !other.isEmpty && !other.HasBracket(); }));
            for (const Text& text : argument.texts) {
                calls.push_back(
                    {text.line, call.function, text.text, behind + ArgumentsAddedBy(call.function, number)});
            }
            ++number;
        }
        isFirst = isFirst && argument.texts.empty();
    }
}

} // namespace

FormatCalls FindFormatCalls(const std::string& source) {
    CallFinder finder(Tokenizer(source).Run());
    finder.Run();
    std::set<std::string> formatting; // of this file: what hands formats on
    for (const Bracket& call : finder.mCalls) {
        if (std::any_of(call.arguments.begin(), call.arguments.end(),
                        [](const Argument& argument) { return argument.HasBracket(); })) {
            formatting.insert(call.function);
        }
    }
    FormatCalls result;
    result.strays = std::move(finder.mStrays);
    for (const Bracket& call : finder.mCalls) {
        if (!IsPrintfLike(call.function)) {
            AddFormats(call, IsFormatting(call.function) || formatting.count(call.function) != 0,
                       result.calls);
        }
    }
    return result;
}

} // namespace testsupport
