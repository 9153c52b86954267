#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "base/TextEncoding.h"

// An ini-style configuration file (Mercurial hgrc files, ".hgsub", ".flow", ".gitmodules", the
// per-repository settings file) read into full keys and saved by editing the file's own lines, so
// that everything the program did not change stays byte for byte as the user wrote it.
//
// Full keys: "section.key", "section{subsection}.key" for a header such as [submodule "a b"],
// ".key" for an entry before the first header (a bare key given to a file with sections means
// the same), and the bare key when sections are not used. In the plain syntax a newline inside a
// value is stored in the file as "{{newline}}"; the Git syntax quotes and escapes values and
// subsection names the way git reads them.
//
// A save never changes what a line it did not touch means: after it, the file reads back with
// exactly the values set and every other value as before, or the save is refused.
//
// Regular expressions given to the matching operations are ICU expressions that must match the
// whole full key.
class VNConfigFile {
  public:
    enum class Syntax {
        // Git for ".gitmodules", ".gitconfig" and the "config" files of git's folders when
        // sections are on and indented lines do not continue values; Plain otherwise.
        Automatic,
        // Values are the trimmed text after "=", no quoting, "{{newline}}" for line breaks.
        Plain,
        // git's own rules: quoted values with backslash escapes, quoted subsection names, "#"
        // and ";" inside quotes, values continued by a backslash at the end of a line.
        Git,
    };
    struct Options {
        bool useSections = true;
        bool indentsContinue = true;
        bool ignoreComments = true;
        Syntax syntax = Syntax::Automatic;
        // A new file is created readable by its owner alone. Files named like hgrc files and
        // git's configuration files are treated so without being marked.
        bool holdsCredentials = false;
    };

    // All load the file at once; comments ("#", ";") are recognised unless `ignoreComments` is
    // false. A file that cannot be read loads as empty and is created by the first save.
    VNConfigFile(std::string filename, bool useSections, bool indentsContinue);
    VNConfigFile(std::string filename, bool useSections, bool indentsContinue, bool ignoreComments);
    VNConfigFile(std::string filename, const Options& options);

    std::optional<std::string> getConfigValueForKey(const std::string& key) const;
    std::optional<std::string> getConfigValueForKey(const std::string& key,
                                                    const std::string& section) const;
    // Every key of the section (plain "section." prefix), the prefix taken off.
    std::map<std::string, std::string> getConfigKeysAndValuesWithSection(
        const std::string& section) const;
    // The subsection names used with the section: {"a b", "lib"} for "submodule".
    std::set<std::string> getNamesOfSection(const std::string& section) const;
    std::map<std::string, std::string> matchConfigEntriesForKeyPattern(
        const std::string& pattern) const;
    // `section` is a name, taken literally; `pattern` matches the rest of the key.
    std::map<std::string, std::string> matchConfigEntriesForKeyPattern(
        const std::string& pattern, const std::string& section) const;

    // False, with nothing changed and the reason logged, when the file's syntax cannot hold the
    // key or the value so that it reads back exactly (a value with a carriage return, a plain
    // value with "#" while comments are on or with blanks at its ends, a key holding "=", ...).
    bool setConfigValue(const std::string& value, const std::string& key);
    // An empty section leaves the key bare. Revives a section removed earlier in this editing run.
    bool setConfigValue(const std::string& value, const std::string& key,
                        const std::string& section);
    void removeConfigValueForKey(const std::string& key);
    void removeConfigValueForKey(const std::string& key, const std::string& section);
    void removeAllConfigValuesInSection(const std::string& section);
    // Removes the section's keys and, on save, its header ("submodule{a b}" names a subsection).
    void removeSection(const std::string& section);
    void removeAllKeysMatchingRegex(const std::string& regex);
    // False when some value could not be set (see setConfigValue); the others are set.
    bool setConfigKeysAndValues(const std::map<std::string, std::string>& keysAndValues,
                                const std::string& section, bool deleteOthers);

    // Applies the changes made since loading (or the last save) to the file's present text and
    // writes it atomically, through a symbolic link, keeping the file's permissions, in the
    // encoding it was read in; a file in a single-byte encoding that cannot hold a new value is
    // converted to UTF-8 as a whole. A failure is logged and answered as false; the old file stays
    // whole and the changes stay pending for the next save.
    bool save();
    // Applies the changes to the present text of `filename` and writes the result to `path`, which
    // the object then stands for.
    bool saveAs(const std::string& path);

    bool alreadyExisted() const { return alreadyExisted_; }
    bool ignoreComments() const { return ignoreComments_; }
    const std::vector<std::string>& includeFiles() const { return includeFiles_; }
    const std::string& filename() const { return filename_; }
    vn::FileEncoding fileEncoding() const { return fileEncoding_; }
    bool hasByteOrderMark() const { return byteOrderMark_; }
    // The syntax in use, Automatic resolved.
    Syntax syntax() const { return gitSyntax_ ? Syntax::Git : Syntax::Plain; }

  private:
    void loadFile(const std::string& filename, bool useSections);
    std::string normalisedKey(const std::string& key) const;
    void markModified(const std::string& fullKey);
    void removeFullKey(const std::string& fullKey);

    std::string filename_;
    vn::FileEncoding fileEncoding_ = vn::FileEncoding::UTF8;
    bool byteOrderMark_ = false;
    bool useSections_;
    std::unordered_map<std::string, std::string> valueDictionary_;
    // In the order of change, so that new keys reach the file in the order the program set them.
    std::vector<std::string> modifiedKeys_;
    std::unordered_set<std::string> modifiedKeySet_;
    std::set<std::string> removedSections_;
    bool indentsContinue_;
    bool ignoreComments_;
    bool gitSyntax_ = false;
    bool holdsCredentials_ = false;
    bool alreadyExisted_ = false;
    std::vector<std::string> includeFiles_;
};
