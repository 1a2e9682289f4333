#include "explanations/CaptureFileNumbers.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "capture/CaptureFileName.h"

namespace flowlane {

namespace {

constexpr std::size_t cMaxDigits = 10;
constexpr std::size_t cMaxFiles = 1'000'000; // looked at
constexpr unsigned cMaxRanges = 5;           // in a text

} // namespace

std::optional<std::uint32_t> NumberInFileName(const std::string& name, const std::string& stem,
                                              const std::string& extension) {
    const std::string start = stem + "_";
    if (name.size() <= start.size() + extension.size() || name.compare(0, start.size(), start) != 0) {
        return std::nullopt;
    }
    const std::string digits = name.substr(start.size(), name.size() - start.size() - extension.size());
    if (digits.size() > cMaxDigits || digits.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    const auto number = static_cast<std::uint32_t>(std::strtoull(digits.c_str(), nullptr, 10));
    // The name as the writer and the reader make it, and no other with this number.
    if (CaptureFileName(stem.c_str(), number, extension.c_str()) != name) {
        return std::nullopt;
    }
    return number;
}

std::vector<std::uint32_t> FileNumbersOnDisk(const std::string& folder, const std::string& stem,
                                             const std::string& extension) {
    namespace fs = std::filesystem;
    std::vector<std::uint32_t> numbers;
    std::error_code error;
    fs::directory_iterator entry(folder.empty() ? "." : folder, error);
    for (std::size_t i = 0; !error && entry != fs::directory_iterator() && i < cMaxFiles; ++i) {
        if (const auto number = NumberInFileName(entry->path().filename().string(), stem, extension)) {
            numbers.push_back(*number);
        }
        entry.increment(error);
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

std::string RangesText(const std::vector<std::uint32_t>& numbers) {
    std::string text;
    unsigned ranges = 0;
    for (std::size_t i = 0; i < numbers.size();) {
        if (++ranges > cMaxRanges) {
            return text + ", ...";
        }
        std::size_t last = i;
        while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1) {
            ++last;
        }
        text += text.empty() ? "" : ", ";
        text += std::to_string(numbers[i]);
        if (last != i) {
            text += '-';
            text += std::to_string(numbers[last]);
        }
        i = last + 1;
    }
    return text;
}

} // namespace flowlane
