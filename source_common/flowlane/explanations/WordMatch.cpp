#include "explanations/WordMatch.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <numeric>

namespace flowlane {

namespace {

using Words = std::vector<std::string>;

constexpr std::size_t cMaxComparedBytes = 40; // no word of the command line is as long
constexpr std::size_t cMinPartBytes = 2;
constexpr std::size_t cMaxNameFaults = 2; // a name with more is another name

// How many faults a word of this length may have.
std::size_t MaxFaults(std::size_t length) {
    if (length < 3) {
        return 0;
    }
    return length < 6 ? 1 : length < 12 ? 2 : 3;
}

bool IsStartOrPart(const std::string& word, const std::string& candidate) {
    if (word.size() < cMinPartBytes) {
        return false;
    }
    return candidate.rfind(word, 0) == 0 ||
           ("_" + candidate + "_").find("_" + word + "_") != std::string::npos;
}

Words Select(const Words& candidates, const std::function<bool(const std::string&)>& isMeant) {
    Words selected;
    std::copy_if(candidates.begin(), candidates.end(), std::back_inserter(selected),
                 [&](const std::string& candidate) { return isMeant(LowerCase(candidate)); });
    return selected;
}

// Too far to be meant: more than the limit, or all of the name.
std::size_t NameFaults(const std::string& name, const std::string& wanted) {
    constexpr std::size_t cFar = cMaxNameFaults + 1;
    if (name.size() > wanted.size() + cMaxNameFaults || wanted.size() > name.size() + cMaxNameFaults) {
        return cFar;
    }
    const std::size_t faults = WordDistance(LowerCase(name), LowerCase(wanted));
    return faults < name.size() ? std::min(faults, cFar) : cFar;
}

} // namespace

std::size_t WordDistance(const std::string& left, const std::string& right) {
    std::vector<std::vector<std::size_t>> costs(left.size() + 1, std::vector<std::size_t>(right.size() + 1));
    for (std::size_t i = 0; i <= left.size(); ++i) {
        for (std::size_t j = 0; j <= right.size(); ++j) {
            if (i == 0 || j == 0) {
                costs[i][j] = i + j;
                continue;
            }
            const std::size_t isReplaced = left[i - 1] == right[j - 1] ? 0 : 1;
            costs[i][j] =
                std::min({costs[i - 1][j] + 1, costs[i][j - 1] + 1, costs[i - 1][j - 1] + isReplaced});
            if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
                costs[i][j] = std::min(costs[i][j], costs[i - 2][j - 2] + 1);
            }
        }
    }
    return costs[left.size()][right.size()];
}

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

std::vector<std::string> NearestWords(const std::string& word, const std::vector<std::string>& candidates) {
    const std::string lower = LowerCase(word);
    if (lower.empty() || lower.size() > cMaxComparedBytes) {
        return {};
    }
    Words found = Select(candidates, [&](const std::string& candidate) { return candidate == lower; });
    if (found.empty()) {
        found =
            Select(candidates, [&](const std::string& candidate) { return IsStartOrPart(lower, candidate); });
    }
    for (std::size_t faults = 1; found.empty() && faults <= MaxFaults(lower.size()); ++faults) {
        found = Select(candidates, [&](const std::string& candidate) {
            return candidate.size() > 1 && WordDistance(lower, candidate) == faults;
        });
    }
    return found;
}

std::vector<unsigned> NearestFirst(const std::vector<std::string>& names, const std::string& wanted) {
    std::vector<std::size_t> faults;
    faults.reserve(names.size());
    for (const std::string& name : names) {
        faults.push_back(NameFaults(name, wanted));
    }
    std::vector<unsigned> order(names.size());
    std::iota(order.begin(), order.end(), 0u);
    std::stable_sort(order.begin(), order.end(),
                     [&](unsigned a, unsigned b) { return faults[a] < faults[b]; });
    return order;
}

} // namespace flowlane
