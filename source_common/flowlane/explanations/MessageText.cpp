#include "explanations/MessageText.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "text/KEFormatter.h"

namespace flowlane {

namespace {

bool IsControl(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
}

bool IsInsideUtf8(char character) {
    return (static_cast<unsigned char>(character) & 0xC0) == 0x80;
}

// Cut between two characters of UTF-8.
std::string Shortened(const std::string& text, std::size_t maxBytes) {
    if (text.size() <= maxBytes) {
        return text;
    }
    std::size_t end = maxBytes;
    while (end > 0 && IsInsideUtf8(text[end])) {
        --end;
    }
    return text.substr(0, end) + "...";
}

bool IsSafeInShell(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return std::isalnum(byte) != 0 || std::string("-_./:@%+=,").find(character) != std::string::npos;
}

std::string QuotedForShell(const std::string& text) {
    const bool hasControls = std::any_of(text.begin(), text.end(), IsControl);
    std::string word = hasControls ? "$'" : "'";
    for (const char character : text) {
        if (IsControl(character)) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\%03o", static_cast<unsigned>(character));
            word += escape;
        } else if (hasControls && (character == '\'' || character == '\\')) {
            word += '\\';
            word += character;
        } else if (character == '\'') {
            word += "'\\''";
        } else {
            word += character;
        }
    }
    return word + "'";
}

// A path that no command takes for an option.
std::string NoOption(const std::string& path) {
    return path.substr(0, 1) == "-" ? "./" + path : path;
}

} // namespace

std::string Printable(const std::string& text, std::size_t maxBytes) {
    std::string shown = Shortened(text, maxBytes);
    std::replace_if(shown.begin(), shown.end(), IsControl, '?');
    return shown;
}

std::string Quoted(const std::string& text) {
    return kestrelon::KEStdStringFormat("'{}'", Printable(text));
}

std::string ShellWord(const std::string& text) {
    const bool isSafe = !text.empty() && std::all_of(text.begin(), text.end(), IsSafeInShell);
    return isSafe ? text : QuotedForShell(text);
}

std::string ShortShellWord(const std::string& text) {
    return ShellWord(Shortened(text, cMaxShownBytes));
}

std::string ShellPath(const std::string& path) {
    return ShellWord(NoOption(path));
}

std::string QuotedShellPath(const std::string& path) {
    return QuotedForShell(NoOption(path));
}

std::string JoinedBy(const char* lastSeparator, const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i != 0) {
            text += i + 1 == words.size() ? lastSeparator : ", ";
        }
        text += words[i];
    }
    return text;
}

std::string JoinedList(const std::vector<std::string>& items, std::size_t maxBytes) {
    std::string list;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0 && list.size() + 2 + items[i].size() > maxBytes) {
            return list + " and " + std::to_string(items.size() - i) + " more";
        }
        list += (i > 0 ? ", " : "") + items[i];
    }
    return list;
}

} // namespace flowlane
