#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vn {

// An ICU regular expression applied to UTF-8 text. Positions are byte offsets into that text.
// A compiled expression may be used from several threads at once.
class Regex {
  public:
    enum Flags { CaseInsensitive = 1, MultiLine = 2, DotAll = 4 };

    struct Match {
        // Byte ranges of the whole match (group 0) and each group; npos start for a group that
        // took no part in the match.
        std::vector<std::pair<std::size_t, std::size_t>> ranges;
        std::string_view subject;

        std::size_t groupCount() const { return ranges.size(); }
        bool matched(std::size_t group) const {
            return group < ranges.size() && ranges[group].first != std::string_view::npos;
        }
        std::string_view group(std::size_t group) const {
            if (!matched(group)) {
                return {};
            }
            return subject.substr(ranges[group].first, ranges[group].second - ranges[group].first);
        }
        std::string str(std::size_t g) const { return std::string(group(g)); }
        std::size_t start() const { return ranges[0].first; }
        std::size_t end() const { return ranges[0].second; }
    };

    explicit Regex(std::string_view pattern, int flags = 0);
    ~Regex();
    Regex(const Regex&) = delete;
    Regex& operator=(const Regex&) = delete;
    Regex(Regex&&) noexcept;
    Regex& operator=(Regex&&) noexcept;

    bool isValid() const { return pattern_ != nullptr; }
    const std::string& errorText() const { return error_; }

    // The whole text matches.
    std::optional<Match> match(std::string_view text) const;
    bool matches(std::string_view text) const { return match(text).has_value(); }
    // The first match at or after `from`.
    std::optional<Match> find(std::string_view text, std::size_t from = 0) const;
    bool search(std::string_view text) const { return find(text).has_value(); }
    std::vector<Match> findAll(std::string_view text) const;
    // Replaces every match; "$1" in the replacement stands for a group.
    std::string replaceAll(std::string_view text, std::string_view replacement) const;

    // The pattern with every special character escaped, to match `text` literally.
    static std::string escape(std::string_view text);

  private:
    struct Pattern;
    std::unique_ptr<Pattern> pattern_;
    std::string error_;
};

}  // namespace vn
