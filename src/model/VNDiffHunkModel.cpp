#include "model/VNDiffHunkModel.h"

#include <charconv>

#include "base/Json.h"

namespace {

// The decimal text of a line number, or "" for none; `buffer` holds at least 24 characters.
std::string_view lineNumberText(int64_t number, char* buffer) {
    if (number == VNDiffHunkModel::NoLineNumber) {
        return {};
    }
    auto result = std::to_chars(buffer, buffer + 24, number);
    return std::string_view(buffer, static_cast<std::size_t>(result.ptr - buffer));
}

// A line number read back from a record's text; none for empty or other text.
int64_t lineNumberFromText(const vn::Value& value) {
    const std::string* text = value.string();
    int64_t number = 0;
    if (!text || text->empty()) {
        return VNDiffHunkModel::NoLineNumber;
    }
    auto result = std::from_chars(text->data(), text->data() + text->size(), number);
    return result.ec == std::errc() ? number : VNDiffHunkModel::NoLineNumber;
}

std::string_view textOf(const vn::Value& value) {
    const std::string* text = value.string();
    return text ? std::string_view(*text) : std::string_view();
}

}  // namespace

vn::Record VNDiffHunkModel::lineRecord(std::string prefix, std::string beforeLineNumber,
                                       std::string afterLineNumber, std::string line) {
    // Copying a record that already holds the four keys costs one allocation; building it key by
    // key regrows its storage.
    static const vn::Record prototype{
        {PrefixKey, ""}, {BeforeLineNumberKey, ""}, {AfterLineNumberKey, ""}, {LineKey, ""}};
    vn::Record record = prototype;
    record.set(PrefixKey, std::move(prefix));
    record.set(BeforeLineNumberKey, std::move(beforeLineNumber));
    record.set(AfterLineNumberKey, std::move(afterLineNumber));
    record.set(LineKey, std::move(line));
    return record;
}

void VNDiffHunkModel::setRawHunk(std::string raw) {
    // The spans point into the old body; their records must be made before it goes.
    makeRecords();
    spans_.clear();
    decodedLines_.clear();
    rawHunk_ = std::move(raw);
}

void VNDiffHunkModel::setHunkLines(std::vector<vn::Record> lines) {
    std::lock_guard<std::mutex> lock(recordsMutex_);
    spans_.clear();
    decodedLines_.clear();
    hunkLines_ = std::move(lines);
    recordsMade_.store(true, std::memory_order_release);
}

void VNDiffHunkModel::setBody(std::string raw, std::vector<LineSpan> lines, std::string decoded) {
    std::lock_guard<std::mutex> lock(recordsMutex_);
    rawHunk_ = std::move(raw);
    decodedLines_ = std::move(decoded);
    spans_ = std::move(lines);
    hunkLines_.clear();
    recordsMade_.store(spans_.empty(), std::memory_order_release);
}

const std::vector<vn::Record>& VNDiffHunkModel::hunkLines() const {
    makeRecords();
    return hunkLines_;
}

void VNDiffHunkModel::makeRecords() const {
    // Views of the same model may ask from several threads at once.
    if (recordsMade_.load(std::memory_order_acquire)) {
        return;
    }
    std::lock_guard<std::mutex> lock(recordsMutex_);
    if (recordsMade_.load(std::memory_order_relaxed)) {
        return;
    }
    std::vector<vn::Record> records;
    records.reserve(spans_.size());
    char before[24], after[24];
    for (std::size_t i = 0; i < spans_.size(); ++i) {
        LineView line = lineAt(i);
        records.push_back(lineRecord(
            std::string(line.prefix), std::string(lineNumberText(line.beforeLineNumber, before)),
            std::string(lineNumberText(line.afterLineNumber, after)), std::string(line.line)));
    }
    hunkLines_ = std::move(records);
    recordsMade_.store(true, std::memory_order_release);
}

std::size_t VNDiffHunkModel::lineCount() const {
    return spans_.empty() ? hunkLines().size() : spans_.size();
}

VNDiffHunkModel::LineView VNDiffHunkModel::lineAt(std::size_t index) const {
    if (!spans_.empty()) {
        const LineSpan& span = spans_[index];
        std::string_view raw(span.decoded ? decodedLines_ : rawHunk_);
        return LineView{raw.substr(span.offset, span.prefixLength),
                        raw.substr(span.offset + span.prefixLength, span.contentLength),
                        span.beforeLineNumber, span.afterLineNumber};
    }
    const vn::Record& record = hunkLines()[index];
    return LineView{textOf(record[PrefixKey]), textOf(record[LineKey]),
                    lineNumberFromText(record[BeforeLineNumberKey]),
                    lineNumberFromText(record[AfterLineNumberKey])};
}

VNDiffHunkModel::LineEnd VNDiffHunkModel::lineEndAt(std::size_t index) const {
    return spans_.empty() ? LineEnd::Unknown : spans_[index].lineEnd;
}

std::vector<std::string_view> VNDiffHunkModel::rawLines() const {
    std::vector<std::string_view> lines;
    std::string_view raw(rawHunk_);
    std::size_t start = 0;
    while (start < raw.size()) {
        std::size_t end = raw.find('\n', start);
        if (end == std::string_view::npos) {
            end = raw.size();
        }
        lines.push_back(raw.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

vn::Value VNDiffHunkModel::jsonValue() const {
    const auto& lines = hunkLines();
    return vn::Record{
        {"index", index_},
        {"startLineBefore", startLineBefore_},
        {"endLineBefore", endLineBefore_},
        {"startLineAfter", startLineAfter_},
        {"endLineAfter", endLineAfter_},
        {"rawHunk", rawHunk_},
        {"hunkLines", vn::Value::Array(lines.begin(), lines.end())},
    };
}

void VNDiffHunkModel::writeJson(vn::JsonWriter& writer) const {
    writer.beginObject();
    writer.member("index", index_);
    writer.member("startLineBefore", startLineBefore_);
    writer.member("endLineBefore", endLineBefore_);
    writer.member("startLineAfter", startLineAfter_);
    writer.member("endLineAfter", endLineAfter_);
    writer.member("rawHunk", rawHunk_);
    writer.key("hunkLines");
    writer.beginArray();
    if (spans_.empty()) {
        // Records set from outside keep whatever they hold.
        for (const vn::Record& line : hunkLines()) {
            writer.beginObject();
            for (const auto& [key, value] : line) {
                writer.key(key);
                writer.value(value);
            }
            writer.endObject();
        }
    } else {
        char before[24], after[24];
        for (std::size_t i = 0; i < spans_.size(); ++i) {
            LineView line = lineAt(i);
            writer.beginObject();
            writer.key(PrefixKey);
            writer.string(line.prefix);
            writer.key(BeforeLineNumberKey);
            writer.string(lineNumberText(line.beforeLineNumber, before));
            writer.key(AfterLineNumberKey);
            writer.string(lineNumberText(line.afterLineNumber, after));
            writer.key(LineKey);
            writer.string(line.line);
            writer.endObject();
        }
    }
    writer.endArray();
    writer.endObject();
}
