// machine/redaction.cpp - placeholders for the texts of a live system.
#include "machine/redaction.h"

#include <algorithm>

namespace verbs {

std::string redaction::text(std::string_view kind, std::string_view text) {
    if (!on_ || text.empty()) return std::string(text);
    const auto [found, is_new] = placeholders_.try_emplace(std::string(text));
    if (is_new) found->second = std::string(kind) + "-" + std::to_string(++counts_[std::string(kind)]);
    return found->second;
}

std::string redaction::known(std::string_view text) const {
    const auto found = placeholders_.find(text);
    return std::string(on_ && found != placeholders_.end() ? std::string_view(found->second) : text);
}

std::string redaction::lines(std::string_view kind, std::string_view text) {
    if (!on_) return std::string(text);
    std::string all;
    while (!text.empty()) {
        const size_t length = std::min(text.find('\n'), text.size());
        all += this->text(kind, text.substr(0, length));
        if (length < text.size()) all += '\n';
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return all;
}

}  // namespace verbs
