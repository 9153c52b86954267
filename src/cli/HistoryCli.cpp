#include "cli/HistoryCli.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iostream>

#include "app/VNApplication.h"
#include "base/Calendar.h"
#include "base/TextEncoding.h"
#include "cli/Cli.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/FailureCollector.h"
#include "hg/VNHgLogParser.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogLabel.h"

namespace vn::cli::history {

std::string resolvedForMessage(const std::string& given) {
    std::error_code error;
    std::filesystem::path path(given.empty() ? "." : given);
    std::filesystem::path resolved = std::filesystem::weakly_canonical(path, error);
    if (!error && resolved.is_absolute()) {
        return resolved.string();
    }
    if (path.is_absolute()) {
        return path.lexically_normal().string();
    }
    // Without a current folder (it was deleted) the shell's record of it still names it.
    const char* pwd = std::getenv("PWD");
    std::filesystem::path base =
        pwd && *pwd == '/' ? std::filesystem::path(pwd) : std::filesystem::current_path(error);
    std::string joined = (base / path).lexically_normal().string();
    while (joined.size() > 1 && joined.back() == '/') {
        joined.pop_back();
    }
    return joined;
}

int reportFailure(const FailureCollector& failures) {
    std::cerr << "vrnl: " << displayLines(failures.message()) << "\n";
    return 1;
}

VNRepoHandler& anyHandler(const GitWorkingCopy& workingCopy) {
    if (workingCopy.mercurial) {
        return *workingCopy.mercurial;
    }
    return *workingCopy.handler;
}

std::optional<GitWorkingCopy> findGitWorkingCopy(const std::string& start, bool acceptMercurial) {
    std::error_code error;
    std::filesystem::path folder = std::filesystem::canonical(start, error);
    if (error) {
        std::cerr << "vrnl: " << display(resolvedForMessage(start)) << ": " << error.message()
                  << "\n";
        return std::nullopt;
    }
    if (!std::filesystem::is_directory(folder, error)) {
        folder = folder.parent_path();
    }
    const VNApplication& application = VNApplication::shared();
    for (;;) {
        VNRepositoryType type = application.determineRepositoryType(folder.string());
        if (type == VNRepositoryTypeGit) {
            auto handler = std::dynamic_pointer_cast<VNRepoHandlerGit>(
                application.handlerForType(VNRepositoryTypeGit));
            if (!handler) {
                break;
            }
            return GitWorkingCopy{folder.string(), std::move(handler), nullptr};
        }
        if (type == VNRepositoryTypeMercurial && acceptMercurial) {
            auto mercurial = std::dynamic_pointer_cast<VNRepoHandlerMercurial>(
                application.handlerForType(VNRepositoryTypeMercurial));
            if (!mercurial) {
                break;
            }
            return GitWorkingCopy{folder.string(), nullptr, std::move(mercurial)};
        }
        if (type != VNRepositoryTypeUnknown) {
            std::cerr << "vrnl: " << display(folder.string()) << " is not a Git repository\n";
            return std::nullopt;
        }
        if (!folder.has_parent_path() || folder.parent_path() == folder) {
            break;
        }
        folder = folder.parent_path();
    }
    std::cerr << (acceptMercurial ? "vrnl: not inside a repository: "
                                  : "vrnl: not inside a Git repository: ")
              << display(resolvedForMessage(start)) << "\n";
    return std::nullopt;
}

std::optional<uint64_t> parseCount(const std::string& text, uint64_t lowest, uint64_t highest) {
    uint64_t value = 0;
    const char* end = text.data() + text.size();
    auto [rest, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc() || rest != end || value < lowest || value > highest) {
        return std::nullopt;
    }
    return value;
}

std::optional<Value::Date> parseDay(const std::string& text) {
    int year = 0, month = 0, day = 0;
    if (text.size() != 10 || text[4] != '-' || text[7] != '-') {
        return std::nullopt;
    }
    auto number = [&](std::size_t from, std::size_t length, int& out) {
        auto [rest, error] = std::from_chars(text.data() + from, text.data() + from + length, out);
        return error == std::errc() && rest == text.data() + from + length;
    };
    if (!number(0, 4, year) || !number(5, 2, month) || !number(8, 2, day) || month < 1 ||
        month > 12 || day < 1 || day > 31) {
        return std::nullopt;
    }
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&fields));
}

namespace {

void appendDigits(std::string& out, unsigned value, int width) {
    char digits[8];
    for (int i = width - 1; i >= 0; --i) {
        digits[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    out.append(digits, static_cast<std::size_t>(width));
}

}  // namespace

void appendShortDate(std::string& out, const Value& date) {
    const Value::Date* point = date.date();
    if (!point) {
        return;
    }
    std::time_t time = std::chrono::system_clock::to_time_t(*point);
    std::optional<int32_t> offset = date.dateOffset();
    if (offset) {
        // The recorder's wall-clock time, worked out here: a history has a date on every row.
        int64_t days, secondOfDay;
        calendar::splitSeconds(static_cast<int64_t>(time) + *offset, days, secondOfDay);
        const calendar::CivilDate wall = calendar::civilFromDays(days);
        if (wall.year >= 1000 && wall.year <= 9999) {
            appendDigits(out, static_cast<unsigned>(wall.year), 4);
            out.push_back('-');
            appendDigits(out, wall.month, 2);
            out.push_back('-');
            appendDigits(out, wall.day, 2);
            out.push_back(' ');
            appendDigits(out, static_cast<unsigned>(secondOfDay / 3600), 2);
            out.push_back(':');
            appendDigits(out, static_cast<unsigned>(secondOfDay / 60 % 60), 2);
            int32_t magnitude = *offset < 0 ? -*offset : *offset;
            out.append(*offset < 0 ? " -" : " +");
            appendDigits(out, static_cast<unsigned>(magnitude / 3600 % 100), 2);
            appendDigits(out, static_cast<unsigned>(magnitude / 60 % 60), 2);
            return;
        }
    }
    std::tm wall{};
    if (offset) {
        time += *offset;
        ::gmtime_r(&time, &wall);
    } else {
        ::localtime_r(&time, &wall);
    }
    char buffer[48];
    std::size_t length = std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M", &wall);
    if (offset) {
        int32_t magnitude = *offset < 0 ? -*offset : *offset;
        std::snprintf(buffer + length, sizeof buffer - length, " %c%02d%02d",
                      *offset < 0 ? '-' : '+', static_cast<int>(magnitude / 3600),
                      static_cast<int>(magnitude / 60 % 60));
    }
    out.append(buffer);
}

std::string shortDate(const Value& date) {
    std::string text;
    appendShortDate(text, date);
    return text;
}

std::string nameOnly(const std::string& user) {
    std::size_t bracket = user.rfind(" <");
    return bracket == std::string::npos ? user : user.substr(0, bracket);
}

std::string labelText(const VNLogLabel& label) {
    std::string text;
    switch (label.type()) {
        case VNLogLabel::LocalBranch:
            text = label.currentMarker() ? colour("HEAD -> ", "1;36") : "";
            text += colour(display(label.label()), "1;32");
            break;
        case VNLogLabel::RemoteBranch:
            text = colour(display(label.label()), "1;31");
            break;
        case VNHgLogParser::BookmarkLabel:
            // A Mercurial bookmark; the active one is where the next commit goes.
            text = label.currentMarker() ? colour("@ ", "1;36") : "";
            text += colour(std::string("bookmark: ").append(display(label.label())), "1;35");
            break;
        default:
            // The detached HEAD shares the tag type; it reads as git writes it.
            text = label.label() == "HEAD" && label.ref() == "HEAD"
                       ? colour("HEAD", "1;36")
                       : colour(std::string("tag: ").append(display(label.label())), "1;33");
            break;
    }
    if (!label.annotation().empty()) {
        // Appended piece by piece: `" " + text` trips a false -Wrestrict in optimised g++ 12.
        text.append(" ").append(
            colour(std::string("[").append(display(label.annotation())).append("]"), "35"));
    }
    return text;
}

std::string labelsText(const Value& descriptionEntry) {
    auto entry = descriptionEntry.objectAs<VNLogDescriptionEntry>();
    if (!entry || entry->labels().empty()) {
        return {};
    }
    std::string text = " (";
    bool first = true;
    for (const auto& label : entry->labels()) {
        if (!first) {
            text += ", ";
        }
        first = false;
        text += labelText(*label);
    }
    return text + ")";
}

namespace {

void appendColoured(std::string& out, std::string_view text, std::string_view sgr, bool coloured) {
    if (coloured) {
        out.append("\x1b[").append(sgr).append("m");
    }
    appendDisplayText(out, text);
    if (coloured) {
        out.append("\x1b[0m");
    }
}

}  // namespace

void appendRowLine(std::string& out, std::string_view shortHash, const Value& date,
                   std::string_view user, const std::vector<std::shared_ptr<VNLogLabel>>* labels,
                   std::string_view subject) {
    const bool coloured = useColour();
    appendColoured(out, shortHash, "33", coloured);
    out.push_back(' ');
    if (coloured) {
        out.append("\x1b[2m");
    }
    appendShortDate(out, date);
    if (coloured) {
        out.append("\x1b[0m");
    }
    out.push_back(' ');
    std::size_t bracket = user.rfind(" <");
    appendColoured(out, bracket == std::string_view::npos ? user : user.substr(0, bracket), "34",
                   coloured);
    if (labels && !labels->empty()) {
        out.append(" (");
        bool first = true;
        for (const auto& label : *labels) {
            if (!first) {
                out.append(", ");
            }
            first = false;
            out.append(labelText(*label));
        }
        out.push_back(')');
    }
    out.push_back(' ');
    appendDisplayText(out, subject);
}

std::string rowLine(const Record& row) {
    auto entry = row["descriptionentry"].objectAs<VNLogDescriptionEntry>();
    std::string line;
    appendRowLine(line, row.string("changesetshort"), row["date"], row.string("user"),
                  entry ? &entry->labels() : nullptr,
                  entry ? std::string_view(entry->description()) : std::string_view());
    return line;
}

}  // namespace vn::cli::history
