#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vn {

// What keeps git's output the same whoever runs it: the settings pinned on every git command
// line and the arguments that neutralise settings which cannot be pinned that way.
struct GitSettings {
    // "key=value" entries, each given to git after "-c". Colour, columns and path quoting are
    // off; every other setting that would change a format the parsers read is set to git's own
    // default, so that the user's configuration cannot reshape the output.
    static const std::vector<std::string>& pinned();
    // Whether `setting` ("key=value") is one of the pinned entries.
    static bool isPinned(std::string_view setting);

    // `--decorate-refs` options naming the references git decorates by default (HEAD, local
    // and remote branches, tags, the stash, replacements). Given explicitly, they take
    // precedence over the user's log.excludeDecoration and log.initialDecorationSet.
    static const std::vector<std::string>& decorationFilterArguments();

    // Whether git would read `text` as an option where a revision, remote or pattern is meant.
    static bool isOptionShaped(std::string_view text) {
        return !text.empty() && text.front() == '-';
    }

    // The global option that makes git take every path it is given literally: no wildcards,
    // no ":(magic)". An operation that means a pattern leaves it out.
    static constexpr const char* LiteralPathspecs = "--literal-pathspecs";
};

}  // namespace vn
