#include "platform/SecretRedaction.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace vn {

namespace {

char lower(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// The position of `needle` (lower case) in `text` ignoring case, at or after `from`.
std::size_t findNoCase(std::string_view text, std::string_view needle, std::size_t from = 0) {
    if (needle.size() > text.size()) {
        return std::string_view::npos;
    }
    for (std::size_t i = from; i + needle.size() <= text.size(); ++i) {
        bool same = true;
        for (std::size_t j = 0; j < needle.size() && same; ++j) {
            same = lower(text[i + j]) == needle[j];
        }
        if (same) {
            return i;
        }
    }
    return std::string_view::npos;
}

// "scheme://user:password@" loses the password.
void redactURLPasswords(std::string& text) {
    for (std::size_t at = text.find("://"); at != std::string::npos;
         at = text.find("://", at + 3)) {
        std::size_t schemeStart = at;
        while (schemeStart > 0 &&
               (std::isalnum(static_cast<unsigned char>(text[schemeStart - 1])) ||
                text[schemeStart - 1] == '+' || text[schemeStart - 1] == '-' ||
                text[schemeStart - 1] == '.')) {
            --schemeStart;
        }
        if (schemeStart == at || !std::isalpha(static_cast<unsigned char>(text[schemeStart]))) {
            continue;
        }
        std::size_t userStart = at + 3;
        std::size_t colon = std::string::npos;
        std::size_t end = userStart;
        for (; end < text.size(); ++end) {
            char c = text[end];
            if (c == '@' || c == '/' || isSpace(c)) {
                break;
            }
            if (c == ':' && colon == std::string::npos) {
                colon = end;
            }
        }
        if (end < text.size() && text[end] == '@' && colon != std::string::npos) {
            text.replace(colon + 1, end - colon - 1, SecretRedaction::Mask);
            at = colon;
        }
    }
}

// "Authorization: <anything>" up to the end of its line, and the token after "Bearer" or
// "token" schemes.
void redactHeaders(std::string& text) {
    static constexpr std::array<std::string_view, 2> headers = {"authorization:", "cookie:"};
    for (std::string_view header : headers) {
        for (std::size_t at = findNoCase(text, header); at != std::string::npos;
             at = findNoCase(text, header, at + header.size())) {
            std::size_t valueStart = at + header.size();
            while (valueStart < text.size() &&
                   (text[valueStart] == ' ' || text[valueStart] == '\t')) {
                ++valueStart;
            }
            std::size_t valueEnd = valueStart;
            while (valueEnd < text.size() && text[valueEnd] != '\n' && text[valueEnd] != '\r') {
                ++valueEnd;
            }
            if (valueEnd > valueStart) {
                text.replace(valueStart, valueEnd - valueStart, SecretRedaction::Mask);
            }
        }
    }
    for (std::size_t at = findNoCase(text, "bearer "); at != std::string::npos;
         at = findNoCase(text, "bearer ", at + 7)) {
        std::size_t valueStart = at + 7;
        std::size_t valueEnd = valueStart;
        while (valueEnd < text.size() && !isSpace(text[valueEnd]) && text[valueEnd] != '"' &&
               text[valueEnd] != '\'') {
            ++valueEnd;
        }
        if (valueEnd > valueStart &&
            text.compare(valueStart, valueEnd - valueStart, SecretRedaction::Mask) != 0) {
            text.replace(valueStart, valueEnd - valueStart, SecretRedaction::Mask);
        }
    }
}

// A credential setting that names a helper or a user by a plain word is no secret; anything
// else (a helper given as a shell command, say) may carry one.
bool isPlainWord(std::string_view value) {
    return std::all_of(value.begin(), value.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_' || c == '-' ||
               c == '/' || c == '@';
    });
}

bool settingHidesValue(std::string_view key, std::string_view value) {
    if (SecretRedaction::isSecretName(key)) {
        return true;
    }
    return findNoCase(key, "credential") != std::string_view::npos && !isPlainWord(value);
}

// "key=value" with the value hidden when the key says so; answers whether it did.
bool redactSetting(std::string& setting) {
    std::size_t eq = setting.find('=');
    if (eq == std::string::npos) {
        return false;
    }
    std::string_view key(setting.data(), eq);
    std::string_view value(setting.data() + eq + 1, setting.size() - eq - 1);
    if (!settingHidesValue(key, value)) {
        return false;
    }
    setting.replace(eq + 1, std::string::npos, SecretRedaction::Mask);
    return true;
}

// A configuration key as git or hg write it: "section.name" or "section.sub.name", no blanks.
bool looksLikeConfigKey(std::string_view word) {
    return !word.empty() && word.front() != '-' && word.find('.') != std::string_view::npos &&
           word.find('=') == std::string_view::npos &&
           std::none_of(word.begin(), word.end(), isSpace) &&
           word.find("://") == std::string_view::npos;
}

}  // namespace

bool SecretRedaction::isSecretName(std::string_view name) {
    static constexpr std::array<std::string_view, 11> words = {
        "password",      "passwd", "passphrase", "token",   "secret",  "extraheader",
        "authorization", "cookie", "apikey",     "api_key", "api-key",
    };
    return std::any_of(words.begin(), words.end(), [&](std::string_view word) {
        return findNoCase(name, word) != std::string_view::npos;
    });
}

std::string SecretRedaction::redactText(std::string_view text) {
    std::string result(text);
    if (result.find("://") != std::string::npos) {
        redactURLPasswords(result);
    }
    redactHeaders(result);
    return result;
}

std::vector<std::string> SecretRedaction::redactArguments(const std::vector<std::string>& args) {
    std::vector<std::string> result;
    result.reserve(args.size());
    bool configCommand = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        configCommand = configCommand || args[i] == "config";
        std::string arg = args[i];
        std::string_view previous = i > 0 ? std::string_view(args[i - 1]) : std::string_view();
        bool hidden = false;
        if (previous == "-c" || previous == "--config") {
            hidden = redactSetting(arg);
        } else if (arg.starts_with("--config=")) {
            std::string setting = arg.substr(9);
            if (redactSetting(setting)) {
                arg = "--config=" + setting;
                hidden = true;
            }
        } else if (arg.starts_with("--") && arg.find('=') != std::string::npos) {
            std::size_t eq = arg.find('=');
            if (isSecretName(std::string_view(arg).substr(2, eq - 2))) {
                arg.replace(eq + 1, std::string::npos, Mask);
                hidden = true;
            }
        } else if (previous.starts_with("--") && previous.find('=') == std::string_view::npos &&
                   isSecretName(previous.substr(2))) {
            arg = std::string(Mask);
            hidden = true;
        } else if (configCommand && looksLikeConfigKey(previous) && !arg.starts_with("-") &&
                   settingHidesValue(previous, arg)) {
            // The value of "git config <key> <value>".
            arg = std::string(Mask);
            hidden = true;
        }
        result.push_back(hidden ? std::move(arg) : redactText(arg));
    }
    return result;
}

}  // namespace vn
