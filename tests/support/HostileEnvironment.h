#pragma once

#include <optional>
#include <string>

#include "platform/Process.h"

// What a user's machine may have that must not change what the engine reads from git: a
// configuration full of output-changing settings, another language, and variables that point
// git at another repository.
namespace vn::test {

// The variables that run a program in German (de_DE.UTF-8): LC_ALL, LANG, LANGUAGE, and LOCPATH
// when the system has no German locale and one was built with localedef into a private folder
// (shared by the test processes of this user). Nothing, with the reason in `why`, when no
// German locale can be had (the "locales" package is missing).
std::optional<Environment> germanLocale(std::string& why);

// Writes into `home` a ".gitconfig" that sets more than thirty settings which change git's
// output (colour, columns, quoting, prefixes, context, renames, status and log formats, sort
// orders, decorations, pattern type, an external diff program, ...) and the files it refers to.
// Answers how many such settings it wrote.
int writeHostileGitConfig(const std::string& home);

// Makes a second repository at `folder` (with a commit of its own) and answers the variables
// that would point git at it, or change how git reads paths, runs diffs and pagers, and traces.
Environment redirectingGitVariables(const std::string& folder);

}  // namespace vn::test
