#include "explanations/DeviceText.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <numeric>
#include <utility>

namespace flowlane::devicetext {

namespace {

// A name with more wrong letters than this is another name.
constexpr std::size_t cNearDistance = 2;

bool IsControl(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
}

bool IsInsideUtf8(char character) {
    return (static_cast<unsigned char>(character) & 0xC0) == 0x80;
}

bool IsSafeInShell(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return std::isalnum(byte) != 0 || std::string("-_./:@%+=,").find(character) != std::string::npos;
}

// Letters to insert, to remove or to replace.
std::size_t Distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
    return text;
}

// Too far to be meant: more than the limit, or all of the name.
std::size_t NearDistance(const std::string& name, const std::string& wanted) {
    constexpr std::size_t cFar = cNearDistance + 1;
    if (name.size() > wanted.size() + cNearDistance || wanted.size() > name.size() + cNearDistance) {
        return cFar;
    }
    const std::size_t distance = Distance(LowerCase(name), LowerCase(wanted));
    return distance < name.size() ? std::min(distance, cFar) : cFar;
}

} // namespace

std::string Printable(const std::string& text, std::size_t maxBytes) {
    std::string shown = text;
    if (shown.size() > maxBytes) {
        std::size_t end = maxBytes;
        while (end > 0 && IsInsideUtf8(shown[end])) {
            --end;
        }
        shown.resize(end);
        shown += "...";
    }
    std::replace_if(shown.begin(), shown.end(), IsControl, '?');
    return shown;
}

std::string ShellWord(const std::string& text) {
    if (!text.empty() && std::all_of(text.begin(), text.end(), IsSafeInShell)) {
        return text;
    }
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

std::vector<unsigned> NearestFirst(const std::vector<std::string>& names, const std::string& wanted) {
    std::vector<std::size_t> distances;
    distances.reserve(names.size());
    for (const std::string& name : names) {
        distances.push_back(NearDistance(name, wanted));
    }
    std::vector<unsigned> order(names.size());
    std::iota(order.begin(), order.end(), 0u);
    std::stable_sort(order.begin(), order.end(),
                     [&](unsigned a, unsigned b) { return distances[a] < distances[b]; });
    return order;
}

} // namespace flowlane::devicetext
