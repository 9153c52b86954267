#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Value.h"

namespace vn {

// Writes JSON as it goes, so that large models (a diff of a hundred megabytes, a long history) are
// written without first being copied into records. Compact by default: no white space at all.
// Bytes that are not valid UTF-8 become U+FFFD (one per maximal invalid subpart), so the text is
// always valid JSON in UTF-8 whatever the names and lines it carries.
class JsonWriter {
  public:
    using Sink = std::function<void(std::string_view chunk)>;

    // Collects the text; `text()` gives it.
    explicit JsonWriter(bool pretty = false);
    // Hands the text to `sink` in chunks of about 64 KB, and the rest at `flush()` or destruction.
    JsonWriter(Sink sink, bool pretty = false);
    ~JsonWriter();
    JsonWriter(const JsonWriter&) = delete;
    JsonWriter& operator=(const JsonWriter&) = delete;

    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    void key(std::string_view name);
    void string(std::string_view text);
    void number(int64_t value);
    void number(uint64_t value);
    void number(int value) { number(static_cast<int64_t>(value)); }
    void number(double value);
    void boolean(bool value);
    void null();
    // Any value; model objects write themselves through `Object::writeJson`.
    void value(const Value& value);

    // Shorthands for one member of an object.
    bool isPretty() const { return pretty_; }
    // One or more values already written compact by another writer, separated by commas, taking
    // their place in the open array. For compact output only.
    void compactValues(std::string_view json);

    template <typename T>
    void member(std::string_view name, const T& v) {
        key(name);
        write(v);
    }

    // ---- Fragments, for writers of large regular output that know its shape ----
    // Written as they are, with no separators: the caller places every comma and bracket, and
    // the result is compact JSON only when the caller's shape is. What `string` and `number`
    // would write for the value, without the separator before it.
    void fragment(std::string_view json) { raw(json); }
    void fragmentString(std::string_view text) { quoted(text); }
    void fragmentNumber(uint64_t value);
    void fragmentNumber(double value);
    void fragmentBoolean(bool value) { raw(value ? "true" : "false"); }
    // Starts again with no text, keeping the room already taken.
    void reset();

    // The text so far; the reference holds until the next write.
    const std::string& text() const {
        buffer_.resize(size_);
        return buffer_;
    }
    // The same without trimming the room after it; valid until the next write.
    std::string_view view() const { return {buffer_.data(), size_}; }
    void flush();

  private:
    void write(std::string_view v) { string(v); }
    void write(const std::string& v) { string(v); }
    void write(const char* v) { string(v); }
    void write(bool v) { boolean(v); }
    void write(int v) { number(v); }
    void write(int64_t v) { number(v); }
    void write(uint64_t v) { number(v); }
    void write(double v) { number(v); }
    void write(const Value& v) { value(v); }

    // An object or array: its opening bracket, and its closing one with the layout it needs.
    void open(char bracket);
    void close(char bracket);
    // Puts the separator (and, when pretty, the line break and indent) that the next value needs.
    void beforeValue();
    void newLine(std::size_t depth);
    void quoted(std::string_view text);
    // Room for `length` more bytes at the end of the text; the caller advances size_.
    char* room(std::size_t length) {
        if (size_ + length > buffer_.size()) {
            grow(length);
        }
        return buffer_.data() + size_;
    }
    void grow(std::size_t length);
    void put(char c) {
        *room(1) = c;
        ++size_;
    }
    void raw(std::string_view text) {
        if (!text.empty()) {
            std::memcpy(room(text.size()), text.data(), text.size());
            size_ += text.size();
        }
    }
    void maybeHandOver() {
        if (sink_ && size_ >= kChunk) {
            handOver();
        }
    }
    void handOver();

    static constexpr std::size_t kChunk = 64 * 1024;

    // The text is the first size_ bytes; the rest is room written into without a check per byte.
    mutable std::string buffer_;
    std::size_t size_ = 0;
    Sink sink_;
    bool pretty_;
    // One entry per open container: whether anything has been written into it yet.
    std::vector<bool> open_;
    bool afterKey_ = false;
    int depth_ = 0;
};

// JSON text of a value: records keep their key order, dates become ISO 8601 text in UTC, model
// objects write themselves (`Object::writeJson`), text that is not valid UTF-8 is repaired.
std::string toJson(const Value& value, bool pretty = false);

// Parses JSON text. Objects become records, integers that fit become Int (else UInt or Double).
std::optional<Value> parseJson(std::string_view text, std::string* error = nullptr);

// "2026-11-21T09:36:37Z" for a point in time.
std::string isoDateString(const Value::Date& date);
// "2024-03-01T14:05:00+05:30": the wall-clock time at `offsetSeconds` east of UTC, and the offset.
std::string isoDateString(const Value::Date& date, int32_t offsetSeconds);

}  // namespace vn
