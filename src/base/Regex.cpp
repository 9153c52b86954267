#include "base/Regex.h"

#include <unicode/regex.h>
#include <unicode/utext.h>

namespace vn {

struct Regex::Pattern {
    std::unique_ptr<icu::RegexPattern> compiled;
    icu::RegexPattern* operator->() const { return compiled.get(); }
};

namespace {

struct UTextHolder {
    UText* text = nullptr;
    explicit UTextHolder(std::string_view s) {
        UErrorCode status = U_ZERO_ERROR;
        text = utext_openUTF8(nullptr, s.data(), static_cast<int64_t>(s.size()), &status);
        if (U_FAILURE(status)) {
            text = nullptr;
        }
    }
    ~UTextHolder() {
        if (text) {
            utext_close(text);
        }
    }
};

Regex::Match collect(icu::RegexMatcher& matcher, std::string_view subject) {
    Regex::Match m;
    m.subject = subject;
    int32_t groups = matcher.groupCount();
    m.ranges.reserve(groups + 1);
    for (int32_t g = 0; g <= groups; ++g) {
        UErrorCode status = U_ZERO_ERROR;
        int64_t start = matcher.start64(g, status);
        int64_t end = matcher.end64(g, status);
        if (U_FAILURE(status) || start < 0) {
            m.ranges.emplace_back(std::string_view::npos, std::string_view::npos);
        } else {
            m.ranges.emplace_back(static_cast<std::size_t>(start), static_cast<std::size_t>(end));
        }
    }
    return m;
}

}  // namespace

Regex::Regex(std::string_view pattern, int flags) {
    uint32_t icuFlags = 0;
    if (flags & CaseInsensitive)
        icuFlags |= UREGEX_CASE_INSENSITIVE;
    if (flags & MultiLine)
        icuFlags |= UREGEX_MULTILINE;
    if (flags & DotAll)
        icuFlags |= UREGEX_DOTALL;
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError;
    UTextHolder text(pattern);
    if (!text.text) {
        error_ = "pattern is not valid UTF-8";
        return;
    }
    pattern_ = std::make_unique<Pattern>();
    pattern_->compiled.reset(icu::RegexPattern::compile(text.text, icuFlags, parseError, status));
    if (U_FAILURE(status)) {
        pattern_.reset();
        error_ =
            std::string(u_errorName(status)) + " at offset " + std::to_string(parseError.offset);
    }
}

Regex::~Regex() = default;
Regex::Regex(Regex&&) noexcept = default;
Regex& Regex::operator=(Regex&&) noexcept = default;

std::optional<Regex::Match> Regex::match(std::string_view text) const {
    if (!pattern_) {
        return std::nullopt;
    }
    UTextHolder holder(text);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern_->compiled->matcher(status));
    if (U_FAILURE(status) || !holder.text) {
        return std::nullopt;
    }
    matcher->reset(holder.text);
    if (!matcher->matches(status) || U_FAILURE(status)) {
        return std::nullopt;
    }
    return collect(*matcher, text);
}

std::optional<Regex::Match> Regex::find(std::string_view text, std::size_t from) const {
    if (!pattern_ || from > text.size()) {
        return std::nullopt;
    }
    UTextHolder holder(text);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern_->compiled->matcher(status));
    if (U_FAILURE(status) || !holder.text) {
        return std::nullopt;
    }
    matcher->reset(holder.text);
    if (!matcher->find(static_cast<int64_t>(from), status) || U_FAILURE(status)) {
        return std::nullopt;
    }
    return collect(*matcher, text);
}

std::vector<Regex::Match> Regex::findAll(std::string_view text) const {
    std::vector<Match> all;
    if (!pattern_) {
        return all;
    }
    UTextHolder holder(text);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern_->compiled->matcher(status));
    if (U_FAILURE(status) || !holder.text) {
        return all;
    }
    matcher->reset(holder.text);
    while (matcher->find()) {
        all.push_back(collect(*matcher, text));
    }
    return all;
}

std::string Regex::replaceAll(std::string_view text, std::string_view replacement) const {
    if (!pattern_) {
        return std::string(text);
    }
    icu::UnicodeString subject = icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    icu::UnicodeString with = icu::UnicodeString::fromUTF8(
        icu::StringPiece(replacement.data(), static_cast<int32_t>(replacement.size())));
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern_->compiled->matcher(subject, status));
    if (U_FAILURE(status)) {
        return std::string(text);
    }
    icu::UnicodeString result = matcher->replaceAll(with, status);
    if (U_FAILURE(status)) {
        return std::string(text);
    }
    std::string out;
    result.toUTF8String(out);
    return out;
}

std::string Regex::escape(std::string_view text) {
    std::string out;
    out.reserve(text.size() * 2);
    for (char c : text) {
        if (std::string_view("\\^$.|?*+()[]{}-/ #&~").find(c) != std::string_view::npos) {
            out.push_back('\\');
        }
        out.push_back(c);
    }
    return out;
}

}  // namespace vn
