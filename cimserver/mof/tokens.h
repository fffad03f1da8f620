// The words of a MOF text.
#pragma once

#include <string>
#include <string_view>

namespace cimserver {

enum class TokenKind { name, number, text, sign, directive, end, bad };

struct Token {
    TokenKind kind = TokenKind::end;
    std::string text;  // a text without its quotes, escapes undone; bad: what is wrong
    int line = 0;
};

class Tokens {
public:
    explicit Tokens(std::string_view text) : rest_(text) {}
    Token next();  // for ever TokenKind::end at the end

private:
    std::string_view rest_;
    int line_ = 1;

    bool skip_blanks();  // and comments; false: one has no end
    void advance(std::size_t count);
    Token quoted();
    Token take(TokenKind kind, std::size_t length);  // at most what is left
};

}  // namespace cimserver
