// tests/shell_words.h - splits a command line into words as a shell does.
#pragma once

#include <optional>
#include <string>
#include <vector>

// Splits as a shell does, without its expansions; nothing where a quote is not closed or a backslash ends the text.
inline std::optional<std::vector<std::string>> shell_words(const std::string &text) {
    std::vector<std::string> words;
    std::optional<std::string> word;
    char quote = '\0';
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quote == '\0' && (c == ' ' || c == '\t')) {
            if (word) words.push_back(*word);
            word.reset();
            continue;
        }
        if (!word) word.emplace();
        if (c == quote) {
            quote = '\0';
        } else if (quote == '\0' && (c == '\'' || c == '"')) {
            quote = c;
        } else if (c == '\\' && quote != '\'') {
            if (++i == text.size()) return std::nullopt;
            if (quote == '"' && text[i] != '"' && text[i] != '\\') *word += '\\';
            *word += text[i];
        } else {
            *word += c;
        }
    }
    if (quote != '\0') return std::nullopt;
    if (word) words.push_back(*word);
    return words;
}
