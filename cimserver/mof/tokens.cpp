#include "cimserver/mof/tokens.h"

#include <algorithm>

namespace cimserver {

namespace {

constexpr std::string_view LETTERS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_";
constexpr std::string_view NAME = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_0123456789";
constexpr std::string_view NUMBER = "0123456789+-";
constexpr std::string_view NUMBER_REST = "0123456789+-.xXabcdefABCDEF";
constexpr std::string_view SIGNS = "[](){}:;,=$";

bool is_in(char c, std::string_view set) {
    return set.find(c) != std::string_view::npos;
}

}  // namespace

void Tokens::advance(std::size_t count) {
    line_ += static_cast<int>(std::count(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(count), '\n'));
    rest_.remove_prefix(count);
}

bool Tokens::skip_blanks() {
    for (;;) {
        advance(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size()));
        if (rest_.starts_with("//")) {
            advance(std::min(rest_.find('\n'), rest_.size()));
        } else if (rest_.starts_with("/*")) {
            const auto end = rest_.find("*/", 2);
            if (end == std::string_view::npos) {
                return false;
            }
            advance(end + 2);
        } else {
            return true;
        }
    }
}

Token Tokens::quoted() {
    Token token{TokenKind::text, {}, line_};
    for (std::size_t i = 1; i < rest_.size() && rest_[i] != '\n'; ++i) {
        if (rest_[i] == '"') {
            advance(i + 1);
            return token;
        }
        if (rest_[i] == '\\' && i + 1 < rest_.size()) {
            ++i;
            token.text += rest_[i] == 'n' ? '\n' : rest_[i] == 't' ? '\t' : rest_[i];
        } else {
            token.text += rest_[i];
        }
    }
    return {TokenKind::bad, "a text without its closing quote", line_};
}

Token Tokens::take(TokenKind kind, std::size_t length) {
    Token token{kind, std::string(rest_.substr(0, length)), line_};
    advance(token.text.size());
    return token;
}

Token Tokens::next() {
    if (!skip_blanks()) {
        return {TokenKind::bad, "a comment without an end", line_};
    }
    if (rest_.empty()) {
        return {TokenKind::end, "the end of the file", line_};
    }
    const char first = rest_[0];
    if (first == '"') {
        return quoted();
    }
    if (is_in(first, LETTERS)) {
        return take(TokenKind::name, rest_.find_first_not_of(NAME));
    }
    if (is_in(first, NUMBER)) {
        return take(TokenKind::number, rest_.find_first_not_of(NUMBER_REST));
    }
    if (first == '#') {
        return take(TokenKind::directive, rest_.find('\n'));
    }
    if (is_in(first, SIGNS)) {
        return take(TokenKind::sign, 1);
    }
    return {TokenKind::bad, std::string("'") + first + "'", line_};
}

}  // namespace cimserver
