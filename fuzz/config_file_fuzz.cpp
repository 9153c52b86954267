// Loads the input as a configuration file, applies edits derived from the input, saves, reloads,
// and checks that every value set reads back as set and every other value as before.
//
// Input: the file's bytes, optionally followed by the separator 00 FF 00 and an edit script.
// Without a script the edits come from a generator seeded with the file, so that a plain
// configuration file is a useful seed on its own.

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/VNConfigFile.h"
#include "platform/Log.h"

namespace {

using Entries = std::map<std::string, std::string>;

struct Mode {
    const char* fileName;
    VNConfigFile::Options options;
};

// The ways the program opens configuration files.
const Mode kModes[] = {
    {"hgrc", {true, true, true, VNConfigFile::Syntax::Automatic, false}},
    {".gitmodules", {true, false, true, VNConfigFile::Syntax::Automatic, false}},
    {"flow", {true, false, true, VNConfigFile::Syntax::Automatic, false}},
    {"varnelconfig", {false, false, false, VNConfigFile::Syntax::Automatic, false}},
    {"flat", {false, true, true, VNConfigFile::Syntax::Automatic, false}},
};

// Fragments that stress the syntax: separators, quoting, escapes, line breaks, byte order marks,
// non-ASCII text, control characters.
const std::string_view kFragments[] = {
    "",
    " ",
    "\t",
    "#",
    ";",
    "=",
    "\"",
    "\\",
    "{",
    "}",
    "[",
    "]",
    ".",
    "\n",
    "\r",
    "\r\n",
    "{{newline}}",
    "%include ",
    "\xEF\xBB\xBF",
    "\xC3\xA9",
    "\xE2\x82\xAC",
    "\xE6\x97\xA5",
    "\x01",
    "\b",
    "a",
    "b",
    "key",
    "url",
    "path",
    "ui",
    "submodule",
    "x y",
    "\xFF",
    "}.",
    "\\n",
};

[[noreturn]] void violation(const char* what, const std::string& detail) {
    std::fprintf(stderr, "configuration file oracle: %s\n%s\n", what, detail.c_str());
    std::abort();
}

std::string escaped(std::string_view text) {
    std::string out;
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F || c == '\\') {
            char buffer[8];
            std::snprintf(buffer, sizeof buffer, "\\x%02X", byte);
            out += buffer;
        } else {
            out += c;
        }
    }
    return out;
}

std::string describe(const Entries& entries) {
    std::string out;
    for (const auto& [key, value] : entries) {
        out += "  [" + escaped(key) + "] = [" + escaped(value) + "]\n";
    }
    return out;
}

class Script {
  public:
    Script(std::string_view bytes, std::uint32_t seed) : bytes_(bytes), random_(seed) {}

    std::uint32_t next() {
        if (!bytes_.empty()) {
            auto value = static_cast<unsigned char>(bytes_.front());
            bytes_.remove_prefix(1);
            return value;
        }
        return random_();
    }
    bool scripted() const { return !bytes_.empty(); }

    std::string text() {
        std::string out;
        const std::uint32_t parts = next() % 5;
        for (std::uint32_t i = 0; i < parts; ++i) {
            const std::uint32_t pick = next() % (std::size(kFragments) + 1);
            if (pick == std::size(kFragments)) {
                out += static_cast<char>(next());
            } else {
                out += kFragments[pick];
            }
        }
        return out;
    }

  private:
    std::string_view bytes_;
    std::mt19937 random_;
};

// Made once, removed when the process ends (each run removes its own file).
class TemporaryFolder {
  public:
    TemporaryFolder() {
        const char* base = std::getenv("TMPDIR");
        path_ = std::string(base && *base ? base : "/tmp") + "/config-fuzz.XXXXXX";
        if (::mkdtemp(path_.data()) == nullptr) {
            violation("cannot make a temporary folder", path_);
        }
    }
    ~TemporaryFolder() { ::rmdir(path_.c_str()); }
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

const std::string& temporaryFolder() {
    static const TemporaryFolder folder;
    return folder.path();
}

bool writeBytes(const std::string& path, std::string_view bytes) {
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) {
        return false;
    }
    const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && ok;
}

std::optional<std::string> readBytes(const std::string& path) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) {
        return std::nullopt;
    }
    std::string out;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;) {
        out.append(buffer, n);
    }
    std::fclose(file);
    return out;
}

Entries allEntries(const VNConfigFile& config) {
    return config.matchConfigEntriesForKeyPattern("(?s).*");
}

std::string sectionOf(const std::string& fullKey) {
    return fullKey.substr(0, fullKey.find_first_of(".{"));
}

// A key the program might use: one the file has, one in a section the file has, or a new one.
std::string pickKey(Script& script, const Entries& model, bool useSections) {
    const std::uint32_t kind = script.next() % 4;
    if (kind < 2 && !model.empty()) {
        auto it = model.begin();
        std::advance(it, script.next() % model.size());
        if (kind == 0) {
            return it->first;
        }
        std::size_t point = it->first.rfind('.');
        if (point != std::string::npos) {
            return it->first.substr(0, point + 1) + script.text();
        }
    }
    if (!useSections) {
        return script.text();
    }
    std::string key = script.text();
    if (script.next() % 2) {
        key += "{" + script.text() + "}";
    }
    return key + "." + script.text();
}

void checkSame(const VNConfigFile& config, const Entries& model, const char* what) {
    const Entries entries = allEntries(config);
    if (entries != model) {
        violation(what, "expected:\n" + describe(model) + "found:\n" + describe(entries));
    }
}

void run(std::string_view input) {
    std::string_view file = input;
    std::string_view script;
    if (std::size_t separator = input.find(std::string_view("\0\xFF\0", 3));
        separator != std::string_view::npos) {
        file = input.substr(0, separator);
        script = input.substr(separator + 3);
    }
    std::uint32_t seed = 2166136261u;
    for (char c : file) {
        seed = (seed ^ static_cast<unsigned char>(c)) * 16777619u;
    }
    Script edits(script, seed);
    const Mode& mode = kModes[edits.next() % std::size(kModes)];
    const bool useSections = mode.options.useSections;
    const std::string path = temporaryFolder() + "/" + mode.fileName;
    if (!writeBytes(path, file)) {
        violation("cannot write the input", path);
    }

    VNConfigFile config(path, mode.options);
    Entries model = allEntries(config);
    const std::vector<std::string> includes = config.includeFiles();
    bool changed = false;
    auto normalised = [&](const std::string& key) {
        return useSections && key.find_first_of(".{") == std::string::npos ? "." + key : key;
    };
    auto removeFromModel = [&](const std::string& prefix) {
        for (auto it = model.lower_bound(prefix);
             it != model.end() && it->first.starts_with(prefix);) {
            it = model.erase(it);
        }
    };

    const std::uint32_t steps = 1 + edits.next() % 16;
    for (std::uint32_t step = 0; step < steps; ++step) {
        const std::string key = pickKey(edits, model, useSections);
        const std::uint32_t op = edits.next() % 8;
        if (std::getenv("CONFIG_FUZZ_TRACE")) {
            std::fprintf(stderr, "step %u: op %u key [%s]\n", step, op,
                         describe({{key, ""}}).c_str());
        }
        switch (op) {
            case 0:
            case 1:
            case 2: {
                const std::string value = edits.text();
                const bool stored = config.setConfigValue(value, key);
                if (stored) {
                    auto [entry, added] = model.try_emplace(normalised(key), value);
                    if (added || entry->second != value) {
                        changed = true;
                        entry->second = value;
                    }
                }
                break;
            }
            case 3:
                config.removeConfigValueForKey(key);
                if (model.erase(normalised(key)) > 0) {
                    changed = true;
                }
                break;
            case 4: {
                const std::string section = sectionOf(key);
                config.removeSection(section);
                removeFromModel(section + ".");
                changed = true;
                break;
            }
            case 5: {
                const std::string section = sectionOf(key);
                config.removeAllConfigValuesInSection(section);
                removeFromModel(section + ".");
                changed = true;
                break;
            }
            case 6: {
                const std::string section = useSections ? sectionOf(key) : std::string();
                if (section.empty()) {
                    break;
                }
                std::map<std::string, std::string> values;
                for (std::uint32_t i = edits.next() % 3; i > 0; --i) {
                    values[edits.text()] = edits.text();
                }
                config.setConfigKeysAndValues(values, section, true);
                const std::string prefix = section + ".";
                for (auto it = model.lower_bound(prefix);
                     it != model.end() && it->first.starts_with(prefix);) {
                    it = values.contains(it->first.substr(prefix.size())) ? std::next(it)
                                                                          : model.erase(it);
                }
                for (const auto& [name, value] : values) {
                    const std::string fullKey = prefix + name;
                    // A refused value leaves the key as it was.
                    if (config.getConfigValueForKey(fullKey) == value) {
                        model[fullKey] = value;
                    }
                }
                changed = true;
                break;
            }
            default:
                if (!config.save()) {
                    violation("a save failed", std::string(file));
                }
                break;
        }
        checkSame(config, model, "the object does not hold what was set");
    }

    const std::optional<std::string> before = readBytes(path);
    if (!config.save()) {
        violation("the save failed", std::string(file));
    }
    const std::optional<std::string> after = readBytes(path);
    if (!changed && before != after) {
        violation("a save without changes changed the file", std::string(file));
    }
    VNConfigFile reloaded(path, mode.options);
    checkSame(reloaded, model, "the reloaded file does not read as set");
    if (reloaded.includeFiles() != includes) {
        violation("the includes changed", std::string(file));
    }
    // Saving again with nothing changed leaves the file as it is.
    if (!reloaded.save() || readBytes(path) != after) {
        violation("a second save changed the file", std::string(file));
    }
    ::unlink(path.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Refused values are logged; thousands of runs a second need no such lines. The sink goes back
    // afterwards, for a test program that replays the corpus among other tests.
    vn::Log::Sink previous;
    if (!std::getenv("CONFIG_FUZZ_TRACE")) {
        previous = vn::Log::setSink([](const std::string&) {});
    }
    run(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!std::getenv("CONFIG_FUZZ_TRACE")) {
        vn::Log::setSink(std::move(previous));
    }
    return 0;
}
