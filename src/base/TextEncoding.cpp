#include "base/TextEncoding.h"

#include <unicode/ucnv.h>

#include <array>
#include <cstdint>
#include <mutex>
#include <unordered_map>

namespace vn {

namespace {

// Length of the valid UTF-8 sequence starting at `i`, or 0 when the bytes there are malformed.
// `maximal` receives the length of the maximal invalid subpart for malformed input.
std::size_t validSequenceLength(const unsigned char* s, std::size_t n, std::size_t i,
                                std::size_t& maximal) {
    unsigned char c = s[i];
    maximal = 1;
    if (c < 0x80) {
        return 1;
    }
    std::size_t need;
    unsigned char lo = 0x80, hi = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
        need = 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
        need = 2;
        if (c == 0xE0)
            lo = 0xA0;
        if (c == 0xED)
            hi = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        need = 3;
        if (c == 0xF0)
            lo = 0x90;
        if (c == 0xF4)
            hi = 0x8F;
    } else {
        return 0;
    }
    for (std::size_t k = 1; k <= need; ++k) {
        if (i + k >= n) {
            return 0;
        }
        unsigned char b = s[i + k];
        unsigned char l = k == 1 ? lo : 0x80, h = k == 1 ? hi : 0xBF;
        if (b < l || b > h) {
            return 0;
        }
        maximal = k + 1;
    }
    return need + 1;
}

// Single-byte encodings are decoded through a table built once from ICU's converter.
struct SingleByteTable {
    std::array<char32_t, 256> toUnicode{};
    std::array<bool, 256> mapped{};
    bool ok = false;
};

const SingleByteTable& tableFor(TextEncoding encoding) {
    static std::once_flag flags[4];
    static SingleByteTable tables[4];
    int index = static_cast<int>(encoding);
    std::call_once(flags[index], [&] {
        SingleByteTable& table = tables[index];
        UErrorCode status = U_ZERO_ERROR;
        UConverter* converter = ucnv_open(textEncodingName(encoding), &status);
        if (U_FAILURE(status)) {
            return;
        }
        ucnv_setToUCallBack(converter, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
        for (int b = 0; b < 256; ++b) {
            char in = static_cast<char>(b);
            UChar out[4];
            status = U_ZERO_ERROR;
            ucnv_reset(converter);
            int32_t len = ucnv_toUChars(converter, out, 4, &in, 1, &status);
            if (U_SUCCESS(status) && len == 1) {
                table.toUnicode[b] = out[0];
                table.mapped[b] = true;
            }
        }
        ucnv_close(converter);
        table.ok = true;
    });
    return tables[index];
}

void appendUTF8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

}  // namespace

const char* textEncodingName(TextEncoding encoding) {
    switch (encoding) {
        case TextEncoding::UTF8:
            return "UTF-8";
        case TextEncoding::MacRoman:
            return "macintosh";
        case TextEncoding::Latin1:
            return "ISO-8859-1";
        case TextEncoding::Windows1252:
            return "windows-1252";
    }
    return "UTF-8";
}

bool isValidUTF8(std::string_view bytes) {
    auto s = reinterpret_cast<const unsigned char*>(bytes.data());
    std::size_t n = bytes.size(), i = 0;
    while (i < n) {
        // Skip ASCII eight bytes at a time; most tool output is ASCII.
        while (i + 8 <= n) {
            uint64_t word;
            __builtin_memcpy(&word, s + i, 8);
            if (word & 0x8080808080808080ULL) {
                break;
            }
            i += 8;
        }
        if (i >= n) {
            break;
        }
        if (s[i] < 0x80) {
            ++i;
            continue;
        }
        std::size_t maximal;
        std::size_t len = validSequenceLength(s, n, i, maximal);
        if (len == 0) {
            return false;
        }
        i += len;
    }
    return true;
}

std::size_t completeUTF8PrefixLength(std::string_view bytes) {
    std::size_t n = bytes.size();
    // A character is at most four bytes, so only the last three can start an unfinished one.
    for (std::size_t back = 1; back <= 3 && back <= n; ++back) {
        auto c = static_cast<unsigned char>(bytes[n - back]);
        if ((c & 0xC0) == 0x80) {
            continue;
        }
        std::size_t need = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
        return need > back ? n - back : n;
    }
    return n;
}

std::string repairUTF8(std::string_view bytes) {
    auto s = reinterpret_cast<const unsigned char*>(bytes.data());
    std::size_t n = bytes.size(), i = 0;
    std::string out;
    out.reserve(n);
    while (i < n) {
        std::size_t maximal;
        std::size_t len = validSequenceLength(s, n, i, maximal);
        if (len == 0) {
            out.append("\xEF\xBF\xBD");
            i += maximal;
        } else {
            out.append(bytes.data() + i, len);
            i += len;
        }
    }
    return out;
}

std::optional<std::string> decodeText(std::string_view bytes, TextEncoding encoding) {
    if (encoding == TextEncoding::UTF8) {
        if (!isValidUTF8(bytes)) {
            return std::nullopt;
        }
        return std::string(bytes);
    }
    const SingleByteTable& table = tableFor(encoding);
    if (!table.ok) {
        return std::nullopt;
    }
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 4);
    for (char ch : bytes) {
        auto b = static_cast<unsigned char>(ch);
        if (!table.mapped[b]) {
            return std::nullopt;
        }
        appendUTF8(out, table.toUnicode[b]);
    }
    return out;
}

std::optional<std::string> encodeText(std::string_view utf8, TextEncoding encoding) {
    if (!isValidUTF8(utf8)) {
        return std::nullopt;
    }
    if (encoding == TextEncoding::UTF8) {
        return std::string(utf8);
    }
    const SingleByteTable& table = tableFor(encoding);
    if (!table.ok) {
        return std::nullopt;
    }
    std::string out;
    out.reserve(utf8.size());
    auto s = reinterpret_cast<const unsigned char*>(utf8.data());
    std::size_t n = utf8.size(), i = 0;
    while (i < n) {
        char32_t cp;
        unsigned char c = s[i];
        if (c < 0x80) {
            cp = c;
            i += 1;
        } else if (c < 0xE0) {
            cp = ((c & 0x1F) << 6) | (s[i + 1] & 0x3F);
            i += 2;
        } else if (c < 0xF0) {
            cp = ((c & 0x0F) << 12) | ((s[i + 1] & 0x3F) << 6) | (s[i + 2] & 0x3F);
            i += 3;
        } else {
            cp = ((c & 0x07) << 18) | ((s[i + 1] & 0x3F) << 12) | ((s[i + 2] & 0x3F) << 6) |
                 (s[i + 3] & 0x3F);
            i += 4;
        }
        bool found = false;
        for (int b = 0; b < 256; ++b) {
            if (table.mapped[b] && table.toUnicode[b] == cp) {
                out.push_back(static_cast<char>(b));
                found = true;
                break;
            }
        }
        if (!found) {
            return std::nullopt;
        }
    }
    return out;
}

std::optional<std::string> decodeWithFallbacks(std::string_view bytes, TextEncoding* used) {
    for (TextEncoding encoding : {TextEncoding::UTF8, TextEncoding::MacRoman, TextEncoding::Latin1,
                                  TextEncoding::Windows1252}) {
        if (auto text = decodeText(bytes, encoding)) {
            if (used) {
                *used = encoding;
            }
            return text;
        }
    }
    return std::nullopt;
}

std::string_view truncateUTF8(std::string_view text, std::size_t maxBytes) {
    if (text.size() <= maxBytes) {
        return text;
    }
    std::size_t cut = maxBytes;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) {
        --cut;
    }
    return text.substr(0, cut);
}

// ---- Tool output ------------------------------------------------------------------------------

std::string decodeLegacy8Bit(std::string_view bytes) {
    const SingleByteTable& table = tableFor(TextEncoding::Windows1252);
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 4);
    for (char ch : bytes) {
        auto b = static_cast<unsigned char>(ch);
        appendUTF8(out, table.ok && table.mapped[b] ? table.toUnicode[b] : char32_t(b));
    }
    return out;
}

std::string decodeToolText(std::string_view bytes, bool lossy) {
    if (isValidUTF8(bytes)) {
        return std::string(bytes);
    }
    return lossy ? repairUTF8(bytes) : decodeLegacy8Bit(bytes);
}

std::string decodeToolOutput(std::string_view bytes, bool lossy) {
    if (isValidUTF8(bytes)) {
        return std::string(bytes);
    }
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 8);
    std::size_t from = 0;
    while (from < bytes.size()) {
        std::size_t end = bytes.find('\n', from);
        end = end == std::string_view::npos ? bytes.size() : end + 1;
        std::string_view line = bytes.substr(from, end - from);
        if (isValidUTF8(line)) {
            out.append(line);
        } else {
            out.append(lossy ? repairUTF8(line) : decodeLegacy8Bit(line));
        }
        from = end;
    }
    return out;
}

std::optional<std::string> readCQuoted(std::string_view text, std::size_t* consumed) {
    if (text.empty() || text.front() != '"') {
        return std::nullopt;
    }
    std::string out;
    out.reserve(text.size());
    std::size_t i = 1;
    while (i < text.size()) {
        char c = text[i];
        if (c == '"') {
            if (consumed) {
                *consumed = i + 1;
            }
            return out;
        }
        if (c != '\\') {
            out.push_back(c);
            ++i;
            continue;
        }
        if (++i >= text.size()) {
            break;
        }
        char e = text[i++];
        switch (e) {
            case 'a':
                out.push_back('\a');
                break;
            case 'b':
                out.push_back('\b');
                break;
            case 't':
                out.push_back('\t');
                break;
            case 'n':
                out.push_back('\n');
                break;
            case 'v':
                out.push_back('\v');
                break;
            case 'f':
                out.push_back('\f');
                break;
            case 'r':
                out.push_back('\r');
                break;
            default:
                if (e >= '0' && e <= '7') {
                    // Up to three octal digits make one byte; git writes exactly three.
                    unsigned value = static_cast<unsigned>(e - '0');
                    for (int k = 0; k < 2 && i < text.size() && text[i] >= '0' && text[i] <= '7';
                         ++k) {
                        value = value * 8 + static_cast<unsigned>(text[i++] - '0');
                    }
                    out.push_back(static_cast<char>(value & 0xFF));
                } else {
                    // \" and \\ stand for themselves, and so does any escape git never writes.
                    out.push_back(e);
                }
                break;
        }
    }
    return std::nullopt;
}

// ---- Display ----------------------------------------------------------------------------------

namespace {

void appendEscape(std::string& out, const char* prefix, unsigned value, int digits) {
    static const char hex[] = "0123456789abcdef";
    out.append(prefix);
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
        out.push_back(hex[(value >> shift) & 0xF]);
    }
}

bool isHiddenFormatting(char32_t cp) {
    // C1 controls, and the bidirectional embeddings, overrides and isolates that can make text
    // read in another order than it is stored.
    return (cp >= 0x80 && cp <= 0x9F) || (cp >= 0x202A && cp <= 0x202E) ||
           (cp >= 0x2066 && cp <= 0x2069);
}

}  // namespace

void appendDisplayText(std::string& out, std::string_view text, bool keepTabs) {
    auto s = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t n = text.size(), i = 0;
    while (i < n) {
        std::size_t start = i;
        while (i < n && s[i] >= 0x20 && s[i] < 0x7F) {
            ++i;
        }
        out.append(text.data() + start, i - start);
        if (i >= n) {
            break;
        }
        unsigned char c = s[i];
        if (c < 0x80) {
            ++i;
            switch (c) {
                case '\t':
                    out.append(keepTabs ? "\t" : "\\t");
                    break;
                case '\a':
                    out.append("\\a");
                    break;
                case '\b':
                    out.append("\\b");
                    break;
                case '\n':
                    out.append("\\n");
                    break;
                case '\v':
                    out.append("\\v");
                    break;
                case '\f':
                    out.append("\\f");
                    break;
                case '\r':
                    out.append("\\r");
                    break;
                default:
                    appendEscape(out, "\\x", c, 2);
                    break;
            }
            continue;
        }
        std::size_t maximal;
        std::size_t len = validSequenceLength(s, n, i, maximal);
        if (len == 0) {
            out.append("\xEF\xBF\xBD");
            i += maximal;
            continue;
        }
        char32_t cp = len == 2   ? ((c & 0x1F) << 6) | (s[i + 1] & 0x3F)
                      : len == 3 ? ((c & 0x0F) << 12) | ((s[i + 1] & 0x3F) << 6) | (s[i + 2] & 0x3F)
                                 : 0x10000;
        if (isHiddenFormatting(cp)) {
            appendEscape(out, "\\u", static_cast<unsigned>(cp), 4);
        } else {
            out.append(text.data() + i, len);
        }
        i += len;
    }
}

std::string displayText(std::string_view text, bool keepTabs) {
    std::string out;
    out.reserve(text.size());
    appendDisplayText(out, text, keepTabs);
    return out;
}

namespace {

constexpr std::string_view kUTF8ByteOrderMark = "\xEF\xBB\xBF";

// Code points of valid UTF-8 text, one at a time.
char32_t nextCodePoint(const unsigned char* s, std::size_t& i) {
    unsigned char c = s[i];
    if (c < 0x80) {
        i += 1;
        return c;
    }
    if (c < 0xE0) {
        char32_t cp = ((c & 0x1Fu) << 6) | (s[i + 1] & 0x3Fu);
        i += 2;
        return cp;
    }
    if (c < 0xF0) {
        char32_t cp = ((c & 0x0Fu) << 12) | ((s[i + 1] & 0x3Fu) << 6) | (s[i + 2] & 0x3Fu);
        i += 3;
        return cp;
    }
    char32_t cp = ((c & 0x07u) << 18) | ((s[i + 1] & 0x3Fu) << 12) | ((s[i + 2] & 0x3Fu) << 6) |
                  (s[i + 3] & 0x3Fu);
    i += 4;
    return cp;
}

std::optional<std::string> decodeUTF16(std::string_view bytes, bool bigEndian) {
    if (bytes.size() % 2 != 0) {
        return std::nullopt;
    }
    auto unit = [&](std::size_t at) {
        auto a = static_cast<unsigned char>(bytes[at]);
        auto b = static_cast<unsigned char>(bytes[at + 1]);
        return static_cast<char32_t>(bigEndian ? (a << 8) | b : (b << 8) | a);
    };
    std::string out;
    out.reserve(bytes.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
        char32_t cp = unit(i);
        if (cp >= 0xDC00 && cp <= 0xDFFF) {
            return std::nullopt;
        }
        if (cp >= 0xD800 && cp <= 0xDBFF) {
            if (i + 3 >= bytes.size()) {
                return std::nullopt;
            }
            char32_t low = unit(i + 2);
            if (low < 0xDC00 || low > 0xDFFF) {
                return std::nullopt;
            }
            cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
            i += 2;
        }
        appendUTF8(out, cp);
    }
    return out;
}

void appendUTF16Unit(std::string& out, char32_t unit, bool bigEndian) {
    auto high = static_cast<char>((unit >> 8) & 0xFF);
    auto low = static_cast<char>(unit & 0xFF);
    out.push_back(bigEndian ? high : low);
    out.push_back(bigEndian ? low : high);
}

std::string encodeUTF16(std::string_view utf8, bool bigEndian) {
    std::string out;
    out.reserve(utf8.size() * 2);
    auto s = reinterpret_cast<const unsigned char*>(utf8.data());
    for (std::size_t i = 0; i < utf8.size();) {
        char32_t cp = nextCodePoint(s, i);
        if (cp >= 0x10000) {
            cp -= 0x10000;
            appendUTF16Unit(out, 0xD800 + (cp >> 10), bigEndian);
            appendUTF16Unit(out, 0xDC00 + (cp & 0x3FF), bigEndian);
        } else {
            appendUTF16Unit(out, cp, bigEndian);
        }
    }
    return out;
}

std::optional<std::string> encodeWindows1252(std::string_view utf8) {
    static std::once_flag once;
    static std::unordered_map<char32_t, char> reverse;
    const SingleByteTable& table = tableFor(TextEncoding::Windows1252);
    if (!table.ok) {
        return std::nullopt;
    }
    std::call_once(once, [&] {
        for (int b = 0; b < 256; ++b) {
            if (table.mapped[b]) {
                reverse.emplace(table.toUnicode[b], static_cast<char>(b));
            }
        }
    });
    std::string out;
    out.reserve(utf8.size());
    auto s = reinterpret_cast<const unsigned char*>(utf8.data());
    for (std::size_t i = 0; i < utf8.size();) {
        char32_t cp = nextCodePoint(s, i);
        auto found = reverse.find(cp);
        if (found == reverse.end()) {
            return std::nullopt;
        }
        out.push_back(found->second);
    }
    return out;
}

}  // namespace

const char* fileEncodingName(FileEncoding encoding) {
    switch (encoding) {
        case FileEncoding::UTF8:
            return "UTF-8";
        case FileEncoding::UTF16LE:
            return "UTF-16LE";
        case FileEncoding::UTF16BE:
            return "UTF-16BE";
        case FileEncoding::Windows1252:
            return "windows-1252";
    }
    return "UTF-8";
}

DecodedTextFile decodeTextFile(std::string_view bytes) {
    DecodedTextFile file;
    std::string_view rest = bytes;
    if (rest.starts_with(kUTF8ByteOrderMark)) {
        file.byteOrderMark = true;
        rest.remove_prefix(kUTF8ByteOrderMark.size());
    } else if (rest.starts_with("\xFF\xFE") || rest.starts_with("\xFE\xFF")) {
        const bool bigEndian = rest.front() == '\xFE';
        if (auto text = decodeUTF16(rest.substr(2), bigEndian)) {
            file.text = std::move(*text);
            file.encoding = bigEndian ? FileEncoding::UTF16BE : FileEncoding::UTF16LE;
            file.byteOrderMark = true;
            return file;
        }
    }
    if (isValidUTF8(rest)) {
        file.text = std::string(rest);
        return file;
    }
    // Windows-1252 gives every byte a character, so this cannot fail.
    file.text = decodeText(rest, TextEncoding::Windows1252).value_or(std::string());
    file.encoding = FileEncoding::Windows1252;
    return file;
}

std::optional<std::string> encodeTextFile(std::string_view utf8, FileEncoding encoding,
                                          bool byteOrderMark) {
    if (!isValidUTF8(utf8)) {
        return std::nullopt;
    }
    std::string out;
    switch (encoding) {
        case FileEncoding::UTF8:
            if (byteOrderMark) {
                out = kUTF8ByteOrderMark;
            }
            out += utf8;
            return out;
        case FileEncoding::UTF16LE:
        case FileEncoding::UTF16BE: {
            const bool bigEndian = encoding == FileEncoding::UTF16BE;
            if (byteOrderMark) {
                appendUTF16Unit(out, 0xFEFF, bigEndian);
            }
            out += encodeUTF16(utf8, bigEndian);
            return out;
        }
        case FileEncoding::Windows1252: {
            std::optional<std::string> bytes = encodeWindows1252(utf8);
            if (!bytes) {
                return std::nullopt;
            }
            if (byteOrderMark) {
                out = kUTF8ByteOrderMark;
            }
            out += *bytes;
            return out;
        }
    }
    return std::nullopt;
}

}  // namespace vn
