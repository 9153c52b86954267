#pragma once

#include <cstddef>
#include <string_view>

namespace vn {

// Reads text one field at a time without copying; each field ends at `separator`, the last one
// also at the end of the text. Used for git's NUL-separated listings.
class FieldReader {
  public:
    explicit FieldReader(std::string_view text, char separator = '\0')
        : text_(text), separator_(separator) {}

    // The next field, or false when the text is used up.
    bool next(std::string_view& field) {
        if (from_ >= text_.size()) {
            return false;
        }
        std::size_t end = text_.find(separator_, from_);
        if (end == std::string_view::npos) {
            end = text_.size();
        }
        field = text_.substr(from_, end - from_);
        from_ = end + 1;
        return true;
    }

  private:
    std::string_view text_;
    char separator_;
    std::size_t from_ = 0;
};

}  // namespace vn
