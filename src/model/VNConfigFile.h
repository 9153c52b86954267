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
// ".key" for an entry before the first header, and the bare key when sections are not used. A
// newline inside a value is stored in the file as "{{newline}}".
//
// Regular expressions given to the matching operations are ICU expressions that must match the
// whole full key.
class VNConfigFile {
  public:
    // Both load the file at once; comments ("#", ";") are recognised unless `ignoreComments` is
    // false. A file that cannot be read loads as empty and is created by the first save.
    VNConfigFile(std::string filename, bool useSections, bool indentsContinue);
    VNConfigFile(std::string filename, bool useSections, bool indentsContinue, bool ignoreComments);

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

    void setConfigValue(const std::string& value, const std::string& key);
    // An empty section leaves the key bare. Revives a section removed earlier in this editing run.
    void setConfigValue(const std::string& value, const std::string& key,
                        const std::string& section);
    void removeConfigValueForKey(const std::string& key);
    void removeConfigValueForKey(const std::string& key, const std::string& section);
    void removeAllConfigValuesInSection(const std::string& section);
    // Removes the section's keys and, on save, its header ("submodule{a b}" names a subsection).
    void removeSection(const std::string& section);
    void removeAllKeysMatchingRegex(const std::string& regex);
    void setConfigKeysAndValues(const std::map<std::string, std::string>& keysAndValues,
                                const std::string& section, bool deleteOthers);

    // Applies the changes made since loading (or the last save) to the file's present text and
    // writes it atomically in the encoding it was read in. A failure is logged and answered as
    // false; the old file stays whole and the changes stay pending for the next save.
    bool save();
    // Applies the changes to the present text of `filename` and writes the result to `path`, which
    // the object then stands for.
    bool saveAs(const std::string& path);

    bool alreadyExisted() const { return alreadyExisted_; }
    bool ignoreComments() const { return ignoreComments_; }
    const std::vector<std::string>& includeFiles() const { return includeFiles_; }
    const std::string& filename() const { return filename_; }
    vn::TextEncoding fileEncoding() const { return fileEncoding_; }

  private:
    void loadFile(const std::string& filename, bool useSections);
    void markModified(const std::string& fullKey);
    void removeFullKey(const std::string& fullKey);

    std::string filename_;
    vn::TextEncoding fileEncoding_ = vn::TextEncoding::UTF8;
    bool useSections_;
    std::unordered_map<std::string, std::string> valueDictionary_;
    // In the order of change, so that new keys reach the file in the order the program set them.
    std::vector<std::string> modifiedKeys_;
    std::unordered_set<std::string> modifiedKeySet_;
    std::set<std::string> removedSections_;
    bool indentsContinue_;
    bool ignoreComments_;
    bool alreadyExisted_ = false;
    std::vector<std::string> includeFiles_;
};
