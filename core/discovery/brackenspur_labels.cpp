#include "core/discovery/brackenspur_labels.h"

#include <algorithm>
#include <exception>
#include <system_error>

#include "core/support/environment.h"
#include "core/support/files.h"
#include "core/support/json.h"

namespace holdenmere {
namespace {

// An owned-labels file lists a few dozen labels at most.
constexpr std::size_t kMaxFileSize = 1024 * 1024;

bool isLabel(std::string_view text) {
    if (text.empty()) return false;
    return std::none_of(text.begin(), text.end(), [](char c) {
        auto byte = static_cast<unsigned char>(c);
        return byte <= ' ' || byte == 0x7F || c == '"' || c == '\'';
    });
}

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::optional<std::vector<std::string>> fromJson(std::string_view text) {
    try {
        const json::Value document = json::parse(text);
        if (!document.is_array()) return std::nullopt;
        std::vector<std::string> labels;
        for (const auto& element : document) {
            if (!element.is_string() || !isLabel(element.get<std::string>())) return std::nullopt;
            labels.push_back(element.get<std::string>());
        }
        return labels;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace

std::optional<std::vector<std::string>> BrackenspurLabels::parse(std::string_view text) {
    if (trimmed(text).starts_with('[')) return fromJson(text);
    std::vector<std::string> labels;
    while (!text.empty()) {
        const auto end = text.find('\n');
        const std::string_view line = trimmed(text.substr(0, end));
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
        if (line.empty() || line.starts_with('#')) continue;
        if (!isLabel(line)) return std::nullopt;
        labels.emplace_back(line);
    }
    return labels;
}

BrackenspurLabels BrackenspurLabels::read(const std::filesystem::path& file) {
    BrackenspurLabels result;
    std::string text;
    try {
        text = files::read(file, nullptr, kMaxFileSize);
    } catch (const files::ReadError& failure) {
        if (failure.code() == files::ReadFailure::tooLarge) {
            result.failure =
                "Brackenspur's owned-labels file " + file.string() + " is too large to be a list of labels";
        } else {
            result.failure = "Brackenspur's owned-labels file could not be read: " + std::string(failure.what());
        }
        return result;
    }
    if (auto labels = parse(text)) {
        result.labels = std::move(*labels);
    } else {
        result.failure = "Brackenspur's owned-labels file " + file.string() + " is not a list of launchd labels";
    }
    return result;
}

BrackenspurLabels BrackenspurLabels::fromEnvironment() {
    auto path = environmentValue(kVariable);
    if (!path) return {};
    return read(*path);
}

}  // namespace holdenmere
