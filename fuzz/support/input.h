// What a target draws its decisions from: the fuzzer's bytes, from the front on. Beyond the end all is zero.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace fuzz {

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

    bool empty() const { return rest_.empty(); }
    std::string_view rest() { return take(rest_.size()); }

    std::string_view take(std::size_t count) {
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(taken.size());
        return taken;
    }

    std::uint8_t byte() { return number<std::uint8_t>(); }
    bool flag() { return (byte() & 1) != 0; }

    // 0 to `limit` - 1.
    unsigned below(unsigned limit) { return limit <= 256 ? byte() % limit : number<std::uint16_t>() % limit; }

    template <typename Number>
    Number number() {
        Number value{};
        const std::string_view bytes = take(sizeof value);
        if (!bytes.empty()) {
            std::memcpy(&value, bytes.data(), bytes.size());
        }
        return value;
    }

    // At most `longest` bytes, their count ahead of them.
    std::string text(unsigned longest) { return std::string(take(below(longest + 1))); }

private:
    std::string_view rest_;
};

// Puts the text into a field of so many bytes; with `repeat` again and again, to its end.
inline void overwrite(char* field, std::size_t size, std::string_view text, bool repeat) {
    for (std::size_t i = 0; i < size && !text.empty() && (repeat || i < text.size()); ++i) {
        field[i] = text[i % text.size()];
    }
}

}  // namespace fuzz
