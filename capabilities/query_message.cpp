#include "capabilities/query_message.h"

#include <charconv>
#include <cstdint>
#include <cstring>

namespace ksfax {
namespace {

constexpr int kStringRoom = 256;

// Takes characters, keeps as many as the buffer has room for, and counts them all.
class MessageWriter {
  public:
    MessageWriter(WCHAR* buffer, DWORD capacity)
        : buffer_(buffer), room_(buffer != nullptr && capacity > 0 ? capacity - 1 : 0),
          terminated_(buffer != nullptr && capacity > 0) {}

    void Put(WCHAR character) {
        if (length_ < room_) {
            buffer_[length_] = character;
        }
        ++length_;
    }
    void Put(const WCHAR* text) {
        while (*text != 0) {
            Put(*text++);
        }
    }
    bool full() const { return length_ >= room_; }
    DWORD length() const { return length_; }
    void Terminate() {
        if (terminated_) {
            buffer_[length_ < room_ ? length_ : room_] = 0;
        }
    }

  private:
    WCHAR* buffer_;
    DWORD room_;
    bool terminated_;
    DWORD length_ = 0;
};

void PutString(MessageWriter* writer, HINSTANCE module, UINT id) {
    WCHAR text[kStringRoom];
    if (LoadStringW(module, id, text, kStringRoom) > 0) {
        writer->Put(text);
    }
}

void PutNumber(MessageWriter* writer, DWORD number, WCHAR directive) {
    char digits[16] = {};
    char* const end = digits + sizeof(digits);
    const std::to_chars_result result =
        directive == 'd'   ? std::to_chars(digits, end, static_cast<int32_t>(number))
        : directive == 'u' ? std::to_chars(digits, end, static_cast<uint32_t>(number))
                           : std::to_chars(digits, end, static_cast<uint32_t>(number), 16);
    for (const char* digit = digits; digit != result.ptr; ++digit) {
        const bool raise = directive == 'X' && *digit >= 'a';
        writer->Put(static_cast<WCHAR>(raise ? *digit - 'a' + 'A' : *digit));
    }
}

bool TakesArgument(WCHAR directive) {
    return directive != 0 && directive < 0x80 && std::strchr("!scduxX", directive) != nullptr;
}

void PutArgument(MessageWriter* writer, HINSTANCE module, WCHAR directive,
                 const QueryArgument& argument) {
    switch (directive) {
    case '!':
        PutString(writer, module, argument.number);
        break;
    case 's':
        if (argument.text != nullptr) {
            writer->Put(argument.text);
        }
        break;
    case 'c':
        writer->Put(static_cast<WCHAR>(argument.number));
        break;
    default:
        PutNumber(writer, argument.number, directive);
        break;
    }
}

}  // namespace

void FormatQueryMessage(HINSTANCE module, WCHAR* buffer, DWORD capacity, DWORD* needed,
                        const WCHAR* format, std::span<const QueryArgument> arguments) {
    MessageWriter writer(buffer, capacity);
    size_t next = 0;
    // Nobody asks for the rest's length: what does not fit need not be formatted.
    while (*format != 0 && !(needed == nullptr && writer.full())) {
        if (*format != '%') {
            writer.Put(*format++);
            continue;
        }
        const WCHAR directive = *++format;
        if (directive == 0) {
            break;
        }
        ++format;
        if (!TakesArgument(directive)) {
            writer.Put(directive);
        } else if (next < arguments.size()) {
            PutArgument(&writer, module, directive, arguments[next++]);
        }
    }
    writer.Terminate();
    if (needed != nullptr) {
        *needed = writer.length() + 1;
    }
}

}  // namespace ksfax
