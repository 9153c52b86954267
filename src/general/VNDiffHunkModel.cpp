#include "general/VNDiffHunkModel.h"

vn::Record VNDiffHunkModel::lineRecord(std::string prefix, std::string beforeLineNumber,
                                       std::string afterLineNumber, std::string line) {
    // Copying a record that already holds the four keys costs one allocation; building it key by
    // key regrows its storage. Diffs have millions of lines, so this shows.
    static const vn::Record prototype{
        {PrefixKey, ""}, {BeforeLineNumberKey, ""}, {AfterLineNumberKey, ""}, {LineKey, ""}};
    vn::Record record = prototype;
    record.set(PrefixKey, std::move(prefix));
    record.set(BeforeLineNumberKey, std::move(beforeLineNumber));
    record.set(AfterLineNumberKey, std::move(afterLineNumber));
    record.set(LineKey, std::move(line));
    return record;
}

vn::Value VNDiffHunkModel::jsonValue() const {
    return vn::Record{
        {"index", index_},
        {"startLineBefore", startLineBefore_},
        {"endLineBefore", endLineBefore_},
        {"startLineAfter", startLineAfter_},
        {"endLineAfter", endLineAfter_},
        {"rawHunk", rawHunk_},
        {"hunkLines", vn::Value::Array(hunkLines_.begin(), hunkLines_.end())},
    };
}
