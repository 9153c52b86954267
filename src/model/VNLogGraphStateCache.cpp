#include "model/VNLogGraphStateCache.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <vector>

#include "platform/FileSystem.h"

namespace {

constexpr std::string_view Magic = "varnel log graph states 1\n";

uint64_t digest(std::string_view text, uint64_t seed) {
    // FNV-1a, finished with a mixer so that every bit of the text reaches every bit of the result.
    uint64_t hash = 0xCBF29CE484222325ull ^ seed;
    for (unsigned char c : text) {
        hash = (hash ^ c) * 0x100000001B3ull;
    }
    hash ^= hash >> 33;
    hash *= 0xFF51AFD7ED558CCDull;
    hash ^= hash >> 33;
    return hash;
}

std::string hex64(uint64_t value) {
    static const char digits[] = "0123456789abcdef";
    std::string text(16, '0');
    for (int i = 15; i >= 0; --i) {
        text[static_cast<std::size_t>(i)] = digits[value & 15];
        value >>= 4;
    }
    return text;
}

uint64_t bitsOf(double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

double doubleOf(uint64_t bits) {
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

void appendColour(std::string& out, const VNLogGraphColour& colour) {
    out += colour.kind == VNLogGraphColour::Kind::HSB    ? 'h'
           : colour.kind == VNLogGraphColour::Kind::Grey ? 'g'
                                                         : 'n';
    for (double value : {colour.hue, colour.saturation, colour.brightness, colour.alpha}) {
        out += hex64(bitsOf(value));
    }
}

// Reads what `encode` wrote, a field at a time; any surprise fails the whole read.
class Reader {
  public:
    explicit Reader(std::string_view text) : text_(text) {}

    bool ok() const { return ok_; }
    bool atEnd() const { return text_.empty(); }

    std::string_view word() {
        std::size_t end = text_.find_first_of(" \n");
        if (end == std::string_view::npos || end == 0) {
            ok_ = false;
            return {};
        }
        std::string_view word = text_.substr(0, end);
        text_.remove_prefix(end);
        return word;
    }
    void expect(char c) {
        if (text_.empty() || text_.front() != c) {
            ok_ = false;
            return;
        }
        text_.remove_prefix(1);
    }
    std::string_view take(uint64_t length) {
        if (length > text_.size()) {
            ok_ = false;
            return {};
        }
        std::string_view taken = text_.substr(0, length);
        text_.remove_prefix(length);
        return taken;
    }
    std::string_view restOfLine() {
        std::size_t end = text_.find('\n');
        if (end == std::string_view::npos) {
            ok_ = false;
            return {};
        }
        std::string_view line = text_.substr(0, end);
        text_.remove_prefix(end + 1);
        return line;
    }
    uint64_t number(int base = 10) {
        std::string_view text = word();
        uint64_t value = 0;
        auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
        if (!ok_ || error != std::errc() || rest != text.data() + text.size()) {
            ok_ = false;
        }
        return value;
    }
    VNLogGraphColour colour() {
        std::string_view text = word();
        VNLogGraphColour colour;
        if (!ok_ || text.size() != 65) {
            ok_ = false;
            return colour;
        }
        switch (text[0]) {
            case 'h':
                colour.kind = VNLogGraphColour::Kind::HSB;
                break;
            case 'g':
                colour.kind = VNLogGraphColour::Kind::Grey;
                break;
            case 'n':
                colour.kind = VNLogGraphColour::Kind::None;
                break;
            default:
                ok_ = false;
                return colour;
        }
        double* fields[] = {&colour.hue, &colour.saturation, &colour.brightness, &colour.alpha};
        for (std::size_t i = 0; i < 4; ++i) {
            std::string_view digits = text.substr(1 + 16 * i, 16);
            uint64_t bits = 0;
            auto [rest, error] =
                std::from_chars(digits.data(), digits.data() + digits.size(), bits, 16);
            if (error != std::errc() || rest != digits.data() + digits.size()) {
                ok_ = false;
            }
            *fields[i] = doubleOf(bits);
        }
        return colour;
    }

  private:
    std::string_view text_;
    bool ok_ = true;
};

}  // namespace

VNLogGraphStateCache::VNLogGraphStateCache(std::string folder, std::string identity)
    : folder_(std::move(folder)), identity_(std::move(identity)) {
    file_ = vn::fs::appendPathComponent(folder_, hex64(digest(identity_, 1)) + ".states");
    load();
}

std::string VNLogGraphStateCache::defaultFolder() {
    return vn::fs::appendPathComponent(vn::fs::cacheFolder(), "log-graph");
}

std::string VNLogGraphStateCache::encode(const VNLogGraphEntry& state) {
    std::string out;
    out.reserve(64 + state.lineColumns.size() * 120);
    out += std::to_string(state.commitColumn);
    out += ' ';
    appendColour(out, state.commitColour);
    out += ' ';
    out += hex64(state.randomState);
    out += ' ';
    out += std::to_string(state.lineColumns.size());
    out += '\n';
    for (const auto& line : state.lineColumns) {
        out += std::to_string(line.endCol);
        out += ' ';
        out += std::to_string(line.startCol);
        out += ' ';
        appendColour(out, line.lineColour);
        out += ' ';
        for (bool flag : {line.terminates, line.originates, line.sharedStart, line.isBlank}) {
            out += flag ? '1' : '0';
        }
        out += ' ';
        out += line.lineContext();
        out += '\n';
    }
    return out;
}

std::shared_ptr<const VNLogGraphEntry> VNLogGraphStateCache::decode(std::string_view text) {
    Reader reader(text);
    auto entry = std::make_shared<VNLogGraphEntry>();
    uint64_t column = reader.number();
    reader.expect(' ');
    entry->commitColour = reader.colour();
    reader.expect(' ');
    entry->randomState = reader.number(16);
    reader.expect(' ');
    uint64_t count = reader.number();
    reader.expect('\n');
    if (!reader.ok() || column > UINT32_MAX || count > text.size()) {
        return nullptr;
    }
    entry->commitColumn = static_cast<uint32_t>(column);
    for (uint64_t i = 0; i < count && reader.ok(); ++i) {
        uint64_t end = reader.number();
        reader.expect(' ');
        uint64_t start = reader.number();
        reader.expect(' ');
        VNLogGraphColour colour = reader.colour();
        reader.expect(' ');
        std::string_view flags = reader.word();
        reader.expect(' ');
        std::string_view context = reader.restOfLine();
        if (!reader.ok() || end > UINT32_MAX || start > UINT32_MAX || flags.size() != 4 ||
            flags.find_first_not_of("01") != std::string_view::npos) {
            return nullptr;
        }
        VNLogGraphEntryLine line(static_cast<uint32_t>(end), colour, std::string(context));
        line.startCol = static_cast<uint32_t>(start);
        line.terminates = flags[0] == '1';
        line.originates = flags[1] == '1';
        line.sharedStart = flags[2] == '1';
        line.isBlank = flags[3] == '1';
        entry->lineColumns.push_back(std::move(line));
    }
    if (!reader.ok() || !reader.atEnd()) {
        return nullptr;
    }
    return entry;
}

void VNLogGraphStateCache::load() {
    std::optional<std::string> contents = vn::fs::readFile(file_);
    if (!contents) {
        return;
    }
    std::string_view text = *contents;
    // The check line covers everything before it, so a cut or damaged file reads as nothing.
    std::size_t checkAt = text.rfind("check ");
    if (text.substr(0, Magic.size()) != Magic || checkAt == std::string_view::npos ||
        text.substr(checkAt) != "check " + hex64(digest(text.substr(0, checkAt), 3)) + "\n") {
        return;
    }
    Reader reader(text.substr(Magic.size(), checkAt - Magic.size()));
    if (reader.word() != "identity") {
        return;
    }
    reader.expect(' ');
    if (reader.restOfLine() != hex64(digest(identity_, 2))) {
        return;  // another listing that happens to share the file name
    }
    std::map<uint64_t, std::shared_ptr<const VNLogGraphEntry>> states;
    while (reader.ok() && !reader.atEnd()) {
        if (reader.word() != "state") {
            return;
        }
        reader.expect(' ');
        uint64_t rows = reader.number();
        reader.expect(' ');
        uint64_t length = reader.number();
        reader.expect('\n');
        auto state = reader.ok() ? decode(reader.take(length)) : nullptr;
        if (!state) {
            return;
        }
        states[rows] = std::move(state);
    }
    if (reader.ok()) {
        states_ = std::move(states);
    }
}

std::optional<std::pair<uint64_t, std::shared_ptr<const VNLogGraphEntry>>>
VNLogGraphStateCache::nearest(uint64_t rows) const {
    auto after = states_.upper_bound(rows);
    if (after == states_.begin()) {
        return std::nullopt;
    }
    --after;
    return *after;
}

void VNLogGraphStateCache::remember(uint64_t rows, std::shared_ptr<const VNLogGraphEntry> state) {
    if (!state || rows == 0) {
        return;
    }
    auto [at, inserted] = states_.try_emplace(rows, std::move(state));
    changed_ = changed_ || inserted;
}

bool VNLogGraphStateCache::save() {
    if (!changed_) {
        return true;
    }
    // Too many states: drop the one closest to the state before it, so that what stays is
    // spread over the history; the deepest stays, as the next page starts there.
    while (states_.size() > MaxStatesPerFile) {
        auto drop = std::next(states_.begin());
        uint64_t smallest = UINT64_MAX;
        for (auto at = std::next(states_.begin()); at != std::prev(states_.end()); ++at) {
            uint64_t gap = at->first - std::prev(at)->first;
            if (gap < smallest) {
                smallest = gap;
                drop = at;
            }
        }
        states_.erase(drop);
    }
    std::string text(Magic);
    text += "identity " + hex64(digest(identity_, 2)) + "\n";
    for (const auto& [rows, state] : states_) {
        std::string encoded = encode(*state);
        text += "state " + std::to_string(rows) + " " + std::to_string(encoded.size()) + "\n";
        text += encoded;
    }
    text += "check " + hex64(digest(text, 3)) + "\n";
    if (!vn::fs::makeDirectories(folder_, 0700) ||
        !vn::fs::writeFileAtomically(file_, text, nullptr, 0600)) {
        return false;
    }
    changed_ = false;

    // Keeps the folder small: the files used least recently go first.
    std::error_code error;
    std::vector<std::pair<std::filesystem::file_time_type, std::filesystem::path>> files;
    for (const auto& item : std::filesystem::directory_iterator(folder_, error)) {
        if (item.path().extension() == ".states") {
            files.emplace_back(item.last_write_time(error), item.path());
        }
    }
    if (files.size() > MaxFiles) {
        std::sort(files.begin(), files.end());
        for (std::size_t i = 0; i + MaxFiles < files.size(); ++i) {
            if (files[i].second != file_) {
                std::filesystem::remove(files[i].second, error);
            }
        }
    }
    return true;
}
