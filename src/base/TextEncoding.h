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
