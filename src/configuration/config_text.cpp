#include "configuration/config_text.h"

#include <algorithm>
#include <charconv>
#include <concepts>
#include <iterator>
#include <string_view>

#include "common/text.h"
#include "configuration/config_keys.h"

namespace {

constexpr std::size_t longest_number = sizeof "-2147483648" - 1;

constexpr std::size_t longest_value(const ConfigKey& key) {
    return key.number != nullptr ? longest_number : LOG_FILENAME_SIZE;
}

constexpr std::size_t length_of(const char* text) {
    return text != nullptr ? std::string_view(text).size() + 1 : 0;
}

constexpr std::size_t longest_file(const char* ConfigComment::*form) {
    std::size_t length = 0;
    for (const ConfigKey& key : config_keys) {
        for (const ConfigComment& comment : key.comments) {
            length += length_of(comment.*form);
        }
        length += key.name.size() + longest_value(key) + std::string_view("=\n\n").size();
    }
    return length;
}

constexpr std::size_t longest_line() {
    std::size_t length = std::string_view(".").size();
    for (const ConfigKey& key : config_keys) {
        length += length_of(key.logged.words) + longest_value(key);
    }
    return length;
}

constexpr int keys_at(int place) {
    int keys = 0;
    for (const ConfigKey& key : config_keys) {
        keys += key.logged.place == place ? 1 : 0;
    }
    return keys;
}

constexpr bool has_one_key_at_each_place() {
    for (std::size_t place = 0; place < std::size(config_keys); ++place) {
        if (keys_at(static_cast<int>(place)) != 1) {
            return false;
        }
    }
    return true;
}

static_assert(has_one_key_at_each_place());
static_assert(longest_file(&ConfigComment::created) < CONFIG_TEXT_SIZE);
static_assert(longest_file(&ConfigComment::rewritten) < CONFIG_TEXT_SIZE);
static_assert(longest_line() < CONFIG_LINE_SIZE);

// Puts text into a field, which takes all of it and stays terminated.
class Composer {
public:
    explicit Composer(char* text) : end_(text) { *end_ = '\0'; }

    Composer& operator<<(std::string_view words) {
        end_ = std::copy(words.begin(), words.end(), end_);
        *end_ = '\0';
        return *this;
    }
    template <std::integral Number>
    Composer& operator<<(Number number) {
        char digits[longest_number];
        const char* const end = std::to_chars(digits, std::end(digits), number).ptr;
        return *this << std::string_view(digits, static_cast<std::size_t>(end - digits));
    }
    const char* end() const { return end_; }

private:
    char* end_;
};

const ConfigKey& key_at(int place) {
    const ConfigKey* key = config_keys;
    while (key->logged.place != place) {
        ++key;
    }
    return *key;
}

}  // namespace

std::size_t compose_config(char (&text)[CONFIG_TEXT_SIZE], ConfigForm form, const ConfigValues& values) {
    Composer file(text);
    for (const ConfigKey& key : config_keys) {
        for (const ConfigComment& comment : key.comments) {
            const char* const words = form == ConfigForm::created ? comment.created : comment.rewritten;
            if (words != nullptr) {
                file << words << "\n";
            }
        }
        file << key.name << "=";
        key.number != nullptr ? file << values.*key.number : file << oxr::field_view(values.ostrel_logs_path);
        file << "\n\n";
    }
    return static_cast<std::size_t>(file.end() - text);
}

void compose_config_line(char (&text)[CONFIG_LINE_SIZE], const ConfigValues* values) {
    Composer line(text);
    for (int place = 0; place < static_cast<int>(std::size(config_keys)); ++place) {
        const ConfigKey& key = key_at(place);
        line << key.logged.words;
        if (values == nullptr) {
            line << (key.number != nullptr ? "%d" : "%s");
        } else if (key.number != nullptr) {
            line << static_cast<int>(values->*key.number);
        } else {
            line << oxr::field_view(values->ostrel_logs_path);
        }
    }
    line << ".";
}
