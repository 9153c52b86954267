#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vn {

// Text encodings that tool output and configuration files are read in. All text inside the engine
// is UTF-8; these convert at the edges.
enum class TextEncoding { UTF8, MacRoman, Latin1, Windows1252 };

const char* textEncodingName(TextEncoding encoding);

bool isValidUTF8(std::string_view bytes);

// Length of the longest prefix of `bytes` that does not end inside a UTF-8 sequence; bytes after
// it may be the start of a character whose remaining bytes have not arrived yet.
std::size_t completeUTF8PrefixLength(std::string_view bytes);

// Replaces every malformed UTF-8 sequence with U+FFFD (one per maximal invalid subpart).
std::string repairUTF8(std::string_view bytes);

// Decodes bytes in the given encoding to UTF-8; nothing when a byte has no mapping (UTF-8: when the
// bytes are not valid UTF-8).
std::optional<std::string> decodeText(std::string_view bytes, TextEncoding encoding);

// Encodes UTF-8 text in the given encoding; nothing when a character cannot be represented.
std::optional<std::string> encodeText(std::string_view utf8, TextEncoding encoding);

// Strict UTF-8, then Mac OS Roman, ISO Latin-1 and Windows-1252 in turn; the first that decodes
// wins. `used`, when given, tells which one.
std::optional<std::string> decodeWithFallbacks(std::string_view bytes,
                                               TextEncoding* used = nullptr);

// Cuts UTF-8 text to at most `maxBytes` bytes without splitting a character.
std::string_view truncateUTF8(std::string_view text, std::size_t maxBytes);

// ---- Tool output ----

// The 8-bit reading of text that is not UTF-8: Windows-1252, with ISO Latin-1 for the five bytes
// it leaves unmapped, so that it never fails and every byte keeps a character of its own.
std::string decodeLegacy8Bit(std::string_view bytes);

// One line or field of tool output as text: valid UTF-8 as it is, anything else repaired
// (`lossy`, each malformed sequence becomes U+FFFD) or read as 8-bit text.
std::string decodeToolText(std::string_view bytes, bool lossy);

// Tool output as text, decided line by line (lines end at "\n"): one line in another encoding
// never changes how the lines around it read.
std::string decodeToolOutput(std::string_view bytes, bool lossy);

// Reads the C-quoted string at the start of `text` (in double quotes, with the C escapes and
// octal escapes, as git quotes names) into its exact bytes. `consumed` receives the length
// of the quoted string, closing quote included. Nothing when `text` does not start with a
// complete quoted string.
std::optional<std::string> readCQuoted(std::string_view text, std::size_t* consumed = nullptr);

// ---- Display ----

// Text from tools or users made safe to write to a terminal: malformed UTF-8 shows as U+FFFD;
// control characters (C0, DEL, C1) and the bidirectional overrides are written as visible
// escapes ("\t", "\n", "\r", "\x1b", "\u009b", "\u202e"), so that nothing in a name or a
// message can move the cursor, recolour or rewrite the screen. A tab stays a tab with
// `keepTabs` (the indentation of file contents).
std::string displayText(std::string_view text, bool keepTabs = false);
// The same, appended to `out`.
void appendDisplayText(std::string& out, std::string_view text, bool keepTabs = false);

// How a text file's bytes are stored. Configuration files are read as UTF-8, else as UTF-16 when a
// byte order mark says so, else as Windows-1252 (which also covers ISO Latin-1 text).
enum class FileEncoding { UTF8, UTF16LE, UTF16BE, Windows1252 };

const char* fileEncodingName(FileEncoding encoding);

struct DecodedTextFile {
    std::string text;  // UTF-8, without the byte order mark
    FileEncoding encoding = FileEncoding::UTF8;
    bool byteOrderMark = false;
};

// Never fails: every byte sequence has a Windows-1252 reading, and decoding followed by
// encodeTextFile() in the same form gives back the same bytes.
DecodedTextFile decodeTextFile(std::string_view bytes);

// Nothing when `utf8` is not valid UTF-8 or holds a character the encoding cannot represent.
std::optional<std::string> encodeTextFile(std::string_view utf8, FileEncoding encoding,
                                          bool byteOrderMark);

}  // namespace vn
