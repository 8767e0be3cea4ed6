#pragma once

// Finds a word among a fixed set of them in the time of one or two comparisons.

#include <array>
#include <cstdint>
#include <string_view>

namespace ksfax {

// Open addressing in slots of row number + 1, 0 = empty; for up to 255 words, none empty. The
// factors were chosen so that the reader's main keywords collide once in 512 slots.
template <unsigned kSlots>
class WordIndex {
  public:
    // `wordOf(row)` is the word of a row.
    template <typename WordOf>
    WordIndex(unsigned rows, WordOf wordOf) {
        for (unsigned row = 0; row < rows; ++row) {
            unsigned slot = SlotOf(wordOf(row));
            while (rows_[slot] != 0) {
                slot = (slot + 1) % kSlots;
            }
            rows_[slot] = static_cast<uint8_t>(row + 1);
        }
    }

    // Number of the row plus 1, or 0.
    template <typename WordOf>
    unsigned Find(std::string_view word, WordOf wordOf) const {
        if (word.empty()) {
            return 0;
        }
        unsigned slot = SlotOf(word);
        while (rows_[slot] != 0 && wordOf(rows_[slot] - 1U) != word) {
            slot = (slot + 1) % kSlots;
        }
        return rows_[slot];
    }

  private:
    static unsigned SlotOf(std::string_view word) {
        const size_t length = word.size();
        const auto at = [&](size_t place) -> unsigned { return static_cast<uint8_t>(word[place]); };
        return static_cast<unsigned>(length * 69 + at(0) * 19 + at(length - 1) * 119 +
                                     at(length / 2) * 121 + at(length * 3 / 4) * 171) %
               kSlots;
    }

    std::array<uint8_t, kSlots> rows_{};
};

}  // namespace ksfax
